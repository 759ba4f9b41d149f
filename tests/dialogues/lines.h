#pragma once

#include <stdexcept>
#include <string>
#include <vector>

// What the files of dialogues and of sessions on a screen are made of.

inline std::vector<std::string> split(const std::string& text, const std::string& at) {
    std::vector<std::string> parts;
    size_t from = 0;
    for (size_t end; (end = text.find(at, from)) != std::string::npos; from = end + at.size())
        parts.push_back(text.substr(from, end - from));
    parts.push_back(text.substr(from));
    return parts;
}

// The bytes that tests/README.md tells; "\e" stands for none. Throws for an escape that is none.
inline std::string unescaped(const std::string& text) {
    static const std::string NAMES = "strn|\\", BYTES = " \t\r\n|\\";
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const char name = text[i] == '\\' ? text.at(++i) : '\0';
        if (const size_t at = NAMES.find(name); name == '\0') {
            out += text[i];
        } else if (at != std::string::npos) {
            out += BYTES[at];
        } else if (name == '^') {
            out += static_cast<char>(text.at(++i) & 0x1f);
        } else if (name == 'x') {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else if (name == '{') {
            const size_t blank = text.find(' ', i), end = text.find('}', i);
            const std::string piece = unescaped(text.substr(blank + 1, end - blank - 1));
            for (int count = std::stoi(text.substr(i + 1)); count > 0; --count) out += piece;
            i = end;
        } else if (name != 'e') {
            throw std::runtime_error(std::string("unknown escape \\") + name);
        }
    }
    return out;
}
