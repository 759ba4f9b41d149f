#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

// Text as the cells of a screen row, in the character set of LC_CTYPE. A character takes one cell or more; what
// combines with it belongs to its first cell. A tab reaches to the next column of the screen that is a multiple of 8. A
// control byte shows as ^X. A byte that is no character takes one cell; in a one-byte character set it shows as curses
// shows it, M-x or ~x. Nothing else of the text reaches the terminal.
class CellRow {
public:
    struct Cell {
        wchar_t base = L' ';     // SECOND_HALF for the other cells of the character before
        std::uint16_t mark = 0;  // 0, or the number of what combines with it, see marks()
        bool reverse = false;
        bool doubtful = false;  // some terminals give its character other cells; 8 bytes in all are compared at once
    };
    static constexpr wchar_t SECOND_HALF = L'\0', UNKNOWN = WCHAR_MAX;

    explicit CellRow(size_t width = 0) : cells_(width) {}
    void clear(size_t width);  // makes it width blanks

    // Appends characters until the row is full. Those that hold a byte of [reverse_from, reverse_to) are shown in
    // reverse video. Returns false if something had no room.
    bool add(std::string_view text, size_t reverse_from = 0, size_t reverse_to = 0);
    // How many cells hold text so far.
    size_t used() const { return used_; }
    // How many cells there are; those behind used() are blank.
    size_t width() const { return cells_.size(); }
    // Whether every character surely takes the cells that it has here, so that the terminal can move them aside.
    bool all_sure() const { return all_sure_; }
    const Cell& operator[](size_t i) const { return cells_[i]; }
    bool is_second_half(size_t i) const { return cells_[i].base == SECOND_HALF; }
    // The code points that follow the one in the cell and belong to its character, in the order of the text.
    std::wstring_view marks(size_t i) const;
    // Whether both cells look the same.
    bool same(size_t i, const CellRow& other, size_t j) const {
        const Cell &a = cells_[i], &b = other.cells_[j];
        if (std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) && a.mark == 0) return true;
        return (a.mark != 0 || b.mark != 0) && a.base == b.base && a.reverse == b.reverse && marks(i) == other.marks(j);
    }
    // How many cells from i on look like those of other from j on.
    size_t alike(size_t i, const CellRow& other, size_t j) const;
    // insert_blanks() puts count blanks in front of cell at; the last cells of the row are lost, and what is left of a
    // character that is cut there looks like nothing else. remove() takes count cells from at on away; blanks fill the
    // end. at + count <= width(), no character may be cut at at or at at + count, and all_sure() must be true.
    void insert_blanks(size_t at, size_t count);
    void remove(size_t at, size_t count);

private:
    bool put(wchar_t c, size_t cells, bool reverse, bool doubtful = false);
    void combine(wchar_t c);
    void combine_all(std::string_view bytes);

    std::vector<Cell> cells_;
    std::vector<std::wstring> marks_;
    size_t used_ = 0, text_cells_ = 0, last_ = 0;  // last_: cell of the character added last
    bool all_sure_ = true;
};

// What can be seen of line if byte column left stands at the left edge and there is room for so many cells: whole
// characters, at least as many as fill the room. A character that begins before left is left out.
std::string_view kpe_text_in_view(std::string_view line, size_t left, size_t room);
// The end of text, whole characters only, as far as it fits into so many cells.
std::string_view kpe_end_in_view(std::string_view text, size_t room);
// The screen column of byte column col of the line, if byte column left stands at screen column start.
size_t kpe_cell_of(std::string_view line, size_t left, size_t col, size_t start);
