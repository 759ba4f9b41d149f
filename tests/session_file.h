#pragma once

#include <string>
#include <vector>

// The files of sessions, as tests/README.md describes them.

using Lines = std::vector<std::string>;

Lines split(const std::string& text, const std::string& at);
Lines words_of(const std::string& text);
std::string replaced(std::string text, const std::string& from, const std::string& to);

// The bytes for "\\t", "\\x41" and so on. Throws std::runtime_error for an escape that is none.
std::string unescaped(const std::string& text);

// "keyword name: value", in lines as they are written.
struct Step {
    int number;  // of its line in the file
    std::string keyword, name;
    Lines lines;

    std::string first() const { return lines.empty() ? "" : unescaped(lines[0]); }
    Lines cut() const;            // the first line cut at " | ", without the blanks around that
    std::string text() const;     // of all lines, each with its end
    std::string command() const;  // the same, as they are written
};

struct Case {
    std::string title;
    int number;
    std::vector<Step> steps;
};

// One that names several terminals or signals, or has a table, is there once for each of these or of its rows. Throws
// std::runtime_error with the line and what is wrong with it.
std::vector<Case> read_cases(const std::string& path);
