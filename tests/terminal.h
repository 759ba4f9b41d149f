#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pseudo_terminal.h"

namespace emulated {

// The string of a capability ("kcuu1") in the entry of a terminal type; none if either does not exist.
std::optional<std::string> terminfo_string(const std::string& type, const std::string& capability);

struct Position {
    int row, col;  // zero-based
    bool operator==(const Position&) const = default;
};

// The program on a pseudo terminal, drawn by a terminal emulator library: what a user would see. Rows and columns are
// zero-based; a row is its text in UTF-8 without the blanks at its end, "" when there is no such row.
class Terminal : public PseudoTerminal {
public:
    // At most this long for a state to arrive; never waited out otherwise.
    static constexpr std::chrono::milliseconds PATIENCE{20000};

    Terminal(const Command& command, bool utf8);
    ~Terminal();

    // --- What the user does; std::runtime_error when the program does not take it within PATIENCE ---
    void send(std::string_view bytes);  // until the terminal has taken it all
    // Until the program has taken all input and waits for more, or has ended, and all its output is drawn. A lone
    // ESC at the end of the input is handled a little later.
    void settle();
    void keys(std::string_view bytes);  // send, then settle
    void resize(int rows, int cols);    // then settle
    void hang_up();                     // closes the terminal; rows and cursor stay as they were
    void stop_reading();                // takes no more output from the program

    // Until holds() is true, which is asked again after each piece of output; false when it takes longer.
    bool wait_until(const std::function<bool()>& holds, std::chrono::milliseconds patience = PATIENCE);
    // Waits for the end: the exit status, or minus the signal's number. std::runtime_error after PATIENCE.
    int status();

    // --- What the user sees ---
    std::string row(int number) const;
    std::string all() const;              // every row, each with "\n", empty ones at the end left out
    std::string reversed(int row) const;  // "..RRR": R for each cell in reverse video, no "." at the end
    Position cursor() const;
    size_t bells() const;                       // bell bytes since the start
    size_t flashes() const;                     // visible bells, where the terminal type has them
    size_t sent(std::string_view bytes) const;  // how often these bytes were sent to the terminal
    const std::string& output() const;          // every byte sent to the terminal
    void forget_output();                       // sent() and output() start anew

private:
    struct Screen;  // the emulator and what it told
    void draw();    // reads what the program wrote; never waits
    std::unique_ptr<Screen> screen_;
    bool reading_ = true;
};

}  // namespace emulated
