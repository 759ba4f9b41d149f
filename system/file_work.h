#pragma once

#include <csignal>
#include <string>
#include <sys/types.h>

// Work on files that an end of the process must not cut short: a save, a rescue. While it lasts, the end waits for it.
// Nested work counts as one; the names are those of the innermost.
class FileWork {
public:
    // path is the file that is written, for the last words of a process that is ended in spite of all.
    explicit FileWork(const std::string& path);
    ~FileWork();
    FileWork(const FileWork&) = delete;
    FileWork& operator=(const FileWork&) = delete;

    // From here on path is written where it stands, and its old text lies in copy.
    static void old_text_in(const std::string& copy);
    // Some bytes have been read or written.
    static void progress() { progress_ = progress_ + 1; }

    // --- For a signal handler ---
    static bool lasts() { return depth_ > 0; }
    static std::sig_atomic_t progress_made() { return progress_; }
    // Writes to fd what is unfinished now, as one line; nothing if no work lasts.
    static void tell_unfinished(int fd);

private:
    std::string path_before_;
    static volatile std::sig_atomic_t depth_, progress_;
};
