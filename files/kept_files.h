#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "files/session_log.h"

// A file that holds a text which would have been lost.
struct KeptFile {
    enum class Kind { Log, Rescue, SafetyCopy };
    Kind kind = Kind::Log;
    std::string path;
    std::string name;    // of a rescue file or a safety copy: the name of the file that it is about, without directory
    std::string buffer;  // of a rescue file
    LogEnd end = LogEnd::Killed;  // of a log
    bool live = false;            // of a log: a session has it open
    timespec changed{};
    uint64_t size = 0;
};

// All logs, rescue files and safety copies of this user, the newest first.
std::vector<KeptFile> kpe_kept_files();
