#include "files/new_text.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/file_attributes.h"
#include "files/safety_copy.h"
#include "files/state_directory.h"
#include "system/ascii.h"

namespace {

const std::string NEW_TEXT = ".kpe-";
constexpr size_t LONGEST = 100;  // bytes of the file's name: it may be as long as names can be

// Who makes a new text marks it and holds a lock on it. A marked one without a lock was left by a process that was
// killed, and goes. Whatever has no mark may be somebody's own file.
bool remove_leftover(int dir, const char* name) {
    const int before = errno;
    const FileHandle left(openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st;
    const bool removed = left.is_open() && fstat(left.fd(), &st) == 0 && S_ISREG(st.st_mode) &&
                         kpe_is_unfinished(left.fd()) && flock(left.fd(), LOCK_EX | LOCK_NB) == 0 &&
                         kpe_leads_to(dir, name, left.fd()) && unlinkat(dir, name, 0) == 0;
    errno = before;
    return removed;
}

// Renames within a directory, but never over a file: -1 with EEXIST then.
int rename_new(int dir, const char* from, const char* to) {
    const auto unsupported = [] {
        return errno == EINVAL || errno == ENOSYS || errno == EPERM || errno == EOPNOTSUPP || errno == EMLINK;
    };
    if (renameat2(dir, from, dir, to, RENAME_NOREPLACE) == 0) return 0;
    if (!unsupported()) return -1;
    if (linkat(dir, from, dir, to, 0) == 0) {
        unlinkat(dir, from, 0);  // the new name holds the text, whether or not the old one goes
        return 0;
    }
    if (!unsupported()) return -1;

    // A file system with neither: other sessions wait for the directory's lock, but not forever.
    const FileHandle locked(openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int tries = 0; tries < 100 && flock(locked.fd(), LOCK_EX | LOCK_NB) != 0; ++tries) usleep(10000);
    if (faccessat(dir, to, F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return -1;
    }
    return renameat(dir, from, dir, to);
}

}  // namespace

// A file without a name, where there is such a thing, cannot be left behind even by a crash.
bool NewText::make(int dir, const std::string& base, mode_t mode) {
    dir_ = dir;
    base_ = base;
    constexpr int NAMELESS = O_TMPFILE | O_RDWR | O_CLOEXEC;
    file_ = FileHandle(kpe_retry([&] { return openat(dir_, ".", NAMELESS, mode); }));
    if (!file_.is_open() || access(kpe_proc_name(file_.fd()).c_str(), F_OK) != 0) return make_named(mode);
    flock(file_.fd(), LOCK_EX | LOCK_NB);
    return true;
}

bool NewText::make_named(mode_t mode) {
    const auto make = [&](const char* name) {
        constexpr int NEW = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        return kpe_retry([&] { return openat(dir_, name, NEW, mode); });
    };
    name_ = own_name();
    file_ = FileHandle(make(name_.c_str()));
    if (!file_.is_open() && errno == EEXIST && remove_leftover(dir_, name_.c_str()))
        file_ = FileHandle(make(name_.c_str()));
    // Before the lock another session may have taken it for a leftover, and removes it.
    const bool locked = file_.is_open() && (flock(file_.fd(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK);
    const bool ours = locked && kpe_leads_to(dir_, name_.c_str(), file_.fd());
    if (!ours && (file_.is_open() || errno == EEXIST)) file_ = FileHandle(kpe_with_new_name(NEW_TEXT, name_, make));
    if (!file_.is_open()) name_.clear();
    if (file_.is_open()) kpe_mark_unfinished(file_.fd());
    return file_.is_open();
}

bool NewText::make_elsewhere(int target) {
    file_ = kpe_make_nameless_state_file(kpe_lives_in_memory(target));
    return file_.is_open();
}

// By this name a later save knows what an earlier one left behind: one for all versions of a file.
std::string NewText::own_name() const { return NEW_TEXT + base_.substr(0, std::min(base_.rfind(';'), LONGEST)); }

// Some file systems report a full disk only when a descriptor is closed, but this one is still needed:
// closing a second descriptor of the same file asks for the report.
bool NewText::sync() {
    if (kpe_sync(file_.fd()) != 0) return false;
    FileHandle second(fcntl(file_.fd(), F_DUPFD_CLOEXEC, 0));
    return second.is_open() && second.close();
}

// Gives the new text a name beside the old one.
bool NewText::name() {
    if (!name_.empty()) return true;
    const std::string nameless = kpe_proc_name(file_.fd());
    const auto link = [&](const char* name) {
        return linkat(AT_FDCWD, nameless.c_str(), dir_, name, AT_SYMLINK_FOLLOW);
    };
    name_ = own_name();
    kpe_mark_unfinished(file_.fd());
    int result = link(name_.c_str());
    if (result != 0 && errno == EEXIST && remove_leftover(dir_, name_.c_str())) result = link(name_.c_str());
    if (result != 0 && errno == EEXIST) result = kpe_with_new_name(NEW_TEXT, name_, link);
    if (result != 0) name_.clear();
    return result == 0;
}

// Gives the new text a name that no file has yet: -1 with EEXIST otherwise.
int NewText::take_name() {
    if (!name_.empty()) {
        return named(rename_new(dir_, name_.c_str(), base_.c_str()));
    }
    return linkat(AT_FDCWD, kpe_proc_name(file_.fd()).c_str(), dir_, base_.c_str(), AT_SYMLINK_FOLLOW);
}

int NewText::replace() { return named(renameat(dir_, name_.c_str(), dir_, base_.c_str())); }

// Passes the result of giving it the file's name on. It is unmarked last: killed before, it is a leftover to be
// known; killed between the two, it is the file, and the mark goes with its next save. A name that could not be
// removed stays known, too.
int NewText::named(int result) {
    if (result != 0) return result;
    if (!kpe_leads_to(dir_, name_.c_str(), file_.fd())) kpe_mark_finished(file_.fd());
    name_.clear();
    return result;
}

void NewText::discard() {
    const int before = errno;
    if (!name_.empty()) kpe_retry([this] { return unlinkat(dir_, name_.c_str(), 0); });
    name_.clear();
    errno = before;
}

bool kpe_leads_to(int dir, const char* name, int fd) {
    struct stat named, open;
    return fstatat(dir, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && fstat(fd, &open) == 0 &&
           named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}
