#include "system/pages.h"

#include <algorithm>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include "system/ascii.h"
#include "system/input.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

constexpr std::string_view QUESTION = "-- Space: next page  Return: next line  Q: end --";
constexpr size_t LEAST_ROWS = 4, TAB_STOP = 8;
constexpr char ESCAPE = 27;

bool has_reader() {
    return !g_curses_active && isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && isatty(STDERR_FILENO) &&
           !kpe_typed_ahead();
}

// Near enough for a page: every character counts as one column.
size_t columns(std::string_view line) {
    size_t columns = 0;
    for (const char c : line) {
        if (c == '\t') columns += TAB_STOP - columns % TAB_STOP;
        if (c != '\t' && !kpe_is_continuation(c)) ++columns;
    }
    return columns;
}

// Keys one by one and unseen. Ctrl/C and Ctrl/Z are keys like others here.
void read_keys(termios& modes) {
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    modes.c_cc[VMIN] = 1;
    modes.c_cc[VTIME] = 0;
}

// What the reader wants: ' ' or '\n' for more, 0 for no more.
char read_answer() {
    for (;;) {
        const std::optional<char> key = kpe_read_byte();
        if (!key || *key == 'q' || *key == 'Q' || *key == 3 || *key == 4 || *key == 26) return 0;
        if (*key == ' ') return ' ';
        if (*key == '\n' || *key == '\r') return '\n';
        // What follows at once belongs to the same key.
        for (bool inside = *key == ESCAPE; inside && kpe_typed_ahead();) inside = kpe_read_byte().has_value();
    }
}

}  // namespace

Pages::Pages() {
    winsize size{};
    if (!has_reader() || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row < LEAST_ROWS) return;
    rows_ = size.ws_row;
    cols_ = std::max<size_t>(size.ws_col, 1);
    free_ = rows_ - 1;
}

void Pages::say(std::string_view line) {
    if (make_room(line)) kpe_say(true, line);
}

void Pages::tell(std::string_view line) {
    if (isatty(STDERR_FILENO) && make_room(line)) kpe_warn(line);
}

bool Pages::make_room(std::string_view line) {
    if (rows_ == 0 || ended_) return !ended_;
    const size_t needed = std::min(std::max<size_t>((columns(line) + cols_ - 1) / cols_, 1), rows_ - 1);
    while (needed > free_ && !ended_) ask();
    if (!ended_) free_ -= needed;
    return !ended_;
}

void Pages::ask() {
    const TerminalModes keys(read_keys);
    kpe_ask_reader(QUESTION);
    const char answer = read_answer();
    kpe_ask_reader("\r" + std::string(QUESTION.size(), ' ') + "\r");
    ended_ = answer == 0;
    free_ = answer == ' ' ? rows_ - 1 : free_ + 1;
}
