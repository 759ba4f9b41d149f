#pragma once

#include <cstddef>
#include <functional>
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

// The next key, normalised; an interrupt counts as Ctrl/C. Calls draw before it waits (so not while keys are
// typed faster than they are handled), and again, with anew, whenever the size of the terminal changed or its
// picture was lost meanwhile. ERR when there will be no more keys: end of input, a hangup, or a signal that
// ends the process.
using KpeDraw = std::function<void(bool anew)>;
int kpe_read_key(bool pc_keypad, const KpeDraw& draw);
// How many keys were read so far, and how many of them were Ctrl/C.
size_t kpe_keys_read();
size_t kpe_cancels_read();
// Whether the terminal has hung up: no key will come any more, not even the Ctrl/C that ends what lasts.
bool kpe_terminal_gone();
// The next refresh repaints the whole screen.
void kpe_repaint();
