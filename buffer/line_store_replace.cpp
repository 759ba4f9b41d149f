#include <algorithm>
#include <cstring>
#include <functional>
#include <span>
#include <vector>

#include "buffer/byte_search.h"
#include "buffer/line_store.h"
#include "buffer/row_rewriter.h"
#include "system/threads.h"

namespace {

constexpr size_t SHARES_TOGETHER = 8;

bool lies_in(const char* place, std::string_view line) {
    const std::less<> before;  // in whatever block
    return !before(place, line.data()) && before(place, line.data() + line.size());
}

// Replaces chunk by chunk. All places are found first, over whole runs of lines, so that the sizes of the new texts are
// known and each of their bytes is written once.
class StringReplacer {
public:
    StringReplacer(LineStore& store, const ByteSearch& what, std::string_view by, Patience& patience)
        : rewriter_(store, &done.changed), what_(what), by_(by), patience_(patience) {}

    LineStore::Hits done;

    // In the lines of a chunk whose first row is first.
    void replace_in(const LineChunk& chunk, size_t first) {
        find_places(chunk);
        share_out_places(chunk, first);
        rewriter_.renew(chunk, first, changes_, [&](const Change& change, char* to) { write(change, to); });
    }
    void finish() { rewriter_.finish(); }

private:
    using PlacesInLine = std::span<const char* const>;

    struct Change {
        size_t row, size;  // row of the chunk; size of its new text
        std::string_view line;
        PlacesInLine places;
    };

    void find_places(const LineChunk& chunk) {
        places_.clear();
        for (const LineRun& run : chunk.runs()) {
            what_.find_all(run.bytes, places_, patience_);
            if (patience_.over()) return;
        }
    }

    // What becomes of so many bytes by so many replacements.
    size_t size_after(size_t bytes, size_t count) const { return bytes - count * what_.size() + count * by_.size(); }

    // Finds the row of each place, and counts.
    void share_out_places(const LineChunk& chunk, size_t first) {
        changes_.clear();
        if (places_.empty()) return;
        done.count += places_.size();
        lines_.resize(chunk.rows());
        chunk.views(0, lines_);
        const auto differs = [&](const char* place) { return std::string_view(place, what_.size()) != by_; };
        size_t at = 0;
        for (size_t row = 0; at < places_.size(); ++row) {
            const std::string_view line = lines_[row];
            const PlacesInLine places = places_in(line, at);
            if (places.empty()) continue;
            at += places.size();
            done.last_row = first + row;
            done.last_col = size_after(static_cast<size_t>(places.back() - line.data()), places.size() - 1);
            if (std::any_of(places.begin(), places.end(), differs))
                changes_.push_back({row, size_after(line.size(), places.size()), line, places});
        }
    }

    // The places from index on that lie in line. Lines with the same bytes may follow one another.
    PlacesInLine places_in(std::string_view line, size_t index) const {
        size_t end = index;
        for (; end < places_.size() && lies_in(places_[end], line); ++end)
            line = {places_[end] + what_.size(), line.data() + line.size()};
        return PlacesInLine(places_).subspan(index, end - index);
    }

    void write(const Change& change, char* to) const {
        const char* from = change.line.data();
        const auto put = [&](const char* bytes, size_t count) {
            std::memcpy(to, bytes, count);
            to += count;
        };
        for (const char* const place : change.places) {
            put(from, static_cast<size_t>(place - from));
            put(by_.data(), by_.size());
            from = place + what_.size();
        }
        put(from, static_cast<size_t>(change.line.data() + change.line.size() - from));
    }

    RowRewriter rewriter_;
    const ByteSearch& what_;
    const std::string_view by_;
    Patience& patience_;
    std::vector<const char*> places_;  // in the rows at hand, in their order
    std::vector<std::string_view> lines_;
    std::vector<Change> changes_;
};

// The places that were replaced in a part of the rows, and the rows themselves.
struct ReplacedPart {
    LineStore rows;
    LineStore::Hits done;
    bool stopped = false;  // patience ended
};

}  // namespace

LineStore::Hits LineStore::replace_in_part(size_t first, size_t last, const ByteSearch& what, std::string_view by,
                                           Patience& patience) {
    const LineStore rows = slice(first, last);
    StringReplacer all(*this, what, by, patience);
    LineTree::Place at;
    do {
        const LineChunk& chunk = rows.tree_->chunk(at);
        all.replace_in(chunk, first);
        first += chunk.rows();
    } while (!patience.over() && rows.tree_->step_forward(at));
    all.finish();
    return all.done;
}

LineStore::Hits LineStore::replace(size_t first, size_t last, const ByteSearch& what, std::string_view by,
                                   Patience& patience) {
    last = std::min(last, size() - 1);
    if (empty() || first > last) return {};
    const std::vector<size_t> rows = shares(first, last + 1);
    if (rows.size() == 2) return replace_in_part(first, last + 1, what, by, patience);

    // Of a few shares, so that each part fills large blocks of memory.
    const size_t parts = (rows.size() - 1 + SHARES_TOGETHER - 1) / SHARES_TOGETHER;
    const auto start_of = [&](size_t part) { return rows[std::min(part * SHARES_TOGETHER, rows.size() - 1)]; };
    std::vector<ReplacedPart> replaced(parts);
    kpe_share_work(parts, [&](size_t part) {
        ReplacedPart& mine = replaced[part];
        Patience own = patience;
        mine.rows = slice(start_of(part), start_of(part + 1));
        if (own.ask()) mine.done = mine.rows.replace_in_part(0, mine.rows.size(), what, by, own);
        mine.stopped = own.over();
    });

    // What comes behind a part that was stopped stays as it was.
    Hits done;
    LineTreeBuilder out;
    out.add_rows(*tree_, 0, first);
    size_t part = 0;
    for (bool stopped = false; part < parts && !stopped; ++part) {
        const ReplacedPart& next = replaced[part];
        if (next.done.count > 0) {
            done = {done.count + next.done.count, start_of(part) + next.done.last_row, next.done.last_col,
                    done.changed || next.done.changed};
        }
        if (next.done.changed)
            out.add_rows(*next.rows.tree_, 0, next.rows.size());
        else
            out.add_rows(*tree_, start_of(part), start_of(part + 1));
        stopped = next.stopped;
    }
    out.add_rows(*tree_, start_of(part), size());
    if (done.changed) tree_ = out.finish();
    patience.ask();
    return done;
}
