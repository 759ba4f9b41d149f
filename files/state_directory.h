#pragma once

#include <string>
#include <vector>

// Where kpe keeps what must outlive a session, in order of preference: "$XDG_STATE_HOME/kpe/" and
// "$HOME/.local/state/kpe/". Each may not exist yet. By the XDG Base Directory Specification a relative path is as
// good as none. A directory that is somebody else's, or would have to be made in one, is left out: root with another
// user's HOME would leave there what that user cannot use.
std::vector<std::string> kpe_state_directories();
// "$TMPDIR/", if that is an absolute path, and "/tmp/".
std::vector<std::string> kpe_temporary_directories();
// The variable's value if it is an absolute path, else "": a relative one would mean another place each time.
std::string kpe_env_directory(const char* name);
// Makes what is missing of the directories in front of the last "/", with mode 0700.
void kpe_make_directories(const std::string& path);
