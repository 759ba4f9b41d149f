#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "buffer/file_handle.h"
#include "config/n3_rzconfig.h"
#include "editor/kpe.h"
#include "editor/report.h"

namespace {

// Whether the name is a symbolic link that somebody else made: one that may lead us anywhere.
bool is_foreign_link(const std::string& path) {
    struct stat link;
    return lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode) && link.st_uid != geteuid();
}

// Opens the journal for appending, created for its owner alone; -1 if that cannot be. Symbolic links are
// followed only if they are the user's own; a pipe or a device is no journal, and never waited for.
int open_journal(const std::string& path) {
    constexpr int FLAGS = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    int fd = kpe_retry([&] { return open(path.c_str(), FLAGS | O_NOFOLLOW, 0600); });
    if (fd < 0 && errno == ELOOP) {
        if (is_foreign_link(path)) return -1;
        fd = open(path.c_str(), FLAGS, 0600);
    }
    struct stat st;
    if (fd >= 0 && (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        close(fd);
        return -1;
    }
    return fd;
}

// Adds the whole line or nothing: half a line would become another command with the next one behind it.
void add_line(int fd, const std::string& line) {
    struct stat before;
    if (fstat(fd, &before) != 0 || kpe_write_all(fd, line, "\n")) return;
    kpe_retry([&] { return ftruncate(fd, before.st_size); });
}

}  // namespace

std::string Editor::journal_path() const {
    if (journal_override_ && !journal_override_->empty()) return *journal_override_;
    return filename_.empty() ? ".kpe.jou" : filename_ + ".jou";
}

// Each line is in the file before it is executed. The file stays open, but a name that leads elsewhere by now
// (removed, renamed, or another file is edited) is opened anew.
void Editor::append_journal_line(const std::string& line) {
    if (is_comment_or_blank(line)) return;
    const std::string path = journal_path();
    struct stat st;
    const bool still_there = journal_.fd >= 0 && journal_.path == path && kpe_stat(path.c_str(), &st) == 0 &&
                             st.st_dev == journal_.dev && st.st_ino == journal_.ino;
    if (!still_there) {
        if (journal_.fd >= 0) close(journal_.fd);
        journal_ = {path, open_journal(path), 0, 0};
        if (journal_.fd < 0 || fstat(journal_.fd, &st) != 0) return;
        journal_.dev = st.st_dev;
        journal_.ino = st.st_ino;
    }
    add_line(journal_.fd, line);
}

void Editor::try_recover_journal() {
    const std::string path = journal_path();
    if (file_exists(path) && !is_foreign_link(path)) {
        kpe_say(true, "Recovering from " + path);
        run_command_file(path, /*verbose=*/true);
    } else {
        kpe_complain(true, "No journal file: " + path);
    }
}

// Only a file that could be a journal goes: somebody may have named a pipe, or /dev/null to have none.
void Editor::delete_journal_file() {
    const std::string path = journal_path();
    if (file_exists(path)) unlink(path.c_str());
}
