#include "files/state_directory.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Whether the deepest directory on the way (absolute, ends in "/") that is there belongs to us.
bool is_our_own(const std::string& directory) {
    struct stat st;
    size_t slash = directory.size() - 1;
    while (stat(directory.substr(0, slash + 1).c_str(), &st) != 0) {
        if (errno != ENOENT || slash == 0) return false;
        slash = directory.rfind('/', slash - 1);
    }
    return S_ISDIR(st.st_mode) && st.st_uid == geteuid();
}

}  // namespace

std::string kpe_env_directory(const char* name) {
    const char* const value = std::getenv(name);
    return value && *value == '/' ? value : "";
}

std::vector<std::string> kpe_state_directories() {
    const std::string state = kpe_env_directory("XDG_STATE_HOME"), home = kpe_env_directory("HOME");
    std::vector<std::string> directories;
    if (!state.empty()) directories.push_back(state + "/kpe/");
    if (!home.empty()) directories.push_back(home + "/.local/state/kpe/");
    std::erase_if(directories, [](const std::string& directory) { return !is_our_own(directory); });
    return directories;
}

std::vector<std::string> kpe_temporary_directories() {
    const std::string temporary = kpe_env_directory("TMPDIR");
    std::vector<std::string> directories{"/tmp/"};
    if (!temporary.empty()) directories.insert(directories.begin(), temporary + "/");
    return directories;
}

void kpe_make_directories(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0700);
}
