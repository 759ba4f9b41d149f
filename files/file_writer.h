#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "files/file_handle.h"

// Writes one file so that at every moment its name holds either the whole old text or the whole new one. The old text
// stays until commit() succeeds. A writer that goes without commit() leaves nothing behind.
//
// Devices and FIFOs are the exception: they get the bytes as they are written.
class FileWriter {
public:
    enum class Existing { Replace, Refuse };

    FileWriter();
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Prepares to write the file path. Returns false with errno set if it cannot be written.
    //
    // Existing::Refuse is for a new file: if somebody else has made that name meanwhile, commit() fails, and taken()
    // is true. A FIFO is opened when it has a reader; a signal ends that wait with EINTR. A wait in write() ends at a
    // signal if *abort (may be null) is set.
    //
    // known (may be null) is the file that the caller read or wrote last under this name, as it was then. If another
    // file, or a changed one, stands there at commit(), it is kept as a safety copy before it is replaced. If it cannot
    // be kept, commit() fails. If a device or a FIFO stands there now and known is none, it is refused with ESTALE.
    bool open(const std::string& path, Existing existing, const volatile std::sig_atomic_t* abort = nullptr,
              const FileState* known = nullptr);
    // After open(): write() gives up, with EINTR, once *abort is set, also where it fills a regular file. The old text
    // is as it was then.
    void give_up_when_aborted();
    // After open(): what is told, with the path of the safety copy, before a file is written over where it stands.
    void before_overwrite(std::function<void(const std::string& copy)> tell);
    // After open(): commit() gives the file a time of modification in a later second than the known file had, for
    // programs that compare seconds. Where only its owner may, and that is somebody else, the time is that of the save.
    void advance_time();
    // Adds bytes to the new text. Small pieces are gathered; pieces of 1 MB and more are written at once. Returns false
    // from the first failure on, and commit() fails then.
    bool write(std::string_view bytes);
    // Puts the new text in place. Returns true when all of it is on disk under the name. Returns false with errno set
    // if it failed; then the old text is as it was, unless safety_copy() names a file.
    bool commit();
    bool taken() const;  // see Existing::Refuse above
    // After a commit() that succeeded: the file as it is now; the path of the copy of a changed file that was replaced;
    // "" if there was none.
    FileState made() const;
    std::string changed_copy() const;
    // The path of the safety copy that holds the old text, if commit() failed while it overwrote the file in place and
    // could not put the old text back. Otherwise "".
    std::string safety_copy() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
