#pragma once

#include <cstddef>
#include <string>

#include "screen/cells.h"

// Brings rows of the terminal from what they show to what they should show, with as few bytes as it can, by the
// entry of the terminal type that curses has current. curses starts, suspends and ends the screen; its own windows
// would cost a key several times what the rest of it takes, so they stay blank.
//
// Rows and columns are zero-based. Nothing is sent before flush().
class Painter {
public:
    // Clears a screen of this size with normal attributes and the cursor anywhere. Needs curses to be started.
    void begin(int rows, int cols);

    // Makes row show now where it shows was; both are as wide as the screen.
    void change(int row, const CellRow& was, const CellRow& now);
    // Moves rows top to bottom (inclusive) up by count, or down by -count; the rows that come in are blank. false,
    // with nothing done, when the terminal cannot.
    bool scroll_rows(int top, int bottom, int count);
    void move_cursor(int row, int col);
    void flush();

private:
    static constexpr int UNKNOWN = -1;

    // Whether the last cell of row can be written: that of the screen would scroll it on some terminals.
    bool can_fill(int row) const;
    void send(const char* capability);
    void clear();
    void send_cells(int row, const CellRow& cells, size_t from, size_t to);
    void send_character(const CellRow& cells, size_t i);
    void send_wide(wchar_t c);
    void reverse(bool on);
    void forget_cursor() { row_ = col_ = UNKNOWN; }
    bool shift(int row, const CellRow& was, const CellRow& now, size_t from);
    bool send_times(const char* several, const char* once, const char* mode, size_t count);
    bool insert_blanks(size_t count);
    bool remove_cells(size_t count);
    void send_difference(int row, const CellRow& was, const CellRow& now, size_t from, size_t to);

    int rows_ = 0, cols_ = 0;
    int row_ = UNKNOWN, col_ = UNKNOWN;  // where the cursor is
    bool reverse_ = false;
    bool plain_address_ = false;                                 // rows and columns are addressed as ECMA-48 has it
    bool short_moves_ = false;                                   // to the start of this row and the next by CR and LF
    const char *reverse_on_ = nullptr, *reverse_off_ = nullptr;  // of the entry; null: shown without
    std::string out_;
    CellRow scratch_;
};
