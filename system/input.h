#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "system/terminal.h"

// The next line of standard input, without its "\n". A last line without a line end counts as a line. Output is flushed
// before kpe waits. Returns nothing at the end of input, after a read error, and when g_kpe_abort_requested is set
// while it waits, which a signal that ends the process does too. Other interruptions do not stop it.
std::optional<std::string> kpe_read_line();
// One byte, for a key that is waited for while the terminal gives keys one by one. Nothing where kpe_read_line returns
// nothing.
std::optional<char> kpe_read_byte();
// Whether a line or a byte would be read at once, be it the end of nowhere.
bool kpe_typed_ahead();
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

// Reads at most size bytes of the terminal's input while it is raw, like read(): those that were given back come first.
ssize_t kpe_read_raw(char* to, size_t size);
// Gives back bytes that were read so and not used: whoever reads next gets them before all others. They are at most as
// many as KPE_RAW_BLOCK; what is more is lost.
constexpr size_t KPE_RAW_BLOCK = size_t{64} << 10;
void kpe_give_back(std::string_view bytes);
// Whether bytes that were given back, or the rest of a paste, wait.
bool kpe_raw_waits();
// Whether the terminal itself has something to read now.
bool kpe_input_waits();
// Whether kpe_read_line would return at once with a line that the terminal has shown already, or with nothing.
bool kpe_line_waits();

// The text of a paste of several lines: it waits in front of all that the terminal sends, and whoever reads next gets
// it; kpe_read_raw gives it with carriage returns. Nothing of an earlier paste may be left.
void kpe_queue_pasted(std::string text);
// Takes the text up to the next line break. Returns nothing when there is none left.
struct PastedPiece {
    std::string text;
    bool ends_line;
};
std::optional<PastedPiece> kpe_next_pasted();

// How many bytes the answer has, at the start of bytes, that a terminal gives to a question about itself. 0: there is
// none, or not all of it.
size_t kpe_answer_size(std::string_view bytes);
// Says whether such an answer may still come. Then kpe_read_line drops answers at the start of a line.
void kpe_expect_answers(bool expected);

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
