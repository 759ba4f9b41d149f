#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

TEST(Resize, RedrawsAtOnceAndIsNoKey) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}});
    s.keys(GOLD + KP4 + KP0 + GOLD + "12");
    s.resize(12, 40);
    EXPECT_EQ(s.row(9), std::string(40, '-'));
    EXPECT_EQ(s.row(8), "line 60");
    EXPECT_TRUE(s.has(10, "EDIT[MAIN] ADVANCE"));
    s.resize(30, 100);
    EXPECT_EQ(s.row(27), std::string(100, '-'));
    EXPECT_TRUE(s.has(28, "[GOLD 12]"));
    s.keys(RIGHT);  // GOLD and its count were kept
    EXPECT_TRUE(s.has(-1, "            line 60"));
}

TEST(Resize, PromptsKeepWhatWasTyped) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}});
    s.keys(GOLD + PF3 + "line 5");
    s.resize(10, 30);
    EXPECT_EQ(s.row(9), "Search for: line 5");
    EXPECT_EQ(s.cursor(), at(9, 18));
    s.resize(24, 80);
    EXPECT_EQ(s.row(23), "Search for: line 5");
    s.keys("0" + RETURN);
    EXPECT_EQ(s.row(23), "Found: line 50");
}

TEST(Resize, HelpAndTinySizes) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}});
    s.keys(PF2);
    s.resize(40, 100);
    EXPECT_EQ(s.row(30), "Press any key to continue");
    s.keys(" ");
    EXPECT_EQ(s.row(36), "line 37");
    for (const auto& [rows, cols] : {std::pair{1, 1}, {2, 5}, {200, 3}, {3, 200}, {24, 80}}) {
        s.resize(rows, cols);
        s.keys(DOWN);
        EXPECT_TRUE(s.running());
    }
    EXPECT_EQ(s.row(21), std::string(80, '-'));
    EXPECT_EQ(s.cursor().col, 0);
}

TEST(Resize, SizeWhileALineIsReadIsTakenOverAfterwards) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}});
    s.keys(command("INSERT"));
    s.resize(12, 60);
    s.keys("x" + RETURN + "." + RETURN);
    s.wait_until([&] { return s.has(9, std::string(60, '-')); });
    EXPECT_EQ(s.row(0), "xline 1");
}

TEST(Resize, SizeChangedInLineModeCountsAtTheNextVisit) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}, .env = {{"LINES", "24"}, {"COLUMNS", "80"}}});
    s.keys(Ctrl('z'));
    s.resize(15, 50);
    s.keys("CHANGE" + RETURN);
    EXPECT_EQ(s.row(12), std::string(50, '-'));
}
