#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

TEST(Gold, FunctionsOfTheKeypad) {
    Terminal s({.files = {{"t.txt", "alpha beta\n" + numbered_lines(3)}}});
    s.keys(GOLD);
    EXPECT_EQ(s.row(23), "GOLD");
    s.keys(KP4);
    EXPECT_EQ(s.cursor(), at(3, 6));
    EXPECT_EQ(s.row(23), "BOTTOM");
    s.keys(GOLD + KP5);
    EXPECT_EQ(s.cursor(), at(0, 0));
    s.keys(GOLD + KP1);
    EXPECT_EQ(s.row(0), "Alpha beta");
    s.keys(GOLD + KP2);
    EXPECT_EQ(s.row(0), "A");
    s.keys(GOLD + KP6);
    EXPECT_EQ(s.row(0), "Alpha beta");
    s.keys(GOLD + KP0);
    EXPECT_EQ(s.row(0), "");
    EXPECT_EQ(s.cursor(), at(1, 0));
    s.keys(GOLD + KP3 + "300" + RETURN + GOLD + KP3 + "66" + RETURN);
    EXPECT_EQ(s.row(1), "300BAlpha beta");
    s.keys(KP5 + KP_PERIOD + GOLD + KP_PERIOD);
    EXPECT_EQ(s.row(23), "RESET");
    EXPECT_TRUE(s.has(22, "EDIT[MAIN] ADVANCE *"));
    s.keys(GOLD + PF2);
    EXPECT_EQ(s.row(23), "BOTTOM");
    s.keys(GOLD + UP);
    EXPECT_EQ(s.row(23), "TOP");
    s.keys(GOLD + DOWN);
    EXPECT_EQ(s.row(23), "BOTTOM");
}

TEST(Gold, ShiftsMoveTheCursorOnlyToTheRight) {
    Terminal s({.files = {{"t.txt", " abc\n"}}});
    s.keys(RIGHT + RIGHT + GOLD + LEFT);
    EXPECT_EQ(s.row(0), "abc");
    EXPECT_EQ(s.cursor(), at(0, 2));
    s.keys(GOLD + RIGHT);
    EXPECT_EQ(s.row(0), " abc");
    EXPECT_EQ(s.cursor(), at(0, 3));
    EXPECT_TRUE(s.has(22, "[Shift line right]"));
}

TEST(Gold, SubstituteReplacesTheMatchAndFindsTheNext) {
    Terminal s({.files = {{"t.txt", "new old old\nold\n"}}});
    s.keys(GOLD + KP_ENTER);
    EXPECT_EQ(s.row(23), "No select range active");
    s.keys(KP_PERIOD + RIGHT + RIGHT + RIGHT + KP6 + GOLD + PF3 + "old" + RETURN + GOLD + KP_ENTER);
    EXPECT_EQ(s.row(0), " new old");
    EXPECT_EQ(s.row(23), "Substituted");
    EXPECT_EQ(s.cursor(), at(0, 5));
    s.keys(GOLD + KP_ENTER + GOLD + KP_ENTER);
    EXPECT_EQ(s.row(0), " new new");
    EXPECT_EQ(s.row(1), "new");
    EXPECT_EQ(s.row(23), "String was not found");
    s.keys(GOLD + KP_ENTER);
    EXPECT_EQ(s.row(23), "No select range active");
}

TEST(Gold, CountsRepeat) {
    Terminal s({.files = {{"t.txt", numbered_lines(3)}}});
    s.keys(GOLD + "3");
    EXPECT_TRUE(s.has(22, "[GOLD 3]"));
    s.keys(RIGHT);
    EXPECT_EQ(s.row(0), "   line 1");
    s.keys(GOLD + "0" + RIGHT);
    EXPECT_EQ(s.row(0), "    line 1");
    s.keys(GOLD + "05");
    EXPECT_TRUE(s.has(22, "[GOLD 15]"));
    s.keys(RIGHT);
    EXPECT_EQ(s.cursor(), at(0, 19));
    s.keys(GOLD + "99999999999");
    EXPECT_TRUE(s.has(22, "[GOLD 2147483647]"));
    s.keys(LEFT);  // 19 blanks go, and then nothing happens any more
    EXPECT_EQ(s.row(0), "line 1");
    s.keys("1");
    EXPECT_TRUE(s.has(0, "1"));
}

TEST(Gold, WithoutRepeatADigitIsAnUndefinedKey) {
    Terminal s({.files = {{"t.txt", "alpha beta\n"}}, .change = false});
    s.keys("SET NOREPEAT" + RETURN + "CHANGE" + RETURN + GOLD + "3");
    EXPECT_EQ(s.row(23), "Undefined GOLD key: '3'  (code 51 / 0x33)");
    EXPECT_EQ(s.bells(), 1U);
    s.keys(KP_MINUS);
    EXPECT_EQ(s.row(0), " beta");
}

TEST(Gold, UndefinedKeysAreNamed) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(GOLD + "x");
    EXPECT_EQ(s.row(23), "Undefined GOLD key: 'x'  (code 120 / 0x78)");
    s.keys(GOLD + Ctrl('c'));
    EXPECT_EQ(s.row(23), "Undefined GOLD key: ^C  (code 3 / 0x3)");
    EXPECT_EQ(s.bells(), 2U);
    s.keys(GOLD + END);
    EXPECT_EQ(s.row(23), "Undefined GOLD key: End  (code 360 / 0x168)");
    s.keys(GOLD + key_of("kbs"));
    EXPECT_EQ(s.row(23), "Undefined GOLD key: Backspace  (code 263 / 0x107)");
    s.keys("y");
    EXPECT_EQ(s.row(0), "yalpha");
}

TEST(Gold, CtrlCEndsARepeat) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(GOLD + "2147483647");
    s.send(KP0);  // a line at a time, for ever
    std::this_thread::sleep_for(200ms);
    s.keys(Ctrl('c'));
    EXPECT_EQ(s.row(23), "Abort");
    s.keys("x" + GOLD + KP5);
    EXPECT_EQ(s.row(0), "");
    EXPECT_TRUE(s.running());
    s.keys(GOLD + "999" + PF3 + Ctrl('c'));  // a prompt ignores it, but is not asked again
    EXPECT_EQ(s.row(23), "Search for:");
    s.keys(RETURN);
    EXPECT_EQ(s.row(23), "Abort");
    s.keys("y");
    EXPECT_EQ(s.row(0), "y");
}

TEST(Gold, AnInterruptSignalIsCtrlC) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(KP_PERIOD + RIGHT);
    s.signal(SIGINT);
    s.wait_until([&] { return s.has(23, "Abort"); });
    EXPECT_EQ(s.reversed(0), "");
}

TEST(Gold, DefinedKeysWinPlainAndGold) {
    Terminal s({.files = {{"t.txt", numbered_lines(9)}}, .change = false});
    s.keys("DEFINE KEY X AS \"4\"" + RETURN + "DEFINE KEY GOLD PF4 AS \"INSERT 'z'\"" + RETURN + "CHANGE" + RETURN);
    s.keys("x");
    EXPECT_EQ(s.cursor(), at(3, 6));
    s.keys(GOLD + "5" + PF4);  // once, whatever the count
    EXPECT_EQ(s.row(3), "line 4'z'");
}

TEST(Gold, QuitLeavesTheFileAlone) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys("x" + GOLD + "q");
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "alpha\n");
    EXPECT_FALSE(s.has(0, "EDIT["));
}
