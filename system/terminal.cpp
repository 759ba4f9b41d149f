#include "system/terminal.h"

#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "system/interrupts.h"
#include "system/report.h"

std::atomic<bool> g_curses_active = false;
static_assert(std::atomic<bool>::is_always_lock_free, "signal handlers read it");

namespace {

// The modes from before the first change, and how many changes there are now, the screen among them.
termios g_first_modes;
volatile std::sig_atomic_t g_changes = 0;

void (*g_leave)() = nullptr;
// Two, so that a handler never reads one that is being written.
char g_leaving_bytes[2][128];
const char* volatile g_leaving = g_leaving_bytes[0];
volatile std::sig_atomic_t g_diverted = 0;

// Whether there is a terminal.
bool begin_change() {
    termios now{};
    if (tcgetattr(STDIN_FILENO, &now) != 0) return false;
    if (g_changes == 0) g_first_modes = now;
    g_changes = g_changes + 1;
    return true;
}

void end_change() {
    if (g_changes > 0) g_changes = g_changes - 1;
}

}  // namespace

void kpe_terminal_taken(void (*leave)()) {
    g_leave = leave;
    begin_change();
}

void kpe_set_leaving_bytes(const std::string& leaving) {
    char(&next)[sizeof g_leaving_bytes[0]] = g_leaving_bytes[g_leaving == g_leaving_bytes[0] ? 1 : 0];
    next[leaving.copy(next, sizeof next - 1)] = '\0';
    std::atomic_signal_fence(std::memory_order_release);
    g_leaving = next;
}

void kpe_terminal_given_back() {
    g_curses_active = false;
    if (!g_diverted) end_change();  // the modes could not be put back where the output has gone
}

void kpe_safe_endwin() {
    if (!g_curses_active) return;
    if (g_kpe_end_signal == 0 || !kpe_in_background()) {
        g_leave();
        return;
    }
    kpe_send_to_terminal(g_leaving);
    kpe_flush();
    kpe_terminal_given_back();
}

TerminalModes::TerminalModes(void (*change)(termios&)) {
    if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
    termios now = before_;
    change(now);
    changed_ = begin_change();
    tcsetattr(STDIN_FILENO, TCSANOW, &now);
}

TerminalModes::~TerminalModes() {
    if (changed_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    keep();
}

void TerminalModes::keep() {
    if (changed_) end_change();
    changed_ = false;
}

bool kpe_in_background() {
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground > 0 && foreground != getpgrp();
}

bool kpe_takes_output(int fd) {
    pollfd output = {fd, POLLOUT, 0};
    return poll(&output, 1, 0) != 0;
}

void kpe_restore_modes() {
    if (g_changes > 0 && !kpe_in_background()) tcsetattr(STDIN_FILENO, TCSANOW, &g_first_modes);
}

void kpe_give_terminal_back() {
    kpe_restore_modes();
    if (!g_curses_active || !kpe_takes_output(STDOUT_FILENO)) return;
    const char* const leaving = g_leaving;
    const ssize_t ignored = write(STDOUT_FILENO, leaving, strlen(leaving));
    static_cast<void>(ignored);
}

void kpe_divert_refused_output() {
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        const int nowhere = kpe_takes_output(fd) ? -1 : open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0) continue;
        dup2(nowhere, fd);
        close(nowhere);
        g_diverted = 1;
    }
}
