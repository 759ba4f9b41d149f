#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "files/file_handle.h"

// Puts a text into an open file; false with errno set if that fails.
using KpeWriteText = std::function<bool(int fd)>;

// What was kept of a text.
struct RescuedText {
    FileHandle file;  // not open: nothing of it
    std::string path;
    bool whole = false;
    int error = 0;  // why the place that comes first did not take it whole
};

// Writes a text that would be lost otherwise to a new file, and leaves it open. The places are tried in turn: the
// directory rescue/ of each of kpe_state_directories(), then kpe-rescue-UID/ in the directories for temporary files;
// where none takes the whole text, its longest part is kept. The file has mode 0600 and lies in a directory of mode
// 0700, both our own and no links. Its name is made from the names of the edited file and of the buffer, the time and
// the process. It need not be on disk yet.
RescuedText kpe_rescue_text(const std::string& edited, const std::string& buffer, const KpeWriteText& write);
// A name without a "/" and without bytes that could control a terminal, also those of its 8-bit set: each of them
// becomes "_", and so does a "." or "-" in front. Cut where it is long, never inside a UTF-8 character.
std::string kpe_safe_name(std::string_view name);
