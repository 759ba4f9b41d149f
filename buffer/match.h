#pragma once

#include <csignal>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "buffer/byte_search.h"

class LineStore;

// A search string that was read once, and can then be looked for in many lines. It finds what a backtracking search
// finds that tries the shortest text for each star first. The time is in proportion to the length of the string times
// that of the text.
//
// Columns are zero-based and count bytes. A string without wildcards (TextBuffer::has_wildcards) stands for itself, NUL
// bytes included. A string with wildcards ends at the first NUL.
class Matcher {
public:
    static constexpr int LINE_START = -1;
    // A line, or the rest of a line behind a place that was changed. before is the byte in front of text, or LINE_START
    // if text begins the line.
    struct Piece {
        std::string_view text;
        int before = LINE_START;
    };
    struct Match {
        size_t col = 0, len = 0;
    };
    struct Place {
        size_t row = 0, col = 0, len = 0;
    };

    Matcher();  // the empty string, which is found nowhere
    // If exact is false, capital and small letters A to Z count as the same. Once *abort (may be null) is not 0, a long
    // search stops as if nothing were found; the flag stays set.
    Matcher(std::string_view needle, bool exact, const volatile std::sig_atomic_t* abort = nullptr);
    ~Matcher();
    Matcher(Matcher&&) noexcept;
    Matcher& operator=(Matcher&&) noexcept;

    const std::string& needle() const;
    bool exact() const;
    bool wild() const;
    // The search for a string without wildcards. Null if it has wildcards, is empty or holds a line break.
    const ByteSearch* literal() const;
    Patience patience() const { return Patience(abort()); }

    // The first match that starts at column from or later. A from behind the end counts as the end.
    std::optional<Match> first_in(const Piece& line, size_t from) const;
    // The last match in front of column limit; a limit behind the end counts as the end. A string without wildcards
    // must end at limit or before it, one with wildcards may start there.
    std::optional<Match> last_in(const Piece& line, size_t limit) const;
    // The length of the match at col, by the rules of TextBuffer::match_len_at. 0 if the search was stopped by the
    // abort flag, so that nobody takes the string's own length for text that was matched.
    size_t length_at(std::string_view line, size_t col) const;

    // Search the rows of a store, by the rules of TextBuffer::find_forward and find_backward. Long stretches of
    // untouched lines are searched as one text. If the abort flag stops the search, it returns nothing.
    std::optional<Place> find_forward(const LineStore& lines, size_t row, size_t col) const;
    std::optional<Place> find_backward(const LineStore& lines, size_t row, size_t col) const;

private:
    const volatile std::sig_atomic_t* abort() const;
    struct Program;
    std::unique_ptr<Program> program_;
};
