#include <algorithm>
#include <string_view>

#include "app/process.h"
#include "editor/kpe.h"
#include "editor/report.h"

namespace {

constexpr char FORM_FEED = '\f';

// Prints at most room bytes of line, with every form feed shown as marker.
void print_expanded(std::string_view line, std::string_view marker, size_t room) {
    while (!line.empty() && room > 0) {
        const size_t plain = std::min({line.find(FORM_FEED), line.size(), room});
        kpe_print(line.substr(0, plain));
        line.remove_prefix(plain);
        room -= plain;
        if (line.empty() || room == 0) return;
        kpe_print(marker.substr(0, room));
        room -= std::min(room, marker.size());
        line.remove_prefix(1);
    }
}

}  // namespace

void Editor::type_line_at(size_t row, bool brief, int brief_cols) const {
    if (row >= buffer_.line_count()) {
        kpe_say(true, text_eob_);
        return;
    }
    kpe_print(std::to_string(row + 1));
    kpe_print(" ");
    const size_t room = brief ? static_cast<size_t>(std::max(0, brief_cols)) : std::string_view::npos;
    print_expanded(buffer_.view(row), text_formfeed_, room);
    kpe_print("\n");
}

void Editor::type_current_line(bool brief, int brief_cols) const { type_line_at(cursor_row_, brief, brief_cols); }

void Editor::type_range(const LineRange& range, bool brief, int brief_cols) const {
    const size_t end = buffer_.line_count() - 1;
    const size_t last = std::min(range.last, end);
    for (size_t row = std::min(range.first, end); row <= last; ++row) {
        if (g_kpe_abort_requested) return;
        type_line_at(row, brief, brief_cols);
    }
    if (last == end) kpe_say(true, text_eob_);
}
