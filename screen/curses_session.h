#pragma once

#include <optional>
#include <string>

#include "system/terminal.h"

// This folder, screen/, is screen mode: it makes keys of what the terminal sends, says what each key does, and sends
// the terminal what has changed in the picture.

// Curses has the terminal for as long as the object lives: in raw mode, with keypad application mode and the
// modes of key_modes.h on, and with the user's character set (LC_CTYPE; outside a session it is that of the C locale).
// Sessions nest: an inner one uses the screen of the outer one. Meanwhile an interrupt signal only sets
// g_kpe_abort_requested.
class CursesSession {
public:
    // Says why there can be no session, as a message without its "?". Nothing if there can be one.
    static std::optional<std::string> obstacle();

    CursesSession();  // only after obstacle() has returned nothing
    ~CursesSession();
    CursesSession(const CursesSession&) = delete;
    CursesSession& operator=(const CursesSession&) = delete;
    // False if curses could not start nevertheless; the terminal is as it was.
    bool started() const;

private:
    bool outermost_;
};

// Whether a signal has come that tells of the terminal, and kpe_follow_terminal was not called since.
bool kpe_terminal_signal_noted();
// Acts on these signals: stops the process if the user has asked for that, takes the terminal back after a stop, and
// adopts a new size of the terminal. Returns whether the screen has to be drawn again.
bool kpe_follow_terminal();
// Has the screen cleared before the next picture is painted.
void kpe_repaint();
