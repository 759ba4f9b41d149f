#include <algorithm>

#include "buffer/line_store.h"
#include "buffer/row_pairs.h"
#include "buffer/tree_difference.h"

namespace {

using Chunks = LineParts<LineChunk>;

bool same_line(std::string_view a, std::string_view b) {
    return a.size() == b.size() && (a.data() == b.data() || a == b);
}

// How many rows at the end of both are equal, at most so many.
size_t equal_back(const Chunks& old, const Chunks& anew, size_t most) {
    size_t count = 0, in_old = old.last, in_new = anew.last, old_row = 0, new_row = 0;  // the rows behind those at hand
    const LineChunk *a = nullptr, *b = nullptr;
    while (count < most) {
        if (old_row == 0) {
            a = old.level.entries[--in_old].part.get();
            old_row = a->rows();
        }
        if (new_row == 0) {
            b = anew.level.entries[--in_new].part.get();
            new_row = b->rows();
        }
        size_t same = a == b && old_row == new_row ? old_row : a->count_same_back(old_row, *b, new_row);
        if (same == 0 && same_line(a->view(old_row - 1), b->view(new_row - 1))) same = 1;
        same = std::min(same, most - count);
        if (same == 0) break;
        count += same;
        old_row -= same;
        new_row -= same;
    }
    return count;
}

}  // namespace

RowPairs::Side::Side(const LineTree* of, size_t row) : tree(of && row < of->rows() ? of : nullptr) {
    if (!tree) return;
    at = tree->locate(row);
    chunk = &tree->chunk(at);
}

void RowPairs::Side::advance(size_t rows) {
    at.row += rows;
    if (at.row < chunk->rows()) return;
    if (tree->step_forward(at))
        chunk = &tree->chunk(at);
    else
        tree = nullptr;
}

RowPairs::RowPairs(const LineStore& older, size_t older_row, const LineStore& newer, size_t newer_row)
    : older_(older.tree_.get(), older_row), newer_(newer.tree_.get(), newer_row) {}

void RowPairs::step() {
    older_.advance(1);
    newer_.advance(1);
}

size_t RowPairs::skip_equal(size_t most) {
    size_t count = 0;
    while (count < most) {
        size_t same = 0;
        if (older_.at.row == newer_.at.row)
            same = older_.chunk == newer_.chunk ? older_.chunk->rows() - older_.at.row
                                                : older_.chunk->count_same(*newer_.chunk, older_.at.row);
        if (same == 0 && same_line(older(), newer())) same = 1;
        same = std::min(same, most - count);
        if (same == 0) break;
        count += same;
        older_.advance(same);
        newer_.advance(same);
    }
    return count;
}

LineStore::Difference LineStore::difference_to(const LineStore& older) const {
    Difference found;
    if (tree_ == older.tree_) return found;
    if (!tree_ || !older.tree_) return {0, older.size(), size()};
    kpe_each_difference(*older.tree_, *tree_, 0, [&](const Chunks& old, const Chunks& anew, size_t before) {
        size_t most = std::min(old.rows(), anew.rows());
        const size_t front = RowPairs(older, before, *this, before).skip_equal(most);
        most -= front;
        const size_t back = equal_back(old, anew, most);
        found = {before + front, old.rows() - front - back, anew.rows() - front - back};
    });
    return found;
}
