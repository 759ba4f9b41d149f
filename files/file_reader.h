#pragma once

#include <csignal>
#include <memory>
#include <optional>
#include <string>

#include "files/file_handle.h"
#include "system/block.h"
#include "system/free_memory.h"

// What was read of a file, and how the reading ended.
struct FileContent {
    enum class End { Missing, Refused, Whole, Broken };
    // Missing: there is no such file. Refused: it could not be opened. Broken: reading stopped before the end.
    End end = End::Missing;
    int error = 0;                 // an errno: why it was not read to its end, or not at all. EISDIR for a directory
    FileState file;                // as it was before the first byte was read
    std::shared_ptr<Block> block;  // what was read; never null; has room for one more byte
    bool in_steps = false;         // whether a FileStepUser was given all of it
    // A large file that the memory has no room for, by what the system tells before it is read: nothing was read of it,
    // and it counts as Broken with ENOMEM.
    std::optional<MemoryNeed> too_large;
};

// Uses the bytes of a large file while they are being read and lie in the caches of the processor.
//
// The file is read in parts of FILE_PART bytes, by several threads at once, and each part in steps. Bytes that were
// given may be changed, but those to come must stay as they are.
class FileStepUser {
public:
    virtual ~FileStepUser() = default;
    // Comes first: the file has so many parts at most, and will be read to this block.
    virtual void expect(const std::shared_ptr<Block>& block, size_t parts) = 0;
    // The bytes [from, to) of the block were read. They follow those of the step before in the same part. Steps of
    // different parts come at the same time from different threads.
    virtual void step(size_t part, size_t from, size_t to) = 0;
    // Whether look() may come in place of step().
    virtual bool takes_clones() const = 0;
    // In place of step() where the file is so large that a clone of it is mapped (FileClone): the block, which must not
    // be written to, has these bytes from its offset from on. They lie somewhere else, where they may be written to
    // until look() returns. If it returns false the user has no use for the clone, and the file is read instead, from
    // another expect() on.
    virtual bool look(size_t part, size_t from, char* bytes, size_t count) = 0;
};
constexpr size_t FILE_PART = size_t{2} << 20;

// Reads a file of any kind to its end. It waits for a FIFO or a terminal as long as that takes. Once *abort (may be
// null) is not 0, it stops and returns what it has read. A directory counts as an empty file.
//
// A user (may be null) gets the steps of a file that is large enough. It must forget them unless in_steps says that
// they are all of it, from the first byte to the last; steps behind the last byte do not count. What step() throws is
// thrown on, except std::bad_alloc: it counts as if the memory for the file had ended.
FileContent kpe_read_file(const std::string& path, const volatile std::sig_atomic_t* abort,
                          FileStepUser* user = nullptr);
