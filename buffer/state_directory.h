#pragma once

#include <string>

// Where kpe keeps what must outlive a session: "$XDG_STATE_HOME/kpe/", else "$HOME/.local/state/kpe/", which may
// not exist yet. "" with neither. By the XDG Base Directory Specification a relative path is as good as none.
std::string kpe_state_directory();
// The variable's value if it is an absolute path, else "": a relative one would mean another place each time.
std::string kpe_env_directory(const char* name);
// Makes what is missing of the directories in front of the last "/", with mode 0700.
void kpe_make_directories(const std::string& path);
