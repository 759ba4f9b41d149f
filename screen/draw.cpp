#include <algorithm>
#include <curses.h>
#include <string>
#include <string_view>
#include <vector>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "screen/cells.h"
#include "screen/curses_session.h"
#include "screen/shown_rows.h"
#include "system/locale.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

constexpr int ROWS_BELOW_TEXT = 3;  // separator, status line, message line

struct Geometry {
    int rows, cols, text_rows;
    explicit Geometry(int set_lines)
        : rows(kpe_screen_size().rows), cols(kpe_screen_size().cols), text_rows(std::max(1, rows - ROWS_BELOW_TEXT)) {
        if (set_lines > 0) text_rows = std::min(set_lines, text_rows);
    }
    size_t width() const { return cols > 0 ? static_cast<size_t>(cols) : 0; }
};

// Screen rows between which the cursor moves without scrolling.
struct Margins {
    int top = 0, bottom;
    Margins(int set_top, int set_bottom, int text_rows) : bottom(text_rows - 1) {
        if (set_top <= 0 && set_bottom < 1) return;
        top = std::max(set_top, 1) - 1;
        if (set_bottom >= 1) bottom = std::min(set_bottom - 1, bottom);
        if (top > bottom) std::swap(top, bottom);
        bottom = std::min(bottom, text_rows - 1);
    }
};

long long as_signed(size_t n) { return static_cast<long long>(n); }

size_t gutter_width(bool numbers, size_t cursor_row) { return numbers ? std::to_string(cursor_row + 1).size() + 1 : 0; }

size_t shown_cells(size_t width, std::string_view text) {
    CellRow row(width);
    row.add(text);
    return row.used();
}

}  // namespace

void Editor::draw_screen() {
    compose_screen();
    const auto [row, col] = cursor_place();
    g_shown_rows.paint(row, col);
}

void Editor::compose_screen() {
    if (kpe_warned()) kpe_repaint();
    const Geometry screen(set_lines_);
    g_shown_rows.begin(screen.rows, screen.cols);
    if (truncate_) left_col_ = 0;
    snap_cursor();
    adjust_view();
    const auto span = active_select_span();
    const std::vector<std::string_view> lines = buffer_.views(top_line_, static_cast<size_t>(screen.text_rows));
    for (int i = 0; i < screen.text_rows; ++i) {
        const size_t below = static_cast<size_t>(i), row = top_line_ + below;
        if (below < lines.size()) {
            draw_line(i, row, lines[below], screen.width(), span);
        } else {
            g_shown_rows.show(i, {{}, row == buffer_.line_count() ? "[EOB]" : ""});
        }
    }
    for (int i = screen.text_rows; i < screen.rows - ROWS_BELOW_TEXT; ++i) g_shown_rows.show(i, {});
    const std::string separator(std::max<size_t>(screen.width(), 1), '-');
    g_shown_rows.show(screen.rows - 3, {{}, separator});
    g_shown_rows.show(screen.rows - 2, {{}, status_line()});
    if (!message_.empty() || screen.rows > 1) g_shown_rows.show(screen.rows - 1, {{}, message_});
    screen_stale_ = false;
}

// Only the bytes that can be seen are looked at, however long the line is.
void Editor::draw_line(int screen_row, size_t row, std::string_view line, size_t width,
                       const std::optional<SelSpan>& span) const {
    size_t from = 0, to = 0;  // the selected columns
    if (span && span->r1 <= row && row <= span->r2) {
        if (row == span->r1) from = std::min(span->c1, line.size());
        to = row == span->r2 ? std::min(span->c2, line.size()) : line.size();
    }
    std::string gutter;
    if (show_line_numbers_) gutter = std::to_string(row + 1) + ' ';
    const size_t left = std::min(truncate_ ? 0 : left_col_, line.size());
    const size_t room = width - std::min(gutter.size(), width);
    const std::string_view shown = g_shown_rows.text_in_view(screen_row, line, left, room);
    const size_t start = shown.empty() ? 0 : static_cast<size_t>(shown.data() - line.data());
    const auto shown_column = [&](size_t column) { return std::min(column - std::min(column, start), shown.size()); };
    g_shown_rows.show(screen_row, {gutter, shown, shown_column(from), shown_column(to)});
}

std::string Editor::status_line() const {
    std::string text = " EDIT[" + current_buffer_name_ + "]";
    text += direction_ == Direction::Backup ? " BACKUP" : " ADVANCE";
    if (overstrike_) text += " OVR";
    if (select_active()) text += " SELECT";
    if (buffer_.modified()) text += " *";
    if (left_col_ != 0) text += " col+" + std::to_string(left_col_);
    if (!last_function_.empty()) text += "  [" + last_function_ + "]";
    if (!debug_keys_) return text + "  PF1=GOLD PF3=FNDNXT GOLD+PF3=FIND Ctrl/Z=CMD";
    return text + "  KEY: " + (last_key_debug_.empty() ? "(none)" : last_key_debug_);
}

// On the first cell of the character that holds the cursor's byte; in the gutter if it is as few bytes left of what is
// shown; or behind the message.
std::pair<int, int> Editor::cursor_place() const {
    const Geometry screen(set_lines_);
    const long long gutter = as_signed(gutter_width(show_line_numbers_, cursor_row_));
    const size_t width = screen.width();
    const std::string_view line = buffer_.view(cursor_row_);
    const bool in_view = cursor_col_ >= left_col_ && !truncate_;  // adjust_view has seen to it
    const long long x = in_view ? 0 : cursor_x(line, gutter, screen.cols);
    if (cursor_row_ >= top_line_ && cursor_row_ - top_line_ < static_cast<size_t>(screen.text_rows) && x >= 0 &&
        x < screen.cols) {
        const auto column = static_cast<size_t>(x);
        const size_t cell =
            cursor_col_ < left_col_ ? column : kpe_cell_of(line, left_col_, cursor_col_, static_cast<size_t>(gutter));
        const int row = static_cast<int>(cursor_row_ - top_line_);
        if (cell < width && row < screen.rows) return {row, static_cast<int>(cell)};
    }
    const size_t end = std::min(shown_cells(width, message_), width > 0 ? width - 1 : 0);
    return {screen.rows - 1, static_cast<int>(end)};
}

void Editor::adjust_view() {
    const Geometry screen(set_lines_);
    if (truncate_) left_col_ = 0;
    const Margins margins(cursor_top_, cursor_bottom_, screen.text_rows);
    const auto top = static_cast<size_t>(margins.top), bottom = static_cast<size_t>(margins.bottom);
    if (cursor_row_ < top_line_ + top) {
        top_line_ = cursor_row_ >= top ? cursor_row_ - top : 0;
    } else if (cursor_row_ > top_line_ + bottom) {
        top_line_ = cursor_row_ - bottom;
    }
    if (truncate_) return;

    const std::string_view line = buffer_.view(cursor_row_);
    if (left_col_ > 0 && left_col_ < line.size()) left_col_ = kpe_character_border(line, left_col_);
    const long long gutter = as_signed(gutter_width(show_line_numbers_, cursor_row_));
    const long long x = cursor_x(line, gutter, screen.cols);
    if (x < 0) {
        left_col_ = kpe_view_start(line, cursor_col_, 4);
    } else if (x >= screen.cols - 1) {
        left_col_ = kpe_view_start(line, cursor_col_, static_cast<size_t>(std::max(1LL, screen.cols - gutter - 1) - 1));
    }
    show_cursor_cell(line, screen.width(), static_cast<size_t>(gutter));
}

// How far right of the screen's left edge the cursor is if all of the text and the gutter can be seen; negative left of
// it. What is further right than the screen is wide is not told apart.
long long Editor::cursor_x(std::string_view line, long long gutter, int cols) const {
    const auto most = static_cast<size_t>(gutter + std::max(cols, 1));
    const bool right = cursor_col_ >= left_col_;
    const size_t from = right ? left_col_ : cursor_col_, to = right ? cursor_col_ : left_col_;
    const long long columns = as_signed(kpe_view_columns(line, from, to, most));
    return right ? gutter + columns : gutter - columns;
}

// Tabs and control bytes take more cells than bytes: scrolls on until the cursor's own cell can be seen.
void Editor::show_cursor_cell(std::string_view line, size_t width, size_t gutter) {
    if (width <= gutter) return;
    while (left_col_ < cursor_col_ && kpe_cell_of(line, left_col_, cursor_col_, gutter) >= width)
        left_col_ = std::max(kpe_character_end(line, left_col_), left_col_ + 1);
}

void Editor::clamp_cursor() {
    if (buffer_.line_count() == 0) return;
    cursor_row_ = std::min(cursor_row_, buffer_.line_count() - 1);
    cursor_col_ = std::min(cursor_col_, buffer_.length(cursor_row_));
}

void Editor::snap_cursor() {
    if (cursor_col_ == 0 || !kpe_utf8_locale()) return;
    const std::string_view line = buffer_.view(cursor_row_);
    if (cursor_col_ < line.size()) cursor_col_ = kpe_character_start(line, cursor_col_);
}

void Editor::ring_bell() {
    if (g_curses_active) {
        beep();
        flash();
        return;
    }
    kpe_send_to_terminal("\a");
    kpe_flush();
}
