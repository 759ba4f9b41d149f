#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "system/terminal.h"

// Standard input, line by line, without the "\n". Output is flushed before kpe waits. Nothing at the end of
// input (an unterminated last line counts as a line), on a read error, and when g_kpe_abort_requested gets
// set while waiting, also by a signal that ends the process; other interruptions go on reading.
std::optional<std::string> kpe_read_line();
// Where kpe_read_line reads from for as long as it lives: standard input, or nowhere, which is at its end.
class InputFrom {
public:
    enum Source { Standard, Nowhere };
    explicit InputFrom(Source source);
    ~InputFrom();
    InputFrom(const InputFrom&) = delete;
    InputFrom& operator=(const InputFrom&) = delete;

private:
    Source before_;
};
// What was typed up to now was typed while the terminal was raw: in it a carriage return ends a line, and
// nothing was shown, so kpe_read_line shows it when its turn comes. After the terminal has its usual mode again.
void kpe_expect_type_ahead();
// The number of bytes that were typed and not read yet, while they were typed in the terminal's usual mode.
size_t kpe_end_type_ahead();

// While it lives, Ctrl/Z typed on a terminal is a character that ends the line at once, instead of
// suspending the program. Without a terminal it does nothing.
class CtrlZAsInput {
public:
    CtrlZAsInput();
    ~CtrlZAsInput();
    CtrlZAsInput(const CtrlZAsInput&) = delete;
    CtrlZAsInput& operator=(const CtrlZAsInput&) = delete;

private:
    TerminalModes modes_;
};
