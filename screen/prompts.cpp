#include <algorithm>
#include <curses.h>
#include <optional>
#include <string>
#include <string_view>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "screen/cells.h"
#include "screen/curses_session.h"
#include "screen/key_layers.h"
#include "screen/key_reader.h"
#include "screen/n3_kpe_keymap.h"
#include "screen/shown_rows.h"
#include "system/ascii.h"
#include "system/locale.h"

namespace {

// On the bottom row; of a text that is too long the end.
void show_prompt(const std::string& prompt, const std::string& answer) {
    const std::string text = prompt + answer;
    const ScreenSize screen = kpe_screen_size();
    const auto width = static_cast<size_t>(std::max(screen.cols - 1, 1));
    const std::string_view shown = kpe_end_in_view(text, width);
    const int row = screen.rows - 1;
    g_shown_rows.show(row, {{}, shown});
    g_shown_rows.paint(row, std::min(static_cast<int>(kpe_cell_of(shown, 0, shown.size(), 0)), screen.cols - 1));
}

bool ends_prompt(int key) {
    return key == KPE_RETURN || key == KPE_LINEFEED || key == KEY_ENTER || key == KPE_KP_ENTER;
}

// Line breaks become blanks; other control bytes are left out.
void add_pasted(std::string& answer, const std::string& text) {
    for (const char c : text) {
        if (c == '\n') answer += ' ';
        if (static_cast<unsigned char>(c) >= ' ' && c != KPE_DELETE) answer += c;
    }
}

// The character of a code from 0 to 255 in decimal digits, in the character set of the text.
std::optional<std::string> character_of(const std::string& digits) {
    const auto code = kpe_all_digits(digits) ? kpe_stoi(digits) : std::nullopt;
    if (!code || *code > 255) return std::nullopt;
    if (*code > 127 && kpe_utf8_locale()) return kpe_utf8_of(static_cast<char32_t>(*code));
    return std::string(1, static_cast<char>(*code));
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
        const int key = kpe_plain_key(read_key(draw));
        if (key == ERR) return {};  // an answer that was cut off is none
        if (ends_prompt(key)) return answer;
        if (dir && (key == KPE_KP4 || key == KPE_KP5)) {
            *dir = key == KPE_KP4 ? Direction::Advance : Direction::Backup;
            return answer;
        }
        if (leaves && answer.empty() && key == kpe_ctrl('Z')) return "\032";
        if (key == KEY_BACKSPACE || key == KPE_DELETE || key == KPE_BACKSPACE) {
            answer.resize(kpe_character_before(answer, answer.size()));
        } else if (key == kpe_ctrl('U')) {
            answer.clear();
        } else if (key == KPE_PASTE) {
            add_pasted(answer, kpe_take_paste());
        } else if (key >= ' ' && key <= '~') {
            answer += static_cast<char>(key);
        } else if (kpe_is_character(key)) {
            answer += kpe_utf8_of(kpe_code_point(key));
        }
    }
}

bool Editor::ask_by_key(const std::string& question) {
    const int key = read_key([&](bool anew) {
        if (anew || screen_stale_) compose_screen();
        show_prompt(question, "");
    });
    return key == 'y' || key == 'Y';
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
    if (const auto character = character_of(answer)) {
        insert_character(*character);
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
    if (result == CommandResult::Error) tell_way_out(answer);
    handle_command_result(result, /*exit_allowed=*/true);
}
