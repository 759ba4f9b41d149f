#include "editor/line_history.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

#include "files/file_handle.h"
#include "files/state_directory.h"
#include "system/ascii.h"

namespace {

constexpr size_t MOST_LINES = 1000;
constexpr size_t LONGEST_LINE = 4096;            // bytes; a longer one is not kept in the file
constexpr off_t LARGEST_FILE = off_t{16} << 20;  // bytes; nothing of ours is larger

std::string history_path() {
    const std::vector<std::string> directories = kpe_state_directories();
    return directories.empty() ? "" : directories.front() + "history";
}

// A file of somebody else could be one that a link leads to, and a pipe would keep us waiting.
FileHandle open_history(int flags) {
    const std::string path = history_path();
    if (path.empty()) return {};
    if (flags & O_CREAT) kpe_make_directories(path);
    FileHandle file(open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
    struct stat st;
    const bool ours = file.is_open() && fstat(file.fd(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() &&
                      st.st_nlink == 1 && st.st_size <= LARGEST_FILE;
    return ours ? std::move(file) : FileHandle();
}

std::vector<std::string> lines_of(int fd) {
    std::string text;
    std::array<char, 64 * 1024> piece;
    for (;;) {
        const ssize_t n =
            kpe_retry([&] { return pread(fd, piece.data(), piece.size(), static_cast<off_t>(text.size())); });
        if (n <= 0) break;
        text.append(piece.data(), static_cast<size_t>(n));
    }
    std::vector<std::string> lines;
    for (size_t from = 0; from < text.size();) {
        const size_t end = std::min(text.find('\n', from), text.size());
        if (end > from) lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return lines;
}

// Of equal lines the last one stays.
void drop_repeated(std::vector<std::string>& lines) {
    std::unordered_set<std::string_view> seen;
    std::vector<std::string> newest_first;
    for (auto line = lines.rbegin(); line != lines.rend() && seen.size() < MOST_LINES; ++line)
        if (seen.insert(*line).second) newest_first.push_back(*line);
    lines.assign(newest_first.rbegin(), newest_first.rend());
}

}  // namespace

void LineHistory::add(const std::string& line) {
    if (line.empty() || kpe_is_space(line.front())) return;
    typed_.push_back(line);
    if (typed_.size() >= 2 * MOST_LINES) drop_repeated(typed_);
    std::erase(all_, line);
    all_.push_back(line);
    if (all_.size() > MOST_LINES) all_.erase(all_.begin());
}

const std::vector<std::string>& LineHistory::lines() {
    if (read_) return all_;
    read_ = true;
    const FileHandle file = open_history(O_RDONLY);
    std::vector<std::string> lines = file.is_open() ? lines_of(file.fd()) : std::vector<std::string>();
    lines.insert(lines.end(), typed_.begin(), typed_.end());
    drop_repeated(lines);
    all_ = std::move(lines);
    return all_;
}

void LineHistory::save() {
    std::erase_if(typed_, [](const std::string& line) { return line.size() > LONGEST_LINE; });
    if (typed_.empty()) return;
    const FileHandle file = open_history(O_RDWR | O_CREAT);
    // Two sessions may end at the same time. Whoever holds the lock for long is no session of ours.
    if (!file.is_open() || fchmod(file.fd(), 0600) != 0) return;
    for (int tries = 0; flock(file.fd(), LOCK_EX | LOCK_NB) != 0; ++tries) {
        if (tries == 20) return;
        usleep(5000);
    }
    std::vector<std::string> lines = lines_of(file.fd());
    lines.insert(lines.end(), typed_.begin(), typed_.end());
    typed_.clear();
    drop_repeated(lines);
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    if (kpe_write_all(file.fd(), text, {}))  // at the start: nothing was read or written at the file's own position
        static_cast<void>(!ftruncate(file.fd(), static_cast<off_t>(text.size())));
}
