#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "system/terminal.h"

// What editor/ asks of the screen. screen/ defines these functions, so that editor/ includes none of its headers. Each
// comment says what happens when no screen is shown. The two ways onto the screen are members of Editor, screen_mode
// and nokeypad_mode.

// The size of the terminal as the last session on the screen found it; at most 4096 rows and columns. It stays after
// that session, and is 0 before the first one.
struct ScreenSize {
    int rows = 0, cols = 0;
};
ScreenSize kpe_screen_size();

// Gives the terminal back to line mode for as long as the object lives, for a command that reads lines. The screen is
// painted anew afterwards. When no screen is shown it does nothing.
class LineModePause {
public:
    LineModePause();
    ~LineModePause();
    LineModePause(const LineModePause&) = delete;
    LineModePause& operator=(const LineModePause&) = delete;

private:
    bool paused_;
};

// Lets Ctrl/C arrive as an interrupt signal and not as a key for as long as the object lives, so that it stops a long
// operation. Nothing that is typed meanwhile is lost. When no screen is shown it does nothing.
class InterruptKey {
public:
    InterruptKey();
    ~InterruptKey();
    InterruptKey(const InterruptKey&) = delete;
    InterruptKey& operator=(const InterruptKey&) = delete;

private:
    std::optional<TerminalModes> modes_;
};

// A key as people write it, such as "GOLD+PF4/F4" or "Alt/l", and what screen mode calls its function.
struct KeyFunction {
    std::string key;
    std::string_view function;
};
// Every key that has a function of its own, by itself and after GOLD, also when no screen is shown.
std::vector<KeyFunction> kpe_key_functions();
// Whether TERM names a terminal on which a line can be edited: one that moves its cursor, and clears the rest of a row
// as nearly all do. Its entry is looked up once for each value of TERM.
bool kpe_can_edit_lines();
// Whether that is known already.
bool kpe_knows_terminal();

// Rings the bell. When no screen is shown it does nothing.
void kpe_beep();
