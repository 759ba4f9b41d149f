#pragma once

#include <csignal>
#include <string>
#include <sys/types.h>

// Work on a file that must not be cut short when the process is asked to end: a save, a rescue. As long as such an
// object lives, the end of the process waits. The objects may nest; the file that is named is then that of the
// innermost one.
class FileWork {
public:
    // path is the file that is written. It is named to the user if the process is ended nevertheless.
    explicit FileWork(const std::string& path);
    ~FileWork();
    FileWork(const FileWork&) = delete;
    FileWork& operator=(const FileWork&) = delete;

    // Notes that from now on the file is written in place, and that its old text lies in the file copy.
    static void old_text_in(const std::string& copy);
    // Notes that some bytes have been read or written, so that the work counts as alive.
    static void progress() { progress_ = progress_ + 1; }

    // --- For a signal handler ---
    static bool lasts() { return depth_ > 0; }
    static std::sig_atomic_t progress_made() { return progress_; }
    // Writes one line to fd that names the unfinished file. Writes nothing if there is no such work.
    static void tell_unfinished(int fd);

private:
    std::string path_before_;
    static volatile std::sig_atomic_t depth_, progress_;
};
