#include "files/file_handle.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "system/file_work.h"

namespace {

bool again() { return errno == EINTR; }

size_t piece_size(off_t begin, off_t end) { return static_cast<size_t>(std::min(KPE_COPY_PIECE, end - begin)); }

// The bytes of a piece at the source, which must have them all.
bool read_piece(int from, char* bytes, size_t size, off_t at) {
    for (size_t done = 0; done < size;) {
        const ssize_t n = pread(from, bytes + done, size - done, at + static_cast<off_t>(done));
        if (n == 0) errno = EIO;
        if (n == 0 || (n < 0 && !again())) return false;
        if (n > 0) done += static_cast<size_t>(n);
        FileWork::progress();
    }
    return true;
}

// Returns how many bytes were written: size, or less with errno set.
size_t write_piece(int to, const char* bytes, size_t size, off_t at) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pwrite(to, bytes + done, size - done, at + static_cast<off_t>(done));
        if (n == 0) errno = ENOSPC;
        if (n == 0 || (n < 0 && !again())) break;
        if (n > 0) done += static_cast<size_t>(n);
        FileWork::progress();
    }
    return done;
}

}  // namespace

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this == &other) return *this;
    const int error = errno;
    close();
    errno = error;
    fd_ = std::exchange(other.fd_, -1);
    return *this;
}

FileHandle::~FileHandle() {
    const int error = errno;
    close();
    errno = error;
}

bool FileHandle::close() {
    // Never called twice: on Linux the descriptor is free even when close is interrupted.
    const int fd = std::exchange(fd_, -1);
    return fd < 0 || ::close(fd) == 0 || errno == EINTR;
}

int kpe_sync(int fd) {
    return kpe_retry([fd] { return fsync(fd); });
}

bool FileState::operator==(const FileState& other) const {
    const auto same = [](const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    return dev == other.dev && ino == other.ino && size == other.size && same(modified, other.modified) &&
           same(changed, other.changed);
}

bool FileState::is_special() const { return type != 0 && !S_ISREG(type) && !S_ISDIR(type); }

FileState kpe_file_state(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim, status.st_mode & S_IFMT};
}

FileState kpe_file_state(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 ? kpe_file_state(status) : FileState();
}

std::string kpe_proc_name(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

bool kpe_write_all(int fd, std::string_view first, std::string_view second, const volatile std::sig_atomic_t* abort) {
    while (!first.empty() || !second.empty()) {
        if (abort && *abort) {
            errno = EINTR;
            return false;
        }
        const iovec pieces[] = {{const_cast<char*>(first.data()), first.size()},
                                {const_cast<char*>(second.data()), second.size()}};
        const ssize_t n = writev(fd, pieces, 2);
        if (n == 0) errno = ENOSPC;
        if (n == 0 || (n < 0 && !again())) return false;
        if (n < 0) continue;
        FileWork::progress();
        const size_t written = static_cast<size_t>(n), from_first = std::min(written, first.size());
        first.remove_prefix(from_first);
        second.remove_prefix(written - from_first);
    }
    return true;
}

off_t kpe_copy_bytes(int from, int to, off_t begin, off_t end) {
    const auto bytes = std::make_unique<char[]>(KPE_COPY_PIECE);
    while (begin < end) {
        const size_t size = piece_size(begin, end);
        if (!read_piece(from, bytes.get(), size, begin)) break;
        const size_t written = write_piece(to, bytes.get(), size, begin);
        begin += static_cast<off_t>(written);
        if (written < size) break;
    }
    return begin;
}

bool kpe_same_bytes(int a, int b, off_t begin, off_t end) {
    const auto first = std::make_unique<char[]>(KPE_COPY_PIECE), second = std::make_unique<char[]>(KPE_COPY_PIECE);
    for (; begin < end; begin += KPE_COPY_PIECE) {
        const size_t size = piece_size(begin, end);
        if (!read_piece(a, first.get(), size, begin) || !read_piece(b, second.get(), size, begin)) return false;
        if (memcmp(first.get(), second.get(), size) != 0) return false;
    }
    return true;
}

bool kpe_same_file(int a, int b) {
    struct stat first, second;
    return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

std::string kpe_unlikely_name(const std::string& prefix) {
    static unsigned count = 0;
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    char digits[64];
    snprintf(digits, sizeof digits, "%" PRIx64 "-%x-%x", static_cast<uint64_t>(now), static_cast<unsigned>(getpid()),
             ++count);
    return prefix + digits;
}
