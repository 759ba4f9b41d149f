#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vterm.h>

#include "fuzz/session.h"
#include "fuzz/targets.h"
#include "system/terminal.h"

namespace {

// What the emulator has in the second cell of a wide character; the first one tells how both look.
constexpr uint32_t BEHIND_WIDE = UINT32_MAX;
// In no key and no character: wait until all before is drawn, and the same in front of two bytes for a new size.
constexpr char DRAWN = '\xfd', RESIZE = '\xfe';
constexpr std::string_view BREAKS = "\xfd\xfe";
// Shows nothing; the terminal has all that was written before it once it has this.
constexpr std::string_view MARK = "\033]kpe\007";

// A terminal on which the input is typed, and which hangs up at its end. Whenever the size changes, and at the
// end, what it shows must be what it shows after everything is drawn anew.
class FuzzTerminal {
public:
    explicit FuzzTerminal(std::string_view typed) : typed_(typed), emulator_(vterm_new(24, 80)) {
        vterm_set_utf8(emulator_, 1);
        vterm_screen_enable_altscreen(vterm_obtain_screen(emulator_), 1);
        vterm_screen_reset(vterm_obtain_screen(emulator_), 1);
        termios raw = {};
        cfmakeraw(&raw);
        const winsize size = {.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
        const bool made = openpty(&master_, &screen_, nullptr, &raw, &size) == 0 && pipe(end_.data()) == 0;
        fuzz_check(made, "a terminal can be made");
        reader_ = std::thread([this] { show_all(); });
    }
    ~FuzzTerminal() {
        hang_up();
        close(screen_);
        vterm_free(emulator_);
    }
    FuzzTerminal(const FuzzTerminal&) = delete;
    FuzzTerminal& operator=(const FuzzTerminal&) = delete;

    int screen() const { return screen_; }

    // The session waits for a key, with all of its state drawn.
    void type_on() {
        const bool whole = typed_.empty() || typed_.front() == RESIZE;
        if (shown_before_) {
            const std::string anew = g_curses_active ? shown() : *shown_before_;
            fuzz_check(anew == *shown_before_, "drawn anew the screen is the same", *shown_before_ + "\n---\n" + anew);
            shown_before_.reset();
        } else if (whole && g_curses_active) {
            shown_before_ = shown();
            std::raise(SIGWINCH);
            return;
        }
        while (typed_.starts_with(RESIZE) || typed_.starts_with(DRAWN)) {
            const bool resized = typed_.front() == RESIZE;
            typed_.remove_prefix(1);
            if (resized) resize();
            if (resized && g_curses_active) return;
        }
        if (typed_.empty())
            hang_up();
        else
            type();
    }

private:
    static constexpr size_t MOST_AT_ONCE = 1024;

    // Up to the next mark.
    void type() {
        const size_t end = typed_.find_first_of(BREAKS);
        const std::string_view piece = typed_.substr(0, std::min(end, MOST_AT_ONCE));
        typed_.remove_prefix(piece.size());
        fuzz_check(write(master_, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()), "keys are taken");
    }
    // Never one column: the emulator fails on a wide character there.
    void resize() {
        const int rows = 1 + (typed_.size() > 1 ? static_cast<unsigned char>(typed_[0]) % 60 : 23);
        const int cols = 2 + (typed_.size() > 1 ? static_cast<unsigned char>(typed_[1]) % 150 : 78);
        typed_.remove_prefix(std::min<size_t>(2, typed_.size()));
        winsize size = {};
        size.ws_row = static_cast<unsigned short>(rows);
        size.ws_col = static_cast<unsigned short>(cols);
        wait_until_shown();
        vterm_set_size(emulator_, rows, cols);
        ioctl(screen_, TIOCSWINSZ, &size);
        std::raise(SIGWINCH);
    }
    void hang_up() {
        if (master_ < 0) return;
        close(end_[1]);  // the reader lets go of the terminal first
        reader_.join();
        close(end_[0]);
        close(master_);
        master_ = -1;
    }

    // On a thread of its own: the session must never wait for somebody who reads.
    void show_all() {
        std::array<char, 4096> bytes;
        std::array<pollfd, 2> waits = {{{master_, POLLIN, 0}, {end_[0], 0, 0}}};
        std::string last;
        while (poll(waits.data(), waits.size(), -1) >= 0 && waits[1].revents == 0) {
            const ssize_t size = read(master_, bytes.data(), bytes.size());
            if (size <= 0) return;
            const std::lock_guard lock(mutex_);
            vterm_input_write(emulator_, bytes.data(), static_cast<size_t>(size));
            last.append(bytes.data(), static_cast<size_t>(size));
            if (last.size() > MARK.size()) last.erase(0, last.size() - MARK.size());
            if (last != MARK) continue;
            marked_ = true;
            seen_.notify_one();
        }
    }
    void wait_until_shown() {
        std::unique_lock lock(mutex_);
        marked_ = false;
        lock.unlock();  // the reader may have to make room for the mark
        fuzz_check(write(screen_, MARK.data(), MARK.size()) == static_cast<ssize_t>(MARK.size()), "the mark is taken");
        lock.lock();
        seen_.wait(lock, [this] { return marked_; });
    }
    // The cursor and the rows, with "~" before a cell in reverse video and codes for what is no ASCII.
    std::string shown() {
        wait_until_shown();
        VTermPos cursor = {}, size = {};
        vterm_state_get_cursorpos(vterm_obtain_state(emulator_), &cursor);
        vterm_get_size(emulator_, &size.row, &size.col);
        std::string all = std::to_string(cursor.row) + ", " + std::to_string(cursor.col);
        for (VTermPos at = {0, 0}; at.row < size.row; ++at.row, at.col = 0) {
            all += '\n';
            if (at.row == size.row - 2) continue;  // a prompt leaves the status of the key before until all is drawn
            for (; at.col < size.col; ++at.col) {
                VTermScreenCell cell = {};
                vterm_screen_get_cell(vterm_obtain_screen(emulator_), at, &cell);
                if (cell.chars[0] == BEHIND_WIDE) continue;
                if (cell.attrs.reverse) all += '~';
                if (cell.chars[0] == 0) all += ' ';
                for (size_t i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; ++i) {
                    const uint32_t c = cell.chars[i];
                    all += c < 127 ? std::string(1, static_cast<char>(c)) : "<" + std::to_string(c) + ">";
                }
            }
        }
        return all;
    }

    std::string_view typed_;
    VTerm* emulator_;
    int master_ = -1, screen_ = -1;
    std::array<int, 2> end_ = {-1, -1};
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable seen_;
    bool marked_ = false;
    std::optional<std::string> shown_before_;
};

}  // namespace

// A byte of options, and keys.
void fuzz_keys(std::string_view input) {
    const unsigned options = input.empty() ? 0 : static_cast<unsigned char>(input.front());
    input.remove_prefix(std::min<size_t>(1, input.size()));
    constexpr const char* TYPES[] = {"xterm-256color", "linux", "vt220", "screen"};
    fuzz_clear_directory();
    fuzz_directory().put("t.txt",
                         "alpha beta\n\tgamma  delta\n\nDon't (stop) here.\n\xe6\x97\xa5 \xff\x1b[1m\n100 last");
    setenv("TERM", TYPES[options & 3], 1);
    std::string keys = "CHANGE\n" + std::string(input);
    // Echoed in line mode, the first byte of a character alone would wait in the emulator for the next character.
    for (char& c : keys)
        if (c >= '\xc0' && c < DRAWN) c = static_cast<char>(c & '\xbf');
    FuzzTerminal terminal(keys);
    FuzzSession session;
    session.terminal = terminal.screen();
    session.read_only = (options & 12) == 12;
    session.on_wait = [&] { terminal.type_on(); };
    fuzz_run(session);
}
