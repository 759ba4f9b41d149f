#include "files/file_clone.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include "files/state_directory.h"

namespace {

constexpr uint32_t MOST_PIECES = 1000;

// Whether the file system tells in how many pieces the file lies, and they are few.
bool lies_in_few_pieces(int fd) {
    struct fiemap map;
    std::memset(&map, 0, sizeof map);
    map.fm_length = FIEMAP_MAX_OFFSET;  // no room for pieces: they are only counted
    return ioctl(fd, FS_IOC_FIEMAP, &map) == 0 && map.fm_mapped_extents <= MOST_PIECES;
}

// The directory of an open file, with the "/" at its end; "" if it has no name.
std::string directory_of(int fd) {
    char path[PATH_MAX];
    const ssize_t size = readlink(kpe_proc_name(fd).c_str(), path, sizeof path);
    const std::string name(path, size > 0 ? static_cast<size_t>(size) : 0);
    return name.substr(0, name.rfind('/') + 1);
}

// In a directory of the same file system only: elsewhere no blocks can be shared.
FileHandle make_nameless(const std::string& directory, dev_t device) {
    struct stat there;
    if (directory.empty() || stat(directory.c_str(), &there) != 0 || there.st_dev != device) return {};
    return FileHandle(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
}

FileHandle clone_into(const std::string& directory, dev_t device, int fd) {
    FileHandle copy = make_nameless(directory, device);
    return copy.is_open() && ioctl(copy.fd(), FICLONE, fd) == 0 ? std::move(copy) : FileHandle();
}

FileHandle make_clone(int fd, dev_t device) {
    FileHandle copy = clone_into(directory_of(fd), device, fd);
    for (const std::string& directory : kpe_state_directories()) {
        if (copy.is_open()) break;
        copy = clone_into(directory, device, fd);
    }
    return copy;
}

}  // namespace

bool kpe_lies_in_cache(int fd, size_t size) {
    constexpr long CACHESTAT = 451;  // the same number everywhere; older headers do not have it
    const uint64_t whole[] = {0, 0};
    struct {
        uint64_t cached, dirty, under_way, evicted, recently_evicted;  // pages
    } pages{};
    if (syscall(CACHESTAT, fd, whole, &pages, 0) != 0) return false;
    return pages.cached * static_cast<size_t>(sysconf(_SC_PAGESIZE)) >= size / 2;
}

FileClone kpe_clone_file(int fd) {
    struct stat status;
    if (fstat(fd, &status) != 0 || !lies_in_few_pieces(fd)) return {};
    const FileHandle copy = make_clone(fd, status.st_dev);
    if (!copy.is_open() || fstat(copy.fd(), &status) != 0 || status.st_size <= 0) return {};
    // What is kept open cannot be written to.
    const std::string name = kpe_proc_name(copy.fd());
    const int kept = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (kept < 0) return {};
    auto mapping = FileMapping::make(kept, static_cast<size_t>(status.st_size));
    if (!mapping) return {};
    FileHandle reader(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECT));
    if (!reader.is_open()) reader = FileHandle(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!reader.is_open()) return {};
    return {std::make_shared<Block>(std::move(mapping), static_cast<size_t>(status.st_size)), std::move(reader)};
}
