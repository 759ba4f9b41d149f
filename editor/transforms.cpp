#include <algorithm>
#include <array>
#include <charconv>

#include "editor/kpe.h"
#include "editor/row_edits.h"
#include "system/ascii.h"
#include "system/report.h"

namespace {

constexpr size_t TAG_SIZE = 8;
constexpr int DEFAULT_SEQUENCE = 100;
constexpr int DEFAULT_TAB = 8;
// Leading blanks that one TAB ADJUST may make: a tab width with a digit too many must not fill the memory.
constexpr size_t MOST_BLANKS = size_t{1} << 30;

// "00100.00", always TAG_SIZE bytes.
void put_sequence_tag(long long number, std::string& tag) {
    constexpr size_t LEAST_DIGITS = 5;
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const auto size = static_cast<size_t>(end - digits.data());
    tag.assign(LEAST_DIGITS - std::min(size, LEAST_DIGITS), '0').append(digits.data(), size).append(".00");
    tag.resize(TAG_SIZE, ' ');
}

struct Indent {
    size_t bytes = 0, columns = 0;
};

Indent indent_of(std::string_view line, size_t tab_width) {
    Indent indent;
    for (; indent.bytes < line.size(); ++indent.bytes) {
        const char c = line[indent.bytes];
        if (c == ' ') {
            ++indent.columns;
        } else if (c == '\t') {
            indent.columns = tab_width * (indent.columns / tab_width + 1);
        } else {
            break;
        }
    }
    return indent;
}

// "0 line", "1 line", "2 lines"
std::string counted_lines(size_t count) { return std::to_string(count) + (count > 1 ? " lines" : " line"); }

size_t line_count(const Editor::LineRange& range) {
    return range.first > range.last ? 0 : range.last - range.first + 1;
}

std::string range_text(const Editor::LineRange& range) {
    return "Range: " + std::to_string(range.first + 1) + " THRU " + std::to_string(range.last + 1);
}

}  // namespace

void Editor::resequence_command(const std::string&, const Qualifiers& q, bool report) {
    int start = q.sequence ? q.seq_start : DEFAULT_SEQUENCE;
    int step = q.sequence ? q.seq_incr : DEFAULT_SEQUENCE;
    if (q.duplicate) step = 0;
    if (start < 1) start = DEFAULT_SEQUENCE;
    if (step < 0 || (step < 1 && !q.duplicate)) step = DEFAULT_SEQUENCE;
    const auto tagged = [&](size_t row, std::string_view line, std::string& tag) {
        put_sequence_tag(start + static_cast<long long>(row) * step, tag);
        return line.size() < TAG_SIZE ? 0 : TAG_SIZE;
    };
    replace_fronts(buffer_, 0, buffer_.line_count() - 1, tagged);
    message_ = "Lines renumbered";
    kpe_say(report, message_);
}

void Editor::xlate_command(const std::string& args, bool report) {
    if (trim(args).empty()) {
        kpe_say(report, xlate_map_.empty() ? "XLATE table empty" : "XLATE table:");
        for (const auto& [from, to] : xlate_map_) {
            kpe_say(report, std::string("  '") + from + "' -> '" + to + "'");
        }
        return;
    }
    const auto [first, behind_first] = kpe_first_word(args);
    const auto [second, rest] = kpe_first_word(behind_first);
    if (second.empty()) {
        kpe_complain(report, "XLATE expects: XLATE from to [range]");
        return;
    }
    const char from = first.front(), to = second.front();
    xlate_map_[from] = to;  // also when the range turns out to be none
    const auto range = range_or_cursor_line(std::string(rest));
    if (!range) {
        kpe_complain(report, "Invalid range: " + std::string(rest));
        return;
    }
    const LineRange lines = end_clamped(*range);
    size_t count = 0;
    rewrite_rows(buffer_, lines.first, lines.last, [&](size_t, std::string_view line, std::string& text) {
        const size_t here = static_cast<size_t>(std::count(line.begin(), line.end(), from));
        count += here;
        if (here == 0 || from == to) return false;
        text.assign(line);
        std::replace(text.begin(), text.end(), from, to);
        return true;
    });
    kpe_say(report, kpe_counted(count, "character") + " translated");
}

void Editor::retain_command(const std::string& args, bool report) {
    if (trim(args).empty()) {
        kpe_complain(report, "RETAIN / STORE TEXT requires =buffer");
        return;
    }
    const std::string name = normalize_buffer_name(args);
    if (name.empty()) {
        kpe_complain(report, "Missing destination buffer");
        return;
    }
    LineRange rows{cursor_row_, cursor_row_};
    if (const std::optional<SelSpan> span = active_select_span()) {
        rows = {span->r1, span->r2};
        clear_select();
    } else if (sticky_range_) {
        rows = *sticky_range_;
    }
    const LineStore lines = buffer_.share_range(rows.first, rows.last);
    save_current_buffer_state();
    TextBuffer& stored = stored_buffer(name);
    stored.clear();
    stored.append_lines(lines);
    show_stored_if_current(name);
    kpe_say(report, kpe_counted(lines.size(), "line") + " retained in =" + name);
}

void Editor::range_command(const std::string& args, bool report) {
    if (trim(args).empty()) {
        kpe_say(report, sticky_range_ ? range_text(*sticky_range_) : "Range: (none)");
    } else if (const auto range = parse_line_range(args)) {
        sticky_range_ = range;
        kpe_say(report, range_text(*range));
    } else {
        kpe_complain(report, "Invalid range: " + args);
    }
}

void Editor::tab_adjust_command(const std::string& args, bool report) {
    const auto range = range_or_cursor_line(args);
    if (!range) {
        kpe_complain(report, "Invalid range: " + args);
        return;
    }
    const LineRange lines = end_clamped(*range);
    const size_t width = static_cast<size_t>(tab_width_ < 1 ? DEFAULT_TAB : tab_width_);
    size_t blanks = 0;
    for (size_t row = lines.first; row <= lines.last && blanks <= MOST_BLANKS; ++row) {
        const Indent indent = indent_of(buffer_.view(row), width);
        if (indent.columns > indent.bytes) blanks += indent.columns;
    }
    if (blanks > MOST_BLANKS) {
        kpe_complain(report, "Tab width too large: " + std::to_string(width));
        return;
    }
    replace_fronts(buffer_, lines.first, lines.last, [&](size_t, std::string_view line, std::string& spaces) {
        const Indent indent = indent_of(line, width);
        spaces.assign(indent.columns, ' ');
        return indent.bytes;
    });
    kpe_say(report, "Tab adjust " + counted_lines(line_count(lines)));
}

void Editor::chg_case_command(const std::string& args, bool upper, bool report) {
    begin_undo_unit();
    const ByteTable table = byte_table(upper ? kpe_to_upper : kpe_to_lower);
    size_t count = 0;
    if (const std::optional<SelSpan> span = active_select_span()) {
        const size_t last = std::min(span->r2, buffer_.line_count() - 1);
        change_bytes(buffer_, span->r1, span->c1, last, span->r2 == last ? span->c2 : std::string::npos, table);
        clear_select();
        count = span->r2 - span->r1 + 1;
    } else {
        auto range = parse_line_range(args);
        if (!range) range = LineRange{cursor_row_, cursor_row_};
        const LineRange lines = end_clamped(*range);
        change_bytes(buffer_, lines.first, 0, lines.last, std::string::npos, table);
        count = line_count(lines);
    }
    kpe_say(report, counted_lines(count) + " converted to " + (upper ? "upper" : "lower") + "case");
}
