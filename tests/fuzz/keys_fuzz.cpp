#include <algorithm>
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

#include "fuzz/session.h"
#include "fuzz/targets.h"

namespace {

// In front of two bytes for a new size; in no key and no character.
constexpr char RESIZE = '\xfe';

// A terminal that reads away what is shown, and hangs up when the typing is over.
class FuzzTerminal {
public:
    explicit FuzzTerminal(std::string_view typed) : typed_(typed) {
        termios raw = {};
        cfmakeraw(&raw);
        winsize size = {.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
        const bool made = openpty(&master_, &screen_, nullptr, &raw, &size) == 0 && pipe2(end_.data(), O_CLOEXEC) == 0;
        fuzz_check(made, "a terminal can be made");
        reader_ = std::thread([this] { read_away(); });
    }
    ~FuzzTerminal() {
        close(end_[1]);
        reader_.join();
        for (const int fd : {end_[0], screen_, master_})
            if (fd >= 0) close(fd);
    }
    FuzzTerminal(const FuzzTerminal&) = delete;
    FuzzTerminal& operator=(const FuzzTerminal&) = delete;

    int screen() const { return screen_; }

    // Types on up to the next change of size, which comes first; hangs up when nothing is left.
    void type_on() {
        if (typed_.empty()) {
            hang_up();
            return;
        }
        if (typed_.front() == RESIZE && typed_.size() > 2) {
            winsize size = {};
            size.ws_row = static_cast<unsigned short>(1 + static_cast<unsigned char>(typed_[1]) % 60);
            size.ws_col = static_cast<unsigned short>(1 + static_cast<unsigned char>(typed_[2]));
            ioctl(screen_, TIOCSWINSZ, &size);
            std::raise(SIGWINCH);
            typed_.remove_prefix(3);
            if (typed_.empty()) return;
        }
        const std::string_view piece = typed_.substr(0, std::min(typed_.find(RESIZE, 1), MOST_AT_ONCE));
        typed_.remove_prefix(piece.size());
        fuzz_check(write(master_, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()), "keys are taken");
    }

private:
    static constexpr size_t MOST_AT_ONCE = 1024;

    // The reader has the master too, so it is the reader that lets go of it.
    void hang_up() {
        close(end_[1]);
        end_[1] = -1;
        reader_.join();
        close(master_);
        master_ = -1;
        reader_ = std::thread([] {});
    }
    void read_away() const {
        std::array<char, 4096> shown;
        std::array<pollfd, 2> waits = {{{master_, POLLIN, 0}, {end_[0], 0, 0}}};
        while (poll(waits.data(), waits.size(), -1) >= 0 && waits[1].revents == 0) {
            if (read(master_, shown.data(), shown.size()) <= 0) return;
        }
    }

    std::string_view typed_;
    int master_ = -1, screen_ = -1;
    std::array<int, 2> end_ = {-1, -1};
    std::thread reader_;
};

}  // namespace

// A byte of options, and keys.
void fuzz_keys(std::string_view input) {
    const unsigned options = input.empty() ? 0 : static_cast<unsigned char>(input.front());
    input.remove_prefix(std::min<size_t>(1, input.size()));
    // None of them has a flash, which would last a tenth of a second at each bell.
    constexpr const char* TYPES[] = {"vt220", "linux", "vt100", "vt52"};
    fuzz_clear_directory();
    fuzz_directory().put("t.txt",
                         "alpha beta\n\tgamma  delta\n\nDon't (stop) here.\n\xe6\x97\xa5 \xff\x1b[1m\n100 last");
    setenv("TERM", TYPES[options & 3], 1);
    const std::string keys = "CHANGE\n" + std::string(input);
    FuzzTerminal terminal(keys);
    FuzzSession session;
    session.terminal = terminal.screen();
    session.read_only = (options & 12) == 12;
    session.on_wait = [&] { terminal.type_on(); };
    fuzz_run(session);
}
