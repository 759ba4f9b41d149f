#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

// The cases of one dialogue file, as tests/README.md describes them. In every text "$DIR" still stands
// for the case's directory.
namespace dialogue {

// Something done before a session, or looked at after it.
struct Step {
    enum Kind { File, Absent, Shell } kind;
    std::string name, text;  // of the file; Shell: text is the command
    int line;                // in the dialogue file, one-based
};

// What standard output must hold next.
struct Piece {
    enum Kind { Text, Like } kind;  // Like: a regular expression for one line
    std::string text;
    std::string after;  // the line typed last
    int line;
};

struct Session {
    int line = 0;
    std::vector<std::string> args;
    std::vector<Step> before, after;
    std::string input;  // all of standard input
    std::string preface;
    std::optional<std::string> banner;  // none: the usual one, from the file on disk
    std::vector<Piece> shown;
    std::string errors;  // all of standard error
    int status = 0;
    bool started = false;  // something was typed or expected
};

struct Case {
    std::string title;
    int line = 0;
    std::map<std::string, std::string> env;
    std::vector<Session> sessions;
};

// Throws std::runtime_error with the line and what is wrong with it.
std::vector<Case> read_cases(const std::string& path);

// text as it would be written in a dialogue file, at most limit lines, each behind indent.
std::string shown_as(const std::string& text, const std::string& indent, size_t limit);

}  // namespace dialogue
