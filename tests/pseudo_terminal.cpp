#include "pseudo_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

// Whether the process sleeps in a call that reads or waits for input, or waits for a child that does. Where the system
// does not tell the call, sleeping is enough.
bool sleeps_in_read(pid_t pid) {
    if (state_of(pid) != 'S') return false;
    std::string call;  // its number, or "running"
    if (!(std::ifstream("/proc/" + std::to_string(pid) + "/syscall") >> call)) return true;
    for (const int reads : {SYS_read, SYS_readv, SYS_poll, SYS_ppoll, SYS_select, SYS_pselect6})
        if (call == std::to_string(reads)) return true;
    std::ifstream children("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
    pid_t child = 0;
    return call == std::to_string(SYS_wait4) && children >> child && sleeps_in_read(child);
}

// poll() on a terminal first moves what is still under way into its queue, so that the queue is seen as it is. A
// negative descriptor has nothing.
bool something_to_read(int fd, std::chrono::nanoseconds most = {}) {
    pollfd queue{fd, POLLIN, 0};
    const timespec limit{most.count() / 1'000'000'000, most.count() % 1'000'000'000};
    return ppoll(&queue, 1, &limit, nullptr) > 0 && (queue.revents & POLLIN);
}

winsize size_of(int rows, int cols) { return {static_cast<uint16_t>(rows), static_cast<uint16_t>(cols), 0, 0}; }

// What exec takes; the words have to stay.
std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> result;
    std::transform(words.begin(), words.end(), std::back_inserter(result), [](std::string& s) { return s.data(); });
    result.push_back(nullptr);
    return result;
}

}  // namespace

char state_of(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);  // nothing, if the process ends in this moment
    const size_t name_end = line.rfind(") ");
    return name_end == std::string::npos ? ' ' : line[name_end + 2];
}

PseudoTerminal::PseudoTerminal(const Command& command) {
    std::vector<std::string> words = command.words, lines = command.env;
    const std::vector<char*> args = pointers(words), env = pointers(lines);
    winsize size = size_of(command.rows, command.cols);
    if (openpty(&master_, &slave_, nullptr, nullptr, &size) != 0) throw std::runtime_error("no pseudo terminal");
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(master_, F_SETFL, O_NONBLOCK);
    fcntl(slave_, F_SETFD, FD_CLOEXEC);
    first_modes_ = modes();
    pid_ = vfork();  // fork would copy the tables of this program's pages, in time that seems to be the program's
    if (pid_ == 0) {
        // A test that runs in the background, or without a terminal, has some of them ignored.
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTSTP}) ::signal(number, SIG_DFL);
        login_tty(slave_);  // a session of its own, with the terminal on 0, 1 and 2
        if (chdir(command.directory.c_str()) != 0) _exit(126);
        execvpe(args[0], args.data(), command.env.empty() ? environ : env.data());
        _exit(127);
    }
}

PseudoTerminal::~PseudoTerminal() {
    if (running()) kill(-pid_, SIGKILL);
    hang_up();
    if (!ended_) waitpid(pid_, nullptr, 0);
}

size_t PseudoTerminal::write(std::string_view bytes) {
    const ssize_t n = ::write(master_, bytes.data(), bytes.size());
    return n > 0 ? static_cast<size_t>(n) : 0;
}

size_t PseudoTerminal::read(std::string& to) {
    char piece[65536];
    const ssize_t n = ::read(master_, piece, sizeof piece);
    if (n <= 0) return 0;
    to.append(piece, static_cast<size_t>(n));
    return static_cast<size_t>(n);
}

bool PseudoTerminal::output_within(std::chrono::nanoseconds most) const { return something_to_read(master_, most); }

bool PseudoTerminal::took_input() const { return !something_to_read(slave_); }

bool PseudoTerminal::waits_for_input() const { return took_input() && sleeps_in_read(pid_) && !output_within({}); }

void PseudoTerminal::resize(int rows, int cols) {
    const winsize size = size_of(rows, cols);
    ioctl(master_, TIOCSWINSZ, &size);
}

void PseudoTerminal::signal(int number) {
    if (running()) kill(pid_, number);
}

void PseudoTerminal::hang_up() {
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
    master_ = slave_ = -1;
}

bool PseudoTerminal::running() {
    int raw = 0;
    if (!ended_ && waitpid(pid_, &raw, WNOHANG) == pid_) {
        ended_ = true;
        ended_with_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
    }
    return !ended_;
}

termios PseudoTerminal::modes() const {
    termios modes{};
    tcgetattr(slave_, &modes);
    return modes;
}

bool PseudoTerminal::has_its_modes_back() const {
    const termios now = modes(), &then = first_modes_;
    return slave_ < 0 || (now.c_iflag == then.c_iflag && now.c_oflag == then.c_oflag && now.c_cflag == then.c_cflag &&
                          now.c_lflag == then.c_lflag && std::memcmp(now.c_cc, then.c_cc, sizeof now.c_cc) == 0);
}
