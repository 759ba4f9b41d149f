#include "system/process.h"

#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include "system/file_work.h"
#include "system/interrupts.h"
#include "system/report.h"
#include "system/signals.h"
#include "system/terminal.h"

namespace {

// A sanitizer reports a crash by handlers of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#elif defined(__has_feature)
constexpr bool SANITIZED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool SANITIZED = false;
#endif

constexpr int MOST_SECONDS = 10;                        // for the end of the process, and for files that do not get on
constexpr size_t CRASH_STACK_SIZE = size_t{256} << 10;  // bytes: rescue files are written on it

volatile std::sig_atomic_t g_seconds_ending = 0, g_seconds_without_progress = 0, g_last_progress = 0;
volatile std::sig_atomic_t g_crashed = 0;
char g_crash_stack[CRASH_STACK_SIZE];
void (*g_rescue)() = nullptr;
int g_end_status = 0;  // without a signal

void raise_default(int number) {
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, number);
    kpe_set_handler(number, SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    std::raise(number);
}

[[noreturn]] void end_process() {
    const int number = g_kpe_end_signal;
    if (number == 0) _exit(g_end_status);
    raise_default(number);
    _exit(128 + number);
}

// For a signal handler.
void tell_unfinished_work() {
    if (isatty(STDERR_FILENO) && kpe_takes_output(STDERR_FILENO)) FileWork::tell_unfinished(STDERR_FILENO);
}

// Wherever the process is: for a signal handler.
[[noreturn]] void end_at_once() {
    kpe_give_terminal_back();
    tell_unfinished_work();
    end_process();
}

// Only waiting for a terminal is cut short. A file that is being written would be lost, however slow its disk is.
void each_second(int) {
    const int error = errno;
    const std::sig_atomic_t progress = FileWork::progress_made();
    g_seconds_ending = g_seconds_ending + 1;
    g_seconds_without_progress = progress == g_last_progress ? g_seconds_without_progress + 1 : 0;
    g_last_progress = progress;
    if (g_seconds_without_progress >= MOST_SECONDS && (g_crashed || !FileWork::lasts())) end_at_once();
    kpe_divert_refused_output();
    alarm(1);
    errno = error;
}

// Whether a signal that comes again ends the process there and then.
bool may_end_at_once() { return FileWork::lasts() ? g_seconds_without_progress >= MOST_SECONDS : g_seconds_ending > 0; }

void limit_end() {
    kpe_set_handler(SIGTTOU, SIG_IGN);  // a job that was sent to the background must not stop at its last words
    kpe_set_handler(SIGALRM, each_second);
    alarm(1);
}

void ending_signal_handler(int signal_number) {
    const int error = errno;
    if (g_kpe_end_signal == 0) {
        g_kpe_end_signal = signal_number;
        kpe_request_abort();
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
        for (const int number : KPE_CRASH_SIGNALS) kpe_set_handler(number, SIG_DFL);
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
        kpe_give_terminal_back();
        g_curses_active = false;
        if (g_rescue) rescue_in_child();
        tell_unfinished_work();
    }
    raise_default(number);
    _exit(128 + number);
}

void install_crash_handlers() {
    if (SANITIZED) return;
    stack_t stack{};
    stack.ss_sp = g_crash_stack;
    stack.ss_size = sizeof g_crash_stack;
    if (sigaltstack(&stack, nullptr) != 0) return;
    for (const int number : KPE_CRASH_SIGNALS)
        kpe_set_handler_unless_ignored(number, crash_handler, SA_ONSTACK | SA_NODEFER);
}

}  // namespace

void kpe_install_signal_handlers() {
    for (int number = 1; number <= SIGRTMAX; ++number)
        if (sigismember(&kpe_ending_signals(), number)) kpe_set_handler_unless_ignored(number, ending_signal_handler);
    kpe_set_handler(SIGXFSZ, SIG_IGN);
    install_crash_handlers();
}

void kpe_set_rescue(void (*rescue)()) { g_rescue = rescue; }

void kpe_reset_signals_in_child() { kpe_set_handler(SIGXFSZ, SIG_DFL); }

void kpe_end_by_signal() {
    kpe_flush();
    kpe_restore_modes();
    end_process();
}

void kpe_limit_end(int status) {
    if (g_kpe_end_signal) return;  // limited already
    g_end_status = status;
    limit_end();
}
