#include <algorithm>
#include <string_view>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "system/ascii.h"

namespace {

constexpr size_t SECTION_ROWS = 16;

// The rows of text on the screen, or on one of 24 rows when there has not been any.
size_t page_rows() {
    const int height = kpe_screen_size().rows;
    return static_cast<size_t>(std::max(1, (height > 0 ? height : 24) - 3));
}

size_t last_row(const TextBuffer& text) { return std::max<size_t>(text.line_count(), 1) - 1; }

}  // namespace

void Editor::move_up() {
    if (cursor_row_ > 0) --cursor_row_;
    clamp_cursor();
}

void Editor::move_down() {
    if (cursor_row_ + 1 < buffer_.line_count()) ++cursor_row_;
    clamp_cursor();
}

void Editor::move_left() {
    if (cursor_col_ > buffer_.length(cursor_row_)) {
        --cursor_col_;
    } else if (cursor_col_ > 0) {
        cursor_col_ = kpe_character_before(buffer_.view(cursor_row_), cursor_col_);
    } else if (cursor_row_ > 0) {
        --cursor_row_;
        cursor_col_ = buffer_.length(cursor_row_);
    }
}

void Editor::move_right() {
    if (cursor_col_ < buffer_.length(cursor_row_)) {
        cursor_col_ = kpe_character_end(buffer_.view(cursor_row_), cursor_col_);
    } else if (cursor_row_ + 1 < buffer_.line_count()) {
        ++cursor_row_;
        cursor_col_ = 0;
    }
}

void Editor::move_char(Direction d) {
    if (d == Direction::Backup) {
        move_left();
    } else {
        move_right();
    }
}

void Editor::move_word(Direction d) {
    if (d == Direction::Backup && cursor_col_ == 0 && cursor_row_ > 0) {
        --cursor_row_;
        cursor_col_ = buffer_.length(cursor_row_);
    }
    const std::string_view line = buffer_.view(cursor_row_);
    size_t col = cursor_col_;
    if (d == Direction::Backup) {
        col = std::min(col, line.size());
        while (col > 0 && is_delim(line[col - 1])) --col;
        while (col > 0 && !is_delim(line[col - 1])) --col;
        col = kpe_character_start(line, col);
    } else {
        while (col < line.size() && !is_delim(line[col])) ++col;
        while (col < line.size() && is_delim(line[col])) ++col;
        if (col < line.size()) col = kpe_character_border(line, col);
        if (col >= line.size() && cursor_row_ + 1 < buffer_.line_count()) {
            ++cursor_row_;
            col = 0;
        }
    }
    cursor_col_ = col;
}

void Editor::line_move(Direction d) {
    if (d == Direction::Advance) {
        if (cursor_row_ + 1 < buffer_.line_count()) ++cursor_row_;
    } else if (cursor_col_ == 0 && cursor_row_ > 0) {
        --cursor_row_;
    }
    cursor_col_ = 0;
    message_ = "LINE";
}

void Editor::page_down() { cursor_row_ = std::min(last_row(buffer_), cursor_row_ + page_rows()); }

void Editor::page_up() { cursor_row_ -= std::min(cursor_row_, page_rows()); }

void Editor::section_move(Direction d) {
    if (d == Direction::Backup) {
        cursor_row_ -= std::min(cursor_row_, SECTION_ROWS);
    } else {
        cursor_row_ = std::min(last_row(buffer_), cursor_row_ + SECTION_ROWS);
    }
    clamp_cursor();
}

void Editor::go_top() {
    cursor_row_ = 0;
    cursor_col_ = 0;
    on_match_ = false;
    message_ = "TOP";
}

void Editor::go_bottom() {
    cursor_row_ = last_row(buffer_);
    cursor_col_ = buffer_.length(cursor_row_);
    on_match_ = false;
    message_ = "BOTTOM";
}

void Editor::open_line() {
    begin_undo_unit();
    buffer_.split_line(cursor_row_, 0);
    ++cursor_row_;
    cursor_col_ = 0;
}

bool Editor::is_delim(char c) const {
    return word_delimiter_on_ ? word_delimiters_.find(c) != std::string::npos : kpe_is_space(c);
}
