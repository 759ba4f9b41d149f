#pragma once

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "buffer/line_store.h"
#include "buffer/match.h"
#include "files/file_handle.h"
#include "system/free_memory.h"

class RowRewriter;

// This folder, buffer/, holds the text of a buffer, the shared storage of its lines, and the search in it. It knows
// nothing of commands and never prints.
//
// A TextBuffer is the text of one buffer: its lines without line ends, the name of its file, whether it was modified,
// whether it ends in a newline, and at most one mark, which moves with the text around it. A copy is an independent
// text that shares what has not changed.
//
// Rows and columns are zero-based, and columns count bytes. A column may equal the length of the line. Positions
// outside the text are never errors: to read there gives nothing, to delete does nothing, a column behind the end
// counts as the end, and to insert behind the last row first appends empty lines. There is always at least one line.
// Every change of the text sets modified(). If memory runs out during a change, it throws std::bad_alloc, and the text,
// the mark, modified() and the caller's row and column are as they were.
class TextBuffer {
public:
    TextBuffer();  // one empty line, without a name

    // --- Loading and the whole text: text_buffer.cpp ---
    enum class Load { Missing, Whole, Broken };  // Broken: the file exists, but was not read to its end
    // Reads the file. Returns false if it could not be opened. Reading stops once *abort (may be null) is not 0. If
    // memory runs out, the text is empty and load_state() is Broken.
    //
    // Carriage returns in front of line ends are dropped. LineEnds::Same drops them only if each line end has one;
    // otherwise they stay as bytes of their lines, so that the text can be written as it was read.
    enum class LineEnds { Plain, Same };
    bool load(const std::string& path, const volatile std::sig_atomic_t* abort = nullptr,
              LineEnds ends = LineEnds::Plain);
    // Whether the last load() found a carriage return in front of each line end and dropped it. Only of LineEnds::Same.
    bool returns_dropped() const { return returns_dropped_; }
    // How the last load() ended. A file that exists but could not be opened counts as Broken.
    // Nor is it Whole any more once bytes of the file turned out to be unreadable: they are zeros then.
    Load load_state() const { return lost_bytes() ? Load::Broken : load_state_; }
    // The errno that says why the last load() was not Whole, else 0. EISDIR for a directory, which counts as empty.
    int load_error() const { return lost_bytes() ? EIO : load_error_; }
    // What the file needed of the memory, if the last load() refused it because there was not so much; else none.
    const std::optional<MemoryNeed>& too_large() const { return too_large_; }
    // The file as it was before it was read; all 0 if there was none.
    const FileState& loaded_file() const { return loaded_file_; }
    void set_filename(const std::string& name) { filename_ = name; }
    const std::string& filename() const { return filename_; }
    bool modified() const { return modified_; }
    void set_modified() { modified_ = true; }
    void clear_modified() { modified_ = false; }
    bool final_newline() const { return final_newline_; }
    size_t line_count() const { return lines_.size(); }
    void clear();
    void set_text(std::string_view text);
    std::string text() const;
    const std::string& line(size_t row) const;  // past the end an empty string
    std::string& line(size_t row);              // row must exist; the caller looks after modified() and the mark
    std::string_view view(size_t row) const;    // as line(), but makes no string
    std::vector<std::string_view> views(size_t first, size_t most) const;  // of rows from first on, at most so many
    size_t length(size_t row) const { return row < line_count() ? lines_.length(row) : 0; }
    std::vector<std::string> lines_in_range(size_t first, size_t last) const;  // both inclusive
    void ensure_row(size_t row);  // appends empty lines until row exists; leaves modified()

    // --- Whole lines ---
    void append_lines(const std::vector<std::string>& lines);
    void append_lines(const LineStore& lines);
    void insert_lines(size_t at, const std::vector<std::string>& lines);
    void insert_lines(size_t at, const LineStore& lines);
    std::string delete_line(size_t row);                     // returns the line and "\n"
    std::string delete_range(size_t first, size_t last);     // both inclusive; returns the lines with "\n"
    LineStore take_range(size_t first, size_t last);         // as delete_range, but shares the text
    LineStore share_range(size_t first, size_t last) const;  // as lines_in_range, but shares the text
    void set_lines(const LineStore& lines);                  // as set_text, but keeps final_newline()
    const LineStore& lines() const { return lines_; }

    // --- Characters, words and spans: text_edits.cpp ---
    void insert_char(size_t row, size_t col, char c);
    void insert_text(size_t& row, size_t& col, std::string_view text);
    // Inserts the rows, each with a line break behind it, as insert_text would insert them joined to one text.
    void insert_rows_as_text(size_t& row, size_t& col, const LineStore& rows);
    void split_line(size_t row, size_t col);
    char backspace(size_t& row, size_t& col);
    char delete_at(size_t row, size_t col);
    // Deletes count bytes of a line and returns them. What lies behind the end of the line or of the text is left out.
    std::string delete_in_line(size_t row, size_t col, size_t count);
    std::string delete_to_eol(size_t row, size_t col);
    std::string delete_to_bol(size_t row, size_t& col);
    std::string delete_word_forward(size_t row, size_t& col, const std::string& delims);
    std::string delete_word_backward(size_t& row, size_t& col, const std::string& delims);
    std::string text_in_span(size_t r1, size_t c1, size_t r2, size_t c2) const;
    std::string delete_span(size_t r1, size_t c1, size_t r2, size_t c2);
    // Replaces count bytes at col by text. A line break in text becomes a byte of the line and does not split it. If
    // row is past the end, nothing changes; col and count are cut at the end of the line. A mark behind the replaced
    // bytes moves with its text, and a mark inside them goes to their start. If the bytes are the same as before, that
    // is no change.
    void replace_in_line(size_t row, size_t col, size_t count, std::string_view text);
    // Calls LineStore::replace. what must have a literal(), and the mark must not lie in these rows.
    LineStore::Hits replace_all(size_t first, size_t last, const Matcher& what, std::string_view by);
    // For replacing whole lines, in ascending order. A line that gets other bytes sets modified(). The caller calls
    // clamp_mark() afterwards. The buffer object must not move or go meanwhile.
    RowRewriter rewrite();

    // --- The mark: mark.cpp ---
    void set_mark(size_t row, size_t col);
    void clear_mark();
    bool has_mark() const { return mark_set_; }
    size_t mark_row() const { return mark_row_; }
    size_t mark_col() const { return mark_col_; }
    void clamp_mark();
    void mark_on_erase_chars(size_t row, size_t col, size_t n);
    void mark_on_join(size_t row, size_t prev_len);

    // --- Searching: match.cpp ---
    static bool has_wildcards(const std::string& s);
    static std::string to_lower(const std::string& s);
    // Matches a pattern that ends with NUL against the start of the len bytes at text. Returns how many bytes it
    // matched, or -1.
    static int wmatch(const char* pattern, const char* text, size_t len);
    size_t match_len_at(const std::string& needle, size_t row, size_t col, bool exact) const;
    std::optional<std::pair<size_t, size_t>> find_forward(const std::string& needle, size_t row, size_t col,
                                                          bool exact) const;
    std::optional<std::pair<size_t, size_t>> find_backward(const std::string& needle, size_t row, size_t col,
                                                           bool exact) const;

private:
    bool lost_bytes() const { return clone_ && clone_->file()->lost_bytes(); }
    bool is_blank() const;  // exactly one empty line
    void replace_lines(const LineStore& lines);
    template <typename Lines>
    void insert_any(size_t at, const Lines& lines);
    template <typename Lines>
    void append_any(const Lines& lines);
    void remove_rows(size_t first, size_t last);
    LineStore lines_to(size_t row) const;
    std::string& edit_row(size_t row, size_t room);
    std::string cut_bytes(size_t row, size_t col, size_t count);
    void join_with_next(size_t row);
    void mark_on_insert(size_t row, size_t col, size_t new_rows, size_t new_col);

    std::string filename_;
    LineStore lines_;
    bool modified_ = false;
    bool final_newline_ = true;
    bool returns_dropped_ = false;
    bool mark_set_ = false;
    size_t mark_row_ = 0, mark_col_ = 0;
    Load load_state_ = Load::Missing;
    int load_error_ = 0;
    std::optional<MemoryNeed> too_large_;
    std::shared_ptr<const Block> clone_;  // of the file, if its text is read when it is needed
    FileState loaded_file_;
};
