#include "buffer/state_directory.h"

#include <cstdlib>
#include <sys/stat.h>

std::string kpe_env_directory(const char* name) {
    const char* const value = std::getenv(name);
    return value && *value == '/' ? value : "";
}

std::string kpe_state_directory() {
    const std::string state = kpe_env_directory("XDG_STATE_HOME"), home = kpe_env_directory("HOME");
    if (!state.empty()) return state + "/kpe/";
    return home.empty() ? "" : home + "/.local/state/kpe/";
}

void kpe_make_directories(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0700);
}
