#pragma once

#include <bitset>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "buffer/byte_search.h"

// The text with its letters A to Z made small, whatever locale the process has.
std::string kpe_lowered(std::string_view text);

// A compiled search string: the segments between its stars.
//
// Every element of a segment matches exactly one byte, so a segment has a fixed length. That makes matching fast: if
// what follows a star can be matched from some place, it can be matched from every earlier place as well. So
// backtracking that tries the shortest text first ends at the earliest place of each segment. A tail that failed once
// need not be tried again further right. Backward, the last place from which the tail matches is found only once.
class Pattern {
public:
    static constexpr size_t NONE = ByteSearch::NONE;
    struct Match {
        size_t col, len;
    };

    Pattern() = default;  // the empty pattern, which matches the empty text
    // A pattern in which each byte stands for itself. If exact is false, its case does not matter.
    static Pattern literal(std::string_view text, bool exact);
    // A pattern in the language of TextBuffer::wmatch; the first NUL ends it. If exact is false, the string is made
    // lower-case before it is read, and the text before it is compared.
    static Pattern wildcard(std::string_view text, bool exact);

    // The length of the match that begins at col (col <= text.size()); nothing if there is none.
    std::optional<size_t> length_at(std::string_view text, size_t col, Patience& patience) const;
    // The first match that starts at from or later; the last match that starts at limit or earlier.
    std::optional<Match> first(std::string_view text, size_t from, Patience& patience) const;
    std::optional<Match> last(std::string_view text, size_t limit, Patience& patience) const;

    // The rarest string of bytes that every match must hold; null if there is none.
    const ByteSearch* key() const;
    // If false, nothing can match, whatever the text.
    bool possible() const { return possible_; }

private:
    using ByteSet = std::bitset<256>;

    class Segment {
    public:
        void add(char byte, bool exact);  // adds a byte that stands for itself
        void add(const ByteSet& set);     // adds one byte of a set
        void finish(bool exact);          // call it when all elements are added
        size_t size() const { return sets_.size(); }
        const ByteSearch& key() const { return key_; }
        bool is_at(const char* p) const;  // size() bytes must be readable at p
        // The first (find) or last (rfind) place at from or later that lies wholly inside text.
        size_t find(std::string_view text, size_t from, Patience& patience) const;
        size_t rfind(std::string_view text, size_t from, Patience& patience) const;

    private:
        static constexpr int NO_BYTE = -1;
        bool literal() const { return key_.size() == size(); }
        std::vector<ByteSet> sets_;
        std::vector<int> bytes_;  // the byte, in lower case unless exact, or NO_BYTE; until finish()
        ByteSearch key_;          // its rarest run of single bytes
        size_t key_at_ = 0;
    };
    struct Reader;

    bool fixed(size_t i) const { return ends_line_ && i + 1 == segments_.size(); }
    size_t first_place(size_t i, std::string_view text, size_t from, Patience& patience) const;
    size_t last_place(size_t i, std::string_view text, size_t end, Patience& patience) const;
    std::optional<Match> finish_match(std::string_view text, size_t col, Patience& patience) const;

    std::vector<Segment> segments_ = std::vector<Segment>(1);  // the first segment begins the match
    bool ends_line_ = false;                                   // whether the last segment must end with the text
    bool possible_ = true;
};
