#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <string>
#include <thread>

#include "screens/sleeping.h"
#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

namespace {

// Where a session may be when its terminal goes away: the keys that lead there.
const std::map<std::string, std::string> PLACES = {
    {"the text", "x"},
    {"GOLD with a count", "x" + GOLD + "3"},
    {"the search prompt", "x" + GOLD + PF3 + "abc"},
    {"the command prompt, answered by half", "x" + GOLD + KP7 + "EXIT"},
    {"the help page", "x" + PF2},
    {"the key to define", "x" + Ctrl('k')},
    {"the definition", "x" + Ctrl('k') + "q"},
    {"a repeated prompt", "x" + GOLD + "9" + PF3},
    {"a nested session", "x" + command("CHANGE") + "y"},
    {"the keypad-less session", "x" + command("SET KEYPAD NOKEYPAD") + command("CHANGE") + "W"},
    {"INSERT", "x" + command("INSERT") + "abc" + RETURN},
    {"DEFINE MACRO", "x" + command("DEFINE MACRO m")},
    {"line mode", "x" + Ctrl('z')},
    {"a search that finds the same for ever",
     "x" + Ctrl('z') + "1" + RETURN + "BACKUP" + RETURN + "SET SEARCH BEGIN" + RETURN + "FIND ?n" + RETURN},
    {"a replacement that repeats itself", "x" + Ctrl('z') + "S/$/\"\"//GLOBAL" + RETURN},
    {"a question", "x" + Ctrl('z') + "S/o/y/ WHOLE/QUERY" + RETURN},
};

bool is_rescued(const Terminal& s) {
    const auto names = s.files().names(".local/state/kpe/rescue");
    return names.size() == 1 && names.begin()->starts_with("t.txt-MAIN-");
}

}  // namespace

TEST(EndOfInput, AHangupEndsTheSessionAnywhereWithoutSaving) {
    for (const auto& [place, keys] : PLACES) {
        SCOPED_TRACE(place);
        Terminal s({.files = {{"t.txt", "one\n"}}});
        s.keys(keys);
        s.hang_up();
        EXPECT_EQ(s.status(), -SIGHUP);
        EXPECT_EQ(s.files().get("t.txt"), "one\n");
        EXPECT_TRUE(s.files().get("t.txt.jou").starts_with("CHANGE\n"));
        EXPECT_TRUE(is_rescued(s));
    }
}

// A session that is not told of a hangup.
const Setup DEAF{.files = {{"t.txt", "one\n"}},
                 .args = {"-c", "trap '' HUP; exec \"$KPE\" t.txt"},
                 .env = {{"KPE", KPE_PROGRAM}},
                 .program = "/bin/sh"};

TEST(EndOfInput, SoItDoesWhereNoSignalComes) {
    for (const auto& [place, keys] : PLACES) {
        SCOPED_TRACE(place);
        Terminal s(DEAF);
        s.keys(keys);
        s.hang_up();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(s.status(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
        EXPECT_EQ(s.files().get("t.txt"), "one\n");
        EXPECT_TRUE(is_rescued(s));
    }
}

TEST(EndOfInput, SignalsRestoreTheTerminalFirst) {
    for (const int number : {SIGTERM, SIGHUP, SIGQUIT}) {
        SCOPED_TRACE(number);
        Terminal s({.type = "linux", .files = {{"t.txt", "one\n"}}});
        s.keys("x" + GOLD + PF3 + "abc");
        s.forget_output();
        s.signal(number);
        EXPECT_EQ(s.status(), -number);
        EXPECT_GE(s.sent("\033>"), 1U);
        EXPECT_EQ(s.files().get("t.txt"), "one\n");
    }
}

TEST(EndOfInput, ASignalEndsALongRepeat) {
    Terminal s({.files = {{"t.txt", "one\n"}}});
    s.send(GOLD + "2147483647" + KP0);
    std::this_thread::sleep_for(200ms);
    s.signal(SIGTERM);
    EXPECT_EQ(s.status(), -SIGTERM);
}

TEST(EndOfInput, AHangupEndsALongRepeatWhereNoSignalComes) {
    Terminal s(DEAF);
    s.send(GOLD + "2147483647" + KP0);
    std::this_thread::sleep_for(200ms);
    s.hang_up();
    EXPECT_EQ(s.status(), 0);
}

TEST(EndOfInput, WaitingCostsNoTime) {
    Terminal s({.files = {{"t.txt", "one\n"}}});
    s.keys("x");
    const auto used = [&] {
        std::ifstream stat("/proc/" + std::to_string(s.pid()) + "/schedstat");
        long long nanoseconds = 0;
        stat >> nanoseconds;
        return nanoseconds;
    };
    const long long before = used();
    std::this_thread::sleep_for(400ms);
    EXPECT_LT(used() - before, 20'000'000);
}

TEST(EndOfInput, StoppedAndContinuedTheScreenComesBack) {
    Terminal s({.files = {{"t.txt", numbered_lines(30)}}});
    s.keys("x");
    s.forget_output();
    s.signal(SIGTSTP);
    s.wait_until([&] { return state_of(s.pid()) == 'T'; });
    EXPECT_GE(s.sent("\033>"), 1U);
    s.signal(SIGCONT);
    s.wait_until([&] { return s.sent("line 7") > 0; });
    s.keys("y");
    EXPECT_EQ(s.row(0), "xyline 1");
}
