#pragma once

#include <string>
#include <sys/types.h>

#include "files/file_handle.h"

// The new text of a file until it gets the file's name. It has no name at all where the file system knows such
// files, so that a process that is killed leaves nothing; else, and for a moment before it replaces an old file, one
// that begins with ".kpe-" beside it, and a mark (kpe_mark_unfinished). What a killed process left under that name goes
// with the next save of the file if it has the mark and nobody holds a lock on it; a file without a mark may be the
// user's own and stays, and so does a leftover on a file system that takes no attributes.
//
// dir is the open directory of the file and must stay open; base its name there. All return false, or -1, with errno
// set.
class NewText {
public:
    NewText() = default;
    ~NewText() { discard(); }
    NewText(const NewText&) = delete;
    NewText& operator=(const NewText&) = delete;

    bool make(int dir, const std::string& base, mode_t mode);
    bool make_elsewhere();  // in the directory of the safety copies: only to be copied from
    int fd() const { return file_.fd(); }
    bool sync();
    bool name();      // beside the old file, if it has no name yet; what replace() needs
    int take_name();  // base, that no file has yet: -1 with EEXIST otherwise
    int replace();    // renames over base
    void discard();   // what has not become the file is gone. errno stays

private:
    bool make_named(mode_t mode);
    int named(int result);
    std::string own_name() const;

    int dir_ = -1;
    std::string base_;
    FileHandle file_;
    std::string name_;  // in dir, while it has one that is not base
};

// Whether the name in the directory, not followed, is the open file itself.
bool kpe_leads_to(int dir, const char* name, int fd);
