#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "buffer/line_tree.h"
#include "system/block.h"

// Room for new texts: blocks that get larger the more is put into them.
class Arena {
public:
    // Makes sure that bytes more fit into block() one behind the other.
    void make_room(size_t bytes) {
        if (block_ && block_->capacity() - block_->size() >= bytes) return;
        block_ = std::make_shared<Block>(std::max(bytes, next_size_));
        next_size_ = std::min(next_size_ * 4, LARGEST_BLOCK);
    }
    const std::shared_ptr<Block>& block() const { return block_; }
    char* end() const { return block_->data() + block_->size(); }
    // Adds the line and its "\n", for which there is room; where it lies then.
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

// A tree that is made of another one from left to right: rows that stay are shared, the rest is put in anew.
// Part of the store's inside.
struct LineRebuild {
    std::shared_ptr<LineTree> old;
    size_t copied = 0;  // rows of the old tree that the new one has got
    LineTreeBuilder out = {};
    SliceCutter cutter{out};
    Arena arena = {};

    explicit LineRebuild(std::shared_ptr<LineTree> from) : old(std::move(from)) {}
    // Shares the rows up to row, if that is further than copied.
    void copy_to(size_t row) {
        if (row <= copied) return;
        cutter.finish();
        out.add_rows(*old, copied, row);
        copied = row;
    }
    // The new tree, with what is left of the old one behind the rest.
    std::shared_ptr<LineTree> finish() {
        copy_to(old->rows());
        cutter.finish();
        return out.finish();
    }
};
