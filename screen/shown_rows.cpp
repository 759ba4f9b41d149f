#include "screen/shown_rows.h"

#include <algorithm>
#include <curses.h>
#include <functional>
#include <utility>

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
    clearok(curscr, TRUE);
    refresh();
    cols_ = width;
    rows_.assign(height, Row{{}, {}, CellRow(width), false});
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

// Where rows that change want what other rows show now, an equal way up or down, has the terminal move them.
void ShownRows::scroll_rows() {
    const int height = static_cast<int>(rows_.size());
    int first = 0, last = height - 1;
    while (first < height && !rows_[static_cast<size_t>(first)].changes) ++first;
    while (last > first && !rows_[static_cast<size_t>(last)].changes) --last;
    const auto at = [&](int row) -> const Row& { return rows_[static_cast<size_t>(row)]; };
    const auto bytes = [&](const Text& text) { return static_cast<int>(std::min(text.text.size(), cols_)); };
    const auto moves_to = [&](int row, int distance) {
        return at(row).changes && at(row).wanted.hash == at(row + distance).shown.hash;
    };

    int best = 0, best_gain = SCROLL_BYTES, best_first = 0, best_last = 0;
    for (int distance = first - last; distance <= last - first; ++distance) {
        if (distance == 0) continue;
        int from = height, to = -1, gain = 0;
        for (int row = std::max(first, first - distance); row <= std::min(last, last - distance); ++row) {
            if (!moves_to(row, distance)) continue;
            from = std::min(from, row);
            to = row;
            gain += bytes(at(row).wanted);
        }
        if (gain <= best_gain) continue;
        // Rows between that are right as they are would have to be sent again.
        for (int row = std::min(from, from + distance); row <= std::max(to, to + distance); ++row)
            if (!at(row).changes) gain -= bytes(at(row).shown);
        if (gain <= best_gain) continue;
        best = distance;
        best_gain = gain;
        best_first = std::min(from, from + distance);
        best_last = std::max(to, to + distance);
    }
    if (best != 0 && painter_.scroll_rows(best_first, best_last, best)) take_over(best_first, best_last, best);
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
