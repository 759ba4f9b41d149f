#pragma once

#include <optional>
#include <string>
#include <termios.h>

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

// Of the terminal, as the latest session found it, at most 4096 each; kept when that ends. 0 before there was one.
struct ScreenSize {
    int rows = 0, cols = 0;
};
ScreenSize kpe_screen_size();

// Gives the terminal back to line mode for as long as it lives, for a command that reads lines. The screen is
// repainted afterwards. Without curses on the terminal it does nothing.
class LineModePause {
public:
    LineModePause();
    ~LineModePause();
    LineModePause(const LineModePause&) = delete;
    LineModePause& operator=(const LineModePause&) = delete;

private:
    bool paused_;
};

// Lets Ctrl/C arrive as an interrupt signal, not as a key, for as long as it lives: for what may take long.
// Nothing typed meanwhile is lost. Without curses on the terminal it does nothing.
class InterruptKey {
public:
    InterruptKey();
    ~InterruptKey();
    InterruptKey(const InterruptKey&) = delete;
    InterruptKey& operator=(const InterruptKey&) = delete;

private:
    termios before_{};
    bool changed_ = false;
};

// Whether a signal told of the terminal and kpe_follow_terminal was not called since.
bool kpe_terminal_signal_noted();
// Stops the process if the terminal's user asked for it, takes the terminal back after a stop, adopts its size.
// Whether the screen must be drawn again.
bool kpe_follow_terminal();
// The next picture is painted on a screen made blank.
void kpe_repaint();
