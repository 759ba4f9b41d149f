#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>

// An open file descriptor that closes itself and leaves errno alone when it does.
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    FileHandle(FileHandle&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    ~FileHandle();

    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    bool close();  // false with errno set; closed all the same

private:
    int fd_ = -1;
};

// Makes the call again as long as a signal interrupts it.
template <class Call>
auto kpe_retry(Call call) -> decltype(call()) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}
int kpe_sync(int fd);  // fsync, whatever interrupts it

// What tells whether a file on disk is still the same, unchanged; all is 0 where there is none.
struct FileState {
    dev_t dev = 0;
    ino_t ino = 0;
    off_t size = 0;
    timespec modified{}, changed{};
    mode_t type = 0;  // the bits of S_IFMT

    // A device, a FIFO or a socket: it holds no text that could be compared or kept.
    bool is_special() const;

    bool operator==(const FileState& other) const;
    bool is_file(const FileState& other) const { return dev == other.dev && ino == other.ino; }  // changed or not
};
FileState kpe_file_state(const struct stat& status);
FileState kpe_file_state(int fd);  // all 0 if it cannot be asked
// The kernel's own name of an open file, by which also one without a name can be reached.
std::string kpe_proc_name(int fd);

// Writes both pieces at the file's position, one behind the other and in one call where the kernel takes
// them. false with errno set. It gives up, with EINTR, once *abort is set.
bool kpe_write_all(int fd, std::string_view first, std::string_view second,
                   const volatile std::sig_atomic_t* abort = nullptr);
// Copies bytes [begin, end) to the same place of another file. Returns where it stopped: end, or less
// with errno set (EIO when the source ends early).
off_t kpe_copy_bytes(int from, int to, off_t begin, off_t end);
// Whether both files have the same bytes in [begin, end); false also where one cannot be read so far.
bool kpe_same_bytes(int a, int b, off_t begin, off_t end);
inline constexpr off_t KPE_COPY_PIECE = off_t{1} << 20;  // read and written at once
// Whether both are the same file on disk.
bool kpe_same_file(int a, int b);

// prefix and digits that are most likely not used in any directory yet.
std::string kpe_unlikely_name(const std::string& prefix);
// Calls make with such names until it returns something else than -1 with EEXIST; name is the last one.
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
