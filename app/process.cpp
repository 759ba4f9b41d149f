#include "app/process.h"

#include <array>
#include <cstdio>
#include <curses.h>
#include <unistd.h>

#include "editor/input.h"
#include "editor/report.h"

const int KPE_VERSION_MAJOR = 1;
const int KPE_VERSION_MINOR = 11;
const int KPE_VERSION_EDIT = 0;
const char* const KPE_RELEASE_DATE = "2026-09-11";

volatile std::sig_atomic_t g_kpe_abort_requested = 0;
volatile std::sig_atomic_t g_kpe_end_signal = 0;
bool g_curses_active = false;

namespace {

constexpr int ENDING_SIGNALS[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
// Signals that arrive as an error of the write that caused them.
constexpr int WRITE_SIGNALS[] = {SIGPIPE, SIGXFSZ};

// Ends the process by the signal, with all that was printed handed over. A flush that the signal interrupted goes
// on first, unless its reader has stopped and a second signal comes.
void end_by(int signal_number) {
    kpe_restore_input_in_handler();
    if (!kpe_flush_in_handler() && g_kpe_end_signal == 0) {
        g_kpe_end_signal = signal_number;
        return;
    }
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}

// With curses on the terminal, screen mode ends itself first: nothing of curses may run in a handler.
void ending_signal_handler(int signal_number) {
    if (!g_curses_active) {
        end_by(signal_number);
        return;
    }
    g_kpe_end_signal = signal_number;
    g_kpe_abort_requested = 1;
}

void set_handler(int signal_number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal_number, &action, nullptr);
}

}  // namespace

void kpe_sigint_handler(int) { g_kpe_abort_requested = 1; }

void kpe_safe_endwin() {
    if (!g_curses_active) return;
    endwin();
    g_curses_active = false;
    kpe_print("\033>");
    kpe_flush();
}

void kpe_install_signal_handlers() {
    for (const int signal_number : ENDING_SIGNALS) {
        struct sigaction now {};
        const bool ignored = sigaction(signal_number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
        if (!ignored) set_handler(signal_number, ending_signal_handler);
    }
    for (const int signal_number : WRITE_SIGNALS) set_handler(signal_number, SIG_IGN);
}

void kpe_default_signals_for_child() {
    for (const int signal_number : WRITE_SIGNALS) set_handler(signal_number, SIG_DFL);
}

void kpe_obey_end_signal() {
    if (g_kpe_end_signal != 0 && !g_curses_active) end_by(g_kpe_end_signal);
}

std::string kpe_version_string() {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "V%d.%02d-%d", KPE_VERSION_MAJOR, KPE_VERSION_MINOR, KPE_VERSION_EDIT);
    return text.data();
}

std::string kpe_version_banner() {
    return kpe_version_string() + "       Copyright (c) 2026 the kpe authors\nRelease date: " + KPE_RELEASE_DATE + "\n";
}
