#include "screen/key_reader.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <curses.h>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>

#include "screen/curses_session.h"
#include "screen/n3_kpe_keymap.h"
#include "system/idle.h"
#include "system/interrupts.h"
#include "system/signals.h"
#include "system/terminal.h"
#include "system/wait.h"

namespace {

// After this time the bytes of a sequence are no sequence any more: Escape was pressed by itself.
constexpr timespec ESCAPE_DELAY = {0, 25'000'000};

std::string g_paste;
size_t g_keys_read = 0, g_cancels_read = 0, g_typed_before = 0;

int counted(int key) {
    ++g_keys_read;
    if (key == kpe_ctrl('C')) ++g_cancels_read;
    return key;
}

// Makes keys of bytes by the sequences that curses knows. Curses could read them itself, but not without asking
// the terminal twice more for every byte.
class KeyDecoder {
public:
    void add(char byte) { bytes_ += byte; }
    // Whether bytes wait for others.
    bool begun() const { return !bytes_.empty(); }
    // The next key; nothing when there is none, or while it may become a longer sequence, unless no more bytes come.
    std::optional<int> key(bool no_more) {
        if (bytes_.empty()) return std::nullopt;
        const size_t end = std::min(bytes_.find('\0'), bytes_.size());  // a NUL ends what curses looks at
        for (size_t size = 1; size <= end; ++size) {
            const std::string start = bytes_.substr(0, size);
            const int code = key_defined(start.c_str());
            if (code == ERR) continue;  // it begins longer sequences
            return code == OK ? take_byte() : take(kpe_length_of(code, start), code);
        }
        if (end == bytes_.size() && !no_more) return std::nullopt;
        for (size_t size = end; size > 0; --size) {
            if (const int code = kpe_code_of(bytes_.substr(0, size)); code != 0) return take(size, code);
        }
        return take_byte();
    }

private:
    int take(size_t size, int code) {
        bytes_.erase(0, size);
        return code;
    }
    int take_byte() { return take(1, static_cast<unsigned char>(bytes_.front())); }

    std::string bytes_;
};

KeyDecoder g_decoder;

bool signal_noted() { return kpe_terminal_signal_noted() || g_kpe_abort_requested || g_kpe_end_signal; }

bool byte_waits() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) > 0;
}

Waited wait_at_most(const timespec* limit) {
    static const sigset_t signals = kpe_ending_signals_and({SIGWINCH, SIGTSTP, SIGCONT});
    return kpe_wait({.signals = signals, .noted = signal_noted, .limit = limit});
}

// Without a limit, does what was put off until nothing is typed.
Waited wait_for_byte(const timespec* limit) {
    if (limit) return wait_at_most(limit);
    for (;;) {
        const std::optional<timespec> idle = IdleWork::longest_wait();
        const Waited waited = wait_at_most(idle ? &*idle : nullptr);
        if (waited != Waited::TimeUp) return waited;
        IdleWork::do_due();
    }
}

// One byte and no more: what was typed ahead stays the terminal's, for a command that reads lines. false: there
// will be no more.
bool read_byte() {
    char byte = 0;
    const ssize_t n = read(STDIN_FILENO, &byte, 1);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (n <= 0) return false;
    if (g_typed_before > 0) {
        --g_typed_before;
        if (byte == KPE_LINEFEED) byte = KPE_RETURN;
    }
    g_decoder.add(byte);
    return true;
}

}  // namespace

std::string kpe_take_paste() { return std::exchange(g_paste, {}); }

size_t kpe_keys_read() { return g_keys_read; }

size_t kpe_cancels_read() { return g_cancels_read; }

void kpe_expect_typed_before(size_t bytes) { g_typed_before = bytes; }

bool kpe_terminal_gone() {
    pollfd input = {STDIN_FILENO, 0, 0};
    return poll(&input, 1, 0) > 0;
}

int kpe_read_key(bool pc_keypad, const KpeDraw& draw) {
    bool drawn = false;
    for (bool no_more = false;;) {
        if (signal_noted()) {
            if (kpe_follow_terminal()) {
                draw(/*anew=*/true);
                drawn = true;
            }
            if (g_kpe_end_signal) return ERR;
            if (g_kpe_abort_requested) {
                kpe_forget_interrupt();
                return counted(kpe_ctrl('C'));
            }
        }
        if (const auto key = g_decoder.key(no_more)) return counted(kpe_normalize_key(*key, pc_keypad));
        const bool inside = g_decoder.begun();
        if (inside || drawn || !byte_waits()) {
            if (!inside && !drawn) draw(/*anew=*/false);
            drawn = drawn || !inside;
            const Waited waited = wait_for_byte(inside ? &ESCAPE_DELAY : nullptr);
            no_more = waited == Waited::TimeUp;
            if (waited != Waited::Input) continue;
        }
        if (!read_byte()) return ERR;
    }
}
