#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <unistd.h>

#include "editor/kpe.h"
#include "editor/line_reader.h"
#include "editor/reasons.h"
#include "system/file_mapping.h"
#include "system/interrupts.h"
#include "system/process.h"
#include "system/report.h"
#include "system/terminal.h"

Editor::Editor(std::vector<std::string> files, std::optional<std::string> command_file,
               std::optional<std::string> output_file, bool read_only, bool recover, std::optional<std::string> journal)
    : command_file_(std::move(command_file)),
      output_file_(std::move(output_file)),
      read_only_(read_only),
      recover_(recover),
      journal_override_(std::move(journal)),
      all_files_(std::move(files)) {
    if (!all_files_.empty()) filename_ = all_files_.front();
    const char* const versions = std::getenv("KPE_VMS_VERSIONS");
    versioning_ = versions && *versions && std::string(versions) != "0";
}

Editor::~Editor() {
    if (after_crash_ != this) return;
    kpe_set_rescue(nullptr);
    after_crash_ = nullptr;
}

void Editor::enable_versioning(bool on) {
    if (on) versioning_ = true;
}

int Editor::run() {
    after_crash_ = this;
    kpe_set_rescue(rescue_after_crash);
    at_terminal_ = isatty(STDIN_FILENO) != 0;
    std::optional<std::string> startup;
    if (!no_command_) {
        startup = command_file_ ? resolve_command_file(*command_file_) : find_startup_file();
        if (command_file_ && !startup) abort_missing_command_file(*command_file_);
    }
    if (startup) prescan_startup_versioning(*startup);
    if (!policy_.versions_by_settings) versioning_ = false;
    filename_ = resolve_read_path(filename_);
    load_current_file();
    const std::string told_of_file = message_;
    buffers_["PASTE"] = TextBuffer();
    current_buffer_name_ = "MAIN";
    if (startup) {
        startup_file_ = *startup;
        if (command_file_) {
            run_startup_command_file(*startup);
        } else {
            run_command_file(*startup, /*verbose=*/false);
        }
    }
    if (!policy_.versions_by_settings) versioning_ = false;
    if (recover_) try_recover_journal();
    if (policy_.begins_on_screen) message_ = told_of_file;  // what the commands of the startup file say is no news
    begin_recording();
    for (const auto& [name, text] : buffers_) recorder_.leave_out(name, newest_text(name).lines());
    if (!policy_.recovers.empty())
        take_recovered_text();
    else
        look_for_unsaved_changes(/*tell=*/!recover_);
    go_to_asked_place();
    if (policy_.begins_on_screen) begin_on_screen();
    return line_mode();
}

void Editor::load_current_file() {
    const AbortGuard guard;    // Ctrl/C ends the reading of a pipe or of an endless device
    broken_file_ = filename_;  // until it has been read
    buffer_ = TextBuffer();
    note_used_file(filename_);
    const std::string& from = policy_.read_from.empty() ? filename_ : policy_.read_from;
    file_existed_ = buffer_.load(from, &g_kpe_abort_requested, line_ends());
    buffer_.set_filename(filename_);
    file_form_ = {buffer_.returns_dropped(), policy_.keeps_line_ends && !buffer_.final_newline()};
    note_edited_text(buffer_.lines(), /*as_it_is=*/true);
    edited_file_ = buffer_.loaded_file();
    if (buffer_.load_state() != TextBuffer::Load::Broken) broken_file_.clear();
    check_abort(!quiet_);
    note_on_disk(buffers_["MAIN"] = buffer_);
    note_on_disk(buffer_);
    tell_unread();
}

// It would look like an empty or a shorter file until a save is refused.
void Editor::tell_unread() {
    const int error = buffer_.load_error();
    if (error == 0 || buffer_.load_state() == TextBuffer::Load::Missing) return;
    const bool part = buffer_.line_count() > 1 || buffer_.length(0) > 0;
    const std::string reason = error == ENOMEM ? "not enough memory" : std::strerror(error);
    std::string told =
        (part ? "?Only a part of " + filename_ + " is shown: " : "?Unable to read " + filename_ + ": ") + reason;
    if (buffer_.too_large()) told = "?" + kpe_too_large(*buffer_.too_large());
    if (policy_.begins_on_screen) message_ = told;  // the screen hides what was told before it
    tell_user(told);
}

void Editor::tell_lost_bytes() {
    if (FileMapping::lost_pages() == lost_pages_told_) return;
    lost_pages_told_ = FileMapping::lost_pages();
    if (buffers_["MAIN"].load_state() != TextBuffer::Load::Broken || !broken_file_.empty()) return;
    broken_file_ = filename_;
    tell_user("?A part of " + filename_ + " cannot be read any more, and is shown as zeros");
}

void Editor::greet() const {
    kpe_say(true, "$ EDIT/KPE " + filename_);
    if (!file_existed_ && fnf_) {
        kpe_say(true, "Input file does not exist");
        kpe_say(true, text_eob_);
    } else {
        type_current_line(/*brief=*/false, 40);
    }
}

void Editor::stop_after(size_t complaints) {
    if (!policy_.stops_at_complaint || kpe_complaints() == complaints) return;
    end_recording_unsaved();
    kpe_safe_endwin();
    kpe_flush();
    kpe_exit(SessionPolicy::STATUS_STOPPED);
}

int Editor::line_mode() {
    obey_end_signal();
    if (begun_on_screen_)
        tell_way_back();
    else if (!quiet_ && policy_.shows_prompts)
        greet();
    while (!input_ended_) {
        kpe_forget_interrupt();  // a late Ctrl/C belongs to the command before
        tell_unsaved_change();
        tell_lost_bytes();
        const auto line = read_command();
        if (!line || g_kpe_end_signal) break;
        append_journal_line(*line);
        unit_open_ = false;
        const size_t complaints = kpe_complaints();
        try {
            handle_command_result(execute_command(*line, !quiet_), /*exit_allowed=*/true);
        } catch (const std::bad_alloc&) {
            take_back_unit();
            kpe_complain(true, "Not enough memory");  // the text before the command is all there
        }
        obey_end_signal();
        if (!at_terminal_) stop_after(complaints);
    }
    obey_end_signal();
    keep_history();
    int status = status_of_leaving();
    if (policy_.private_journal) delete_journal_file();
    if (at_terminal_) {
        kpe_limit_end(STATUS_UNSAVED);
        if (!rescue()) status = STATUS_UNSAVED;
        kpe_limit_end(status);
    }
    end_recording_unsaved();
    kpe_flush();
    return status;
}

void Editor::handle_command_result(CommandResult r, bool exit_allowed) {
    if (r == CommandResult::EnterScreenMode) screen_mode();
    if (!exit_allowed) return;
    if (r == CommandResult::ExitSave) save_and_exit_now(/*show_eob=*/false);
    if (r == CommandResult::ExitNoSave) quit_without_saving_now(/*report=*/true);
}

void Editor::reset_state() {
    direction_ = Direction::Advance;
    gold_pending_ = false;
    gold_repeat_count_ = 0;
    clear_select();
    message_ = "RESET";
}
