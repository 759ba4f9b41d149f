#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "buffer/line_store.h"
#include "fuzz/targets.h"
#include "unit/naive_match.h"

namespace {

// What backtracking takes grows with the length of the text to the power of the stars.
constexpr size_t LONGEST_NEEDLE = 16, LONGEST_LINE = 24, MOST_LINES = 8;
constexpr std::ptrdiff_t MOST_STARS = 3;

using Place = std::optional<std::pair<size_t, size_t>>;

Place place(const std::optional<Matcher::Place>& found) {
    return found ? Place{{found->row, found->col}} : std::nullopt;
}

}  // namespace

// A byte of options, the search string, and lines; "~" is a line break within one.
void fuzz_match(std::string_view input) {
    const unsigned options = input.empty() ? 0 : static_cast<unsigned char>(input.front());
    input.remove_prefix(std::min<size_t>(1, input.size()));
    const bool exact = options & 1;
    std::string needle(fuzz_take(input, '\n').substr(0, LONGEST_NEEDLE));
    std::replace(needle.begin(), needle.end(), '~', '\n');
    if (needle.empty() || needle.find('\0') != needle.npos) return;
    if (std::count(needle.begin(), needle.end(), '*') > MOST_STARS) return;

    std::vector<std::string> rows;
    do rows.emplace_back(fuzz_take(input, '\n').substr(0, LONGEST_LINE));
    while (!input.empty() && rows.size() < MOST_LINES);
    for (std::string& row : rows) std::replace(row.begin(), row.end(), '~', '\n');
    const Matcher matcher(needle, exact);
    std::vector<NaiveSearch> naive;
    for (const std::string& row : rows) {
        fuzz_check(TextBuffer::wmatch(needle.c_str(), row.data(), row.size()) == backtrack(needle, row), "wmatch", row);
        fuzz_check(!naive_difference(needle, row, exact, matcher), "a search in a line", row);
        naive.emplace_back(needle, row, exact);
    }

    // Some rows as they came from a file, some edited: they are searched in different ways.
    std::string block;
    for (const std::string& row : rows) (block += row.substr(0, row.find('\n'))) += '\n';
    TextBuffer text;
    text.set_text(block);
    for (size_t row = 0; row < rows.size(); ++row) {
        const bool cut = rows[row].ends_with('\r') || rows[row].find('\n') != std::string::npos;
        if (cut || (options >> 2 >> (row % 6) & 1)) text.line(row) = rows[row];
    }
    const size_t col = options >> 4;
    for (size_t row = 0; row < rows.size(); ++row) {
        Place down, up;
        for (size_t r = row; r < rows.size() && !down; ++r)
            if (const auto c = naive[r].first(r == row ? col : 0)) down = {r, *c};
        for (size_t r = row + 1; r-- > 0 && !up;)
            if (const auto c = naive[r].last(r == row ? col : LONGEST_LINE)) up = {r, *c};
        fuzz_check(place(matcher.find_forward(text.lines(), row, col)) == down, "a search downwards", needle);
        fuzz_check(place(matcher.find_backward(text.lines(), row, col)) == up, "a search upwards", needle);
    }
}
