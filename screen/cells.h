#pragma once

#include <cstddef>
#include <curses.h>
#include <string_view>
#include <vector>

// Text as the cells of a screen row, in the character set of LC_CTYPE: whole characters of one or two cells,
// with combining characters on the cell before them; tabs reach to the next multiple of 8 on the screen;
// control bytes show as ^X, and a byte that is no character as one cell (in a one-byte character set as
// curses shows it, M-x or ~x). Nothing else of the text reaches the terminal.
class CellRow {
public:
    explicit CellRow(size_t width) : width_(width) {}

    // Appends characters until the row is full. Those that hold a byte of [reverse_from, reverse_to) are
    // shown in reverse video. false once something found no room.
    bool add(std::string_view text, size_t reverse_from = 0, size_t reverse_to = 0);
    // Cells used so far.
    size_t used() const { return used_; }
    // Shows the row from its column 0 on; nothing when the screen has no such row.
    void show(int screen_row) const;

private:
    bool put(wchar_t c, size_t cells, attr_t attributes);
    void put_byte(char c, attr_t attributes);
    void combine(wchar_t c);

    size_t width_, used_ = 0, text_cells_ = 0;
    std::vector<cchar_t> cells_;  // one a character
};

// text's bytes from column from on (a byte column, lowered to the length): those of a character that begins
// before it are left out.
std::string_view kpe_text_from(std::string_view text, size_t from);
// text's first size bytes, without the beginning of a character that ends behind them.
std::string_view kpe_text_until(std::string_view text, size_t size);
// The screen column of the byte column col, when the byte column left stands at screen column start.
size_t kpe_cell_of(std::string_view line, size_t left, size_t col, size_t start);
