#pragma once

#include <string>
#include <vector>

#include "files/file_handle.h"

// The directories for what must outlive a session, the preferred one first: "$XDG_STATE_HOME/kpe/" and
// "$HOME/.local/state/kpe/". They may not exist yet. A variable with a relative path is ignored, as the XDG Base
// Directory Specification asks. A directory that belongs to somebody else, or would have to be made in such a
// directory, is left out: root with another user's HOME would leave files there that this user cannot use.
std::vector<std::string> kpe_state_directories();
// "$TMPDIR/", if that is an absolute path, and "/tmp/".
std::vector<std::string> kpe_temporary_directories();
// The value of an environment variable if it is an absolute path, else "". A relative path would mean another place
// after each change of directory.
std::string kpe_env_directory(const char* name);
// Makes the directories in front of the last "/" that are missing, with mode 0700.
void kpe_make_directories(const std::string& path);
// The directory (path ends in "/"), which is made if it is missing, and gets mode 0700. Not open, with errno set, if it
// cannot be made, is somebody else's, or was put there as a link.
FileHandle kpe_open_private_directory(const std::string& path);

// Whether the file, or the deepest directory on the way to it that is there, lies on a file system that lives in memory
// only. What is there may be meant never to get to a disk.
bool kpe_lives_in_memory(const std::string& path);
bool kpe_lives_in_memory(int fd);
// Whether such a file lies where what must not be kept is put: on ramfs, in /dev/shm, or in $XDG_RUNTIME_DIR.
bool kpe_must_not_leave_memory(const std::string& path);
// Leaves only those directories that live in memory.
void kpe_keep_in_memory(std::vector<std::string>& directories);
