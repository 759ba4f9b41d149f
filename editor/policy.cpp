#include <algorithm>
#include <string_view>
#include <utility>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "system/report.h"

namespace {

constexpr const char* HOW_TO_LEAVE = "Alt/x saves and leaves, Alt/q leaves; or Ctrl/Z, then EXIT or QUIT. Help: F2";
constexpr const char* NEVER_SAVED = "Read only: changes will not be saved";
constexpr const char* HOW_TO_GO_ON = "EXIT saves and leaves, QUIT leaves, CHANGE goes back to the screen";

}  // namespace

void Editor::begin_on_screen() {
    if (!may_enter_screen()) return;  // the commands can be typed, or come from a script
    if (message_.empty()) tell_how_to_leave();
    begun_on_screen_ = true;
    if (keypad_mode_ == "NOKEYPAD")
        nokeypad_mode();
    else
        run_on_screen(&Editor::screen_loop);  // no journal: it would only say that the screen was shown
}

void Editor::tell_how_to_leave() { message_ = HOW_TO_LEAVE; }

void Editor::end_first_message() {
    if (message_ == HOW_TO_LEAVE) message_.clear();
}

void Editor::tell_way_back() const { kpe_say(!quiet_ && !input_ended_, HOW_TO_GO_ON); }

void Editor::answer_leaving_word() {
    tell_how_to_leave();
    kpe_say(true, HOW_TO_GO_ON);
}

void Editor::go_to_asked_place() {
    if (current_file_idx_ >= policy_.places.size()) return;
    const SessionPolicy::Place place = std::exchange(policy_.places[current_file_idx_], {});  // not when it comes again
    if (!place.text.empty()) {
        last_search_ = place.text;
        const AbortGuard guard;
        if (find_next(Direction::Advance)) message_.clear();
    }
    if (place.line == 0) return;
    cursor_row_ = std::min(place.line, buffer_.line_count()) - 1;
    const std::string_view line = buffer_.view(cursor_row_);
    for (size_t left = place.column; left > 1 && cursor_col_ < line.size(); --left)
        cursor_col_ = kpe_character_end(line, cursor_col_);
}

bool Editor::file_is_as_wanted() const {
    const auto stored = buffers_.find("MAIN");
    if (stored == buffers_.end()) return true;
    return filename_.empty() ? !is_only_here("MAIN") : holds_edited_text(newest_text("MAIN").lines());
}

int Editor::status_of_leaving() const {
    if (!policy_.status_tells) return 0;
    return walk_failed_ ? STATUS_UNSAVED : file_is_as_wanted() ? 0 : STATUS_DISCARDED;
}

bool Editor::save_for_leaving(TextBuffer& main_buffer, std::string& path, bool& written) {
    const std::string name = main_buffer.filename();
    path = name;
    written = policy_.writes_unchanged || rms_fixed_ || name != filename_ || !holds_edited_text(main_buffer.lines());
    return !written || save_buffer_to_path(main_buffer, name, path);
}

bool Editor::save_by_key() {
    save_current_buffer_state();
    std::string path;
    bool written = false;
    const bool saved = save_for_leaving(stored_buffer("MAIN"), path, written);
    if (saved && current_buffer_name_ == "MAIN") buffer_.clear_modified();
    message_ = saved ? (written ? "Saved " : "No changes in ") + path : "Unable to write " + path;
    if (!saved && policy_.never_writes) message_ = "Read only: nothing is saved. Alt/q leaves";
    if (!saved && path.empty()) message_ = "The text has no file: Ctrl/Z, then WRITE and a name";
    if (!saved && !path.empty() && !policy_.never_writes) message_ += ": " + why_unwritten_;
    if (!saved) kpe_beep();
    return saved;
}

void Editor::tell_unsaved_change() {
    if (!policy_.never_writes || unsaved_change_told_ || !newest_text("MAIN").modified()) return;
    unsaved_change_told_ = true;
    if (g_curses_active)
        message_ = NEVER_SAVED;
    else
        tell_user(NEVER_SAVED);
}

void Editor::save_key() { save_by_key(); }

void Editor::save_and_leave_key() {
    if (save_by_key()) save_and_exit_now(/*show_eob=*/false);
}

void Editor::leave_key() {
    if (!file_is_as_wanted()) {
        if (!ask_by_key("Leave without saving the changes? Y: leave, N or Esc: go on ")) {
            tell_how_to_leave();
            return;
        }
    }
    quit_without_saving_now(/*report=*/false);
}
