#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "buffer/row_rewriter.h"
#include "buffer/text_buffer.h"

// Functions that go through many rows, and may change them. Rows are zero-based, first and last are inclusive, and both
// must exist. A text in which no byte changes does not count as modified.

using ByteTable = std::array<char, UCHAR_MAX + 1>;  // the byte that each byte becomes

// The table that a function of one byte makes.
template <class Change>
ByteTable byte_table(Change change) {
    ByteTable table{};
    for (size_t byte = 0; byte < table.size(); ++byte) table[byte] = change(static_cast<char>(byte));
    return table;
}

// Rewrites the rows that change, and only these. The mark is not moved. change(row, line, text) gets a row and its
// line; it puts the new text into text, or returns false if the row stays as it is.
template <class Change>
void rewrite_rows(TextBuffer& buffer, size_t first, size_t last, Change change) {
    RowRewriter rewriter = buffer.rewrite();
    std::string text;
    for (size_t row = first; row <= last; ++row)
        if (change(row, buffer.lines().view(row), text)) rewriter.put(row, text);
    rewriter.finish();
}

// Replaces each byte from row first, column from, up to row last, column to (exclusive), by its entry in table.
inline void change_bytes(TextBuffer& buffer, size_t first, size_t from, size_t last, size_t to,
                         const ByteTable& table) {
    const auto changed = [&](char c) { return table[static_cast<unsigned char>(c)]; };
    rewrite_rows(buffer, first, last, [&](size_t row, std::string_view line, std::string& text) {
        const size_t begin = row == first ? std::min(from, line.size()) : 0;
        const size_t end = row == last ? std::min(to, line.size()) : line.size();
        if (begin >= end) return false;
        text.assign(line);
        std::transform(text.begin() + static_cast<std::ptrdiff_t>(begin),
                       text.begin() + static_cast<std::ptrdiff_t>(end),
                       text.begin() + static_cast<std::ptrdiff_t>(begin), changed);
        return text != line;
    });
}

// Replaces the first bytes of each row, and moves the mark with its text. front(row, line, text) returns how many bytes
// are replaced, and puts into text what takes their place.
template <class Front>
void replace_fronts(TextBuffer& buffer, size_t first, size_t last, Front front) {
    const size_t mark_row = buffer.has_mark() ? buffer.mark_row() : std::string::npos;
    std::string start;
    rewrite_rows(buffer, first, last, [&](size_t row, std::string_view line, std::string& text) {
        if (row == mark_row) return false;
        const size_t count = front(row, line, start);
        if (line.substr(0, count) == start) return false;
        text.assign(start).append(line.substr(count));
        return true;
    });
    if (mark_row < first || mark_row > last) return;
    const size_t count = front(mark_row, buffer.view(mark_row), start);
    buffer.replace_in_line(mark_row, 0, count, start);
}
