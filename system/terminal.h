#pragma once

#include <atomic>
#include <string>
#include <termios.h>

// The terminal of standard input and output: whether the screen has it, and how it is given back. All that this needs
// is kept where a signal handler can read it.

// Whether curses has the terminal.
extern std::atomic<bool> g_curses_active;

// Called by the owner of the screen when it takes the terminal, before curses changes its modes. leave is the function
// that gives the terminal back in the usual way. leaving holds the bytes that are sent instead in an emergency.
void kpe_terminal_taken(void (*leave)());
void kpe_set_leaving_bytes(const std::string& leaving);
// Called by the owner of the screen when it has given the terminal back.
void kpe_terminal_given_back();

// Ends curses if it is active, and writes the sequence that leaves keypad application mode. It may be called again.
void kpe_safe_endwin();

// Changes the terminal's modes for as long as the object lives. Without a terminal it does nothing. Such objects may
// nest, and may be made while the screen is shown. A signal handler puts back the modes from before the first change of
// all.
class TerminalModes {
public:
    explicit TerminalModes(void (*change)(termios& modes));
    ~TerminalModes();
    TerminalModes(const TerminalModes&) = delete;
    TerminalModes& operator=(const TerminalModes&) = delete;
    bool changed() const { return changed_; }
    void keep();  // the modes belong to somebody else by now: they are not put back

private:
    termios before_{};
    bool changed_ = false;
};

// --- A signal handler may call these, too ---

// Whether another job has the terminal. Then kpe must not set its modes.
bool kpe_in_background();
bool kpe_takes_output(int fd);  // whether a write to fd would not have to wait now
// Puts back the modes from before the first change. Does nothing if another job has the terminal.
void kpe_restore_modes();
// Puts back these modes, and sends the bytes that leave the screen.
void kpe_give_terminal_back();
// If nobody takes what is written to standard output or standard error, it is dropped from now on.
void kpe_divert_refused_output();
