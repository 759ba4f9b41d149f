#pragma once

#include <optional>
#include <string>

#include "system/terminal.h"

// Curses on the terminal for as long as it lives, in raw mode, with keypad application mode on and with the
// user's character set (LC_CTYPE; outside it is that of the C locale). Sessions nest: an inner one uses the
// screen of the outer one. An interrupt signal only sets g_kpe_abort_requested meanwhile.
class CursesSession {
public:
    // Why there can be no session, as a message without its "?"; nothing when there can.
    static std::optional<std::string> obstacle();

    CursesSession();  // after obstacle() found none
    ~CursesSession();
    CursesSession(const CursesSession&) = delete;
    CursesSession& operator=(const CursesSession&) = delete;
    // False when curses could not start in spite of all; the terminal is as it was.
    bool started() const;

private:
    bool outermost_;
};

// Whether a signal told of the terminal and kpe_follow_terminal was not called since.
bool kpe_terminal_signal_noted();
// Stops the process if the terminal's user asked for it, takes the terminal back after a stop, adopts its size.
// Whether the screen must be drawn again.
bool kpe_follow_terminal();
// The next picture is painted on a screen made blank.
void kpe_repaint();
