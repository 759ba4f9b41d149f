#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <unistd.h>

#include "buffer/write_rows.h"
#include "config/n3_rzconfig.h"
#include "editor/kpe.h"
#include "files/file_writer.h"
#include "files/rescue_file.h"
#include "system/file_work.h"
#include "system/interrupts.h"
#include "system/process.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

// Runs that lie at the same place are the same bytes: a store that was changed a little is compared fast.
bool same_text(const LineStore& a, const LineStore& b) {
    if (a.size() != b.size()) return false;
    for (size_t row = 0; row < a.size();) {
        const LineRun in_a = a.run_from(row), in_b = b.run_from(row);
        const size_t end = row + std::min(in_a.rows, in_b.rows);
        const bool shared = in_a.terminated && in_b.terminated && in_a.bytes.data() == in_b.bytes.data();
        for (; row < end && !shared; ++row)
            if (a.view(row) != b.view(row)) return false;
        row = end;
    }
    return true;
}

}  // namespace

void Editor::note_on_disk(const TextBuffer& buffer) {
    if (&buffer == &buffer_) on_disk_[current_buffer_name_] = buffer.lines();
    for (const auto& [name, stored] : buffers_)
        if (&buffer == &stored) on_disk_[name] = buffer.lines();
}

void Editor::overlook_unchanged_text() {
    struct stat now;
    const auto known = on_disk_.find("MAIN");
    if (known == on_disk_.end() || kpe_stat(filename_.c_str(), &now) != 0 || !S_ISREG(now.st_mode)) return;
    if (kpe_file_state(now) == edited_file_ || now.st_size != edited_file_.size) return;
    TextBuffer file;
    file.load(filename_, &g_kpe_abort_requested, line_ends());
    const bool whole = file.load_state() == TextBuffer::Load::Whole;
    if (whole && same_text(file.lines(), known->second)) edited_file_ = file.loaded_file();
}

bool Editor::holds_edited_text(const LineStore& lines) const {
    struct stat now;
    const bool gone = edited_file_ != FileState() && kpe_stat(filename_.c_str(), &now) != 0;
    try {
        return !gone && edited_text_ && same_text(*edited_text_, lines);
    } catch (const std::bad_alloc&) {
        return false;  // as in is_only_here
    }
}

const TextBuffer& Editor::newest_text(const std::string& name) const {
    return name == current_buffer_name_ ? buffer_ : buffers_.at(name);
}

bool Editor::is_only_here(const std::string& name) const {
    const TextBuffer& text = newest_text(name);
    if (text.line_count() == 1 && text.length(0) == 0) return false;
    const auto known = on_disk_.find(name);
    try {
        return known == on_disk_.end() || !same_text(known->second, text.lines());
    } catch (const std::bad_alloc&) {
        return true;  // long lines of the older text are kept as differences: there is no memory to compare
    }
}

void Editor::keep_text(const std::string& name) {
    if (!is_only_here(name)) return;
    const LineStore& lines = newest_text(name).lines();
    RescuedText kept = kpe_rescue_text(filename_, name, [&](int fd) { return kpe_write_rows(fd, lines); });
    const std::string text = "the text of " + kpe_safe_name(name);
    std::string message = "?Unable to keep " + text + ": " + std::strerror(kept.error);
    lost_some_ |= !kept.whole;
    if (kept.file.is_open())
        message = (kept.whole ? "T" + text.substr(1) : "?Only a part of " + text) + " is kept in " + kept.path;
    rescued_.push_back({std::move(kept.file), kept.path, message});
    on_disk_[name] = lines;  // or nowhere: it was told, and is not tried again
}

void Editor::keep_texts() {
    keep_text(current_buffer_name_);
    for (const auto& [name, text] : buffers_) keep_text(name);
}

void Editor::tell_user(const std::string& message) {
    if (isatty(STDERR_FILENO) == 0) return;
    if (g_curses_active) message_ = message;
    if (!kpe_at_line_start() && isatty(STDOUT_FILENO) != 0) kpe_end_line();
    kpe_warn(message);
}

void Editor::tell_kept() {
    for (const Rescued& text : rescued_) tell_user(text.message);
    for (const Rescued& text : rescued_)
        if (text.file.is_open()) fsync(text.file.fd());
    rescued_.clear();
}

void Editor::tell_left_behind() const {
    if (isatty(STDERR_FILENO) == 0) return;
    std::string names;
    size_t count = 0;
    for (const auto& [name, text] : buffers_) {
        const auto macro = macro_texts_.find(name);
        const bool as_defined = macro != macro_texts_.end() && same_text(macro->second, newest_text(name).lines());
        if (name == "MAIN" || name == "PASTE" || as_defined || !is_only_here(name)) continue;
        names += (count++ > 0 ? ", " : " ") + kpe_safe_name(name);
    }
    if (count > 0) kpe_warn(std::string("?Not saved, and gone now: ") + (count > 1 ? "buffers" : "buffer") + names);
}

bool Editor::rescue() {
    try {
        undo_stack_.clear();  // there may be no memory left, and nothing will be undone any more
        redo_stack_.clear();
        keep_texts();
        end_recording_rescued();
        tell_kept();
        return !lost_some_;
    } catch (const std::exception&) {
        return false;  // there is nothing left to try
    }
}

Editor* Editor::after_crash_ = nullptr;

void Editor::rescue_after_crash() {
    try {
        after_crash_->keep_texts();
        after_crash_->tell_kept();
    } catch (const std::exception&) {
        // There is nothing left to try.
    }
}

void Editor::obey_end_signal() {
    if (g_kpe_end_signal == 0 || g_curses_active) return;
    rescue();
    keep_history();
    kpe_end_by_signal();
}
