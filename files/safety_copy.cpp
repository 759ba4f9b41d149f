#include "files/safety_copy.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/state_directory.h"
#include "system/file_work.h"
#include "system/signals.h"

namespace {

// In order of preference. in_memory: for a text that lives in memory only, and must not get to a disk.
std::vector<std::string> copy_directories(bool in_memory) {
    std::vector<std::string> directories = kpe_state_directories();
    directories.push_back(kpe_temporary_directories().front());
    if (in_memory) {
        if (const std::string runtime = kpe_env_directory("XDG_RUNTIME_DIR"); !runtime.empty())
            directories.insert(directories.begin(), runtime + "/kpe/");
        directories.push_back("/dev/shm/");
        kpe_keep_in_memory(directories);
    }
    return directories;
}

FileHandle make_file(const std::string& directory, const std::string& prefix, std::string& path) {
    kpe_make_directories(directory);
    return FileHandle(kpe_with_new_name(directory + prefix, path, [](const char* name) {
        return kpe_retry([&] { return open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600); });
    }));
}

// Not open where the file system knows nothing of the kind, or nothing leads to such a file.
FileHandle make_nameless(const std::string& directory) {
    kpe_make_directories(directory);
    FileHandle file(kpe_retry([&] { return open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); }));
    if (file.is_open() && access(kpe_proc_name(file.fd()).c_str(), F_OK) != 0) file = FileHandle();
    return file;
}

bool cut(int fd, off_t size) {
    return kpe_retry([fd, size] { return ftruncate(fd, size); }) == 0;
}

// The old text of a file that is about to be overwritten.
class SafetyCopy {
public:
    // Goes on to the next directory when one has no room.
    bool make(int old, off_t size, const std::string& label) {
        for (const std::string& directory : copy_directories(kpe_lives_in_memory(old)))
            if (make_in(directory, old, size, label)) return true;
        return false;
    }
    void remove() {
        const int error = errno;
        if (!path_.empty()) kpe_retry([this] { return unlink(path_.c_str()); });
        path_.clear();
        errno = error;
    }
    int fd() const { return file_.fd(); }
    const std::string& path() const { return path_; }

private:
    // It gets its name when it is whole, so that no half copy is left by a process that is killed.
    bool make_in(const std::string& directory, int old, off_t size, const std::string& label) {
        file_ = make_nameless(directory);
        const bool nameless = file_.is_open();
        if (!nameless) file_ = make_file(directory, label, path_);
        const bool whole =
            file_.is_open() && kpe_copy_bytes(old, file_.fd(), 0, size) == size && kpe_sync(file_.fd()) == 0;
        if (whole && (!nameless || give_name(directory + label))) {
            const FileHandle handle(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (handle.is_open()) kpe_sync(handle.fd());
            return true;
        }
        remove();
        return false;
    }
    bool give_name(const std::string& prefix) {
        const std::string nameless = kpe_proc_name(file_.fd());
        const int result = kpe_with_new_name(prefix, path_, [&](const char* name) {
            return linkat(AT_FDCWD, nameless.c_str(), AT_FDCWD, name, AT_SYMLINK_FOLLOW);
        });
        if (result != 0) path_.clear();
        return result == 0;
    }

    FileHandle file_;
    std::string path_;  // empty as long as it has no name
};

// What lies behind the old end goes first: a full disk shows there, where nothing is lost yet.
bool write_over(const Overwrite& files, off_t old_size, off_t new_size) {
    const off_t both = std::min(old_size, new_size);
    if (kpe_copy_bytes(files.text, files.target, both, new_size) < new_size) return false;
    if (kpe_copy_bytes(files.text, files.target, 0, both) < both) return false;
    if (new_size < old_size && !cut(files.target, new_size)) return false;
    return kpe_sync(files.target) == 0;
}

// Writes only what differs: a size limit or a full disk may refuse even to write what is there already.
bool put_back(const Overwrite& files, int copy, off_t size) {
    for (off_t begin = 0; begin < size; begin += KPE_COPY_PIECE) {
        const off_t end = std::min(size, begin + KPE_COPY_PIECE);
        if (kpe_same_bytes(files.old, copy, begin, end)) continue;
        if (kpe_copy_bytes(copy, files.target, begin, end) < end) return false;
    }
    struct stat now;
    if (fstat(files.target, &now) != 0) return false;
    if (now.st_size != size && !cut(files.target, size)) return false;
    return kpe_sync(files.target) == 0;
}

}  // namespace

FileHandle kpe_make_state_file(const std::string& prefix, std::string& path, bool in_memory) {
    FileHandle file;
    for (const std::string& directory : copy_directories(in_memory))
        if (file = make_file(directory, prefix, path); file.is_open()) break;
    return file;
}

FileHandle kpe_make_nameless_state_file(bool in_memory) {
    FileHandle file;
    for (const std::string& directory : copy_directories(in_memory))
        if (file = make_nameless(directory); file.is_open()) return file;
    std::string path;
    file = kpe_make_state_file(".kpe-", path, in_memory);
    if (file.is_open() && kpe_retry([&] { return unlink(path.c_str()); }) != 0) file = FileHandle();
    return file;
}

bool kpe_keep_copy(int fd, const std::string& label, std::string& path, std::optional<off_t> size) {
    struct stat st;
    if (!size && fstat(fd, &st) != 0) return false;
    SafetyCopy copy;
    if (!copy.make(fd, size.value_or(st.st_size), label)) return false;
    path = copy.path();
    return true;
}

// The order: safety copy written, synced with its directory, new bytes written over the old, length set,
// synced, safety copy removed. Until the last step a crash leaves the old text in the safety copy.
bool kpe_overwrite(const Overwrite& files, const std::string& label, const KpeToldOfCopy& before, std::string& kept) {
    struct stat old, text;
    if (fstat(files.old, &old) != 0 || fstat(files.text, &text) != 0) return false;
    const SignalHold hold(kpe_ending_signals_and({SIGTSTP}));
    SafetyCopy copy;
    if (!copy.make(files.old, old.st_size, label)) return false;

    FileWork::old_text_in(copy.path());
    if (before) before(copy.path());
    const bool done = write_over(files, old.st_size, text.st_size);
    const int error = errno;
    if (done || put_back(files, copy.fd(), old.st_size))
        copy.remove();
    else
        kept = copy.path();
    FileWork::old_text_in(kept);

    // Writing may have taken special mode bits away; only the owner can give them back.
    if (fstat(files.target, &text) == 0 && text.st_mode != old.st_mode) fchmod(files.target, old.st_mode & 07777);
    errno = error;
    return done;
}
