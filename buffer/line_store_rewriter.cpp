#include <algorithm>
#include <optional>

#include "buffer/line_store.h"
#include "buffer/line_tree.h"

namespace {

constexpr size_t FIRST_BLOCK = size_t{4} << 10, LARGEST_BLOCK = size_t{4} << 20;  // bytes

// Room for new texts: blocks that get larger the more is put into them.
class Arena {
public:
    // Makes sure that bytes more fit into block() one behind the other.
    void make_room(size_t bytes) {
        if (block_ && block_->capacity() - block_->size() >= bytes) return;
        block_ = std::make_shared<Block>(std::max(bytes, next_size_));
        next_size_ = std::min(next_size_ * 4, LARGEST_BLOCK);
    }
    const std::shared_ptr<Block>& block() const { return block_; }
    // Adds the line and its "\n", for which there is room; where it lies then.
    std::string_view add(std::string_view line) {
        const char* const at = block_->data() + block_->size();
        block_->append(line);
        block_->append("\n");
        return {at, line.size()};
    }

private:
    std::shared_ptr<Block> block_;
    size_t next_size_ = FIRST_BLOCK;
};

}  // namespace

struct LineStore::Rewriter::State {
    LineStore& store;
    bool* changed;
    std::shared_ptr<LineTree> old = {};
    size_t copied = 0;  // rows of the old tree that the new one has got
    LineTreeBuilder out = {};
    SliceCutter cutter{out};
    Arena arena = {};

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
    void copy_to(size_t row);
    void end_chunk();
    void renew(const LineChunk& chunk);
    void renew_some(const LineChunk& chunk);
    void finish();
};

void LineStore::Rewriter::State::copy_to(size_t row) {
    if (row == copied) return;
    cutter.finish();
    out.add_rows(*old, copied, row);
    copied = row;
}

void LineStore::Rewriter::State::end_chunk() {
    if (!place) return;
    copy_to(first);
    const LineChunk& chunk = old->chunk(*place);
    const bool many = changes.size() * 4 >= chunk.rows();
    if (many)
        renew(chunk);
    else
        renew_some(chunk);
    copied = first + chunk.rows();
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
    arena.make_room(bytes);
    cutter.start_at(arena.block(), arena.block()->data() + arena.block()->size());
    for (const std::string_view line : lines) {
        arena.add(line);
        cutter.add(line.size());
    }
}

// Only the changed lines; the others stay where they are.
void LineStore::Rewriter::State::renew_some(const LineChunk& chunk) {
    cutter.finish();
    const auto renewed = std::make_shared<LineChunk>(chunk);
    for (const Change& change : changes) {
        arena.make_room(change.length + 1);
        renewed->set_slice(change.row, arena.add(text(change)), arena.block());
    }
    out.add_chunk(renewed);
}

void LineStore::Rewriter::State::finish() {
    if (!old) return;
    end_chunk();
    copy_to(old->size());
    cutter.finish();
    store.tree_ = out.finish();
    old.reset();
    copied = 0;
}

LineStore::Rewriter::Rewriter(LineStore& store, bool* changed) : state_(std::make_unique<State>(store, changed)) {}

LineStore::Rewriter::~Rewriter() { finish(); }

void LineStore::Rewriter::put(size_t row, std::string_view text) {
    State& s = *state_;
    if (row >= s.store.size()) return;
    const bool goes_back = row < s.copied || (!s.changes.empty() && row <= s.first + s.changes.back().row);
    const auto keep = s.old;  // text may lie in it
    if (goes_back) s.finish();
    if (s.store.view(row) == text) return;
    if (s.changed) *s.changed = true;
    if (!s.old) s.old = s.store.tree_;
    if (!s.place || row >= s.first + s.old->chunk(*s.place).rows()) {
        s.end_chunk();
        s.place = s.old->locate(row);
        s.first = row - s.place->row;
    }
    s.changes.push_back({row - s.first, s.texts.size(), text.size()});
    s.texts.append(text);
}

void LineStore::Rewriter::finish() { state_->finish(); }
