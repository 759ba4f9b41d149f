#include <gtest/gtest.h>

#include <string>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

TEST(Help, PageWaitsForAKeyAndDiscardsIt) {
    Terminal s({.rows = 40, .cols = 100, .files = {{"t.txt", "alpha\n"}}});
    s.keys(PF2);
    EXPECT_TRUE(s.row(0).starts_with("V1.11-0  "));
    EXPECT_TRUE(s.row(0).ends_with(" - screen help"));
    EXPECT_EQ(s.row(1), "");
    EXPECT_EQ(s.row(2), "GOLD = PF1 or F1 (Esc O P). Not Num Lock - map Num Lock->PF1 in the terminal if desired.");
    EXPECT_EQ(s.row(28), "Keypad 7 PAGE  8 SECTION (16 lines)");
    EXPECT_EQ(s.row(30), "Press any key to continue");
    EXPECT_EQ(s.row(31), "");
    s.keys(Ctrl('z'));
    EXPECT_EQ(s.row(0), "alpha");
    EXPECT_TRUE(s.has(38, "[HELP]"));
    s.keys(PF2 + GOLD + KP4);  // nor is GOLD taken
    EXPECT_EQ(s.row(39), "Direction: ADVANCE");
}

TEST(Help, ShortScreensShowItsTop) {
    Terminal s({.files = {{"t.txt", "alpha\n"}}});
    s.keys(PF2);
    EXPECT_EQ(s.row(23), "GOLD+digits N     repeat next GOLD cmd N times");
    s.keys(" ");
    EXPECT_EQ(s.row(0), "alpha");
}
