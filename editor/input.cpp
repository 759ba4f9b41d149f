#include "editor/input.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <termios.h>
#include <unistd.h>

#include "app/process.h"
#include "editor/report.h"

namespace {

constexpr char CTRL_Z = 26;
constexpr size_t INPUT_SIZE = 64 * 1024;

char g_input[INPUT_SIZE];
size_t g_input_next = 0, g_input_end = 0;

termios g_saved_terminal;
volatile std::sig_atomic_t g_terminal_changed = 0;

// Reads on when all is consumed. false: end of input, an error, or an interrupt that asks to stop.
bool fill_input() {
    kpe_flush();
    for (;;) {
        const ssize_t n = read(STDIN_FILENO, g_input, INPUT_SIZE);
        if (n > 0) {
            g_input_next = 0;
            g_input_end = static_cast<size_t>(n);
            return true;
        }
        if (n == 0 || errno != EINTR || g_kpe_abort_requested) return false;
    }
}

// While Ctrl/Z ends lines, a line of blanks and Ctrl/Z is complete without a line break.
bool ended_by_ctrl_z(std::string_view line) {
    return g_terminal_changed && line.ends_with(CTRL_Z) && line.find_first_not_of(" \t\032") == line.npos;
}

}  // namespace

std::optional<std::string> kpe_read_line() {
    std::string line;
    for (;;) {
        if (g_input_next == g_input_end && !fill_input()) {
            if (line.empty() || g_kpe_abort_requested) return std::nullopt;
            return line;
        }
        const char* const from = g_input + g_input_next;
        const size_t left = g_input_end - g_input_next;
        const void* const end = std::memchr(from, '\n', left);
        const size_t size = end ? static_cast<size_t>(static_cast<const char*>(end) - from) : left;
        line.append(from, size);
        g_input_next += size + (end ? 1 : 0);
        if (end || ended_by_ctrl_z(line)) return line;
    }
}

CtrlZAsInput::CtrlZAsInput() {
    if (g_terminal_changed || tcgetattr(STDIN_FILENO, &g_saved_terminal) != 0) return;
    termios now = g_saved_terminal;
    now.c_cc[VSUSP] = _POSIX_VDISABLE;
    now.c_cc[VEOL] = CTRL_Z;
    g_terminal_changed = 1;
    changed_ = true;
    tcsetattr(STDIN_FILENO, TCSANOW, &now);
}

CtrlZAsInput::~CtrlZAsInput() {
    if (changed_) kpe_restore_input_in_handler();
}

void kpe_restore_input_in_handler() {
    if (!g_terminal_changed) return;
    tcsetattr(STDIN_FILENO, TCSANOW, &g_saved_terminal);
    g_terminal_changed = 0;
}
