#include "buffer/safety_copy.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "buffer/state_directory.h"

namespace {

FileHandle make_file(const std::string& directory, const std::string& prefix, std::string& path) {
    kpe_make_directories(directory);
    return FileHandle(kpe_with_new_name(directory + prefix, path, [](const char* name) {
        return open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    }));
}

// Makes the file and its name last.
bool sync_with_directory(int fd, const std::string& directory) {
    if (fsync(fd) != 0) return false;
    const FileHandle handle(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (handle.is_open()) fsync(handle.fd());
    return true;
}

// The old text of a file that is about to be overwritten.
class SafetyCopy {
public:
    // Goes on to the next directory when one has no room.
    bool make(int old, off_t size, const std::string& label) {
        for (const std::string& directory : kpe_state_directories()) {
            file_ = make_file(directory, label, path_);
            if (!file_.is_open()) continue;
            if (kpe_copy_bytes(old, file_.fd(), 0, size) == size && sync_with_directory(file_.fd(), directory))
                return true;
            remove();
        }
        return false;
    }
    void remove() {
        const int error = errno;
        unlink(path_.c_str());
        errno = error;
    }
    int fd() const { return file_.fd(); }
    const std::string& path() const { return path_; }

private:
    FileHandle file_;
    std::string path_;
};

// What lies behind the old end goes first: a full disk shows there, where nothing is lost yet.
bool write_over(const Overwrite& files, off_t old_size, off_t new_size) {
    const off_t both = std::min(old_size, new_size);
    if (kpe_copy_bytes(files.text, files.target, both, new_size) < new_size) return false;
    if (kpe_copy_bytes(files.text, files.target, 0, both) < both) return false;
    if (new_size < old_size && ftruncate(files.target, new_size) != 0) return false;
    return fsync(files.target) == 0;
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
    if (now.st_size != size && ftruncate(files.target, size) != 0) return false;
    return fsync(files.target) == 0;
}

}  // namespace

std::vector<std::string> kpe_state_directories() {
    std::vector<std::string> directories;
    const std::string state = kpe_state_directory(), temporary = kpe_env_directory("TMPDIR");
    if (!state.empty()) directories.push_back(state);
    directories.push_back((temporary.empty() ? "/tmp" : temporary) + "/");
    return directories;
}

FileHandle kpe_make_state_file(const std::string& prefix, std::string& path) {
    FileHandle file;
    for (const std::string& directory : kpe_state_directories())
        if (file = make_file(directory, prefix, path); file.is_open()) break;
    return file;
}

// The order: safety copy written, synced with its directory, new bytes written over the old, length set,
// synced, safety copy removed. Until the last step a crash leaves the old text in the safety copy.
bool kpe_overwrite(const Overwrite& files, const std::string& label, std::string& kept) {
    struct stat old, text;
    if (fstat(files.old, &old) != 0 || fstat(files.text, &text) != 0) return false;
    const SignalHold hold;
    SafetyCopy copy;
    if (!copy.make(files.old, old.st_size, label)) return false;

    const bool done = write_over(files, old.st_size, text.st_size);
    const int error = errno;
    if (done || put_back(files, copy.fd(), old.st_size))
        copy.remove();
    else
        kept = copy.path();

    // Writing may have taken special mode bits away; only the owner can give them back.
    if (fstat(files.target, &text) == 0 && text.st_mode != old.st_mode) fchmod(files.target, old.st_mode & 07777);
    errno = error;
    return done;
}
