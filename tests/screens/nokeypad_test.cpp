#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

namespace {

struct NoKeypad : testing::Test {
    Terminal s{{.files = {{"t.txt", "one two three four\nfoo bar baz\nlast\n"}}, .change = false}};
    NoKeypad() { s.keys("SET KEYPAD NOKEYPAD" + RETURN + "CHANGE" + RETURN); }
};

}  // namespace

TEST_F(NoKeypad, LinesAreCommandStrings) {
    EXPECT_EQ(s.row(0), "one two three four");
    EXPECT_EQ(s.row(23), "Nokeypad:");
    s.keys("2W" + RETURN);
    s.keys("DW" + RETURN);
    EXPECT_EQ(s.row(0), "one two  four");
    s.keys(RETURN + "F'bar baz'IX\033" + RETURN);  // Esc cannot be typed here
    EXPECT_EQ(s.row(1), "foo Xbar baz");
    s.keys("TOP3DC" + RETURN + "Q" + RETURN);
    EXPECT_EQ(s.row(0), " two  four");
    s.keys("EX" + RETURN + "EXIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt"), " two  four\nfoo Xbar baz\nlast\n");
}

TEST_F(NoKeypad, CtrlZLeavesOnlyAtTheEmptyPrompt) {
    s.keys("W" + Ctrl('z'));
    EXPECT_EQ(s.row(23), "Nokeypad: W");
    s.keys(BACKSPACE + Ctrl('z') + "QUIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
    EXPECT_EQ(s.files().get("t.txt.jou"), "SET KEYPAD NOKEYPAD\nCHANGE\nCHANGE\nQUIT\n");
}

TEST_F(NoKeypad, TheTerminalsOwnKeysAreNoText) {
    s.keys("W" + UP + KP_MINUS + "\033[3;3~\033[1;3C");
    EXPECT_EQ(s.row(23), "Nokeypad: W");
    s.keys(Ctrl('u'));
    s.keys(Ctrl('z') + "QUIT" + RETURN);
    EXPECT_EQ(s.status(), 0);
}
