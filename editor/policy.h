#pragma once

// How a session differs from the usual one. The start of each field is what kpe does.
struct SessionPolicy {
    // Scripts: ends a command file, or a session whose input is no terminal, at the first command that answers "?".
    // Nothing is saved, and the exit status is STATUS_STOPPED.
    bool stops_at_complaint = false;
    static constexpr int STATUS_STOPPED = 3;
    bool shows_prompts = true;  // and the lines at the start that name the file
};
