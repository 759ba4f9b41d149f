#pragma once

#include <cstddef>
#include <memory>

#include "files/file_handle.h"
#include "system/block.h"

// A large file as it is at one moment: a copy without a name that shares the blocks of the file on the disk, where the
// file system can do that. Nobody else can open or change it, and it vanishes with its last user.
struct FileClone {
    std::shared_ptr<Block> block;  // the bytes; null if there is no clone
    FileHandle reader;             // for reading it once, past the cache of the kernel if the file system can do that

    static constexpr size_t FROM = size_t{64} << 20;         // bytes; smaller files are read sooner than cloned
    static constexpr size_t READ_AT_ONCE = size_t{1} << 20;  // what is read of reader has to begin at a multiple, and
    static constexpr size_t ALIGNED = 4096;                  // to lie in memory at a multiple of this
};

// Whether the kernel holds at least half of the open file in memory: reading it is fast then, while a clone would have
// to come from the disk. False if the kernel does not say.
bool kpe_lies_in_cache(int fd, size_t size);
// A clone of the open regular file, in the directory of the file or in another one of the same file system where the
// user may write. The clone has no bytes if that cannot be done, or if it would take long, as the file lies on the disk
// in a thousand pieces and more.
FileClone kpe_clone_file(int fd);
