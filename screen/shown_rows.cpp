#include "screen/shown_rows.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "buffer/characters.h"

ShownRows g_shown_rows;

namespace {

// To scroll takes some bytes as well: so many more must be saved by it.
constexpr int SCROLL_BYTES = 30;

size_t hash_of(const ShownRows::Content& content) {
    const std::hash<std::string_view> hash;
    return hash(content.text) ^ hash(content.lead) * 31 ^ (content.reverse_from * 1009 + content.reverse_to) * 8191;
}

}  // namespace

void ShownRows::begin(int rows, int cols) {
    const size_t height = rows > 0 ? static_cast<size_t>(rows) : 0, width = cols > 0 ? static_cast<size_t>(cols) : 0;
    if (rows_.size() != height || cols_ != width) lost_ = true;
    if (!lost_) return;
    lost_ = false;
    cols_ = width;
    rows_.assign(height, Row{{}, {}, CellRow(width)});
    painter_.begin(rows, cols);
}

void ShownRows::show(int row, const Content& content) {
    const auto index = static_cast<size_t>(row);
    if (row < 0 || index >= rows_.size()) return;
    Row& shown = rows_[index];
    const Text& old = shown.shown;
    shown.changes = old.text != content.text || old.lead != content.lead || old.reverse_from != content.reverse_from ||
                    old.reverse_to != content.reverse_to;
    if (!shown.changes) return;
    shown.wanted.lead = content.lead;
    shown.wanted.text = content.text;
    shown.wanted.reverse_from = content.reverse_from;
    shown.wanted.reverse_to = content.reverse_to;
    shown.wanted.hash = hash_of(content);
}

std::string_view ShownRows::text_in_view(int row, std::string_view line, size_t left, size_t room) {
    if (static_cast<size_t>(row) >= rows_.size()) return kpe_text_in_view(line, left, room);
    Row& shown = rows_[static_cast<size_t>(row)];
    const std::string_view text = left > 0 ? line.substr(kpe_character_border(line, left)) : line;
    const size_t size = shown.in_view.size();
    if (size > 0 && shown.room == room && text.starts_with(shown.in_view) && kpe_character_start(text, size) == size &&
        (size == text.size() || shown.full))
        return text.substr(0, size);
    const std::string_view found = kpe_text_in_view(text, 0, room);
    shown.in_view = found;
    shown.room = room;
    shown.full = found.size() < text.size();
    return found;
}

// Where rows that change want what other rows show now, an equal way up or down, has the terminal move them.
void ShownRows::scroll_rows() {
    const int height = static_cast<int>(rows_.size());
    const auto at = [&](int row) -> const Row& { return rows_[static_cast<size_t>(row)]; };
    const auto bytes = [&](const Text& text) { return static_cast<int>(std::min(text.text.size(), cols_)); };
    std::vector<size_t> shown;
    for (const Row& row : rows_) shown.push_back(row.shown.hash);

    struct Way {
        int first = 0, last = 0, gain = 0;  // the rows that want it, and what that saves
    };
    std::vector<Way> ways(2 * rows_.size());  // by distance, the longest way down first
    for (int row = 0; row < height; ++row) {
        if (!at(row).changes || at(row).wanted.text.empty()) continue;
        for (int from = 0; from < height; ++from) {
            if (shown[static_cast<size_t>(from)] != at(row).wanted.hash || from == row || !at(from).changes) continue;
            Way& way = ways.begin()[from - row + height];
            if (way.gain == 0) way.first = row;
            way.last = row;
            way.gain += bytes(at(row).wanted);
        }
    }

    int best = 0, best_gain = SCROLL_BYTES, first = 0, last = 0;
    for (int distance = -height; distance < height; ++distance) {
        Way& way = ways.begin()[distance + height];
        if (way.gain <= best_gain) continue;
        const int top = std::min(way.first, way.first + distance), bottom = std::max(way.last, way.last + distance);
        // Rows between that are right as they are would have to be sent again.
        for (int row = top; row <= bottom; ++row)
            if (!at(row).changes) way.gain -= bytes(at(row).shown);
        if (way.gain <= best_gain) continue;
        best = distance;
        best_gain = way.gain;
        first = top;
        last = bottom;
    }
    if (best != 0 && painter_.scroll_rows(first, last, best)) take_over(first, last, best);
}

// Rows first to last were scrolled up by distance, or down by -distance.
void ShownRows::take_over(int first, int last, int distance) {
    const auto top = rows_.begin() + first;
    const int count = last - first + 1;
    std::vector<std::pair<Text, CellRow>> before;
    for (auto row = top; row != top + count; ++row) {
        Row& old = *row;
        if (!old.changes) {
            old.wanted = old.shown;
            old.changes = true;
        }
        before.emplace_back(std::move(old.shown), std::move(old.cells));
    }
    for (int i = 0; i < count; ++i) {
        Row& row = top[i];
        const int from = i + distance;
        if (from >= 0 && from < count) {
            row.shown = std::move(before[static_cast<size_t>(from)].first);
            row.cells = std::move(before[static_cast<size_t>(from)].second);
        } else {
            row.shown = {};
            row.cells.clear(cols_);
        }
    }
}

void ShownRows::paint(int row, int col) {
    if (std::count_if(rows_.begin(), rows_.end(), [](const Row& each) { return each.changes; }) > 2) scroll_rows();
    for (size_t i = 0; i < rows_.size(); ++i) {
        Row& each = rows_[i];
        if (!each.changes) continue;
        each.changes = false;
        if (each.wanted == each.shown) continue;
        cells_.clear(cols_);
        cells_.add(each.wanted.lead);
        if (cells_.used() < cols_) cells_.add(each.wanted.text, each.wanted.reverse_from, each.wanted.reverse_to);
        painter_.change(static_cast<int>(i), each.cells, cells_);
        std::swap(each.cells, cells_);
        std::swap(each.shown, each.wanted);
    }
    painter_.move_cursor(row, col);
    painter_.flush();
}
