#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "buffer/line_store.h"
#include "buffer/write_rows.h"

// A text that was kept, from a session log or from a file that holds it whole.
struct KeptText {
    bool is_log = false;
    LineStore text;                           // of the file
    std::map<std::string, LineStore> others;  // of other buffers, by name; only of a log
    TextForm form;                            // how the session would have written it
    size_t changes = 0, all_changes = 0;      // of a log: how many the text has, and how many there are
    std::string obstacle;                     // why it is not all that the session held; "" if it is
    // Of a log whose file has changed since: there is no text, but what was added can be told. See LogReplay.
    bool misses_file = false;
    std::vector<std::string> added;
};
// Reads it; of a log all changes that were made until that time, in milliseconds since 1970. Returns false if path
// cannot be read, or if its text cannot be brought back because the file that the log is about has changed. Throws
// std::bad_alloc.
bool kpe_read_kept_text(const std::string& path, KeptText& kept, int64_t until = std::numeric_limits<int64_t>::max());
