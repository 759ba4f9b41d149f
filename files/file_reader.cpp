#include "files/file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>

#include "system/interrupts.h"
#include "system/threads.h"

namespace {

constexpr size_t FIRST_ROOM = size_t{64} << 10;  // bytes, where the size is not known
constexpr size_t MOST_AT_ONCE = Block::MADE_READY;
// A smaller file is read by one thread, and nobody is asked for the memory that is free.
constexpr size_t LARGE = size_t{16} << 20;
constexpr size_t STEP = size_t{256} << 10;
// For a file that becomes longer while it is read: a block whose bytes are used already must not move.
constexpr size_t ROOM_TO_GROW = size_t{1} << 20;

// The descriptor, or -1 with errno set. Opening a FIFO waits for its writer. No name holds a NUL, and what
// stands before one is another name.
int open_patiently(const std::string& path, const volatile std::sig_atomic_t* abort) {
    if (path.find('\0') != path.npos) {
        errno = ENOENT;
        return -1;
    }
    for (;;) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
        if (fd >= 0 || errno != EINTR || kpe_is_set(abort)) return fd;
    }
}

bool is_sized(const struct stat& status) { return S_ISREG(status.st_mode) && status.st_size > 0; }

// Room for the whole file, for the line end that its last line may lack, and for a byte that tells whether
// there is more than the size says.
size_t room_for(const struct stat& status) {
    return is_sized(status) ? static_cast<size_t>(status.st_size) + 2 : FIRST_ROOM;
}

// The need of a large file that there is no room for. An index takes some three bytes a line; for lines of 25 bytes and
// more an eighth of the file is enough.
std::optional<MemoryNeed> too_large(const struct stat& status) {
    const size_t size = is_sized(status) ? static_cast<size_t>(status.st_size) : 0;
    if (size < LARGE) return std::nullopt;
    const MemoryNeed need{size, size + size / 8, kpe_free_memory()};
    return need.needed > need.free ? std::optional(need) : std::nullopt;
}

// Whether the end was reached; errno is set if not. One byte of the block stays free. sized: all of it will be filled.
bool read_to_end(int fd, Block& block, bool sized, const volatile std::sig_atomic_t* abort) {
    while (!kpe_is_set(abort)) {
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

// Reads a file in parts.
class PartReader {
public:
    PartReader(int fd, size_t size, const std::shared_ptr<Block>& block, FileStepUser& user,
               const volatile std::sig_atomic_t* abort)
        : fd_(fd), size_(size), parts_((size + FILE_PART - 1) / FILE_PART), block_(*block), user_(user), abort_(abort) {
        user.expect(block, parts_ + 1);
    }

    // Returns false if the file has become so much longer that there is no room for it, or can only be read from the
    // first byte to the last.
    bool read() {
        kpe_share_work(parts_, [&](size_t part) { read_part(part); });
        if (error_ == ESPIPE) return false;
        block_.set_size(end_);
        return end_ < size_ || read_more();
    }
    int error() const { return error_; }  // an errno: why not all was read; 0 at the end of the file

private:
    void read_part(size_t part) {
        const size_t end = std::min((part + 1) * FILE_PART, size_);
        size_t from = part * FILE_PART;
        if (from >= end_) return;
        block_.make_ready(from, end - from);
        while (from < end) {
            const size_t got = read_step(from, std::min(STEP, end - from), part);
            if (got == 0) return;
            from += got;
        }
    }

    // How many bytes were read; 0 at the end and after an error.
    size_t read_step(size_t from, size_t most, size_t part) {
        ssize_t got = -1;
        errno = EINTR;
        while (got < 0 && errno == EINTR && !kpe_is_set(abort_))
            got = pread(fd_, block_.data() + from, most, static_cast<off_t>(from));
        if (got > 0) {
            user_.step(part, from, from + static_cast<size_t>(got));
            return static_cast<size_t>(got);
        }
        end_at(from, got < 0 ? errno : 0);
        return 0;
    }

    // Nothing behind this place counts.
    void end_at(size_t place, int error) {
        const std::lock_guard lock(mutex_);
        if (place >= end_) return;
        end_ = place;
        error_ = error;
    }

    // What was added to the file since its size was asked. One byte of the block stays free.
    bool read_more() {
        size_t from = size_;
        end_ = SIZE_MAX;
        while (block_.capacity() - from >= 2) {
            const size_t got = read_step(from, block_.capacity() - from - 1, parts_);
            from += got;
            block_.set_size(from);
            if (got == 0) return true;
        }
        return false;
    }

    const int fd_;
    const size_t size_, parts_;
    Block& block_;
    FileStepUser& user_;
    const volatile std::sig_atomic_t* const abort_;
    std::mutex mutex_;
    std::atomic<size_t> end_ = size_;  // of what counts
    int error_ = 0;
};

}  // namespace

FileContent kpe_read_file(const std::string& path, const volatile std::sig_atomic_t* abort, FileStepUser* user) {
    using End = FileContent::End;
    FileContent content{End::Missing, 0, {}, std::make_shared<Block>(1), false, {}};
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
    content.too_large = too_large(status);
    if (content.too_large) {
        content.end = End::Broken;
        content.error = ENOMEM;
        return content;
    }
    try {
        content.end = End::Broken;
        const bool in_parts = user && is_sized(status) && static_cast<size_t>(status.st_size) >= LARGE;
        content.block->reserve(room_for(status) + (in_parts ? ROOM_TO_GROW : 0));
        if (in_parts) {
            PartReader reader(file.fd(), static_cast<size_t>(status.st_size), content.block, *user, abort);
            if (reader.read()) {
                content.in_steps = true;
                content.error = reader.error();
                if (content.error == 0) content.end = End::Whole;
                return content;
            }
            content.block->set_size(0);
        }
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
