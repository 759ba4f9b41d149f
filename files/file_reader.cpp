#include "files/file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>

#include "files/file_clone.h"
#include "system/interrupts.h"
#include "system/threads.h"

namespace {

constexpr size_t FIRST_ROOM = size_t{64} << 10;  // bytes, where the size is not known
// A smaller file is read by one thread, and nobody is asked for the memory that is free.
constexpr size_t LARGE = size_t{16} << 20;
constexpr size_t STEP = Block::MADE_READY;
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

// Of a large file, else none. An index takes some three bytes a line; for lines of 25 bytes and more an eighth of the
// file is enough.
std::optional<MemoryNeed> need_of(const struct stat& status) {
    const size_t size = is_sized(status) ? static_cast<size_t>(status.st_size) : 0;
    return size < LARGE ? std::nullopt : std::optional(MemoryNeed{size, size + size / 8, kpe_free_memory()});
}

// Whether the end was reached; errno is set if not. One byte of the block stays free. sized: all of it will be filled.
bool read_to_end(int fd, Block& block, bool sized, const volatile std::sig_atomic_t* abort) {
    while (!kpe_is_set(abort)) {
        if (block.capacity() - block.size() < 2) block.reserve(block.capacity() * 2);
        const size_t room = std::min(block.capacity() - block.size() - 1, STEP);
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

// The first place at which a thread could not go on; nothing behind it counts.
class FirstEnd {
public:
    explicit FirstEnd(size_t size) : place_(size) {}
    size_t place() const { return place_; }
    int error() const { return error_; }  // an errno: why not all was read; 0 at the end of the file
    void set(size_t place, int error) {
        const std::lock_guard lock(mutex_);
        if (place >= place_) return;
        place_ = place;
        error_ = error;
    }
    void move_out() { place_ = SIZE_MAX; }

private:
    std::mutex mutex_;
    std::atomic<size_t> place_;
    int error_ = 0;
};

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
        if (end_.error() == ESPIPE) return false;
        block_.set_size(end_.place());
        return end_.place() < size_ || read_more();
    }
    int error() const { return end_.error(); }

private:
    void read_part(size_t part) {
        const size_t end = std::min((part + 1) * FILE_PART, size_);
        size_t from = part * FILE_PART;
        if (from >= end_.place()) return;
        while (from < end) {
            const size_t most = std::min(STEP, end - from);
            block_.make_ready(from, most);
            const size_t got = read_step(from, most, part);
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
        end_.set(from, got < 0 ? errno : 0);
        return 0;
    }

    // What was added to the file since its size was asked. One byte of the block stays free.
    bool read_more() {
        size_t from = size_;
        end_.move_out();
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
    FirstEnd end_{size_};
};

// Lets the user look at all bytes of a clone. Returns false if it has no use for the clone.
class CloneReader {
public:
    CloneReader(const FileClone& clone, FileStepUser& user, const volatile std::sig_atomic_t* abort)
        : clone_(clone), size_(clone.block->size()), user_(user), abort_(abort) {}

    bool look() {
        const size_t parts = (size_ + FILE_PART - 1) / FILE_PART;
        user_.expect(clone_.block, parts);
        kpe_share_work(parts, [&](size_t part) { look_at(part); });
        if (refused_) return false;
        if (end_.place() < size_) clone_.block->cut(end_.place());
        return true;
    }
    int error() const { return end_.error(); }

private:
    struct FreeBytes {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    void look_at(size_t part) {
        thread_local const std::unique_ptr<char[], FreeBytes> bytes(
            static_cast<char*>(std::aligned_alloc(FileClone::ALIGNED, FileClone::READ_AT_ONCE)));
        if (!bytes) throw std::bad_alloc();
        const size_t end = std::min((part + 1) * FILE_PART, size_);
        for (size_t from = part * FILE_PART; from < end && from < end_.place() && !refused_;) {
            const size_t got = read_step(bytes.get(), from);
            if (got == 0) return;
            if (!user_.look(part, from, bytes.get(), got)) refused_ = true;
            from += got;
        }
    }

    // Up to the next place from which may be read at once. Returns 0 after an error.
    size_t read_step(char* bytes, size_t from) {
        const size_t wanted = std::min(FileClone::READ_AT_ONCE, size_ - from);
        size_t done = 0;
        while (done < wanted && !kpe_is_set(abort_)) {
            ssize_t got = pread(clone_.reader.fd(), bytes + done, FileClone::READ_AT_ONCE - done,
                                static_cast<off_t>(from + done));
            if (got < 0 && errno == EINVAL)  // it has to go through the cache
                got = pread(clone_.block->file()->fd(), bytes + done, wanted - done, static_cast<off_t>(from + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return end_.set(from, got < 0 ? errno : EIO), 0;
            done = std::min(done + static_cast<size_t>(got), wanted);
        }
        if (done < wanted) return end_.set(from, EINTR), 0;
        return done;
    }

    const FileClone& clone_;
    const size_t size_;
    FileStepUser& user_;
    const volatile std::sig_atomic_t* const abort_;
    FirstEnd end_{size_};
    std::atomic<bool> refused_ = false;
};

// Whether a clone is better than what is read into memory; the kernel may hold a file so that it is read in no time,
// and there may be memory for many of its kind.
bool wants_clone(int fd, const MemoryNeed& need) {
    if (need.file < FileClone::FROM || need.file / 16 > need.free) return false;  // its index has to fit
    return need.needed > need.free / 4 || !kpe_lies_in_cache(fd, need.file);
}

// Whether the content is a clone of the open file now.
bool read_clone(int fd, const MemoryNeed& need, const volatile std::sig_atomic_t* abort, FileStepUser& user,
                FileContent& content) {
    if (!wants_clone(fd, need)) return false;
    const FileClone clone = kpe_clone_file(fd);
    if (!clone.block) return false;
    CloneReader reader(clone, user, abort);
    if (!reader.look()) return false;
    content.block = clone.block;
    content.in_steps = true;
    content.error = reader.error();
    content.end = content.error == 0 ? FileContent::End::Whole : FileContent::End::Broken;
    return true;
}

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
    try {
        content.end = End::Broken;
        const std::optional<MemoryNeed> need = need_of(status);
        if (need && user && user->takes_clones() && read_clone(file.fd(), *need, abort, *user, content)) return content;
        if (need && need->needed > need->free) {
            content.too_large = need;
            content.error = ENOMEM;
            return content;
        }
        const bool in_parts = user && need;
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
