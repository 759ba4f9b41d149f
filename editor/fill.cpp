#include <algorithm>
#include <array>
#include <climits>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

constexpr size_t DEFAULT_WIDTH = 79, LEAST_SCREEN_WIDTH = 20;

size_t fill_width(int screen_width) {
    if (screen_width >= 1) return static_cast<size_t>(screen_width);
    if (!g_curses_active) return DEFAULT_WIDTH;
    return std::max(static_cast<size_t>(kpe_screen_size().cols), LEAST_SCREEN_WIDTH + 1) - 1;
}

// text as one paragraph whose blanks all stay: the last one that fits into a line becomes its end.
std::string filled_text(std::string text, size_t width) {
    const bool ends_line = text.ends_with('\n');
    std::replace(text.begin(), text.end(), '\n', ' ');
    size_t blank = std::string::npos;
    size_t column = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ' && kpe_character_end(text, i) == i + 1) blank = i;
        ++column;
        if (column <= width || blank == std::string::npos) continue;
        text[blank] = '\n';
        column = i - blank;
        blank = std::string::npos;
    }
    if (ends_line) text += '\n';
    return text;
}

// Which bytes divide words.
constexpr std::array<bool, UCHAR_MAX + 1> BLANKS = [] {
    std::array<bool, UCHAR_MAX + 1> blanks{};
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) blanks[static_cast<unsigned char>(c)] = true;
    return blanks;
}();

// Words packed into lines as they come.
class Packer {
public:
    Packer(size_t width, size_t bytes) : width_(width) { text_.reserve(bytes); }

    void add(std::string_view word) {
        if (length_ > 0) {
            const bool fits = length_ + 1 + word.size() <= width_;
            text_ += fits ? ' ' : '\n';
            length_ = fits ? length_ + 1 : 0;
        }
        text_ += word;
        length_ += word.size();
    }
    void add_words(std::string_view text) {
        const auto blank = [&](const char& c) {
            return BLANKS[static_cast<unsigned char>(c)] &&
                   kpe_character_end(text, static_cast<size_t>(&c - text.data())) ==
                       static_cast<size_t>(&c - text.data()) + 1;
        };
        for (auto at = text.begin();;) {
            const auto start = std::find_if_not(at, text.end(), blank);
            if (start == text.end()) return;
            at = std::find_if(start, text.end(), blank);
            add({start, at});
        }
    }
    const std::string& text() const { return text_; }

private:
    size_t width_;
    std::string text_;
    size_t length_ = 0;  // of the last line
};

}  // namespace

void Editor::fill_command(const std::string& args, bool report) {
    if (const std::optional<SelSpan> span = active_select_span()) {
        fill_select(*span, report);
    } else if (args.empty()) {
        select_error("No select range active");
        kpe_complain(report, "No select range active");
    } else if (const auto range = parse_line_range(args)) {
        fill_range(end_clamped(*range), report);
    } else {
        kpe_complain(report, "Invalid range: " + args);
    }
}

void Editor::fill_select(const SelSpan& span, bool report) {
    std::string text = buffer_.text_in_span(span.r1, span.c1, span.r2, span.c2);
    if (text.empty()) {
        clear_select();
        return;
    }
    text = filled_text(std::move(text), fill_width(screen_width_));
    begin_undo_unit();
    buffer_.delete_span(span.r1, span.c1, span.r2, span.c2);
    cursor_row_ = std::min(span.r1, buffer_.line_count() - 1);
    cursor_col_ = std::min(span.c1, buffer_.length(cursor_row_));
    size_t row = cursor_row_, col = cursor_col_;
    buffer_.insert_text(row, col, text);
    clear_select();
    message_ = "Filled";
    kpe_say(report, "Filled select range");
}

void Editor::fill_range(const LineRange& range, bool report) {
    const LineStore rows = buffer_.share_range(range.first, range.last);
    size_t bytes = 0;
    for (const LineRun& run : rows.runs()) bytes += run.bytes.size() + 1;
    Packer packer(fill_width(screen_width_), bytes);
    for (const LineRun& run : rows.runs()) packer.add_words(run.bytes);
    if (packer.text().empty()) return;
    const LineStore filled = LineStore::from_text(packer.text());
    begin_undo_unit();
    // The new lines go in first: a buffer left with one empty line would take them in its place.
    buffer_.insert_lines(range.first, filled);
    buffer_.take_range(range.first + filled.size(), range.last + filled.size());
    cursor_row_ = range.first;
    cursor_col_ = 0;
    message_ = "Filled";
    kpe_say(report, std::to_string(filled.size()) + " lines after fill");
}
