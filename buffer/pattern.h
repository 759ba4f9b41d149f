#pragma once

#include <bitset>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "buffer/byte_search.h"

// tolower of the C locale for each byte, whatever locale the process runs in.
std::string kpe_lowered(std::string_view text);

// A search string compiled: the segments between its stars. Every element of a segment takes exactly
// one byte, so a segment has a fixed length, and that is what makes matching linear: if what follows a
// star can be matched from some place, it can be matched from every earlier place too. Hence the
// earliest place of each segment is the one at which shortest-first backtracking ends, a tail that
// failed once need not be tried again further right, and going backward the latest place from which the
// tail still matches is found once.
class Pattern {
public:
    static constexpr size_t NONE = ByteSearch::NONE;
    struct Match {
        size_t col, len;
    };

    Pattern() = default;  // matches the empty text
    // Each byte stands for itself. exact false: whatever its case.
    static Pattern literal(std::string_view text, bool exact);
    // The pattern language of TextBuffer::wmatch, up to the first NUL. exact false: the string is
    // lowered before it is read, and so is the text before it is compared.
    static Pattern wildcard(std::string_view text, bool exact);

    // The match that begins at col (col <= text.size()); its length.
    std::optional<size_t> length_at(std::string_view text, size_t col, Patience& patience) const;
    // The first match that starts at from or later, the last that starts at limit or earlier.
    std::optional<Match> first(std::string_view text, size_t from, Patience& patience) const;
    std::optional<Match> last(std::string_view text, size_t limit, Patience& patience) const;

    // A string of bytes that every match holds, the most telling one; null if there is none.
    const ByteSearch* key() const;
    // False: nothing can match, whatever the text.
    bool possible() const { return possible_; }

private:
    using ByteSet = std::bitset<256>;

    class Segment {
    public:
        void add(char byte, bool exact);  // a byte that stands for itself
        void add(const ByteSet& set);     // one byte of a set
        void finish(bool exact);          // all elements added
        size_t size() const { return sets_.size(); }
        const ByteSearch& key() const { return key_; }
        bool is_at(const char* p) const;  // size() bytes readable
        // The first or last place at from or later, wholly inside text.
        size_t find(std::string_view text, size_t from, Patience& patience) const;
        size_t rfind(std::string_view text, size_t from, Patience& patience) const;

    private:
        static constexpr int NO_BYTE = -1;
        bool literal() const { return key_.size() == size(); }
        std::vector<ByteSet> sets_;
        std::vector<int> bytes_;  // the byte, in lower case unless exact, or NO_BYTE; until finish()
        ByteSearch key_;          // its most telling run of single bytes
        size_t key_at_ = 0;
    };
    struct Reader;

    bool fixed(size_t i) const { return ends_line_ && i + 1 == segments_.size(); }
    size_t first_place(size_t i, std::string_view text, size_t from, Patience& patience) const;
    size_t last_place(size_t i, std::string_view text, size_t end, Patience& patience) const;
    std::optional<Match> finish_match(std::string_view text, size_t col, Patience& patience) const;

    std::vector<Segment> segments_ = std::vector<Segment>(1);  // the first one begins the match
    bool ends_line_ = false;                                   // the last one must end with the text
    bool possible_ = true;
};
