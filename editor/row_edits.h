#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "buffer/text_buffer.h"

// Passes over many rows, and changes of them. Rows are zero-based and inclusive, and must exist. A text in which no
// byte changes stays unmodified.

// Every run of bytes that the rows lie in, from the first to the last.
template <class Use>
void for_each_run(const LineStore& rows, Use use) {
    for (size_t row = 0; row < rows.size();) {
        const LineStore::Run run = rows.run_from(row);
        use(run);
        row += run.rows;
    }
}

using ByteTable = std::array<char, UCHAR_MAX + 1>;  // what each byte becomes

// The table of a function of one byte.
template <class Change>
ByteTable byte_table(Change change) {
    ByteTable table{};
    for (size_t byte = 0; byte < table.size(); ++byte) table[byte] = change(static_cast<char>(byte));
    return table;
}

// Rewrites the rows that change, and only these; the mark is not moved. change(row, line, text) puts a row's
// new text, and returns false if the row stays as it is.
template <class Change>
void rewrite_rows(TextBuffer& buffer, size_t first, size_t last, Change change) {
    const LineStore old = buffer.lines();  // rows behind one that was put may only be read in a copy
    std::unique_ptr<LineStore::Rewriter> rewriter;
    std::string text;
    for (size_t row = first; row <= last; ++row) {
        if (!change(row, old.view(row), text)) continue;
        if (!rewriter) rewriter.reset(new LineStore::Rewriter(buffer.rewrite()));
        rewriter->put(row, text);
    }
    if (rewriter) rewriter->finish();
}

// Passes the bytes from (first, from) up to, not including, (last, to) through table.
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

// Replaces the first bytes of each row, and moves the mark with its text. front(row, line, text) returns how
// many bytes, and puts what takes their place.
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
