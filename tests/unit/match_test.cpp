#include "buffer/match.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <csignal>
#include <ctime>
#include <optional>
#include <random>
#include <tuple>
#include <utility>

#include "buffer/byte_search.h"
#include "editor/kpe.h"

using std::string;
using std::string_view;

// Opens the editor to this test.
struct EditorPeek {
    Editor editor{{}, std::nullopt, std::nullopt, false, false, std::nullopt};

    TextBuffer& buffer() { return editor.buffer_; }
    auto state() const {
        const TextBuffer& b = editor.buffer_;
        return std::tuple(b.text(), b.modified(), b.mark_row(), b.mark_col(), editor.cursor_row_, editor.cursor_col_);
    }
    void set_search(const string& needle, const std::bitset<4>& how) {
        editor.last_search_ = needle;
        editor.search_exact_ = !how[0];
        editor.search_begin_ = how[1];
        editor.search_end_ = how[2] && !how[1];
        editor.search_word_ = how[3];
    }
    // Replaces in rows first to last, or everywhere, where empty matches count too.
    void replace(bool everywhere, size_t first, size_t last, const string& by) {
        if (everywhere)
            editor.substitute_global('"' + by + '"', false, /*report=*/false);
        else
            editor.substitute_range({first, last}, by, {}, /*report=*/false);
    }
    // The same by searching the new text after each replacement. false: that would have no end.
    bool replace_one_by_one(bool everywhere, size_t first, size_t last, const string& by) {
        size_t row = everywhere ? 0 : first, col = 0;
        while (const auto at = editor.next_place(buffer().lines(), row, col)) {
            const size_t step = at->len == 0 ? 1 : 0;
            if (at->row > last && !everywhere) break;
            if (step && everywhere && by.empty()) return false;
            row = at->row;
            col = at->col + by.size() + step;
            if (everywhere || !step) buffer().replace_in_line(row, at->col, at->len, by);
            editor.cursor_row_ = row;
            editor.cursor_col_ = at->col;
            if (col <= buffer().length(row) && (everywhere || !step)) continue;
            ++row;
            col = 0;
        }
        if (everywhere) return true;
        editor.cursor_row_ = first;
        editor.cursor_col_ = 0;
        return true;
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

// A search string and a text, searched by trying one column after the other.
struct Naive {
    string needle;
    std::vector<string> lines;
    bool exact;
    bool wild = TextBuffer::has_wildcards(needle), anchored = wild && needle[0] == '^';

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
    std::optional<Place> forward(size_t row, size_t col) const {
        for (; row < lines.size(); ++row, col = 0)
            for (; col <= lines[row].size(); ++col)
                if (match_at(row, col)) return Place{row, col};
        return std::nullopt;
    }
    std::optional<Place> backward(size_t row, size_t limit) const {
        for (size_t from = row + 1; from-- > 0; limit = string::npos)
            for (size_t col = std::min(limit, lines[from].size()) + 1; col-- > 0;)
                if (const auto len = match_at(from, col); len && (wild || col + *len <= limit)) return Place{from, col};
        return std::nullopt;
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

private:
    std::mt19937 engine_;
};

string shown(const std::vector<string>& lines) {
    string all;
    for (const string& line : lines) all += "\n|" + line;
    return all;
}

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
    for (const char c : string("*?%[^$")) EXPECT_TRUE(TextBuffer::has_wildcards(string("a") + c)) << c;
    EXPECT_FALSE(TextBuffer::has_wildcards("a\\*b\\"));
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
        SCOPED_TRACE(std::to_string(row) + "," + std::to_string(col) + " for " + needle + " in" + shown(naive.lines));
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
        const string needle = NEEDLES[random.below(std::size(NEEDLES))], by = TEXTS[random.below(std::size(TEXTS))];
        std::vector<string> lines(random.below(8) == 0 ? 65 + random.below(100) : 1 + random.below(6));
        for (string& line : lines) line = random.text(random.below(seed % 4 == 0 ? 30 : 6), "aabbA, c");
        EditorPeek fast, slow;
        fill(fast.buffer(), lines, random);
        const size_t row = random.below(lines.size()), last = row + random.below(lines.size() - row);
        fast.buffer().set_mark(last, random.below(lines[last].size() + 1));
        fast.buffer().clear_modified();
        slow.buffer() = fast.buffer();
        const std::bitset<4> how(random.below(16) & random.below(16));
        fast.set_search(needle, how);
        slow.set_search(needle, how);
        if (!slow.replace_one_by_one(seed % 2 == 0, row, last, by)) continue;  // it would wait for Ctrl/C
        fast.replace(seed % 2 == 0, row, last, by);
        EXPECT_EQ(fast.state(), slow.state()) << "rows " << row << " to " << last << ", '" << by << "' for " << needle
                                              << " " << how << " in" << shown(lines);
    }
    EditorPeek editor;
    editor.buffer().set_text("aaa");
    editor.set_search("aa", 4);
    editor.replace(/*everywhere=*/true, 0, 0, "b");
    EXPECT_EQ(editor.buffer().text(), "aaa") << "a match that END refuses is passed over as a whole";
}

TEST(Matcher, LongLinesTakeLinearTime) {
    const std::clock_t start = std::clock();
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
    string pairs;  // agree with a long needle of the same for long in most places
    while (pairs.size() < 2'000'000) pairs += "ab";
    const ByteSearch search(pairs.substr(pairs.size() / 2) + "aa", false);
    Patience patience(nullptr);
    std::vector<const char*> places;
    search.find_all(pairs, places, patience);
    EXPECT_EQ(search.find(pairs, 0, patience), ByteSearch::NONE);
    EXPECT_EQ(search.rfind(pairs, 0, patience), ByteSearch::NONE);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);  // backtracking would take years
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
            const size_t found = search.rfind(string_view(text).substr(0, end), from, patience);
            ASSERT_EQ(found, last == string::npos || last < from ? ByteSearch::NONE : last);
            std::vector<const char*> all, naive;
            search.find_all(text, all, patience);
            for (size_t at = 0; (at = lower.find(needle, at)) != string::npos; at += length)
                naive.push_back(text.data() + at);
            ASSERT_TRUE(all == naive);
        }
    }
}
