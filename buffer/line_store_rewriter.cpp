#include <optional>

#include "buffer/line_rebuild.h"
#include "buffer/line_store.h"

struct LineStore::Rewriter::State {
    LineStore& store;
    bool* changed;
    LineStore done = store;  // with the rows before the last one that went back
    bool differs = false;
    std::optional<LineRebuild> anew = {};  // of done; from a row put to renew_done()

    // The chunk that rows are being put into: its first row and the new texts for it.
    struct Change {
        size_t row, start, length;  // row in the chunk; where the text lies in texts
    };
    std::optional<LineTree::Place> place = {};
    size_t first = 0;
    std::vector<Change> changes = {};
    std::string texts = {};

    State(LineStore& rewritten, bool* any_change) : store(rewritten), changed(any_change) {}
    std::string_view text(const Change& change) const { return {texts.data() + change.start, change.length}; }
    void end_chunk();
    void renew(const LineChunk& chunk);
    void renew_some(const LineChunk& chunk);
    void renew_done();
};

void LineStore::Rewriter::State::end_chunk() {
    if (!place) return;
    anew->copy_to(first);
    const LineChunk& chunk = anew->old->chunk(*place);
    const bool many = changes.size() * 4 >= chunk.rows();
    if (many)
        renew(chunk);
    else
        renew_some(chunk);
    anew->copied = first + chunk.rows();
    place.reset();
    changes.clear();
    texts.clear();
}

// All lines of the chunk into the arena, the changed and the others.
void LineStore::Rewriter::State::renew(const LineChunk& chunk) {
    std::vector<std::string_view> lines(chunk.rows());
    for (size_t row = 0; row < lines.size(); ++row) lines[row] = chunk.view(row);
    for (const Change& change : changes) lines[change.row] = text(change);
    size_t bytes = 0;
    for (const std::string_view line : lines) bytes += line.size() + 1;
    anew->arena.make_room(bytes);
    anew->cutter.start_at(anew->arena.block(), anew->arena.end());
    for (const std::string_view line : lines) {
        anew->arena.add(line);
        anew->cutter.add(line.size());
    }
}

// Only the changed lines; the others stay where they are.
void LineStore::Rewriter::State::renew_some(const LineChunk& chunk) {
    anew->cutter.finish();
    const auto renewed = std::make_shared<LineChunk>(chunk);
    for (const Change& change : changes) {
        anew->arena.make_room(change.length + 1);
        renewed->set_slice(change.row, anew->arena.add(text(change)), anew->arena.block());
    }
    anew->out.add_chunk(renewed);
}

void LineStore::Rewriter::State::renew_done() {
    if (!anew) return;
    end_chunk();
    done.tree_ = anew->finish();
    anew.reset();
}

LineStore::Rewriter::Rewriter(LineStore& store, bool* changed) : state_(std::make_unique<State>(store, changed)) {}

LineStore::Rewriter::~Rewriter() = default;

void LineStore::Rewriter::put(size_t row, std::string_view text) {
    State& s = *state_;
    if (row >= s.store.size()) return;
    const bool goes_back =
        s.anew && (row < s.anew->copied || (!s.changes.empty() && row <= s.first + s.changes.back().row));
    if (goes_back) s.renew_done();
    if (s.done.view(row) == text) return;
    s.differs = true;
    if (!s.anew) s.anew.emplace(s.done.tree_);
    if (!s.place || row >= s.first + s.anew->old->chunk(*s.place).rows()) {
        s.end_chunk();
        s.place = s.anew->old->locate(row);
        s.first = row - s.place->row;
    }
    s.changes.push_back({row - s.first, s.texts.size(), text.size()});
    s.texts.append(text);
}

void LineStore::Rewriter::finish() {
    State& s = *state_;
    s.renew_done();
    s.store.tree_ = s.done.tree_;
    if (s.changed && s.differs) *s.changed = true;
}
