#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

TEST(Editing, TypedTextReachesTheFile) {
    Terminal s({.files = {{"t.txt", "world\n"}}});
    s.keys("Hello, " + END + "!" + RETURN + "second line" + RETURN);
    EXPECT_EQ(s.row(0), "Hello, world!");
    s.keys(Ctrl('z') + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "Hello, world!\nsecond line\n\n");
}

TEST(Editing, TypingClearsTheFunctionName) {
    Terminal s({.files = {{"t.txt", "a\n"}}});
    s.keys(KP2);
    EXPECT_TRUE(s.has(22, "[EOL]"));
    s.keys("b");
    EXPECT_FALSE(s.has(22, "[EOL]"));
}

TEST(Editing, OverstrikeReplacesAndInsertsAtTheEnd) {
    Terminal s({.files = {{"t.txt", "abc\n"}}});
    s.keys(Ctrl('a') + "xyzw");
    EXPECT_EQ(s.row(0), "xyzw");
    EXPECT_EQ(s.cursor(), at(0, 4));
}

TEST(Editing, TabFillsWithBlanks) {
    Terminal s({.files = {{"t.txt", "abcdefgh\n"}}, .change = false});
    s.keys("SET NOTAB" + RETURN + "CHANGE" + RETURN + times(5, RIGHT) + TAB);
    EXPECT_EQ(s.row(0), "abcde   fgh");
    EXPECT_EQ(s.cursor(), at(0, 8));
    s.keys(TAB);
    EXPECT_EQ(s.cursor(), at(0, 16));
    s.keys(command("SET TAB 5") + TAB);
    EXPECT_EQ(s.cursor(), at(0, 20));
}

TEST(Editing, CaseModeFoldsTypedText) {
    Terminal s({.files = {{"t.txt", "\n"}}});
    s.keys("aB" + command("SET CASE UPPER") + "aB" + command("SET CASE LOWER") + "aB");
    EXPECT_EQ(s.row(0), "aBABab");
}

TEST(Editing, WrapBreaksAfterABlankAndTheCursorFollows) {
    Terminal s({.files = {{"t.txt", "aaaa bbbb cccc dddd \n"}}, .change = false});
    s.keys("SET WRAP" + RETURN + "SET SCREEN 20" + RETURN + "CHANGE" + RETURN + END + "eeee");
    EXPECT_EQ(s.row(0), "aaaa bbbb cccc dddd");
    EXPECT_EQ(s.row(1), "eeee");
    EXPECT_EQ(s.cursor(), at(1, 4));
}

TEST(Editing, WrapUsesTheScreenWidth) {
    Terminal s({.cols = 29, .files = {{"t.txt", "\n"}}});
    s.keys(command("SET WRAP") + "The quick brown fox jumps over the lazy dog");
    s.keys(command("EXIT"));
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "The quick brown fox jumps \nover the lazy dog\n");
}

TEST(Editing, EachKeyIsAnUndoUnit) {
    Terminal s({.files = {{"t.txt", "one\ntwo\n"}}});
    s.keys("ab" + DOWN + Ctrl('u') + PF4 + GOLD + KP0);
    s.keys(command("UNDO"));  // the opened line; the cursor comes back as well
    s.keys(command("UNDO"));
    EXPECT_EQ(s.row(1), "o");
    s.keys(command("UNDO"));
    EXPECT_EQ(s.row(1), "two");
    s.keys(command("UNDO") + command("UNDO"));
    EXPECT_EQ(s.row(0), "one");
    s.keys(command("REDO"));
    EXPECT_EQ(s.row(0), "aone");
}

TEST(Editing, AppendAndReplaceKeysOpenNoUndoUnit) {
    Terminal s({.files = {{"t.txt", "one two\n"}}});
    s.keys("x" + HOME + KP_PERIOD + KP1 + KP9);
    EXPECT_EQ(s.row(0), "two");
    s.keys(command("UNDO"));  // takes the x back, and with it the append
    EXPECT_EQ(s.row(0), "one two");
}

TEST(Editing, ReadOnlyRefusesWhatGoesThroughCommands) {
    Terminal s({.files = {{"t.txt", "one two\n"}}, .args = {"-readonly", "t.txt"}});
    s.keys(PF4 + KP_MINUS + KP_COMMA + GOLD + KP2 + command("DELETE") + command("INSERT zzz"));
    EXPECT_EQ(s.row(0), "one two");
    s.keys("x");  // keys that act directly are not commands
    EXPECT_EQ(s.row(0), "xone two");
}

TEST(Editing, UndeleteOfALineStandsBeforeTheCursorLine) {
    Terminal s({.files = {{"t.txt", "one\ntwo\nthree\n"}}});
    s.keys(PF4 + PF4 + GOLD + "2" + PF4);
    EXPECT_EQ(s.all().substr(0, 14), "two\ntwo\nthree\n");
}

TEST(Editing, ALineOfAMegabyteIsEditedAsQuicklyAsAShortOne) {
    Terminal s({.files = {{"t.txt", std::string(1 << 20, 'm') + "\nshort\n"}}});
    s.keys(END);
    EXPECT_EQ(s.cursor().row, 0);
    EXPECT_TRUE(s.has(22, " col+1048498"));
    s.keys("end" + Ctrl('t') + BACKSPACE + GOLD + LEFT + HOME + "x");
    EXPECT_EQ(s.row(0), "x" + std::string(79, 'm'));
    s.keys(GOLD + KP4 + KP5 + times(3, LEFT));
    EXPECT_TRUE(s.running());
}
