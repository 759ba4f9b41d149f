#include "buffer/match.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <optional>
#include <random>
#include <utility>

#include "buffer/byte_search.h"
#include "editor/kpe.h"

using std::string;
using std::string_view;

// Opens the editor to this test: its text, and what it searches and replaces.
struct EditorPeek {
    Editor editor{{}, std::nullopt, std::nullopt, false, false, std::nullopt};

    TextBuffer& buffer() { return editor.buffer_; }
    auto cursor() { return std::pair(editor.cursor_row_, editor.cursor_col_); }
    void set_search(const string& needle, bool exact, bool begin, bool end, bool word) {
        editor.last_search_ = needle;
        editor.search_exact_ = exact;
        editor.search_begin_ = begin;
        editor.search_end_ = end;
        editor.search_word_ = word;
    }
    void substitute_global(const string& by) { editor.substitute_global('"' + by + '"', false, /*report=*/false); }
    void substitute_range(size_t first, size_t last, const string& by) {
        editor.substitute_range({first, last}, by, {}, /*report=*/false);
    }
};

namespace {

using Place = std::pair<size_t, size_t>;

// The pattern language by plain backtracking, a rule a line: what every other way must find.
int backtrack(string_view p, string_view t) {
    const auto then = [&](size_t used, size_t taken) {
        const int rest = backtrack(p.substr(used), t.substr(taken));
        return rest < 0 ? -1 : rest + static_cast<int>(taken);
    };
    const auto byte = [](char c) { return static_cast<unsigned char>(c); };
    if (p.empty()) return 0;
    if (p == "$") return t.empty() ? 0 : -1;
    if (p[0] == '*') {
        const size_t stars = std::min(p.find_first_not_of('*'), p.size());
        int found = -1;
        for (size_t k = 0; k <= t.size() && found < 0; ++k) found = then(stars, k);
        return found;
    }
    if (t.empty()) return -1;
    if (p[0] == '\\') return p.size() > 1 && p[1] == t[0] ? then(2, 1) : -1;
    if (p[0] == '?' || p[0] == '%') return then(1, 1);
    if (p[0] != '[') return p[0] == t[0] ? then(1, 1) : -1;
    const bool negated = p.substr(1).starts_with('^');
    bool member = false;
    size_t i = negated ? 2 : 1;
    while (i < p.size() && p[i] != ']') {
        const bool range = i + 2 < p.size() && p[i + 1] == '-' && p[i + 2] != ']';
        const char last = range ? p[i + 2] : p[i];
        if (byte(p[i]) <= byte(t[0]) && byte(t[0]) <= byte(last)) member = true;
        i += range ? 3 : 1;
    }
    return member != negated ? then(std::min(i + 1, p.size()), 1) : -1;
}

bool has_wildcards(string_view s) {
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\')
            ++i;
        else if (string_view("*?%[^$").find(s[i]) != s.npos)
            return true;
    }
    return false;
}

// A search string and a text, searched by trying one column after the other, and again after each replacement.
struct Naive {
    string needle;
    std::vector<string> lines;
    bool exact = true, begin = false, end = false, word = false;
    bool wild = has_wildcards(needle), anchored = wild && needle[0] == '^';

    Place cursor = {0, 0};
    std::optional<Place> mark = {};
    bool modified = false;

    string folded(const string& s) const { return exact ? s : TextBuffer::to_lower(s); }
    // Of a match at this place, wherever "^" wants it.
    std::optional<size_t> length_at(size_t row, size_t col) const {
        const string pattern = folded(needle), line = folded(lines[row]).substr(col);
        const int length = wild                        ? backtrack(string_view(pattern).substr(anchored ? 1 : 0), line)
                           : line.starts_with(pattern) ? static_cast<int>(pattern.size())
                                                       : -1;
        return length < 0 ? std::nullopt : std::optional(static_cast<size_t>(length));
    }
    std::optional<size_t> match_at(size_t row, size_t col) const {
        return anchored && col > 0 ? std::nullopt : length_at(row, col);
    }
    bool allowed(size_t row, size_t col, size_t len) const {
        const string& line = lines[row];
        const auto separates = [&](size_t at) { return string_view(" ,").find(line[at]) != string_view::npos; };
        if ((begin && col != 0) || (end && col + len != line.size())) return false;
        return !word || ((col == 0 || separates(col - 1)) && (col + len >= line.size() || separates(col + len)));
    }
    std::optional<Place> forward(size_t row, size_t col) const {
        for (; row < lines.size(); ++row, col = 0) {
            for (col = std::min(col, lines[row].size()); col <= lines[row].size();) {
                const auto len = match_at(row, col);
                if (len && allowed(row, col, *len)) return Place{row, col};
                col += len ? std::max<size_t>(*len, 1) : 1;
            }
        }
        return std::nullopt;
    }
    std::optional<Place> backward(size_t row, size_t limit) const {
        for (size_t from = row + 1; from-- > 0; limit = string::npos)
            for (size_t col = std::min(limit, lines[from].size()) + 1; col-- > 0;)
                if (const auto len = match_at(from, col); len && (wild || col + *len <= limit)) return Place{from, col};
        return std::nullopt;
    }
    void replace(size_t row, size_t col, size_t len, const string& by) {
        if (lines[row].compare(col, len, by) == 0) return;
        if (mark && mark->first == row && mark->second > col)
            mark->second = mark->second < col + len ? col : mark->second - len + by.size();
        lines[row].replace(col, len, by);
        modified = true;
    }
    // false: it repeats itself without an end.
    bool replace_everywhere(const string& by) {
        size_t row = 0, col = 0;
        while (const auto at = forward(row, col)) {
            cursor = *at;
            row = cursor.first;
            const size_t len = *length_at(row, cursor.second);
            if (len == 0 && by.empty()) return false;
            replace(row, cursor.second, len, by);
            col = cursor.second + by.size();
            if (len > 0) continue;
            row += col < lines[row].size() ? 0 : 1;
            col = row == cursor.first ? col + 1 : 0;
        }
        return true;
    }
    void replace_in_rows(size_t first, size_t last, const string& by) {
        for (size_t row = first; row <= last; ++row) {
            size_t col = 0;
            for (auto at = forward(row, col); at && at->first == row; at = forward(row, col)) {
                const size_t len = *length_at(row, at->second);
                if (len == 0) break;
                replace(row, at->second, len, by);
                col = at->second + by.size();
            }
        }
        cursor = {first, 0};
    }
    string what() const {
        string text = needle + (exact ? "" : " GENERAL") + (begin ? " BEGIN" : "") + (end ? " END" : "");
        if (word) text += " WORD";
        for (const string& line : lines) text += "\n|" + line;
        return text;
    }
};

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    size_t below(size_t n) { return engine_() % n; }
    string text(size_t length, string_view alphabet) {
        string s(length, '\0');
        for (char& c : s) c = alphabet[below(alphabet.size())];
        return s;
    }
    template <class List>
    string one_of(const List& list) {
        return list[below(std::size(list))];
    }

private:
    std::mt19937 engine_;
};

// Rows as they came from a file among edited ones: those are searched in different ways.
void fill(TextBuffer& text, const std::vector<string>& lines, Random& random) {
    string file;
    for (const string& line : lines) file += line + "\n";
    text.set_text(file);
    for (size_t row = 0; row < lines.size(); ++row)
        if (random.below(3) == 0) text.line(row) = lines[row];
}

}  // namespace

TEST(Matcher, EqualsBacktracking) {
    Random random(1);
    for (int round = 0; round < 20000 && !HasFailure(); ++round) {
        const string_view alphabet = round % 3 == 0 ? "abA*" : "abcAZ-*?%[]^$\\\xe9@`{|}";
        Naive naive{random.text(1 + random.below(6), alphabet), std::vector<string>(4), round % 2 == 0};
        const string& needle = naive.needle;
        if (std::count(needle.begin(), needle.end(), '*') > 3) continue;  // backtracking would take too long
        for (string& line : naive.lines) line = random.text(random.below(9), "abcAz-][*\\\xe9@`{");
        TextBuffer text;
        fill(text, naive.lines, random);
        const Matcher matcher(needle, naive.exact);
        const size_t row = random.below(4), col = random.below(naive.lines[row].size() + 1);
        const auto place = [](const auto& at) { return at ? std::optional(Place{at->row, at->col}) : std::nullopt; };
        SCOPED_TRACE(std::to_string(row) + "," + std::to_string(col) + " for " + naive.what());
        EXPECT_EQ(place(matcher.find_forward(text.lines(), row, col)), naive.forward(row, col));
        EXPECT_EQ(place(matcher.find_backward(text.lines(), row, col)), naive.backward(row, col));
        const size_t length = naive.wild ? naive.length_at(row, col).value_or(needle.size()) : needle.size();
        EXPECT_EQ(matcher.length_at(naive.lines[row], col), length);
    }
}

TEST(Matcher, EditorReplacesAsBySearchingAgainEachTime) {
    constexpr const char* NEEDLES[] = {"a",  "aa",  "ab", "b,",  "AB",  "a b",   "^",  "^a",    "^%",
                                       "$",  "a$",  "^$", "*",   "a*",  "a*b",   "?",  "[ab]",  "%$",
                                       "*$", "^*b", "b%", "^ab", "[A]", "a*b*,", "^*", "[^a]*$"};
    constexpr const char* TEXTS[] = {"", "a", "b", "ab", "aa", ",", " b", "a,", "x\ny", "bcab"};
    for (unsigned seed = 0; seed < 8000 && !HasFailure(); ++seed) {
        Random random(seed);
        const auto often = [&] { return random.below(4) == 0; };
        Naive naive{random.one_of(NEEDLES), {}, !often(), often(), often(), often()};
        naive.end = naive.end && !naive.begin;
        naive.lines.resize(random.below(8) == 0 ? 65 + random.below(100) : 1 + random.below(6));
        for (string& line : naive.lines) line = random.text(random.below(often() ? 30 : 6), "aabbA, c");
        EditorPeek editor;
        fill(editor.buffer(), naive.lines, random);
        editor.set_search(naive.needle, naive.exact, naive.begin, naive.end, naive.word);
        const size_t row = random.below(naive.lines.size()), last = row + random.below(naive.lines.size() - row);
        naive.mark = Place{last, random.below(naive.lines[last].size() + 1)};
        editor.buffer().set_mark(last, naive.mark->second);
        editor.buffer().clear_modified();
        const string by = random.one_of(TEXTS);
        SCOPED_TRACE(std::to_string(row) + " to " + std::to_string(last) + " '" + by + "' for " + naive.what());
        if (seed % 2 == 0) {
            if (!naive.replace_everywhere(by)) continue;  // it would wait for Ctrl/C
            editor.substitute_global(by);
        } else {
            naive.replace_in_rows(row, last, by);
            editor.substitute_range(row, last, by);
        }
        EXPECT_EQ(editor.buffer().lines_in_range(0, string::npos), naive.lines);
        EXPECT_EQ(editor.cursor(), naive.cursor);
        EXPECT_EQ(editor.buffer().modified(), naive.modified);
        EXPECT_EQ(Place(editor.buffer().mark_row(), editor.buffer().mark_col()), *naive.mark);
    }
}

TEST(Matcher, LongLinesTakeLinearTime) {
    const auto start = std::chrono::steady_clock::now();
    const string as(100000, 'a'), head(1000, 'a');
    for (const string& needle : {string("*a*a*a*a*a*a*b"), string("a?a*[ac]a*a?a*ba"), string("[a]*b$"),
                                 string("a*a*a*a*b*a$"), string("?????????b"), string("[ab][ab][ab]*[cd]"),
                                 string("[ab]*[ab]*c[ab]*[ab]"), head + "b", "b" + head, head + "b" + head}) {
        for (bool exact : {true, false}) {
            const Matcher matcher(needle, exact);
            EXPECT_FALSE(matcher.first_in({as}, 0)) << needle;
            EXPECT_FALSE(matcher.last_in({as}, as.size())) << needle;
        }
        EXPECT_EQ(TextBuffer::wmatch(needle.c_str(), as.data(), as.size()), -1) << needle;
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
        const size_t size = round < 280 ? random.below(4000) : 131072 + random.below(300);
        string text = random.text(size, round % 3 == 0 ? "ab" : "aAbBccc@`");
        if (round % 5 == 0) {  // nearly periodic: most places look promising for long
            const string unit = random.text(2 + random.below(4), "ab");
            for (size_t i = 0; i < size; ++i)
                if (random.below(60) != 0) text[i] = unit[i % unit.size()];
        }
        const string lower = fold ? TextBuffer::to_lower(text) : text;
        for (const size_t length : {1u, 2u, 3u, 7u, 8u, 9u, 12u, 20u, 70u}) {
            string needle = random.text(length, "ab");
            if (size >= length && round % 4 != 0) needle = lower.substr(random.below(size - length + 1), length);
            SCOPED_TRACE(needle + " in " + std::to_string(size));
            const ByteSearch search(needle, fold);
            Patience patience(nullptr);
            const size_t from = random.below(size + 2), end = random.below(size + 1);
            ASSERT_EQ(search.find(text, from, patience), lower.find(needle, from));
            const size_t last = lower.substr(0, end).rfind(needle);
            ASSERT_EQ(search.rfind(string_view(text).substr(0, end), from, patience),
                      last == string::npos || last < from ? ByteSearch::NONE : last);
            std::vector<const char*> all, naive;
            search.find_all(text, all, patience);
            for (size_t at = 0; (at = lower.find(needle, at)) != string::npos; at += length)
                naive.push_back(text.data() + at);
            ASSERT_TRUE(all == naive);
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
