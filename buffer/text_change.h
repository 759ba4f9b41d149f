#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "buffer/line_store.h"

// What a key or a command has changed, packed into few bytes: the difference of the text before and after. It does not
// matter what has made the change.
//
// Bytes that did not change are not repeated, nor are rows that can be found in a source: a text that whoever applies
// the change can read elsewhere, such as the file as it was loaded.

// Texts that changes may refer to by their numbers.
class SourceTexts {
public:
    // The text must be one that was loaded from a file. The store is kept, so that its rows stay where they are.
    void add(size_t number, const LineStore& text);
    void clear();

    struct Rows {
        size_t source, row, count;  // count: the rows from row on that lie one behind the other
    };
    // The rows that begin with the line, which has to lie at the same place in memory.
    std::optional<Rows> find(std::string_view line) const;

private:
    struct Text {
        size_t number;
        LineStore lines;
    };
    struct Run {
        const char *begin, *end;
        size_t text, row, rows;  // text: index in texts_
    };
    void find_runs() const;

    std::vector<Text> texts_;
    mutable std::vector<Run> runs_;  // by address; made when somebody looks for a line
    mutable size_t texts_in_runs_ = 0;
};

// Packs the change of old into now. Returns "" if there is none. used gets the numbers of the sources that the change
// refers to. Throws std::bad_alloc.
std::string kpe_pack_change(const LineStore& old, const LineStore& now, const SourceTexts& sources,
                            std::vector<size_t>& used);

// What the change brings that is not copied from elsewhere: rows, counted from zero, and the text that came there. Rows
// of an unreadable change are left out.
struct AddedText {
    size_t row;
    std::string text;
};
std::vector<AddedText> kpe_added_text(std::string_view change);

// Applies a packed change. sources holds the text of each number, null where there is none. Returns false if the change
// does not fit to the text, which is then as it was. The change may hold any bytes. Throws std::bad_alloc.
bool kpe_apply_change(LineStore& text, std::string_view change, std::span<const LineStore* const> sources);
