#include <algorithm>
#include <string_view>

#include "editor/kpe.h"
#include "system/interrupts.h"
#include "system/report.h"

namespace {

constexpr char FORM_FEED = '\f';
// Bytes of a line that are expanded at a time: a line of form feeds grows by the length of what stands for each.
constexpr size_t PIECE = 4096;

}  // namespace

std::string Editor::expand_formfeed_display(std::string line) const {
    if (line.find(FORM_FEED) == std::string::npos) return line;
    std::string shown;
    for (const char c : line) {
        if (c == FORM_FEED) {
            shown += text_formfeed_;
        } else {
            shown += c;
        }
    }
    return shown;
}

void Editor::type_line_at(size_t row, bool brief, int brief_cols) const {
    if (row >= buffer_.line_count()) {
        kpe_say(true, text_eob_);
        return;
    }
    kpe_print(std::to_string(row + 1));
    kpe_print(" ");
    size_t room = brief ? static_cast<size_t>(std::max(0, brief_cols)) : std::string_view::npos;
    std::string_view rest = buffer_.view(row);
    const bool plain = rest.find(FORM_FEED) == std::string_view::npos;
    if (plain) kpe_print(rest.substr(0, room));
    for (; !plain && !rest.empty() && room > 0; rest.remove_prefix(std::min(PIECE, rest.size()))) {
        const std::string shown = expand_formfeed_display(std::string(rest.substr(0, PIECE)));
        kpe_print(std::string_view(shown).substr(0, room));
        room -= std::min(room, shown.size());
    }
    kpe_end_line();
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
