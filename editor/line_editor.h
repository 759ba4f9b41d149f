#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class LineHistory;

// What can stand in the place of the last word in front of the cursor.
struct Completion {
    size_t from = 0;                 // where that word begins
    std::vector<std::string> words;  // whole words; the one that is chosen replaces what was typed of it
};
// What completes a line, by the text in front of the cursor. Nothing: no names stand there, and a tab is a tab.
using Completer = std::function<std::optional<Completion>(std::string_view before)>;

// One line that is being typed, and what keys do to it. It knows nothing of the terminal: whoever has one gives it
// keys, and shows what view() returns. Columns count bytes.
class LineEditor {
public:
    // The history (may be null) and the completer (may be empty) have to outlive the object.
    LineEditor(std::string prompt, LineHistory* history, const Completer& completer)
        : prompt_(std::move(prompt)), history_(history), completer_(completer) {}

    // Takes a key, as KeyDecoder makes it. text_follows: more bytes have come with it, so it may be no key at all but
    // Escape and a character of a text.
    void key(int key, bool text_follows = false);
    // Puts text in at the cursor as it is.
    void type(std::string_view text);
    void clear();
    void finish();
    // Whether the line is complete.
    bool finished() const { return finished_; }
    // Whether the next key is taken as text, whatever it is.
    bool takes_literally() const { return literal_; }
    const std::string& line() const { return line_; }
    const std::string& prompt() const { return prompt_; }

    // Whether a key could do nothing since the last call.
    bool take_bell();
    // The words among which the user wants to choose; nothing unless Tab was pressed twice.
    std::vector<std::string> take_list();

    // The row that shows the prompt and the line, or the part of them around the cursor.
    struct View {
        std::string row;
        size_t cursor = 0;   // how many bytes of row are in front of the cursor
        bool exact = false;  // row is the prompt and the whole line, as they will stand
    };
    // cells: how many there are for it and for the cursor behind it; at least 1 is taken.
    View view(size_t cells);

private:
    struct KeyTable;

    void left();
    void right();
    void word_left();
    void word_right();
    void to_start();
    void to_end();
    void delete_left();
    void delete_right();
    void delete_blank_word_left();
    void delete_word_right();
    void delete_to_start();
    void delete_to_end();
    void yank();
    void transpose();
    void next_literally();
    void complete();
    void older();
    void newer();
    void search();

    bool in_command_string() const;
    size_t word_end() const;
    void cut(size_t from, size_t to);
    void show_history(size_t index);
    bool search_key(int key);
    void search_back(size_t before);

    std::string prompt_, line_, killed_;
    size_t cursor_ = 0;
    size_t left_ = 0;  // the byte of prompt and line at the left edge
    LineHistory* history_;
    const Completer& completer_;
    bool finished_ = false, literal_ = false, bell_ = false;
    bool tab_again_ = false;  // the last key was a Tab that had several words to choose from
    std::vector<std::string> list_;
    std::optional<size_t> history_index_;  // the line of the history that is shown
    std::string own_line_;                 // what was typed before the history was shown
    std::optional<std::string> searched_;  // what Ctrl/R looks for
};
