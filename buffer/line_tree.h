#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "buffer/line_chunk.h"

// The directory over the chunks of a LineStore, in three levels that copies share: a root, branches, leaves, chunks.
// Each is small, so that cloning the way down costs the same at ten million lines as at ten thousand. Part of the
// store's inside.
template <typename Part>
struct LineLevel {
    struct Entry {
        std::shared_ptr<Part> part;
        size_t end;  // rows up to the part's end, from the level's first row: a row is found by binary search
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
    // The part at index got delta rows more (modulo the size of size_t).
    void grow(size_t index, size_t delta) {
        for (; index < entries.size(); ++index) entries[index].end += delta;
    }
};

using LineLeaf = LineLevel<LineChunk>;
using LineBranch = LineLevel<LineLeaf>;

struct LineTree : LineLevel<LineBranch> {
    struct Place {
        size_t branch = 0, leaf = 0, chunk = 0, row = 0;  // row counts from the chunk's first one
    };

    Place locate(size_t row) const;  // row < rows()
    const LineLeaf& leaf(const Place& at) const { return *entries[at.branch].part->entries[at.leaf].part; }
    LineChunk& chunk(const Place& at) const { return *leaf(at).entries[at.chunk].part; }
    // To the neighbouring chunk; false at the end, and then at stays. at.row becomes its first or last row.
    bool step_forward(Place& at) const;
    bool step_back(Place& at) const;
};

// Puts a new tree together from left to right, sharing whole branches, leaves and chunks of other trees.
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
    template <typename Part>
    void add_part(const std::shared_ptr<LineLevel<Part>>& level, size_t first, size_t last);
    void add_part(const std::shared_ptr<LineChunk>& chunk, size_t first, size_t last);
    void add_whole(const std::shared_ptr<LineBranch>& branch);
    void add_whole(const std::shared_ptr<LineLeaf>& leaf);
    void push_leaf(std::shared_ptr<LineLeaf> leaf);
    void flush_chunks();
    void flush_leaves();

    std::shared_ptr<LineTree> tree_ = std::make_shared<LineTree>();
    std::vector<std::shared_ptr<LineLeaf>> leaves_;   // of the next branch
    std::vector<std::shared_ptr<LineChunk>> chunks_;  // of the next leaf, behind these
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
