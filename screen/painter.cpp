#include "screen/painter.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <cwchar>
#include <term.h>

#include "buffer/characters.h"
#include "system/locale.h"
#include "system/report.h"

namespace {

// Equal cells between two that differ are sent again rather than jumped over: a jump takes as many bytes.
constexpr size_t JUMP = 6;
// Inserting or removing so many cells is looked for: a typed character, a tab.
constexpr size_t MOST_SHIFTED = 8;

std::string* g_out = nullptr;  // tputs calls a plain function

int put_byte(int c) {
    *g_out += static_cast<char>(c);
    return c;
}

bool is_blank(const CellRow& cells, size_t i) {
    return cells[i].base == L' ' && !cells[i].reverse && cells[i].mark == 0;
}

// The column behind the last cell that is not blank.
size_t end_of_text(const CellRow& cells) {
    size_t end = cells.width();
    while (end > 0 && is_blank(cells, end - 1)) --end;
    return end;
}

// Whether more than so many cells from column from on are not the same.
bool many_differ(const CellRow& a, const CellRow& b, size_t from, size_t most) {
    size_t count = 0;
    for (size_t i = from; i < a.width() && count <= most; ++i) count += !a.same(i, b, i);
    return count > most;
}

// Whether a from column i on looks like b from column j on, as far as both go.
bool same_text(const CellRow& a, size_t i, const CellRow& b, size_t j) {
    return a.alike(i, b, j) == std::min(a.width() - i, b.width() - j);
}

bool is(const char* capability, std::string_view bytes) { return capability != nullptr && capability == bytes; }

void append_number(std::string& out, int number) {
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    out.append(digits, end);
}

}  // namespace

void Painter::begin(int rows, int cols) {
    rows_ = rows;
    cols_ = cols;
    reverse_ = false;
    forget_cursor();
    plain_address_ = is(cursor_address, "\033[%i%p1%d;%p2%dH");
    short_moves_ = plain_address_ || (is(carriage_return, "\r") && is(cursor_down, "\n"));
    // Attributes that take a cell of their own would push the text aside, and those that stay with the place would
    // stay there.
    if (magic_cookie_glitch > 0 || ceol_standout_glitch) {
        reverse_on_ = reverse_off_ = nullptr;
    } else {
        reverse_on_ = enter_reverse_mode && exit_attribute_mode ? enter_reverse_mode : enter_standout_mode;
        reverse_off_ = exit_attribute_mode ? exit_attribute_mode : exit_standout_mode;
    }
    clear();
}

void Painter::clear() {
    if (clear_screen) {
        send(clear_screen);
    } else if (clr_eos) {
        move_cursor(0, 0);
        send(clr_eos);
    } else if (clr_eol) {
        for (int row = 0; row < rows_; ++row) {
            move_cursor(row, 0);
            send(clr_eol);
        }
    }
    forget_cursor();
}

void Painter::send(const char* capability) {
    g_out = &out_;
    tputs(capability, 1, put_byte);
}

void Painter::flush() {
    reverse(false);
    kpe_send_to_terminal(out_);
    out_.clear();
    kpe_flush();
}

void Painter::reverse(bool on) {
    if (reverse_ == on) return;
    if (!reverse_on_ || !reverse_off_) return;
    send(on ? reverse_on_ : reverse_off_);
    reverse_ = on;
}

void Painter::move_cursor(int row, int col) {
    if (row == row_ && col == col_) return;
    reverse(false);  // not every terminal can move with it
    if (short_moves_ && row_ != UNKNOWN && col == 0 && (row == row_ || row == row_ + 1)) {
        out_ += row == row_ ? "\r" : "\r\n";
    } else if (plain_address_) {
        // What nearly every terminal has; to have it formatted takes as long as the rest of a key.
        out_ += "\033[";
        append_number(out_, row + 1);
        out_ += ';';
        append_number(out_, col + 1);
        out_ += 'H';
    } else {
        send(tiparm(cursor_address, row, col));
    }
    row_ = row;
    col_ = col;
}

void Painter::send_wide(wchar_t c) {
    if (kpe_utf8_locale()) {
        out_ += kpe_utf8_of(static_cast<char32_t>(c));
        return;
    }
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    const size_t size = std::wcrtomb(bytes, c, &state);
    if (size != static_cast<size_t>(-1)) {
        out_.append(bytes, size);
    } else {  // a byte of a one-byte character set that has no character for it
        out_ += MB_CUR_MAX == 1 && c <= 0xFF ? static_cast<char>(c) : '?';
    }
}

void Painter::send_character(const CellRow& cells, size_t i) {
    const CellRow::Cell& cell = cells[i];
    reverse(cell.reverse);
    send_wide(cell.base);
    for (const wchar_t mark : cells.marks(i)) send_wide(mark);
}

namespace {

// The column behind the character in cell i.
size_t end_of_character(const CellRow& cells, size_t i) {
    size_t end = i + 1;
    while (end < cells.width() && cells.is_second_half(end)) ++end;
    return end;
}

}  // namespace

// Before a character of doubtful width: the terminal may leave some of its cells as they are.
void Painter::blank_before(int row, const CellRow& cells, size_t i) {
    reverse(cells[i].reverse);
    out_.append(end_of_character(cells, i) - i, ' ');
    forget_cursor();
    move_cursor(row, static_cast<int>(i));
}

// After it: what follows goes where it belongs, however far the terminal thinks that it got.
void Painter::place_after(int row, const CellRow& cells, size_t i) {
    forget_cursor();
    if (const size_t end = end_of_character(cells, i); end < cells.width()) move_cursor(row, static_cast<int>(end));
}

// ASCII from cell i on, up to column to at most, that has no marks and looks alike. Returns in how many cells.
size_t Painter::send_plain(const CellRow& cells, size_t i, size_t to) {
    const bool reversed = cells[i].reverse;
    const auto plain = [&](const CellRow::Cell& cell) {
        return cell.base < 0x80 && cell.base != CellRow::SECOND_HALF && cell.mark == 0 && cell.reverse == reversed;
    };
    size_t end = i;
    while (end < to && plain(cells[end])) ++end;
    if (end == i) return 0;
    reverse(reversed);
    const size_t size = out_.size();
    out_.resize(size + (end - i));
    for (size_t at = i; at < end; ++at) out_[size + (at - i)] = static_cast<char>(cells[at].base);
    // Such a terminal takes a tilde for the start of a command.
    if (tilde_glitch) std::replace(out_.begin() + static_cast<std::ptrdiff_t>(size), out_.end(), '~', '`');
    return end - i;
}

bool Painter::can_fill(int row) const { return row < rows_ - 1 || !auto_right_margin || eat_newline_glitch; }

void Painter::send_cells(int row, const CellRow& cells, size_t from, size_t to) {
    if (to == cells.width() && !can_fill(row)) {
        --to;
        if (cells.is_second_half(to)) {  // what stood under its first half goes all the same
            move_cursor(row, static_cast<int>(--to));
            reverse(false);
            out_ += ' ';
            ++col_;
        }
    }
    if (from >= to) return;
    move_cursor(row, static_cast<int>(from));
    bool sure = true;
    for (size_t i = from; i < to; ++i) {
        if (const size_t plain = send_plain(cells, i, to); plain > 0) {
            i += plain - 1;
            continue;
        }
        if (cells.is_second_half(i)) continue;
        const bool doubtful = cells[i].doubtful;
        if (doubtful) blank_before(row, cells, i);
        send_character(cells, i);
        if (doubtful) place_after(row, cells, i);
        sure = false;
    }
    if (cells[to - 1].doubtful) return;
    col_ = static_cast<int>(to);
    // Terminals disagree about the width of some characters, and about what follows the last column.
    if (!sure || to >= cells.width()) forget_cursor();
}

// By the capability that takes a number, else by the one for a single cell unless that needs a mode.
bool Painter::send_times(const char* several, const char* once, const char* mode, size_t count) {
    constexpr std::string_view NUMBER = "\033[%p1%d";  // and one letter, as ECMA-48 has it: put together sooner here
    const int n = static_cast<int>(count);
    if (several && std::string_view(several).starts_with(NUMBER) && std::strlen(several) == NUMBER.size() + 1) {
        out_ += "\033[";
        append_number(out_, n);
        out_ += several[NUMBER.size()];
    } else if (several) {
        send(tiparm(several, n));
    } else if (once && !mode) {
        for (int i = 0; i < n; ++i) send(once);
    } else {
        return false;
    }
    return true;
}

bool Painter::insert_blanks(size_t count) { return send_times(parm_ich, insert_character, enter_insert_mode, count); }

bool Painter::remove_cells(size_t count) { return send_times(parm_dch, delete_character, enter_delete_mode, count); }

// Where the text behind from only moved aside, has the terminal move it; scratch_ is then what the row shows.
bool Painter::shift(int row, const CellRow& was, const CellRow& now, size_t from) {
    if (!can_fill(row)) return false;  // what its last cell shows is not what it should
    const size_t width = now.width();
    for (size_t count = 1; count <= MOST_SHIFTED && from + count < width; ++count) {
        const bool inserted = same_text(was, from, now, from + count);
        if (!inserted && !same_text(was, from + count, now, from)) continue;
        const CellRow& longer = inserted ? now : was;
        if (was.is_second_half(from) || now.is_second_half(from) || longer.is_second_half(from + count)) return false;
        if (!many_differ(was, now, from, count + JUMP)) return false;
        move_cursor(row, static_cast<int>(from));
        if (inserted ? !insert_blanks(count) : !remove_cells(count)) return false;
        scratch_ = was;
        if (inserted) {
            scratch_.insert_blanks(from, count);
        } else {
            scratch_.remove(from, count);
        }
        return true;
    }
    return false;
}

// The cells of columns [from, to) that differ, whole characters of both rows.
void Painter::send_difference(int row, const CellRow& was, const CellRow& now, size_t from, size_t to) {
    const auto inside = [&](size_t i) { return i < to && (now.is_second_half(i) || was.is_second_half(i)); };
    for (size_t i = from; i < to;) {
        if (const size_t alike = now.alike(i, was, i); alike > 0) {
            i += alike;
            continue;
        }
        size_t start = i, end = i + 1;
        for (size_t next = end; next < to && next - end <= JUMP; ++next) {
            if (!now.same(next, was, next)) end = next + 1;
        }
        while (start > 0 && inside(start)) --start;
        while (inside(end)) ++end;
        send_cells(row, now, start, end);
        i = end;
    }
}

void Painter::change(int row, const CellRow& was, const CellRow& now) {
    const size_t width = now.width();
    const size_t from = now.alike(0, was, 0);
    if (from == width) return;
    if (was.all_sure() && now.all_sure() && shift(row, was, now, from)) {
        send_difference(row, scratch_, now, from, width);
        return;
    }
    const size_t text_end = end_of_text(now), old_end = end_of_text(was);
    const bool clears = clr_eol && old_end > text_end + JUMP / 2 && text_end < width;
    send_difference(row, was, now, from, clears ? text_end : width);
    if (!clears) return;
    move_cursor(row, static_cast<int>(text_end));
    reverse(false);
    send(clr_eol);
}

bool Painter::scroll_rows(int top, int bottom, int count) {
    if (memory_above || memory_below || non_dest_scroll_region) return false;  // old text could come in
    if (!can_fill(bottom)) return false;  // what the last cell of that row shows is not what it should
    const int distance = count > 0 ? count : -count;
    const char* const once = count > 0 ? scroll_forward : scroll_reverse;
    const char* const several = count > 0 ? parm_index : parm_rindex;
    if (change_scroll_region && (once || several)) {
        reverse(false);
        send(tiparm(change_scroll_region, top, bottom));
        forget_cursor();
        move_cursor(count > 0 ? bottom : top, 0);
        if (several && (distance > 1 || !once)) {
            send(tiparm(several, distance));
        } else {
            for (int i = 0; i < distance; ++i) send(once);
        }
        send(tiparm(change_scroll_region, 0, rows_ - 1));
        forget_cursor();
        return true;
    }
    if (!parm_insert_line || !parm_delete_line) return false;
    const int removed_at = count > 0 ? top : bottom - distance + 1,
              inserted_at = count > 0 ? bottom - distance + 1 : top;
    move_cursor(removed_at, 0);
    send(tiparm(parm_delete_line, distance));
    forget_cursor();
    move_cursor(inserted_at, 0);
    send(tiparm(parm_insert_line, distance));
    forget_cursor();
    return true;
}
