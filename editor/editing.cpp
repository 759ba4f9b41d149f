#include <algorithm>
#include <string_view>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "editor/row_edits.h"
#include "system/ascii.h"
#include "system/terminal.h"

namespace {

constexpr int DEFAULT_WIDTH = 80;
constexpr int LEAST_WRAP_WIDTH = 8;
constexpr int DEFAULT_TAB = 8;

char flipped_case(char c) {
    const char up = kpe_to_upper(c);
    return up != c ? up : kpe_to_lower(c);
}

// The byte column behind the blank at which a line of this text breaks, or else behind what is width columns wide.
size_t break_after(std::string_view text, size_t width) {
    const size_t most = kpe_view_end(text, width);
    for (size_t blank = text.rfind(' ', most); blank != std::string_view::npos && blank > 0;
         blank = text.rfind(' ', blank - 1)) {
        if (kpe_character_end(text, blank) == blank + 1) return blank + 1;
    }
    return most;
}

// Where a line breaks so that no part is wider than width, except for a blank at its end: byte columns in the whole
// line, ascending. Behind the cursor only the part that holds the cursor is broken off.
std::vector<size_t> wrap_columns(std::string_view line, size_t width, size_t cursor) {
    std::vector<size_t> breaks;
    size_t start = 0;
    while (kpe_view_columns(line, start, line.size(), width) > width) {
        const std::string_view rest = line.substr(start);
        const size_t at = break_after(rest, width);
        const bool behind_cursor = start + at > cursor;
        if (behind_cursor && at == rest.size()) break;  // it would only add empty lines, for ever
        start += at;
        breaks.push_back(start);
        if (behind_cursor) break;  // the cursor's part is short enough now
    }
    return breaks;
}

}  // namespace

void Editor::insert_character(const std::string& bytes) {
    if (bytes.size() > 1) {
        buffer_.insert_text(cursor_row_, cursor_col_, bytes);
        return;
    }
    buffer_.insert_char(cursor_row_, cursor_col_, bytes.front());  // a line feed stays in the line
    ++cursor_col_;
}

void Editor::delete_char_left() {
    if (cursor_col_ > 0) {
        if (cursor_col_ > buffer_.length(cursor_row_)) return;
        const size_t start = kpe_character_before(buffer_.view(cursor_row_), cursor_col_);
        delete_char_buffer_ = buffer_.delete_in_line(cursor_row_, start, cursor_col_ - start);
        cursor_col_ = start;
    } else if (buffer_.backspace(cursor_row_, cursor_col_) != 0) {
        delete_char_buffer_ = "\n";
    }
}

void Editor::delete_char_at_cursor() {
    if (cursor_col_ < buffer_.length(cursor_row_)) {
        snap_cursor();
        const size_t end = kpe_character_end(buffer_.view(cursor_row_), cursor_col_);
        delete_char_buffer_ = buffer_.delete_in_line(cursor_row_, cursor_col_, end - cursor_col_);
    } else if (buffer_.delete_at(cursor_row_, cursor_col_) != 0) {
        delete_char_buffer_ = "\n";
    }
}

void Editor::delete_line() {
    delete_line_buffer_ = buffer_.take_range(cursor_row_, cursor_row_);
    cursor_row_ = std::min(cursor_row_, buffer_.line_count() - 1);
    cursor_col_ = 0;
}

void Editor::delete_range(const LineRange& range) {
    delete_line_buffer_ = buffer_.take_range(range.first, range.last);
    cursor_row_ = std::min(range.first, buffer_.line_count() - 1);
    cursor_col_ = 0;
    message_ = "Range deleted";
}

void Editor::undelete_line() {
    if (delete_line_buffer_.empty()) {
        message_ = "No deleted line";
    } else if (case_mode_ == "LOWER" || case_mode_ == "UPPER") {
        std::string text;
        delete_line_buffer_.append_text(text, 0, delete_line_buffer_.size());
        paste_text(text);
    } else {
        buffer_.insert_rows_as_text(cursor_row_, cursor_col_, delete_line_buffer_);
        maybe_wrap_line();
    }
}

void Editor::delete_eol() { set_paste_text(buffer_.delete_to_eol(cursor_row_, cursor_col_)); }

void Editor::delete_word() {
    delete_word_buffer_ = buffer_.delete_word_forward(cursor_row_, cursor_col_, word_delimiters_);
}

void Editor::delete_word_left() {
    delete_word_buffer_ = buffer_.delete_word_backward(cursor_row_, cursor_col_, word_delimiters_);
    message_ = delete_word_buffer_.empty() ? "No word" : "Deleted word";
}

void Editor::paste() { paste_text(paste_text_content()); }

void Editor::paste_text(const std::string& text) {
    if (text.empty()) return;
    if (case_mode_ == "LOWER" || case_mode_ == "UPPER") {
        buffer_.insert_text(cursor_row_, cursor_col_, apply_case_mode(text));
    } else {
        buffer_.insert_text(cursor_row_, cursor_col_, text);
    }
    maybe_wrap_line();
}

std::string Editor::apply_case_mode(std::string text) const {
    if (case_mode_ == "LOWER") {
        std::transform(text.begin(), text.end(), text.begin(), kpe_to_lower);
    } else if (case_mode_ == "UPPER") {
        std::transform(text.begin(), text.end(), text.begin(), kpe_to_upper);
    }
    return text;
}

void Editor::maybe_wrap_line() {
    if (!wrap_) return;
    int width = screen_width_ < 1 ? DEFAULT_WIDTH : screen_width_;
    if (g_curses_active && screen_width_ == 0) width = kpe_screen_size().cols;
    if (width < LEAST_WRAP_WIDTH) return;
    const std::vector<size_t> breaks = wrap_columns(buffer_.view(cursor_row_), static_cast<size_t>(width), cursor_col_);
    const size_t row = cursor_row_, col = cursor_col_;
    // From the end, so that each split moves only the text of one new line.
    for (auto at = breaks.rbegin(); at != breaks.rend(); ++at) buffer_.split_line(row, *at);
    for (const size_t at : breaks) {
        if (at > col) break;
        ++cursor_row_;
        cursor_col_ = col - at;
    }
}

void Editor::change_case_char() {
    begin_undo_unit();
    if (const std::optional<SelSpan> span = active_select_span()) {
        const size_t last = std::min(span->r2, buffer_.line_count() - 1);
        const size_t to = span->r2 == last ? span->c2 : std::string::npos;
        change_bytes(buffer_, span->r1, span->c1, last, to, byte_table(flipped_case));
        clear_select();
        return;
    }
    const bool back = direction_ == Direction::Backup;
    const std::string_view line = buffer_.view(cursor_row_);
    if (back ? cursor_col_ == 0 || cursor_col_ > line.size() : cursor_col_ >= line.size()) return;
    const size_t col = back ? kpe_character_before(line, cursor_col_) : kpe_character_start(line, cursor_col_);
    const char flipped = flipped_case(line[col]);
    buffer_.replace_in_line(cursor_row_, col, 1, {&flipped, 1});
    move_char(direction_);
}

void Editor::shift_left_line() {
    begin_undo_unit();
    const std::string_view line = buffer_.view(cursor_row_);
    if (!line.empty() && line.front() == ' ' && kpe_character_end(line, 0) == 1) buffer_.delete_at(cursor_row_, 0);
}

void Editor::shift_right_line() {
    begin_undo_unit();
    buffer_.insert_char(cursor_row_, 0, ' ');
    ++cursor_col_;
}

void Editor::insert_tab_at_cursor() {
    const size_t width = static_cast<size_t>(tab_width_ < 1 ? DEFAULT_TAB : tab_width_);
    buffer_.insert_text(cursor_row_, cursor_col_, std::string(width - cursor_col_ % width, ' '));
    message_ = "Tab";
}
