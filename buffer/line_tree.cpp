#include "buffer/line_tree.h"

#include <iterator>

namespace {

// Parts of a level. One is begun anew at twice the usual number, so that what is left over is never small.
constexpr size_t PARTS = 32, FEW_PARTS = 8;
constexpr size_t JOINED_ROWS = LineChunk::MAX_ROWS / 2;  // two chunks of which one is tiny, joined, have at most these

// To the part that holds row, which then counts from the part's first one.
template <typename Part>
const Part& descend(const LineLevel<Part>& level, size_t& index, size_t& row) {
    index = level.index_of(row);
    row -= level.start(index);
    return *level.entries[index].part;
}

// Calls add(part, begin, end) for each part with rows in [first, last), begin and end counted from the part's first.
template <typename Part, typename Add>
void each_part(const LineLevel<Part>& level, size_t first, size_t last, const Add& add) {
    for (size_t i = level.index_of(first); i < level.entries.size() && level.start(i) < last; ++i) {
        const size_t start = level.start(i);
        add(level.entries[i].part, std::max(first, start) - start, std::min(last, level.entries[i].end) - start);
    }
}

// The first count parts become a level.
template <typename Part>
std::shared_ptr<LineLevel<Part>> take_level(std::vector<std::shared_ptr<Part>>& parts, size_t count) {
    auto level = std::make_shared<LineLevel<Part>>();
    level->entries.reserve(count);
    const auto end = parts.begin() + static_cast<std::ptrdiff_t>(count);
    for (auto part = parts.begin(); part != end; ++part) level->add(std::move(*part));
    parts.erase(parts.begin(), end);
    return level;
}

}  // namespace

LineTree::Place LineTree::locate(size_t row) const {
    Place at;
    at.row = row;
    descend(descend(descend(*this, at.branch, at.row), at.leaf, at.row), at.chunk, at.row);
    return at;
}

bool LineTree::step_forward(Place& at) const {
    if (at.chunk + 1 < leaf(at).entries.size())
        ++at.chunk;
    else if (at.leaf + 1 < entries[at.branch].part->entries.size())
        at = {at.branch, at.leaf + 1, 0, 0};
    else if (at.branch + 1 < entries.size())
        at = {at.branch + 1, 0, 0, 0};
    else
        return false;
    at.row = 0;
    return true;
}

bool LineTree::step_back(Place& at) const {
    if (at.chunk > 0) {
        --at.chunk;
    } else {
        if (at.leaf > 0)
            --at.leaf;
        else if (at.branch > 0)
            at.leaf = entries[--at.branch].part->entries.size() - 1;
        else
            return false;
        at.chunk = leaf(at).entries.size() - 1;
    }
    at.row = chunk(at).rows() - 1;
    return true;
}

// --- Building ---

void LineTreeBuilder::add_new(std::shared_ptr<LineChunk> chunk) {
    chunks_.push_back(std::move(chunk));
    if (chunks_.size() == 2 * PARTS) push_leaf(take_level(chunks_, PARTS));
}

void LineTreeBuilder::add_chunk(std::shared_ptr<LineChunk> chunk) {
    if (chunks_.empty()) return add_new(std::move(chunk));
    auto& last = chunks_.back();
    const bool tiny = std::min(last->rows(), chunk->rows()) < LineChunk::TINY_ROWS;
    if (!tiny || last->rows() + chunk->rows() > JOINED_ROWS) return add_new(std::move(chunk));
    if (last.use_count() > 1) last = std::make_shared<LineChunk>(*last);
    last->insert(last->rows(), *chunk);
}

// A level is shared unless that would leave a small one beside it or be one.
void LineTreeBuilder::add_whole(const std::shared_ptr<LineLeaf>& leaf) {
    const bool after_few = !chunks_.empty() && chunks_.size() < FEW_PARTS;
    if (after_few || leaf->entries.size() < FEW_PARTS) {
        for (const auto& entry : leaf->entries) add_chunk(entry.part);
        return;
    }
    flush_chunks();
    push_leaf(leaf);
}

void LineTreeBuilder::add_whole(const std::shared_ptr<LineBranch>& branch) {
    const bool after_few_chunks = !chunks_.empty() && chunks_.size() < FEW_PARTS;
    const size_t leaves = leaves_.size() + (chunks_.empty() ? 0 : 1);
    const bool after_few = leaves > 0 && leaves < FEW_PARTS;
    if (after_few_chunks || after_few || branch->entries.size() < FEW_PARTS) {
        for (const auto& entry : branch->entries) add_whole(entry.part);
        return;
    }
    flush_leaves();
    tree_->add(branch);
}

void LineTreeBuilder::add_part(const std::shared_ptr<LineChunk>& chunk, size_t first, size_t last) {
    const bool whole = last - first == chunk->rows();
    add_chunk(whole ? chunk : chunk->part(first, last));
}

template <typename Part>
void LineTreeBuilder::add_part(const std::shared_ptr<LineLevel<Part>>& level, size_t first, size_t last) {
    if (last - first == level->rows()) return add_whole(level);
    each_part(*level, first, last, [&](const auto& part, size_t begin, size_t end) { add_part(part, begin, end); });
}

void LineTreeBuilder::add_rows(const LineTree& from, size_t first, size_t last) {
    if (first >= last) return;
    each_part(from, first, last, [&](const auto& part, size_t begin, size_t end) { add_part(part, begin, end); });
}

std::shared_ptr<LineTree> LineTreeBuilder::finish() {
    flush_leaves();
    auto tree = std::move(tree_);
    tree_ = std::make_shared<LineTree>();
    return tree->entries.empty() ? nullptr : tree;
}

void LineTreeBuilder::push_leaf(std::shared_ptr<LineLeaf> leaf) {
    leaves_.push_back(std::move(leaf));
    if (leaves_.size() == 2 * PARTS) tree_->add(take_level(leaves_, PARTS));
}

void LineTreeBuilder::flush_chunks() {
    if (!chunks_.empty()) push_leaf(take_level(chunks_, chunks_.size()));
}

void LineTreeBuilder::flush_leaves() {
    flush_chunks();
    if (!leaves_.empty()) tree_->add(take_level(leaves_, leaves_.size()));
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
    auto chunk = std::make_shared<LineChunk>(std::move(slice), rows_);
    if (out_)
        out_->add_new(std::move(chunk));
    else
        chunks_.push_back(std::move(chunk));
    base_ += bytes_;
    rows_ = bytes_ = 0;
    alike_ = true;
}
