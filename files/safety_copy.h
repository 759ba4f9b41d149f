#pragma once

#include <functional>
#include <optional>
#include <string>

#include "files/file_handle.h"

// Copies of texts lie in the first of kpe_state_directories() and of kpe_temporary_directories() that takes them.
//
// A new file of mode 0600, open for reading and writing, in such a directory; path is its name. Missing
// directories are made with mode 0700. Not open, with errno set, if none does.
FileHandle kpe_make_state_file(const std::string& prefix, std::string& path);
// The same without a name, so that it is gone when it is closed or the process ends.
FileHandle kpe_make_nameless_state_file();
// Copies the open file, or its first size bytes, to such a directory, and syncs both; label, a short name without
// "/", names the copy, path is its name. false with errno set, and nothing left behind.
bool kpe_keep_copy(int fd, const std::string& label, std::string& path, std::optional<off_t> size = std::nullopt);

using KpeToldOfCopy = std::function<void(const std::string& path)>;
// Three open descriptors: the file to write to, the same file to read from, and the new text to read.
struct Overwrite {
    int target, old, text;
};
// Replaces a file's content where it stands; label names the safety copy, of which before is told when it is whole and
// the file is still as it was.
// false with errno set: the old text is back, or, when even that failed, kept in the file that kept names.
bool kpe_overwrite(const Overwrite& files, const std::string& label, const KpeToldOfCopy& before, std::string& kept);
