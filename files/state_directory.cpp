#include "files/state_directory.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
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

bool is_memory(const struct statfs& system) { return system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC; }

// Of the path or of the deepest directory on the way to it that is there.
bool find_file_system(std::string path, struct statfs& system) {
    while (statfs(path.c_str(), &system) != 0) {
        if (errno != ENOENT && errno != ENOTDIR) return false;
        const size_t slash =
            path.find_last_not_of('/') == path.npos ? path.npos : path.rfind('/', path.find_last_not_of('/'));
        if (slash == path.npos) return statfs(".", &system) == 0;
        path.resize(slash + 1);
    }
    return true;
}

// Without links; of the deepest directory that is there.
std::string real_directory(std::string path) {
    char real[PATH_MAX];
    for (;;) {
        const size_t slash = path.rfind('/');
        path = slash == path.npos ? "." : path.substr(0, std::max<size_t>(slash, 1));
        if (realpath(path.c_str(), real)) return std::string(real) + "/";
        if (slash == path.npos || slash == 0) return "/";
    }
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

FileHandle kpe_open_private_directory(const std::string& path) {
    constexpr mode_t OWNERS_DIRECTORY = 0700;
    kpe_make_directories(path);
    const std::string plain = path.substr(0, path.size() - 1);  // behind a "/" a link would be followed
    FileHandle directory(open(plain.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (!directory.is_open() || fstat(directory.fd(), &st) != 0) return {};
    if (st.st_uid != geteuid()) {
        errno = EACCES;
        return {};
    }
    if ((st.st_mode & 07777) != OWNERS_DIRECTORY) fchmod(directory.fd(), OWNERS_DIRECTORY);
    return directory;
}

bool kpe_lives_in_memory(const std::string& path) {
    struct statfs system;
    return find_file_system(path, system) && is_memory(system);
}

bool kpe_lives_in_memory(int fd) {
    struct statfs system;
    return fstatfs(fd, &system) == 0 && is_memory(system);
}

bool kpe_must_not_leave_memory(const std::string& path) {
    struct statfs system;
    if (find_file_system(path, system) && system.f_type == RAMFS_MAGIC) return true;
    const std::string runtime = kpe_env_directory("XDG_RUNTIME_DIR"), directory = real_directory(path);
    return directory.starts_with("/dev/shm/") ||
           (!runtime.empty() && directory.starts_with(real_directory(runtime + "/")));
}

void kpe_keep_in_memory(std::vector<std::string>& directories) {
    std::erase_if(directories, [](const std::string& directory) { return !kpe_lives_in_memory(directory); });
}
