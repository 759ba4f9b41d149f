#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "unit/editor_peek.h"
#include "unit/scratch.h"

// The directory that everything happens in: the working directory and HOME, the same for all sessions.
const Scratch& fuzz_directory();
// Removes all that is in it.
void fuzz_clear_directory();

struct FuzzSession {
    std::vector<std::string> files = {"t.txt", "u.txt"};
    std::optional<std::string> command_file = std::nullopt, output_file = std::nullopt;
    bool read_only = false, recover = false, versions = false;
    std::string_view typed = {};  // standard input, unless there is a terminal
    int terminal = -1;            // standard input and output
    size_t failing = 0;           // see Guard
    std::function<void()> on_wait = nullptr;
};
// A whole session over the files of the directory, to its end. Then its state must make sense: the cursor and the
// mark lie in the text, what was saved is what was kept, and undoing all that can be undone and redoing it gives
// the same texts. Nothing is shown.
void fuzz_run(const FuzzSession& session);
