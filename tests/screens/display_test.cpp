#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

namespace {

const std::string HINT = "  PF1=GOLD PF3=FNDNXT GOLD+PF3=FIND Ctrl/Z=CMD";

}  // namespace

TEST(Display, RowsBelowTheTextAreSeparatorStatusAndMessage) {
    Terminal s({.files = {{"t.txt", "one\ntwo\n"}}});
    EXPECT_EQ(s.row(0), "one");
    EXPECT_EQ(s.row(1), "two");
    EXPECT_EQ(s.row(2), "[EOB]");
    EXPECT_EQ(s.row(3), "");
    EXPECT_EQ(s.row(21), std::string(80, '-'));
    EXPECT_EQ(s.row(22), " EDIT[MAIN] ADVANCE" + HINT);
    EXPECT_EQ(s.row(23), "");
    EXPECT_EQ(s.cursor(), at(0, 0));
}

TEST(Display, StatusLineTellsModesInTheirOrder) {
    Terminal s({.cols = 120, .files = {{"t.txt", "one\ntwo\n"}}});
    s.keys("x" + Ctrl('d') + Ctrl('a') + KP_PERIOD);
    EXPECT_EQ(s.row(22), " EDIT[MAIN] BACKUP OVR SELECT *  [SELECT]" + HINT);
    s.keys(command("FIND =OTHER"));
    EXPECT_EQ(s.row(22), " EDIT[OTHER] BACKUP OVR  [COMMAND]" + HINT);
}

TEST(Display, DebugKeysReplaceTheHint) {
    Terminal s({.files = {{"t.txt", "one\n"}}, .args = {"-d", "t.txt"}});
    EXPECT_EQ(s.row(22), " EDIT[MAIN] ADVANCE  KEY: (none)");
    s.keys(KP_COMMA);
    EXPECT_EQ(s.row(22), " EDIT[MAIN] ADVANCE *  [DEL C]  KEY: KP,  (code 523 / 0x20B)");
    s.keys("a");
    EXPECT_EQ(s.row(22), " EDIT[MAIN] ADVANCE *  KEY: 'a'  (code 97 / 0x61)");
    s.keys(Ctrl('b'));
    EXPECT_TRUE(s.has(22, "KEY: ^B  (code 2 / 0x2)"));
    s.keys(RETURN);
    EXPECT_TRUE(s.has(22, "KEY: RETURN  (code 13 / 0xD)"));
}

TEST(Display, SelectRangeIsInReverseVideoInBothDirections) {
    Terminal s({.files = {{"t.txt", "alpha\nbeta\ngamma\n"}}});
    s.keys(RIGHT + RIGHT + KP_PERIOD + DOWN + DOWN);
    EXPECT_EQ(s.reversed(0), "..RRR");
    EXPECT_EQ(s.reversed(1), "RRRR");
    EXPECT_EQ(s.reversed(2), "RR");
    s.keys(UP + UP + LEFT + LEFT);  // now the mark is the later end
    EXPECT_EQ(s.reversed(0), "RR");
    EXPECT_EQ(s.reversed(1), "");
}

TEST(Display, ViewScrollsNoFurtherThanNeeded) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}});
    s.keys(times(20, DOWN));
    EXPECT_EQ(s.row(0), "line 1");
    s.keys(DOWN);
    EXPECT_EQ(s.row(0), "line 2");
    EXPECT_EQ(s.cursor(), at(20, 0));
    s.keys(times(20, UP));
    EXPECT_EQ(s.row(0), "line 2");
    s.keys(UP);
    EXPECT_EQ(s.row(0), "line 1");
    s.keys(GOLD + KP4);
    EXPECT_EQ(s.row(20), "line 60");
    EXPECT_EQ(s.row(0), "line 40");
}

TEST(Display, CursorMarginsScrollEarlier) {
    Terminal s({.files = {{"t.txt", numbered_lines(60)}}, .change = false});
    s.keys("SET CURSOR 5 10" + RETURN + "CHANGE" + RETURN + times(10, DOWN));
    EXPECT_EQ(s.cursor(), at(9, 0));
    EXPECT_EQ(s.row(0), "line 2");
    s.keys(times(4, UP));
    EXPECT_EQ(s.row(0), "line 2");
    s.keys(times(3, UP));
    EXPECT_EQ(s.cursor(), at(3, 0));
    EXPECT_EQ(s.row(0), "line 1");
    s.keys(command("SET CURSOR 10 5") + times(12, DOWN));  // as 5 10
    EXPECT_EQ(s.cursor(), at(9, 0));
    s.keys(command("SET CURSOR 50 0") + times(20, DOWN));  // never out of sight
    EXPECT_EQ(s.cursor(), at(20, 0));
}

TEST(Display, LongLinesScrollSidewaysByBytes) {
    Terminal s({.files = {{"t.txt", std::string(70, 'a') + std::string(70, 'b') + "\nshort\n"}}});
    s.keys(times(78, RIGHT));
    EXPECT_EQ(s.cursor(), at(0, 78));
    s.keys(RIGHT);
    EXPECT_EQ(s.cursor(), at(0, 78));
    EXPECT_TRUE(s.has(22, " col+1  "));
    EXPECT_EQ(s.row(1), "hort");
    s.keys(END);
    EXPECT_TRUE(s.has(22, " col+62  "));
    s.keys(times(79, LEFT));
    EXPECT_EQ(s.cursor(), at(0, 4));
    EXPECT_TRUE(s.has(22, " col+57  "));
    s.keys(HOME);
    EXPECT_EQ(s.row(0), std::string(70, 'a') + std::string(10, 'b'));
}

TEST(Display, TruncateCutsInsteadOfScrolling) {
    Terminal s({.files = {{"t.txt", std::string(100, 'a') + "\n"}}, .change = false});
    s.keys("SET TRUNCATE" + RETURN + "CHANGE" + RETURN + Ctrl('e'));
    EXPECT_EQ(s.row(0), std::string(80, 'a'));
    EXPECT_EQ(s.cursor(), at(23, 0));  // no cell of the text: where the message ends
    s.keys(KP4);
    EXPECT_EQ(s.row(23), "Direction: ADVANCE");
    EXPECT_EQ(s.cursor(), at(23, 18));
}

TEST(Display, LineNumbersHaveARaggedGutter) {
    Terminal s({.files = {{"t.txt", numbered_lines(12)}}});
    s.keys(GOLD + "n");
    EXPECT_EQ(s.row(8), "9 line 9");
    EXPECT_EQ(s.row(9), "10 line 10");
    EXPECT_EQ(s.cursor(), at(0, 2));
    s.keys(times(9, DOWN));
    EXPECT_EQ(s.cursor(), at(9, 3));
    EXPECT_EQ(s.row(23), "Line numbers ON");
}

TEST(Display, SetLinesMakesTheTextAreaShorter) {
    Terminal s({.files = {{"t.txt", numbered_lines(12)}}, .change = false});
    s.keys("SET LINES 4" + RETURN + "CHANGE" + RETURN);
    EXPECT_EQ(s.row(3), "line 4");
    EXPECT_EQ(s.row(4), "");
    EXPECT_EQ(s.row(21), std::string(80, '-'));
    s.keys(times(4, DOWN));
    EXPECT_EQ(s.row(3), "line 5");
    s.keys(HOME + PAGE_DOWN);  // a page is still that of the terminal
    EXPECT_EQ(s.row(3), "line 12");
}

TEST(Display, CharactersTakeTheirCellsAndTheCursorStandsOnThem) {
    Terminal s({.files = {{"t.txt", "\u00fcn\u65e5\u672ce\u0301x\n"}}});
    EXPECT_EQ(s.row(0), "\u00fcn\u65e5\u672ce\u0301x");
    const int cells[] = {0, 0, 1, 2, 2, 2, 4, 4, 4, 6, 6, 6, 7, 8};  // by byte
    for (const int cell : cells) {
        EXPECT_EQ(s.cursor(), at(0, cell));
        s.keys(RIGHT);
    }
}

TEST(Display, AHalfSelectedCharacterIsShownWhole) {
    Terminal s({.files = {{"t.txt", "\u65e5\u672cx\n"}}});
    s.keys(RIGHT + KP_PERIOD + RIGHT);
    EXPECT_EQ(s.row(0), "\u65e5\u672cx");
    EXPECT_EQ(s.reversed(0), "R");  // the first cell tells for both
}

TEST(Display, CutsLeaveNoBrokenCharacter) {
    std::string kanji;
    for (int i = 0; i < 40; ++i) kanji += "\u65e5";
    Terminal s({.cols = 20, .files = {{"t.txt", kanji + "\n"}}});
    EXPECT_EQ(s.row(0), kanji.substr(0, 18));  // 20 bytes hold six characters and a part
    for (int i = 0; i < 40; ++i) {
        s.keys(RIGHT);
        EXPECT_EQ(s.row(0).find("\ufffd"), std::string::npos);
    }
    EXPECT_EQ(s.row(0), kanji.substr(0, 18));  // from byte 22 on: the character that begins at 24
    EXPECT_EQ(s.cursor(), at(0, 10));
}

TEST(Display, ControlBytesAndBytesOutsideTheCharacterSetAreShownSafely) {
    const std::string nasty("a\x01\033[31m\0\x7f\xff\xc3(\xc2\x9bz\r", 16);
    Terminal s({.files = {{"t.txt", "\n" + nasty + "\x08\n"}}});
    s.keys(DOWN);
    EXPECT_EQ(s.row(1), "a^A^[[31m^@^?\ufffd\ufffd(\ufffdz^M^H");
    EXPECT_EQ(s.sent("\033[31m"), 0U);
    s.keys(RIGHT + RIGHT + RIGHT);
    EXPECT_EQ(s.cursor(), at(1, 5));
    s.keys(END);
    EXPECT_EQ(s.cursor(), at(1, 22));
}

// Whoever made the text, the name or the command file: the terminal is not theirs to command.
TEST(Display, NothingThatACommandShowsReachesTheTerminalRaw) {
    const std::string evil = "\033[3m\007\xc2\x9b";
    const std::string macros = "DEFINE MACRO INC AS INCLUDE /none" + evil + "\nDEFINE MACRO OUT AS WRITE /none/" +
                               evil + "\nDEFINE MACRO BUF AS FIND =B" + evil + "\nDEFINE MACRO DO AS @none" + evil +
                               "\nDEFINE MACRO SEEK AS FIND 'none" + evil + "'\nDEFINE MACRO WRONG AS " + evil + "\n";
    Terminal s({.files = {{"t" + evil, "a " + evil + "\nb\n"}, {"KPE.INI", macros}},
                .args = {"t" + evil},
                .env = {{"KPE_INI", "KPE.INI"}}});
    s.forget_output();
    for (const char* command :
         {"TYPE WHOLE", "FIND a", "INC", "OUT", "DO", "SEEK", "WRONG", "SHOW KEY", "SHOW BUFFERS", "SHOW FILES", "HELP",
          "SHOW MACROS", "S/b/c/ WHOLE", "/SAVE", "NEXT", "COPY 1 TO =C", "BUF"})
        s.keys(GOLD + KP7 + command + RETURN);
    EXPECT_EQ(s.sent("\033[3m"), 0U);
    EXPECT_EQ(s.sent("\xc2\x9b"), 0U);
    EXPECT_TRUE(s.has(22, "EDIT[B^[[3M^G")) << "the macros did not run";
}

TEST(Display, InTheCLocaleBytesOverAsciiAreCellsOfTheirOwn) {
    Terminal s({.files = {{"t.txt", "\n\x9b\xe9z\n"}}, .env = {{"LC_ALL", "C"}}});
    s.keys(DOWN + RIGHT);
    EXPECT_EQ(s.cursor(), at(1, 2));  // 8-bit controls are spelled ~[ and so on
    s.keys(RIGHT);
    EXPECT_EQ(s.cursor(), at(1, 3));  // the terminal's own character
    EXPECT_EQ(s.sent("\x9b"), 0U);
    EXPECT_EQ(s.sent("\xe9z"), 1U);
}

TEST(Display, TabsReachToTheNextEighthColumnOfTheScreen) {
    Terminal s({.files = {{"t.txt", "a\tb\n\tc\n" + times(20, "\t") + "x\n"}}});
    EXPECT_EQ(s.row(0), "a       b");
    s.keys(RIGHT + RIGHT);
    EXPECT_EQ(s.cursor(), at(0, 8));
    s.keys(DOWN + DOWN + END);  // 21 bytes, but more cells than the screen has: it scrolls until the cursor shows
    EXPECT_EQ(s.cursor().row, 2);
    EXPECT_TRUE(s.has(22, " col+"));
    EXPECT_TRUE(s.has(2, "x"));
}

TEST(Display, OnlyChangesAreSent) {
    Terminal s({.files = {{"t.txt", numbered_lines(100)}}});
    s.keys(DOWN + "a" + BACKSPACE);
    s.forget_output();
    s.keys(DOWN);
    EXPECT_LT(s.output().size(), 100U);
    s.forget_output();
    s.keys("b");
    EXPECT_LT(s.output().size(), 120U);
}

TEST(Display, RefreshKeysRepaintEverything) {
    Terminal s({.files = {{"t.txt", numbered_lines(100)}}});
    for (const char key : {'l', 'r', 'w'}) {
        s.forget_output();
        s.keys(Ctrl(key));
        EXPECT_TRUE(s.has(22, "[refresh screen]"));
        EXPECT_EQ(s.sent("line 7"), 1U);
    }
}

TEST(Display, WhatGoesToStandardErrorIsPaintedOver) {
    Terminal s({.files = {{"t.txt", numbered_lines(30)}}});
    const std::string before = s.row(0);
    s.forget_output();
    s.keys(command("INCLUDE nowhere/at/all") + HOME);
    EXPECT_EQ(s.row(0), before);
    EXPECT_EQ(s.row(5), "line 6");
}

TEST(Display, TinyScreensStillShowALine) {
    for (const auto& [rows, cols] : {std::pair{1, 1}, {1, 20}, {2, 20}, {3, 20}, {4, 3}}) {
        Terminal s({.rows = rows, .cols = cols, .files = {{"t.txt", "abc\ndef\n"}}});
        s.keys("xyz" + RETURN + GOLD + KP5 + PF2 + " " + GOLD + PF3 + "e" + RETURN + DOWN);
        EXPECT_TRUE(s.running()) << rows << " x " << cols;
        s.keys(Ctrl('z') + "EXIT" + RETURN);
        EXPECT_EQ(s.status(), 0);
        EXPECT_EQ(s.files().get("t.txt"), "xyz\nabc\ndef\n");
    }
}

TEST(Display, HugeScreensWork) {
    Terminal s({.rows = 500, .cols = 500, .files = {{"t.txt", numbered_lines(600)}}});
    EXPECT_EQ(s.row(496), "line 497");
    s.keys(PAGE_DOWN + "x");
    EXPECT_EQ(s.row(496), "xline 498");
}
