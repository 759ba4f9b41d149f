#pragma once

#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "files/file_handle.h"

// A file to which lines are appended one by one. A line is added whole or not at all. The file is locked while it is
// open, so that only one process at a time appends. It has to be a regular file that belongs to the effective user, has
// one name and that nobody else may write; any other file is refused. It gets mode 0600.
class JournalFile {
public:
    // How opening, appending or removing ended. After Refused, reason() tells a user why. After Failed, errno says why.
    enum class Result { Done, Refused, Failed };

    // Opens the file path, and makes it if it is missing. Does nothing if it is open already, unless the name leads to
    // another file by now: that file is opened then.
    Result open(const std::string& path) { return open(path, /*make=*/true); }
    // Adds the line and "\n" to the open file. After a failure the file is as it was before.
    Result append(std::string_view line);
    // Removes the journal path, whether it is open or not. If there is none, that counts as done. Lines that lay in it
    // before this process opened it are first copied to a state directory, and kept gets the path of the copy. They are
    // not copied if replayed is this file and held all of them.
    Result remove(const std::string& path, const FileState& replayed, std::string& kept);
    // Asks the kernel to write what was appended to disk, and the directory of a new file too. Does not wait for it.
    // Returns false if that has to be asked for again later.
    bool sync();
    void close();

    const std::string& reason() const { return reason_; }
    bool is_open() const { return file_.is_open(); }
    // Whether the file is open by that name, and the name leads to it still.
    bool is_at(const std::string& path) const { return path == path_ && leads_here(path); }

private:
    Result open(const std::string& path, bool make);
    Result refuse(const std::string& reason);
    bool leads_here(const std::string& path) const;

    // What is remembered of a file that was closed. If it has the same size when it is opened again, nobody has added
    // to it meanwhile.
    struct Left {
        ino_t ino;
        off_t size, old_size;
    };

    FileHandle file_;
    FileState state_;  // of the open file, as it was opened
    std::string path_, reason_;
    std::map<std::string, Left> left_;  // by path
    off_t old_size_ = 0;                // bytes that the file held before this process opened it
    bool made_ = false;                 // the file is new, and its directory is not synced yet
};

// The path of the journal of a file that shall have nothing beside it: in journal/ below the first of
// kpe_state_directories(), with a name made from the file's absolute path. "/dev/null" if there is no such directory.
std::string kpe_private_journal(const std::string& edited);
// Opens a journal for reading. The handle is not open if there is no journal, or if others could have written to it. In
// the second case refused says why, in words that follow "it".
FileHandle kpe_open_journal(const std::string& path, std::string& refused);
