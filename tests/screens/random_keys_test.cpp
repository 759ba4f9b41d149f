#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "screens/terminal.h"
#include "screens/texts.h"

using namespace screens;

namespace {

// What was painted piece by piece is what is painted when the program has to begin anew.
void expect_true_picture(Terminal& s) {
    if (!s.has(-1, " EDIT[")) return;
    const auto picture = [&] {
        std::string rows = s.all();
        for (int row = 0; row < 40; ++row)  // what the second cell of a wide character keeps does not show
            if (s.row(row).find("\u65e5") == std::string::npos) rows += s.reversed(row) + "\n";
        return rows;
    };
    const std::string before = picture();
    const Position cursor = s.cursor();
    s.forget_output();
    s.signal(SIGCONT);
    s.wait_until([&] { return s.sent("\033[H\033[2J") + s.sent("\033[H\033[J") > 0 || !s.running(); });
    s.settle();
    EXPECT_EQ(picture(), before);
    EXPECT_EQ(s.cursor(), cursor);
}

// Sessions of random keys: no crash, no hang, and under the sanitizers no fault. Two seconds, or as many as
// KPE_RANDOM_SECONDS says; KPE_RANDOM_SEED repeats a session.
std::chrono::seconds duration() {
    const char* const seconds = std::getenv("KPE_RANDOM_SECONDS");
    return std::chrono::seconds(seconds ? std::strtol(seconds, nullptr, 10) : 2);
}

unsigned first_seed() {
    const char* const seed = std::getenv("KPE_RANDOM_SEED");
    return seed ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : std::random_device{}();
}

// clang-format off
const std::vector<std::string> KEYS = {
    GOLD, GOLD, GOLD, PF2, PF3, PF4, KP0, KP1, KP2, KP3, KP4, KP5, KP6, KP7, KP8, KP9, KP_MINUS, KP_COMMA, KP_PERIOD,
    KP_ENTER, KP_PLUS, KP_SLASH, KP_STAR, UP, DOWN, LEFT, RIGHT, HOME, END, PAGE_UP, PAGE_DOWN, INSERT, DELETE, RETURN,
    TAB, BACKSPACE, "a", "B", " ", "7", "n", ".", "foo ", "\xc3\xa9", "\xff", ESC + "x", "\033[3;5~", "\033[99~",
    Ctrl('a'), Ctrl('b'), Ctrl('c'), Ctrl('d'), Ctrl('e'), Ctrl('f'), Ctrl('g'), Ctrl('h'), Ctrl('j'), Ctrl('k'),
    Ctrl('l'), Ctrl('t'), Ctrl('u'), Ctrl('x'), Ctrl('z') + "CHANGE" + RETURN,
    GOLD + KP3 + "10" + RETURN, GOLD + KP3 + "0" + RETURN, GOLD + KP3 + "200" + RETURN, GOLD + "12" + KP1,
    GOLD + PF3 + "o" + RETURN, GOLD + PF3 + "[a-f]*" + KP5, Ctrl('k') + GOLD + "x" + "TOP" + RETURN,
};
// clang-format on

// clang-format off
const std::vector<std::string> COMMANDS = {
    "UNDO", "UNDO", "REDO", "SET WRAP", "SET NOWRAP", "SET SCREEN 12", "SET SCREEN 0", "SET TRUNCATE",
    "SET NOTRUNCATE", "SET CURSOR 3 5", "SET CURSOR 99 2", "SET CURSOR 0 0", "SET LINES 2", "SET LINES 0", "SET CASE UPPER",
    "SET CASE NONE", "SET KEYPAD PC", "SET KEYPAD KPE", "SET TAB 3", "FIND =OTHER", "FIND =MAIN", "FIND =PASTE",
    "COPY 1:3", "MOVE 1 TO 4", "CLEAR OTHER", "S/a/bb/ WHOLE", "DELETE 2:4", "FILL", "CHANGE", "1", "99999",
    "SET NUMBERS", "SET NONUMBERS", "TAB ADJUST 1:5", "INSERT \"x\"", "RESET", "SET ENTITY \"a \"", "WRITE", "INCLUDE no",
};
// clang-format on

std::string random_keys(std::mt19937& random) {
    std::string keys;
    for (int i = 0; i < 40; ++i) {
        if (random() % 12 == 0) {
            keys += command(COMMANDS[random() % COMMANDS.size()]);
        } else {
            keys += KEYS[random() % KEYS.size()];
        }
    }
    return keys;
}

std::string random_text(std::mt19937& random, const std::string& mark) {
    const std::vector<std::string> pieces = {"alpha ", "b",    "\t", "\u65e5", mark,  "\xff",
                                             "\033",   "foo.", "  ", "\n",     "\n\n"};
    std::string text;
    for (auto i = random() % 300; i > 0; --i) text += pieces[random() % pieces.size()];
    return text;
}

}  // namespace

TEST(RandomKeys, NeverBreakTheSession) {
    const auto end = std::chrono::steady_clock::now() + duration();
    for (unsigned seed = first_seed(); std::chrono::steady_clock::now() < end && !HasFailure(); ++seed) {
        SCOPED_TRACE("KPE_RANDOM_SEED=" + std::to_string(seed));
        std::mt19937 random(seed);
        const std::vector<std::string> types = {"xterm-256color", "linux", "screen"};
        // The emulator only knows UTF-8, and puts a combining mark of the last column into the next row.
        const bool utf8 = random() % 4 != 0, marks = random() % 2 != 0, shows_all = utf8 && !marks;
        Terminal s({.rows = 1 + static_cast<int>(random() % 30),
                    .cols = 2 + static_cast<int>(random() % 90),  // the emulator fails on wide characters in one column
                    .type = types[random() % types.size()],
                    .files = {{"t.txt", random_text(random, marks ? "\xcc\x81" : "c")}},
                    .env = {{"LC_ALL", utf8 ? "C.UTF-8" : "C"}}});
        for (int round = 0; round < 6 && s.running(); ++round) {
            s.keys(random_keys(random));
            if (shows_all && s.running()) expect_true_picture(s);
            if (s.running()) s.resize(1 + static_cast<int>(random() % 30), 2 + static_cast<int>(random() % 90));
        }
        if (s.running()) s.hang_up();
        const int status = s.status();
        EXPECT_TRUE(status == 0 || status == -SIGHUP) << status << "\n" << s.output();
    }
}
