#pragma once

#include <atomic>
#include <string>
#include <termios.h>

// The terminal of standard input and output: who has it, and how it is given back. All that is needed for that lies
// here, where a signal handler can read it.

// Whether curses has the terminal.
extern std::atomic<bool> g_curses_active;

// For the owner of the screen, when it takes the terminal, and before curses changes its modes. leave gives it back in
// an orderly way; leaving holds the bytes that do so in an emergency, as far as bytes can.
void kpe_terminal_taken(void (*leave)());
void kpe_set_leaving_bytes(const std::string& leaving);
// The screen's owner has given it back.
void kpe_terminal_given_back();

// Ends curses if it is active, and writes the sequence that leaves keypad application mode. Any number of times.
void kpe_safe_endwin();

// Other modes of the terminal for as long as it lives; without a terminal it does nothing. They may nest, and may be
// made while the screen is shown: what a signal handler puts back are the modes from before the first of all.
class TerminalModes {
public:
    explicit TerminalModes(void (*change)(termios& modes));
    ~TerminalModes();
    TerminalModes(const TerminalModes&) = delete;
    TerminalModes& operator=(const TerminalModes&) = delete;
    bool changed() const { return changed_; }
    void keep();  // the modes are somebody else's by now: they stay as they are

private:
    termios before_{};
    bool changed_ = false;
};

// --- For a signal handler as well ---

// Whether the terminal is another job's by now: its modes are not ours to set then.
bool kpe_in_background();
bool kpe_takes_output(int fd);  // now, without waiting
// The modes from before the first change; nothing in the background.
void kpe_restore_modes();
// These, and the bytes that leave the screen.
void kpe_give_terminal_back();
// Standard output and error that nobody takes go to nowhere from now on.
void kpe_divert_refused_output();
