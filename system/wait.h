#pragma once

#include <csignal>
#include <ctime>
#include <poll.h>

enum class Waited { Input, Signal, TimeUp };

// What kpe waits for on standard input, and what may end the waiting.
struct Wait {
    // The signals that end it, and whether one of them was noted already. They are held back but while it sleeps, so
    // that none slips in between the question and the sleep.
    const sigset_t& signals;
    bool (*noted)();
    short events = POLLIN;            // 0: only that the terminal goes away
    const timespec* limit = nullptr;  // null: as long as it takes
    bool watches_input = true;        // false: for a signal alone
};
Waited kpe_wait(const Wait& wait);
