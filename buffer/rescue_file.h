#pragma once

#include <string>
#include <string_view>

#include "buffer/file_handle.h"

// A new file for a text that would be lost otherwise, in the directory rescue/ of the state directory: mode 0600 in a
// directory of mode 0700, both our own and no links. Its name, and with it path, is made from the names of the edited
// file and of the buffer, the time and the process. Not open, with errno set, if that cannot be; path is empty if
// there is no state directory.
FileHandle kpe_make_rescue_file(const std::string& edited, const std::string& buffer, std::string& path);
// A name without a "/" and without bytes that could control a terminal, also those of its 8-bit set: each of them
// becomes "_", and so does a "." or "-" in front. Cut where it is long, never inside a UTF-8 character.
std::string kpe_safe_name(std::string_view name);
