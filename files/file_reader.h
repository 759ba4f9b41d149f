#pragma once

#include <csignal>
#include <memory>
#include <string>

#include "files/file_handle.h"
#include "system/block.h"

// What was read of a file, and how that ended.
struct FileContent {
    enum class End { Missing, Refused, Whole, Broken };
    // Missing: there is no such file. Refused: it could not be opened. Broken: reading stopped before the end.
    End end = End::Missing;
    int error = 0;                 // of errno: why it could not be read, or not to its end. EISDIR for a directory
    FileState file;                // as it was before the first byte was read
    std::shared_ptr<Block> block;  // never null, with room for one byte more
};

// Reads a file of any kind to its end, waiting for a FIFO or a terminal as long as it takes. *abort (may be
// null) ends the waiting and the reading once it is not 0; what has been read until then is kept. A directory
// counts as an empty file.
FileContent kpe_read_file(const std::string& path, const volatile std::sig_atomic_t* abort);
