#include "buffer/row_rewriter.h"

void RowRewriter::put(size_t row, std::string_view text) {
    if (row >= store_.size()) return;
    if (!old_) old_ = store_.tree_;
    if (row < behind_) old_ = rebuilt();
    if (!chunk_ || row < first_ || row >= first_ + chunk_->rows()) {
        renew_put_rows();
        const LineTree::Place at = old_->locate(row);
        chunk_ = &old_->chunk(at);
        first_ = row - at.row;
    }
    if (chunk_->view(row - first_) == text) return;
    new_texts_.push_back({row - first_, text.size()});
    texts_.append(text);
    behind_ = row + 1;
    differs_ = true;
}

void RowRewriter::renew_put_rows() {
    if (new_texts_.empty()) return;
    const char* text = texts_.data();
    renew(*chunk_, first_, new_texts_, [&](const NewText& anew, char* to) {
        std::copy_n(text, anew.size, to);
        text += anew.size;
    });
    new_texts_.clear();
    texts_.clear();
}

// Old rows up to row become part of the new tree, unless they are already.
void RowRewriter::share_to(size_t row) {
    if (row <= done_) return;
    cutter_.finish();
    out_.add_rows(*old_, done_, row);
    done_ = row;
}

// The new tree, with all old rows that are left. The next one begins with the first row again.
std::shared_ptr<LineTree> RowRewriter::rebuilt() {
    renew_put_rows();
    share_to(old_->rows());
    cutter_.finish();
    chunk_ = nullptr;
    done_ = behind_ = 0;
    return out_.finish();
}

void RowRewriter::finish() {
    const bool single = done_ == 0 && new_texts_.size() == 1 && old_ == store_.tree_;
    if (single) {
        // A line by itself becomes an edited one: its chunk stays a slice, which is cheap to clone.
        store_.set(first_ + new_texts_.front().row, texts_);
        new_texts_.clear();
        texts_.clear();
        chunk_ = nullptr;
        behind_ = 0;
    } else if (differs_) {
        store_.tree_ = rebuilt();
    }
    old_.reset();
    if (changed_ && differs_) *changed_ = true;
    differs_ = false;
}
