#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "buffer/line_chunk.h"

// The directory over the chunks of a LineStore, in two levels that copies share: a root, leaves, chunks.
// Part of the store's inside. Rows are counted up to each end, so a row is found by binary search.
struct LineLeaf {
    std::vector<std::shared_ptr<LineChunk>> chunks;
    std::vector<size_t> ends;  // rows up to the end of each chunk, from the leaf's first row
};

struct LineTree {
    std::vector<std::shared_ptr<LineLeaf>> leaves;
    std::vector<size_t> ends;  // rows up to the end of each leaf

    struct Place {
        size_t leaf = 0, chunk = 0, row = 0;  // row counts from the chunk's first one
    };

    size_t size() const { return ends.empty() ? 0 : ends.back(); }
    Place locate(size_t row) const;  // row < size()
    LineChunk& chunk(const Place& at) const { return *leaves[at.leaf]->chunks[at.chunk]; }
    // To the neighbouring chunk; false at the end, and then at stays. at.row becomes its first or last row.
    bool step_forward(Place& at) const;
    bool step_back(Place& at) const;
};

// Puts a new tree together from left to right, sharing whole leaves and chunks of other trees.
class LineTreeBuilder {
public:
    // A new chunk of at least one row.
    void add_new(std::shared_ptr<LineChunk> chunk);
    // Rows [first, last) of another tree. Tiny chunks are joined, so that edits anywhere leave no crumbs.
    void add_rows(const LineTree& from, size_t first, size_t last);
    // A chunk that may be tiny and may be shared.
    void add_chunk(std::shared_ptr<LineChunk> chunk);
    std::shared_ptr<LineTree> finish();  // null if there are no rows; the builder is empty then

private:
    void add_leaf(const std::shared_ptr<LineLeaf>& leaf);
    void push_leaf(std::shared_ptr<LineLeaf> leaf);
    void flush(size_t count);

    std::shared_ptr<LineTree> tree_ = std::make_shared<LineTree>();
    std::vector<std::shared_ptr<LineChunk>> open_;  // the chunks of the next leaf
};

// Cuts lines that lie one behind the other in blocks into chunks.
class SliceCutter {
public:
    explicit SliceCutter(LineTreeBuilder& out) : out_(out) {}
    // The next line starts here; the one before ended here as well, or finish() is done by this.
    void start_at(const std::shared_ptr<const Block>& block, const char* at);
    // The next line, which is followed by "\n": length + 1 bytes.
    void add(size_t length) {
        const size_t bytes = length + 1;
        if (rows_ == LineChunk::MAX_ROWS || (rows_ > 0 && bytes_ + bytes > LineChunk::MAX_BYTES)) finish();
        if (rows_ == 0) stride_ = bytes;
        if (bytes != stride_) alike_ = false;
        bytes_ += bytes;
        starts_[++rows_] = static_cast<uint16_t>(bytes_);  // unused where a single line is longer
    }
    void finish();  // the lines so far are in the builder then

private:
    LineTreeBuilder& out_;
    std::shared_ptr<const Block> block_;
    const char* base_ = nullptr;
    size_t rows_ = 0, bytes_ = 0, stride_ = 0;
    bool alike_ = true;
    uint16_t starts_[LineChunk::MAX_ROWS + 1] = {};
};
