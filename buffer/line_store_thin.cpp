#include <algorithm>
#include <new>

#include "buffer/edited_line.h"
#include "buffer/line_store.h"
#include "buffer/line_tree.h"
#include "buffer/tree_difference.h"

namespace {

using Chunks = LineParts<LineChunk>;

struct Row {
    LineChunk* chunk = nullptr;  // null: there is none
    size_t row = 0;
};

Row row_of(const Chunks& chunks, size_t row) {
    const size_t index = chunks.level.index_of(chunks.start() + row);
    return {chunks.level.entries[index].part.get(), chunks.start() + row - chunks.level.start(index)};
}

// Where an old row may be found in the newer rows: as far from the first row as it was, and as far from the last.
struct Partners {
    Row counted_from_front, counted_from_back;
};

Partners partners_of(size_t row, size_t old_rows, const Chunks& anew) {
    const size_t rows = anew.rows(), behind = old_rows - row;
    Partners found;
    if (row < rows) found.counted_from_front = row_of(anew, row);
    if (behind <= rows && old_rows != rows) found.counted_from_back = row_of(anew, rows - behind);
    return found;
}

// Calls use(old, partners) for each long line of old that is not the same one in the newer rows.
template <typename Use>
void each_long_line(const Chunks& old, const Chunks& anew, const Use& use) {
    for (size_t i = old.first; i < old.last; ++i) {
        LineChunk& chunk = *old.level.entries[i].part;
        for (const size_t row : chunk.long_rows()) {
            const Partners partners = partners_of(old.level.start(i) - old.start() + row, old.rows(), anew);
            const auto line = chunk.edited_line(row);
            const auto is_same = [&](const Row& partner) {
                if (!partner.chunk) return false;
                const auto other = partner.chunk->edited_line(partner.row);
                if (line || other) return line == other;
                return partner.chunk->view(partner.row).data() == chunk.view(row).data();
            };
            if (!is_same(partners.counted_from_front) && !is_same(partners.counted_from_back))
                use(Row{&chunk, row}, partners);
        }
    }
}

// Makes the line the difference to that partner with which it has more in common, if that is half of it at least.
void thin_line(const Row& old, const Partners& partners) {
    const std::string_view text = old.chunk->view(old.row);
    CommonEnds ends;
    Row best;
    for (const Row& partner : {partners.counted_from_front, partners.counted_from_back}) {
        if (!partner.chunk || partner.chunk->length(partner.row) < text.size() / 2) continue;
        const CommonEnds common = kpe_common_ends(text, partner.chunk->view(partner.row));
        if (common.both() < std::max(ends.both(), text.size() / 2)) continue;
        ends = common;
        best = partner;
    }
    if (!best.chunk) return;
    const auto newer = best.chunk->shared_line(best.row);
    old.chunk->shared_line(old.row)->thin(newer, ends);
}

}  // namespace

LineStore::Thinned LineStore::thin(const LineStore& newer) const noexcept {
    Thinned thinned;
    if (!tree_ || !newer.tree_ || tree_ == newer.tree_) return thinned;
    try {
        kpe_each_difference(*tree_, *newer.tree_, 0, [&](const Chunks& old, const Chunks& anew, size_t) {
            each_long_line(old, anew, [&](const Row& row, const Partners& partners) {
                auto line = row.chunk->edited_line(row.row);
                if (!line || !line->is_difference()) thin_line(row, partners);
                line = row.chunk->edited_line(row.row);
                const bool has_partner = partners.counted_from_front.chunk || partners.counted_from_back.chunk;
                const size_t size = row.chunk->length(row.row);
                if (line && line->is_difference()) thinned.differences = true;
                if (has_partner && size >= HUGE_LINE) thinned.bytes += line ? line->own_bytes() : size;
            });
        });
    } catch (const std::bad_alloc&) {
        // The lines that are left stay whole.
    }
    return thinned;
}

void LineStore::add_differences(const LineStore& newer, Differences& to) const noexcept {
    if (!tree_ || !newer.tree_ || tree_ == newer.tree_) return;
    try {
        kpe_each_difference(*tree_, *newer.tree_, 0, [&](const Chunks& old, const Chunks& anew, size_t) {
            each_long_line(old, anew, [&](const Row& row, const Partners&) {
                auto line = row.chunk->edited_line(row.row);
                if (line && line->is_difference()) to.push_back(std::move(line));
            });
        });
    } catch (const std::bad_alloc&) {
        // A line that is left out stays a difference, and its newer lines stay with it.
    }
}

// In the order in which they lie: the one before may have been the last that another is a difference to.
void LineStore::settle(Differences& left) noexcept {
    for (auto& line : left) {
        try {
            if (line.use_count() > 1) line->view();
        } catch (const std::bad_alloc&) {
            // It stays a difference.
        }
        line.reset();
    }
    left.clear();
}
