#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "system/terminal.h"

// The next line of standard input, without its "\n". A last line without a line end counts as a line. Output is flushed
// before kpe waits. Returns nothing at the end of input, after a read error, and when g_kpe_abort_requested is set
// while it waits, which a signal that ends the process does too. Other interruptions do not stop it.
std::optional<std::string> kpe_read_line();
// Says where kpe_read_line reads from, for as long as the object lives: from standard input, or from nowhere. Nowhere
// is always at its end.
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
// Says that the bytes which wait now were typed while the terminal was raw. In them a carriage return ends a line. The
// terminal did not show them, so kpe_read_line shows them when it reads them. Call it once the terminal has its usual
// mode again.
void kpe_expect_type_ahead();
// Ends that state, as the terminal becomes raw again. Returns how many bytes wait that were typed in its usual mode.
size_t kpe_end_type_ahead();

// As long as the object lives, Ctrl/Z typed on a terminal ends the line at once instead of suspending the program.
// Without a terminal it does nothing.
class CtrlZAsInput {
public:
    CtrlZAsInput();
    ~CtrlZAsInput();
    CtrlZAsInput(const CtrlZAsInput&) = delete;
    CtrlZAsInput& operator=(const CtrlZAsInput&) = delete;

private:
    TerminalModes modes_;
};
