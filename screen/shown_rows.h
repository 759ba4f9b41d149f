#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "screen/cells.h"
#include "screen/painter.h"

// The picture on the terminal, row by row. Text is only turned into cells where it changed, and only cells that
// changed are sent: that is what makes a key cheap on any screen.
class ShownRows {
public:
    // A row of the screen: lead, and text behind it with its bytes [reverse_from, reverse_to) in reverse video.
    struct Content {
        std::string_view lead, text;
        size_t reverse_from = 0, reverse_to = 0;
    };
    // Begins the next picture, of this size. Rows that nobody shows stay as they are.
    void begin(int rows, int cols);
    // A row that the screen does not have is left out; of two contents for a row the later one counts.
    void show(int row, const Content& content);
    // Sends what changed and leaves the cursor at row and col, which the screen has.
    void paint(int row, int col);
    // The screen shows something else, or nothing: the next picture is painted anew.
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
    };
    void scroll_rows();
    void take_over(int first, int last, int distance);

    std::vector<Row> rows_;
    CellRow cells_;
    size_t cols_ = 0;
    bool lost_ = true;
    Painter painter_;
};

// Of the one screen there is.
extern ShownRows g_shown_rows;
