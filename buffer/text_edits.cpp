#include <algorithm>

#include "buffer/row_rewriter.h"
#include "buffer/text_buffer.h"

#include "buffer/characters.h"

namespace {

std::string head_and(std::string_view head, std::string_view more) {
    std::string line;
    line.reserve(head.size() + more.size());
    return line.append(head).append(more);
}

// Whether some line holds a line break of its own.
bool holds_breaks(const LineStore& rows) {
    for (const LineRun& run : rows.runs()) {
        size_t breaks = 0;
        for (size_t at = 0; (at = run.bytes.find('\n', at)) != std::string_view::npos; ++at) ++breaks;
        if (breaks != (run.terminated ? run.rows : 0)) return true;
    }
    return false;
}

}  // namespace

// --- Insertions ---

void TextBuffer::insert_char(size_t row, size_t col, char c) {
    std::string& line = edit_row(row, 1);
    col = std::min(col, line.size());
    line.insert(col, 1, c);
    mark_on_insert(row, col, 0, col + 1);
    modified_ = true;
}

// The same as inserting byte after byte. The cursor's column is not lowered to the line: where it was
// beyond the end it stays as far beyond, until a line break.
void TextBuffer::insert_text(size_t& row, size_t& col, std::string_view text) {
    if (text.empty()) return;
    const std::string own(text);  // it may lie in the line that changes
    text = own;
    const size_t at = std::min(col, length(row));
    const size_t first_break = text.find('\n');
    if (first_break == std::string_view::npos) {
        edit_row(row, text.size()).insert(at, text);
        mark_on_insert(row, at, 0, at + text.size());
        modified_ = true;
        col += text.size();
        return;
    }
    const size_t last_break = text.rfind('\n');
    const std::string_view last = text.substr(last_break + 1);
    LineStore added =
        LineStore::from_text(text.substr(first_break + 1, last_break - first_break), LineStore::Returns::Keep);
    const size_t new_rows = added.size() + 1;
    added.insert(added.size(), {head_and(last, view(row).substr(at))});
    LineStore changed = lines_to(row);
    changed.set(row, head_and(view(row).substr(0, at), text.substr(0, first_break)));
    changed.insert(row + 1, added);
    lines_ = std::move(changed);
    mark_on_insert(row, at, new_rows, last.size());
    modified_ = true;
    row += new_rows;
    col = last.size();
}

void TextBuffer::insert_rows_as_text(size_t& row, size_t& col, const LineStore& rows) {
    if (rows.empty()) return;
    if (holds_breaks(rows)) {
        std::string text;
        rows.append_text(text, 0, rows.size());
        return insert_text(row, col, text);
    }
    LineStore added = rows;
    const size_t new_rows = added.size();
    const size_t at = std::min(col, length(row));
    LineStore changed = lines_to(row);
    if (at > 0) {
        // The first row goes behind what stays, and what follows the cursor becomes a row behind the last.
        changed.set(row, head_and(view(row).substr(0, at), added.view(0)));
        added.erase(0, 1);
        added.insert(added.size(), {std::string(view(row).substr(at))});
    }
    changed.insert(at > 0 ? row + 1 : row, added);
    lines_ = std::move(changed);
    mark_on_insert(row, at, new_rows, 0);
    modified_ = true;
    row += new_rows;
    col = 0;
}

void TextBuffer::split_line(size_t row, size_t col) {
    col = std::min(col, length(row));
    if (row >= line_count()) {
        ensure_row(row + 1);
    } else if (col == 0) {
        lines_.insert(row, std::vector<std::string>{""});
    } else if (col == length(row)) {
        lines_.insert(row + 1, std::vector<std::string>{""});
    } else {
        std::string& line = lines_.edit(row);
        lines_.insert(row + 1, {line.substr(col)});
        line.resize(col);
    }
    mark_on_insert(row, col, 1, 0);
    modified_ = true;
}

// --- Deletions ---

// Takes count bytes that exist out of a line.
std::string TextBuffer::cut_bytes(size_t row, size_t col, size_t count) {
    if (count == 0) return {};
    std::string& line = lines_.edit(row);
    std::string removed = line.substr(col, count);
    line.erase(col, count);
    mark_on_erase_chars(row, col, count);
    modified_ = true;
    return removed;
}

// row + 1 exists.
void TextBuffer::join_with_next(size_t row) {
    const size_t old_length = length(row);
    if (old_length == 0) {
        lines_.erase(row, row + 1);
    } else {
        const std::string next(view(row + 1));
        if (next.empty()) {
            lines_.erase(row + 1, row + 2);
        } else {
            std::string& line = lines_.edit(row, next.size());
            line.reserve(old_length + next.size());
            lines_.erase(row + 1, row + 2);
            line.append(next);
        }
    }
    mark_on_join(row, old_length);
    modified_ = true;
}

std::string TextBuffer::delete_in_line(size_t row, size_t col, size_t count) {
    if (row >= line_count()) return {};
    col = std::min(col, length(row));
    return cut_bytes(row, col, std::min(count, length(row) - col));
}

char TextBuffer::backspace(size_t& row, size_t& col) {
    if (row >= line_count()) return 0;
    if (col > 0) {
        if (col > length(row)) return 0;
        const char removed = cut_bytes(row, col - 1, 1).front();
        --col;
        return removed;
    }
    if (row == 0) return 0;
    const size_t old_length = length(row - 1);
    join_with_next(row - 1);
    --row;
    col = old_length;
    return '\n';
}

char TextBuffer::delete_at(size_t row, size_t col) {
    if (row >= line_count()) return 0;
    if (col < length(row)) return cut_bytes(row, col, 1).front();
    if (row + 1 == line_count()) return 0;
    join_with_next(row);
    return '\n';
}

std::string TextBuffer::delete_to_eol(size_t row, size_t col) {
    if (row >= line_count()) return {};
    const size_t old_length = length(row);
    col = std::min(col, old_length);
    std::string removed = cut_bytes(row, col, old_length - col);
    if (mark_set_ && mark_row_ == row) mark_col_ = std::min(mark_col_, col);
    return removed;
}

std::string TextBuffer::delete_to_bol(size_t row, size_t& col) {
    if (row >= line_count()) return {};
    std::string removed = cut_bytes(row, 0, std::min(col, length(row)));
    col = 0;
    return removed;
}

std::string TextBuffer::delete_word_forward(size_t row, size_t& col, const std::string& delims) {
    const std::string_view line = view(row);
    if (row >= line_count() || col >= line.size()) return {};
    const size_t word = std::min(line.find_first_not_of(delims, col), line.size());
    const size_t end = kpe_character_border(line, std::min(line.find_first_of(delims, word), line.size()));
    return cut_bytes(row, col, end - col);
}

std::string TextBuffer::delete_word_backward(size_t& row, size_t& col, const std::string& delims) {
    if (row >= line_count()) return {};
    if (col == 0) {
        TextBuffer joined = *this;  // of two changes both are made or none
        size_t to_row = row, to_col = col;
        if (joined.backspace(to_row, to_col) == 0) return {};
        std::string removed;
        if (to_col > 0) removed = joined.delete_word_backward(to_row, to_col, delims);
        *this = std::move(joined);
        row = to_row;
        col = to_col;
        return removed;
    }
    const std::string_view line = view(row);
    const size_t end = std::min(col, line.size());
    size_t start = end;
    while (start > 0 && delims.find(line[start - 1]) != std::string::npos) --start;
    while (start > 0 && delims.find(line[start - 1]) == std::string::npos) --start;
    start = kpe_character_start(line, start);
    std::string removed = cut_bytes(row, start, end - start);
    col = start;
    return removed;
}

// --- Spans ---

std::string TextBuffer::text_in_span(size_t r1, size_t c1, size_t r2, size_t c2) const {
    if (r1 >= line_count()) return {};
    r2 = std::min(r2, line_count() - 1);
    if (r2 < r1) return {};
    c2 = std::min(c2, length(r2));
    c1 = std::min(c1, length(r1));
    if (r1 == r2) return c1 < c2 ? std::string(view(r1).substr(c1, c2 - c1)) : std::string();
    std::string text(view(r1).substr(c1));
    text.push_back('\n');
    lines_.append_text(text, r1 + 1, r2, c2);
    return text.append(view(r2).substr(0, c2));
}

std::string TextBuffer::delete_span(size_t r1, size_t c1, size_t r2, size_t c2) {
    std::string removed = text_in_span(r1, c1, r2, c2);
    if (removed.empty()) return removed;
    r2 = std::min(r2, line_count() - 1);
    c2 = std::min(c2, length(r2));
    c1 = std::min(c1, length(r1));
    if (r1 == r2) {
        lines_.edit(r1).erase(c1, c2 - c1);
    } else if (c1 == 0 && c2 == 0) {
        lines_.erase(r1, r2);  // whole lines: the one behind them is not touched
    } else {
        LineStore changed = lines_;
        changed.set(r1, head_and(view(r1).substr(0, c1), view(r2).substr(c2)));
        changed.erase(r1 + 1, r2 + 1);
        lines_ = std::move(changed);
    }
    if (mark_set_) {
        const std::pair mark(mark_row_, mark_col_);
        if (std::pair(r1, c1) <= mark && mark < std::pair(r2, c2)) {
            mark_row_ = r1;
            mark_col_ = c1;
        } else if (mark_row_ == r2 && mark_col_ >= c2) {
            mark_row_ = r1;
            mark_col_ = mark_col_ - c2 + c1;
        } else if (mark_row_ > r2) {
            mark_row_ -= r2 - r1;
        }
    }
    clamp_mark();
    modified_ = true;
    return removed;
}

void TextBuffer::replace_in_line(size_t row, size_t col, size_t count, std::string_view text) {
    if (row >= line_count()) return;
    const std::string_view line = view(row);
    col = std::min(col, line.size());
    count = std::min(count, line.size() - col);
    if (line.substr(col, count) == text) return;
    const std::string own(text);  // it may lie in the line that changes
    lines_.edit(row, own.size()).replace(col, count, own);
    if (mark_set_ && mark_row_ == row && mark_col_ > col)
        mark_col_ = mark_col_ < col + count ? col : mark_col_ - count + own.size();
    modified_ = true;
}

LineStore::Hits TextBuffer::replace_all(size_t first, size_t last, const Matcher& what, std::string_view by) {
    Patience patience = what.patience();
    const LineStore::Hits done = lines_.replace(first, last, *what.literal(), by, patience);
    modified_ = modified_ || done.changed;
    return done;
}

RowRewriter TextBuffer::rewrite() { return RowRewriter(lines_, &modified_); }
