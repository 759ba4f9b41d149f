#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "buffer/line_chunk.h"

// One level of the tree by which a LineStore finds its chunks. The tree has a root (LineTree), branches, leaves and
// chunks. Copies of a store share them. Every part is small, so that to clone the way from the root to a chunk costs
// the same at ten million lines as at ten thousand. Only LineStore and its helpers use it.
template <typename Part>
struct LineLevel {
    struct Entry {
        std::shared_ptr<Part> part;
        size_t end;  // rows of this level up to the end of the part; a row is found by binary search
    };
    std::vector<Entry> entries;

    size_t rows() const { return entries.empty() ? 0 : entries.back().end; }
    size_t start(size_t index) const { return index == 0 ? 0 : entries[index - 1].end; }
    size_t index_of(size_t row) const {
        const auto ends_later = [](size_t wanted, const Entry& entry) { return wanted < entry.end; };
        const auto at = std::upper_bound(entries.begin(), entries.end(), row, ends_later);
        return static_cast<size_t>(at - entries.begin());
    }
    void add(std::shared_ptr<Part> part) {
        const size_t end = rows() + part->rows();
        entries.push_back({std::move(part), end});
    }
    // Notes that the part at index has delta rows more. For fewer rows delta wraps around, as unsigned numbers do.
    void grow(size_t index, size_t delta) {
        for (; index < entries.size(); ++index) entries[index].end += delta;
    }
};

using LineLeaf = LineLevel<LineChunk>;
using LineBranch = LineLevel<LineLeaf>;

struct LineTree : LineLevel<LineBranch> {
    struct Place {
        size_t branch = 0, leaf = 0, chunk = 0, row = 0;  // row counts from the first row of the chunk
    };

    Place locate(size_t row) const;  // row < rows()
    const LineLeaf& leaf(const Place& at) const { return *entries[at.branch].part->entries[at.leaf].part; }
    LineChunk& chunk(const Place& at) const { return *leaf(at).entries[at.chunk].part; }
    // Move at to the next chunk and its first row, or to the one before and its last row. If there is none, they return
    // false, and at stays.
    bool step_forward(Place& at) const;
    bool step_back(Place& at) const;
};

// Builds a new tree from left to right. It shares whole branches, leaves and chunks of other trees.
class LineTreeBuilder {
public:
    // Adds a new chunk of at least one row.
    void add_new(std::shared_ptr<LineChunk> chunk);
    // Adds rows [first, last) of another tree. Tiny chunks are joined, so that edits do not leave ever more of them.
    void add_rows(const LineTree& from, size_t first, size_t last);
    // Adds a chunk, which may be tiny and may be shared.
    void add_chunk(std::shared_ptr<LineChunk> chunk);
    std::shared_ptr<LineTree> finish();  // the tree, null if it has no rows; empties the builder

private:
    template <typename Part>
    void add_part(const std::shared_ptr<LineLevel<Part>>& level, size_t first, size_t last);
    void add_part(const std::shared_ptr<LineChunk>& chunk, size_t first, size_t last);
    void add_whole(const std::shared_ptr<LineBranch>& branch);
    void add_whole(const std::shared_ptr<LineLeaf>& leaf);
    void push_leaf(std::shared_ptr<LineLeaf> leaf);
    void flush_chunks();
    void flush_leaves();

    std::shared_ptr<LineTree> tree_ = std::make_shared<LineTree>();
    std::vector<std::shared_ptr<LineLeaf>> leaves_;   // leaves of the next branch
    std::vector<std::shared_ptr<LineChunk>> chunks_;  // chunks of the next leaf
};

// Takes lines that lie one behind the other in a block, and makes chunks of them.
class SliceCutter {
public:
    // The chunks go to a builder or, if there is none (null), to a list, from which take_chunks() has them.
    explicit SliceCutter(LineTreeBuilder* out) : out_(out) {}
    // Says where the next line starts. If the line before did not end there, this calls finish() first.
    void start_at(const std::shared_ptr<const Block>& block, const char* at);
    // Adds the next line: length bytes and the "\n" behind them.
    void add(size_t length) {
        const size_t bytes = length + 1;
        if (rows_ == LineChunk::MAX_ROWS || (rows_ > 0 && bytes_ + bytes > LineChunk::MAX_BYTES)) finish();
        if (rows_ == 0) stride_ = bytes;
        if (bytes != stride_) alike_ = false;
        bytes_ += bytes;
        starts_[++rows_] = static_cast<uint16_t>(bytes_);  // not used if a single line is longer than 16 bits can say
    }
    void finish();  // makes a chunk of the lines that are in none yet
    std::vector<std::shared_ptr<LineChunk>> take_chunks() { return std::exchange(chunks_, {}); }

private:
    LineTreeBuilder* out_;
    std::vector<std::shared_ptr<LineChunk>> chunks_;  // without a builder
    std::shared_ptr<const Block> block_;
    const char* base_ = nullptr;
    size_t rows_ = 0, bytes_ = 0, stride_ = 0;
    bool alike_ = true;
    uint16_t starts_[LineChunk::MAX_ROWS + 1] = {};
};
