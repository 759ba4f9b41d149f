#include "screens/terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>
#include <vterm.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <set>

#include "screens/sleeping.h"

namespace screens {
namespace {

using Clock = std::chrono::steady_clock;

// The emulator marks the second half of a wide character so.
constexpr uint32_t SECOND_HALF = static_cast<uint32_t>(-1);

void append_utf8(std::string& text, uint32_t c) {
    if (c < 0x80) {
        text += static_cast<char>(c);
        return;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned LEAD[] = {0, 0xc0, 0xe0, 0xf0};
    text += static_cast<char>(LEAD[more] | (c >> (6 * more)));
    for (int i = more - 1; i >= 0; --i) text += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3f));
}

void cut_trailing(std::string& text, char c) { text.erase(text.find_last_not_of(c) + 1); }

std::set<const Terminal*>& alive() {
    static std::set<const Terminal*> terminals;
    return terminals;
}

// Prints the screens after a failed expectation.
class ScreenPrinter : public ::testing::EmptyTestEventListener {
    void OnTestPartResult(const ::testing::TestPartResult& result) override {
        if (!result.failed()) return;
        for (const Terminal* terminal : alive()) {
            const Position cursor = terminal->cursor();
            std::printf("screen, cursor at row %d, column %d:\n", cursor.row, cursor.col);
            std::string row;
            for (const char c : terminal->all()) {
                row += c;
                if (c != '\n') continue;
                std::printf("  |%s", row.c_str());
                row.clear();
            }
        }
        std::fflush(stdout);
    }
};

void print_screens_on_failure() {
    static const bool once = [] {
        ::testing::UnitTest::GetInstance()->listeners().Append(new ScreenPrinter);
        return true;
    }();
    static_cast<void>(once);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Position& position) {
    return out << "(" << position.row << ", " << position.col << ")";
}

// Between two bytes that no terminal sends.
std::string key_of(std::string_view capability) { return "\xfe" + std::string(capability) + "\xff"; }

struct Terminal::Screen {
    VTerm* terminal;
    VTermScreen* cells;
    std::string output;   // from the program
    std::string replies;  // to it
    size_t bells = 0, flashes = 0;
    bool flashing = false;

    Screen(int rows, int cols, bool utf8) : terminal(vterm_new(rows, cols)), cells(vterm_obtain_screen(terminal)) {
        static const VTermScreenCallbacks CALLBACKS = {
            .damage = nullptr,
            .moverect = nullptr,
            .movecursor = nullptr,
            .settermprop = [](VTermProp prop, VTermValue* value,
                              void* self) { return static_cast<Screen*>(self)->property(prop, value->boolean != 0); },
            .bell = [](void* self) { return static_cast<int>(++static_cast<Screen*>(self)->bells > 0); },
            .resize = nullptr,
            .sb_pushline = nullptr,
            .sb_popline = nullptr,
        };
        vterm_set_utf8(terminal, utf8);
        vterm_output_set_callback(
            terminal, [](const char* s, size_t n, void* self) { static_cast<Screen*>(self)->replies.append(s, n); },
            this);
        vterm_screen_enable_altscreen(cells, 1);
        vterm_screen_set_callbacks(cells, &CALLBACKS, this);
        vterm_screen_reset(cells, /*hard=*/1);
    }
    ~Screen() { vterm_free(terminal); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int property(VTermProp prop, bool on) {
        if (prop == VTERM_PROP_REVERSE) {
            flashes += on && !flashing;
            flashing = on;
        }
        return 1;
    }
    Position size() const {
        Position size{};
        vterm_get_size(terminal, &size.row, &size.col);
        return size;
    }
    VTermScreenCell cell(int row, int col) const {
        VTermScreenCell cell{};
        vterm_screen_get_cell(cells, {row, col}, &cell);
        return cell;
    }
};

Terminal::Terminal(Setup setup) : setup_(std::move(setup)) {
    print_screens_on_failure();
    if (!setup_.directory) {
        own_directory_ = std::make_unique<Scratch>();
        setup_.directory = own_directory_.get();
    }
    for (const auto& [name, bytes] : setup_.files) files().put(name, bytes);
    std::map<std::string, std::string> env = {
        {"HOME", files().root()}, {"LC_ALL", "C.UTF-8"}, {"PATH", "/usr/bin:/bin"}, {"TERM", setup_.type}};
    for (const auto& [name, value] : setup_.env) env[name] = value;
    setup_.env = env;
    screen_ = std::make_unique<Screen>(setup_.rows, setup_.cols, env["LC_ALL"].find("UTF-8") != std::string::npos);
    alive().insert(this);
    start();
    if (settle() && setup_.change) keys("CHANGE" + RETURN);
}

Terminal::~Terminal() {
    alive().erase(this);
    if (!ended_) kill(-pid_, SIGKILL);
    hang_up();
    reap(/*block=*/true);
}

void Terminal::start() {
    // All that allocates comes before the fork.
    std::vector<std::string> env_lines;
    for (const auto& [name, value] : setup_.env) env_lines.push_back(name + "=" + value);
    std::vector<char*> env, args{setup_.program.data()};
    for (std::string& line : env_lines) env.push_back(line.data());
    for (std::string& arg : setup_.args) args.push_back(arg.data());
    env.push_back(nullptr);
    args.push_back(nullptr);

    winsize size{};
    size.ws_row = static_cast<unsigned short>(setup_.rows);
    size.ws_col = static_cast<unsigned short>(setup_.cols);
    if (openpty(&master_, &slave_, nullptr, nullptr, &size) != 0) {
        ADD_FAILURE() << "no pseudo terminal: " << strerror(errno);
        ended_ = true;
        return;
    }
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(master_, F_SETFL, O_NONBLOCK);
    pid_ = fork();
    if (pid_ == 0) {
        // A test that runs in the background, or without a terminal, has some of them ignored.
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTSTP}) ::signal(number, SIG_DFL);
        login_tty(slave_);  // a session of its own, with the terminal on 0, 1 and 2
        if (chdir(setup_.directory->root().c_str()) != 0) _exit(126);
        execvpe(args[0], args.data(), env.data());
        _exit(127);
    }
    fcntl(slave_, F_SETFD, FD_CLOEXEC);
}

void Terminal::draw() {
    char piece[65536];
    for (ssize_t n; reading_ && master_ >= 0 && (n = read(master_, piece, sizeof piece)) > 0;) {
        screen_->output.append(piece, static_cast<size_t>(n));
        vterm_input_write(screen_->terminal, piece, static_cast<size_t>(n));
    }
    if (screen_->replies.empty() || master_ < 0) return;
    const ssize_t n = write(master_, screen_->replies.data(), screen_->replies.size());
    if (n > 0) screen_->replies.erase(0, static_cast<size_t>(n));
}

// Returns whether there is any.
bool Terminal::wait_for_output(std::chrono::milliseconds most) {
    pollfd fd{master_, POLLIN, 0};  // a negative descriptor only waits
    return poll(&fd, 1, static_cast<int>(most.count())) > 0 && (fd.revents & POLLIN);
}

// poll() on a terminal first moves what is still under way into its queue, so both queues are seen as they are.
bool Terminal::waits_for_input() const {
    pollfd unread{slave_, POLLIN, 0};
    if (slave_ >= 0 && poll(&unread, 1, 0) > 0 && (unread.revents & POLLIN)) return false;
    if (!sleeps_in_read(pid_)) return false;
    pollfd undrawn{master_, POLLIN, 0};
    return poll(&undrawn, 1, 0) <= 0 || !(undrawn.revents & POLLIN);
}

bool Terminal::settle() {
    return wait_until([this] { return ended_ || waits_for_input(); });
}

bool Terminal::wait_until(const std::function<bool()>& holds, std::chrono::milliseconds patience) {
    const auto end = Clock::now() + patience;
    while (true) {
        reap();
        draw();
        if (holds()) return true;
        if (Clock::now() >= end) break;
        wait_for_output(1ms);
    }
    ADD_FAILURE() << "waited " << patience.count() << " ms in vain";
    return false;
}

void Terminal::send(std::string_view what) {
    const std::string bytes = as_sent(what);
    const auto end = Clock::now() + PATIENCE;
    for (size_t done = 0; done < bytes.size() && master_ >= 0 && running();) {
        const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (Clock::now() >= end) {
            ADD_FAILURE() << "the program does not read: " << bytes.size() - done << " bytes left";
            return;
        }
        draw();
        if (done < bytes.size()) wait_for_output(1ms);
    }
}

void Terminal::keys(std::string_view what) {
    send(what);
    settle();
}

void Terminal::resize(int rows, int cols) {
    draw();
    vterm_set_size(screen_->terminal, rows, cols);
    winsize size{};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(cols);
    ioctl(master_, TIOCSWINSZ, &size);
    settle();
}

void Terminal::signal(int number) {
    if (running()) kill(pid_, number);
}

void Terminal::hang_up() {
    draw();
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
    master_ = slave_ = -1;
}

void Terminal::stop_reading() { reading_ = false; }

void Terminal::reap(bool block) {
    if (ended_ || pid_ <= 0) return;
    int raw = 0;
    if (waitpid(pid_, &raw, block ? 0 : WNOHANG) != pid_) return;
    ended_ = true;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
}

bool Terminal::running() {
    reap();
    return !ended_;
}

int Terminal::status() {
    if (!wait_until([this] { return ended_; })) return STILL_RUNNING;
    draw();
    return status_;
}

std::string Terminal::as_sent(std::string_view what) const {
    std::string bytes;
    while (!what.empty()) {
        const size_t from = what.find('\xfe');
        bytes += what.substr(0, from);
        if (from == std::string_view::npos) break;
        const size_t to = what.find('\xff', from);
        const std::string name(what.substr(from + 1, to - from - 1));
        what.remove_prefix(to + 1);

        const std::optional<std::string> sequence = terminfo_string(setup_.type, name);
        if (!sequence) ADD_FAILURE() << "terminal type " << setup_.type << " has no " << name;
        bytes += sequence.value_or("");
    }
    return bytes;
}

std::string Terminal::row(int number) const {
    const Position size = screen_->size();
    std::string text;
    for (int col = 0; number >= 0 && number < size.row && col < size.col; ++col) {
        const VTermScreenCell cell = screen_->cell(number, col);
        if (cell.chars[0] == SECOND_HALF) continue;
        if (cell.chars[0] == 0) text += ' ';
        for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i]; ++i) append_utf8(text, cell.chars[i]);
    }
    cut_trailing(text, ' ');
    return text;
}

std::string Terminal::all() const {
    std::string text;
    for (int number = 0; number < screen_->size().row; ++number) text += row(number) + "\n";
    cut_trailing(text, '\n');
    return text + "\n";
}

bool Terminal::has(int number, std::string_view text) const {
    return (number < 0 ? all() : row(number)).find(text) != std::string::npos;
}

std::string Terminal::reversed(int number) const {
    const Position size = screen_->size();
    std::string marks;
    for (int col = 0; number >= 0 && number < size.row && col < size.col; ++col)
        marks += (screen_->cell(number, col).attrs.reverse != 0) != screen_->flashing ? 'R' : '.';
    cut_trailing(marks, '.');
    return marks;
}

Position Terminal::cursor() const {
    VTermPos position{};
    vterm_state_get_cursorpos(vterm_obtain_state(screen_->terminal), &position);
    return {position.row, position.col};
}

size_t Terminal::bells() const { return screen_->bells; }
size_t Terminal::flashes() const { return screen_->flashes; }
const std::string& Terminal::output() const { return screen_->output; }
void Terminal::forget_output() { screen_->output.clear(); }

size_t Terminal::sent(std::string_view bytes) const {
    size_t count = 0;
    for (size_t from = 0; (from = output().find(bytes, from)) != std::string::npos; from += bytes.size()) ++count;
    return count;
}

termios Terminal::modes() const {
    termios modes{};
    tcgetattr(slave_, &modes);
    return modes;
}

pid_t Terminal::pid() const { return pid_; }
const Scratch& Terminal::files() const { return *setup_.directory; }

}  // namespace screens
