#include "files/session_log.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/file_place.h"
#include "files/rescue_file.h"
#include "files/state_directory.h"
#include "files/sync_later.h"
#include "system/crc32c.h"
#include "system/packed.h"

namespace {

constexpr size_t SUM_SIZE = 4;  // bytes of a checksum

struct Suffix {
    std::string_view text;
    LogEnd end;
};
constexpr Suffix SUFFIXES[] = {
    {".log", LogEnd::Killed},
    {".discarded", LogEnd::Discarded},
    {".rescued", LogEnd::Rescued},
};

const Suffix* suffix_of(std::string_view name) {
    const auto found = std::find_if(std::begin(SUFFIXES), std::end(SUFFIXES),
                                    [&](const Suffix& suffix) { return name.ends_with(suffix.text); });
    return found == std::end(SUFFIXES) ? nullptr : &*found;
}

std::string front_of_name(const std::string& edited) { return kpe_safe_name(edited.substr(edited.rfind('/') + 1)); }

// Whether name could be that of a log of the file: its name, a dot, what kpe_unlikely_name adds, and a suffix.
bool belongs_to(std::string_view name, const std::string& edited) {
    const Suffix* const suffix = suffix_of(name);
    const std::string front = front_of_name(edited) + ".";
    if (!suffix || !name.starts_with(front)) return false;
    name.remove_suffix(suffix->text.size());
    return name.find_first_not_of("0123456789abcdef-", front.size()) == name.npos;
}

bool later(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

std::optional<LogFile> log_file(int directory, const std::string& path, const char* name) {
    const Suffix* const suffix = suffix_of(name);
    if (!suffix) return std::nullopt;
    const FileHandle file(openat(directory, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat st;
    if (!file.is_open() || fstat(file.fd(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid())
        return std::nullopt;
    const bool live = flock(file.fd(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    return LogFile{path + name, suffix->end, live, st.st_mtim, static_cast<uint64_t>(st.st_size)};
}

}  // namespace

std::string kpe_pack_file(const FileState& file) {
    std::string packed;
    for (const uint64_t number :
         {uint64_t{file.dev}, uint64_t{file.ino}, static_cast<uint64_t>(file.size),
          static_cast<uint64_t>(file.modified.tv_sec), static_cast<uint64_t>(file.modified.tv_nsec),
          static_cast<uint64_t>(file.changed.tv_sec), static_cast<uint64_t>(file.changed.tv_nsec), uint64_t{file.type}})
        kpe_pack(packed, number);
    return packed;
}

FileState kpe_unpack_file(Unpacker& from) {
    FileState file;
    file.dev = from.number();
    file.ino = from.number();
    file.size = static_cast<off_t>(from.number());
    file.modified.tv_sec = static_cast<time_t>(from.number());
    file.modified.tv_nsec = static_cast<long>(from.number());
    file.changed.tv_sec = static_cast<time_t>(from.number());
    file.changed.tv_nsec = static_cast<long>(from.number());
    file.type = static_cast<mode_t>(from.number());
    return file;
}

std::string LogHead::packed() const {
    std::string packed;
    kpe_pack(packed, path);
    packed += kpe_pack_file(file);
    for (const bool flag : {from_file, line_ends_same, returns, open_end}) kpe_pack(packed, uint64_t{flag});
    kpe_pack(packed, host);
    kpe_pack(packed, static_cast<uint64_t>(started));
    return packed;
}

std::optional<LogHead> LogHead::unpack(std::string_view content) {
    Unpacker from(content);
    LogHead head;
    head.path = from.text();
    head.file = kpe_unpack_file(from);
    for (bool* flag : {&head.from_file, &head.line_ends_same, &head.returns, &head.open_end})
        *flag = from.number() != 0;
    head.host = from.text();
    head.started = static_cast<int64_t>(from.number());
    if (!from.good()) return std::nullopt;
    return head;
}

// --- Writing ---

bool SessionLog::make(const std::string& directory, const std::string& edited) {
    const FileHandle open_directory = kpe_open_private_directory(directory);
    if (!open_directory.is_open()) return false;
    constexpr int FLAGS = O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    std::string name;
    file_ = FileHandle(kpe_with_new_name(front_of_name(edited) + ".", name, [&](const char* unlikely) {
        return kpe_retry(
            [&] { return openat(open_directory.fd(), (std::string(unlikely) + ".log").c_str(), FLAGS, 0600); });
    }));
    if (!file_.is_open()) return false;
    path_ = directory + name + ".log";
    fchmod(file_.fd(), 0600);  // whatever the umask
    // Somebody who looks whether the session lives may hold the lock, but only for a moment.
    kpe_retry([&] { return flock(file_.fd(), LOCK_EX); });
    directory_synced_ = false;
    size_ = 0;
    gathered_ = KPE_LOG_MAGIC;
    sum_ = kpe_crc32c(gathered_);
    return true;
}

void SessionLog::add(LogRecord kind, std::string_view content) {
    std::string front;
    kpe_pack(front, uint64_t{content.size() + 1});
    front += static_cast<char>(kind);
    sum_ = kpe_crc32c(content, kpe_crc32c(front, sum_));
    for (size_t byte = 0; byte < SUM_SIZE; ++byte) gathered_ += static_cast<char>(sum_ >> 8 * byte);
    gathered_ += front;
    gathered_ += content;
}

bool SessionLog::write() {
    if (gathered_.empty()) return true;
    if (!kpe_write_all(file_.fd(), gathered_, {})) {
        const int error = errno;
        kpe_retry([&] { return ftruncate(file_.fd(), static_cast<off_t>(size_)); });
        gathered_.clear();
        sum_ = written_sum_;
        errno = error;
        return false;
    }
    size_ += gathered_.size();
    written_sum_ = sum_;
    if (gathered_.capacity() > size_t{1} << 20)
        gathered_ = std::string();
    else
        gathered_.clear();
    return true;
}

bool SessionLog::sync_later() {
    if (!directory_synced_) {
        const FileHandle directory(open(path_.substr(0, path_.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        directory_synced_ = !directory.is_open() || kpe_sync_later(directory.fd());
    }
    return kpe_sync_later(file_.fd()) && directory_synced_;
}

bool SessionLog::sync_now() {
    const FileHandle directory(open(path_.substr(0, path_.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return kpe_sync(file_.fd()) == 0 && (!directory.is_open() || kpe_sync(directory.fd()) == 0);
}

void SessionLog::end(LogEnd how) {
    if (!is_open()) return;
    write();
    fdatasync(file_.fd());
    const std::string_view suffix =
        std::find_if(std::begin(SUFFIXES), std::end(SUFFIXES), [&](const Suffix& row) { return row.end == how; })->text;
    const std::string path = path_.substr(0, path_.rfind('.')) + std::string(suffix);
    if (path != path_) rename(path_.c_str(), path.c_str());
    file_ = FileHandle();
}

void SessionLog::remove() {
    if (!is_open()) return;
    unlink(path_.c_str());
    gathered_.clear();
    file_ = FileHandle();
}

// --- Reading ---

LogReader::LogReader(std::string_view bytes) {
    if (!bytes.starts_with(KPE_LOG_MAGIC)) return;
    left_ = bytes.substr(KPE_LOG_MAGIC.size());
    sum_ = kpe_crc32c(KPE_LOG_MAGIC);
}

std::optional<LogReader::Record> LogReader::next() {
    if (left_.size() < SUM_SIZE) return std::nullopt;
    uint32_t sum = 0;
    for (size_t byte = 0; byte < SUM_SIZE; ++byte) sum |= uint32_t{static_cast<unsigned char>(left_[byte])} << 8 * byte;
    const std::string_view framed = left_.substr(SUM_SIZE);
    Unpacker from(framed);
    const std::string_view body = from.text();
    if (!from.good() || body.empty()) return std::nullopt;
    const std::string_view whole = framed.substr(0, framed.size() - from.left().size());
    damaged_ = kpe_crc32c(whole, sum_) != sum;
    if (damaged_) return std::nullopt;
    sum_ = sum;
    left_ = from.left();
    return Record{static_cast<LogRecord>(body.front()), body.substr(1)};
}

// --- The directory ---

std::vector<LogFile> kpe_list_logs(const std::string& directory, const std::string& edited) {
    std::vector<LogFile> logs;
    kpe_each_entry(directory, [&](int fd, const char* name) {
        if (!edited.empty() && !belongs_to(name, edited)) return;
        if (auto log = log_file(fd, directory, name)) logs.push_back(std::move(*log));
    });
    std::sort(logs.begin(), logs.end(), [](const LogFile& a, const LogFile& b) { return later(a.changed, b.changed); });
    return logs;
}

void kpe_tidy_logs(const std::string& directory) {
    constexpr time_t DAY = 24 * 60 * 60;
    constexpr uint64_t MOST = uint64_t{256} << 20, MOST_DISCARDED = uint64_t{64} << 20;  // bytes
    constexpr size_t MOST_LOGS = 64;
    const time_t now = std::time(nullptr);
    uint64_t all = 0, discarded = 0;
    size_t count = 0;
    for (const LogFile& log : kpe_list_logs(directory)) {
        const bool is_discarded = log.end == LogEnd::Discarded;
        const time_t age = now - log.changed.tv_sec;
        const bool newest = count == 0;
        ++count;
        all += log.size;
        if (is_discarded) discarded += log.size;
        const bool old = age > (is_discarded ? 7 : 30) * DAY;
        const bool too_many =
            !newest && (count > MOST_LOGS || all > MOST || (is_discarded && discarded > MOST_DISCARDED));
        if (!log.live && (old || too_many)) unlink(log.path.c_str());
    }
}

// The execute bit says it: it needs no file system with attributes, and does not change the time of modification.
void kpe_note_log_told(const std::string& path) { chmod(path.c_str(), 0700); }

bool kpe_is_log_told(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && (st.st_mode & S_IXUSR) != 0;
}

std::string kpe_recovery_directory(const std::string& path) {
    std::vector<std::string> directories = kpe_state_directories();
    if (kpe_lives_in_memory(path)) {
        if (kpe_must_not_leave_memory(path)) return "";
        kpe_keep_in_memory(directories);
        const std::string runtime = kpe_env_directory("XDG_RUNTIME_DIR");
        if (!runtime.empty() && kpe_lives_in_memory(runtime)) directories.push_back(runtime + "/kpe/");
    }
    return directories.empty() ? "" : directories.front() + "recovery/";
}
