#include "screen/cells.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <cwchar>

#include "buffer/characters.h"
#include "system/locale.h"

namespace {

constexpr wchar_t NO_CHARACTER = 0xFFFD;
constexpr size_t MOST_MARKS = 30;  // code points beside the first; the longest emoji have ten

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

// How many bytes at the start of text are ASCII.
size_t ascii_run(std::string_view text) {
    constexpr std::uint64_t TOP_BITS = 0x8080808080808080;
    size_t size = 0;
    for (std::uint64_t eight = 0; text.size() - size >= sizeof eight; size += sizeof eight) {
        std::memcpy(&eight, text.data() + size, sizeof eight);
        if (eight & TOP_BITS) break;
    }
    while (size < text.size() && is_ascii(text[size])) ++size;
    return size;
}

// One character of the text, and how it is shown: by wide and the code points behind it if cells is not 0, on the cell
// before it if cells is 0, or by the letters of spelled.
struct Character {
    size_t bytes = 1, cells = 1;
    wchar_t wide = 0;
    const char* spelled = nullptr;
    size_t first_bytes = 1;  // those of wide; what follows them combines with it
    bool doubtful = false;
};

Character control_or_ascii(char c) {
    Character found;
    if (is_printable_ascii(c)) {
        found.wide = static_cast<wchar_t>(c);
    } else {
        found.spelled = unctrl(static_cast<chtype>(static_cast<unsigned char>(c)));
        found.cells = std::strlen(found.spelled);
    }
    return found;
}

Character no_character(char byte, size_t bytes = 1) {
    if (MB_CUR_MAX == 1) return control_or_ascii(byte);
    Character found;
    found.bytes = found.first_bytes = bytes;
    found.wide = wcwidth(NO_CHARACTER) == 1 ? NO_CHARACTER : L'?';
    return found;
}

Character utf8_character(std::string_view text) {
    const Utf8Character utf8 = kpe_utf8_character(text);
    Character found;
    if (is_ascii(text.front()) && !is_printable_ascii(text.front())) return control_or_ascii(text.front());
    if (!utf8.shown) return no_character(text.front(), utf8.bytes);
    found.bytes = utf8.bytes;
    found.cells = utf8.cells;
    found.wide = utf8.lone_mark ? L' ' : static_cast<wchar_t>(utf8.code);
    found.first_bytes = utf8.lone_mark ? 0 : kpe_utf8_size(text);
    found.doubtful = utf8.doubtful;
    return found;
}

// In another character set.
Character multibyte_character(std::string_view text) {
    if (is_ascii(text.front())) return control_or_ascii(text.front());
    std::mbstate_t state{};
    Character found;
    const size_t bytes = std::mbrtowc(&found.wide, text.data(), std::min(text.size(), size_t{MB_CUR_MAX}), &state);
    if (bytes == 0 || bytes > text.size()) return no_character(text.front());
    const int cells = wcwidth(found.wide);
    if (cells < 0) return no_character(text.front(), bytes);  // C1 controls among them: terminals obey these
    found.bytes = found.first_bytes = bytes;
    found.cells = static_cast<size_t>(cells);
    return found;
}

// The character at the start of text, which is not empty and does not begin with a tab.
Character first_character(std::string_view text) {
    return kpe_utf8_locale() ? utf8_character(text) : multibyte_character(text);
}

size_t tab_stop(size_t cell) { return (cell / 8 + 1) * 8; }

// Whether what follows the first size bytes may belong to the character of the last of them.
bool may_combine(std::string_view text, size_t size) {
    return size < text.size() && !is_ascii(text[size]) && kpe_utf8_locale();
}

}  // namespace

void CellRow::clear(size_t width) {
    cells_.assign(width, Cell{});
    marks_.clear();
    used_ = text_cells_ = last_ = 0;
    all_sure_ = true;
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
    const bool cuts = is_second_half(width() - count);
    std::move_backward(from, cells_.end() - static_cast<std::ptrdiff_t>(count), cells_.end());
    std::fill_n(from, count, Cell{});
    if (cuts) cells_.back() = {UNKNOWN, 0, false};
}

void CellRow::remove(size_t at, size_t count) {
    const auto from = cells_.begin() + static_cast<std::ptrdiff_t>(at);
    std::move(from + static_cast<std::ptrdiff_t>(count), cells_.end(), from);
    std::fill(cells_.end() - static_cast<std::ptrdiff_t>(count), cells_.end(), Cell{});
}

bool CellRow::put(wchar_t c, size_t cells, bool reverse, bool doubtful) {
    if (used_ + cells > cells_.size()) return false;
    last_ = used_;
    cells_[used_] = {c, 0, reverse, doubtful};
    for (size_t i = 1; i < cells; ++i) cells_[used_ + i] = {SECOND_HALF, 0, reverse, doubtful};
    all_sure_ = all_sure_ && !doubtful && (cells == 1 || kpe_utf8_locale());
    used_ += cells;
    ++text_cells_;
    return true;
}

void CellRow::combine(wchar_t c) {
    Cell& cell = cells_[last_];
    if (cell.mark == 0) {
        marks_.emplace_back();
        cell.mark = static_cast<std::uint16_t>(marks_.size());
    }
    std::wstring& marks = marks_[cell.mark - size_t{1}];
    if (marks.size() < MOST_MARKS) marks += c;
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
            size_t count = printable_run(text.substr(at, end - at));
            if (may_combine(text, at + count)) --count;
            for (const char c : text.substr(at, count)) cells_[used_++] = {static_cast<wchar_t>(c), 0, reverse};
            at += count;
            if (count > 0) {
                last_ = used_ - 1;
                ++text_cells_;
                continue;
            }
        }
        const Character character = first_character(text.substr(at));
        const std::string_view bytes = text.substr(at, character.bytes);
        const bool reverse = reverse_to_byte(at + character.bytes);
        at += character.bytes;
        if (character.spelled) {
            for (const char* c = character.spelled; *c; ++c) {
                if (!put(static_cast<unsigned char>(*c), 1, reverse)) return false;
            }
        } else if (character.cells == 0) {
            if (text_cells_ == 0 && !put(L' ', 1, reverse)) return false;
            combine(character.wide);
        } else {
            if (!put(character.wide, character.cells, reverse, character.doubtful)) return false;
            if (!is_ascii(bytes.back())) combine_all(bytes.substr(character.first_bytes));
        }
    }
    return true;
}

// The code points that follow the first one of a character.
void CellRow::combine_all(std::string_view bytes) {
    while (!bytes.empty()) {
        const Utf8Character code = kpe_utf8_character(bytes.substr(0, kpe_utf8_size(bytes)));
        combine(static_cast<wchar_t>(code.code));
        bytes.remove_prefix(code.bytes);
    }
}

std::string_view kpe_text_in_view(std::string_view line, size_t left, size_t room) {
    if (left > 0) left = kpe_character_border(line, left);
    const std::string_view text = line.substr(left);
    const size_t most = std::min(room, text.size());
    if (!kpe_utf8_locale() || ascii_run(text.substr(0, most + 1)) == std::min(most + 1, text.size()))
        return text.substr(0, most);
    size_t at = 0;
    while (at < text.size() && room > 0) {
        size_t plain = ascii_run(text.substr(at, room));
        if (may_combine(text, at + plain) && plain > 0) --plain;
        at += plain;
        room -= plain;
        if (at == text.size() || room == 0) break;
        const Utf8Character character = kpe_utf8_character(text.substr(at));
        at += character.bytes;
        room -= std::min(room, character.cells);
    }
    return text.substr(0, at);
}

std::string_view kpe_end_in_view(std::string_view text, size_t room) {
    return text.substr(kpe_view_start(text, text.size(), room));
}

size_t kpe_cell_of(std::string_view line, size_t left, size_t col, size_t start) {
    size_t at = kpe_character_border(line, left), cell = start, base = start;
    while (at < line.size()) {
        size_t plain = printable_run(line.substr(at, col - std::min(at, col)));
        if (plain > 0 && may_combine(line, at + plain)) --plain;
        if (plain > 0) {
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
            if (character.cells == 0 && at == 0) character.cells = 1;
        }
        if (character.cells > 0) base = cell;
        if (col < at + character.bytes) return base;
        at += character.bytes;
        cell += character.cells;
    }
    return cell;
}
