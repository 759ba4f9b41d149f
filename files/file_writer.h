#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "files/file_handle.h"

// Writes one file so that the name holds the whole old or the whole new text at every moment. Until
// commit() succeeds the old text is there; a writer that ends without commit() leaves nothing behind.
// Only devices and FIFOs get the bytes as they come, and where a file is known only if it was one.
class FileWriter {
public:
    enum class Existing { Replace, Refuse };

    FileWriter();
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Makes ready to write path; false with errno set if that cannot be. Existing::Refuse is for a new
    // file: commit() fails with taken() if somebody else made that name meanwhile. A FIFO waits for its
    // reader; a signal ends that with EINTR, and if *abort is set then, also the waiting in write().
    // known (may be null): the file that the caller read or wrote last under this name, as it was then. What stands
    // there at commit() and is not this file, unchanged, is kept as a safety copy before it is replaced; where it
    // cannot be kept, commit() fails. A device or a FIFO that the known file was not is refused with ESTALE.
    bool open(const std::string& path, Existing existing, const volatile std::sig_atomic_t* abort = nullptr,
              const FileState* known = nullptr);
    // After open(): write() gives up, with EINTR, once *abort is set, also where it fills a regular file. The old text is
    // as it was then.
    void give_up_when_aborted();
    // After open(): what is told, with the path of the safety copy, before a file is written over where it stands.
    void before_overwrite(std::function<void(const std::string& copy)> tell);
    // Adds bytes; small pieces are gathered, large ones (1 MB and more) go out as they are. false after
    // the first failure; commit() fails then.
    bool write(std::string_view bytes);
    // Everything on disk under the name: true. false: the old text is as it was, errno tells why.
    bool commit();
    bool taken() const;
    // After a commit() that succeeded: the file as it is now, and the copy of one that had changed, or empty.
    FileState made() const;
    std::string changed_copy() const;
    // Empty, but after a commit() that failed while it wrote over a file and could not put the old text
    // back: then the path of the copy that has it.
    std::string safety_copy() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
