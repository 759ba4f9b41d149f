#pragma once

#include <string>

namespace screens {

// "line 1\nline 2\n" and so on.
inline std::string numbered_lines(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
}

inline std::string times(int count, const std::string& keys) {
    std::string all;
    for (int i = 0; i < count; ++i) all += keys;
    return all;
}

// The command prompt of screen mode, answered.
inline std::string command(const std::string& text) { return "\033OP\033Ow" + text + "\r"; }

}  // namespace screens
