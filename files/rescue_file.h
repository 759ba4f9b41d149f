#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_handle.h"

// A function that writes a text to an open file. It returns false with errno set if that fails.
using KpeWriteText = std::function<bool(int fd)>;

// What could be kept of a text.
struct RescuedText {
    FileHandle file;  // not open if nothing could be kept
    std::string path;
    bool whole = false;
    int error = 0;  // an errno: why the first place did not take the whole text
};

// Writes a text that would otherwise be lost to a new file, and leaves the file open. It tries the directory rescue/
// below each of kpe_state_directories(), then kpe-rescue-UID/ in each directory for temporary files. If none of them
// takes the whole text, the longest part is kept. A text whose file lives in memory only is kept in memory: below
// $XDG_RUNTIME_DIR, or in /dev/shm. The file has mode 0600, and its directory has mode 0700; both belong
// to the user and are no links. The file's name is made from the names of the edited file and of the buffer, the time
// and the process number. The text may not be on disk yet when the function returns.
RescuedText kpe_rescue_text(const std::string& edited, const std::string& buffer, const KpeWriteText& write);
// Where rescue files may lie, each with "/" at its end. Some will not be there.
std::vector<std::string> kpe_rescue_directories();
// Makes a harmless file name: "/" and bytes that could control a terminal become "_", and so does a "." or "-" at the
// front. A long name is cut, but never inside a UTF-8 character.
std::string kpe_safe_name(std::string_view name);
