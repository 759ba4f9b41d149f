#pragma once

#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include "editor/kpe.h"

// Opens Editor to the tests: its text and its state, without a file or a command line.
struct EditorPeek {
    Editor editor{{}, std::nullopt, std::nullopt, false, false, std::nullopt};

    TextBuffer& buffer() { return editor.buffer_; }
    std::vector<std::string> lines() { return editor.buffer_.lines_in_range(0, editor.buffer_.line_count()); }
    std::pair<size_t, size_t> cursor() { return {editor.cursor_row_, editor.cursor_col_}; }
    void set_cursor(size_t row, size_t col) {
        editor.cursor_row_ = row;
        editor.cursor_col_ = col;
    }
    const std::string& message() { return editor.message_; }

    struct SearchModes {
        bool exact = true, begin = false, end = false, word = false;
    };
    void set_search(const std::string& string, const SearchModes& modes) {
        editor.last_search_ = string;
        editor.search_exact_ = modes.exact;
        editor.search_begin_ = modes.begin;
        editor.search_end_ = modes.end;
        editor.search_word_ = modes.word;
    }
    auto parse(const std::string& line) { return editor.parse_command(line); }
    static auto qualifiers(std::string& line) { return Editor::extract_qualifiers(line); }
    auto line_ref(const std::string& text) { return editor.parse_line_ref(text); }
    auto line_range(const std::string& text) { return editor.parse_line_range(text); }
    bool undo() { return editor.undo_last(/*report=*/false); }
    bool redo() { return editor.redo_last(/*report=*/false); }
    // Every buffer as it would be kept now, the edited one included.
    const std::map<std::string, TextBuffer>& buffers() {
        editor.save_current_buffer_state();
        return editor.buffers_;
    }
    const std::string& buffer_name() { return editor.current_buffer_name_; }
    bool writes_records() { return editor.rms_fixed_; }
    const std::string& saved_path() { return editor.last_saved_path_; }
    std::string journal_path() { return editor.journal_path(); }
    size_t warnings() { return editor.startup_warnings_.size(); }
    bool is_delim(char c) { return editor.is_delim(c); }
    auto search_forward(size_t row, size_t col) { return editor.search_forward(row, col); }
    auto search_backward(size_t row, size_t col) { return editor.search_backward(row, col); }
    void substitute_global(const std::string& by) { editor.substitute_global(by, /*query=*/false, /*report=*/false); }
    void substitute_range(size_t first, size_t last, const std::string& by) {
        editor.substitute_range({first, last}, by, {}, /*report=*/false);
    }
};
