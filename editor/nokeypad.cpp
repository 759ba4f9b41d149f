#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <tuple>
#include <variant>

#include "editor/kpe.h"
#include "system/ascii.h"
#include "system/interrupts.h"
#include "system/report.h"

namespace {

constexpr char ESC = 27;

// The digits in front of a command word, which are taken off text; none and 0 mean 1, and what does not fit
// means as often as it takes.
size_t take_count(std::string_view& text) {
    constexpr size_t MOST = std::numeric_limits<size_t>::max();
    size_t count = 0;
    for (; !text.empty() && kpe_is_digit(text.front()); text.remove_prefix(1)) {
        const size_t digit = static_cast<size_t>(text.front() - '0');
        count = count > (MOST - digit) / 10 ? MOST : count * 10 + digit;
    }
    return std::max<size_t>(count, 1);
}

// Takes the bytes before the first end off text, and end itself; all of text if there is none.
std::string take_until(std::string_view& text, char end) {
    const size_t size = std::min(text.find(end), text.size());
    std::string taken(text.substr(0, size));
    text.remove_prefix(std::min(size + 1, text.size()));
    return taken;
}

std::string take_search_text(std::string_view& text) {
    if (!text.empty() && kpe_is_punct(text.front())) {
        const char delimiter = text.front();
        text.remove_prefix(1);
        return take_until(text, delimiter);
    }
    const auto end = std::find_if(text.begin(), text.end(), kpe_is_space);
    const auto size = static_cast<size_t>(end - text.begin());
    std::string taken(text.substr(0, size));
    text.remove_prefix(size);
    return taken;
}

}  // namespace

// The command words in the order in which they are tried: a word that begins another one stands behind it.
struct Editor::WordTable {
    enum class Count { Ignored, Used, UsedInUndoUnit };
    struct Exit {};
    using Action = std::variant<Exit, void (Editor::*)(), void (Editor::*)(Direction), void (*)(Editor&),
                                void (*)(Editor&, std::string_view&)>;
    struct Row {
        std::array<std::string_view, 3> words;  // the long form, then short ones
        Count count;
        Action run;
    };

    static void advance(Editor& e) { e.direction_ = Direction::Advance; }
    static void backup(Editor& e) { e.direction_ = Direction::Backup; }
    static void page(Editor& e) { e.direction_ == Direction::Backup ? e.page_up() : e.page_down(); }
    static void line_end(Editor& e) { e.cursor_col_ = e.buffer_.length(e.cursor_row_); }
    static void line_start(Editor& e) { e.cursor_col_ = 0; }
    static void find(Editor& e, std::string_view& rest) {
        const std::string text = take_search_text(rest);
        if (!text.empty()) e.last_search_ = text;
        e.find_next(e.direction_);
    }
    static void insert(Editor& e, std::string_view& rest) {
        const std::string text = take_until(rest, ESC);
        e.begin_undo_unit();
        e.paste_text(text);
    }

    // clang-format off
    static constexpr Row ROWS[] = {
        {{"EXIT", "EXT", "EX"},  Count::Ignored,        Exit{}},
        {{"CHNGCASE", "CHGC"},   Count::UsedInUndoUnit, &Editor::change_case_char},
        {{"CLSS", "RESET"},      Count::Ignored,        &Editor::reset_state},
        {{"ADVANCE", "ADV"},     Count::Ignored,        &advance},
        {{"BACKUP", "BACK"},     Count::Ignored,        &backup},
        {{"APPEND"},             Count::Ignored,        &Editor::append_select},
        {{"PASTE"},              Count::Ignored,        &Editor::paste},
        {{"SELECT", "SEL"},      Count::Ignored,        &Editor::start_select},
        {{"BOTTOM"},             Count::Ignored,        &Editor::go_bottom},
        {{"TOP"},                Count::Ignored,        &Editor::go_top},
        {{"CUT"},                Count::Ignored,        &Editor::cut_select},
        {{"PAGE", "V"},          Count::Used,           &page},
        {{"EOL"},                Count::Used,           &line_end},
        {{"BOL", "BL"},          Count::Used,           &line_start},
        {{"DWORD", "DW"},        Count::UsedInUndoUnit, &Editor::delete_word},
        {{"DCHAR", "DC"},        Count::UsedInUndoUnit, &Editor::delete_char_at_cursor},
        {{"DLINE", "DL"},        Count::UsedInUndoUnit, &Editor::delete_line},
        {{"WORD", "W"},          Count::Used,           &Editor::move_word},
        {{"LINE", "L"},          Count::Used,           &Editor::line_move},
        {{"CHAR", "C"},          Count::Used,           &Editor::move_char},
        {{"A"},                  Count::Ignored,        &advance},
        {{"B"},                  Count::Ignored,        &backup},
        {{"FIND", "F"},          Count::Ignored,        &find},
        {{"INSERT", "I"},        Count::Ignored,        &insert},
    };
    // clang-format on

    // The row of the word at the start of text, which is taken off; null if there is none.
    static const Row* take_word(std::string_view& text) {
        for (const Row& row : ROWS) {
            for (const std::string_view word : row.words) {
                if (word.empty() || word.size() > text.size()) continue;
                const bool same = std::equal(word.begin(), word.end(), text.begin(),
                                             [](char a, char b) { return a == kpe_to_upper(b); });
                if (!same) continue;
                text.remove_prefix(word.size());
                return &row;
            }
        }
        return nullptr;
    }

    static void run_once(Editor& e, const Action& action, std::string_view& rest) {
        if (const auto plain = std::get_if<void (Editor::*)()>(&action)) (e.**plain)();
        if (const auto directed = std::get_if<void (Editor::*)(Direction)>(&action)) (e.**directed)(e.direction_);
        if (const auto function = std::get_if<void (*)(Editor&)>(&action)) (*function)(e);
        if (const auto reading = std::get_if<void (*)(Editor&, std::string_view&)>(&action)) (*reading)(e, rest);
    }

    // Up to count times. Once a repetition leaves everything as it was, the later ones could only open undo
    // units, and of these no more than the stack holds make a difference.
    static void run_counted(Editor& e, const Row& row, size_t count, std::string_view& rest) {
        const auto state = [&] {
            return std::tuple(e.cursor_row_, e.cursor_col_, e.buffer_.line_count(), e.buffer_.length(e.cursor_row_),
                              e.buffer_.has_mark());
        };
        if (row.count == Count::UsedInUndoUnit) e.begin_undo_unit();
        for (auto before = state(); count > 0 && !g_kpe_abort_requested; before = state()) {
            run_once(e, row.run, rest);
            --count;
            if (state() == before) count = std::min(count, max_undo_);
        }
    }
};

bool Editor::execute_nokeypad_string(const std::string& cmds, bool echo_errors) {
    const AbortGuard guard;
    std::string_view rest = cmds;
    for (;;) {
        while (!rest.empty() && kpe_is_space(rest.front())) rest.remove_prefix(1);
        if (rest.empty()) return false;
        const size_t count = take_count(rest);
        const WordTable::Row* const row = WordTable::take_word(rest);
        if (row == nullptr) {
            kpe_complain(echo_errors, "Unknown nokeypad cmd near: " + std::string(rest));
            message_ = "Unknown nokeypad command";
            return false;
        }
        if (std::holds_alternative<WordTable::Exit>(row->run)) {
            message_ = "Command mode";
            return true;
        }
        if (row->count == WordTable::Count::Ignored) {
            WordTable::run_once(*this, row->run, rest);
        } else {
            WordTable::run_counted(*this, *row, count, rest);
        }
        snap_cursor();  // else the next word could cut a character
        if (check_abort(echo_errors)) return false;
    }
}
