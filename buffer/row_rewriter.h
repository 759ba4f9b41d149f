#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "buffer/line_store.h"
#include "buffer/line_tree.h"
#include "system/block.h"

// Memory for new texts. Each further block is larger than the one before, up to a limit.
class Arena {
public:
    // Takes so many bytes, which the caller fills. They lie in block(), and those taken next lie behind them unless a
    // new block has to be begun. Throws std::bad_alloc.
    char* take(size_t bytes) {
        if (!block_ || block_->capacity() - block_->size() < bytes) {
            block_ = std::make_shared<Block>(std::max(bytes, next_size_));
            next_size_ = std::min(next_size_ * 16, LARGEST_BLOCK);
            ready_ = 0;
        }
        block_->set_size(block_->size() + bytes);
        while (ready_ < block_->size()) {  // in steps: the rest of a block may never be used
            const size_t more = std::min(Block::MADE_READY, block_->capacity() - ready_);
            block_->make_ready(ready_, more);
            ready_ += more;
        }
        return block_->data() + block_->size() - bytes;
    }
    const std::shared_ptr<Block>& block() const { return block_; }

private:
    static constexpr size_t FIRST_BLOCK = size_t{4} << 10, LARGEST_BLOCK = size_t{16} << 20;  // bytes
    std::shared_ptr<Block> block_;
    size_t next_size_ = FIRST_BLOCK;
    size_t ready_ = 0;  // bytes of block_ that have memory
};

// Gives new texts to rows of a LineStore, in one pass from the first to the last.
//
// Each chunk in which rows change is made anew once. If many of its rows change, all its lines are written one behind
// the other into large blocks, so that to change every line of a text costs little more than to copy the bytes. If few
// change, only these are written, and the others stay where they lie. Chunks without a change are shared with the old
// store, and so are the leaves and branches above them.
//
// Until finish() the store reads as before, and must not be changed in another way. Without finish() it stays as it
// was. Every function throws std::bad_alloc if memory runs out; after that the object can only be destroyed.
class RowRewriter {
public:
    // finish() sets *changed (may be null) if any row got other bytes than it had. The store must not move or go.
    explicit RowRewriter(LineStore& store, bool* changed = nullptr) : store_(store), changed_(changed) {}
    RowRewriter(const RowRewriter&) = delete;
    RowRewriter& operator=(const RowRewriter&) = delete;

    // Gives row the new text. Rows should come in ascending order; another order works, but is slow. A row from the
    // store's size() on is ignored.
    void put(size_t row, std::string_view text);

    // For a caller that knows all changes of a chunk, and can write the new texts where they will lie.
    //
    // The chunk holds rows of the store from first on; chunks come in ascending order. changes is a range, in
    // ascending order, of objects with two members: row counts from the chunk's first row, and size is that of the new
    // text. For each of them in turn, write(change, to) puts so many bytes at to. No changes: nothing happens.
    template <class Changes, class Write>
    void renew(const LineChunk& chunk, size_t first, const Changes& changes, const Write& write);

    // Puts all new texts into the store. Afterwards rows of the changed store may be put.
    void finish();

private:
    struct NewText {
        size_t row, size;  // row of the chunk; the texts themselves lie in texts_, one behind the other
    };
    template <class Changes, class Write>
    void write_all_rows(const LineChunk& chunk, const Changes& changes, const Write& write);
    template <class Changes, class Write>
    void write_changed_rows(const LineChunk& chunk, const Changes& changes, const Write& write);
    void renew_put_rows();
    void share_to(size_t row);
    std::shared_ptr<LineTree> rebuilt();

    LineStore& store_;
    bool* const changed_;
    bool differs_ = false;

    // The new tree grows in out_, beginning with the first row.
    std::shared_ptr<LineTree> old_;  // from the first row that is put to finish()
    size_t done_ = 0;                // rows of old_ that the new tree has or has replaced
    LineTreeBuilder out_;
    SliceCutter cutter_{&out_};
    Arena arena_;

    // What was put and is not in the new tree yet, all of one chunk.
    const LineChunk* chunk_ = nullptr;
    size_t first_ = 0;   // the chunk's first row
    size_t behind_ = 0;  // the row behind the last one that was put
    std::vector<NewText> new_texts_;
    std::string texts_;

    std::vector<std::string_view> lines_;  // old lines of the chunk at hand
};

template <class Changes, class Write>
void RowRewriter::renew(const LineChunk& chunk, size_t first, const Changes& changes, const Write& write) {
    if (changes.empty()) return;
    if (!old_) old_ = store_.tree_;
    differs_ = true;
    share_to(first);
    if (changes.size() * 4 >= chunk.rows())
        write_all_rows(chunk, changes, write);
    else
        write_changed_rows(chunk, changes, write);
    done_ = behind_ = first + chunk.rows();
}

template <class Changes, class Write>
void RowRewriter::write_all_rows(const LineChunk& chunk, const Changes& changes, const Write& write) {
    lines_.resize(chunk.rows());
    chunk.views(0, lines_);
    size_t bytes = lines_.size();
    for (const std::string_view line : lines_) bytes += line.size();
    for (const auto& change : changes) bytes += change.size - lines_[change.row].size();
    char* to = arena_.take(bytes);
    cutter_.start_at(arena_.block(), to);
    auto change = changes.begin();
    for (size_t row = 0; row < lines_.size(); ++row) {
        size_t size = lines_[row].size();
        if (change != changes.end() && change->row == row) {
            size = change->size;
            write(*change++, to);
        } else {
            lines_[row].copy(to, size);
        }
        to[size] = '\n';
        to += size + 1;
        cutter_.add(size);
    }
}

template <class Changes, class Write>
void RowRewriter::write_changed_rows(const LineChunk& chunk, const Changes& changes, const Write& write) {
    cutter_.finish();
    const auto renewed = chunk.part(0, chunk.rows());
    for (const auto& change : changes) {
        char* const to = arena_.take(change.size + 1);
        write(change, to);
        to[change.size] = '\n';
        renewed->set_slice(change.row, {to, change.size}, arena_.block());
    }
    out_.add_chunk(renewed);
}
