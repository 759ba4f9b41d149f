#include "screen/key_reader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <curses.h>
#include <new>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "editor/key_decoder.h"
#include "editor/on_screen.h"
#include "screen/curses_session.h"
#include "screen/key_modes.h"
#include "screen/n3_kpe_keymap.h"
#include "system/idle.h"
#include "system/input.h"
#include "system/interrupts.h"
#include "system/locale.h"
#include "system/signals.h"
#include "system/terminal.h"
#include "system/wait.h"

namespace {

using namespace std::chrono_literals;

// So long a terminal may take to answer before the screen is given back: otherwise its answer comes to line mode.
constexpr auto ANSWERS_COME = 100ms;
// So long an answer is taken for one at the start of a line.
constexpr auto ANSWERS_COME_LATE = 60s;
// In a paste, a Ctrl/C behind so long a silence was typed: the end of the paste was lost.
constexpr auto PASTE_SILENCE = 100ms;

PasteText g_paste;
KeyRecord* g_record = nullptr;
size_t g_keys_read = 0, g_cancels_read = 0, g_typed_before = 0;

int counted(int key) {
    ++g_keys_read;
    if (key == kpe_ctrl('C')) ++g_cancels_read;
    return key;
}

KeyDecoder g_decoder({key_defined, kpe_length_of, kpe_code_of});

bool signal_noted() { return kpe_terminal_signal_noted() || g_kpe_abort_requested || g_kpe_end_signal; }

bool byte_waits() {
    if (kpe_raw_waits()) return true;
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) > 0;
}

Waited wait_at_most(const timespec* limit) {
    static const sigset_t signals = kpe_ending_signals_and({SIGWINCH, SIGTSTP, SIGCONT});
    if (kpe_raw_waits()) return Waited::Input;
    return kpe_wait({.signals = signals, .noted = signal_noted, .limit = limit});
}

Waited wait_at_most(std::chrono::milliseconds limit) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(limit);
    const timespec time = {seconds.count(), std::chrono::nanoseconds(limit - seconds).count()};
    return wait_at_most(&time);
}

// Does what was put off until nothing is typed.
Waited wait_for_byte() {
    for (;;) {
        const std::optional<timespec> idle = IdleWork::longest_wait();
        const Waited waited = wait_at_most(idle ? &*idle : nullptr);
        if (waited != Waited::TimeUp) return waited;
        IdleWork::do_due();
    }
}

// Into bytes, which is size long: 0 when nothing came, nothing when there will be no more.
std::optional<size_t> read_some(char* bytes, size_t size) {
    const ssize_t n = kpe_read_raw(bytes, size);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return 0;
    if (n <= 0) return std::nullopt;
    return static_cast<size_t>(n);
}

// One byte and no more: what was typed ahead stays the terminal's, for a command that reads lines. false: there
// will be no more.
bool read_byte() {
    char byte = 0;
    const auto read = read_some(&byte, 1);
    if (!read) return false;
    if (*read == 0) return true;
    if (g_typed_before > 0) {
        --g_typed_before;
        if (byte == KPE_LINEFEED) byte = KPE_RETURN;
    }
    if (g_record) g_record->bytes += byte;
    g_decoder.add(byte);
    return true;
}

// Once for all that was dropped since a key was read, or since nothing was typed.
void ring_for_broken() {
    if (g_decoder.take_broken()) kpe_beep();
}

std::optional<int> decoded_key(bool no_more) {
    const auto key = g_decoder.key(no_more);
    kpe_note_answers(g_decoder.answers());
    return key;
}

// --- Pastes ---

// Whether the bytes are Ctrl/C, in one of the forms in which it comes.
bool is_cancel(std::string_view bytes) {
    KeyDecoder decoder({key_defined, kpe_length_of, kpe_code_of});
    for (const char byte : bytes) decoder.add(byte);
    const bool cancel = decoder.key(/*no_more=*/true) == kpe_ctrl('C');
    return cancel && !decoder.begun();
}

// What the wait in a paste that is not complete has brought.
enum class PasteEvent { Input, Silence, Signal, Ends };

PasteEvent wait_in_paste(bool silence, const KpeDraw& draw) {
    if (!signal_noted() && byte_waits()) return PasteEvent::Input;
    const Waited waited = silence ? wait_for_byte() : wait_at_most(PASTE_SILENCE);
    if (waited == Waited::Input) return PasteEvent::Input;
    if (waited == Waited::TimeUp) return PasteEvent::Silence;
    if (g_kpe_end_signal) return PasteEvent::Ends;
    if (kpe_terminal_signal_noted() && kpe_follow_terminal()) draw(/*anew=*/true);
    if (!g_kpe_abort_requested) return PasteEvent::Signal;
    kpe_forget_interrupt();
    return PasteEvent::Ends;
}

// Reads the text up to its end, in blocks; what came behind it is given back.
void read_paste(const KpeDraw& draw) {
    static char block[KPE_RAW_BLOCK];
    g_paste = {};
    g_typed_before = 0;
    for (bool silence = false; !g_paste.ended();) {
        const PasteEvent event = wait_in_paste(silence, draw);
        if (event == PasteEvent::Ends) return;
        if (event == PasteEvent::Silence) silence = true;
        if (event != PasteEvent::Input) continue;
        const auto read = read_some(block, sizeof block);
        if (!read) return;
        const std::string_view bytes(block, *read);
        if (silence && is_cancel(bytes)) return;
        silence = silence && bytes.empty();
        kpe_give_back(bytes.substr(g_paste.add(bytes)));
    }
}

// --- Answers ---

// Has the decoder take the answers out of bytes. Returns what is left.
std::string without_answers(std::string_view bytes) {
    std::string left;
    while (!bytes.empty()) {
        const size_t size = kpe_answer_size(bytes);
        if (size == 0) {
            const size_t next = std::min(bytes.find('\033', 1), bytes.size());
            left += bytes.substr(0, next);
            bytes.remove_prefix(next);
            continue;
        }
        g_decoder.take_answer(bytes.substr(0, size));
        bytes.remove_prefix(size);
    }
    kpe_note_answers(g_decoder.answers());
    return left;
}

}  // namespace

// Memory that ends meanwhile is no reason not to leave the screen.
void kpe_await_answers() try {
    constexpr int POLL_MILLISECONDS = 10;
    std::string bytes = kpe_terminal_owes_answer(ANSWERS_COME) ? g_decoder.take_bytes() : "";
    while (kpe_terminal_owes_answer(ANSWERS_COME) && bytes.size() < KPE_RAW_BLOCK) {  // more could not be given back
        std::array<char, 4096> block;
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        if (!kpe_raw_waits() && poll(&input, 1, POLL_MILLISECONDS) <= 0) continue;
        const auto read = read_some(block.data(), std::min(block.size(), KPE_RAW_BLOCK - bytes.size()));
        if (!read) break;
        bytes.append(block.data(), *read);
        bytes = without_answers(bytes);
    }
    kpe_give_back(bytes);
    kpe_expect_answers(kpe_terminal_owes_answer(ANSWERS_COME_LATE));
} catch (const std::bad_alloc&) {
}

std::string kpe_take_paste() {
    if (g_paste.lost()) throw std::bad_alloc();
    return g_paste.take();
}

void kpe_record_keys(KeyRecord* record) { g_record = record; }

size_t kpe_keys_read() { return g_keys_read; }

size_t kpe_cancels_read() { return g_cancels_read; }

void kpe_expect_typed_before(size_t bytes) { g_typed_before = bytes; }

bool kpe_terminal_gone() {
    pollfd input = {STDIN_FILENO, 0, 0};
    return poll(&input, 1, 0) > 0;
}

int kpe_read_key(bool pc_keypad, const KpeDraw& draw) {
    g_decoder.set_utf8(kpe_utf8_locale());
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
        if (const auto key = decoded_key(no_more)) {
            ring_for_broken();
            if (*key == KPE_PASTE) read_paste(draw);
            return counted(kpe_normalize_key(*key, pc_keypad));
        }
        const bool inside = g_decoder.begun();
        if (g_record && !inside && !g_record->bytes.empty()) g_record->dropped();
        if (inside || drawn || !byte_waits()) {
            if (!inside && g_decoder.broken() && !byte_waits()) ring_for_broken();
            if (!inside && !drawn) draw(/*anew=*/false);
            drawn = drawn || !inside;
            const Waited waited =
                inside ? wait_at_most(g_decoder.patience(kpe_terminal_owes_answer(ANSWERS_COME))) : wait_for_byte();
            no_more = waited == Waited::TimeUp;
            if (waited != Waited::Input) continue;
        }
        if (read_byte()) continue;
        if (!g_decoder.begun()) {
            ring_for_broken();
            return ERR;
        }
        no_more = true;
    }
}
