#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "buffer/byte_search.h"
#include "buffer/line_store.h"
#include "buffer/match.h"
#include "buffer/text_buffer.h"
#include "unit/naive_match.h"

namespace {

using std::string;
using std::string_view;

// Every start and every limit of one line. False and a note at the first difference.
bool same_as_naive(const string& needle, const string& line, bool exact, const Matcher& matcher) {
    const std::optional<size_t> col = naive_difference(needle, line, exact, matcher);
    if (col)
        ADD_FAILURE() << "needle " << needle << ", line " << line << ", column " << *col << (exact ? "" : ", any case");
    return !col;
}

std::vector<string> all_strings(string_view alphabet, size_t longest) {
    std::vector<string> all{""};
    for (size_t start = 0, length = 1; length <= longest; ++length) {
        const size_t end = all.size();
        for (size_t i = start; i < end; ++i)
            for (char c : alphabet) all.push_back(all[i] + c);
        start = end;
    }
    return all;
}

using Random = std::mt19937;

size_t below(Random& random, size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random); }

string random_string(Random& random, string_view alphabet, size_t length) {
    string s;
    while (s.size() < length) s += alphabet[below(random, alphabet.size())];
    return s;
}

TEST(Wmatch, Rows) {
    struct Row {
        const char* pattern;
        string text;
        int length;
    };
    const Row rows[] = {
        {"", "xyz", 0},
        {"$", "", 0},
        {"a**c", "abcbc", 3},
        {"a*c$", "abcbc", 5},
        {"*", "abc", 0},
        {"a$b", "a$b", 3},
        {"a\\$", "a$", 2},
        {"^a", "^a", 2},
        {"a\\", "a\\", -1},
        {"[^a]", "", -1},
        {"[]x", "x", -1},
        {"[^]x", "ax", 2},
        {"[^", "a", 1},
        {"[a-", "-", 1},
        {"[a-]", "b", -1},
        {"[c-a]", "c", -1},
        {"[a-c-e]", "-", 1},
        {"[\\]]", "\\]", 2},
        {"[$", "$", 1},
        {"[a-\xff]", "\x80", 1},
        {"*b", string("\0\nb", 3), 3},
    };
    for (const Row& row : rows)
        EXPECT_EQ(TextBuffer::wmatch(row.pattern, row.text.data(), row.text.size()), row.length)
            << row.pattern << " at " << row.text;
}

TEST(Matcher, EqualsBacktrackingOnEveryShortString) {
    // Needles of 5 bytes and texts of 3 pass as well, in half a minute.
    constexpr size_t LONGEST_NEEDLE = 3, LONGEST_TEXT = 2;
    for (const bool exact : {true, false}) {
        const string_view bytes = exact ? "ab*?%[]^$\\" : "aA*?[]^$\\";
        const std::vector<string> texts = all_strings(bytes, LONGEST_TEXT);
        for (const string& needle : all_strings(bytes, LONGEST_NEEDLE)) {
            if (needle.empty()) continue;
            const Matcher matcher(needle, exact);
            for (const string& text : texts)
                if (!same_as_naive(needle, text, exact, matcher)) return;
        }
    }
}

// Longer strings than all of them can be tried, and rows as they came from a file among edited ones: those are
// searched in different ways.
TEST(Matcher, EqualsBacktrackingOnRandomRows) {
    using Place = std::optional<std::pair<size_t, size_t>>;
    const auto place = [](const auto& found) { return found ? Place{{found->row, found->col}} : std::nullopt; };
    constexpr size_t ROWS = 5, LONGEST_LINE = 14;
    Random random(1);
    for (int round = 0; round < 3000; ++round) {
        const bool exact = round % 2 == 0;
        const string_view alphabet = round % 3 == 0 ? "abA" : "abcAB-*?%[]^$\\\xe9";
        const string needle = random_string(random, alphabet, 1 + below(random, 8));
        if (std::count(needle.begin(), needle.end(), '*') > 3) continue;  // backtracking would take too long
        const Matcher matcher(needle, exact);
        std::vector<NaiveSearch> naive;
        std::vector<string> lines;
        string file;
        for (size_t row = 0; row < ROWS; ++row) {
            lines.push_back(random_string(random, "abcAB-]*\\\xe9", below(random, LONGEST_LINE)));
            file += lines[row] + "\n";
            naive.emplace_back(needle, lines[row], exact);
            if (!same_as_naive(needle, lines[row], exact, matcher)) return;
        }
        TextBuffer text;
        text.set_text(file);
        for (size_t row = 0; row < ROWS; ++row)
            if (below(random, 2) == 0) text.line(row) = lines[row];
        const size_t col = below(random, LONGEST_LINE);
        for (size_t row = 0; row < ROWS; ++row) {
            Place down, up;
            for (size_t r = row; r < ROWS && !down; ++r)
                if (const auto c = naive[r].first(r == row ? col : 0)) down = {r, *c};
            for (size_t r = row + 1; r-- > 0 && !up;)
                if (const auto c = naive[r].last(r == row ? col : LONGEST_LINE)) up = {r, *c};
            ASSERT_EQ(place(matcher.find_forward(text.lines(), row, col)), down) << needle << " in " << file;
            ASSERT_EQ(place(matcher.find_backward(text.lines(), row, col)), up) << needle << " in " << file;
        }
    }
}

TEST(Matcher, CaseFoldsLettersOnly) {
    const auto col = [](string_view needle, string_view line, bool exact) {
        const auto match = Matcher(needle, exact).first_in({line}, 0);
        return match ? static_cast<int>(match->col) : -1;
    };
    EXPECT_EQ(col("HELLO", "hello world", true), -1);
    EXPECT_EQ(col("[A-C]*\\Z", "--bxz", false), 2);
    for (int c = 0; c < 256; ++c) {
        const string line(1, static_cast<char>(c)), other(1, static_cast<char>(c ^ 0x20));
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (!naive_wild(other)) {
            EXPECT_EQ(col(other, line, false), letter ? 0 : -1) << c;
        }
        if (other[0] != '\0') {
            EXPECT_EQ(col("\\" + other + "?", line + "x", false), letter ? 0 : -1) << c;
        }
    }
}

TEST(Matcher, LongLinesTakeLinearTime) {
    const auto start = std::chrono::steady_clock::now();
    const string million(1000000, 'a'), as = million.substr(0, 100000);
    EXPECT_EQ(TextBuffer::wmatch("a*a*a*a*a*a*b", million.data(), million.size()), -1);
    EXPECT_FALSE(Matcher("*a*a*a*a*a*[bc]", false).last_in({million}, million.size()));
    for (const char* needle : {"*a*a*a*a*a*a*b", "a?a*[ac]a*a?a*ba", "[a]*b$", "a*a*a*a*b*a$", "?????????b",
                               "[ab][ab][ab]*[cd]", "*a*[cd]a*[cd]", "[ab]*[ab]*c[ab]*[ab]"}) {
        for (bool exact : {true, false}) {
            const Matcher matcher(needle, exact);
            EXPECT_FALSE(matcher.first_in({as}, 0)) << needle;
            EXPECT_FALSE(matcher.last_in({as}, as.size())) << needle;
        }
        EXPECT_EQ(TextBuffer::wmatch(needle, as.data(), as.size()), -1) << needle;
    }
    const string head(1000, 'a');
    for (const string& needle : {head + "b", "b" + head, head + "b" + head}) {
        EXPECT_FALSE(Matcher(needle, true).first_in({as}, 0));
        EXPECT_FALSE(Matcher(needle, false).last_in({as}, as.size()));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));  // backtracking would take years
}

TEST(Matcher, GivesUpWhenAborted) {
    volatile std::sig_atomic_t flag = 0;
    const string line = string(500000, 'a') + "b";
    const LineStore lines(std::vector<string>(2000, "aab"));
    for (const char* needle : {"b", "B", "a*b", "[b]", "*[b]$"}) {
        const Matcher matcher(needle, /*exact=*/needle[0] != 'B', &flag);
        flag = 0;
        EXPECT_TRUE(matcher.last_in({line}, line.size())) << needle;
        flag = 1;
        EXPECT_FALSE(matcher.find_forward(lines, 0, 0)) << needle;
        EXPECT_FALSE(matcher.find_backward(lines, 1999, 3)) << needle;
        EXPECT_TRUE(matcher.first_in({"aab"}, 0)) << needle;
    }
    EXPECT_FALSE(Matcher("a*b", true, &flag).first_in({line}, 0));
}

TEST(ByteSearch, EqualsNaiveAroundBlocksAndWindows) {
    Random random(2);
    for (int round = 0; round < 300; ++round) {
        const bool fold = round % 2 == 1;
        const size_t size = round < 280 ? below(random, 4000) : 131072 + below(random, 300);
        string text = random_string(random, round % 3 == 0 ? "ab" : "aAbBccc@`", size);
        if (round % 5 == 0) {  // nearly periodic: most places look promising for long
            const string unit = random_string(random, "ab", 2 + below(random, 4));
            for (size_t i = 0; i < size; ++i)
                if (below(random, 60) != 0) text[i] = unit[i % unit.size()];
        }
        const string lower_text = fold ? TextBuffer::to_lower(text) : text;
        for (const size_t length : {1u, 2u, 3u, 7u, 8u, 9u, 12u, 20u, 70u}) {
            string needle = random_string(random, "ab", length);
            if (size >= length && round % 4 != 0) needle = lower_text.substr(below(random, size - length + 1), length);
            const ByteSearch search(needle, fold);
            Patience patience(nullptr);
            const size_t from = below(random, size + 2), end = below(random, size + 1);
            ASSERT_EQ(search.find(text, from, patience), lower_text.find(needle, from)) << needle << " in " << size;
            const size_t last = lower_text.substr(0, end).rfind(needle);
            ASSERT_EQ(search.rfind(string_view(text).substr(0, end), from, patience),
                      last == string::npos || last < from ? ByteSearch::NONE : last)
                << needle << " in " << size;
            std::vector<const char*> all, naive;
            search.find_all(text, all, patience);
            for (size_t at = 0; (at = lower_text.find(needle, at)) != string::npos; at += length)
                naive.push_back(text.data() + at);
            ASSERT_TRUE(all == naive) << needle << " in " << size;
        }
    }
}

// What agrees for long in most places of the text: a hundred times longer, it costs about the same.
TEST(ByteSearch, ALongNeedleTakesNoLongerThanAShortOne) {
    string text;
    while (text.size() < 200'000) text += "ab";
    Patience patience(nullptr);
    const auto cost = [&](size_t pairs, int way) {
        const ByteSearch search(text.substr(0, 2 * pairs) + "aa", false);
        std::vector<const char*> places;
        const std::clock_t start = std::clock();
        if (way == 0) search.find(text, 0, patience);
        if (way == 1) search.rfind(text, 0, patience);
        if (way == 2) search.find_all(text, places, patience);
        return std::clock() - start;
    };
    for (const int way : {0, 1, 2}) {
        const std::clock_t least = std::min({cost(50, way), cost(50, way), cost(50, way)});
        EXPECT_LT(std::min({cost(5000, way), cost(5000, way), cost(5000, way)}), 10 * least) << "way " << way;
    }
}

TEST(Scans, LengthsInABuffer) {
    TextBuffer buffer;
    buffer.set_text("abc abc\nxyz\nabc\n");
    EXPECT_EQ(buffer.match_len_at("^A*C", 0, 4, false), 3u);
    EXPECT_EQ(buffer.match_len_at("x*c", 0, 0, true), 3u);  // not there: the string's own length
    EXPECT_EQ(buffer.match_len_at("a*", 0, 8, true), 0u);   // behind the line's end
    EXPECT_EQ(buffer.match_len_at("a***", 7, 0, true), 4u);
    EXPECT_FALSE(buffer.find_forward("", 0, 0, true));
}

}  // namespace
