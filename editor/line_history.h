#pragma once

#include <string>
#include <string_view>
#include <vector>

// The commands that were typed at the prompt of a terminal, of this session and of those before, oldest first. Those of
// earlier sessions are kept in the file "history" of the first of kpe_state_directories(). It is read when somebody
// asks for a line, and written by save(). A line stands in it once, where it was typed last.
class LineHistory {
public:
    // Takes a line of this session. A line that is empty or begins with a blank is left out.
    void add(const std::string& line);
    // All lines, those of the file included. They stay where they are until the next call of add().
    const std::vector<std::string>& lines();
    // Puts the lines of this session into the file. A file that is no regular file of ours, or a symbolic link, stays
    // as it is; so does everything if there were no lines. It is called once, at the end.
    void save();

private:
    std::vector<std::string> typed_;  // in this session
    std::vector<std::string> all_;
    bool read_ = false;  // all_ holds the lines of the file, too
};
