#include "editor/line_editor.h"

#include <algorithm>
#include <curses.h>
#include <iterator>
#include <utility>

#include "buffer/characters.h"
#include "editor/key_codes.h"
#include "editor/line_history.h"
#include "system/ascii.h"
#include "system/locale.h"

struct LineEditor::KeyTable {
    struct Row {
        int key;
        void (LineEditor::*run)();
    };
    // clang-format off
    static constexpr Row ROWS[] = {
        {KEY_LEFT,       &LineEditor::left},          {kpe_ctrl('B'), &LineEditor::left},
        {KEY_RIGHT,      &LineEditor::right},         {kpe_ctrl('F'), &LineEditor::right},
        {KEY_HOME,       &LineEditor::to_start},      {kpe_ctrl('A'), &LineEditor::to_start},
        {KEY_END,        &LineEditor::to_end},        {kpe_ctrl('E'), &LineEditor::to_end},
        {KEY_BACKSPACE,  &LineEditor::delete_left},   {KPE_DELETE,    &LineEditor::delete_left},
        {KPE_BACKSPACE,  &LineEditor::delete_left},   {KEY_DC,        &LineEditor::delete_right},
        {kpe_ctrl('K'),  &LineEditor::delete_to_end}, {kpe_ctrl('U'), &LineEditor::delete_to_start},
        {kpe_ctrl('W'),  &LineEditor::delete_blank_word_left},
        {kpe_ctrl('Y'),  &LineEditor::yank},          {kpe_ctrl('T'), &LineEditor::transpose},
        {kpe_ctrl('V'),  &LineEditor::next_literally},
        {KPE_TAB,        &LineEditor::complete},      {kpe_ctrl('R'), &LineEditor::search},
        {KEY_UP,         &LineEditor::older},         {KEY_DOWN,      &LineEditor::newer},
        {KPE_ALT + 'b',  &LineEditor::word_left},     {KPE_ALT + 'f', &LineEditor::word_right},
        {KPE_ALT + 'd',  &LineEditor::delete_word_right},
        {KPE_CTRL + KEY_LEFT, &LineEditor::word_left}, {KPE_CTRL + KEY_RIGHT, &LineEditor::word_right},
        {KPE_ALT + KEY_LEFT,  &LineEditor::word_left}, {KPE_ALT + KEY_RIGHT,  &LineEditor::word_right},
        {KPE_RETURN,     &LineEditor::finish},        {KPE_LINEFEED,  &LineEditor::finish},
        {KEY_ENTER,      &LineEditor::finish},        {KPE_KP_ENTER,  &LineEditor::finish},
    };
    // clang-format on

    static const Row* find(int key) {
        const auto row = std::find_if(std::begin(ROWS), std::end(ROWS), [=](const Row& r) { return r.key == key; });
        return row == std::end(ROWS) ? nullptr : row;
    }
};

namespace {

constexpr int MODIFIERS = KPE_SHIFT | KPE_CTRL | KPE_ALT;
constexpr int FIRST_CODE = 256;  // below it a key is a byte

bool is_word_byte(char c) {
    return kpe_is_alpha(c) || kpe_is_digit(c) || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

// What a key types; "" for a key that types nothing.
std::string text_of(int key) {
    if (kpe_is_character(key)) return kpe_utf8_of(kpe_code_point(key));
    if (key >= 0 && key < FIRST_CODE && key != KPE_ESCAPE) return std::string(1, static_cast<char>(key));
    return "";
}

// A character as it is shown while it is edited, and its cells: nothing that a terminal would obey.
struct ShownCharacter {
    size_t bytes = 1, cells = 1;
    std::string text;
};

ShownCharacter shown_character(std::string_view text, size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < ' ' || byte == KPE_DELETE) return {1, 2, {'^', static_cast<char>(byte ^ 0x40)}};
    if (byte < 0x80 && (at + 1 == text.size() || static_cast<unsigned char>(text[at + 1]) < 0x80))
        return {1, 1, {text[at]}};
    if (!kpe_utf8_locale()) return {1, 1, std::string(1, byte >= 0x80 && byte < 0xa0 ? '?' : text[at])};
    const Utf8Character character = kpe_utf8_character(text.substr(at));
    if (!character.shown) return {character.bytes, 1, "?"};
    return {character.bytes, character.cells, std::string(text.substr(at, character.bytes))};
}

// How many cells [from, to) takes; most + 1 if it is more than most.
size_t cells_between(std::string_view text, size_t from, size_t to, size_t most) {
    size_t cells = 0;
    while (from < to && cells <= most) {
        const ShownCharacter character = shown_character(text, from);
        from += character.bytes;
        cells += character.cells;
    }
    return std::min(cells, most + 1);
}

// Where a part of the text begins that takes at most so many cells up to column to.
size_t start_of_cells(std::string_view text, size_t to, size_t cells) {
    while (to > 0) {
        const size_t before = kpe_character_before(text, to);
        const size_t taken = shown_character(text, before).cells;
        if (taken > cells) break;
        cells -= taken;
        to = before;
    }
    return to;
}

std::string common_start(const std::vector<std::string>& words) {
    std::string common = words.front();
    for (const std::string& word : words) {
        const auto differs = std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
        common.erase(differs, common.end());
    }
    const std::string& first = words.front();
    while (!common.empty() && common.size() < first.size() && kpe_is_continuation(first[common.size()]))
        common.pop_back();
    return common;
}

}  // namespace

// Whether the cursor is behind "CHANGE ;": in the words for CHANGE an Escape ends the text that INSERT takes.
bool LineEditor::in_command_string() const {
    const std::string_view before = std::string_view(line_).substr(0, cursor_);
    for (size_t sign = before.find(';'); sign != before.npos; sign = before.find(';', sign + 1)) {
        const std::string_view command = kpe_trim(before.substr(0, sign));
        const auto letters = std::find_if_not(command.rbegin(), command.rend(), kpe_is_alpha).base();
        std::string verb(letters, command.end());
        std::transform(verb.begin(), verb.end(), verb.begin(), kpe_to_upper);
        if (verb == "C" || verb == "CHANGE") return true;
    }
    return false;
}

void LineEditor::key(int key, bool text_follows) {
    if (literal_) {
        literal_ = false;
        if (key == KPE_LINEFEED) return finish();
        if (key >= 0 && key < FIRST_CODE) return type(std::string(1, static_cast<char>(key)));
    }
    if (searched_ && search_key(key)) return;
    if (key != KPE_TAB) tab_again_ = false;
    if (key > FIRST_CODE && !kpe_is_character(key) && (key & MODIFIERS) == KPE_ALT + KPE_SHIFT) key &= ~KPE_SHIFT;
    const KeyTable::Row* row = KeyTable::find(key);
    const bool modified = !kpe_is_character(key) && (key & MODIFIERS) != 0;
    if (!row && modified && (key & ~MODIFIERS) >= FIRST_CODE) row = KeyTable::find(key & ~MODIFIERS);
    const int behind_escape = key - KPE_ALT;
    const bool alt = behind_escape >= 0 && behind_escape < FIRST_CODE;
    if ((key == KPE_ESCAPE || (alt && (!row || text_follows))) && in_command_string()) {
        type("\033");
        if (alt) this->key(behind_escape, text_follows);
        return;
    }
    if (row) return (this->*row->run)();
    const std::string text = modified ? "" : text_of(key);
    if (text.empty())
        bell_ = key != KPE_ESCAPE;
    else
        type(text);
}

void LineEditor::type(std::string_view text) {
    line_.insert(cursor_, text);
    cursor_ += text.size();
}

void LineEditor::clear() {
    line_.clear();
    cursor_ = left_ = 0;
    history_index_.reset();
    searched_.reset();
}

void LineEditor::finish() {
    searched_.reset();
    finished_ = true;
}

bool LineEditor::take_bell() { return std::exchange(bell_, false); }

std::vector<std::string> LineEditor::take_list() { return std::exchange(list_, {}); }

// --- Motion ---

void LineEditor::left() { cursor_ = kpe_character_before(line_, cursor_); }

void LineEditor::right() { cursor_ = kpe_character_end(line_, cursor_); }

void LineEditor::to_start() { cursor_ = 0; }

void LineEditor::to_end() { cursor_ = line_.size(); }

void LineEditor::word_left() {
    while (cursor_ > 0 && !is_word_byte(line_[cursor_ - 1])) --cursor_;
    while (cursor_ > 0 && is_word_byte(line_[cursor_ - 1])) --cursor_;
}

size_t LineEditor::word_end() const {
    size_t end = cursor_;
    while (end < line_.size() && !is_word_byte(line_[end])) ++end;
    while (end < line_.size() && is_word_byte(line_[end])) ++end;
    return end;
}

void LineEditor::word_right() { cursor_ = word_end(); }

// --- Changes ---

void LineEditor::cut(size_t from, size_t to) {
    if (from == to) return;
    killed_ = line_.substr(from, to - from);
    line_.erase(from, to - from);
    cursor_ = from;
}

void LineEditor::delete_left() {
    const size_t from = kpe_character_before(line_, cursor_);
    line_.erase(from, cursor_ - from);
    cursor_ = from;
}

void LineEditor::delete_right() { line_.erase(cursor_, kpe_character_end(line_, cursor_) - cursor_); }

void LineEditor::delete_blank_word_left() {
    size_t from = cursor_;
    while (from > 0 && kpe_is_space(line_[from - 1])) --from;
    while (from > 0 && !kpe_is_space(line_[from - 1])) --from;
    cut(from, cursor_);
}

void LineEditor::delete_word_right() { cut(cursor_, word_end()); }

void LineEditor::delete_to_start() { cut(0, cursor_); }

void LineEditor::delete_to_end() { cut(cursor_, line_.size()); }

void LineEditor::yank() { type(killed_); }

// The characters on both sides of the cursor change places; at the end of the line the last two.
void LineEditor::transpose() {
    const size_t second =
        kpe_character_before(line_, cursor_ == line_.size() ? cursor_ : kpe_character_end(line_, cursor_));
    const size_t first = kpe_character_before(line_, second), end = kpe_character_end(line_, second);
    if (first == second) return;
    std::rotate(line_.begin() + static_cast<std::ptrdiff_t>(first), line_.begin() + static_cast<std::ptrdiff_t>(second),
                line_.begin() + static_cast<std::ptrdiff_t>(end));
    cursor_ = end;
}

void LineEditor::next_literally() { literal_ = true; }

void LineEditor::complete() {
    const auto found = completer_ ? completer_(std::string_view(line_).substr(0, cursor_)) : std::nullopt;
    if (!found) return type("\t");
    bell_ = found->words.size() != 1;
    if (found->words.empty()) return;
    std::string word = common_start(found->words);
    if (found->words.size() == 1 && !word.ends_with('/')) word += ' ';
    if (word.size() > cursor_ - found->from || found->words.size() == 1) {
        line_.erase(found->from, cursor_ - found->from);
        cursor_ = found->from;
        type(word);
    } else if (tab_again_) {
        list_ = found->words;
        bell_ = false;
    }
    tab_again_ = found->words.size() > 1;
}

// --- History ---

void LineEditor::show_history(size_t index) {
    const std::vector<std::string>& lines = history_->lines();
    if (!history_index_) own_line_ = line_;
    history_index_ = index;
    if (index == lines.size()) history_index_.reset();
    line_ = index == lines.size() ? own_line_ : lines[index];
    cursor_ = line_.size();
}

void LineEditor::older() {
    const size_t at = history_ ? history_index_.value_or(history_->lines().size()) : 0;
    if (at == 0)
        bell_ = true;
    else
        show_history(at - 1);
}

void LineEditor::newer() {
    if (history_index_)
        show_history(*history_index_ + 1);
    else
        bell_ = true;
}

void LineEditor::search() {
    if (history_)
        searched_ = "";
    else
        bell_ = true;
}

// Shows the newest line in front of line number before that holds the text.
void LineEditor::search_back(size_t before) {
    const std::vector<std::string>& lines = history_->lines();
    for (size_t index = std::min(before, lines.size()); index-- > 0;) {
        if (lines[index].find(*searched_) == std::string::npos) continue;
        show_history(index);
        cursor_ = line_.find(*searched_);
        return;
    }
    bell_ = true;
}

// false: the key ends the search, and does to the line what it always does.
bool LineEditor::search_key(int key) {
    const size_t newest = history_->lines().size();
    if (key == kpe_ctrl('R')) {
        search_back(history_index_.value_or(newest));
    } else if (key == kpe_ctrl('G')) {
        searched_.reset();
        if (history_index_) show_history(newest);
    } else if (key == KPE_DELETE || key == KPE_BACKSPACE || key == KEY_BACKSPACE) {
        searched_->resize(kpe_character_before(*searched_, searched_->size()));
        search_back(newest);
    } else if (key >= ' ' && !text_of(key).empty()) {
        *searched_ += text_of(key);
        search_back(history_index_ ? *history_index_ + 1 : newest);
    } else {
        searched_.reset();
        return false;
    }
    return true;
}

// --- The row ---

LineEditor::View LineEditor::view(size_t cells) {
    const size_t room = std::max<size_t>(cells, 2) - 1;
    const std::string label = searched_ ? "(search) " + *searched_ + ": " : prompt_;
    const std::string text = label + line_;
    const size_t cursor = label.size() + cursor_;
    const bool fits = cells_between(text, 0, text.size(), room) <= room;
    if (fits) left_ = 0;
    left_ = std::min(kpe_character_border(text, left_), text.size());
    if (cursor < left_ || cells_between(text, left_, cursor, room) > room)
        left_ = start_of_cells(text, cursor, room - room / 4);
    View view;
    size_t used = 0;
    for (size_t at = left_; at < text.size();) {
        const ShownCharacter character = shown_character(text, at);
        used += character.cells;
        if (used > room) break;
        view.row += character.text;
        at += character.bytes;
        if (at <= cursor) view.cursor = view.row.size();
    }
    view.exact = fits && !searched_ && text.find('\t') == text.npos;
    return view;
}
