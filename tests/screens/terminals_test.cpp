#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/terminfo.h"
#include "screens/texts.h"

using namespace screens;

namespace {

const std::string TYPES[] = {"vt100",  "vt220", "xterm", "xterm-256color", "tmux-256color",
                             "screen", "linux", "rxvt",  "putty"};

}  // namespace

TEST(Terminals, TheKeypadWorksOnEachOfThem) {
    for (const std::string& type : TYPES) {
        SCOPED_TRACE(type);
        if (type != "putty" && !terminfo_string(type, "cup")) continue;  // putty's entry is often not installed
        Terminal s({.type = type, .files = {{"t.txt", "alpha beta\ngamma\n" + numbered_lines(30)}}});
        s.keys(PF1);
        EXPECT_EQ(s.row(23), "GOLD");
        s.keys(KP4 + PF1 + KP5 + KP1);
        EXPECT_EQ(s.cursor(), at(0, 6));
        s.keys(KP0 + KP2 + KP3);
        EXPECT_EQ(s.cursor(), at(2, 0));
        s.keys(PF1 + KP5 + PF4);
        EXPECT_EQ(s.row(0), "gamma");
        s.keys(PF1 + PF4 + KP5 + KP4 + KP6 + KP_PERIOD + KP7 + KP8 + KP9);
        EXPECT_TRUE(s.has(22, "[APPEND]"));
        s.keys(PF1 + KP5 + PF3);
        EXPECT_EQ(s.row(23), "No search string");
        s.keys(PF2);
        EXPECT_TRUE(s.has(0, "screen help"));
        s.keys(KP_ENTER + Ctrl('z') + "QUIT" + RETURN);
        EXPECT_EQ(s.status(), 0);
    }
}

TEST(Terminals, MissingEntriesOfWellKnownTerminalsAreReplaced) {
    for (const std::string type : {"xterm-kitty", "foot", "wezterm", "ghostty", "xterm-ghostty", "alacritty"}) {
        SCOPED_TRACE(type);
        Terminal s({.type = type, .files = {{"t.txt", "alpha\n"}}});
        s.keys("x");
        EXPECT_EQ(s.row(0), "xalpha");
        EXPECT_TRUE(s.has(22, "EDIT[MAIN]"));
    }
}

TEST(Terminals, UnknownOrIncapableTypesStayInLineMode) {
    const auto refused = [](const std::string& type, const std::string& message) {
        Terminal s({.files = {{"t.txt", "alpha\n"}}, .change = false});
        s.keys("SET TERMINAL \"" + type + "\"" + RETURN + "CHANGE" + RETURN + "INSERT more" + RETURN);
        EXPECT_TRUE(s.has(-1, message)) << type;
        s.keys("EXIT" + RETURN);
        EXPECT_EQ(s.status(), 0);
        EXPECT_EQ(s.files().get("t.txt"), "morealpha\n");
    };
    refused("nonesuch", "?Unknown terminal type: nonesuch");
    refused("dumb", "?Terminal type without full screen: dumb");
}

TEST(Terminals, TheTypeCanBeChangedBetweenSessions) {
    Terminal s({.type = "vt100", .files = {{"t.txt", "alpha\n"}}});
    for (const std::string type : {"xterm-256color", "nonesuch", "linux", "vt220"}) {
        s.keys(Ctrl('z') + "SET TERMINAL " + type + RETURN + "CHANGE" + RETURN);
        if (type == "nonesuch") s.keys("SET TERMINAL vt100" + RETURN + "CHANGE" + RETURN);
        s.keys("x");
    }
    EXPECT_EQ(s.row(0), "xxxxalpha");
}

TEST(Terminals, ExtendedKeysAreNeitherKeypadKeysNorText) {
    Terminal s({.files = {{"t.txt", "alpha beta\n" + numbered_lines(30)}}});
    // Every modifier with the editing and arrow keys: their curses codes reach far beyond those of the keypad.
    for (const char modifier : {'2', '3', '4', '5', '6', '7'}) {
        for (const std::string key : {"A", "B", "C", "D", "F", "H"}) s.keys(std::string("\033[1;") + modifier + key);
        for (const std::string key : {"2", "3", "5", "6"}) s.keys("\033[" + key + ";" + modifier + "~");
    }
    EXPECT_FALSE(s.has(22, "*"));
    EXPECT_EQ(s.row(0), "alpha beta");
    EXPECT_FALSE(s.has(22, "SELECT"));
}

TEST(Terminals, TypeAheadSurvivesTheWayInAndOut) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}, .change = false});
    s.keys("CHANGE" + RETURN + "a" + RETURN + "b");
    s.keys(Ctrl('z') + "3" + RETURN + "CHANGE" + RETURN + "c" + RETURN + "d" + Ctrl('z') + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), "a\nbalphac\nd\n");
}

TEST(Terminals, LineModeHasTheTerminalBackAsItWas) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(Ctrl('z') + "TYPX" + BACKSPACE + "E" + RETURN);  // edited by the terminal itself
    EXPECT_TRUE(s.has(-1, "1 alpha"));
}
