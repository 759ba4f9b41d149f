#include "buffer/text_buffer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <random>
#include <tuple>
#include <utility>

#include "buffer/row_rewriter.h"
#include "unit/no_memory.h"
#include "unit/scratch.h"

namespace {

using std::string;
using Lines = std::vector<string>;
using Load = TextBuffer::Load;

// Text, flags and mark in one string that a failure can show.
string state_of(const TextBuffer& buffer) {
    string state;
    for (const string& line : buffer.lines_in_range(0, string::npos)) state += line + "|";
    if (buffer.final_newline()) state += "\\n";
    if (buffer.modified()) state += " changed";
    if (buffer.has_mark())
        state += " mark " + std::to_string(buffer.mark_row()) + "," + std::to_string(buffer.mark_col());
    return state;
}

string random_text(std::mt19937& random, size_t longest) {
    string text(random() % (longest + 1), ' ');
    for (char& c : text) c = "ab \n\rcdefghijkl"[random() % (longest > 60 ? 15 : 5)];
    return text;
}

// Without the carriage return in front of each line end. A text of one empty line has no bytes.
string without_returns(const string& text) {
    string all;
    for (const char c : text + '\n') {
        if (c == '\n' && all.ends_with('\r')) all.pop_back();
        all += c;
    }
    all.pop_back();
    return text == "\n" || text == "\r\n" ? "" : all;
}

void insert_bytes(TextBuffer& buffer, size_t& row, size_t& col, const string& text) {
    for (const char c : text) {
        if (c != '\n') {
            buffer.insert_char(row, col++, c);
            continue;
        }
        buffer.split_line(row++, col);
        col = 0;
    }
}

void rewrite_ends(TextBuffer& buffer) {
    RowRewriter rewriter = buffer.rewrite();
    rewriter.put(2, "new");
    rewriter.put(0, "new");
    rewriter.finish();
}

}  // namespace

TEST(TextBuffer, LoadsAndGivesBackEveryKindOfText) {
    const string nul("a\0b", 3), long_line(200000, 'x');
    const std::pair<string, Lines> ROWS[] = {
        {"", {""}},
        {"\n", {""}},
        {"a\n\nb", {"a", "", "b"}},
        {"a\r\nb\r\n", {"a", "b"}},
        {"a\r\r\n", {"a\r"}},
        {"\n\r", {"", ""}},
        {nul + "\n" + nul, {nul, nul}},
        {long_line + "\r\n" + long_line, {long_line, long_line}},
    };
    const Scratch dir;
    for (const auto& [bytes, lines] : ROWS) {
        TextBuffer buffer;
        for (const bool load : {true, false}) {
            buffer.insert_char(0, 0, 'x');
            buffer.set_mark(0, 1);
            load ? void(buffer.load(dir.put("file", bytes))) : buffer.set_text(bytes);
            EXPECT_TRUE(buffer.lines_in_range(0, string::npos) == lines);
            EXPECT_EQ(buffer.final_newline(), bytes.ends_with('\n') || (load && bytes.empty()));
            EXPECT_TRUE(buffer.text() == without_returns(bytes));
            EXPECT_EQ(buffer.modified(), !load);
            EXPECT_FALSE(buffer.has_mark());
        }
        buffer.append_lines(Lines{"last"});
        EXPECT_TRUE(buffer.final_newline());
    }
}

TEST(TextBuffer, TellsWhyAFileCouldNotBeRead) {
    const Scratch dir;
    dir.put("a/file", "x\n");
    ASSERT_EQ(symlink("around", dir.path("around").c_str()), 0);
    const std::vector<std::tuple<string, bool, Load>> rows = {
        {dir.path("missing"), false, Load::Missing}, {dir.path("a/file/below"), false, Load::Missing},
        {dir.path("around"), false, Load::Broken},   {dir.path("a"), true, Load::Whole},  // a directory is empty
        {"/proc/self/status", true, Load::Whole},                                         // says it has no bytes
        {"/proc/self/mem", true, Load::Broken},                                           // cannot be read at its start
    };
    for (const auto& [path, opened, state] : rows) {
        TextBuffer buffer;
        buffer.insert_char(0, 0, 'x');
        EXPECT_EQ(buffer.load(path), opened) << path;
        EXPECT_EQ(buffer.load_state(), state) << path;
        EXPECT_EQ(buffer.line(0).empty(), path != "/proc/self/status") << path;
        EXPECT_TRUE(buffer.final_newline() && !buffer.modified()) << path;
    }
}

TEST(TextBuffer, EditsMoveTheMarkWithItsText) {
    using Buffer = TextBuffer&;
    struct Row {
        size_t mark_row, mark_col;
        std::function<void(Buffer)> edit;
        const char* after;
    };
    size_t row = 1, col = 0;
    const std::vector<Row> rows = {
        {1, 2, [](Buffer b) { b.insert_char(1, 2, 'X'); }, "ab d|efXgh|ijkl|\\n changed mark 1,3"},
        {2, 4, [](Buffer b) { b.insert_char(4, 9, 'X'); }, "ab d|efgh|ijkl||X|\\n changed mark 2,4"},
        {2, 4, [](Buffer b) { b.split_line(2, 1); }, "ab d|efgh|i|jkl|\\n changed mark 3,3"},
        {2, 1, [&](Buffer b) { b.backspace(row = 1, col = 0); }, "ab defgh|ijkl|\\n changed mark 1,1"},
        {1, 2, [&](Buffer b) { b.backspace(row = 1, col = 9); }, "ab d|efgh|ijkl|\\n mark 1,2"},
        {1, 2, [](Buffer b) { b.delete_at(1, 2); }, "ab d|efh|ijkl|\\n changed mark 1,2"},
        {1, 4, [](Buffer b) { b.line(1).resize(2), b.delete_to_eol(1, 1); }, "ab d|e|ijkl|\\n changed mark 1,1"},
        {1, 3, [&](Buffer b) { b.delete_to_bol(1, col = 2); }, "ab d|gh|ijkl|\\n changed mark 1,1"},
        {1, 3, [](Buffer b) { b.delete_line(1); }, "ab d|ijkl|\\n changed mark 1,0"},
        {2, 3, [](Buffer b) { b.delete_range(0, 99); }, "|\\n changed mark 0,0"},
        {1, 2, [](Buffer b) { b.insert_lines(1, Lines(2, "x")); }, "ab d|x|x|efgh|ijkl|\\n changed mark 3,2"},
        {1, 3, [](Buffer b) { b.replace_in_line(1, 1, 2, "x"); }, "ab d|exh|ijkl|\\n changed mark 1,2"},
        {1, 2, [](Buffer b) { b.replace_in_line(1, 1, 99, "fgh"); }, "ab d|efgh|ijkl|\\n mark 1,2"},
        {2, 2, [](Buffer b) { rewrite_ends(b); }, "new|efgh|new|\\n changed mark 2,2"},
        {2, 2, [&](Buffer b) { b.delete_word_backward(row = 1, col = 0, " "); }, "ab efgh|ijkl|\\n changed mark 1,2"},
        {0, 4, [&](Buffer b) { b.delete_word_backward(row = 0, col = 3, " "); }, "d|efgh|ijkl|\\n changed mark 0,1"},
        {0, 4, [&](Buffer b) { b.delete_word_forward(0, col = 2, " "); }, "ab|efgh|ijkl|\\n changed mark 0,2"},
    };
    for (const Row& r : rows) {
        TextBuffer buffer;
        buffer.append_lines(Lines{"ab d", "efgh", "ijkl"});
        buffer.clear_modified();
        buffer.set_mark(r.mark_row, r.mark_col);
        const string before = state_of(buffer);
        fail_each_allocation([&] { r.edit(buffer); }, [&] { EXPECT_EQ(state_of(buffer), before) << r.after; });
        EXPECT_EQ(state_of(buffer), r.after) << "mark at " << r.mark_row << "," << r.mark_col;
    }
}

// Whole texts go in and out as their bytes would one after the other.
TEST(TextBuffer, SpansAndRangesAgreeWithTheirBytes) {
    std::mt19937 random(1);
    for (int i = 0; i < 2000 && !HasFailure(); ++i) {
        TextBuffer before;
        const string whole = random_text(random, i % 2 == 0 ? 60 : 300);
        before.set_text(whole);
        EXPECT_EQ(before.text(), without_returns(whole));
        if (i % 4 != 0) before.set_mark(random() % 12, random() % 8);
        before.clear_modified();
        const size_t r1 = random() % 9, c1 = random() % 8, r2 = random() % 9, c2 = random() % 8;
        TextBuffer slow = before, fast = before;
        const auto change = [&](const auto& make) {
            if (i % 20 > 1) return make();
            fail_each_allocation(make, [&] { EXPECT_EQ(state_of(fast), state_of(before)); });
        };
        size_t slow_row = r1, slow_col = c1, fast_row = r1, fast_col = c1;
        string text = random_text(random, 12);
        LineStore rows = LineStore::from_text(text, LineStore::Returns::Keep);
        if (i % 3 == 0 && !rows.empty()) rows.edit(0) += "\n!";
        if (i % 2 == 0) {
            change([&] { fast.insert_text(fast_row, fast_col, text); });
        } else {
            text.clear();
            for (size_t row = 0; row < rows.size(); ++row) text.append(rows.view(row)).push_back('\n');
            change([&] { fast.insert_rows_as_text(fast_row, fast_col, rows); });
        }
        insert_bytes(slow, slow_row, slow_col, text);
        SCOPED_TRACE(std::to_string(r1) + "," + std::to_string(c1) + " of " + state_of(before) + " " + text);
        EXPECT_EQ(state_of(fast), state_of(slow));
        EXPECT_EQ(std::pair(fast_row, fast_col), std::pair(slow_row, slow_col));

        slow = fast = before;
        string removed, bytes;
        change([&] { removed = fast.delete_span(r1, c1, r2, c2); });
        EXPECT_EQ(before.text_in_span(r1, c1, r2, c2), removed);
        for (size_t n = 0; n < removed.size(); ++n) bytes += slow.delete_at(r1, std::min(c1, before.length(r1)));
        EXPECT_EQ(bytes, removed);
        EXPECT_EQ(state_of(fast), state_of(slow)) << "to " << r2 << "," << c2;

        TextBuffer taken = before, deleted = before;
        const LineStore moved = taken.take_range(r1, r2);
        string of_range, of_moved;
        for (const string& line : before.lines_in_range(r1, r2)) of_range += line + "\n";
        for (size_t row = 0; row < moved.size(); ++row) of_moved += string(moved.view(row)) + "\n";
        EXPECT_EQ(deleted.delete_range(r1, r2), of_range);
        EXPECT_EQ(of_moved, of_range);
        EXPECT_EQ(state_of(taken), state_of(deleted));
    }
}
