#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <unistd.h>

#include "buffer/kept_text.h"
#include "buffer/log_replay.h"
#include "buffer/text_hash.h"
#include "editor/kpe.h"
#include "files/file_place.h"
#include "system/ascii.h"
#include "system/report.h"

namespace {

// A log is repeated at the start, to see whether it says something new, if that takes no time.
constexpr uint64_t SMALL_LOG = uint64_t{2} << 20, SMALL_TEXT = uint64_t{8} << 20;  // bytes

// "14:05" for today, else with the date.
std::string time_of(int64_t milliseconds) {
    const std::time_t then = milliseconds / 1000, now = std::time(nullptr);
    std::tm local{}, today{};
    localtime_r(&then, &local);
    localtime_r(&now, &today);
    const bool is_today = local.tm_year == today.tm_year && local.tm_yday == today.tm_yday;
    char text[32];
    return {text, std::strftime(text, sizeof text, is_today ? "%H:%M" : "%Y-%m-%d %H:%M", &local)};
}

}  // namespace

bool Editor::wants_recording() const {
    if (read_only_ || policy_.never_writes || std::getenv("KPE_NO_RECOVERY")) return false;
    return recovery_ == Recovery::On || (recovery_ == Recovery::AtTerminal && at_terminal_);
}

void Editor::begin_recording() {
    if (!wants_recording()) return recorder_.give_up();
    const auto loaded = on_disk_.find("MAIN");
    const bool whole = buffer_.load_state() != TextBuffer::Load::Broken && !edited_file_.is_special();
    const bool from_file = whole && policy_.read_from.empty() && loaded != on_disk_.end();
    record_from(filename_, edited_file_, from_file ? loaded->second : buffer_.lines(), from_file);
}

void Editor::record_from(const std::string& path, const FileState& file, const LineStore& text, bool from_file) {
    LogHead head;
    head.path = policy_.read_from.empty() ? kpe_absolute_path(path) : "";
    head.file = file;
    head.from_file = from_file;
    head.line_ends_same = line_ends() == TextBuffer::LineEnds::Same;
    head.returns = file_form_.returns;
    head.open_end = file_form_.open_end;
    recorder_.begin(head, text);
}

void Editor::record_saved(const std::string& path, const FileState& file, const LineStore& text, bool as_it_is) {
    if (older_log_ && as_it_is && older_log_->text == kpe_text_hash(text)) {  // by the journal, or typed once more
        kpe_note_log_told(older_log_->path);
        older_log_.reset();
    }
    if (!recorder_.is_on()) return;
    // An empty last line without a line end cannot be told from none.
    const bool lost_line = file_form_.open_end && text.size() > 1 && text.length(text.size() - 1) == 0;
    record_from(path, file, text, as_it_is && !file.is_special() && !lost_line && recorder_.reads_back(text));
}

void Editor::record_changes() {
    if (!recorder_.is_on()) return;
    try {
        recorder_.note(current_buffer_name_, buffer_.lines());
        for (const auto& [name, text] : buffers_)
            if (name != current_buffer_name_) recorder_.note(name, text.lines());
        commit_record();
    } catch (const std::bad_alloc&) {
        give_up_recording();
    }
}

void Editor::give_up_recording() {
    recorder_.give_up();
    tell_user("?No recovery log from here on: not enough memory");
}

void Editor::commit_record() {
    if (!recorder_.commit()) tell_user(std::string("?No recovery log from here on: ") + std::strerror(errno));
}

void Editor::record_source(const std::string& path, const FileState& file, const LineStore& text) {
    if (!file.is_special()) recorder_.add_source(kpe_absolute_path(path), file, text);
}

void Editor::record_ahead(const std::string& name, const TextBuffer& text) try {
    if (!recorder_.is_on()) return;
    recorder_.note(name, text.lines());
    commit_record();
} catch (const std::bad_alloc&) {
    give_up_recording();
}

bool Editor::discards_text() const {
    const auto discards = [this](const auto& buffer) { return buffer.first != "PASTE" && is_only_here(buffer.first); };
    return std::any_of(buffers_.begin(), buffers_.end(), discards);
}

void Editor::end_recording_unsaved() {
    if (!recorder_.has_log()) return;
    if (discards_text())
        recorder_.end(LogEnd::Discarded);
    else
        recorder_.remove();
}

void Editor::end_recording_rescued() {
    if (!recorder_.has_log()) return;
    std::vector<std::string> paths;
    for (const Rescued& text : rescued_) paths.push_back(text.path);
    if (paths.empty() && !lost_some_)
        recorder_.remove();
    else
        recorder_.end(LogEnd::Rescued, paths);
}

void Editor::switch_recovery(Recovery how) {
    recovery_ = how;
    if (recorder_.is_on() == wants_recording()) return;
    recorder_.remove();
    begin_recording();
}

// One line and no question: whoever wants to go on at once is not held up.
void Editor::look_for_unsaved_changes(bool tell) try {
    older_log_.reset();
    if (!wants_recording() || !at_terminal_ || isatty(STDERR_FILENO) == 0 || filename_.empty()) return;
    if (!broken_file_.empty()) return;  // there are worse news
    const std::string path = kpe_absolute_path(filename_), directory = kpe_recovery_directory(path);
    if (directory.empty()) return;
    for (const LogFile& log : kpe_list_logs(directory, path)) {
        if (log.live || kpe_is_log_told(log.path)) continue;
        LogReplay replay;
        if (!replay.open(log.path) || replay.head().path != path || replay.changes() == 0) continue;
        const bool small = log.size <= SMALL_LOG && edited_file_.size <= static_cast<off_t>(SMALL_TEXT);
        const auto text = small && replay.replay() ? replay.only_text() : std::nullopt;
        if (text && *text == kpe_text_hash(replay.file())) continue;
        if (text) older_log_ = {log.path, *text};
        if (!tell) return;
        if (log.end == LogEnd::Discarded) kpe_note_log_told(log.path);

        const std::string message = "?Unsaved changes of " + time_of(replay.newest()) + " in " + filename_ +
                                    ": kpe-recover " + kpe_shell_word(filename_);
        tell_user(message);
        if (policy_.begins_on_screen && message_.empty()) message_ = message;
        return;
    }
} catch (const std::bad_alloc&) {  // whoever has no memory for that has other worries
}

// The texts are in the log of this session, and on the disk, before the older log goes.
void Editor::take_recovered_text() {
    KeptText kept;
    if (!kpe_read_kept_text(policy_.recovers, kept, policy_.recovers_until))
        return set_error("Unable to recover from " + policy_.recovers);
    begin_undo_unit();
    buffer_.set_lines(kept.text);
    for (const auto& [name, text] : kept.others) stored_buffer(name).set_lines(text);
    unit_open_ = false;
    message_ = "Recovered: " + kpe_counted(kept.changes, "change") + ". Not saved yet";
    if (!kept.obstacle.empty()) message_ = "?Recovered only in part: " + kept.obstacle;
    record_changes();
    const bool all = kept.is_log && kept.obstacle.empty() && kept.changes == kept.all_changes;
    if (all && recorder_.has_log() && recorder_.sync_now()) unlink(policy_.recovers.c_str());
}
