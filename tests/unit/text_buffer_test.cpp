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

using Lines = std::vector<std::string>;
using Load = TextBuffer::Load;

Lines lines_of(const TextBuffer& buffer) { return buffer.lines_in_range(0, std::string::npos); }

TextBuffer with_lines(const Lines& lines) {
    TextBuffer buffer;
    buffer.append_lines(lines);
    buffer.clear_modified();
    return buffer;
}

// Text, flags and mark in one string that a failure can show.
std::string state_of(const TextBuffer& buffer) {
    std::string state;
    for (const std::string& line : lines_of(buffer)) state += line + "|";
    if (buffer.final_newline()) state += "\\n";
    if (buffer.modified()) state += " changed";
    if (buffer.has_mark())
        state += " mark " + std::to_string(buffer.mark_row()) + "," + std::to_string(buffer.mark_col());
    return state;
}

void rewrite_ends(TextBuffer& buffer) {
    RowRewriter rewriter = buffer.rewrite();
    rewriter.put(2, "new");
    rewriter.put(0, "new");
    rewriter.finish();
}

}  // namespace

TEST(TextBuffer, LoadsAndGivesBackEveryKindOfText) {
    const std::string nul("a\0b", 3), long_line(200000, 'x');
    const std::vector<std::tuple<std::string, Lines, bool, std::string>> rows = {
        {"", {""}, true, ""},
        {"\n", {""}, true, ""},
        {"x", {"x"}, false, "x"},
        {"a\n\nb", {"a", "", "b"}, false, "a\n\nb"},
        {"a\r\nb\r\n", {"a", "b"}, true, "a\nb\n"},
        {"a\r\r\n", {"a\r"}, true, "a\r\n"},
        {"a\r", {"a"}, false, "a"},
        {"\r", {""}, false, ""},
        {"\n\r", {"", ""}, false, "\n"},
        {nul + "\n" + nul, {nul, nul}, false, nul + "\n" + nul},
        {long_line + "\r\n" + long_line, {long_line, long_line}, false, long_line + "\n" + long_line},
    };
    const Scratch dir;
    for (const auto& [bytes, lines, final_newline, text] : rows) {
        TextBuffer loaded = with_lines({"old"});
        loaded.set_mark(0, 1);
        loaded.insert_char(0, 0, 'x');
        EXPECT_TRUE(loaded.load(dir.put("file", bytes)));
        EXPECT_EQ(loaded.load_state(), Load::Whole);
        EXPECT_TRUE(lines_of(loaded) == lines);
        EXPECT_EQ(loaded.final_newline(), final_newline);
        EXPECT_TRUE(loaded.text() == text);
        EXPECT_FALSE(loaded.modified() || loaded.has_mark());

        TextBuffer set;
        set.set_text(bytes);
        EXPECT_TRUE(lines_of(set) == lines);
        EXPECT_EQ(set.final_newline(), final_newline && !bytes.empty());  // set_text("") ends with no newline
        EXPECT_TRUE(set.modified());
    }
}

TEST(TextBuffer, TellsWhyAFileCouldNotBeRead) {
    const Scratch dir;
    dir.put("a/file", "x\n");
    const std::string around = dir.path("around");
    ASSERT_EQ(symlink("around", around.c_str()), 0);
    const std::vector<std::tuple<std::string, bool, Load>> rows = {
        {dir.path("missing"), false, Load::Missing},
        {dir.path("a/file/below"), false, Load::Missing},
        {around, false, Load::Broken},
        {dir.path("a"), true, Load::Whole},        // a directory is empty
        {"/proc/self/status", true, Load::Whole},  // says it has no bytes
        {"/proc/self/mem", true, Load::Broken},    // cannot be read at its start
    };
    for (const auto& [path, opened, state] : rows) {
        TextBuffer buffer = with_lines({"old"});
        EXPECT_EQ(buffer.load(path), opened) << path;
        EXPECT_EQ(buffer.load_state(), state) << path;
        EXPECT_EQ(buffer.filename(), path);
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
        {1, 2, [](Buffer b) { b.insert_char(1, 2, 'X'); }, "abcd|efXgh|ijkl|\\n changed mark 1,3"},
        {1, 2, [](Buffer b) { b.insert_char(1, 3, 'X'); }, "abcd|efgXh|ijkl|\\n changed mark 1,2"},
        {2, 4, [](Buffer b) { b.insert_char(4, 9, 'X'); }, "abcd|efgh|ijkl||X|\\n changed mark 2,4"},
        {2, 4, [](Buffer b) { b.split_line(2, 1); }, "abcd|efgh|i|jkl|\\n changed mark 3,3"},
        {2, 1, [&](Buffer b) { b.backspace(row, col); }, "abcdefgh|ijkl|\\n changed mark 1,1"},
        {1, 2, [&](Buffer b) { b.backspace(row, col = 9); }, "abcd|efgh|ijkl|\\n mark 1,2"},
        {1, 2, [](Buffer b) { b.delete_at(1, 2); }, "abcd|efh|ijkl|\\n changed mark 1,2"},
        {1, 2, [](Buffer b) { b.delete_at(0, 4); }, "abcdefgh|ijkl|\\n changed mark 0,6"},
        {1, 3, [](Buffer b) { b.delete_to_eol(1, 1); }, "abcd|e|ijkl|\\n changed mark 1,1"},
        {1, 4, [](Buffer b) { b.line(1).resize(2), b.delete_to_eol(1, 1); }, "abcd|e|ijkl|\\n changed mark 1,1"},
        {1, 3, [&](Buffer b) { b.delete_to_bol(1, col = 2); }, "abcd|gh|ijkl|\\n changed mark 1,1"},
        {1, 3, [](Buffer b) { b.delete_line(1); }, "abcd|ijkl|\\n changed mark 1,0"},
        {2, 3, [](Buffer b) { b.delete_line(2); }, "abcd|efgh|\\n changed mark 1,4"},
        {2, 3, [](Buffer b) { b.delete_range(0, 1); }, "ijkl|\\n changed mark 0,3"},
        {2, 3, [](Buffer b) { b.delete_range(0, 99); }, "|\\n changed mark 0,0"},
        {1, 2, [](Buffer b) { b.insert_lines(1, Lines(2, "x")); }, "abcd|x|x|efgh|ijkl|\\n changed mark 3,2"},
        {2, 2, [](Buffer b) { b.insert_lines(9, Lines{"x"}); }, "abcd|efgh|ijkl|x|\\n changed mark 2,2"},
        {1, 2, [](Buffer b) { b.replace_in_line(1, 2, 0, "x"); }, "abcd|efxgh|ijkl|\\n changed mark 1,2"},
        {2, 2, [&](Buffer b) { b.insert_text(row = 1, col = 2, "X\nY\nZ"); },
         "abcd|efX|Y|Zgh|ijkl|\\n changed mark 4,2"},
        {2, 2, [&](Buffer b) { b.insert_text(row = 4, col = 0, "X"); }, "abcd|efgh|ijkl||X|\\n changed mark 2,2"},
        {2, 2, [&](Buffer b) { b.insert_rows_as_text(row = 1, col = 2, b.lines()); },
         "abcd|efabcd|efgh|ijkl|gh|ijkl|\\n changed mark 5,2"},
        {2, 2, [&](Buffer b) { b.delete_word_backward(row = 2, col = 0, "f"); }, "abcd|efijkl|\\n changed mark 1,4"},
        {2, 2, [](Buffer b) { b.delete_span(0, 2, 2, 1); }, "abjkl|\\n changed mark 0,3"},
        {2, 2, [](Buffer b) { rewrite_ends(b); }, "new|efgh|new|\\n changed mark 2,2"},
        {1, 2, [](Buffer b) { b.replace_in_line(1, 1, 99, "fgh"); }, "abcd|efgh|ijkl|\\n mark 1,2"},
    };
    for (const Row& r : rows) {
        TextBuffer buffer = with_lines({"abcd", "efgh", "ijkl"});
        buffer.set_mark(r.mark_row, r.mark_col);
        const std::string before = state_of(buffer);
        fail_each_allocation([&] { r.edit(buffer); }, [&] { EXPECT_EQ(state_of(buffer), before) << r.after; });
        EXPECT_EQ(state_of(buffer), r.after) << "mark at " << r.mark_row << "," << r.mark_col;
    }
}

TEST(TextBuffer, WordsAreDeletedWithTheDelimitersBesideThem) {
    const std::vector<std::tuple<std::string, size_t, size_t, bool, const char*, const char*>> rows = {
        {"  foo bar", 0, 0, true, "  foo", " bar|0,0"},
        {"foo bar", 0, 1, true, "oo", "f bar|0,1"},
        {"foo  ", 0, 3, true, "  ", "foo|0,3"},
        {"foo\nbar", 0, 3, true, "", "foo|bar|0,3"},
        {"foo bar  x", 0, 9, false, "bar  ", "foo x|0,4"},
        {"foo", 0, 99, false, "foo", "|0,0"},
        {"foo bar\nx", 1, 0, false, "bar", "foo x|0,4"},
        {"foo", 5, 0, false, "", "foo|5,0"},
    };
    for (const auto& [text, row, col, forward, removed, after] : rows) {
        TextBuffer buffer;
        buffer.set_text(text);
        size_t r = row, c = col;
        EXPECT_EQ(forward ? buffer.delete_word_forward(r, c, " ") : buffer.delete_word_backward(r, c, " "), removed);
        std::string state;
        for (const std::string& line : lines_of(buffer)) state += line + "|";
        EXPECT_EQ(state + std::to_string(r) + "," + std::to_string(c), after) << text;
    }
}

namespace {

// The operations on whole texts, byte by byte as they are defined: slow, and clearly right.
void insert_bytes(TextBuffer& buffer, size_t& row, size_t& col, const std::string& text) {
    for (const char c : text) {
        if (c == '\n') {
            buffer.split_line(row, col);
            ++row;
            col = 0;
        } else {
            buffer.insert_char(row, col++, c);
        }
    }
}

std::string random_text(std::mt19937& random, size_t longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& c : text) c = "ab \n\r"[random() % 5];
    return text;
}

TextBuffer random_buffer(std::mt19937& random) {
    TextBuffer buffer;
    buffer.set_text(random_text(random, 60));
    if (random() % 4 != 0) buffer.set_mark(random() % 12, random() % 8);
    buffer.clear_modified();
    return buffer;
}

}  // namespace

TEST(TextBuffer, WholeTextsGoInAsTheirBytesWould) {
    std::mt19937 random(1);
    for (int i = 0; i < 6000; ++i) {
        const TextBuffer before = random_buffer(random);
        TextBuffer slow = before, fast = before;
        const size_t row = random() % 14, col = random() % 8;
        size_t slow_row = row, slow_col = col, fast_row = row, fast_col = col;
        std::string text = random_text(random, 12);
        if (i % 2 == 0) {
            fast.insert_text(fast_row, fast_col, text);
        } else {
            // As rows, of which some hold a line break.
            LineStore rows = LineStore::from_text(text, LineStore::Returns::Keep);
            if (i % 3 == 0 && !rows.empty()) rows.edit(0) += "\n!";
            text.clear();
            for (size_t r = 0; r < rows.size(); ++r) text.append(rows.view(r)).push_back('\n');
            fast.insert_rows_as_text(fast_row, fast_col, rows);
        }
        insert_bytes(slow, slow_row, slow_col, text);
        ASSERT_EQ(state_of(fast), state_of(slow)) << state_of(before) << " at " << row << "," << col << " " << text;
        ASSERT_EQ(std::pair(fast_row, fast_col), std::pair(slow_row, slow_col)) << state_of(before);
    }
}

// A span goes as its bytes would one after the other, and the three ways to take lines are one.
TEST(TextBuffer, SpansAndRangesAgreeWithTheirBytes) {
    std::mt19937 random(2);
    for (int i = 0; i < 6000; ++i) {
        const TextBuffer before = random_buffer(random);
        const size_t r1 = random() % 8, c1 = random() % 8, r2 = random() % 8, c2 = random() % 8;
        TextBuffer slow = before, fast = before;
        const std::string removed = fast.delete_span(r1, c1, r2, c2);
        EXPECT_EQ(before.text_in_span(r1, c1, r2, c2), removed);
        std::string bytes;
        for (size_t n = 0; n < removed.size(); ++n) bytes += slow.delete_at(r1, std::min(c1, before.length(r1)));
        ASSERT_EQ(bytes, removed);
        ASSERT_EQ(state_of(fast), state_of(slow)) << state_of(before) << r1 << "," << c1 << " " << r2 << "," << c2;

        TextBuffer taken = before, deleted = before;
        const Lines range = before.lines_in_range(r1, r2);
        const LineStore shared = before.share_range(r1, r2), moved = taken.take_range(r1, r2);
        const std::string text = deleted.delete_range(r1, r2);
        std::string joined;
        for (const std::string& line : range) joined += line + "\n";
        ASSERT_EQ(text, joined);
        ASSERT_EQ(state_of(taken), state_of(deleted));
        for (size_t row = 0; row < range.size(); ++row) {
            ASSERT_EQ(shared.view(row), range[row]);
            ASSERT_EQ(moved.view(row), range[row]);
        }
        ASSERT_EQ(std::tuple(shared.size(), moved.size()), std::tuple(range.size(), range.size()));
    }
}
