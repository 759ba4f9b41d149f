#include <algorithm>

#include "buffer/text_buffer.h"

void TextBuffer::set_mark(size_t row, size_t col) {
    mark_set_ = true;
    mark_row_ = row;
    mark_col_ = col;
    clamp_mark();
}

void TextBuffer::clear_mark() {
    mark_set_ = false;
    mark_row_ = mark_col_ = 0;
}

// Into the text: behind the last line's end if its row is gone, else at most at its line's end.
void TextBuffer::clamp_mark() {
    if (!mark_set_) return;
    if (lines_.empty()) {
        mark_row_ = mark_col_ = 0;
        return;
    }
    if (mark_row_ >= line_count()) {
        mark_row_ = line_count() - 1;
        mark_col_ = length(mark_row_);
    }
    mark_col_ = std::min(mark_col_, length(mark_row_));
}

// n bytes were erased at col of row.
void TextBuffer::mark_on_erase_chars(size_t row, size_t col, size_t n) {
    if (!mark_set_ || mark_row_ != row) return;
    if (mark_col_ >= col + n)
        mark_col_ -= n;
    else if (mark_col_ > col)
        mark_col_ = col;
}

// row + 1 was appended to row, which had prev_len bytes before.
void TextBuffer::mark_on_join(size_t row, size_t prev_len) {
    if (!mark_set_ || mark_row_ <= row) return;
    if (mark_row_ == row + 1) mark_col_ += prev_len;
    --mark_row_;
}

// What stood at col of row, and all behind it, stands new_rows below and from new_col on now.
void TextBuffer::mark_on_insert(size_t row, size_t col, size_t new_rows, size_t new_col) {
    if (!mark_set_ || mark_row_ < row) return;
    if (mark_row_ == row) {
        if (mark_col_ < col) return;
        mark_col_ = mark_col_ - col + new_col;
    }
    mark_row_ += new_rows;
}
