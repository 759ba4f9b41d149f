#include "buffer/text_buffer.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "buffer/line_cutter.h"
#include "files/file_reader.h"

namespace {

constexpr size_t FEW_EMPTY_LINES = 64;

// Shared by all buffers that begin empty.
const LineStore& one_empty_line() {
    static const LineStore line(std::vector<std::string>{""});
    return line;
}

// Whether there are line ends, and a carriage return in front of each; and none at the end of a last line without one.
bool each_end_has_return(std::string_view bytes) {
    size_t end = bytes.find('\n');
    if (end == bytes.npos || bytes.back() == '\r') return false;
    for (; end != bytes.npos; end = bytes.find('\n', end + 1)) {
        if (end == 0 || bytes[end - 1] != '\r') return false;
    }
    return true;
}

LineStore empty_lines(size_t count) {
    if (count <= FEW_EMPTY_LINES) return LineStore(std::vector<std::string>(count));
    return LineStore::from_text(std::string(count, '\n'));
}

}  // namespace

TextBuffer::TextBuffer() : lines_(one_empty_line()) {}

// --- Loading and the whole text ---

bool TextBuffer::load(const std::string& path, const volatile std::sig_atomic_t* abort, LineEnds ends) {
    using End = FileContent::End;
    filename_ = path;
    clear_mark();
    lines_ = one_empty_line();  // the old text makes room for the new one
    modified_ = false;
    load_state_ = Load::Broken;  // until it has been read
    LineCutter cutter(ends == LineEnds::Same ? LineStore::Returns::Keep : LineStore::Returns::Drop,
                      LineCutter::Clones::Take);
    const FileContent content = kpe_read_file(filename_, abort, &cutter);
    loaded_file_ = content.file;
    const bool opened = content.end == End::Whole || content.end == End::Broken;
    load_state_ = content.end == End::Missing ? Load::Missing : content.end == End::Whole ? Load::Whole : Load::Broken;
    load_error_ = content.error;
    too_large_ = content.too_large;
    clone_ = content.block->file() ? content.block : nullptr;
    const std::string_view bytes = content.block->bytes();
    const bool ends_line = bytes.empty() || bytes.back() == '\n';
    final_newline_ = true;
    returns_dropped_ = ends == LineEnds::Same && !clone_ && each_end_has_return(bytes);
    try {
        if (returns_dropped_)
            lines_ = LineStore::from_block(content.block, LineStore::Returns::Drop);
        else if (!bytes.empty())
            lines_ = cutter.finish(content);
        final_newline_ = ends_line;
    } catch (const std::bad_alloc&) {
        load_state_ = Load::Broken;
        load_error_ = ENOMEM;
    }
    return opened;
}

void TextBuffer::clear() {
    replace_lines({});
    final_newline_ = true;
}

void TextBuffer::set_text(std::string_view text) {
    const bool ends_line = !text.empty() && text.back() == '\n';
    replace_lines(LineStore::from_text(text));
    final_newline_ = ends_line;
}

void TextBuffer::set_lines(const LineStore& lines) { replace_lines(lines); }

void TextBuffer::replace_lines(const LineStore& lines) {
    lines_ = lines.empty() ? one_empty_line() : lines;
    clear_mark();
    modified_ = true;
}

std::string TextBuffer::text() const {
    if (is_blank()) return {};
    std::string text;
    lines_.append_text(text, 0, line_count());
    if (!final_newline_ && !text.empty()) text.pop_back();
    return text;
}

bool TextBuffer::is_blank() const { return line_count() == 1 && length(0) == 0; }

// --- Lines ---

const std::string& TextBuffer::line(size_t row) const {
    static const std::string NOTHING;
    return row < line_count() ? lines_.at(row) : NOTHING;
}

std::string& TextBuffer::line(size_t row) { return edit_row(row, 0); }

std::string_view TextBuffer::view(size_t row) const {
    return row < line_count() ? lines_.view(row) : std::string_view();
}

std::vector<std::string_view> TextBuffer::views(size_t first, size_t most) const {
    const size_t behind = line_count() - std::min(first, line_count());
    std::vector<std::string_view> rows(std::min(most, behind));
    lines_.views(first, rows);
    return rows;
}

std::vector<std::string> TextBuffer::lines_in_range(size_t first, size_t last) const {
    std::vector<std::string> lines;
    if (first >= line_count()) return lines;
    last = std::min(last, line_count() - 1);
    for (size_t row = first; row <= last; ++row) lines.emplace_back(view(row));
    return lines;
}

LineStore TextBuffer::share_range(size_t first, size_t last) const {
    if (first >= line_count()) return {};
    return lines_.slice(first, std::min(last, line_count() - 1) + 1);
}

void TextBuffer::ensure_row(size_t row) {
    if (row >= line_count()) lines_ = lines_to(row);
}

// A copy of the lines, and empty ones behind them up to row.
LineStore TextBuffer::lines_to(size_t row) const {
    LineStore lines = lines_;
    if (row >= line_count()) lines.insert(line_count(), empty_lines(row - line_count() + 1));
    return lines;
}

// LineStore::edit, which makes the row first where there is none.
std::string& TextBuffer::edit_row(size_t row, size_t room) {
    if (row >= line_count()) {
        LineStore longer = lines_to(row);
        longer.edit(row, room);
        lines_ = std::move(longer);  // and nobody shares the row: to edit it takes no memory
    }
    return lines_.edit(row, room);
}

template <typename Lines>
void TextBuffer::append_any(const Lines& lines) {
    if (lines.empty()) return;
    if (is_blank())
        lines_ = LineStore(lines);
    else
        lines_.insert(line_count(), lines);
    final_newline_ = true;
    modified_ = true;
}

void TextBuffer::append_lines(const std::vector<std::string>& lines) { append_any(lines); }

void TextBuffer::append_lines(const LineStore& lines) {
    append_any(LineStore(lines));  // a copy: they may be this buffer's own
}

template <typename Lines>
void TextBuffer::insert_any(size_t at, const Lines& lines) {
    if (lines.empty()) return;
    at = std::min(at, line_count());
    if (is_blank()) {
        lines_ = LineStore(lines);
    } else {
        lines_.insert(at, lines);
        if (mark_set_ && mark_row_ >= at) mark_row_ += lines.size();
    }
    modified_ = true;
}

void TextBuffer::insert_lines(size_t at, const std::vector<std::string>& lines) { insert_any(at, lines); }

void TextBuffer::insert_lines(size_t at, const LineStore& lines) {
    insert_any(at, LineStore(lines));  // a copy: they may be this buffer's own
}

std::string TextBuffer::delete_line(size_t row) { return delete_range(row, row); }

std::string TextBuffer::delete_range(size_t first, size_t last) {
    if (first >= line_count()) return {};
    last = std::min(last, line_count() - 1);
    if (first > last) return {};
    std::string removed;
    lines_.append_text(removed, first, last + 1);
    remove_rows(first, last);
    return removed;
}

LineStore TextBuffer::take_range(size_t first, size_t last) {
    LineStore removed = share_range(first, last);
    if (!removed.empty()) remove_rows(first, std::min(last, line_count() - 1));
    return removed;
}

// Rows first to last, which exist.
void TextBuffer::remove_rows(size_t first, size_t last) {
    lines_.erase(first, last + 1);
    if (lines_.empty()) lines_ = one_empty_line();
    if (mark_set_ && mark_row_ >= first) {
        if (mark_row_ <= last) {
            mark_row_ = first;
            mark_col_ = 0;
        } else {
            mark_row_ -= last - first + 1;
        }
    }
    clamp_mark();
    modified_ = true;
}
