#include <algorithm>
#include <utility>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"

void Editor::start_select() {
    if (buffer_.has_mark()) {
        select_error("Select range is already active");
        return;
    }
    buffer_.set_mark(cursor_row_, cursor_col_);
    message_ = "SELECT";
}

bool Editor::select_active() const { return buffer_.has_mark(); }

std::optional<Editor::SelSpan> Editor::active_select_span() const {
    if (!buffer_.has_mark()) return std::nullopt;
    SelSpan span{buffer_.mark_row(), buffer_.mark_col(), cursor_row_, cursor_col_};
    const std::string_view line = buffer_.view(span.r1);
    if (span.c1 < line.size()) span.c1 = kpe_character_start(line, span.c1);
    if (std::pair(span.r1, span.c1) > std::pair(span.r2, span.c2)) {
        std::swap(span.r1, span.r2);
        std::swap(span.c1, span.c2);
    }
    return span;
}

void Editor::set_error(const std::string& message) {
    message_ = message;
    if (!quiet_) kpe_beep();
}

void Editor::select_error(const std::string& message) { set_error(message); }

void Editor::clear_select() { buffer_.clear_mark(); }

void Editor::toggle_line_numbers() {
    show_line_numbers_ = !show_line_numbers_;
    message_ = show_line_numbers_ ? "Line numbers ON" : "Line numbers OFF";
}

std::optional<std::string> Editor::remove_select() {
    const std::optional<SelSpan> span = active_select_span();
    if (!span) {
        select_error("No select range active");
        return std::nullopt;
    }
    std::string removed = buffer_.delete_span(span->r1, span->c1, span->r2, span->c2);
    cursor_row_ = span->r1;
    cursor_col_ = span->c1;
    return removed;
}

void Editor::leave_select() {
    cursor_row_ = std::min(cursor_row_, buffer_.line_count() - 1);
    cursor_col_ = std::min(cursor_col_, buffer_.length(cursor_row_));
    clear_select();
}

void Editor::cut_select() {
    const std::optional<std::string> removed = remove_select();
    if (!removed) return;
    set_paste_text(*removed);  // replaces the text when PASTE itself is being edited
    leave_select();
    if (clipboard_) send_to_clipboard(*removed);
}

void Editor::append_select() {
    const std::optional<std::string> removed = remove_select();
    if (!removed) return;
    append_paste_text(*removed);
    leave_select();
    if (clipboard_) send_to_clipboard(paste_text_content());
}

void Editor::replace_select_with_paste() {
    if (!remove_select()) return;
    leave_select();
    paste_text(paste_text_content());
}
