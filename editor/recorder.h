#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "buffer/line_store.h"
#include "buffer/text_change.h"
#include "files/session_log.h"
#include "system/idle.h"

// Keeps the session log: after each key and each command it is told of the texts, and writes what has changed. It finds
// the changes by comparing each text with the one before, so it does not matter what has made them, and an undo is a
// change like any other.
//
// There is no log before the first change. What cannot be written is given up for the rest of the session.
class SessionRecorder {
public:
    SessionRecorder() = default;

    // A text was loaded from the file that head names, or was written to it. An older log has served its purpose and
    // goes; the next change begins a new one. No head.path: the text has no file.
    void begin(LogHead head, const LineStore& text);
    // A text that buffer holds already and that is no change of this session: it is logged when it changes.
    void leave_out(const std::string& buffer, const LineStore& text);
    // A file that was read into a buffer: what the log says of its rows is where they stand in the file.
    void add_source(const std::string& path, const FileState& file, const LineStore& text);
    // Whether a reader of the file that the text is written to gets these lines: none holds a line break or ends in a
    // carriage return. Rows that were read from a file are not looked at.
    bool reads_back(const LineStore& text) const;
    // The file path is about to be written, so that its rows will not be found there any more.
    void forget_source(const std::string& path);
    // Nothing is recorded any more. The log, if there is one, stays as it is.
    void give_up();
    bool is_on() const { return on_; }
    // Whether something was recorded since begin().
    bool has_log() const { return log_.is_open(); }

    // Notes what has become of the text of a buffer. MAIN is the one of the file.
    void note(const std::string& buffer, const LineStore& text);
    // Writes what was noted. Returns false with errno set if that failed; nothing is recorded then any more.
    bool commit();
    // Waits until the log is on the disk. Returns false if it does not get there.
    bool sync_now() { return log_.sync_now(); }
    // The text, which was noted before, is about to be written to its file.
    void note_saving(const LineStore& text);
    // The session ends, and its log with it. rescue_files: where the texts lie, for LogEnd::Rescued.
    void end(LogEnd how, const std::vector<std::string>& rescue_files = {});
    void remove();

private:
    struct Buffer {
        size_t number = 0;
        LineStore text;      // as it was logged last, or as it was left out
        bool known = false;  // whether the log has its name
        bool left_out = false;
    };
    struct Source {
        std::string path;
        FileState file;
        LineStore text;
        bool in_log = false;
    };

    bool make();
    void add_change(const std::string& name, Buffer& buffer, const LineStore& text);
    void list_sources();
    void add_sources(const std::vector<size_t>& used);
    void renew();
    void hash_some();
    void sync();

    bool on_ = false;
    LogHead head_;
    LineStore base_;
    SessionLog log_;
    SourceTexts sources_;
    std::vector<Source> sources_of_log_;  // by number; number 0 is the base
    std::map<std::string, Buffer> buffers_;
    int64_t last_time_ = 0;    // of the newest record, in milliseconds since 1970
    uint64_t most_bytes_ = 0;  // of the log; beyond that it is begun anew
    int why_not_ = 0;          // an errno: why there is no log, until commit() tells
    size_t hashed_rows_ = 0;
    uint32_t hash_ = 0;
    IdleWork sync_{[this] { sync(); }};
    IdleWork hashing_{[this] { hash_some(); }};
    IdleWork tidying_{[this] { kpe_tidy_logs(kpe_recovery_directory(head_.path)); }};
};
