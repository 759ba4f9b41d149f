#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

// Sessions on the plain keypad and the control keys: each key's effect, and its name on the status line.

TEST(Keypad, EntitiesMoveInTheCurrentDirection) {
    Terminal s({.files = {{"t.txt", "foo, bar baz\nnext line\n" + numbered_lines(40)}}});
    s.keys(KP1);
    EXPECT_EQ(s.cursor(), at(0, 5));
    EXPECT_TRUE(s.has(22, "[WORD]"));
    s.keys(KP3);
    EXPECT_EQ(s.cursor(), at(0, 6));
    s.keys(KP2);
    EXPECT_EQ(s.cursor(), at(0, 12));
    s.keys(KP0);
    EXPECT_EQ(s.cursor(), at(1, 0));
    EXPECT_EQ(s.row(23), "LINE");
    s.keys(KP8);
    EXPECT_EQ(s.cursor(), at(17, 0));
    s.keys(KP5);
    EXPECT_EQ(s.row(23), "Direction: BACKUP");
    s.keys(KP8 + KP1);
    EXPECT_EQ(s.cursor(), at(0, 9));
    s.keys(KP3 + KP0);
    EXPECT_EQ(s.cursor(), at(0, 0));
    s.keys(KP2);  // the end of the line, whatever the direction
    EXPECT_EQ(s.cursor(), at(0, 12));
    s.keys(KP7);  // and always down
    EXPECT_EQ(s.row(20), "line 20");
    s.keys(KP4);
    EXPECT_EQ(s.row(23), "Direction: ADVANCE");
}

TEST(Keypad, DeletesAndUndeletes) {
    Terminal s({.files = {{"t.txt", "alpha beta\ngamma\ndelta\n"}}});
    s.keys(KP_MINUS);
    EXPECT_EQ(s.row(0), " beta");
    s.keys(PF4);
    EXPECT_EQ(s.row(0), "gamma");
    s.keys(KP_COMMA + RIGHT + DELETE);
    EXPECT_EQ(s.row(0), "ama");
    s.keys(GOLD + KP_COMMA + GOLD + KP_MINUS + GOLD + PF4);
    EXPECT_EQ(s.row(0), "amalpha beta");
}

TEST(Keypad, SelectCutAppendPasteReplace) {
    Terminal s({.files = {{"t.txt", "one two three\nfour\n"}}});
    s.keys(KP_PERIOD + KP1 + KP6);
    EXPECT_EQ(s.row(0), "two three");
    s.keys(KP_PERIOD + KP_PERIOD);
    EXPECT_EQ(s.row(23), "Select range is already active");
    EXPECT_EQ(s.bells(), 1U);
    s.keys(KP1 + KP9);
    EXPECT_EQ(s.row(0), "three");
    s.keys(END + " " + INSERT);
    EXPECT_EQ(s.row(0), "three one two");
    s.keys(HOME + KP_PERIOD + END + GOLD + KP9);
    EXPECT_EQ(s.row(0), "one two");
    s.keys(KP6);
    EXPECT_EQ(s.row(23), "No select range active");
    EXPECT_EQ(s.bells(), 2U);
}

TEST(Keypad, EnterKeysSplitTheLine) {
    Terminal s({.files = {{"t.txt", "abcd\n"}}});
    s.keys(RIGHT + KP_ENTER);
    EXPECT_TRUE(s.has(22, "[newline]"));
    s.keys(RIGHT + RETURN);
    EXPECT_TRUE(s.has(22, "[split line (Return)]"));
    EXPECT_EQ(s.all().substr(0, 9), "a\nb\ncd\n[E");
    EXPECT_EQ(s.cursor(), at(2, 0));
}

TEST(Keypad, ArrowAndEditingKeys) {
    Terminal s({.files = {{"t.txt", "longer line\nab\n" + numbered_lines(50)}}});
    s.keys(END + DOWN);
    EXPECT_EQ(s.cursor(), at(1, 2));
    EXPECT_TRUE(s.has(22, "[cursor down]"));
    s.keys(RIGHT);
    EXPECT_EQ(s.cursor(), at(2, 0));
    s.keys(LEFT);
    EXPECT_EQ(s.cursor(), at(1, 2));
    s.keys(HOME + UP);
    EXPECT_EQ(s.cursor(), at(0, 0));
    s.keys(PAGE_DOWN);
    EXPECT_EQ(s.row(20), "line 20");
    s.keys(PAGE_UP);
    EXPECT_EQ(s.cursor(), at(0, 0));
    EXPECT_TRUE(s.has(22, "[PAGE back]"));
}

TEST(Keypad, FindAgainKeysStepPastTheMatch) {
    Terminal s({.files = {{"t.txt", "abab\nab\n"}}});
    s.keys(PF3);
    EXPECT_EQ(s.row(23), "No search string");
    s.keys(GOLD + PF3 + "ab" + RETURN);
    EXPECT_EQ(s.cursor(), at(0, 0));
    EXPECT_EQ(s.row(23), "Found: ab");
    s.keys(PF3);
    EXPECT_EQ(s.cursor(), at(0, 2));
    s.keys(Ctrl('f'));
    EXPECT_EQ(s.cursor(), at(1, 0));
    s.keys(PF3);
    EXPECT_EQ(s.cursor(), at(1, 0));
    EXPECT_EQ(s.row(23), "String was not found");
}

TEST(Keypad, ControlKeys) {
    Terminal s({.files = {{"t.txt", "alpha beta\nGamma\n"}}});
    s.keys(Ctrl('e'));
    EXPECT_EQ(s.cursor(), at(0, 10));
    s.keys(Ctrl('h') + BACKSPACE);
    EXPECT_EQ(s.row(0), "alpha be");
    s.keys(Ctrl('j'));
    EXPECT_EQ(s.row(0), "alpha");
    EXPECT_EQ(s.row(23), "Deleted word");
    s.keys(LEFT + Ctrl('u'));
    EXPECT_EQ(s.cursor(), at(0, 0));
    s.keys(Ctrl('b') + GOLD + KP6);  // Ctrl/U left its text for PASTE
    EXPECT_EQ(s.row(0), "alpha");
    s.keys(DOWN + HOME + Ctrl('t') + Ctrl('t'));
    EXPECT_EQ(s.row(1), "gAmma");
    s.keys(Ctrl('d'));
    EXPECT_EQ(s.row(23), "Direction: BACKUP");
    s.keys(Ctrl('a'));
    EXPECT_EQ(s.row(23), "Overstrike");
    s.keys(Ctrl('a'));
    EXPECT_EQ(s.row(23), "Insert");
}

TEST(Keypad, CtrlCEndsTheSelectRange) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(KP_PERIOD + RIGHT + Ctrl('c'));
    EXPECT_EQ(s.row(23), "Abort");
    EXPECT_EQ(s.reversed(0), "");
    EXPECT_EQ(s.flashes(), 1U);
    EXPECT_EQ(s.bells(), 0U);
    s.keys("x");
    EXPECT_EQ(s.row(0), "axlpha");
}

TEST(Keypad, PcKeypadHasItsOwnSequences) {
    Terminal s({.files = {{"t.txt", "alpha beta\ntwo\n"}}, .change = false});
    s.keys("SET KEYPAD PC" + RETURN + "CHANGE" + RETURN + KP_PLUS);
    EXPECT_TRUE(s.has(22, "[DEL W]"));
    s.keys(KP_MINUS);
    EXPECT_TRUE(s.has(22, "[DEL L]"));
    s.keys(KP_STAR);
    EXPECT_TRUE(s.has(22, "[FNDNXT]"));
    s.keys(KP_SLASH);
    EXPECT_TRUE(s.has(0, "screen help"));
    s.keys(" " + Ctrl('z') + "SET KEYPAD KPE" + RETURN + "CHANGE" + RETURN + KP_PLUS);
    EXPECT_TRUE(s.has(22, "[DEL C]"));
    s.keys(KP_MINUS);
    EXPECT_TRUE(s.has(22, "[DEL W]"));
}

TEST(Keypad, UnknownKeysDoNothing) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(KP1 + HOME + "\033[15~\033[3;3~\033[3;5~\033[3;6~\033[1;5C" + Ctrl('x') + "\xc3\xa9" + Ctrl('g') +
           Ctrl('\\'));
    EXPECT_EQ(s.row(0), "alpha");
    EXPECT_EQ(s.cursor(), at(0, 0));
    EXPECT_TRUE(s.has(22, "[beginning of line]"));
}

TEST(Keypad, JournalTellsOfTheVisit) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys("x" + Ctrl('z') + "QUIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt.jou"), "CHANGE\nCHANGE\nQUIT\n");
}

TEST(Keypad, KeypadModeIsSwitchedOnAndOff) {
    Terminal s({.type = "linux", .files = {{"t.txt", "alpha\n"}}});  // an entry without such strings of its own
    EXPECT_GE(s.sent("\033="), 1U);
    s.forget_output();
    s.keys(Ctrl('z'));
    EXPECT_GE(s.sent("\033>"), 1U);
}
