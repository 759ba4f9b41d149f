#include "files/journal_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/file_place.h"
#include "files/rescue_file.h"
#include "files/safety_copy.h"
#include "files/state_directory.h"
#include "files/sync_later.h"

namespace {

constexpr int TRIES = 10;  // to open a name that others remove at the same time
constexpr mode_t OTHERS_WRITE = S_IWGRP | S_IWOTH;
constexpr const char* FOREIGN_LINK = "is a link of somebody else";
constexpr size_t LONGEST_LABEL = 100;  // bytes

// Symbolic links are followed only if they are the user's own: others' may lead anywhere.
bool is_foreign_link(const std::string& path) {
    struct stat link;
    return lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode) && link.st_uid != geteuid();
}

// A pipe or a device is never waited for.
FileHandle open_file(const std::string& path, bool make) {
    const int flags = O_RDWR | O_APPEND | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (make ? O_CREAT : 0);
    return FileHandle(kpe_retry([&] { return open(path.c_str(), flags, 0600); }));
}

// The directory in front of the name.
std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == path.npos ? "." : path.substr(0, slash + 1);
}

// The same in every session and on every machine: FNV-1a.
uint64_t hash_of(std::string_view text) {
    uint64_t hash = 14695981039346656037u;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return hash;
}

// Why the open file is not private to this user, in words that follow "it"; empty if it is.
std::string not_private(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) return "cannot be looked at";
    if (!S_ISREG(st.st_mode)) return "is no regular file";
    if (st.st_uid != geteuid()) return "belongs to somebody else";
    if ((st.st_mode & OTHERS_WRITE) != 0) return "may be written by others";
    if (st.st_nlink > 1) return "has further names";
    return {};
}

}  // namespace

std::string kpe_private_journal(const std::string& edited) {
    const std::vector<std::string> directories = kpe_state_directories();
    if (directories.empty()) return "/dev/null";
    const std::string whole = kpe_absolute_path(edited);
    char digits[20];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash_of(whole)));
    const std::string name = kpe_safe_name(whole.substr(whole.rfind('/') + 1)).substr(0, LONGEST_LABEL);
    return directories.front() + "journal/" + name + "-" + digits + ".jou";
}

FileHandle kpe_open_journal(const std::string& path, std::string& refused) {
    FileHandle file(kpe_retry([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY); }));
    if (!file.is_open()) return file;
    refused = is_foreign_link(path) ? FOREIGN_LINK : not_private(file.fd());
    return refused.empty() ? std::move(file) : FileHandle();
}

JournalFile::Result JournalFile::refuse(const std::string& reason) {
    close();
    reason_ = reason;
    return Result::Refused;
}

bool JournalFile::leads_here(const std::string& path) const {
    struct stat named;
    return is_open() && stat(path.c_str(), &named) == 0 && state_.is_file(kpe_file_state(named));
}

JournalFile::Result JournalFile::open(const std::string& path, bool make) {
    if (is_at(path)) return Result::Done;
    close();
    if (is_foreign_link(path)) return refuse(std::string("it ") + FOREIGN_LINK);
    for (int tries = 0; tries < TRIES; ++tries) {
        struct stat before;
        const bool new_name = stat(path.c_str(), &before) != 0;
        if (!new_name && !S_ISREG(before.st_mode)) return refuse("it is no regular file");
        file_ = open_file(path, make);
        if (!is_open()) return Result::Failed;
        const std::string reason = not_private(file_.fd());
        if (!reason.empty()) return refuse("it " + reason);
        if (flock(file_.fd(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            return refuse("another session is using it");
        struct stat now;
        if (fstat(file_.fd(), &now) != 0) return Result::Failed;
        state_ = kpe_file_state(now);
        if (!leads_here(path)) continue;  // whoever had it locked has removed it
        if ((now.st_mode & 07777) != 0600) fchmod(file_.fd(), 0600);
        path_ = path;
        made_ = new_name;
        const auto left = left_.find(path);
        const bool as_left = left != left_.end() && left->second.size == now.st_size && left->second.ino == now.st_ino;
        old_size_ = as_left ? left->second.old_size : now.st_size;
        return Result::Done;
    }
    return refuse("it comes and goes");
}

// Half a line would become another command with the next one behind it.
JournalFile::Result JournalFile::append(std::string_view line) {
    struct stat before;
    if (fstat(file_.fd(), &before) != 0) return Result::Failed;
    if (kpe_write_all(file_.fd(), line, "\n")) return Result::Done;
    const int error = errno;
    kpe_retry([&] { return ftruncate(file_.fd(), before.st_size); });
    errno = error;
    return Result::Failed;
}

JournalFile::Result JournalFile::remove(const std::string& path, const FileState& replayed, std::string& kept) {
    const Result opened = open(path, /*make=*/false);
    if (opened != Result::Done) return opened == Result::Failed && errno == ENOENT ? Result::Done : opened;
    const bool all_replayed = kpe_file_state(file_.fd()).is_file(replayed) && old_size_ <= replayed.size;
    if (!all_replayed && old_size_ > 0) {
        const std::string name = path.substr(path.rfind('/') + 1).substr(0, LONGEST_LABEL) + ".";
        if (!kpe_keep_copy(file_.fd(), name, kept, old_size_)) return Result::Failed;
    }
    const bool removed = unlink(path.c_str()) == 0;
    const int error = errno;
    close();
    errno = error;
    return removed ? Result::Done : Result::Failed;
}

bool JournalFile::sync() {
    if (!is_open()) return true;
    if (!kpe_sync_later(file_.fd())) return errno != EAGAIN;
    if (!made_) return true;
    const FileHandle directory(::open(directory_of(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    made_ = directory.is_open() && !kpe_sync_later(directory.fd()) && errno == EAGAIN;
    return !made_;
}

void JournalFile::close() {
    struct stat st;
    if (!path_.empty() && fstat(file_.fd(), &st) == 0) left_[path_] = {st.st_ino, st.st_size, old_size_};
    file_ = FileHandle();
    path_.clear();
    old_size_ = 0;
    made_ = false;
}
