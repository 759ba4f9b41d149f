#include "system/input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "system/idle.h"
#include "system/interrupts.h"
#include "system/report.h"
#include "system/signals.h"
#include "system/wait.h"

namespace {

constexpr char CTRL_Z = 26;
constexpr size_t INPUT_SIZE = 64 * 1024;

char g_input[INPUT_SIZE];
size_t g_input_next = 0, g_input_end = 0;
InputFrom::Source g_source = InputFrom::Standard;
size_t g_type_ahead = 0;  // bytes yet to be read that were typed while the terminal was raw
std::string g_unshown;    // of these, what was read and belongs to a line that is not shown yet

char g_given_back[KPE_RAW_BLOCK];
size_t g_given_back_next = KPE_RAW_BLOCK;  // the bytes from here to the end wait
bool g_answers_expected = false;

std::string g_pasted;  // bytes of it from g_pasted_next on wait, in front of those that were given back
size_t g_pasted_next = 0;

int g_ctrl_z_ends_lines = 0;

size_t unread_bytes() {
    int n = 0;
    const bool told = ioctl(STDIN_FILENO, FIONREAD, &n) == 0 && n > 0;
    const size_t pasted = g_pasted.size() - g_pasted_next;
    return pasted + KPE_RAW_BLOCK - g_given_back_next + (told ? static_cast<size_t>(n) : 0);
}

// A byte that was typed while the terminal was raw: ends lines and shows them as the terminal would have.
void take_typed(char& c) {
    --g_type_ahead;
    if (c == '\r') c = '\n';
    if (c != '\n') g_unshown += c;
    if (c != '\n' && c != CTRL_Z && g_type_ahead > 0) return;
    kpe_print(g_unshown);  // at once: the bytes of a character by themselves are none
    g_unshown.clear();
    if (c == '\n') kpe_end_line();
}

bool abort_requested() { return g_kpe_abort_requested != 0; }

// Waits until there is something to read, and does what was put off until then. false: a signal asked to stop.
bool wait_for_input() {
    while (!g_kpe_abort_requested) {
        if (kpe_raw_waits()) break;
        const std::optional<timespec> idle = IdleWork::longest_wait();
        const Waited waited =
            kpe_wait({.signals = kpe_ending_signals(), .noted = abort_requested, .limit = idle ? &*idle : nullptr});
        if (waited == Waited::Input) break;
        if (waited == Waited::TimeUp) IdleWork::do_due();
    }
    return !g_kpe_abort_requested;
}

// Reads on when all is consumed. false: end of input, an error, or an interrupt that asks to stop.
bool fill_input() {
    kpe_flush();
    while (wait_for_input()) {
        // Byte by byte, so that what follows a command that enters screen mode is left to that.
        const ssize_t n = kpe_read_raw(g_input, g_type_ahead > 0 ? 1 : INPUT_SIZE);
        if (n > 0) {
            if (g_type_ahead > 0) take_typed(g_input[0]);
            g_input_next = 0;
            g_input_end = static_cast<size_t>(n);
            return true;
        }
        if (n == 0 || (errno != EINTR && errno != EAGAIN)) return false;
    }
    return false;
}

// While Ctrl/Z ends lines, a line of blanks and Ctrl/Z is complete without a line break.
bool ended_by_ctrl_z(std::string_view line) {
    return g_ctrl_z_ends_lines > 0 && line.ends_with(CTRL_Z) && line.find_first_not_of(" \t\032") == line.npos;
}

std::optional<std::string> read_line() {
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
        if (end) return line;
        if (ended_by_ctrl_z(line)) {
            kpe_end_line();  // the terminal showed ^Z and stayed on the line
            return line;
        }
    }
}

}  // namespace

std::optional<std::string> kpe_read_line() {
    if (g_source == InputFrom::Nowhere) return std::nullopt;
    std::optional<std::string> line = read_line();
    while (g_answers_expected && line) {
        const size_t size = kpe_answer_size(*line);
        if (size == 0) break;
        line->erase(0, size);
    }
    return line;
}

std::optional<char> kpe_read_byte() {
    if (g_source == InputFrom::Nowhere || (g_input_next == g_input_end && !fill_input())) return std::nullopt;
    return g_input[g_input_next++];
}

bool kpe_typed_ahead() {
    return g_source == InputFrom::Nowhere || g_input_next < g_input_end || kpe_raw_waits() || unread_bytes() > 0;
}

ssize_t kpe_read_raw(char* to, size_t size) {
    if (g_pasted_next < g_pasted.size()) {
        const size_t taken = g_pasted.copy(to, size, g_pasted_next);
        g_pasted_next += taken;
        std::replace(to, to + taken, '\n', '\r');  // as the key sends it
        return static_cast<ssize_t>(taken);
    }
    if (!kpe_raw_waits()) return read(STDIN_FILENO, to, size);
    const size_t taken = std::min(size, KPE_RAW_BLOCK - g_given_back_next);
    std::memcpy(to, g_given_back + g_given_back_next, taken);
    g_given_back_next += taken;
    return static_cast<ssize_t>(taken);
}

void kpe_give_back(std::string_view bytes) {
    if (g_pasted_next < g_pasted.size() && bytes.size() <= g_pasted_next) {  // they were read from there
        g_pasted_next -= bytes.size();
        bytes.copy(g_pasted.data() + g_pasted_next, bytes.size());
        return;
    }
    bytes = bytes.substr(0, g_given_back_next);
    g_given_back_next -= bytes.size();
    std::memcpy(g_given_back + g_given_back_next, bytes.data(), bytes.size());
}

bool kpe_raw_waits() { return g_given_back_next < KPE_RAW_BLOCK || g_pasted_next < g_pasted.size(); }

bool kpe_input_waits() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) > 0;
}

bool kpe_line_waits() {
    if (g_source == InputFrom::Nowhere || g_input_next < g_input_end) return true;
    return !kpe_raw_waits() && g_type_ahead == 0 && kpe_input_waits();
}

void kpe_queue_pasted(std::string text) {
    g_pasted = std::move(text);
    g_pasted_next = 0;
}

std::optional<PastedPiece> kpe_next_pasted() {
    if (g_pasted_next == g_pasted.size()) return std::nullopt;
    const size_t end = std::min(g_pasted.find('\n', g_pasted_next), g_pasted.size());
    PastedPiece piece = {g_pasted.substr(g_pasted_next, end - g_pasted_next), end < g_pasted.size()};
    g_pasted_next = end + (piece.ends_line ? 1 : 0);
    if (g_pasted_next == g_pasted.size()) kpe_queue_pasted({});
    return piece;
}

size_t kpe_answer_size(std::string_view bytes) {
    constexpr std::string_view BEGINS = "\033[?", INSIDE = "0123456789;:$", FINALS = "cuy";
    if (!bytes.starts_with(BEGINS)) return 0;
    const size_t end = bytes.find_first_not_of(INSIDE, BEGINS.size());
    return end != bytes.npos && FINALS.find(bytes[end]) != FINALS.npos ? end + 1 : 0;
}

void kpe_expect_answers(bool expected) { g_answers_expected = expected; }

InputFrom::InputFrom(Source source) : before_(std::exchange(g_source, source)) {}

InputFrom::~InputFrom() { g_source = before_; }

void kpe_expect_type_ahead() { g_type_ahead = unread_bytes(); }

size_t kpe_end_type_ahead() {
    const size_t usual = g_type_ahead == 0 ? unread_bytes() : 0;
    g_type_ahead = 0;
    return usual;
}

CtrlZAsInput::CtrlZAsInput()
    : modes_([](termios& modes) {
          modes.c_cc[VSUSP] = _POSIX_VDISABLE;
          modes.c_cc[VEOL] = CTRL_Z;
      }) {
    if (modes_.changed()) ++g_ctrl_z_ends_lines;
}

CtrlZAsInput::~CtrlZAsInput() {
    if (modes_.changed()) --g_ctrl_z_ends_lines;
}
