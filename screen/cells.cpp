#include "screen/cells.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <cwchar>
#include <langinfo.h>

namespace {

constexpr size_t LONGEST = 4;  // bytes of a UTF-8 character
constexpr wchar_t NO_CHARACTER = 0xFFFD;

bool is_utf8() { return MB_CUR_MAX > 1 && std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

bool is_printable_ascii(char c) { return c >= ' ' && c <= '~'; }

// How many bytes at the start of text are printable ASCII.
size_t printable_run(std::string_view text) {
    constexpr std::uint64_t ONES = 0x0101010101010101, TOP_BITS = 0x80 * ONES;
    size_t size = 0;
    for (std::uint64_t eight = 0; text.size() - size >= sizeof eight; size += sizeof eight) {
        std::memcpy(&eight, text.data() + size, sizeof eight);
        // Where all eight are below 0x80, a byte below the blank borrows its top bit and 0x7F carries into it.
        if ((eight | (eight - ' ' * ONES) | (eight + ONES)) & TOP_BITS) break;
    }
    while (size < text.size() && is_printable_ascii(text[size])) ++size;
    return size;
}

// One character of the text, and how it is shown: by wide if cells is 1 or 2, on the cell before it if cells
// is 0, or by the characters of spelled, one a byte.
struct Character {
    size_t bytes = 1, cells = 1;
    wchar_t wide = 0;
    const char* spelled = nullptr;
};

Character control_or_ascii(char c) {
    if (is_printable_ascii(c)) return {1, 1, static_cast<wchar_t>(c), nullptr};
    const char* const spelled = unctrl(static_cast<chtype>(static_cast<unsigned char>(c)));
    return {1, std::strlen(spelled), 0, spelled};
}

Character no_character(char byte) {
    if (MB_CUR_MAX == 1) return control_or_ascii(byte);
    return {1, 1, wcwidth(NO_CHARACTER) == 1 ? NO_CHARACTER : L'?', nullptr};
}

// The character at the start of text, which is not empty and does not begin with a tab.
Character first_character(std::string_view text) {
    if (is_ascii(text.front())) return control_or_ascii(text.front());
    std::mbstate_t state{};
    Character found;
    const size_t bytes = std::mbrtowc(&found.wide, text.data(), std::min(text.size(), size_t{MB_CUR_MAX}), &state);
    if (bytes == 0 || bytes > text.size()) return no_character(text.front());
    found.bytes = bytes;
    const int cells = wcwidth(found.wide);
    if (cells < 0) {  // C1 controls among them: terminals obey these
        found = no_character(text.front());
        found.bytes = bytes;
        return found;
    }
    found.cells = static_cast<size_t>(cells);
    return found;
}

size_t tab_stop(size_t cell) { return (cell / 8 + 1) * 8; }

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Where the character that holds the byte at col begins; col < text.size(). Only UTF-8 can be read backwards.
size_t character_start(std::string_view text, size_t col) {
    if (!is_continuation(text[col]) || !is_utf8()) return col;
    for (size_t back = 1; back < LONGEST && back <= col; ++back) {
        const size_t start = col - back;
        if (is_continuation(text[start])) continue;
        return start + first_character(text.substr(start, LONGEST)).bytes > col ? start : col;
    }
    return col;
}

}  // namespace

void CellRow::clear(size_t width) {
    cells_.assign(width, Cell{});
    marks_.clear();
    used_ = text_cells_ = last_ = 0;
    all_single_ = true;
}

std::wstring_view CellRow::marks(size_t i) const {
    const size_t mark = cells_[i].mark;
    return mark > 0 ? std::wstring_view(marks_[mark - 1]) : std::wstring_view();
}

size_t CellRow::alike(size_t i, const CellRow& other, size_t j) const {
    const size_t most = std::min(width() - i, other.width() - j);
    const bool plain = marks_.empty() && other.marks_.empty();
    if (plain && std::memcmp(cells_.data() + i, other.cells_.data() + j, most * sizeof(Cell)) == 0) return most;
    size_t count = 0;
    while (count < most && same(i + count, other, j + count)) ++count;
    return count;
}

void CellRow::insert_blanks(size_t at, size_t count) {
    const auto from = cells_.begin() + static_cast<std::ptrdiff_t>(at);
    std::move_backward(from, cells_.end() - static_cast<std::ptrdiff_t>(count), cells_.end());
    std::fill_n(from, count, Cell{});
}

void CellRow::remove(size_t at, size_t count) {
    const auto from = cells_.begin() + static_cast<std::ptrdiff_t>(at);
    std::move(from + static_cast<std::ptrdiff_t>(count), cells_.end(), from);
    std::fill(cells_.end() - static_cast<std::ptrdiff_t>(count), cells_.end(), Cell{});
}

bool CellRow::put(wchar_t c, size_t cells, bool reverse) {
    if (used_ + cells > cells_.size()) return false;
    last_ = used_;
    cells_[used_] = {c, 0, reverse};
    for (size_t i = 1; i < cells; ++i) {
        cells_[used_ + i] = {SECOND_HALF, 0, reverse};
        all_single_ = false;
    }
    used_ += cells;
    ++text_cells_;
    return true;
}

// More marks than curses keeps for a cell are left out.
void CellRow::combine(wchar_t c) {
    Cell& cell = cells_[last_];
    if (cell.mark == 0) {
        marks_.emplace_back();
        cell.mark = static_cast<std::uint16_t>(marks_.size());
    }
    std::wstring& marks = marks_[cell.mark - size_t{1}];
    if (marks.size() + 1 < CCHARW_MAX) marks += c;
}

bool CellRow::add(std::string_view text, size_t reverse_from, size_t reverse_to) {
    text_cells_ = 0;  // a mark at the start does not go onto what stands before the text
    const size_t width = cells_.size();
    size_t at = 0;
    while (at < text.size()) {
        if (used_ >= width && is_ascii(text[at])) return false;
        const auto reverse_to_byte = [&](size_t end) { return at < reverse_to && end > reverse_from; };
        if (text[at] == '\t') {
            const size_t stop = std::min(tab_stop(used_), width);
            const bool reverse = reverse_to_byte(at + 1);
            while (used_ < stop) put(L' ', 1, reverse);
            ++at;
            continue;
        }
        if (is_printable_ascii(text[at])) {  // nearly all there is: kept short
            const bool reverse = reverse_to_byte(at + 1);
            const size_t change = at < reverse_from ? reverse_from : reverse ? reverse_to : text.size();
            const size_t end = std::min({text.size(), change, at + (width - used_)});
            const size_t count = printable_run(text.substr(at, end - at));
            for (const char c : text.substr(at, count)) cells_[used_++] = {static_cast<wchar_t>(c), 0, reverse};
            at += count;
            last_ = used_ - 1;
            ++text_cells_;
            continue;
        }
        const Character character = first_character(text.substr(at));
        const bool reverse = reverse_to_byte(at + character.bytes);
        at += character.bytes;
        if (character.spelled) {
            for (const char* c = character.spelled; *c; ++c) {
                if (!put(static_cast<unsigned char>(*c), 1, reverse)) return false;
            }
        } else if (character.cells > 0) {
            if (!put(character.wide, character.cells, reverse)) return false;
        } else {
            if (text_cells_ == 0 && !put(L' ', 1, reverse)) return false;
            combine(character.wide);
        }
    }
    return true;
}

std::string_view kpe_text_from(std::string_view text, size_t from) {
    if (from == 0) return text;
    if (from >= text.size()) return {};
    const size_t start = character_start(text, from);
    if (start == from) return text.substr(from);
    return text.substr(start + first_character(text.substr(start, LONGEST)).bytes);
}

std::string_view kpe_text_until(std::string_view text, size_t size) {
    if (size >= text.size()) return text;
    return text.substr(0, character_start(text, size));
}

size_t kpe_cell_of(std::string_view line, size_t left, size_t col, size_t start) {
    const std::string_view text = kpe_text_from(line, left);
    const size_t first = line.size() - text.size();  // not left, when that lies inside a character
    size_t at = std::min(first, line.size()), cell = start, base = start;
    while (at < line.size()) {
        if (const size_t plain = printable_run(line.substr(at, col - std::min(at, col))); plain > 0) {
            at += plain;
            cell += plain;
            base = cell - 1;
            continue;
        }
        Character character;
        if (line[at] == '\t') {
            character.cells = tab_stop(cell) - cell;
        } else {
            character = first_character(line.substr(at));
            if (character.cells == 0 && at == first) character.cells = 1;
        }
        if (character.cells > 0) base = cell;
        if (col < at + character.bytes) return base;
        at += character.bytes;
        cell += character.cells;
    }
    return cell;
}
