#include "terminal.h"

// curses and its terminfo header define plain words as macros: they stay in this file.
#include <curses.h>
#include <term.h>
#include <unistd.h>

std::optional<std::string> terminfo_string(const std::string& type, const std::string& capability) {
    int found = 0;
    if (setupterm(type.c_str(), STDOUT_FILENO, &found) != OK) return std::nullopt;
    const char* text = tigetstr(capability.c_str());
    std::optional<std::string> result;
    if (text && text != reinterpret_cast<char*>(-1)) result = text;
    del_curterm(cur_term);
    return result;
}
