#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"

using namespace screens;

TEST(Terminals, WhatGoesOnOtherwiseThanAKeyIsNotPartOfIt) {
    // Escape u, and Escape u Return, are keys of this terminal; Escape with NUL begins none of any.
    Terminal s({.type = "hp2392", .files = {{"t.txt", numbered_lines(30)}}});
    s.send("a\033ux" + std::string("\033\0", 2) + "b" + Ctrl('z') + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_TRUE(s.files().get("t.txt").starts_with("aline 1\n"));
    EXPECT_NE(s.files().get("t.txt").find("\nlxbine 22\n"), std::string::npos);
}

TEST(Terminals, TheKeypadIsReadWhereEscapeOIsAKey) {
    Terminal s({.type = "vi200", .files = {{"t.txt", "alpha beta\n"}}});
    s.send(KP1 + "x" + GOLD + KP4 + "y" + Ctrl('z') + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "alpha xbetay\n");
}

TEST(Terminals, OldTypesGetWhatTheyCanShow) {
    const auto shown = [](const std::string& type) {
        Terminal s({.type = type, .files = {{"t.txt", "alpha\n"}}});
        s.keys(KP_PERIOD + KP3);
        return s.reversed(0);
    };
    EXPECT_EQ(shown("masscomp1"), "R");  // only standout, and its end
    EXPECT_EQ(shown("djgpp"), "");       // the attribute would stay there
    Terminal s({.type = "hz1500", .files = {{"t.txt", "a~b\n"}}});
    EXPECT_EQ(s.sent("a`b"), 1U);  // a tilde begins its commands
}

TEST(Terminals, LineModeBeginsOnARowOfItsOwn) {
    Terminal s({.type = "linux", .files = {{"t.txt", "alpha\n"}}});  // no other screen comes back
    s.keys(KP0);
    EXPECT_EQ(s.row(23), "LINE");
    s.keys(Ctrl('z'));
    EXPECT_EQ(s.row(23), "*");
}

TEST(Terminals, ARepeatedPromptShowsWhatTheFirstAnswerDid) {
    Terminal s({.files = {{"t.txt", "alpha\nbeta\n"}}});
    for (const std::string answer : {"DELETE 2", "INCLUDE nowhere", "INSERT\rnew\r."}) {
        s.keys(GOLD + "2" + KP7);
        s.keys(answer + RETURN);
        EXPECT_EQ(s.row(23), "Command:");
        EXPECT_EQ(s.row(1), "[EOB]");
        s.keys(RETURN);
    }
    EXPECT_EQ(s.row(0), "newalpha");
}

TEST(Terminals, CtrlZWhileLinesAreReadDoesNotStopTheScreen) {
    Terminal s({.files = {{"t.txt", "one\n"}}});
    s.keys(command("DEFINE MACRO M"));
    s.keys(Ctrl('z'));  // there is no shell here that could continue a stopped program
    s.keys("TOP" + RETURN + RETURN + "y");
    EXPECT_EQ(s.row(0), "yone");
}

#ifndef __SANITIZE_ADDRESS__
TEST(Terminals, AScreenThatThereIsNoMemoryForLeavesLineModeUsable) {
    Terminal s({.rows = 1000,
                .cols = 4000,
                .files = {{"t.txt", "one\n"}},
                .args = {"-c", "ulimit -v 25000; exec \"$KPE\" t.txt"},
                .env = {{"KPE", KPE_PROGRAM}},
                .change = false,
                .program = "/bin/sh"});
    s.keys("CHANGE" + RETURN);
    EXPECT_TRUE(s.has(-1, "?Not enough memory for the screen"));
    s.keys("INSERT x" + RETURN + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "xone\n");
}
#endif
