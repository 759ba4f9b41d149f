#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

// How a session differs from the usual one. The start of each field is what kpe does. kpe-editor, which other programs
// call and people use for one file, changes most of them.
struct SessionPolicy {
    // Scripts: ends a command file, or a session whose input is no terminal, at the first command that answers "?".
    // Nothing is saved, and the exit status is STATUS_STOPPED.
    bool stops_at_complaint = false;
    static constexpr int STATUS_STOPPED = 3;
    bool shows_prompts = true;  // and the lines at the start that name the file

    // Where a file is opened: at a line and a character of it, counted from 1, or where the text is found first. A line
    // behind the end is the last one. 0 and "": at the start.
    struct Place {
        size_t line = 0, column = 0;
        std::string text;
    };
    std::vector<Place> places;  // of the first files of the list, in its order
    // If not "": the log or rescue file whose text takes the place of the first file's text, with what was changed
    // until that time, in milliseconds since 1970.
    std::string recovers;
    int64_t recovers_until = std::numeric_limits<int64_t>::max();
    std::string read_from;  // if not "": the text comes from this path, and has no file of its own

    // The session begins on the screen, and the message row says how to leave.
    bool begins_on_screen = false;
    // Alt/s saves, Alt/x saves and leaves, Alt/q leaves; who tries the keys and words of other editors is told so.
    bool leaving_keys = false;
    // The exit status says what has become of the files: 1 if changes of a file were discarded, and 2 if a file could
    // not be written, also on the way to the next one.
    bool status_tells = false;
    // The journal lies in the state directory, and also goes at ends that do not save.
    bool private_journal = false;
    // Nothing is written, and who changes the text all the same is told so once.
    bool never_writes = false;
    bool writes_unchanged = true;      // leaving writes the text of a file that holds it already
    bool versions_by_settings = true;  // the environment, the configuration or the startup file may switch versions on
    // Carriage returns in front of line ends, and a last line without a line end, are saved as they were read.
    bool keeps_line_ends = false;
    // A save gives the file a time of modification in a later second than it had: callers compare seconds.
    bool advances_time = false;
};
