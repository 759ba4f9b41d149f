#include "buffer/line_chunk.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <new>

namespace {

// The first edit of that row or a later one.
template <class Edits>
auto edit_from(Edits& edits, size_t row) {
    return std::find_if(edits.begin(), edits.end(), [&](const LineChunk::Edit& edit) { return edit.row >= row; });
}

// A string that grew after it was copied would be in memory twice, and the line may be huge.
std::shared_ptr<EditedLine> copy_with_room(std::string_view text, size_t room) {
    std::string copy;
    copy.reserve(text.size() + room);
    copy.append(text);
    return std::make_shared<EditedLine>(std::move(copy));
}

std::string_view line_of(const LineChunk::Slice& slice, size_t row) {
    const size_t start = slice.start(row);
    return {slice.base + start, slice.start(row + 1) - start - 1};
}

}  // namespace

std::string_view LineChunk::view(size_t row) const {
    if (const Slice* slice = std::get_if<Slice>(&body_)) {
        if (const auto* own = edited_text(row)) return (*own)->view();
        return line_of(*slice, row);
    }
    return std::get<Mixed>(body_).lines[row].text();
}

void LineChunk::views(size_t first, std::span<std::string_view> rows) const {
    if (const Slice* slice = std::get_if<Slice>(&body_)) {
        for (size_t i = 0; i < rows.size(); ++i) rows[i] = line_of(*slice, first + i);
        for (const Edit& edit : slice->edits)
            if (first <= edit.row && edit.row < first + rows.size()) rows[edit.row - first] = edit.own->view();
        return;
    }
    const std::vector<Line>& lines = std::get<Mixed>(body_).lines;
    for (size_t i = 0; i < rows.size(); ++i) rows[i] = lines[first + i].text();
}

size_t LineChunk::length(size_t row) const {
    const auto* own = edited_text(row);
    return own ? (*own)->size() : view(row).size();
}

const std::string& LineChunk::string(size_t row) {
    if (const auto* own = edited_text(row)) return (*own)->string();
    Line& line = mixed().lines[row];
    if (!line.own) line.own = std::make_shared<EditedLine>(std::string(line.slice));
    return line.own->string();
}

// --- Long lines ---

std::vector<size_t> LineChunk::long_rows() const {
    std::vector<size_t> rows;
    if (const Slice* slice = std::get_if<Slice>(&body_)) {
        for (const Edit& edit : slice->edits)
            if (edit.own->size() >= LONG_LINE) rows.push_back(edit.row);
        if (rows_ == 1 && slice->edits.empty() && length(0) >= LONG_LINE) rows.push_back(0);
        return rows;
    }
    const std::vector<Line>& lines = std::get<Mixed>(body_).lines;
    for (size_t row = 0; row < rows_; ++row) {
        const Line& line = lines[row];
        if ((line.edited() ? line.own->size() : line.slice.size()) >= LONG_LINE) rows.push_back(row);
    }
    return rows;
}

std::shared_ptr<EditedLine> LineChunk::edited_line(size_t row) const {
    const auto* own = edited_text(row);
    return own ? *own : nullptr;
}

std::shared_ptr<EditedLine> LineChunk::shared_line(size_t row) {
    if (const auto* own = edited_text(row)) return *own;
    const std::string_view text = view(row);
    const auto holds = [&](const auto& block) {
        const std::less_equal<> not_behind;
        return not_behind(block->data(), text.data()) && not_behind(text.data(), block->data() + block->size());
    };
    const Slice* const slice = std::get_if<Slice>(&body_);
    const auto* const mixed = std::get_if<Mixed>(&body_);
    auto line = std::make_shared<EditedLine>(
        slice ? slice->block : *std::find_if(mixed->blocks.begin(), mixed->blocks.end(), holds), text);
    put(row, line);
    // What a chunk of one line says of its block is said by the line now, which may come to do without it.
    if (rows_ == 1 && slice) this->mixed().blocks.clear();
    if (mixed) drop_unused_blocks(this->mixed());
    return line;
}

// --- Runs ---

const std::shared_ptr<EditedLine>* LineChunk::edited_text(size_t row) const {
    if (const Slice* slice = std::get_if<Slice>(&body_)) {
        const auto edit = edit_from(slice->edits, row);
        return edit != slice->edits.end() && edit->row == row ? &edit->own : nullptr;
    }
    const Line& line = std::get<Mixed>(body_).lines[row];
    return line.edited() ? &line.own : nullptr;
}

// Of the lines row and row + 1, whether both are untouched and the second lies behind the first.
bool LineChunk::adjoin(size_t row) const {
    if (edited_text(row) || edited_text(row + 1)) return false;
    const auto* mixed = std::get_if<Mixed>(&body_);
    if (!mixed) return true;
    const Line &a = mixed->lines[row], &b = mixed->lines[row + 1];
    return a.slice.data() + a.slice.size() + 1 == b.slice.data();
}

LineRun LineChunk::run_from(size_t row, size_t limit) const {
    const std::string_view first = view(row);
    if (edited_text(row)) return {row, 1, first, false};
    if (const Slice* slice = std::get_if<Slice>(&body_)) {
        const auto edit = edit_from(slice->edits, row);
        size_t low = row + 1, high = edit == slice->edits.end() ? rows_ : edit->row;  // the run ends between them
        while (low < high) {
            const size_t middle = (low + high + 1) / 2;
            if (slice->start(middle) - slice->start(row) <= limit)
                low = middle;
            else
                high = middle - 1;
        }
        return {row, low - row, {first.data(), slice->start(low) - slice->start(row)}, true};
    }
    LineRun run{row, 1, {first.data(), first.size() + 1}, true};
    for (size_t next = row + 1; next < rows_ && adjoin(next - 1); ++next) {
        const size_t bytes = run.bytes.size() + view(next).size() + 1;
        if (bytes > limit) break;
        ++run.rows;
        run.bytes = {first.data(), bytes};
    }
    return run;
}

LineRun LineChunk::run_to(size_t row, size_t limit) const {
    if (edited_text(row)) return {row, 1, view(row), false};
    size_t first = row, bytes = view(row).size() + 1;
    while (first > 0 && adjoin(first - 1)) {
        const size_t more = view(first - 1).size() + 1;
        if (bytes + more > limit) break;
        bytes += more;
        --first;
    }
    return {first, row + 1 - first, {view(first).data(), bytes}, true};
}

// --- Comparing ---

namespace {

bool is_same(const LineChunk::Line& a, const LineChunk::Line& b) {
    return a.slice.data() == b.slice.data() && a.slice.size() == b.slice.size() && (!a.edited() || a.own == b.own);
}

}  // namespace

// Whether both chunks were made of the same lines of a block, so that they differ in edits at most.
bool LineChunk::same_slice(const LineChunk& other) const {
    const Slice *a = std::get_if<Slice>(&body_), *b = std::get_if<Slice>(&other.body_);
    return a && b && a->base == b->base && a->stride == b->stride && a->starts == b->starts && rows_ == other.rows_;
}

size_t LineChunk::count_same(const LineChunk& other, size_t row) const {
    if (same_slice(other)) {
        const auto &a = std::get<Slice>(body_).edits, &b = std::get<Slice>(other.body_).edits;
        auto in_a = edit_from(a, row);
        auto in_b = edit_from(b, row);
        while (in_a != a.end() && in_b != b.end() && in_a->row == in_b->row && in_a->own == in_b->own) ++in_a, ++in_b;
        const size_t end_a = in_a == a.end() ? rows_ : in_a->row, end_b = in_b == b.end() ? rows_ : in_b->row;
        return std::min(end_a, end_b) - row;
    }
    const Mixed *a = std::get_if<Mixed>(&body_), *b = std::get_if<Mixed>(&other.body_);
    if (!a || !b) return 0;
    size_t count = 0;
    for (const size_t most = std::min(rows_, other.rows_) - row; count < most; ++count)
        if (!is_same(a->lines[row + count], b->lines[row + count])) break;
    return count;
}

size_t LineChunk::count_same_back(size_t row, const LineChunk& other, size_t other_row) const {
    if (row == other_row && same_slice(other)) {
        const auto &a = std::get<Slice>(body_).edits, &b = std::get<Slice>(other.body_).edits;
        auto end_a = edit_from(a, row);
        auto end_b = edit_from(b, row);
        const auto same_last = [&] {
            return (end_a - 1)->row == (end_b - 1)->row && (end_a - 1)->own == (end_b - 1)->own;
        };
        while (end_a != a.begin() && end_b != b.begin() && same_last()) --end_a, --end_b;
        const size_t begin_a = end_a == a.begin() ? 0 : (end_a - 1)->row + 1;
        const size_t begin_b = end_b == b.begin() ? 0 : (end_b - 1)->row + 1;
        return row - std::max(begin_a, begin_b);
    }
    const Mixed *a = std::get_if<Mixed>(&body_), *b = std::get_if<Mixed>(&other.body_);
    if (!a || !b) return 0;
    size_t count = 0;
    for (const size_t most = std::min(row, other_row); count < most; ++count)
        if (!is_same(a->lines[row - 1 - count], b->lines[other_row - 1 - count])) break;
    return count;
}

// --- Changes ---

void LineChunk::put(size_t row, std::shared_ptr<EditedLine> own) {
    if (Slice* slice = std::get_if<Slice>(&body_)) {
        const auto edit = edit_from(slice->edits, row);
        if (edit != slice->edits.end() && edit->row == row) {
            edit->own = std::move(own);
            return;
        }
        if (slice->edits.size() < FEW_EDITS) {
            slice->edits.insert(edit, {row, std::move(own)});
            return;
        }
    }
    mixed().lines[row] = {{}, std::move(own)};
}

std::string& LineChunk::edit(size_t row, size_t room) {
    const auto* own = edited_text(row);
    if (!own || own->use_count() > 1 || !(*own)->has_string()) {
        put(row, copy_with_room(view(row), room));
        own = edited_text(row);
    }
    return (*own)->string();
}

// A string of its own in any case: text may be part of the old one.
void LineChunk::set(size_t row, std::string_view text) { put(row, std::make_shared<EditedLine>(std::string(text))); }

void LineChunk::set_slice(size_t row, std::string_view text, const std::shared_ptr<const Block>& block) {
    Mixed& body = mixed();
    add_block(body, block);
    body.lines[row] = {text, nullptr};
    tidy(body);
}

void LineChunk::insert(size_t row, const std::vector<std::string>& lines) {
    Mixed& body = mixed();
    std::vector<Line> fresh;
    fresh.reserve(lines.size());
    for (const std::string& line : lines) fresh.push_back({{}, std::make_shared<EditedLine>(line)});
    body.lines.insert(body.lines.begin() + static_cast<ptrdiff_t>(row), std::make_move_iterator(fresh.begin()),
                      std::make_move_iterator(fresh.end()));
    rows_ = body.lines.size();
}

void LineChunk::insert(size_t row, const LineChunk& other) {
    Mixed& body = mixed();
    Mixed more = mixed_part(other, 0, other.rows_);
    for (const auto& block : more.blocks) add_block(body, block);
    body.lines.insert(body.lines.begin() + static_cast<ptrdiff_t>(row), std::make_move_iterator(more.lines.begin()),
                      std::make_move_iterator(more.lines.end()));
    rows_ = body.lines.size();
    tidy(body);
}

void LineChunk::erase(size_t first, size_t last) {
    Mixed& body = mixed();
    body.lines.erase(body.lines.begin() + static_cast<ptrdiff_t>(first),
                     body.lines.begin() + static_cast<ptrdiff_t>(last));
    rows_ = body.lines.size();
    tidy(body);
}

std::shared_ptr<LineChunk> LineChunk::part(size_t first, size_t last) const {
    if (const Slice* slice = std::get_if<Slice>(&body_)) {
        Slice some = *slice;
        if (some.stride != 0)
            some.base += first * some.stride;
        else
            some.starts = {slice->starts, slice->starts.get() + first};
        some.edits.erase(edit_from(some.edits, last), some.edits.end());
        some.edits.erase(some.edits.begin(), edit_from(some.edits, first));
        for (Edit& edit : some.edits) edit.row -= first;
        return std::make_shared<LineChunk>(std::move(some), last - first);
    }
    Mixed some = mixed_part(*this, first, last);
    if (some.blocks.size() > 1) drop_unused_blocks(some);
    return std::shared_ptr<LineChunk>(new LineChunk(std::move(some)));
}

// --- Records ---

LineChunk::Mixed LineChunk::mixed_part(const LineChunk& from, size_t first, size_t last) {
    Mixed part;
    if (const Slice* slice = std::get_if<Slice>(&from.body_)) {
        part.lines.reserve(last - first);
        for (size_t row = first; row < last; ++row) part.lines.push_back({line_of(*slice, row), nullptr});
        for (const Edit& edit : slice->edits)
            if (first <= edit.row && edit.row < last) part.lines[edit.row - first] = {{}, edit.own};
        part.blocks.push_back(slice->block);
    } else {
        const Mixed& mixed = std::get<Mixed>(from.body_);
        part.lines.assign(mixed.lines.begin() + static_cast<ptrdiff_t>(first),
                          mixed.lines.begin() + static_cast<ptrdiff_t>(last));
        part.blocks = mixed.blocks;
    }
    return part;
}

LineChunk::Mixed& LineChunk::mixed() {
    if (std::holds_alternative<Slice>(body_)) body_ = mixed_part(*this, 0, rows_);
    return std::get<Mixed>(body_);
}

void LineChunk::add_block(Mixed& mixed, const std::shared_ptr<const Block>& block) {
    if (std::find(mixed.blocks.begin(), mixed.blocks.end(), block) == mixed.blocks.end()) mixed.blocks.push_back(block);
}

// Without this, a chunk that is edited for hours would keep every text that ever passed through it.
void LineChunk::tidy(Mixed& mixed) noexcept {
    if (mixed.blocks.size() <= mixed.many) return;
    try {
        drop_unused_blocks(mixed);
    } catch (const std::bad_alloc&) {
        return;  // the change that this follows is made; the next one tries again
    }
    mixed.many = std::max(MANY_BLOCKS, 2 * mixed.blocks.size());
}

void LineChunk::drop_unused_blocks(Mixed& mixed) {
    const auto starts_later = [](const char* at, const auto& block) { return std::less<>()(at, block->data()); };
    std::sort(mixed.blocks.begin(), mixed.blocks.end(),
              [](const auto& a, const auto& b) { return std::less<>()(a->data(), b->data()); });
    std::vector<bool> used(mixed.blocks.size());
    for (const Line& line : mixed.lines) {
        if (line.edited()) continue;
        const auto after = std::upper_bound(mixed.blocks.begin(), mixed.blocks.end(), line.slice.data(), starts_later);
        used[static_cast<size_t>(after - mixed.blocks.begin()) - 1] = true;
    }
    size_t kept = 0;
    for (size_t i = 0; i < used.size(); ++i)
        if (used[i]) std::swap(mixed.blocks[kept++], mixed.blocks[i]);
    mixed.blocks.resize(kept);
}
