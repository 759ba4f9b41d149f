#pragma once

#include <functional>
#include <optional>
#include <string>

#include "files/file_handle.h"

// Copies of texts are put into the first directory that takes them. kpe_state_directories() are tried first, then
// kpe_temporary_directories(). A text that lives in memory only (in_memory, kpe_lives_in_memory) is copied to memory
// only: below $XDG_RUNTIME_DIR, or to /dev/shm.

// Makes a new file of mode 0600 in such a directory, open for reading and writing. path gets its path. Missing
// directories are made with mode 0700. The handle is not open, and errno is set, if no directory takes a file.
FileHandle kpe_make_state_file(const std::string& prefix, std::string& path, bool in_memory);
// The same for a file without a name, which vanishes when it is closed or the process ends.
FileHandle kpe_make_nameless_state_file(bool in_memory);
// Copies the open file fd, or its first size bytes, to such a directory, and syncs the copy and the directory. label is
// a short name without "/" that the copy's name begins with; path gets the copy's path. On failure returns false with
// errno set, and leaves nothing behind.
bool kpe_keep_copy(int fd, const std::string& label, std::string& path, std::optional<off_t> size = std::nullopt);

using KpeToldOfCopy = std::function<void(const std::string& path)>;
// Three open descriptors: target is the file to write to, old is the same file for reading, text holds the new text.
struct Overwrite {
    int target, old, text;
};
// Replaces a file's content in place. The old text is kept in a safety copy meanwhile, whose name begins with label.
// before (may be empty) is called when the copy is complete and the file is still unchanged. On failure returns false
// with errno set. The old text has then been put back; if even that failed, kept gets the path of the copy.
bool kpe_overwrite(const Overwrite& files, const std::string& label, const KpeToldOfCopy& before, std::string& kept);
