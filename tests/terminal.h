#pragma once

#include <vterm.h>

#include <functional>
#include <map>
#include <optional>

#include "pseudo_terminal.h"

// The program on a terminal that an emulator draws: what a user would see. Rows and columns are zero-based; a row is
// its text in UTF-8 without the blanks at its end, "" when there is no such row.
class Terminal : public PseudoTerminal {
public:
    // At most this long for a state to arrive; never waited out otherwise.
    static constexpr std::chrono::milliseconds PATIENCE{20000};

    // What it answers when it is asked about itself; none: what the emulator does.
    Terminal(const Command& command, bool utf8, std::optional<std::string> answers = std::nullopt);
    ~Terminal() { vterm_free(emulator_); }

    // These throw std::runtime_error after PATIENCE.
    void send(std::string_view bytes);  // until the terminal has taken it all
    void settle();                      // until the program has ended, or waits for input with its output drawn
    void resize(int rows, int cols);    // then settles
    int status();                       // waits for the end: the exit status, or minus the signal's number

    void hang_up();                            // the screen stays as it was
    void stop_reading() { reading_ = false; }  // takes no more output from the program
    // Until holds() is true, which is asked again after each piece of output; false when it takes longer.
    bool wait_until(const std::function<bool()>& holds, std::chrono::milliseconds patience = PATIENCE);

    std::string row(int number) const;
    std::string all() const;                     // every row, each with "\n", empty ones at the end left out
    std::string reversed(int row) const;         // "..RRR": R for each cell in reverse video, no "." at the end
    std::string cursor() const;                  // "ROW,COLUMN"
    size_t bells() const { return bells_; }      // bell bytes since the start
    size_t flashes() const { return flashes_; }  // visible bells, where the terminal type has them
    // Every byte since the start, or since it was forgotten, and how often there were these.
    std::string_view output() const { return std::string_view(output_).substr(forgotten_); }
    size_t sent(std::string_view bytes) const;
    void forget_output() { forgotten_ = output_.size(); }
    // The names of those modes for keys that are on, as "keypad paste", in the order of the alphabet.
    std::string key_modes() const;

private:
    void note_modes(const std::string& piece);
    void draw();  // reads what the program wrote; never waits
    static int on_property(VTermProp prop, VTermValue* value, void* self);
    VTermPos size() const;

    std::optional<std::string> answers_;
    VTerm* emulator_;
    VTermScreen* screen_;
    std::string output_, replies_;  // from the program, and to it
    size_t forgotten_ = 0, bells_ = 0, flashes_ = 0;
    std::map<std::string, bool> key_modes_;
    std::string last_output_;  // as much as may be the beginning of a sequence that changes one of them
    bool flashing_ = false, reading_ = true;
};
