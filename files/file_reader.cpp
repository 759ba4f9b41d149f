#include "files/file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace {

constexpr size_t FIRST_ROOM = size_t{64} << 10;  // bytes, where the size is not known
constexpr size_t MOST_AT_ONCE = Block::MADE_READY;

bool stopped(const volatile std::sig_atomic_t* abort) { return abort && *abort != 0; }

// The descriptor, or -1 with errno set. Opening a FIFO waits for its writer. No name holds a NUL, and what
// stands before one is another name.
int open_patiently(const std::string& path, const volatile std::sig_atomic_t* abort) {
    if (path.find('\0') != path.npos) {
        errno = ENOENT;
        return -1;
    }
    for (;;) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
        if (fd >= 0 || errno != EINTR || stopped(abort)) return fd;
    }
}

bool is_sized(const struct stat& status) { return S_ISREG(status.st_mode) && status.st_size > 0; }

// Room for the whole file, for the line end that its last line may lack, and for a byte that tells whether
// there is more than the size says.
size_t room_for(const struct stat& status) {
    return is_sized(status) ? static_cast<size_t>(status.st_size) + 2 : FIRST_ROOM;
}

// Whether the end was reached; errno is set if not. One byte of the block stays free. sized: all of it will be filled.
bool read_to_end(int fd, Block& block, bool sized, const volatile std::sig_atomic_t* abort) {
    while (!stopped(abort)) {
        if (block.capacity() - block.size() < 2) block.reserve(block.capacity() * 2);
        const size_t room = std::min(block.capacity() - block.size() - 1, MOST_AT_ONCE);
        if (sized) block.make_ready(block.size(), room);
        const ssize_t got = read(fd, block.data() + block.size(), room);
        if (got == 0) return true;
        if (got > 0)
            block.set_size(block.size() + static_cast<size_t>(got));
        else if (errno != EINTR)
            return false;
    }
    errno = EINTR;
    return false;
}

}  // namespace

FileContent kpe_read_file(const std::string& path, const volatile std::sig_atomic_t* abort) {
    using End = FileContent::End;
    FileContent content{End::Missing, 0, {}, std::make_shared<Block>(1)};
    const FileHandle file(open_patiently(path, abort));
    if (!file.is_open()) {
        content.error = errno;
        content.end = errno == ENOENT || errno == ENOTDIR ? End::Missing : End::Refused;
        return content;
    }
    content.file = kpe_file_state(file.fd());
    struct stat status = {};
    if (fstat(file.fd(), &status) == 0 && S_ISDIR(status.st_mode)) {
        content.end = End::Whole;
        content.error = EISDIR;
        return content;
    }
    try {
        content.end = End::Broken;
        content.block->reserve(room_for(status));
        if (read_to_end(file.fd(), *content.block, is_sized(status), abort))
            content.end = End::Whole;
        else
            content.error = errno;
        content.block->shrink();
    } catch (const std::bad_alloc&) {
        content.end = End::Broken;  // larger than memory: the part that is there
        content.error = ENOMEM;
    }
    return content;
}
