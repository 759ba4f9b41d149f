#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// What each row of the screen shows. Text is only turned into cells, and given to curses, where it changed:
// that is what makes a key cheap on any screen.
class ShownRows {
public:
    // A row of the screen: lead, and text behind it with its bytes [reverse_from, reverse_to) in reverse video.
    struct Content {
        std::string_view lead, text;
        size_t reverse_from = 0, reverse_to = 0;
    };
    // Begins a picture of this size; everything is shown anew if the size is another, or so small that
    // rows lie on top of each other.
    void begin(int rows, int cols, bool overlapping);
    void show(int row, const Content& content);
    // Somebody else wrote on the row, or on the screen.
    void forget(int row);
    void forget() { rows_.clear(); }

private:
    struct Row {
        bool known = false;
        std::string lead, text;
        size_t reverse_from = 0, reverse_to = 0;
    };
    std::vector<Row> rows_;
    size_t width_ = 0;
};

// Of the one screen there is.
extern ShownRows g_shown_rows;
