#include "screen/curses_session.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <curses.h>
#include <new>
#include <string_view>
#include <sys/ioctl.h>
#include <term.h>
#include <unistd.h>

#include "editor/on_screen.h"
#include "screen/key_modes.h"
#include "screen/key_reader.h"
#include "screen/n3_kpe_keymap.h"
#include "screen/shown_rows.h"
#include "system/input.h"
#include "system/interrupts.h"
#include "system/locale.h"
#include "system/report.h"
#include "system/signals.h"
#include "system/terminal.h"

namespace {

// Terminals that work like xterm, by the beginnings of their names: their own entries are often missing on
// the machine one logs into.
constexpr std::string_view LIKE_XTERM[] = {
    "xterm", "foot", "wezterm", "ghostty", "alacritty", "kitty", "konsole", "vte", "gnome", "putty", "contour", "st-",
};
constexpr const char* XTERM = "xterm-256color";

// What obstacle() found for the session to come: the entry, and the size by the environment or else the entry, for a
// terminal that does not tell its own.
const char* g_entry = nullptr;
ScreenSize g_entry_size;
bool g_clears_rows = false;  // in the usual way, which is not that of every terminal
constexpr std::string_view CLEAR_TO_END = "\033[K";

// What is known of the terminal for line mode, and the name that it had then.
std::string g_known_terminal;
bool g_edits_lines = false;

// What a terminal claims beyond that is cut: its picture would take more memory than there is.
constexpr int MOST_ROWS = 4096, MOST_COLUMNS = 4096;

ScreenSize limited(int rows, int cols) { return {std::min(rows, MOST_ROWS), std::min(cols, MOST_COLUMNS)}; }

// Of the entry, or LINES and COLUMNS in its place: curses keeps them in 16 bits, and what did not fit is no size.
ScreenSize size_of_entry() {
    constexpr int USUAL_ROWS = 24, USUAL_COLUMNS = 80;
    return limited(lines > 0 ? lines : USUAL_ROWS, columns > 0 ? columns : USUAL_COLUMNS);
}

SCREEN* g_screen = nullptr;  // of this session or of the one before
ScreenSize g_size;

volatile std::sig_atomic_t g_size_changed = 0, g_stop_asked = 0, g_continued = 0;

void note_signal(int number) {
    if (number == SIGWINCH) g_size_changed = 1;
    if (number == SIGTSTP) g_stop_asked = 1;
    if (number == SIGCONT) g_continued = 1;
}

struct SignalRow {
    int number;
    void (*handler)(int);
    struct sigaction before;
};
// What a session handles itself; curses would end the process, or leave its own handlers behind.
std::array<SignalRow, 4> g_signals{{
    {SIGINT, kpe_sigint_handler, {}},
    {SIGWINCH, note_signal, {}},
    {SIGTSTP, note_signal, {}},
    {SIGCONT, note_signal, {}},
}};

void take_signal(SignalRow& row) { kpe_set_handler(row.number, row.handler, &row.before); }

void take_signals() {
    for (SignalRow& row : g_signals) take_signal(row);
}

SignalRow& stop_signal() {
    return *std::find_if(g_signals.begin(), g_signals.end(),
                         [](const SignalRow& row) { return row.number == SIGTSTP; });
}

void give_signals_back() {
    for (const SignalRow& row : g_signals) sigaction(row.number, &row.before, nullptr);
    kpe_forget_interrupt();
}

const char* terminal_name() {
    const char* const name = std::getenv("TERM");
    return name ? name : "";
}

enum class Ability { Unknown, Limited, Screen };

// An environment variable with another value, or without one, for as long as it lives.
class OtherValue {
public:
    OtherValue(const char* name, const char* value) : name_(name) {
        if (const char* const before = std::getenv(name)) before_ = before;
        set(value);
    }
    ~OtherValue() { set(before_ ? before_->c_str() : nullptr); }
    OtherValue(const OtherValue&) = delete;
    OtherValue& operator=(const OtherValue&) = delete;

private:
    void set(const char* value) {
        if (value)
            setenv(name_, value, /*overwrite=*/1);
        else
            unsetenv(name_);
    }

    const char* name_;
    std::optional<std::string> before_;
};

// Curses' windows are never shown, and at their full width to make them takes a tenth of a start.
constexpr int WINDOW_COLUMNS = 1;

SCREEN* new_screen() {
    const OtherValue height("LINES", std::to_string(g_size.rows).c_str());
    const OtherValue width("COLUMNS", std::to_string(WINDOW_COLUMNS).c_str());
    return newterm(g_entry, stdout, stdin);
}

// Leaves the entry of an earlier session current.
Ability ability_of(const char* name) {
    TERMINAL* const current = cur_term;
    int error = 0;
    if (setupterm(name, STDOUT_FILENO, &error) != OK) return error == 1 ? Ability::Limited : Ability::Unknown;
    g_clears_rows = clr_eol != nullptr && std::string_view(clr_eol).starts_with(CLEAR_TO_END);
    const bool moves = cursor_address != nullptr && !hard_copy && !generic_type;
    g_entry_size = size_of_entry();
    TERMINAL* const tried = set_curterm(current);
    del_curterm(tried);
    return moves ? Ability::Screen : Ability::Limited;
}

// Finds the entry to use, g_entry: the terminal's own, or that of one like it; and what it can.
Ability find_entry() {
    g_entry = terminal_name();
    const Ability ability = ability_of(g_entry);
    if (ability != Ability::Unknown) return ability;
    const std::string_view name = g_entry;
    const bool like_xterm = std::any_of(std::begin(LIKE_XTERM), std::end(LIKE_XTERM),
                                        [&](std::string_view start) { return name.starts_with(start); });
    g_entry = XTERM;
    return like_xterm ? ability_of(XTERM) : Ability::Unknown;
}

void keypad_application_mode() {
    kpe_send_to_terminal("\033=");
    kpe_flush();
}

// 0 is a number that the terminal does not tell.
ScreenSize size_of_terminal() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
    return limited(size.ws_row, size.ws_col);
}

void adopt_size() {
    const ScreenSize size = size_of_terminal();
    if (size.rows == 0 || size.cols == 0) return;
    g_size = size;
    resize_term(size.rows, WINDOW_COLUMNS);  // for the way out: curses leaves the cursor in the last row
    kpe_repaint();
}

// Has curses send what it has gathered to start the screen, and nothing of its windows.
void send_gathered() {
    for (WINDOW* const window : {stdscr, newscr, curscr}) clearok(window, FALSE);
    refresh();
}

int print_byte(int c) {
    const char byte = static_cast<char>(c);
    kpe_send_to_terminal({&byte, 1});
    return c;
}

// Ends curses, which is active.
void leave_screen() {
    kpe_await_answers();
    kpe_key_modes_off();
    const bool ended = endwin() != ERR;
    g_curses_active = false;
    // Where no other screen comes back, what is printed next would stand in the old message.
    if (ended && exit_ca_mode == nullptr && clr_eol != nullptr) tputs(clr_eol, 1, print_byte);
    kpe_send_to_terminal("\033>");
    kpe_flush();
}

void give_terminal_back() {
    leave_screen();
    kpe_terminal_given_back();
}

void take_screen_back() {
    keypad_application_mode();
    g_curses_active = true;
    reset_prog_mode();
    send_gathered();
    keypad(stdscr, TRUE);  // leaving the screen ended it
    kpe_key_modes_on();
    kpe_expect_typed_before(kpe_end_type_ahead());
    adopt_size();
    kpe_repaint();
}

// g_curses_active tells whether it did.
void start_curses() {
    kpe_terminal_taken(give_terminal_back);
    g_curses_active = true;
    kpe_enter_user_locale();
    keypad_application_mode();
    if (g_screen) delscreen(g_screen);
    const ScreenSize told = size_of_terminal();
    g_size = {told.rows > 0 ? told.rows : g_entry_size.rows, told.cols > 0 ? told.cols : g_entry_size.cols};
    g_screen = new_screen();
    if (!g_screen) {
        kpe_safe_endwin();
        return;
    }
    kpe_prepare_leaving();
    raw();
    noecho();
    keypad(stdscr, TRUE);
    if (!keypad_xmit) send_gathered();  // else keypad() did
    nonl();
    kpe_key_modes_on();
    kpe_expect_typed_before(kpe_end_type_ahead());
    kpe_repaint();
    kpe_clear_keys();
}

}  // namespace

ScreenSize kpe_screen_size() { return g_size; }

std::optional<std::string> CursesSession::obstacle() {
    if (g_curses_active) return std::nullopt;
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) return "Screen mode needs a terminal";
    const std::string name = terminal_name();
    if (name.empty()) return "Screen mode needs a terminal type: TERM is not set";
    switch (find_entry()) {
        case Ability::Unknown:
            return "Unknown terminal type: " + name;
        case Ability::Limited:
            return "Terminal type without full screen: " + name;
        case Ability::Screen:
            break;
    }
    return std::nullopt;
}

CursesSession::CursesSession() : outermost_(!g_curses_active) {
    if (!outermost_) return;
    take_signals();
    try {
        start_curses();
    } catch (const std::bad_alloc&) {
        kpe_safe_endwin();
    }
}

bool CursesSession::started() const { return g_curses_active; }

CursesSession::~CursesSession() {
    if (!outermost_) return;
    kpe_safe_endwin();
    kpe_leave_user_locale();
    kpe_expect_type_ahead();
    give_signals_back();
}

LineModePause::LineModePause() : paused_(g_curses_active) {
    if (!paused_) return;
    leave_screen();
    kpe_expect_type_ahead();
    // Ctrl/Z stops at once, and nothing where no shell could continue it: noted, it would stop the screen later.
    sigaction(SIGTSTP, &stop_signal().before, nullptr);
}

LineModePause::~LineModePause() {
    if (!paused_) return;
    kpe_flush();
    take_signal(stop_signal());
    take_screen_back();
}

InterruptKey::InterruptKey() {
    termios now{};
    if (!g_curses_active || tcgetattr(STDIN_FILENO, &now) != 0 || (now.c_lflag & ISIG)) return;
    kpe_forget_interrupt();
    modes_.emplace([](termios& modes) {
        modes.c_lflag |= ISIG | NOFLSH;
        modes.c_cc[VINTR] = static_cast<cc_t>(kpe_ctrl('C'));
        modes.c_cc[VQUIT] = modes.c_cc[VSUSP] = _POSIX_VDISABLE;
    });
    kpe_pause_protocol();
}

InterruptKey::~InterruptKey() {
    if (!modes_) return;
    if (g_curses_active)
        kpe_continue_protocol();
    else
        modes_->keep();  // the modes are not the screen's any more
}

bool kpe_knows_terminal() { return g_known_terminal == terminal_name() && !g_known_terminal.empty(); }

bool kpe_can_edit_lines() {
    if (g_curses_active) return false;
    if (kpe_knows_terminal()) return g_edits_lines;
    g_known_terminal = terminal_name();
    if (g_known_terminal.empty()) return false;
    return g_edits_lines = find_entry() == Ability::Screen && g_clears_rows;
}

void kpe_beep() {
    if (g_curses_active) beep();
}

bool kpe_terminal_signal_noted() { return g_stop_asked || g_continued || g_size_changed; }

bool kpe_follow_terminal() {
    if (g_stop_asked) {
        g_stop_asked = 0;
        leave_screen();
        std::raise(SIGSTOP);
        g_continued = 1;
    }
    if (g_kpe_end_signal) return false;  // that is why it goes on, and the terminal may be another job's
    if (g_continued) {                   // whoever had the terminal meanwhile may have changed it
        g_continued = 0;
        take_screen_back();
        return true;
    }
    if (g_size_changed) {
        g_size_changed = 0;
        adopt_size();
        kpe_repaint();
        return true;
    }
    return false;
}

void kpe_repaint() { g_shown_rows.forget(); }
