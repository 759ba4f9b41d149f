#pragma once

#include <string>
#include <sys/types.h>

#include "files/file_handle.h"

// The new text of a file, until it gets the file's name.
//
// Where the file system knows files without a name, the new text has none, so that a killed process leaves nothing
// behind. Elsewhere, and for a moment before it replaces an old file, it lies beside the old one under a name that
// begins with ".kpe-", and carries a mark (kpe_mark_unfinished). If a killed process left such a file, the next save
// removes it, provided that it has the mark and nobody holds a lock on it. A file without the mark may be the user's
// own and stays; so does a leftover on a file system without extended attributes.
//
// In make(), dir is the open directory of the file, which must stay open, and base is the file's name in it. All
// functions that fail return false or -1, with errno set.
class NewText {
public:
    NewText() = default;
    ~NewText() { discard(); }
    NewText(const NewText&) = delete;
    NewText& operator=(const NewText&) = delete;

    bool make(int dir, const std::string& base, mode_t mode);
    // Makes it among the safety copies for the file target, from where it can only be copied.
    bool make_elsewhere(int target);
    int fd() const { return file_.fd(); }
    bool sync();
    bool name();      // gives it a name beside the old file if it has none; needed before replace()
    int take_name();  // gives it the name base; -1 with EEXIST if a file has that name
    int replace();    // renames it to base, in place of the old file
    void discard();   // removes it if it has not become the file; leaves errno as it is

private:
    bool make_named(mode_t mode);
    int named(int result);
    std::string own_name() const;

    int dir_ = -1;
    std::string base_;
    FileHandle file_;
    std::string name_;  // its name in dir while that is not base, else ""
};

// Whether name in the directory dir is the open file fd itself, and not a link to it.
bool kpe_leads_to(int dir, const char* name, int fd);
