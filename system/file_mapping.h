#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string_view>
#include <sys/types.h>

// A file whose bytes lie in memory as they are on the disk. The file must not change: it is one that nobody else can
// reach. Pages are read when they are first used, and the kernel may drop them again.
//
// A page that the disk no longer gives counts as zeros from then on, and the mapping has lost bytes. Whoever reads it
// does not notice; who is about to write the bytes anywhere has to ask.
class FileMapping {
public:
    // Maps the first size bytes (not 0) of the open file fd, which it owns from then on, with one byte behind them that
    // is a "\n". Returns null if that fails; fd is closed then.
    static std::unique_ptr<FileMapping> make(int fd, size_t size);
    ~FileMapping();
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;

    char* data() const { return data_; }
    void put_line_end(size_t place);  // a "\n" there, in memory only; place <= size
    int fd() const { return fd_; }
    bool lost_bytes() const { return lost_.load(std::memory_order_relaxed); }

    // The mapping in which all of these bytes lie as they are in the file, or null. It stays for as long as its text is
    // used.
    static const FileMapping* holding(std::string_view bytes);
    // Reads each page of the bytes if they lie in a mapping: the kernel itself does not replace pages that are lost
    // when it is told to write them somewhere.
    static void touch(std::string_view bytes);
    // How many pages were lost so far, in all mappings.
    static size_t lost_pages();

private:
    struct Handler;
    FileMapping(int fd, char* data, size_t size);
    bool holds(const char* place) const;
    bool enter();

    const int fd_;
    char* const data_;
    const size_t size_;
    size_t same_ = size_;  // so many bytes are those of the file
    std::atomic<bool> lost_ = false;
};
