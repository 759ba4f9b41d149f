#include "buffer/file_writer.h"

#include <climits>
#include <ctime>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "buffer/file_attributes.h"
#include "buffer/file_handle.h"
#include "buffer/safety_copy.h"

// How a regular file is saved:
//  1. open() tries the old file for writing, without truncating it, and makes a new file beside it.
//  2. write() fills the new file.
//  3. commit() gives it the old one's owner, group, attributes, access list and mode, syncs it, renames
//     it over the old one and syncs the directory.
// A rename would lose something when the old file has further links, an owner or attributes that cannot
// be given, or a directory or a mount that refuses. Then the new file's bytes are copied over the old
// ones, whose text is kept in a safety copy meanwhile. Where no new file can be made beside the old one,
// it is made in the directory of the safety copies.

namespace {

constexpr size_t GATHERED_SIZE = size_t{1} << 20;
constexpr int LONGEST_LINK_CHAIN = 40;  // the kernel's own limit
constexpr mode_t OWNER_ONLY = 0600, NEW_FILE = 0666;
constexpr const char* NEW_TEXT = ".kpe-";  // short, as the target's name may be as long as names can be

// Errors that mean "not in this directory" rather than "not at all".
bool refused() { return errno == EACCES || errno == EPERM || errno == EROFS || errno == EBUSY || errno == EXDEV; }

// The name under which an open file can be reached that has none of its own.
std::string proc_name(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

// Whether links in this directory lead to open files, whatever their text says.
bool on_proc(int directory) {
    struct statfs fs;
    return fstatfs(directory, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC;
}

bool sync_plain(int fd) { return fsync(fd) == 0 || errno == EINVAL || errno == EROFS || errno == EOPNOTSUPP; }

// As kpe_write_all, but a reader that has gone is the error EPIPE and not the end of the process.
bool write_to_pipe(int fd, std::string_view first, std::string_view second, const volatile std::sig_atomic_t* abort) {
    sigset_t pipe, pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    const SignalHold hold{SIGPIPE};
    sigpending(&pending);
    const bool done = kpe_write_all(fd, first, second, abort);
    if (done || errno != EPIPE || sigismember(&pending, SIGPIPE)) return done;
    const timespec at_once{};
    while (sigtimedwait(&pipe, nullptr, &at_once) < 0 && errno == EINTR) {
    }
    errno = EPIPE;
    return false;
}

// Renames within a directory, but never over a file: -1 with EEXIST then.
int rename_new(int dir, const char* from, const char* to) {
    const auto unsupported = [] {
        return errno == EINVAL || errno == ENOSYS || errno == EPERM || errno == EOPNOTSUPP || errno == EMLINK;
    };
    if (renameat2(dir, from, dir, to, RENAME_NOREPLACE) == 0) return 0;
    if (!unsupported()) return -1;
    if (linkat(dir, from, dir, to, 0) == 0) return unlinkat(dir, from, 0);
    if (!unsupported()) return -1;

    // A file system with neither: an empty file of our own holds the name for a moment.
    const FileHandle place(openat(dir, to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, OWNER_ONLY));
    if (!place.is_open()) return -1;
    if (renameat(dir, from, dir, to) == 0) return 0;
    const int error = errno;
    unlinkat(dir, to, 0);
    errno = error;
    return -1;
}

}  // namespace

struct FileWriter::State {
    enum class Way { Plain, Beside, InPlace };

    Way way = Way::Beside;
    std::string path;
    bool refuse = false, taken = false, done = false;
    const volatile std::sig_atomic_t* abort = nullptr;
    FileHandle target;          // the old file, open for writing; not open when there is none
    FileHandle dir;             // the directory of the file that the links lead to,
    std::string base;           // and its name there
    bool through_proc = false;  // one of the links was the kernel's name of an open file
    FileHandle text;            // the new text
    std::string text_name;      // its name in dir, while it has one
    std::string gathered;
    std::string kept;
    int error = 0;

    ~State() { discard(); }

    bool locate();
    bool open();
    bool open_existing();
    bool make_beside(mode_t mode);
    bool make_elsewhere();
    void discard();

    bool put(std::string_view last);
    bool commit();
    bool commit_plain();
    bool commit_new();
    bool commit_over();
    bool sync_text();
    bool name_text();
    bool finish_rename(int result);
    bool overwrite();
};

// Finds dir and base. A link that dangles leads to the file it would make.
bool FileWriter::State::locate() {
    std::string rest = path;
    for (int links = 0; links <= LONGEST_LINK_CHAIN; ++links) {
        const size_t name = rest.rfind('/') + 1;  // 0 without a "/"
        const std::string parent = name == 0 ? "." : rest.substr(0, name);
        base = rest.substr(name);
        dir = FileHandle(openat(dir.is_open() ? dir.fd() : AT_FDCWD, parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!dir.is_open()) return false;
        if (base.empty()) {
            errno = path.empty() ? ENOENT : EISDIR;
            return false;
        }
        char link[PATH_MAX];
        const ssize_t length = readlinkat(dir.fd(), base.c_str(), link, sizeof link);
        if (length < 0) return errno == EINVAL || errno == ENOENT;  // not a link, or nothing there
        through_proc = through_proc || on_proc(dir.fd());
        rest.assign(link, static_cast<size_t>(length));
    }
    errno = ELOOP;
    return false;
}

bool FileWriter::State::open() {
    if (!refuse) {
        target = FileHandle(::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
        if (target.is_open()) return open_existing();
        if (errno != ENOENT) return false;
    }
    // A new file may get its final mode at once: nothing in it is older and more private.
    return locate() && make_beside(NEW_FILE);
}

bool FileWriter::State::open_existing() {
    struct stat old, found;
    if (fstat(target.fd(), &old) != 0) return false;
    if (!S_ISREG(old.st_mode)) {
        way = Way::Plain;
        return true;
    }
    // Who opened the file by the kernel's name for it, as in /dev/stdout, holds on to the file itself.
    const bool at_its_name = locate() && !through_proc &&
                             fstatat(dir.fd(), base.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
                             found.st_dev == old.st_dev && found.st_ino == old.st_ino;
    if (at_its_name && make_beside(old.st_mode & OWNER_ONLY)) return true;
    if (at_its_name && !refused()) return false;
    way = Way::InPlace;
    return make_elsewhere();
}

// A file without a name, where there is such a thing, cannot be left behind even by a crash.
bool FileWriter::State::make_beside(mode_t mode) {
    text = FileHandle(openat(dir.fd(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (text.is_open() && access(proc_name(text.fd()).c_str(), F_OK) == 0) return true;
    text = FileHandle(kpe_with_new_name(NEW_TEXT, text_name, [&](const char* name) {
        return openat(dir.fd(), name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    }));
    if (!text.is_open()) text_name.clear();
    return text.is_open();
}

bool FileWriter::State::make_elsewhere() {
    std::string name;
    text = kpe_make_state_file(NEW_TEXT, name);
    return text.is_open() && unlink(name.c_str()) == 0;
}

// Leaves no new file behind that has not become the target.
void FileWriter::State::discard() {
    const int before = errno;
    if (!text_name.empty()) unlinkat(dir.fd(), text_name.c_str(), 0);
    text_name.clear();
    text = FileHandle();
    target = FileHandle();
    errno = before;
}

// Sends what was gathered, and last behind it.
bool FileWriter::State::put(std::string_view last) {
    const bool sent = way == Way::Plain ? write_to_pipe(target.fd(), gathered, last, abort)
                                        : kpe_write_all(text.fd(), gathered, last);
    gathered.clear();
    return sent;
}

bool FileWriter::State::commit() {
    if (!put({})) return false;
    if (way == Way::Plain) return commit_plain();
    if (!target.is_open()) return commit_new();
    return way == Way::InPlace ? overwrite() : commit_over();
}

bool FileWriter::State::commit_plain() { return sync_plain(target.fd()) && target.close(); }

bool FileWriter::State::commit_new() {
    if (!sync_text()) return false;
    const SignalHold hold;  // the name for a moment must not stay
    if (!name_text()) return false;
    const int result = refuse ? rename_new(dir.fd(), text_name.c_str(), base.c_str())
                              : renameat(dir.fd(), text_name.c_str(), dir.fd(), base.c_str());
    taken = refuse && result != 0 && errno == EEXIST;
    return finish_rename(result);
}

bool FileWriter::State::commit_over() {
    struct stat old;
    if (fstat(target.fd(), &old) != 0) return false;
    if (old.st_nlink > 1 || !kpe_copy_attributes(target.fd(), text.fd())) return overwrite();
    if (!sync_text()) return false;
    const SignalHold hold;
    if (!name_text()) return refused() && overwrite();
    const int result = renameat(dir.fd(), text_name.c_str(), dir.fd(), base.c_str());
    if (result != 0 && refused()) return overwrite();
    return finish_rename(result);
}

// Some file systems report a full disk only when a descriptor is closed, but this one is still needed:
// closing a second descriptor of the same file asks for the report.
bool FileWriter::State::sync_text() {
    if (fsync(text.fd()) != 0) return false;
    FileHandle second(fcntl(text.fd(), F_DUPFD_CLOEXEC, 0));
    return second.is_open() && second.close();
}

bool FileWriter::State::name_text() {
    if (!text_name.empty()) return true;
    const std::string nameless = proc_name(text.fd());
    const int result = kpe_with_new_name(NEW_TEXT, text_name, [&](const char* name) {
        return linkat(AT_FDCWD, nameless.c_str(), dir.fd(), name, AT_SYMLINK_FOLLOW);
    });
    if (result != 0) text_name.clear();
    return result == 0;
}

// The new file has the name from here on; a directory that cannot be synced changes nothing about that.
bool FileWriter::State::finish_rename(int result) {
    if (result != 0) return false;
    text_name.clear();
    const FileHandle readable(openat(dir.fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (readable.is_open()) fsync(readable.fd());
    return true;
}

bool FileWriter::State::overwrite() {
    const FileHandle old(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!old.is_open()) return false;
    if (!kpe_same_file(old.fd(), target.fd())) {  // bytes written now would have no name
        errno = ESTALE;
        return false;
    }
    // A name to know the copy by, cut so that it leaves room for digits.
    const std::string label = base.substr(0, 100) + ".";
    return kpe_overwrite({target.fd(), old.fd(), text.fd()}, label, kept);
}

FileWriter::FileWriter() = default;
FileWriter::~FileWriter() = default;

bool FileWriter::open(const std::string& path, Existing existing, const volatile std::sig_atomic_t* abort) {
    state_ = std::make_unique<State>();
    state_->path = path;
    state_->refuse = existing == Existing::Refuse;
    state_->abort = abort;
    state_->gathered.reserve(GATHERED_SIZE);
    if (state_->open()) return true;
    state_->error = errno;
    state_->discard();
    return false;
}

bool FileWriter::write(std::string_view bytes) {
    if (!state_ || state_->error != 0 || state_->done) return false;
    if (state_->gathered.size() + bytes.size() < GATHERED_SIZE) {
        state_->gathered.append(bytes);
        return true;
    }
    if (state_->put(bytes)) return true;
    state_->error = errno;
    return false;
}

bool FileWriter::commit() {
    if (!state_ || state_->done) {
        errno = EBADF;
        return false;
    }
    if (state_->error == 0 && !state_->commit()) state_->error = errno;
    state_->done = true;
    state_->discard();
    errno = state_->error;
    return state_->error == 0;
}

bool FileWriter::taken() const { return state_ && state_->taken; }

std::string FileWriter::safety_copy() const { return state_ ? state_->kept : std::string(); }
