#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "buffer/line_tree.h"
#include "system/block.h"

// Memory for new texts. Each further block is larger than the one before, up to a limit.
class Arena {
public:
    // Makes sure that block() has room for so many bytes more.
    void make_room(size_t bytes) {
        if (block_ && block_->capacity() - block_->size() >= bytes) return;
        block_ = std::make_shared<Block>(std::max(bytes, next_size_));
        next_size_ = std::min(next_size_ * 4, LARGEST_BLOCK);
    }
    const std::shared_ptr<Block>& block() const { return block_; }
    char* end() const { return block_->data() + block_->size(); }
    // Adds the line and a "\n", and returns where the line lies. There must be room for both.
    std::string_view add(std::string_view line) {
        const char* const at = end();
        block_->append(line);
        block_->append("\n");
        return {at, line.size()};
    }

private:
    static constexpr size_t FIRST_BLOCK = size_t{4} << 10, LARGEST_BLOCK = size_t{4} << 20;  // bytes
    std::shared_ptr<Block> block_;
    size_t next_size_ = FIRST_BLOCK;
};

// Makes a new tree of an old one, from left to right. Rows that stay are shared; the others are put in anew. Only
// LineStore uses it.
struct LineRebuild {
    std::shared_ptr<LineTree> old;
    size_t copied = 0;  // rows of the old tree that the new tree has or has replaced
    LineTreeBuilder out = {};
    SliceCutter cutter{out};
    Arena arena = {};

    explicit LineRebuild(std::shared_ptr<LineTree> from) : old(std::move(from)) {}
    // Shares the old rows up to row. Does nothing if copied is already as far.
    void copy_to(size_t row) {
        if (row <= copied) return;
        cutter.finish();
        out.add_rows(*old, copied, row);
        copied = row;
    }
    // Shares all old rows that are left, and returns the new tree.
    std::shared_ptr<LineTree> finish() {
        copy_to(old->rows());
        cutter.finish();
        return out.finish();
    }
};
