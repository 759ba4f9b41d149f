#include <algorithm>

#include "editor/kpe.h"
#include "system/ascii.h"

namespace {

// A distance from the current line: ". + 3".
struct Relative {
    bool down = true;
    std::string_view digits;
};

std::optional<Relative> relative_reference(std::string_view text) {
    text = kpe_trim(text);
    if (text.empty() || text.front() != '.') return std::nullopt;
    text = kpe_trim(text.substr(1));
    if (text.empty() || (text.front() != '+' && text.front() != '-')) return std::nullopt;
    const std::string_view digits = kpe_trim(text.substr(1));
    if (!kpe_all_digits(digits)) return std::nullopt;
    return Relative{text.front() == '+', digits};
}

// The places where a range's text divides into two references: before the separator and behind it.
struct Separator {
    size_t pos = std::string::npos, size = 0;
};

Separator separator_of(const std::string& t, const std::string& u) {
    if (const size_t thru = u.find(" THRU "); thru != std::string::npos) return {thru, 6};
    if (const size_t colon = t.find(':'); colon != std::string::npos) return {colon, 1};
    const size_t dash = t.find('-');
    const bool divides = dash != std::string::npos && dash > 0 && dash + 1 < t.size() &&
                         kpe_trim(std::string_view(t).substr(0, dash)) != ".";
    return divides ? Separator{dash, 1} : Separator{};
}

}  // namespace

std::optional<size_t> Editor::parse_line_ref(const std::string& text) const {
    const std::string t = upper(trim(text));
    const size_t n = buffer_.line_count();
    if (t.empty() || n == 0) return std::nullopt;
    const size_t current = std::min(cursor_row_, n - 1);
    if (t == "." || t == "CURRENT") return current;
    if (is_abbrev(t, "BEGIN", 1) || t == "FIRST" || t == "START") return 0;
    if (is_abbrev(t, "END", 1) || is_abbrev(t, "LAST", 2)) return n - 1;
    if (const auto relative = relative_reference(text)) {
        const auto count = kpe_stol(relative->digits);
        if (!count) return std::nullopt;
        const size_t distance = static_cast<size_t>(*count);
        if (relative->down) return current + std::min(distance, n - 1 - current);
        return current - std::min(distance, current);
    }
    if (!kpe_all_digits(t)) return std::nullopt;
    const auto number = kpe_stoul(t);
    if (!number || *number == 0) return std::nullopt;
    return std::min(*number - 1, n - 1);
}

std::optional<Editor::LineRange> Editor::parse_line_range(const std::string& text) const {
    const size_t n = buffer_.line_count();
    if (n == 0) return std::nullopt;
    const std::string t = strip_qualifiers_for_range(text);
    if (t.empty()) return std::nullopt;
    const std::string u = upper(t);
    if (is_abbrev(u, "WHOLE", 2) || u == "ALL") return LineRange{0, n - 1};
    if (is_abbrev(u, "REST", 1)) return LineRange{cursor_row_, n - 1};
    const Separator separator = separator_of(t, u);
    if (separator.pos == std::string::npos) {
        const auto row = parse_line_ref(t);
        if (!row) return std::nullopt;
        return LineRange{*row, *row};
    }
    const auto a = parse_line_ref(t.substr(0, separator.pos));
    const auto b = parse_line_ref(t.substr(separator.pos + separator.size));
    if (!a || !b) return std::nullopt;
    return LineRange{std::min(*a, *b), std::max(*a, *b)};
}

Editor::LineRange Editor::end_clamped(const LineRange& range) const {
    return {range.first, std::min(range.last, buffer_.line_count() - 1)};
}

std::optional<Editor::LineRange> Editor::range_or_cursor_line(const std::string& text) const {
    if (kpe_trim(text).empty()) return LineRange{cursor_row_, cursor_row_};
    return parse_line_range(text);
}
