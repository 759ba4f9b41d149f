#include "app/process.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <curses.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include "editor/input.h"
#include "editor/report.h"
#include "system/file_work.h"
#include "system/signals.h"

// A sanitizer reports a crash by handlers of its own.
#if defined(__SANITIZE_ADDRESS__)
#define KPE_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KPE_SANITIZED
#endif
#endif

const int KPE_VERSION_MAJOR = 1;
const int KPE_VERSION_MINOR = 11;
const int KPE_VERSION_EDIT = 0;
const char* const KPE_RELEASE_DATE = "2026-09-11";

volatile std::sig_atomic_t g_kpe_abort_requested = 0;
volatile std::sig_atomic_t g_kpe_end_signal = 0;
bool g_curses_active = false;

namespace {

constexpr int CRASH_SIGNALS[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP};
constexpr int MOST_SECONDS = 10;                        // for the end of the process, and for files that do not get on
constexpr size_t CRASH_STACK_SIZE = size_t{256} << 10;  // bytes: rescue files are written on it

volatile std::sig_atomic_t g_seconds_ending = 0, g_seconds_without_progress = 0, g_last_progress = 0;
volatile std::sig_atomic_t g_crashed = 0;
char g_crash_stack[CRASH_STACK_SIZE];
void (*g_rescue)() = nullptr;
int g_end_status = 0;  // without a signal

termios g_terminal_before;
volatile std::sig_atomic_t g_terminal_known = 0;
char g_terminal_reset[64];
volatile std::sig_atomic_t g_sent_nowhere = 0;

void set_handler(int signal_number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signal_number, &action, nullptr);
}

// Whether the terminal is another job's by now: its modes are not ours to set then.
bool in_background() {
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground > 0 && foreground != getpgrp();
}

bool takes_output(int fd) {
    pollfd output = {fd, POLLOUT, 0};
    return poll(&output, 1, 0) != 0;
}

// The modes only; for a signal handler as well.
void restore_modes() {
    if (in_background()) return;
    kpe_restore_input();
    if (g_terminal_known) tcsetattr(STDIN_FILENO, TCSANOW, &g_terminal_before);
}

void raise_default(int number) {
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    set_handler(number, SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    std::raise(number);
}

[[noreturn]] void end_process() {
    const int number = g_kpe_end_signal;
    if (number == 0) _exit(g_end_status);
    raise_default(number);
    _exit(128 + number);
}

int print_byte(int c) {
    const char byte = static_cast<char>(c);
    kpe_send_to_terminal({&byte, 1});
    return c;
}

// For a signal handler.
void give_terminal_back() {
    restore_modes();
    if (g_curses_active && takes_output(STDOUT_FILENO)) {
        const ssize_t ignored = write(STDOUT_FILENO, g_terminal_reset, strlen(g_terminal_reset));
        static_cast<void>(ignored);
    }
}

// Wherever the process is: for a signal handler.
[[noreturn]] void end_at_once() {
    give_terminal_back();
    if (isatty(STDERR_FILENO) && takes_output(STDERR_FILENO)) FileWork::tell_unfinished(STDERR_FILENO);
    end_process();
}

void send_nowhere(int fd) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    dup2(nowhere, fd);
    close(nowhere);
    g_sent_nowhere = 1;
}

// Only waiting for a terminal is cut short. A file that is being written would be lost, however slow its disk is.
void each_second(int) {
    const int error = errno;
    const std::sig_atomic_t progress = FileWork::progress_made();
    g_seconds_ending = g_seconds_ending + 1;
    g_seconds_without_progress = progress == g_last_progress ? g_seconds_without_progress + 1 : 0;
    g_last_progress = progress;
    if (g_seconds_without_progress >= MOST_SECONDS && (g_crashed || !FileWork::lasts())) end_at_once();
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO})
        if (!takes_output(fd)) send_nowhere(fd);
    alarm(1);
    errno = error;
}

// Whether a signal that comes again ends the process there and then.
bool may_end_at_once() { return FileWork::lasts() ? g_seconds_without_progress >= MOST_SECONDS : g_seconds_ending > 0; }

void limit_end() {
    set_handler(SIGTTOU, SIG_IGN);  // a job that was sent to the background must not stop at its last words
    set_handler(SIGALRM, each_second);
    alarm(1);
}

void ending_signal_handler(int signal_number) {
    const int error = errno;
    if (g_kpe_end_signal == 0) {
        g_kpe_end_signal = signal_number;
        g_kpe_abort_requested = 1;
        limit_end();
    } else if (signal_number != SIGPIPE && may_end_at_once()) {
        end_at_once();
    }
    errno = error;
}

// What is left of a process that has crashed is not to be trusted: a child tries, and may hang or crash in its turn.
void rescue_in_child() {
    const pid_t child = _Fork();
    if (child == 0) {
        for (const int number : CRASH_SIGNALS) set_handler(number, SIG_DFL);
        g_end_status = 1;
        limit_end();
        g_rescue();
        _exit(0);
    }
    while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void crash_handler(int number) {
    if (!g_crashed) {
        g_crashed = 1;
        give_terminal_back();
        g_curses_active = false;
        if (g_rescue) rescue_in_child();
    }
    raise_default(number);
    _exit(128 + number);
}

bool is_ignored(int number) {
    struct sigaction now {};
    return sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

void install_crash_handlers() {
#ifndef KPE_SANITIZED
    stack_t stack{};
    stack.ss_sp = g_crash_stack;
    stack.ss_size = sizeof g_crash_stack;
    if (sigaltstack(&stack, nullptr) != 0) return;
    struct sigaction action {};
    action.sa_handler = crash_handler;
    action.sa_flags = SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (const int number : CRASH_SIGNALS)
        if (!is_ignored(number)) sigaction(number, &action, nullptr);
#endif
}

}  // namespace

void kpe_sigint_handler(int) { g_kpe_abort_requested = 1; }

void kpe_forget_interrupt() {
    g_kpe_abort_requested = 0;
    if (g_kpe_end_signal) g_kpe_abort_requested = 1;  // it may have come just now
}

void kpe_leave_screen() {
    const bool ended = endwin() != ERR;
    g_curses_active = false;
    // Where no other screen comes back, what is printed next would stand in the old message.
    if (ended && exit_ca_mode == nullptr && clr_eol != nullptr) tputs(clr_eol, 1, print_byte);
    kpe_send_to_terminal("\033>");
    kpe_flush();
}

void kpe_safe_endwin() {
    if (!g_curses_active) return;
    if (g_kpe_end_signal == 0 || !in_background()) {
        kpe_leave_screen();
    } else {
        g_curses_active = false;
        kpe_send_to_terminal(g_terminal_reset);
        kpe_flush();
    }
    if (!g_sent_nowhere) g_terminal_known = 0;
}

void kpe_install_signal_handlers() {
    for (int number = 1; number <= SIGRTMAX; ++number)
        if (sigismember(&kpe_ending_signals(), number) && !is_ignored(number))
            set_handler(number, ending_signal_handler);
    set_handler(SIGXFSZ, SIG_IGN);
    install_crash_handlers();
}

void kpe_set_rescue(void (*rescue)()) { g_rescue = rescue; }

void kpe_default_signals_for_child() { set_handler(SIGXFSZ, SIG_DFL); }

void kpe_end_by_signal() {
    kpe_flush();
    restore_modes();
    end_process();
}

void kpe_limit_end(int status) {
    if (g_kpe_end_signal) return;  // limited already
    g_end_status = status;
    limit_end();
}

void kpe_remember_terminal() { g_terminal_known = tcgetattr(STDIN_FILENO, &g_terminal_before) == 0; }

void kpe_set_terminal_reset(const std::string& bytes) {
    g_terminal_reset[bytes.copy(g_terminal_reset, sizeof g_terminal_reset - 1)] = '\0';
}

std::string kpe_version_string() {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "V%d.%02d-%d", KPE_VERSION_MAJOR, KPE_VERSION_MINOR, KPE_VERSION_EDIT);
    return text.data();
}

std::string kpe_version_banner() {
    return kpe_version_string() + "       Copyright (c) 2026 the kpe authors\nRelease date: " + KPE_RELEASE_DATE + "\n";
}
