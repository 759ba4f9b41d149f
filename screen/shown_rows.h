#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "screen/cells.h"
#include "screen/painter.h"

// The picture on the terminal, row by row. Only rows whose text has changed are turned into cells, and only cells that
// have changed are sent. This makes a key fast on a screen of any size.
class ShownRows {
public:
    // What a row of the screen shows: lead, then text with its bytes [reverse_from, reverse_to) in reverse video.
    struct Content {
        std::string_view lead, text;
        size_t reverse_from = 0, reverse_to = 0;
    };
    // Begins the next picture, of this size. Rows for which show() is not called stay as they are.
    void begin(int rows, int cols);
    // Sets what a row shows. A row that the screen does not have is ignored. A second call for a row replaces the
    // first.
    void show(int row, const Content& content);
    // kpe_text_in_view for a row of the screen: faster where that row has shown the same before.
    std::string_view text_in_view(int row, std::string_view line, size_t left, size_t room);
    // Sends what has changed, and leaves the cursor at row and col, which must be on the screen.
    void paint(int row, int col);
    // Notes that the terminal shows something else by now, so that all of the next picture is sent.
    void forget() { lost_ = true; }

private:
    struct Text {
        std::string lead, text;
        size_t reverse_from = 0, reverse_to = 0;
        size_t hash = 0;
        bool operator==(const Text& other) const = default;
    };
    struct Row {
        Text shown, wanted;
        CellRow cells;
        bool changes = false;
        std::string in_view = {};  // the last answer of text_in_view, for so much room
        size_t room = 0;
        bool full = false;  // it was cut at the right edge
    };
    void scroll_rows();
    void take_over(int first, int last, int distance);

    std::vector<Row> rows_;
    CellRow cells_;
    size_t cols_ = 0;
    bool lost_ = true;
    Painter painter_;
};

// The picture on the one screen that there is.
extern ShownRows g_shown_rows;
