#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

// The letter of the process's state: S asleep, T stopped and so on; a blank when there is no such process.
char state_of(pid_t pid);

struct Command {
    std::vector<std::string> words;  // the program is looked up in PATH unless it holds a "/"
    std::vector<std::string> env;    // NAME=VALUE; none: the environment is inherited
    std::string directory = ".";
    int rows = 24, cols = 80;
};

// A program on a terminal of its own, and the end of it that a user holds. Nothing here waits for a time.
class PseudoTerminal {
public:
    // Throws std::runtime_error when there is no terminal to be had.
    explicit PseudoTerminal(const Command& command);
    ~PseudoTerminal();  // kills the program if it still runs
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    pid_t pid() const { return pid_; }
    // Returns how many of these bytes the terminal takes now.
    size_t write(std::string_view bytes);
    // Appends a piece of what the program has written by now; returns how many bytes, 0 when there are none.
    size_t read(std::string& to);
    // Whether there is output, or will be within this time at most.
    bool output_within(std::chrono::nanoseconds most) const;
    bool took_input() const;
    // Whether the program took all input and sleeps until there is more, and its output was read here.
    bool waits_for_input() const;

    void resize(int rows, int cols);
    void signal(int number);
    void hang_up();
    bool running();
    // Of a program that is not running(): the exit status, or minus the signal's number.
    int ended_with() const { return ended_with_; }
    // Whether the terminal is set as before the start of the program. True for one that was hung up.
    bool has_its_modes_back() const;

private:
    termios modes() const;

    int master_ = -1, slave_ = -1;  // the slave, to see whether the program has read everything
    pid_t pid_ = -1;
    bool ended_ = false;
    int ended_with_ = 0;
    termios first_modes_{};
};
