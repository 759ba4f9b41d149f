#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

#include "buffer/write_rows.h"
#include "config/n3_rzconfig.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "editor/reasons.h"
#include "files/file_writer.h"
#include "system/file_mapping.h"
#include "system/file_work.h"
#include "system/interrupts.h"
#include "system/process.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

constexpr size_t PIECE = size_t{64} << 10;

bool put_blanks(size_t count, const KpePut& put) {
    const std::string blanks(std::min(count, PIECE), ' ');
    for (; count > 0; count -= std::min(count, PIECE)) {
        if (!put(std::string_view(blanks).substr(0, count))) return false;
    }
    return true;
}

bool put_records(std::string_view text, size_t length, const KpePut& put) {
    do {
        const std::string_view piece = text.substr(0, length);
        text.remove_prefix(piece.size());
        if (!put(piece) || !put_blanks(length - piece.size(), put) || !put("\n")) return false;
    } while (!text.empty());
    return true;
}

// Whether both names lead to one existing file.
bool same_file(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return kpe_stat(a.c_str(), &sa) == 0 && kpe_stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

}  // namespace

std::string Editor::strip_vms_version(const std::string& path) { return n3rz::strip_version(path); }

std::string Editor::resolve_read_path(const std::string& path) const {
    return n3rz::resolve_read_path(path, versioning_);
}

std::string Editor::resolve_write_path(const std::string& path) const {
    return n3rz::resolve_write_path(path, versioning_);
}

bool Editor::apply_rms_lines(const LineStore& lines, const TextForm& form, const KpePut& put) const {
    if (!rms_fixed_ || rms_fixed_len_ <= 0) return kpe_put_rows(lines, form, put);
    for (size_t row = 0; row < lines.size(); ++row) {
        if (!put_records(lines.view(row), static_cast<size_t>(rms_fixed_len_), put)) return false;
    }
    return true;
}

Editor::Written Editor::write_lines_file(const std::string& path, const LineStore& lines, const TextForm& form,
                                         bool must_be_new) {
    why_unwritten_ = "The option -R was given, with which nothing is written";
    if (policy_.never_writes) return Written::Failed;
    kpe_flush();  // the file may be the terminal or the pipe that the output goes to
    note_used_file(path);
    recorder_.forget_source(path);
    commit_record();
    const FileWork work(path);
    FileWriter file;
    const bool edited = path == filename_ || same_file(path, filename_);
    if (edited) overlook_unchanged_text();
    const auto existing = must_be_new ? FileWriter::Existing::Refuse : FileWriter::Existing::Replace;
    if (!file.open(path, existing, &g_kpe_abort_requested, edited ? &edited_file_ : nullptr)) {
        why_unwritten_ = kpe_why_unwritten(errno, path);
        return file.taken() ? Written::Taken : Written::Failed;
    }
    if (policy_.advances_time) file.advance_time();
    if (interruptible_writes_ > 0) file.give_up_when_aborted();
    // Who has asked for the end may lose patience: then they know which file is half written, and where the other is.
    file.before_overwrite([&](const std::string& copy) {
        if (g_kpe_end_signal) tell_user("?Writing " + path + " where it stands; its old text is in " + copy);
    });
    const size_t lost = FileMapping::lost_pages();
    const bool records = rms_fixed_ && rms_fixed_len_ > 0;
    const bool empty_text = !records && lines.size() == 1 && lines.view(0).empty();
    bool good = empty_text || apply_rms_lines(lines, form, [&](std::string_view bytes) { return file.write(bytes); });
    if (lines.empty()) good = file.write("\n");
    if (good && FileMapping::lost_pages() != lost) {  // zeros were written instead
        good = false;
        errno = EFAULT;
    }
    const bool own = edited || strip_vms_version(path) == strip_vms_version(filename_);
    if (good && own) recorder_.note_saving(lines);
    if (!good || !file.commit()) {
        why_unwritten_ = kpe_why_unwritten(errno, path);
        if (!file.safety_copy().empty()) kpe_warn("?The old text is kept in " + file.safety_copy());
        return file.taken() ? Written::Taken : Written::Failed;
    }
    last_saved_path_ = path;
    if (edited) edited_file_ = file.made();
    if (own) note_edited_text(lines, !records);
    if (own) record_saved(path, file.made(), lines, !records);
    // For people only: what a script reads of a save stays the same.
    if (!file.changed_copy().empty() && isatty(STDERR_FILENO))
        kpe_warn("?The file had changed on disk; what it held is kept in " + file.changed_copy());
    return Written::Done;
}

void Editor::note_edited_text(const LineStore& lines, bool as_it_is) {
    edited_text_.reset();
    const bool asked_for = policy_.status_tells || !policy_.writes_unchanged;
    if (as_it_is && asked_for) edited_text_ = lines;
}

bool Editor::save_lines(const LineStore& lines, const TextForm& form, const std::string& name, std::string& path) {
    for (;;) {
        path = resolve_write_path(name);
        why_unwritten_ = path.empty() ? "There is no name to write to" : "No name of a file holds a NUL";
        if (path.empty() || path.find('\0') != path.npos) return false;
        tell_lost_bytes();
        // What could not be read whole must not be written over the rest of it.
        const bool broken = !broken_file_.empty() && (strip_vms_version(path) == strip_vms_version(broken_file_) ||
                                                      same_file(path, broken_file_));
        why_unwritten_ = "It could not be read whole: what was not read would be lost";
        if (broken) return false;
        // A version that was free a moment ago is not ours yet: another session may take it first.
        const Written result = write_lines_file(path, lines, form, /*must_be_new=*/versioning_);
        if (result != Written::Taken) return result == Written::Done;
    }
}

bool Editor::save_buffer_to_path(TextBuffer& buf, const std::string& name, std::string& path) {
    const bool is_main = (&buf == &buffer_ ? current_buffer_name_ : "") == "MAIN" || &buf == &buffers_["MAIN"];
    if (!save_lines(buf.lines(), {file_form_.returns, is_main && file_form_.open_end}, name, path)) return false;
    if (file_exists(path)) note_on_disk(buf);  // a device keeps nothing
    if (strip_vms_version(buf.filename()) == strip_vms_version(path)) buf.clear_modified();
    return true;
}

// On the screen nothing else tells that a save has failed.
void Editor::tell_why_unwritten(bool report) {
    if (g_kpe_end_signal == 0 && (report || g_curses_active)) tell_user("?" + why_unwritten_);
}

bool Editor::do_save(bool verbose) {
    std::string path;
    const bool saved = save_buffer_to_path(buffer_, buffer_.filename(), path);
    if (saved) {
        kpe_say(verbose, "[Saved " + last_saved_path_ + "]");
    } else {
        kpe_complain(verbose, "Unable to save " + buffer_.filename());
        tell_why_unwritten(verbose);
    }
    return saved;
}

void Editor::save_and_exit_now(bool show_eob) {
    const bool from_screen = g_curses_active && isatty(STDOUT_FILENO) != 0;
    kpe_safe_endwin();
    // The caller may have left words on this row, as git does.
    if (from_screen && policy_.leaving_keys && kpe_can_edit_lines()) kpe_send_to_terminal("\r\033[K");
    keep_history();
    save_current_buffer_state();
    TextBuffer& main_buffer = stored_buffer("MAIN");
    if (output_file_) main_buffer.set_filename(*output_file_);
    std::string path;
    bool written = true;
    if (!save_for_leaving(main_buffer, path, written)) {
        kpe_warn("?Unable to write " + path);
        tell_why_unwritten(/*report=*/true);
        obey_end_signal();
        if (at_terminal_) {  // a script is there to be run again
            kpe_limit_end(2);
            rescue();
        }
        kpe_exit(2);
    }
    recorder_.remove();
    delete_journal_file();
    const bool any_written = written || !last_saved_path_.empty();
    kpe_say(summary_, path + (any_written ? " " + std::to_string(main_buffer.line_count()) + " lines" : " unchanged"));
    kpe_say(show_eob && !quiet_, text_eob_);
    kpe_flush();
    obey_end_signal();
    tell_left_behind();
    kpe_exit(status_of_leaving());
}

void Editor::quit_without_saving_now(bool report) {
    kpe_safe_endwin();
    keep_history();
    save_current_buffer_state();
    const bool any = std::any_of(buffers_.begin(), buffers_.end(), [](const auto& b) { return b.second.modified(); });
    end_recording_unsaved();
    kpe_say(report && any, "Changes discarded");
    if (policy_.private_journal) delete_journal_file();
    kpe_flush();
    kpe_exit(status_of_leaving());
}

Editor::CommandResult Editor::next_file_command(bool verbose) {
    if (current_file_idx_ + 1 >= all_files_.size()) {
        kpe_complain(verbose, "No more files");
    } else {
        walk_to_file(current_file_idx_ + 1, verbose);
    }
    return CommandResult::Continue;
}

Editor::CommandResult Editor::previous_file_command(bool verbose) {
    if (current_file_idx_ == 0) {
        kpe_complain(verbose, "Already at first file");
    } else {
        walk_to_file(current_file_idx_ - 1, verbose);
    }
    return CommandResult::Continue;
}

void Editor::walk_to_file(size_t index, bool verbose) {
    save_current_buffer_state();
    std::string path;
    bool written = true;
    if (!save_for_leaving(stored_buffer("MAIN"), path, written)) {
        walk_failed_ = true;
        tell_why_unwritten(/*report=*/verbose);
    }
    if (policy_.private_journal) delete_journal_file();
    keep_text("MAIN");                // it could not be saved then
    keep_text(current_buffer_name_);  // its text goes as well
    end_recording_rescued();
    tell_kept();
    record_source(filename_, edited_file_, on_disk_["MAIN"]);
    current_file_idx_ = index;
    filename_ = resolve_read_path(all_files_[index]);
    load_current_file();
    cursor_row_ = cursor_col_ = top_line_ = left_col_ = 0;
    clear_select();
    last_search_.clear();
    // An older state belongs to the file that was left: bringing it back would write it over this one.
    undo_stack_.clear();
    redo_stack_.clear();
    begin_recording();
    look_for_unsaved_changes();
    go_to_asked_place();
    if (!verbose) return;
    kpe_say(true, filename_);
    type_current_line(/*brief=*/false, 40);
}
