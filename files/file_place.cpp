#include "files/file_place.h"

#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int LONGEST_LINK_CHAIN = 40;  // the kernel's own limit

// A path as the directory and the name in it; "." and the empty name where it lacks them.
struct Parts {
    std::string directory, name;
    explicit Parts(const std::string& path) {
        const size_t slash = path.rfind('/');
        directory = slash == path.npos ? "." : path.substr(0, slash + 1);
        name = slash == path.npos ? path : path.substr(slash + 1);
    }
};

// The path that is left when the last name is no link any more.
std::string without_links(std::string path) {
    for (int links = 0; links < LONGEST_LINK_CHAIN; ++links) {
        char target[PATH_MAX];
        const ssize_t size = readlink(path.c_str(), target, sizeof target);
        if (size <= 0) break;
        const std::string to(target, static_cast<size_t>(size));
        path = to.front() == '/' ? to : Parts(path).directory + "/" + to;
    }
    return path;
}

bool same_file(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

bool kpe_same_place(const std::string& a, const std::string& b) {
    if (a == b) return true;
    struct stat of_a, of_b;
    const bool is_a = stat(a.c_str(), &of_a) == 0, is_b = stat(b.c_str(), &of_b) == 0;
    if (is_a && is_b && same_file(of_a, of_b)) return true;
    const Parts in_a(without_links(a)), in_b(without_links(b));
    return in_a.name == in_b.name && stat(in_a.directory.c_str(), &of_a) == 0 &&
           stat(in_b.directory.c_str(), &of_b) == 0 && same_file(of_a, of_b);
}

std::string kpe_absolute_path(const std::string& path) {
    char real[PATH_MAX];
    if (path.empty()) return "";
    if (realpath(path.c_str(), real)) return real;
    const Parts parts(path);
    return realpath(parts.directory.c_str(), real) ? std::string(real) + "/" + parts.name : path;
}

void kpe_each_entry(const std::string& directory, const std::function<void(int fd, const char* name)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr)
        visit(dirfd(entries.get()), entry->d_name);
}
