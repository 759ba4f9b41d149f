#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>

#include "screens/sleeping.h"
#include "screens/terminal.h"

using namespace screens;

TEST(EndOfInput, AHangupEndsALongRepeatWhereNoSignalComes) {
    Terminal s({.files = {{"t.txt", "one\n"}},
                .args = {"-c", "trap '' HUP; exec \"$KPE\" t.txt"},
                .env = {{"KPE", KPE_PROGRAM}},
                .program = "/bin/sh"});
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
    EXPECT_EQ(s.sent("\033[?1h"), 1U);  // else arrow keys would be typed
    s.keys("y");
    EXPECT_EQ(s.row(0), "xyline 1");
}
