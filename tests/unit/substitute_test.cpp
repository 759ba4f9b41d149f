#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "editor_peek.h"

// The one-pass replacement and the searches, compared with the plainest way to do the same: strings, and a
// new search in the changed line after each replacement.

namespace {

using Position = std::pair<size_t, size_t>;

struct Naive {
    std::vector<std::string> lines;
    std::string needle;
    EditorPeek::SearchModes modes;
    EditorPeek* editor = nullptr;  // for is_delim only

    size_t count = 0;
    Position cursor = {0, 0};
    std::optional<Position> mark;
    bool modified = false;

    bool wild() const { return TextBuffer::has_wildcards(needle); }
    std::string folded(const std::string& s) const { return modes.exact ? s : TextBuffer::to_lower(s); }

    std::optional<size_t> length_at(size_t row, size_t col) const {
        const std::string line = folded(lines[row]), pattern = folded(needle);
        if (!wild())
            return line.compare(col, pattern.size(), pattern) == 0 ? std::optional(pattern.size()) : std::nullopt;
        const bool anchored = pattern[0] == '^';
        if (anchored && col > 0) return std::nullopt;
        const int len = TextBuffer::wmatch(pattern.c_str() + anchored, line.data() + col, line.size() - col);
        return len < 0 ? std::nullopt : std::optional(static_cast<size_t>(len));
    }
    bool allowed(size_t row, size_t col, size_t len) const {
        const std::string& line = lines[row];
        if (modes.begin && col != 0) return false;
        if (modes.end && col + len != line.size()) return false;
        return !modes.word || ((col == 0 || editor->is_delim(line[col - 1])) &&
                               (col + len >= line.size() || editor->is_delim(line[col + len])));
    }
    std::optional<Position> forward(size_t row, size_t col) const {
        for (; row < lines.size(); ++row, col = 0) {
            for (col = std::min(col, lines[row].size()); col <= lines[row].size();) {
                const auto len = length_at(row, col);
                if (len && allowed(row, col, *len)) return Position{row, col};
                col += len ? std::max<size_t>(*len, 1) : 1;
            }
        }
        return std::nullopt;
    }
    // waits: it would find a refused match again and again.
    std::optional<Position> backward(size_t row, size_t limit, bool& waits) const {
        row = std::min(row, lines.size() - 1);
        limit = std::min(limit, lines[row].size());
        for (;;) {
            for (size_t col = limit + 1; col-- > 0;) {
                const auto len = length_at(row, col);
                if (!len || (!wild() && col + *len > limit)) continue;
                if (allowed(row, col, *len)) return Position{row, col};
                waits = wild() && col > 0;
                if (waits) return std::nullopt;
                limit = col;
                if (col > 0) ++col;
            }
            if (row == 0) return std::nullopt;
            limit = lines[--row].size();
        }
    }
    void replace(size_t row, size_t col, size_t len, const std::string& by) {
        ++count;
        if (lines[row].compare(col, len, by) == 0) return;
        if (mark && mark->first == row && mark->second > col)
            mark->second = mark->second < col + len ? col : mark->second - len + by.size();
        lines[row].replace(col, len, by);
        modified = true;
    }
    // false: it repeats itself without an end.
    bool replace_everywhere(const std::string& by) {
        size_t row = 0, col = 0;
        while (const auto at = forward(row, col)) {
            cursor = at.value();
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
    void replace_in_rows(size_t first, size_t last, const std::string& by) {
        for (size_t row = first; row <= last; ++row) {
            size_t col = 0;
            while (const auto at = forward(row, col)) {
                const size_t len = at->first == row ? *length_at(row, at->second) : 0;
                if (len == 0) break;
                replace(row, at->second, len, by);
                col = at->second + by.size();
            }
        }
        cursor = {first, 0};
    }
};

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    size_t below(size_t n) { return engine_() % n; }
    std::string text(size_t longest, const std::string& alphabet) {
        std::string s(below(longest + 1), '\0');
        for (char& c : s) c = alphabet[below(alphabet.size())];
        return s;
    }
    template <class List>
    auto one_of(const List& list) {
        return *(std::begin(list) + static_cast<std::ptrdiff_t>(below(std::size(list))));
    }

private:
    std::mt19937 engine_;
};

constexpr const char* NEEDLES[] = {"a",  "aa",  "ab", "b,",  "AB",  "a b",   "^",  "^a",    "^%",
                                   "$",  "a$",  "^$", "*",   "a*",  "a*b",   "?",  "[ab]",  "%$",
                                   "*$", "^*b", "b%", "^ab", "[A]", "a*b*,", "^*", "[^a]*$"};
constexpr const char* REPLACEMENTS[] = {"", "a", "b", "ab", "aa", ",", " b", "a,", "x\ny", "bcab"};

// An editor and the naive text with the same lines, mark and search string.
struct Pair {
    EditorPeek editor;
    Naive naive;

    explicit Pair(Random& random) {
        naive.lines.resize(random.below(8) == 0 ? 65 + random.below(100) : 1 + random.below(6));
        for (std::string& line : naive.lines) line = random.text(random.below(3) == 0 ? 30 : 5, "aabbA, c");
        naive.needle = random.one_of(NEEDLES);
        const auto often = [&] { return random.below(4) == 0; };
        naive.modes = {!often(), false, false, often()};
        naive.modes.begin = often();
        naive.modes.end = !naive.modes.begin && often();
        naive.editor = &editor;
        editor.buffer().set_lines(LineStore(naive.lines));
        if (random.below(2) == 0) {
            const size_t row = random.below(naive.lines.size());
            naive.mark = Position{row, random.below(naive.lines[row].size() + 1)};
            editor.buffer().set_mark(row, naive.mark->second);
        }
        editor.buffer().clear_modified();
        editor.set_search(naive.needle, naive.modes);
    }
    std::string what(const std::string& by) const {
        std::string text = "'" + naive.needle + "' by '" + by + "'";
        if (!naive.modes.exact) text += " GENERAL";
        if (naive.modes.begin) text += " BEGIN";
        if (naive.modes.end) text += " END";
        if (naive.modes.word) text += " WORD";
        for (const std::string& line : naive.lines) text += "\n|" + line;
        return text;
    }
    void expect_same(const std::string& before) {
        EXPECT_EQ(editor.lines(), naive.lines) << before;
        EXPECT_EQ(editor.cursor(), naive.cursor) << before;
        EXPECT_EQ(editor.buffer().modified(), naive.modified) << before;
        if (naive.mark) {
            EXPECT_EQ(Position(editor.buffer().mark_row(), editor.buffer().mark_col()), *naive.mark) << before;
        }
    }
};

constexpr unsigned ROUNDS = 4000;

}  // namespace

TEST(Substitute, GlobalFormEqualsSearchingAgainEachTime) {
    size_t tried = 0;
    for (unsigned seed = 0; seed < ROUNDS && !HasFailure(); ++seed) {
        Random random(seed);
        Pair pair(random);
        const std::string by = random.one_of(REPLACEMENTS), before = pair.what(by);
        if (!pair.naive.replace_everywhere(by)) continue;  // it would wait for Ctrl/C
        pair.editor.substitute_global('"' + by + '"');
        pair.expect_same(before);
        const size_t count = pair.naive.count;
        EXPECT_EQ(pair.editor.message(), std::to_string(count) + (count == 1 ? " substitution" : " substitutions"));
        ++tried;
    }
    EXPECT_GT(tried, ROUNDS / 2);
}

TEST(Substitute, RangeFormEqualsSearchingAgainEachTime) {
    for (unsigned seed = 0; seed < ROUNDS && !HasFailure(); ++seed) {
        Random random(seed);
        Pair pair(random);
        const std::string by = random.one_of(REPLACEMENTS), before = pair.what(by);
        const size_t first = random.below(pair.naive.lines.size());
        const size_t last = first + random.below(pair.naive.lines.size() - first);
        pair.naive.replace_in_rows(first, last, by);
        pair.editor.substitute_range(first, last, by);
        pair.expect_same(std::to_string(first) + " to " + std::to_string(last) + ": " + before);
    }
}

TEST(Search, BothDirectionsEqualTryingEachColumn) {
    for (unsigned seed = 0; seed < ROUNDS && !HasFailure(); ++seed) {
        Random random(seed);
        Pair pair(random);
        const Naive& naive = pair.naive;
        const size_t row = random.below(naive.lines.size()), col = random.below(naive.lines[row].size() + 3);
        const auto from = [&] { return std::to_string(row) + "," + std::to_string(col) + ": " + pair.what(""); };
        EXPECT_EQ(pair.editor.search_forward(row, col), naive.forward(row, col)) << from();
        bool waits = false;
        const auto expected = naive.backward(row, col, waits);
        if (waits) continue;
        EXPECT_EQ(pair.editor.search_backward(row, col), expected) << from();
    }
}

TEST(Commands, ThoseIgnoredInSilenceAreNotKeptWithoutEnd) {
    EditorPeek e;
    for (int i = 0; i < 1000; ++i) e.editor.execute_command("nonsense", /*report=*/false);
    EXPECT_EQ(e.warnings(), 100U);
}
