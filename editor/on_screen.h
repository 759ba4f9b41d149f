#pragma once

#include <optional>

#include "system/terminal.h"

// What the operations on the text ask of a screen. All of it lies in screen/, but for the two ways onto the screen,
// Editor::screen_mode and Editor::nokeypad_mode. Without a screen each does what its comment says.

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
    std::optional<TerminalModes> modes_;
};

// The audible bell; nothing without a screen.
void kpe_beep();
