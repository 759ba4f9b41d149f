#pragma once

#include <csignal>
#include <ctime>
#include <poll.h>

// How a wait ended.
enum class Waited { Input, Signal, TimeUp };

// Describes a wait for standard input, and what may end it.
struct Wait {
    // The signals that end the wait, and a function that says whether a handler has noted one of them already. The
    // signals are let in only while it sleeps, so that none is missed between the question and the sleep.
    const sigset_t& signals;
    bool (*noted)();
    short events = POLLIN;            // of poll; 0: waits only for the terminal to go away
    const timespec* limit = nullptr;  // the longest time; null: no limit
    bool watches_input = true;        // false: waits for a signal only
};
Waited kpe_wait(const Wait& wait);
