#include "screen/shown_rows.h"

#include <curses.h>

#include "screen/cells.h"

ShownRows g_shown_rows;

void ShownRows::begin(int rows, int cols, bool overlapping) {
    const size_t height = rows > 0 ? static_cast<size_t>(rows) : 0, width = cols > 0 ? static_cast<size_t>(cols) : 0;
    if (rows_.size() == height && width_ == width && !overlapping) return;
    erase();
    rows_.assign(height, Row{true, {}, {}, 0, 0});
    width_ = width;
}

void ShownRows::show(int row, const Content& content) {
    const auto index = static_cast<size_t>(row);
    if (row < 0 || index >= rows_.size()) return;
    Row& shown = rows_[index];
    if (shown.known && shown.text == content.text && shown.lead == content.lead &&
        shown.reverse_from == content.reverse_from && shown.reverse_to == content.reverse_to)
        return;
    if (!shown.known || !shown.text.empty() || !shown.lead.empty()) {
        ::move(row, 0);
        clrtoeol();
    }
    shown = {true, std::string(content.lead), std::string(content.text), content.reverse_from, content.reverse_to};
    CellRow cells(width_);
    cells.add(content.lead);
    if (cells.used() < width_) cells.add(content.text, content.reverse_from, content.reverse_to);
    cells.show(row);
}

void ShownRows::forget(int row) {
    const auto index = static_cast<size_t>(row);
    if (row >= 0 && index < rows_.size()) rows_[index].known = false;
}
