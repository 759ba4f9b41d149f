#include <algorithm>
#include <curses.h>
#include <optional>
#include <string>
#include <string_view>

#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "screen/curses_session.h"
#include "screen/n3_kpe_keymap.h"
#include "screen/shown_rows.h"
#include "system/ascii.h"

namespace {

// On the bottom row; of a text that is too long the end.
void show_prompt(const std::string& prompt, const std::string& answer) {
    const std::string text = prompt + answer;
    const ScreenSize screen = kpe_screen_size();
    const auto width = static_cast<size_t>(std::max(screen.cols - 1, 1));
    const std::string_view shown = std::string_view(text).substr(text.size() - std::min(text.size(), width));
    const int row = screen.rows - 1;
    g_shown_rows.show(row, {{}, shown});
    g_shown_rows.paint(row, std::min(static_cast<int>(shown.size()), screen.cols - 1));
}

bool ends_prompt(int key) {
    return key == KPE_RETURN || key == KPE_LINEFEED || key == KEY_ENTER || key == KPE_KP_ENTER;
}

// The byte of a code from 0 to 255 in decimal digits.
std::optional<char> byte_of(const std::string& digits) {
    const auto code = kpe_all_digits(digits) ? kpe_stoi(digits) : std::nullopt;
    if (!code || *code > 255) return std::nullopt;
    return static_cast<char>(*code);
}

}  // namespace

std::string Editor::prompt_line(const std::string& prompt) { return prompt_line_dir(prompt, nullptr); }

std::string Editor::prompt_line_dir(const std::string& prompt, std::optional<Direction>* dir) {
    return read_prompt(prompt, dir, /*leaves=*/false);
}

std::string Editor::read_prompt(const std::string& prompt, std::optional<Direction>* dir, bool leaves) {
    std::string answer;
    const auto draw = [&](bool anew) {
        if (anew || screen_stale_) compose_screen();
        show_prompt(prompt, answer);
    };
    for (;;) {
        const int key = read_key(draw);
        if (key == ERR) return {};  // an answer that was cut off is none
        if (ends_prompt(key)) return answer;
        if (dir && (key == KPE_KP4 || key == KPE_KP5)) {
            *dir = key == KPE_KP4 ? Direction::Advance : Direction::Backup;
            return answer;
        }
        if (leaves && answer.empty() && key == kpe_ctrl('Z')) return "\032";
        if (key == KEY_BACKSPACE || key == KPE_DELETE || key == KPE_BACKSPACE) {
            if (!answer.empty()) answer.pop_back();
        } else if (key == kpe_ctrl('U')) {
            answer.clear();
        } else if (key >= ' ' && key <= '~') {
            answer += static_cast<char>(key);
        }
    }
}

void Editor::prompt_find() {
    std::optional<Direction> dir;
    const std::string answer = prompt_line_dir("Search for: ", &dir);
    if (answer.empty()) return;
    last_search_ = answer;
    if (dir) direction_ = *dir;
    const InterruptKey interrupt;
    find_next(direction_);
    check_abort(/*report=*/false);
}

void Editor::prompt_insert_literal() {
    const std::string answer = prompt_line("ASCII: ");
    if (answer.empty()) return;
    begin_undo_unit();
    if (const auto byte = byte_of(answer)) {
        buffer_.insert_char(cursor_row_, cursor_col_, *byte);
        ++cursor_col_;
    } else {
        paste_text(answer);
    }
}

void Editor::command_prompt() {
    const std::string answer = prompt_line("Command: ");
    if (input_ended_) return;
    CommandResult result;
    {
        const InterruptKey interrupt;
        result = execute_command(answer, /*report=*/false);
    }
    handle_command_result(result, /*exit_allowed=*/true);
}
