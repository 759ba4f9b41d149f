#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <curses.h>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "screen/curses_session.h"
#include "screen/key_layers.h"
#include "screen/key_reader.h"
#include "screen/n3_kpe_keymap.h"
#include "system/ascii.h"
#include "system/interrupts.h"
#include "system/terminal.h"

// One row a key: its label, and what it is called and does, plain and after GOLD. Names, labels and behaviour
// all come from here. Printable characters without a plain action are typed into the text.
struct Editor::KeyTable {
    // A command word, or an operation; none: the key has no such function.
    using Action =
        std::variant<std::monostate, const char*, void (Editor::*)(), void (Editor::*)(Direction), void (*)(Editor&)>;
    struct Function {
        const char* name = "";
        Action run = {};
    };
    struct Row {
        int code;
        const char* label;
        Function plain, gold = {};
    };

    static void gold_prefix(Editor& e) {
        e.gold_pending_ = true;
        e.gold_twice_ = false;
        e.gold_repeat_count_ = 0;
        e.message_ = "GOLD";
    }
    static void gold_again(Editor& e) { e.gold_pending_ = e.gold_twice_ = true; }
    static void start_of_line(Editor& e) { e.cursor_col_ = 0; }
    static void end_of_line(Editor& e) { e.cursor_col_ = e.buffer_.length(e.cursor_row_); }
    static void split_line(Editor& e) {
        e.begin_undo_unit();
        e.buffer_.split_line(e.cursor_row_, e.cursor_col_);
        ++e.cursor_row_;
        e.cursor_col_ = 0;
    }
    static void rub_out(Editor& e) {
        e.begin_undo_unit();
        e.delete_char_left();
    }
    static void rub_out_word(Editor& e) {
        e.begin_undo_unit();
        e.delete_word_left();
    }
    static void rub_out_line(Editor& e) {
        e.begin_undo_unit();
        e.set_paste_text(e.buffer_.delete_to_bol(e.cursor_row_, e.cursor_col_));
    }
    static void tab(Editor& e) {
        e.begin_undo_unit();
        const size_t width = e.tab_width_ < 1 ? 8 : static_cast<size_t>(e.tab_width_);
        const size_t stop = width * (e.cursor_col_ / width + 1);
        e.buffer_.insert_text(e.cursor_row_, e.cursor_col_, std::string(stop - e.cursor_col_, ' '));
    }
    static void toggle_overstrike(Editor& e) {
        e.overstrike_ = !e.overstrike_;
        e.message_ = e.overstrike_ ? "Overstrike" : "Insert";
    }
    static void toggle_direction(Editor& e) {
        const bool backup = e.direction_ == Direction::Advance;
        e.direction_ = backup ? Direction::Backup : Direction::Advance;
        e.message_ = backup ? "Direction: BACKUP" : "Direction: ADVANCE";
    }
    static void abort(Editor& e) {
        e.gold_pending_ = false;
        e.gold_repeat_count_ = 0;
        if (e.buffer_.has_mark()) e.clear_select();
        e.message_ = "Abort";
        flash();
    }
    static void refresh_screen(Editor&) { kpe_repaint(); }
    static void leave(Editor& e) { e.message_ = "Command mode"; }
    static void fill(Editor& e) {
        const InterruptKey interrupt;
        e.fill_command("", /*report=*/false);
    }

    static const Row ROWS[];
    static const Row* find(int key);
    // Each key stands once, and each name does something.
    static constexpr bool is_sound();
    // false when there is nothing to run.
    static bool run(Editor& e, const Action& action);
};

// clang-format off
constexpr Editor::KeyTable::Row Editor::KeyTable::ROWS[] = {
    {KEY_F(1),      "PF1/F1",    {"GOLD", &gold_prefix},                      {"GOLD", &gold_again}},
    {KEY_F(2),      "PF2/F2",    {"HELP", &Editor::show_help_screen},         {"BOTTOM", "BOTTOM"}},
    {KEY_F(3),      "PF3/F3",    {"FNDNXT", &Editor::find_again_key},         {"FIND", &Editor::prompt_find}},
    {KEY_F(4),      "PF4/F4",    {"DEL L", "DEL L"},                          {"UND L", "UND L"}},
    {KPE_KP0,       "KP0",       {"LINE", &Editor::line_move},                {"OPEN LINE", &Editor::open_line}},
    {KPE_KP1,       "KP1",       {"WORD", &Editor::move_word},                {"CHNGCASE", &Editor::change_case_char}},
    {KPE_KP2,       "KP2",       {"EOL", &end_of_line},                       {"DEL EOL", "DEL EOL"}},
    {KPE_KP3,       "KP3",       {"CHAR", &Editor::move_char},                {"SPECINS", &Editor::prompt_insert_literal}},
    {KPE_KP4,       "KP4",       {"ADVANCE", "ADVANCE"},                      {"BOTTOM", "BOTTOM"}},
    {KPE_KP5,       "KP5",       {"BACKUP", "BACKUP"},                        {"TOP", "TOP"}},
    {KPE_KP6,       "KP6",       {"CUT", "CUT"},                              {"PASTE", "PASTE"}},
    {KPE_KP7,       "KP7",       {"PAGE", &Editor::page_down},                {"COMMAND", &Editor::command_prompt}},
    {KPE_KP8,       "KP8",       {"SECT", &Editor::section_move},             {"FILL", &fill}},
    {KPE_KP9,       "KP9",       {"APPEND", &Editor::append_select},          {"REPLACE", &Editor::replace_select_with_paste}},
    {KPE_KP_MINUS,  "KP-",       {"DEL W", "DEL W"},                          {"UND W", "UND W"}},
    {KPE_KP_COMMA,  "KP,",       {"DEL C", "DEL C"},                          {"UND C", "UND C"}},
    {KPE_KP_PERIOD, "KP.",       {"SELECT", "SELECT"},                        {"RESET", "RESET"}},
    {KPE_KP_ENTER,  "KPenter",   {"newline", &split_line},                    {"SUBSTITUTE", &Editor::subs_keypad}},
    {KEY_UP,        "Up",        {"cursor up", &Editor::move_up},             {"TOP", "TOP"}},
    {KEY_DOWN,      "Down",      {"cursor down", &Editor::move_down},         {"BOTTOM", "BOTTOM"}},
    {KEY_LEFT,      "Left",      {"cursor left", &Editor::move_left},         {"Shift line left", &Editor::shift_left_line}},
    {KEY_RIGHT,     "Right",     {"cursor right", &Editor::move_right},       {"Shift line right", &Editor::shift_right_line}},
    {KEY_HOME,      "Home",      {"beginning of line", &start_of_line}},
    {KEY_END,       "End",       {"end of line", &end_of_line}},
    {KEY_PPAGE,     "PgUp",      {"PAGE back", &Editor::page_up}},
    {KEY_NPAGE,     "PgDn",      {"PAGE forward", &Editor::page_down}},
    {KEY_IC,        "Insert",    {"PASTE", "PASTE"}},
    {KEY_DC,        "Delete",    {"DEL C", "DEL C"}},
    {KEY_BACKSPACE, "Backspace", {"delete char left", &rub_out}},
    {KPE_DELETE,    "",          {"delete char left", &rub_out}},
    {KPE_BACKSPACE, "",          {"delete char left", &rub_out}},
    {KEY_COMMAND,   "",          {"COMMAND", &Editor::command_prompt}},
    {KEY_SELECT,    "",          {"SELECT", "SELECT"}},
    {KEY_FIND,      "",          {"FNDNXT", &Editor::find_again_key}},
    {kpe_ctrl('A'), "",          {"toggle insert/overstrike", &toggle_overstrike}},
    {kpe_ctrl('B'), "",          {"beginning of line", &start_of_line}},
    {kpe_ctrl('C'), "",          {"abort / cancel GOLD", &abort}},
    {kpe_ctrl('D'), "",          {"toggle ADVANCE / BACKUP", &toggle_direction}},
    {kpe_ctrl('E'), "",          {"end of line", &end_of_line}},
    {kpe_ctrl('F'), "",          {"FNDNXT", &Editor::find_again_key}},
    {KPE_TAB,       "",          {"tab to next stop", &tab}},
    {kpe_ctrl('J'), "",          {"delete word left", &rub_out_word}},
    {kpe_ctrl('K'), "",          {"DEFINE KEY", &Editor::interactive_define_key}, {"DEL EOL", "DEL EOL"}},
    {kpe_ctrl('L'), "",          {"refresh screen", &refresh_screen}},
    {KPE_RETURN,    "",          {"split line (Return)", &split_line}},
    {kpe_ctrl('R'), "",          {"refresh screen", &refresh_screen}},
    {kpe_ctrl('T'), "",          {"toggle case", &Editor::change_case_char}},
    {kpe_ctrl('U'), "",          {"delete to beginning of line", &rub_out_line}},
    {kpe_ctrl('W'), "",          {"refresh screen", &refresh_screen}},
    {kpe_ctrl('Z'), "",          {"return to line mode", &leave}},
    {KPE_ALT + 'z', "Alt/z",     {"UNDO", "UNDO"}},
    {KPE_ALT + 'y', "Alt/y",     {"REDO", "REDO"}},
    {KPE_ALT + 's', "Alt/s",     {"save", &Editor::save_key}},
    {KPE_ALT + 'x', "Alt/x",     {"save and leave", &Editor::save_and_leave_key}},
    {KPE_ALT + 'q', "Alt/q",     {"leave", &Editor::leave_key}},
    {'N',           "",          {},                                          {"Line numbers", &Editor::toggle_line_numbers}},
    {'n',           "",          {},                                          {"Line numbers", &Editor::toggle_line_numbers}},
    {'Q',           "",          {},                                          {"QUIT", "QUIT"}},
    {'q',           "",          {},                                          {"QUIT", "QUIT"}},
};
// clang-format on

constexpr bool Editor::KeyTable::is_sound() {
    const auto whole = [](const Function& f) {
        return (*f.name == '\0') == std::holds_alternative<std::monostate>(f.run);
    };
    for (const Row& row : ROWS) {
        if (!whole(row.plain) || !whole(row.gold)) return false;
        for (const Row* other = ROWS; other != &row; ++other) {
            if (other->code == row.code) return false;
        }
    }
    return true;
}

const Editor::KeyTable::Row* Editor::KeyTable::find(int key) {
    static_assert(is_sound());
    for (const Row& row : ROWS) {
        if (row.code == key) return &row;
    }
    return nullptr;
}

namespace {

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

}  // namespace

bool Editor::KeyTable::run(Editor& e, const Action& action) {
    const auto run_word = [&](const char* word) {
        e.handle_command_result(e.execute_command(word, /*report=*/false), /*exit_allowed=*/true);
    };
    std::visit(Overloaded{[](std::monostate) {}, run_word, [&](void (Editor::*member)()) { (e.*member)(); },
                          [&](void (Editor::*member)(Direction)) { (e.*member)(e.direction_); },
                          [&](void (*function)(Editor&)) { function(e); }},
               action);
    return !std::holds_alternative<std::monostate>(action);
}

const char* kpe_key_label(int key) {
    const Editor::KeyTable::Row* const row = Editor::KeyTable::find(key);
    return row ? row->label : "";
}

const char* kpe_function_name(int key, bool gold) {
    const Editor::KeyTable::Row* const row = Editor::KeyTable::find(key);
    if (!row) return "";
    return gold ? row->gold.name : row->plain.name;
}

namespace {

std::string key_for_people(int key) {
    if (key == KPE_TAB) return "Tab";
    if (key > 0 && key < ' ') return std::string("Ctrl/") + static_cast<char>(key + '@');
    if (key >= ' ' && key <= '~') return {static_cast<char>(key)};
    return kpe_key_name(key);
}

}  // namespace

std::vector<KeyFunction> kpe_key_functions() {
    std::vector<KeyFunction> functions;
    for (const Editor::KeyTable::Row& row : Editor::KeyTable::ROWS) {
        const bool second_case = row.code >= 'a' && row.code <= 'z';
        if (*row.plain.name) functions.push_back({key_for_people(row.code), row.plain.name});
        if (*row.gold.name && !second_case) functions.push_back({"GOLD+" + key_for_people(row.code), row.gold.name});
    }
    for (const auto [key, stands_for] : kpe_alt_layer()) {
        if (key != stands_for) functions.push_back({kpe_key_name(key), kpe_function_name(stands_for, /*gold=*/false)});
    }
    return functions;
}

// --- Dispatch ---

namespace {

bool is_digit(int key) { return key >= '0' && key <= '9'; }

// count * 10 + digit; 0 counts as 1, and what is too large as the largest int.
int with_digit(int count, int key) {
    const long long next = count * 10LL + (key - '0');
    if (next <= 0) return 1;
    return next > INT_MAX ? INT_MAX : static_cast<int>(next);
}

// What a key can change, as far as it is cheap to see. A function that asks for keys always has an effect.
auto effect_of_keys(size_t row, size_t col, Editor::Direction direction, bool numbers, const TextBuffer& text) {
    return std::tuple(row, col, direction, numbers, text.line_count(), text.length(row), text.has_mark(),
                      kpe_keys_read());
}

}  // namespace

// A modified key without a definition acts as the plain key. Alt and a character is a key of the Alt layer, or else
// what most terminals send for it: Escape, and then the character.
bool Editor::handle_modified_key(int key) {
    if (const int meant = kpe_in_layer(kpe_alt_layer(), key)) return handle_plain_key(meant);
    if (policy_.leaving_keys) {
        if (const int meant = kpe_in_layer(kpe_leaving_layer(), key)) return handle_plain_key(meant);
    }
    const char typed = kpe_alt_character(key);
    if (typed == '\0') return handle_plain_key(kpe_plain_key(key));
    handle_plain_key(KPE_ESCAPE);
    return handle_plain_key(typed);
}

bool Editor::handle_screen_key(int key) {
    end_first_message();
    if (key == KPE_PASTE) {
        paste_typed(kpe_take_paste());
        return false;
    }
    if (kpe_is_modified(key) && !is_defined_key(key, gold_pending_)) return handle_modified_key(key);
    return handle_plain_key(key);
}

bool Editor::handle_plain_key(int key) {
    if (keypad_mode_ == "EDITING") {
        if (const int meant = kpe_in_layer(kpe_editing_layer(), key)) key = meant;
    }
    if (gold_pending_) {
        if (autorepeat_ && repeat_enabled_ && is_digit(key)) {
            gold_repeat_count_ = with_digit(gold_repeat_count_, key);
            last_function_ = "GOLD " + std::to_string(gold_repeat_count_);
            return false;
        }
        const int count = std::max(1, gold_repeat_count_);
        gold_repeat_count_ = 0;
        gold_pending_ = false;
        if (!run_defined_key(key, /*gold=*/true)) repeat_gold_key(key, count);
        return false;
    }
    if (run_defined_key(key, /*gold=*/false)) return false;
    if (const char* const name = kpe_function_name(key, /*gold=*/false); *name) last_function_ = name;
    handle_keypad_or_text(key);
    return key == kpe_ctrl('Z');
}

bool Editor::run_defined_key(int key, bool gold) {
    if (key_defs_.empty()) return false;
    const InterruptKey interrupt;
    return try_defined_key(key, gold);
}

// A count is typed easily and may be huge: it ends at Ctrl/C, also after a prompt that ignored it, when nothing
// has happened for long, and with the terminal.
void Editor::repeat_gold_key(int key, int count) {
    constexpr int PATIENCE = 100, TRUST = 1000;  // repeats without effect, and without a look at the terminal
    if (count == 1) {
        handle_gold_key(key);
        return;
    }
    const InterruptKey interrupt;
    const size_t cancels = kpe_cancels_read();
    const auto effect = [this] {
        return effect_of_keys(cursor_row_, cursor_col_, direction_, show_line_numbers_, buffer_);
    };
    auto before = effect();
    for (int idle = 0; count > 0 && idle <= PATIENCE && !input_ended_; --count) {
        if (handle_gold_key(key)) return;
        screen_stale_ = true;  // the next prompt shows what this one's answer has done
        const bool cancelled = kpe_cancels_read() != cancels && count > 1;
        if (g_kpe_abort_requested || cancelled || message_ == "Abort") {
            kpe_forget_interrupt();
            message_ = "Abort";
            return;
        }
        if (count % TRUST == 0 && kpe_terminal_gone()) return;
        const auto after = effect();
        idle = after == before ? idle + 1 : 0;
        before = after;
    }
}

bool Editor::handle_gold_key(int key) {
    if (const int meant = keypad_mode_ == "EDITING" ? kpe_in_layer(kpe_gold_arrows(), key) : 0) {
        if (!gold_twice_) {
            last_function_ = kpe_function_name(meant, /*gold=*/false);
            return handle_keypad_or_text(meant);
        }
        key = meant;
    }
    if (const char* const name = gold_function_name(key); *name) last_function_ = name;
    return handle_gold_keypad(key);
}

bool Editor::handle_gold_keypad(int key) {
    const KeyTable::Row* const row = KeyTable::find(key);
    if (!row || !KeyTable::run(*this, row->gold.run)) set_error("Undefined GOLD key: " + key_debug_name(key));
    return false;
}

bool Editor::handle_keypad_or_text(int key) {
    const KeyTable::Row* const row = KeyTable::find(key);
    if (row && KeyTable::run(*this, row->plain.run)) return false;
    if (key >= ' ' && key <= '~') type_character(std::string(1, static_cast<char>(key)));
    if (kpe_is_character(key)) type_character(kpe_utf8_of(kpe_code_point(key)));
    const bool leaves_others = key == kpe_ctrl('X') || key == kpe_ctrl('Q') || key == kpe_ctrl('S');
    if (policy_.leaving_keys && leaves_others) tell_how_to_leave();
    return false;
}

namespace {

// Whether bytes, put at col, become a part of the character before it, as a combining mark does.
bool combines(std::string_view line, size_t col, const std::string& bytes) {
    const size_t before = kpe_character_before(line, col);
    return bytes.size() > 1 &&
           kpe_character_end(std::string(line.substr(before, col - before)) + bytes, 0) > col - before;
}

}  // namespace

void Editor::type_character(std::string bytes) {
    last_function_.clear();
    begin_undo_unit();
    bytes = apply_case_mode(std::move(bytes));
    const std::string_view line = buffer_.view(cursor_row_);
    if (overstrike_ && cursor_col_ < line.size() && !combines(line, cursor_col_, bytes)) {
        const size_t end = kpe_character_end(line, cursor_col_);
        buffer_.replace_in_line(cursor_row_, cursor_col_, end - cursor_col_, bytes);
        cursor_col_ += bytes.size();
    } else {
        insert_character(bytes);
    }
    maybe_wrap_line();
}

// As it is: without case mode and wrapping, and whatever keys are defined.
void Editor::paste_typed(const std::string& text) {
    gold_pending_ = false;
    gold_repeat_count_ = 0;
    last_function_.clear();
    if (text.empty()) return;
    begin_undo_unit();
    buffer_.insert_text(cursor_row_, cursor_col_, text);
}

std::string Editor::key_debug_name(int key) const {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s  (code %d / 0x%X)", kpe_key_name(key).c_str(), key,
                  static_cast<unsigned>(key));
    return text.data();
}
