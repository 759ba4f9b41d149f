#include "files/file_writer.h"

#include <algorithm>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <linux/magic.h>
#include <optional>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

#include "files/file_attributes.h"
#include "files/file_handle.h"
#include "files/new_text.h"
#include "files/safety_copy.h"
#include "system/file_mapping.h"
#include "system/file_work.h"
#include "system/signals.h"

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
// Untouched bytes of a file that is mapped: fewer in a row are written, as a file in many pieces becomes slow.
constexpr size_t SHARED_SIZE = size_t{1} << 20;
constexpr size_t SHARED_AT_ONCE = size_t{128} << 20;
constexpr int LONGEST_LINK_CHAIN = 40;  // the kernel's own limit
constexpr mode_t OWNER_ONLY = 0600, NEW_FILE = 0666;
constexpr size_t LONGEST_LABEL = 100;  // bytes: the target's name may be as long as names can be

// Errors that mean "not in this directory" rather than "not at all".
bool refused() { return errno == EACCES || errno == EPERM || errno == EROFS || errno == EBUSY || errno == EXDEV; }

// The size of the pieces of a disk in which files can share bytes; at least one byte.
size_t piece_of_disk(int fd) {
    struct statfs fs;
    return fstatfs(fd, &fs) == 0 && fs.f_bsize > 0 ? static_cast<size_t>(fs.f_bsize) : 1;
}

// Whether links in this directory lead to open files, whatever their text says.
bool on_proc(int directory) {
    struct statfs fs;
    return fstatfs(directory, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC;
}

bool sync_plain(int fd) { return kpe_sync(fd) == 0 || errno == EINVAL || errno == EROFS || errno == EOPNOTSUPP; }

bool is_fifo(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
}

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

}  // namespace

struct FileWriter::State {
    enum class Way { Plain, Beside, InPlace };

    Way way = Way::Beside;
    std::string path;
    bool refuse = false, taken = false, done = false;
    const volatile std::sig_atomic_t* abort = nullptr;
    bool gives_up = false;      // in a regular file as well
    bool advances = false;      // see advance_time()
    FileHandle target;          // the old file, open for writing; not open when there is none
    FileHandle dir;             // the directory of the file that the links lead to,
    std::string base;           // and its name there
    bool through_proc = false;  // one of the links was the kernel's name of an open file
    NewText text;
    std::string gathered;
    std::string_view untouched;  // behind what was gathered: bytes of a file that is mapped
    off_t position = 0;          // of the new text: so many bytes of it are written
    std::string kept;            // a copy of the old text, which could not be put back
    std::optional<FileState> known;
    KpeToldOfCopy before_overwrite;
    std::string changed;  // a copy of the file that was there instead of the known one
    FileState made;       // the file that holds the new text after commit()
    int error = 0;

    bool locate();
    bool open();
    bool open_existing();
    bool has_become_special(const struct stat& now) const;
    // A name to know a copy by, cut so that it leaves room for digits.
    std::string label() const { return base.substr(0, LONGEST_LABEL) + "."; }

    bool add(std::string_view bytes);
    bool put(std::string_view last);
    bool put_untouched();
    size_t share(const FileMapping& file, std::string_view bytes);
    bool commit();
    bool commit_plain();
    bool commit_new();
    bool commit_over();
    bool keep_changed();
    bool keep_changed(int fd);
    bool finish_rename(int result);
    void advance_time(int fd) const;
    bool overwrite();
};

// Finds dir and base. A link that dangles leads to the file it would make.
bool FileWriter::State::locate() {
    std::string rest = path;
    for (int links = 0; links <= LONGEST_LINK_CHAIN; ++links) {
        const size_t name = rest.rfind('/') + 1;  // 0 without a "/"
        const std::string parent = name == 0 ? "." : rest.substr(0, name);
        base = rest.substr(name);
        const int from = dir.is_open() ? dir.fd() : AT_FDCWD;
        dir = FileHandle(kpe_retry([&] { return openat(from, parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
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
        struct stat now;  // looked at before it is opened: that alone may wait, or have an effect on a device
        if (stat(path.c_str(), &now) == 0 && has_become_special(now)) return false;
        do target = FileHandle(::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
        while (!target.is_open() && errno == EINTR && !is_fifo(path));  // whose reader is not waited for then
        if (target.is_open()) return open_existing();
        if (errno != ENOENT) return false;
    }
    // A new file may get its final mode at once: nothing in it is older and more private.
    return locate() && text.make(dir.fd(), base, NEW_FILE);
}

// What is written there would be gone, although it was meant for a file that is read again.
bool FileWriter::State::has_become_special(const struct stat& now) const {
    if (!known || known->is_special() || !kpe_file_state(now).is_special()) return false;
    errno = ESTALE;
    return true;
}

bool FileWriter::State::open_existing() {
    struct stat old;
    if (fstat(target.fd(), &old) != 0 || has_become_special(old)) return false;
    if (!S_ISREG(old.st_mode)) {
        way = Way::Plain;
        return true;
    }
    // Who opened the file by the kernel's name for it, as in /dev/stdout, holds on to the file itself.
    const bool at_its_name = locate() && !through_proc && kpe_leads_to(dir.fd(), base.c_str(), target.fd());
    if (at_its_name && text.make(dir.fd(), base, old.st_mode & OWNER_ONLY)) return true;
    if (at_its_name && !refused()) return false;
    way = Way::InPlace;
    return text.make_elsewhere(target.fd());
}

// Sends what was gathered, and last behind it.
bool FileWriter::State::put(std::string_view last) {
    const bool sent = way == Way::Plain ? write_to_pipe(target.fd(), gathered, last, abort)
                                        : kpe_write_all(text.fd(), gathered, last, gives_up ? abort : nullptr);
    position += static_cast<off_t>(gathered.size() + last.size());
    gathered.clear();
    return sent;
}

// Bytes to be shared wait for those that lie behind them in the same file.
bool FileWriter::State::add(std::string_view bytes) {
    const bool goes_on = !untouched.empty() && untouched.data() + untouched.size() == bytes.data();
    const bool may_begin = way != Way::Plain && bytes.size() >= SHARED_SIZE;
    const bool shared = (goes_on || may_begin) && FileMapping::holding(bytes);
    if (shared && goes_on) {
        untouched = {untouched.data(), untouched.size() + bytes.size()};
        return true;
    }
    if (!put_untouched()) return false;
    if (shared) {
        untouched = bytes;
        return true;
    }
    if (gathered.size() + bytes.size() >= GATHERED_SIZE) return put(bytes);
    gathered.append(bytes);
    return true;
}

// Shares what it can with the mapped file. What lies there and here at different places in a piece of the disk has to
// be written, and so has what fills no piece.
bool FileWriter::State::put_untouched() {
    if (untouched.empty()) return true;
    std::string_view rest = std::exchange(untouched, {});
    const FileMapping* const file = FileMapping::holding(rest);
    const size_t piece = file ? piece_of_disk(text.fd()) : 1;
    const auto behind_piece = [&](size_t place) { return place % piece; };
    const size_t here = static_cast<size_t>(position) + gathered.size();
    if (file && behind_piece(here) == behind_piece(static_cast<size_t>(rest.data() - file->data()))) {
        const size_t head = (piece - behind_piece(here)) % piece;
        if (rest.size() >= head + SHARED_SIZE) {
            if (!put(rest.substr(0, head))) return false;
            rest.remove_prefix(head);
            rest.remove_prefix(share(*file, rest.substr(0, rest.size() / piece * piece)));
        }
    }
    return put(rest);
}

// How many bytes the new text got; it gets the others by being written.
size_t FileWriter::State::share(const FileMapping& file, std::string_view bytes) {
    off_t from = bytes.data() - file.data();
    size_t shared = 0;
    while (shared < bytes.size() && !(gives_up && abort && *abort)) {
        const size_t most = std::min(SHARED_AT_ONCE, bytes.size() - shared);
        const ssize_t got = kpe_retry([&] { return copy_file_range(file.fd(), &from, text.fd(), nullptr, most, 0); });
        if (got <= 0) break;
        FileWork::progress();
        shared += static_cast<size_t>(got);
        position += got;
    }
    return shared;
}

bool FileWriter::State::commit() {
    if (!put_untouched() || !put({})) return false;
    if (way == Way::Plain) return commit_plain();
    if (!target.is_open()) return commit_new();
    return way == Way::InPlace ? overwrite() : commit_over();
}

bool FileWriter::State::commit_plain() {
    made = kpe_file_state(target.fd());
    return sync_plain(target.fd()) && target.close();
}

bool FileWriter::State::commit_new() {
    if (!text.sync()) return false;
    const SignalHold hold(kpe_ending_signals_and({SIGTSTP}));  // the name for a moment must not stay
    int result = text.take_name();
    taken = refuse && result != 0 && errno == EEXIST;
    if (!refuse && result != 0 && errno == EEXIST) {  // made by somebody meanwhile
        if (!keep_changed() || !text.name()) return false;
        result = text.replace();
    }
    return finish_rename(result);
}

bool FileWriter::State::commit_over() {
    struct stat old;
    if (fstat(target.fd(), &old) != 0) return false;
    if (old.st_nlink > 1 || !kpe_copy_attributes(target.fd(), text.fd())) return overwrite();
    if (!text.sync() || !keep_changed()) return false;
    const SignalHold hold(kpe_ending_signals_and({SIGTSTP}));
    if (!text.name()) return refused() && overwrite();
    const int result = text.replace();
    if (result != 0 && refused()) return overwrite();
    return finish_rename(result);
}

// What stands under the name and is not what the caller knows has to be kept before it goes.
bool FileWriter::State::keep_changed() {
    if (!known) return true;
    constexpr int LOOK = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    const FileHandle now(kpe_retry([&] { return openat(dir.fd(), base.c_str(), LOOK); }));
    return now.is_open() ? keep_changed(now.fd()) : errno == ENOENT;
}

bool FileWriter::State::keep_changed(int fd) {
    if (!known || !changed.empty()) return true;
    const FileState now = kpe_file_state(fd);
    if (now == *known) return true;
    if (now.is_special()) {
        errno = ESTALE;
        return false;
    }
    return kpe_keep_copy(fd, label(), changed);
}

// The new file has the name from here on; a directory that cannot be synced changes nothing about that.
bool FileWriter::State::finish_rename(int result) {
    if (result != 0) return false;
    advance_time(text.fd());
    made = kpe_file_state(text.fd());
    const FileHandle readable(openat(dir.fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (readable.is_open()) kpe_sync(readable.fd());
    return true;
}

bool FileWriter::State::overwrite() {
    constexpr int LOOK = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    const FileHandle old(kpe_retry([&] { return ::open(path.c_str(), LOOK); }));
    if (!old.is_open()) return false;
    if (!kpe_same_file(old.fd(), target.fd())) {  // bytes written now would have no name
        errno = ESTALE;
        return false;
    }
    if (!keep_changed(old.fd())) return false;
    if (!kpe_overwrite({target.fd(), old.fd(), text.fd()}, label(), before_overwrite, kept)) return false;
    advance_time(target.fd());
    made = kpe_file_state(target.fd());
    return true;
}

void FileWriter::State::advance_time(int fd) const {
    if (!advances || !known || kpe_file_state(fd).modified.tv_sec > known->modified.tv_sec) return;
    const timespec times[] = {{0, UTIME_OMIT}, {known->modified.tv_sec + 1, 0}};
    futimens(fd, times);
}

FileWriter::FileWriter() = default;
FileWriter::~FileWriter() = default;

bool FileWriter::open(const std::string& path, Existing existing, const volatile std::sig_atomic_t* abort,
                      const FileState* known) {
    state_ = std::make_unique<State>();
    state_->path = path;
    state_->refuse = existing == Existing::Refuse;
    state_->abort = abort;
    if (known) state_->known = *known;
    state_->gathered.reserve(GATHERED_SIZE);
    if (state_->open()) return true;
    state_->error = errno;
    return false;
}

bool FileWriter::write(std::string_view bytes) {
    if (!state_ || state_->error != 0 || state_->done) return false;
    if (state_->add(bytes)) return true;
    state_->error = errno;
    return false;
}

bool FileWriter::commit() {
    if (!state_ || state_->done) {
        errno = EBADF;
        return false;
    }
    if (state_->error == 0 && !state_->commit()) {
        state_->error = errno;
        if (!state_->changed.empty()) unlink(state_->changed.c_str());  // it still stands where it was
        state_->changed.clear();
    }
    state_->done = true;
    state_->text.discard();
    state_->target = FileHandle();
    errno = state_->error;
    return state_->error == 0;
}

bool FileWriter::taken() const { return state_ && state_->taken; }

void FileWriter::give_up_when_aborted() { state_->gives_up = true; }

void FileWriter::advance_time() { state_->advances = true; }

void FileWriter::before_overwrite(KpeToldOfCopy tell) { state_->before_overwrite = std::move(tell); }

FileState FileWriter::made() const { return state_ ? state_->made : FileState(); }

std::string FileWriter::changed_copy() const { return state_ ? state_->changed : std::string(); }

std::string FileWriter::safety_copy() const { return state_ ? state_->kept : std::string(); }
