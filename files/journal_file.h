#pragma once

#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "files/file_handle.h"

// A file of lines that are appended one by one, each whole or not at all, by one process at a time: it is locked while
// it is open. It is a regular file of the effective user's own, with one name, that nobody else may write, and gets
// mode 0600; any other file is refused.
class JournalFile {
public:
    // How opening, appending or removing went. Refused: reason() says why, for people. Failed: errno says why.
    enum class Result { Done, Refused, Failed };

    // Opens path, made if missing, unless it is open already; a name that leads to another file by now is opened anew.
    Result open(const std::string& path) { return open(path, /*make=*/true); }
    // Adds the line and "\n" to the open file. After a failure the file is as it was before.
    Result append(std::string_view line);
    // Removes the name of a journal, open or not; one that is not there is removed already. Bytes that lay in it
    // before this process opened it, unless replayed is this file and held them all, are copied to a state directory
    // first; kept names the copy then.
    Result remove(const std::string& path, const FileState& replayed, std::string& kept);
    // Has what was appended handed to the disk, and the directory of a file that was made; does not wait for it. false:
    // to be asked for again later.
    bool sync();
    void close();

    const std::string& reason() const { return reason_; }
    bool is_open() const { return file_.is_open(); }
    // Whether the name leads to the open file.
    bool is_at(const std::string& path) const;

private:
    Result open(const std::string& path, bool make);
    Result refuse(const std::string& reason);

    // A file that was closed: as long as it is that size again, nobody else has added to it.
    struct Left {
        ino_t ino;
        off_t size, old_size;
    };

    FileHandle file_;
    std::string path_, reason_;
    std::map<std::string, Left> left_;  // by path
    off_t old_size_ = 0;                // bytes that were there before
    bool made_ = false;                 // and the directory is not synced yet
};

// Opens a journal for reading. Not open if there is none, or, with refused telling why in words that follow "it", if it
// could hold what others wrote.
FileHandle kpe_open_journal(const std::string& path, std::string& refused);
