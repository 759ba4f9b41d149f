#pragma once

#include <cstddef>
#include <string_view>

#include "buffer/line_store.h"
#include "buffer/line_tree.h"

// Goes through the rows of two stores side by side. Neither store may change meanwhile. What reads lines may throw
// std::bad_alloc.
class RowPairs {
public:
    // Begins with these two rows. Either may be the store's size(): then there is no pair at hand.
    RowPairs(const LineStore& older, size_t older_row, const LineStore& newer, size_t newer_row);

    // Steps over pairs of equal rows, at most so many, and returns over how many. There must be so many pairs.
    size_t skip_equal(size_t most);
    // The lines of the pair at hand.
    std::string_view older() const { return older_.chunk->view(older_.at.row); }
    std::string_view newer() const { return newer_.chunk->view(newer_.at.row); }
    void step();  // to the next pair

private:
    struct Side {
        const LineTree* tree = nullptr;  // null if there is no row at hand
        LineTree::Place at;
        const LineChunk* chunk = nullptr;
        Side(const LineTree* of, size_t row);
        void advance(size_t rows);  // inside of the chunk, or to the first row behind it
    };
    Side older_, newer_;
};
