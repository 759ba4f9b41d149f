#pragma once

#include <cstddef>
#include <string_view>

// A text for a person to read. If standard input, output and error are terminals, it stops whenever the screen is full:
// Space shows the next page, Return the next line, and Q, Ctrl/C or the end of input leaves the rest out. It never
// stops while something waits that was typed before, or on the screen of screen mode. What it asks goes to standard
// error and is wiped out again.
class Pages {
public:
    Pages();
    void say(std::string_view line);   // on standard output
    void tell(std::string_view line);  // on standard error, if that is a terminal

private:
    bool make_room(std::string_view line);  // false: the reader wants no more
    void ask();

    size_t rows_ = 0, cols_ = 0;  // of the terminal; 0 rows: it never stops
    size_t free_ = 0;             // rows that are left on this page
    bool ended_ = false;
};
