#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>

// This folder, files/, holds all contact with files on disk: reading a file whole, replacing one so that a failure
// loses nothing, the journal, and copies kept for the user. It knows nothing of commands and never prints.

// An open file descriptor that closes itself. The destructor leaves errno as it is.
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    FileHandle(FileHandle&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    ~FileHandle();

    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    bool close();  // false with errno set if closing reported an error; the descriptor is closed in any case

private:
    int fd_ = -1;
};

// Repeats a system call for as long as signals interrupt it, and returns its last result.
template <class Call>
auto kpe_retry(Call call) -> decltype(call()) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}
int kpe_sync(int fd);  // fsync, repeated if a signal interrupts it

// How a file on disk looks from outside. If two states are equal, it is the same file and nobody has changed it. All is
// 0 where there is no file.
struct FileState {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    timespec modified{}, changed{};
    mode_t type = 0;  // the bits of S_IFMT

    // Whether it is a device, a FIFO or a socket, which holds no text that could be compared or kept.
    bool is_special() const;

    bool operator==(const FileState& other) const;
    bool is_file(const FileState& other) const { return dev == other.dev && ino == other.ino; }  // even if it changed
};
FileState kpe_file_state(const struct stat& status);
FileState kpe_file_state(int fd);  // all 0 if the kernel gives no answer
// The path of an open file below /proc. It also reaches a file that has no name in a directory.
std::string kpe_proc_name(int fd);

// Writes first and then second at the file's position, in one call if the kernel takes both. Returns false with errno
// set if not everything was written. Once *abort (may be null) is set it stops, with EINTR.
bool kpe_write_all(int fd, std::string_view first, std::string_view second,
                   const volatile std::sig_atomic_t* abort = nullptr);
// Copies bytes [begin, end) to the same place of another file. Returns where it stopped: end, or less
// with errno set (EIO when the source ends early).
off_t kpe_copy_bytes(int from, int to, off_t begin, off_t end);
// Whether both files have the same bytes in [begin, end). Also false if one of them cannot be read up to end.
bool kpe_same_bytes(int a, int b, off_t begin, off_t end);
inline constexpr off_t KPE_COPY_PIECE = off_t{1} << 20;  // bytes that these two read and write at once
// Whether both descriptors lead to the same file on disk.
bool kpe_same_file(int a, int b);

// A name made of prefix and digits. It is very unlikely that any directory holds it already.
std::string kpe_unlikely_name(const std::string& prefix);
// Calls make with such names, up to 1000 times, until it fails with something else than EEXIST or succeeds. Returns
// what make returned last; name is then the last name.
template <class Make>
int kpe_with_new_name(const std::string& prefix, std::string& name, Make make) {
    int result = -1;
    for (int tries = 0; tries < 1000; ++tries) {
        name = kpe_unlikely_name(prefix);
        result = make(name.c_str());
        if (result >= 0 || errno != EEXIST) break;
    }
    return result;
}
