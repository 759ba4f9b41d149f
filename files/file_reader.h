#pragma once

#include <csignal>
#include <memory>
#include <string>

#include "files/file_handle.h"
#include "system/block.h"

// What was read of a file, and how the reading ended.
struct FileContent {
    enum class End { Missing, Refused, Whole, Broken };
    // Missing: there is no such file. Refused: it could not be opened. Broken: reading stopped before the end.
    End end = End::Missing;
    int error = 0;                 // an errno: why it was not read to its end, or not at all. EISDIR for a directory
    FileState file;                // as it was before the first byte was read
    std::shared_ptr<Block> block;  // what was read; never null; has room for one more byte
};

// Reads a file of any kind to its end. It waits for a FIFO or a terminal as long as that takes. Once *abort (may be
// null) is not 0, it stops and returns what it has read. A directory counts as an empty file.
FileContent kpe_read_file(const std::string& path, const volatile std::sig_atomic_t* abort);
