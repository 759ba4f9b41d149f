#pragma once

#include <cstddef>
#include <string>

#include "screen/cells.h"

// Sends the terminal what turns the picture that it shows into another one, with as few bytes as possible. It uses the
// terminal entry that curses has loaded. curses starts, suspends and ends the screen, but its own windows stay blank:
// to use them would make each key several times as slow.
//
// Rows and columns are zero-based. Nothing is sent before flush().
class Painter {
public:
    // Begins with a cleared screen of this size. Attributes are normal; the cursor may be anywhere. Curses must be
    // started.
    void begin(int rows, int cols);

    // Sends what turns row from was into now. Both are as wide as the screen.
    void change(int row, const CellRow& was, const CellRow& now);
    // Moves rows top to bottom (both inclusive) up by count, or down by -count if count is negative. The rows that come
    // in are blank. Returns false and does nothing if the terminal cannot do it.
    bool scroll_rows(int top, int bottom, int count);
    void move_cursor(int row, int col);
    void flush();

private:
    static constexpr int UNKNOWN = -1;

    // Whether the last cell of row can be written. In the last row it cannot: some terminals would scroll.
    bool can_fill(int row) const;
    void send(const char* capability);
    void clear();
    void send_cells(int row, const CellRow& cells, size_t from, size_t to);
    void send_character(const CellRow& cells, size_t i);
    size_t send_plain(const CellRow& cells, size_t i, size_t to);
    void blank_before(int row, const CellRow& cells, size_t i);
    void place_after(int row, const CellRow& cells, size_t i);
    void send_wide(wchar_t c);
    void reverse(bool on);
    void forget_cursor() { row_ = col_ = UNKNOWN; }
    bool shift(int row, const CellRow& was, const CellRow& now, size_t from);
    bool send_times(const char* several, const char* once, const char* mode, size_t count);
    bool insert_blanks(size_t count);
    bool remove_cells(size_t count);
    void send_difference(int row, const CellRow& was, const CellRow& now, size_t from, size_t to);

    int rows_ = 0, cols_ = 0;
    int row_ = UNKNOWN, col_ = UNKNOWN;  // where the cursor stands
    bool reverse_ = false;
    bool plain_address_ = false;                                 // the cursor is moved by the sequence of ECMA-48
    bool short_moves_ = false;                                   // CR and LF move to the start of the row and down
    const char *reverse_on_ = nullptr, *reverse_off_ = nullptr;  // from the entry; null: not shown
    std::string out_;
    CellRow scratch_;
};
