#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_handle.h"

// A session log: what a session has changed since its file was last loaded or saved, so that nothing is lost when the
// session is killed. It lies in recovery/ below the first of kpe_state_directories().
//
// The file begins with KPE_LOG_MAGIC. Records follow: a CRC-32C (four bytes, the lowest first), the size of what
// follows (packed, see packed.h), one byte for the kind, and the content. The checksum continues that of the record in
// front, so that a record that is missing, doubled or of another log is noticed. A reader steps over records of a kind
// that it does not know.
enum class LogRecord : char {
    Head = 'B',     // the file and how it was read; see LogHead
    Base = 'H',     // checksum of the file's text
    Source = 'F',   // another text that changes refer to
    Buffer = 'N',   // the name of a buffer
    Change = 'T',   // what was changed in a buffer
    Saving = 'S',   // the text is about to be written to the file
    Rescued = 'R',  // the path of a rescue file, to which the text was written at the end
};
inline constexpr std::string_view KPE_LOG_MAGIC = "kpe session log 1\n";

// How a session ended, as the name of its log says.
enum class LogEnd { Killed, Discarded, Rescued };

// What a log says of the file that was edited.
struct LogHead {
    std::string path;  // absolute; "" if the text has no file
    FileState file;    // as it was when it was loaded or saved; all 0 if there was none
    // Whether the text was what a reader of the file gets. Otherwise the log holds the whole text as its first change.
    bool from_file = true;
    // How the file is read and written: see TextBuffer::LineEnds and TextForm.
    bool line_ends_same = false, returns = false, open_end = false;
    std::string host;     // where the session runs
    int64_t started = 0;  // milliseconds since 1970

    std::string packed() const;
    static std::optional<LogHead> unpack(std::string_view content);
};

std::string kpe_pack_file(const FileState& file);

class Unpacker;
FileState kpe_unpack_file(Unpacker& from);

// The log of this session. It is locked while it is open.
class SessionLog {
public:
    // Makes a new file in the directory, which is made if it is missing. Returns false with errno set if that fails.
    bool make(const std::string& directory, const std::string& edited);
    bool is_open() const { return file_.is_open(); }
    const std::string& path() const { return path_; }
    uint64_t size() const { return size_; }

    // Records are gathered by add() and written, in one call, by write(). If that fails it returns false with errno
    // set, and the file is as it was before.
    void add(LogRecord kind, std::string_view content);
    bool write();
    // Asks the kernel to write everything to disk and does not wait for it. Returns false if that has to be asked for
    // again later.
    bool sync_later();
    // Writes everything to disk, and waits for it. Returns false with errno set if that failed.
    bool sync_now();

    // Closes the file after a last sync, for which it waits, and gives it the name that says how the session ended.
    void end(LogEnd how);
    void remove();

private:
    FileHandle file_;
    std::string path_, gathered_;
    uint64_t size_ = 0;
    uint32_t sum_ = 0, written_sum_ = 0;  // checksum of the last record, gathered or written
    bool directory_synced_ = false;
};

// Reads records one by one. The bytes must stay.
class LogReader {
public:
    explicit LogReader(std::string_view bytes);
    struct Record {
        LogRecord kind;
        std::string_view content;
    };
    // Nothing at the end, and before bytes that are no whole record.
    std::optional<Record> next();
    size_t unread() const { return left_.size(); }  // bytes
    // Whether what is left begins with a record that is all there, but not as it was written. The last record of a
    // session that was killed may be there in part only: that is no damage.
    bool is_damaged() const { return damaged_; }

private:
    std::string_view left_;
    uint32_t sum_ = 0;
    bool damaged_ = false;
};

// A log in the directory.
struct LogFile {
    std::string path;
    LogEnd end = LogEnd::Killed;
    bool live = false;  // a session has it open
    timespec changed{};
    uint64_t size = 0;
};
// The logs in the directory, the newest first; only those of files with this name if edited is not "". Files of others,
// links and what else may lie there are left out.
std::vector<LogFile> kpe_list_logs(const std::string& directory, const std::string& edited = "");
// Removes logs that nobody will want: discarded ones after 7 days, and the oldest above 64 MB of these; any after 30
// days, and the oldest above 64 logs or 256 MB. The logs of living sessions stay.
void kpe_tidy_logs(const std::string& directory);
// Makes the log one that no session at a terminal tells of any more.
void kpe_note_log_told(const std::string& path);
bool kpe_is_log_told(const std::string& path);

// Where logs for a text lie whose file has this (absolute) path: a directory with "/" at its end, which may not exist
// yet. "" if there has to be none: there is no home, or the text lives in memory only.
std::string kpe_recovery_directory(const std::string& path);
