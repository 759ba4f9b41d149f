#include "screen/curses_session.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <curses.h>
#include <string_view>
#include <sys/ioctl.h>
#include <term.h>
#include <unistd.h>

#include "app/process.h"
#include "editor/input.h"
#include "editor/report.h"
#include "screen/key_reader.h"
#include "screen/n3_kpe_keymap.h"
#include "screen/shown_rows.h"

namespace {

// Terminals that work like xterm, by the beginnings of their names: their own entries are often missing on
// the machine one logs into.
constexpr std::string_view LIKE_XTERM[] = {
    "xterm", "foot", "wezterm", "ghostty", "alacritty", "kitty", "konsole", "vte", "gnome", "putty", "contour", "st-",
};
constexpr const char* XTERM = "xterm-256color";

// What obstacle() found for the session to come.
const char* g_entry = nullptr;

// Of the last session; kept when it ends, so that the page size stays that of the screen.
SCREEN* g_screen = nullptr;

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

void take_signal(SignalRow& row) {
    struct sigaction action {};
    action.sa_handler = row.handler;
    sigemptyset(&action.sa_mask);
    sigaction(row.number, &action, &row.before);
}

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

// Leaves the entry of an earlier session current.
Ability ability_of(const char* name) {
    TERMINAL* const current = cur_term;
    int error = 0;
    if (setupterm(name, STDOUT_FILENO, &error) != OK) return error == 1 ? Ability::Limited : Ability::Unknown;
    const bool moves = cursor_address != nullptr && !hard_copy && !generic_type;
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
    kpe_print("\033=");
    kpe_flush();
}

void adopt_size() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) return;
    resize_term(size.ws_row, size.ws_col);
    kpe_repaint();
}

void take_screen_back() {
    keypad_application_mode();
    g_curses_active = true;
    reset_prog_mode();
    kpe_expect_typed_before(kpe_end_type_ahead());
    adopt_size();
    kpe_repaint();
}

}  // namespace

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
    kpe_remember_terminal();
    g_curses_active = true;
    std::setlocale(LC_CTYPE, "");
    keypad_application_mode();
    if (g_screen) delscreen(g_screen);
    use_tioctl(TRUE);  // LINES and COLUMNS would hide a change of size
    g_screen = newterm(g_entry, stdout, stdin);
    if (!g_screen) {
        kpe_safe_endwin();
        return;
    }
    kpe_set_terminal_reset((exit_ca_mode ? exit_ca_mode : "") + std::string("\033>"));
    raw();
    noecho();
    keypad(stdscr, TRUE);
    nonl();
    kpe_expect_typed_before(kpe_end_type_ahead());
    kpe_repaint();
    kpe_clear_keys();
}

bool CursesSession::started() const { return g_curses_active; }

CursesSession::~CursesSession() {
    if (!outermost_) return;
    kpe_safe_endwin();
    std::setlocale(LC_CTYPE, "C");
    kpe_expect_type_ahead();
    give_signals_back();
}

LineModePause::LineModePause() : paused_(g_curses_active) {
    if (!paused_) return;
    kpe_leave_screen();
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
    if (!g_curses_active || tcgetattr(STDIN_FILENO, &before_) != 0 || (before_.c_lflag & ISIG)) return;
    kpe_forget_interrupt();
    termios now = before_;
    now.c_lflag |= ISIG | NOFLSH;
    now.c_cc[VINTR] = static_cast<cc_t>(kpe_ctrl('C'));
    now.c_cc[VQUIT] = now.c_cc[VSUSP] = _POSIX_VDISABLE;
    changed_ = tcsetattr(STDIN_FILENO, TCSANOW, &now) == 0;
}

InterruptKey::~InterruptKey() {
    if (changed_ && g_curses_active) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

bool kpe_terminal_signal_noted() { return g_stop_asked || g_continued || g_size_changed; }

bool kpe_follow_terminal() {
    if (g_stop_asked) {
        g_stop_asked = 0;
        kpe_leave_screen();
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
