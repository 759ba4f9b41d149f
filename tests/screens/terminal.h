#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "unit/scratch.h"

// The program on a real pty, drawn by a terminal emulator library: what a user would see.
// - Rows and columns are zero-based. A row is its text in UTF-8 without the blanks at its end, "" when there is no
//   such row. A failed expectation prints the screen of every Terminal alive, so no test needs to.
// - Nothing waits for a time: keys(), resize() and the constructor return when the program has taken all input and
//   sleeps in a read again (a bell's flash is over then), or has ended. One case needs more: a lone ESC at the end
//   of what was sent is handled a little later; wait_until() what it does. send() only sends.
// - In line mode: {.change = false}, then keys("TYPE WHOLE" + RETURN).
// - The environment is TERM, HOME (the directory), LC_ALL=C.UTF-8 and a PATH, changed by `.env`; the working directory
//   is a Scratch of its own, or `.directory` for a second session in the same one.
// - Raw bytes: `"\033[3;5~"`, or key_of("kf5") for what the terminal type's entry says (so do UP, HOME and the like).
namespace screens {

// The string of a capability ("kcuu1") in the entry of a terminal type; none if either does not exist.
std::optional<std::string> terminfo_string(const std::string& type, const std::string& capability);

using namespace std::chrono_literals;

// Each as the keypad in application mode sends it. Keys are strings: GOLD + "3" + KP_MINUS.
inline const std::string GOLD = "\033OP", PF1 = GOLD, PF2 = "\033OQ", PF3 = "\033OR", PF4 = "\033OS";
inline const std::string KP0 = "\033Op", KP1 = "\033Oq", KP2 = "\033Or", KP3 = "\033Os", KP4 = "\033Ot", KP5 = "\033Ou",
                         KP6 = "\033Ov", KP7 = "\033Ow", KP8 = "\033Ox", KP9 = "\033Oy";
inline const std::string KP_MINUS = "\033Om", KP_COMMA = "\033Ol", KP_PERIOD = "\033On", KP_ENTER = "\033OM";
inline const std::string KP_SLASH = "\033Oo", KP_STAR = "\033Oj", KP_PLUS = "\033Ok";  // only on a PC keypad
inline const std::string RETURN = "\r", TAB = "\t", ESC = "\033", BACKSPACE = "\177";

// Stands for what the terminal type's entry gives for a capability ("kcuu1"); a failure when it has none.
std::string key_of(std::string_view capability);
inline const std::string UP = key_of("kcuu1"), DOWN = key_of("kcud1"), LEFT = key_of("kcub1"), RIGHT = key_of("kcuf1"),
                         HOME = key_of("khome"), END = key_of("kend"), PAGE_UP = key_of("kpp"),
                         PAGE_DOWN = key_of("knp"), INSERT = key_of("kich1"), DELETE = key_of("kdch1");

// Ctrl('z'), Ctrl('Z'): the byte 26.
inline std::string Ctrl(char letter) { return std::string(1, static_cast<char>(letter & 0x1f)); }

// "line 1\nline 2\n" and so on.
inline std::string numbered_lines(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
}

inline std::string times(int count, const std::string& keys) {
    std::string all;
    for (int i = 0; i < count; ++i) all += keys;
    return all;
}

// The command prompt of screen mode, answered.
inline std::string command(const std::string& text) { return "\033OP\033Ow" + text + "\r"; }

struct Position {
    int row, col;  // zero-based
    bool operator==(const Position&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Position& position);
inline Position at(int row, int col) { return {row, col}; }

struct Setup {
    int rows = 24, cols = 80;
    std::string type = "xterm-256color";            // TERM
    std::map<std::string, std::string> files = {};  // written before the start: name, bytes
    std::vector<std::string> args = {"t.txt"};
    std::map<std::string, std::string> env = {};  // added to the environment, or in place of what is there
    bool change = true;                           // type CHANGE at the prompt
    const Scratch* directory = nullptr;           // none: one of its own
    std::string program = KPE_PROGRAM;            // looked up in PATH unless it holds a "/"
};

class Terminal {
public:
    // At most this long for a state to arrive, then the test fails; never waited out otherwise.
    static constexpr std::chrono::milliseconds PATIENCE = 20s;
    // What status() returns for a program that is still there.
    static constexpr int STILL_RUNNING = 1000;

    explicit Terminal(Setup setup = {});
    ~Terminal();  // kills the program if it still runs
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // --- What the user does ---
    void keys(std::string_view what);  // send, then settle
    void send(std::string_view what);  // until the terminal has taken it all
    void resize(int rows, int cols);   // then settle
    void signal(int number);           // to the program; no waiting
    void hang_up();                    // closes the terminal; rows and cursor stay as they were
    void stop_reading();               // takes no more output from the program

    // --- Waiting; false (and a failure of the test) when it takes longer than PATIENCE ---
    // Until the program has taken all input and waits for more, or has ended, and all its output is drawn.
    bool settle();
    // Until holds() is true; it is asked again after each piece of output. `patience` 0 or more.
    bool wait_until(const std::function<bool()>& holds, std::chrono::milliseconds patience = PATIENCE);
    // Waits for the end: the exit status, or minus the signal's number. STILL_RUNNING after PATIENCE.
    int status();
    bool running();

    // --- What the user sees ---
    std::string row(int number) const;
    std::string all() const;                         // every row, each with "\n", empty ones at the end left out
    bool has(int row, std::string_view text) const;  // row -1: anywhere
    std::string reversed(int row) const;             // "..RRR": R for each cell in reverse video, no "." at the end
    Position cursor() const;
    size_t bells() const;                       // bell bytes since the start
    size_t flashes() const;                     // visible bells, where the terminal type has them
    size_t sent(std::string_view bytes) const;  // how often these bytes were sent to the terminal
    const std::string& output() const;          // every byte sent to the terminal
    void forget_output();                       // sent() and output() start anew

    termios modes() const;  // of the terminal
    pid_t pid() const;
    const Scratch& files() const;

private:
    struct Screen;  // the emulator and what it told
    void start();
    void draw();  // reads what the program wrote; never waits
    bool wait_for_output(std::chrono::milliseconds most);
    bool waits_for_input() const;
    void reap(bool block = false);
    std::string as_sent(std::string_view what) const;

    Setup setup_;
    std::unique_ptr<Scratch> own_directory_;
    std::unique_ptr<Screen> screen_;
    int master_ = -1;
    int slave_ = -1;  // ours, to see whether the program has read everything
    pid_t pid_ = -1;
    bool ended_ = false, reading_ = true;
    int status_ = 0;
};

}  // namespace screens
