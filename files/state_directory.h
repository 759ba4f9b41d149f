#pragma once

#include <string>
#include <vector>

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
