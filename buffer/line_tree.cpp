#include "buffer/line_tree.h"

#include <algorithm>
#include <iterator>

namespace {

// Chunks of a leaf. A leaf is begun anew at twice the usual number, so that what is left over is never small.
constexpr size_t LEAF_CHUNKS = 128, FEW_CHUNKS = 32;
constexpr size_t JOINED_ROWS = LineChunk::MAX_ROWS / 2;  // two chunks of which one is tiny, joined, have at most these

size_t index_of(const std::vector<size_t>& ends, size_t row) {
    return static_cast<size_t>(std::upper_bound(ends.begin(), ends.end(), row) - ends.begin());
}

size_t start_of(const std::vector<size_t>& ends, size_t index) { return index == 0 ? 0 : ends[index - 1]; }

}  // namespace

LineTree::Place LineTree::locate(size_t row) const {
    Place at;
    at.leaf = index_of(ends, row);
    row -= start_of(ends, at.leaf);
    const LineLeaf& leaf = *leaves[at.leaf];
    at.chunk = index_of(leaf.ends, row);
    at.row = row - start_of(leaf.ends, at.chunk);
    return at;
}

bool LineTree::step_forward(Place& at) const {
    if (at.chunk + 1 < leaves[at.leaf]->chunks.size())
        ++at.chunk;
    else if (at.leaf + 1 < leaves.size())
        at = {at.leaf + 1, 0, 0};
    else
        return false;
    at.row = 0;
    return true;
}

bool LineTree::step_back(Place& at) const {
    if (at.chunk > 0)
        --at.chunk;
    else if (at.leaf > 0)
        at = {at.leaf - 1, leaves[at.leaf - 1]->chunks.size() - 1, 0};
    else
        return false;
    at.row = chunk(at).rows() - 1;
    return true;
}

// --- Building ---

void LineTreeBuilder::add_new(std::shared_ptr<LineChunk> chunk) {
    open_.push_back(std::move(chunk));
    if (open_.size() == 2 * LEAF_CHUNKS) flush(LEAF_CHUNKS);
}

void LineTreeBuilder::add_chunk(std::shared_ptr<LineChunk> chunk) {
    if (open_.empty()) return add_new(std::move(chunk));
    auto& last = open_.back();
    const bool tiny = std::min(last->rows(), chunk->rows()) < LineChunk::TINY_ROWS;
    if (!tiny || last->rows() + chunk->rows() > JOINED_ROWS) return add_new(std::move(chunk));
    if (last.use_count() > 1) last = std::make_shared<LineChunk>(*last);
    last->insert(last->rows(), *chunk);
}

void LineTreeBuilder::add_leaf(const std::shared_ptr<LineLeaf>& leaf) {
    const bool few = leaf->chunks.size() < FEW_CHUNKS;
    if (open_.empty() ? few : few || open_.size() < FEW_CHUNKS) {
        for (const auto& chunk : leaf->chunks) add_chunk(chunk);
        return;
    }
    flush(open_.size());
    push_leaf(leaf);
}

void LineTreeBuilder::add_rows(const LineTree& from, size_t first, size_t last) {
    last = std::min(last, from.size());
    if (first >= last) return;
    for (size_t i = index_of(from.ends, first); i < from.leaves.size(); ++i) {
        const size_t leaf_start = start_of(from.ends, i);
        if (leaf_start >= last) return;
        const auto& leaf = from.leaves[i];
        if (first <= leaf_start && from.ends[i] <= last) {
            add_leaf(leaf);
            continue;
        }
        const size_t begin = std::max(first, leaf_start) - leaf_start, end = last - leaf_start;
        for (size_t j = index_of(leaf->ends, begin); j < leaf->chunks.size(); ++j) {
            const size_t start = start_of(leaf->ends, j), rows = leaf->chunks[j]->rows();
            if (start >= end) return;
            const size_t from_row = std::max(begin, start) - start, to_row = std::min(end - start, rows);
            const bool whole = from_row == 0 && to_row == rows;
            add_chunk(whole ? leaf->chunks[j] : leaf->chunks[j]->part(from_row, to_row));
        }
    }
}

std::shared_ptr<LineTree> LineTreeBuilder::finish() {
    flush(open_.size());
    auto tree = std::move(tree_);
    tree_ = std::make_shared<LineTree>();
    return tree->leaves.empty() ? nullptr : tree;
}

void LineTreeBuilder::push_leaf(std::shared_ptr<LineLeaf> leaf) {
    tree_->ends.push_back(tree_->size() + leaf->ends.back());
    tree_->leaves.push_back(std::move(leaf));
}

// The first count open chunks become a leaf.
void LineTreeBuilder::flush(size_t count) {
    if (count == 0) return;
    auto leaf = std::make_shared<LineLeaf>();
    const auto end = open_.begin() + static_cast<ptrdiff_t>(count);
    leaf->chunks.assign(std::make_move_iterator(open_.begin()), std::make_move_iterator(end));
    open_.erase(open_.begin(), end);
    leaf->ends.reserve(count);
    size_t rows = 0;
    for (const auto& chunk : leaf->chunks) leaf->ends.push_back(rows += chunk->rows());
    push_leaf(std::move(leaf));
}

// --- Cutting ---

void SliceCutter::start_at(const std::shared_ptr<const Block>& block, const char* at) {
    if (block == block_ && base_ + bytes_ == at) return;
    finish();
    block_ = block;
    base_ = at;
}

void SliceCutter::finish() {
    if (rows_ == 0) return;
    LineChunk::Slice slice{block_, base_, stride_, nullptr};
    if (!alike_) {
        const auto starts = std::make_shared<uint16_t[]>(rows_ + 1);
        std::copy_n(starts_, rows_ + 1, starts.get());
        slice.starts = starts;
        slice.stride = 0;
    }
    out_.add_new(std::make_shared<LineChunk>(std::move(slice), rows_));
    base_ += bytes_;
    rows_ = bytes_ = 0;
    alike_ = true;
}
