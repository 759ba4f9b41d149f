#pragma once

#include <csignal>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "buffer/byte_search.h"

class LineStore;

// A search string made ready: read once, then asked about many lines. What it finds is what
// shortest-first backtracking over the string finds; the time is linear in string times text.
//
// Columns are zero-based bytes. A string without wildcards (TextBuffer::has_wildcards) is searched
// literally, NUL bytes included; a NUL ends a wildcard string.
class Matcher {
public:
    static constexpr int LINE_START = -1;
    // A line, or what is left of one behind a change: before is the byte in front of text, or
    // LINE_START when text begins the line.
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

    Matcher();  // the empty string: finds nothing
    // exact false: string and text are both folded with tolower of the C locale. Long matches give up
    // (as if nothing were found) once *abort is not 0; the flag is left as it is.
    Matcher(std::string_view needle, bool exact, const volatile std::sig_atomic_t* abort = nullptr);
    ~Matcher();
    Matcher(Matcher&&) noexcept;
    Matcher& operator=(Matcher&&) noexcept;

    const std::string& needle() const;
    bool exact() const;
    bool wild() const;
    // What a literal string is found with; null for one with wildcards, an empty one and one with a line break.
    const ByteSearch* literal() const;
    Patience patience() const { return Patience(abort()); }

    // The first match that starts at column from or later (from is lowered to the length of text).
    std::optional<Match> first_in(const Piece& line, size_t from) const;
    // The last one below limit (lowered to the length): a literal must end at or before it, a wildcard
    // match may start at it.
    std::optional<Match> last_in(const Piece& line, size_t limit) const;
    // The length of the match at col, by the rules of TextBuffer::match_len_at; 0 once it gave up, so that
    // nobody takes the string's own length for text that was matched.
    size_t length_at(std::string_view line, size_t col) const;

    // Scans over the rows of a store: the rules of TextBuffer::find_forward and find_backward. Untouched
    // runs of bytes are searched as they lie. An aborted scan returns nothing.
    std::optional<Place> find_forward(const LineStore& lines, size_t row, size_t col) const;
    std::optional<Place> find_backward(const LineStore& lines, size_t row, size_t col) const;

private:
    const volatile std::sig_atomic_t* abort() const;
    struct Program;
    std::unique_ptr<Program> program_;
};
