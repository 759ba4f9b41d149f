#include "screen/cells.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <langinfo.h>

namespace {

constexpr size_t LONGEST = 4;  // bytes of a UTF-8 character
constexpr wchar_t NO_CHARACTER = 0xFFFD;

bool is_utf8() { return MB_CUR_MAX > 1 && std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

// One character of the text, and how it is shown: by wide if cells is 1 or 2, on the cell before it if cells
// is 0, or by the characters of spelled, one a byte.
struct Character {
    size_t bytes = 1, cells = 1;
    wchar_t wide = 0;
    const char* spelled = nullptr;
};

Character control_or_ascii(char c) {
    if (c >= ' ' && c <= '~') return {1, 1, static_cast<wchar_t>(c), nullptr};
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

void CellRow::put_byte(char c, attr_t attributes) {
    cchar_t& cell = cells_.emplace_back();
    cell.attr = attributes;
    cell.chars[0] = static_cast<unsigned char>(c);
    ++used_;
    ++text_cells_;
}

bool CellRow::put(wchar_t c, size_t cells, attr_t attributes) {
    if (used_ + cells > width_) return false;
    cchar_t& cell = cells_.emplace_back();
    cell.attr = attributes;
    cell.chars[0] = c;
    used_ += cells;
    ++text_cells_;
    return true;
}

void CellRow::combine(wchar_t c) {
    wchar_t* const end = cells_.back().chars + CCHARW_MAX;
    wchar_t* const free = std::find(cells_.back().chars, end, L'\0');
    if (free != end) *free = c;  // more marks than a cell holds are left out
}

bool CellRow::add(std::string_view text, size_t reverse_from, size_t reverse_to) {
    text_cells_ = 0;  // a mark at the start does not go onto what stands before the text
    size_t at = 0;
    while (at < text.size()) {
        if (used_ >= width_ && is_ascii(text[at])) return false;
        const auto attributes_to = [&](size_t end) {
            return at < reverse_to && end > reverse_from ? attr_t{A_REVERSE} : attr_t{A_NORMAL};
        };
        if (text[at] == '\t') {
            const size_t stop = std::min(tab_stop(used_), width_);
            while (used_ < stop) put_byte(' ', attributes_to(at + 1));
            ++at;
            continue;
        }
        const Character character = first_character(text.substr(at));
        const attr_t attributes = attributes_to(at + character.bytes);
        at += character.bytes;
        if (character.spelled) {
            for (const char* c = character.spelled; *c; ++c) {
                if (used_ == width_) return false;
                put_byte(*c, attributes);
            }
        } else if (character.cells > 0) {
            if (!put(character.wide, character.cells, attributes)) return false;
        } else {
            if (text_cells_ == 0 && !put(L' ', 1, attributes)) return false;
            combine(character.wide);
        }
    }
    return true;
}

void CellRow::show(int screen_row) const {
    if (cells_.empty()) return;
    mvadd_wchnstr(screen_row, 0, cells_.data(), static_cast<int>(cells_.size()));
}

std::string_view kpe_text_from(std::string_view text, size_t from) {
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
