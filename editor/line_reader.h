#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "editor/line_editor.h"

class LineHistory;

// What is typed at a prompt.
struct LineRequest {
    enum class Kind {
        Command,   // Ctrl/C drops it; on an empty line it is an interrupt
        Text,      // the same, without history and names
        Inserted,  // the same, and Ctrl/Z is a character: it ends the line if there are only blanks
        Answer,    // Ctrl/C is an interrupt in any case
    };
    Kind kind = Kind::Text;
    LineHistory* history = nullptr;
    Completer completer = {};
};

// Prints the prompt and reads a line, as kpe_read_line() does. On a terminal that can move its cursor the line can be
// edited. Afterwards the screen shows the prompt, the line and a line break in either case.
std::optional<std::string> kpe_read_typed(std::string_view prompt, const LineRequest& request);
