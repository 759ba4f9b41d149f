#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

TEST(Prompts, StandOnTheBottomRowAndCanBeCorrected) {
    Terminal s({.files = {{"t.txt", "alpha\nbeta\nalphabet\n"}}});
    s.keys(GOLD + PF3);
    EXPECT_EQ(s.row(23), "Search for:");
    EXPECT_EQ(s.cursor(), at(23, 12));
    s.keys("betx" + BACKSPACE + ESC + "\033[3;3~" + Ctrl('c') + Ctrl('z') + UP);
    EXPECT_EQ(s.row(23), "Search for: bet");
    EXPECT_EQ(s.cursor(), at(23, 15));
    s.keys(Ctrl('u'));
    EXPECT_EQ(s.row(23), "Search for:");
    s.keys(BACKSPACE + Ctrl('h') + "ph" + KP_ENTER);
    EXPECT_EQ(s.cursor(), at(0, 2));
    EXPECT_EQ(s.row(23), "Found: ph");
}

TEST(Prompts, EmptyAnswersChangeNothing) {
    Terminal s({.files = {{"t.txt", "alpha\nbeta\n"}}});
    s.keys(GOLD + PF3 + "beta" + RETURN + HOME + UP + GOLD + PF3 + RETURN);
    EXPECT_EQ(s.cursor(), at(0, 0));
    s.keys(PF3);
    EXPECT_EQ(s.cursor(), at(1, 0));
    s.keys(GOLD + KP3 + RETURN + GOLD + KP7 + RETURN);
    EXPECT_FALSE(s.has(22, "*"));
}

TEST(Prompts, KeypadDirectionKeysEndTheSearchPrompt) {
    Terminal s({.files = {{"t.txt", "x\na\nx\n"}}});
    s.keys(DOWN + GOLD + PF3 + "x" + KP5);
    EXPECT_EQ(s.cursor(), at(0, 0));
    EXPECT_TRUE(s.has(22, " BACKUP"));
    s.keys(GOLD + PF3 + "x" + KP4);
    EXPECT_EQ(s.cursor(), at(2, 0));  // past the match on which the cursor stood
    EXPECT_TRUE(s.has(22, " ADVANCE"));
}

TEST(Prompts, LongAnswersStayVisibleAtTheirEnd) {
    Terminal s({.cols = 20, .files = {{"t.txt", "0123456789abcdefghijklmnop\n"}}});
    s.keys(GOLD + PF3 + "0123456789abcdefghij");
    EXPECT_EQ(s.row(23), "123456789abcdefghij");
    EXPECT_EQ(s.cursor(), at(23, 19));
    s.keys(times(15, BACKSPACE));
    EXPECT_EQ(s.row(23), "Search for: 01234");
    s.keys(RETURN);
    EXPECT_EQ(s.row(23), "Found: 01234");
}

TEST(Prompts, CommandsRunSilently) {
    Terminal s({.files = {{"t.txt", "one\ntwo\n"}}});
    s.keys(command("TYPE WHOLE") + command("nonsense") + command("2"));
    EXPECT_EQ(s.cursor(), at(1, 3));
    EXPECT_EQ(s.row(0), "one");
    s.keys(command("S/two/2/"));
    EXPECT_EQ(s.row(1), "2");
    s.keys(command("EXIT"));
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "one\n2\n");
}

TEST(Prompts, ChangeNestsAndTheInnerOneReturnsToTheOuter) {
    Terminal s({.files = {{"t.txt", "one\n"}}});
    s.keys(command("CHANGE") + "a" + Ctrl('z') + "b");
    EXPECT_EQ(s.row(0), "abone");
    EXPECT_TRUE(s.has(22, "EDIT[MAIN]"));
    s.keys(GOLD + KP4 + KP_COMMA);
    EXPECT_EQ(s.row(23), "BOTTOM");
    s.keys(Ctrl('z'));
    EXPECT_FALSE(s.has(22, "EDIT[MAIN]") && s.cursor().row < 22);
    s.keys("TYPE" + RETURN + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt.jou"), "");
    EXPECT_EQ(s.files().get("t.txt"), "abone\n");
}

TEST(Prompts, CommandsThatReadLinesLeaveTheScreenMeanwhile) {
    Terminal s({.files = {{"t.txt", "one\n"}}});
    s.keys(command("INSERT"));
    s.keys("first" + RETURN + "second" + RETURN);
    s.keys(Ctrl('z'));
    s.wait_until([&] { return s.has(22, "EDIT[MAIN]") && s.has(23, "Inserted"); });
    EXPECT_EQ(s.row(0), "first");
    EXPECT_EQ(s.row(1), "secondone");
    s.keys("x" + command("DEFINE MACRO M") + "INSERT \"mm\"" + RETURN + RETURN);
    s.keys(command("M"));
    EXPECT_EQ(s.row(1), "secondxmmone");
}

TEST(Prompts, SpecialInsertTakesCodesAndText) {
    Terminal s({.files = {{"t.txt", "\n"}}});
    const auto special = [&](const std::string& answer) { s.keys(GOLD + KP3 + answer + RETURN); };
    special("65");
    special("10");
    special("7");
    special("233");
    special("256");
    special("6x");
    special("99999999999999999999");
    EXPECT_EQ(s.row(0), "A^J^G\ufffd2566x99999999999999999999");
    s.keys(command("EXIT"));
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"),
              "A\n\007\xe9"
              "2566x99999999999999999999\n");
}

TEST(Prompts, KeysAreDefinedInteractively) {
    Terminal s({.files = {{"t.txt", numbered_lines(9)}}});
    s.keys(Ctrl('k'));
    EXPECT_EQ(s.row(23), "Press key to define");
    s.keys("%");
    EXPECT_EQ(s.row(23), "Definition:");
    s.keys("5" + RETURN);
    EXPECT_EQ(s.row(23), "Key defined: %");
    s.keys("%");
    EXPECT_EQ(s.cursor(), at(4, 6));
    s.keys(Ctrl('k') + GOLD);
    EXPECT_EQ(s.row(23), "GOLD \u2014 press key");
    s.keys("t");
    s.keys("TOP" + RETURN);
    EXPECT_EQ(s.row(23), "Key defined: GOLD+T");
    s.keys(GOLD + "T");
    EXPECT_EQ(s.cursor(), at(0, 0));
    for (const std::string& cancel : {Ctrl('c'), "%" + RETURN, GOLD + Ctrl('c')}) {
        s.keys(Ctrl('k') + cancel);
        EXPECT_EQ(s.row(23), "Define key cancelled");
    }
    s.keys(Ctrl('k') + ESC);
    s.wait_until([&] { return s.has(23, "Define key cancelled"); });
    s.keys(Ctrl('k') + KP7);
    EXPECT_EQ(s.row(23), "Invalid key for DEFINE KEY");
}

TEST(Prompts, ALongSearchIsInterrupted) {
    Terminal s({.files = {{"t.txt", times(200000, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\n")}},
                .change = false});
    // A wildcard match that the word rule refuses, found again and again.
    s.keys("SET SEARCH WORD" + RETURN + "END" + RETURN + "CHANGE" + RETURN + Ctrl('d'));
    s.send(GOLD + PF3 + "a*a" + RETURN);
    std::this_thread::sleep_for(300ms);
    s.send(Ctrl('c'));
    s.wait_until([&] { return s.has(23, "Abort") || s.has(23, "String was not found"); });
    EXPECT_EQ(s.row(23), "Abort");
    s.keys(HOME + "x");
    EXPECT_TRUE(s.running());
}
