// screen_bench KPE [NAME FILE LINES]...: how long full-screen editors take from a key to the last byte of what it
// changes on the screen, through a pty, on files of growing size. Milliseconds: for keys the median of a session, and
// of three sessions the shortest; else the shortest of some runs.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/screens/sleeping.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Kind {
    std::string name;
    std::function<std::vector<std::string>(const std::string& file, size_t line)> command;
    std::function<std::string(size_t line)> enter;  // keys that bring up the screen
    std::string type, page_down, find;              // before text is typed; a page; before what is searched for
};

struct File {
    std::string label, path;
    size_t lines;
};

// The watching process and the editor on processors of their own: else the scheduler's choice decides the times.
void pin_to(int processor) {
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(processor, &only);
    sched_setaffinity(0, sizeof only, &only);
}

// An editor on a pty of 24 rows and 80 columns, its screen up and complete.
class Session {
public:
    Session(const Kind& kind, const std::string& file, size_t line) {
        const std::vector<std::string> words = kind.command(file, line);
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);
        winsize size{24, 80, 0, 0};
        const auto start = Clock::now();
        if (openpty(&master_, &slave_, nullptr, nullptr, &size) != 0) throw std::runtime_error("no pseudo terminal");
        fcntl(master_, F_SETFD, FD_CLOEXEC);
        fcntl(master_, F_SETFL, O_NONBLOCK);
        pid_ = fork();
        if (pid_ == 0) {
            login_tty(slave_);
            pin_to(1);
            setenv("TERM", "xterm-256color", 1);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        started_ = time(kind.enter(line), start);
    }
    ~Session() {
        kill(-pid_, SIGKILL);
        close(master_);
        close(slave_);
        waitpid(pid_, nullptr, 0);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // From the start of the process to the last byte of the first screen.
    double started() const { return started_; }
    // Bytes that the last time() received.
    size_t received() const { return received_; }

    double time(const std::string& keys) { return time(keys, Clock::now()); }
    // Of a key pressed count times, each time after another that is not timed.
    double median(const std::string& key, int count, const std::string& before = "") {
        std::vector<double> times;
        for (int i = 0; i < count; ++i) {
            if (!before.empty()) time(before);
            times.push_back(time(key));
        }
        std::nth_element(times.begin(), times.begin() + count / 2, times.end());
        return times[static_cast<size_t>(count / 2)];
    }

private:
    // Milliseconds from start to the last byte that came before the editor slept in a read again.
    double time(const std::string& keys, Clock::time_point start) {
        if (write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
            throw std::runtime_error("the editor takes no keys");
        auto last = start;
        received_ = 0;
        char piece[65536];
        while (true) {
            const ssize_t n = read(master_, piece, sizeof piece);
            if (n > 0) {
                last = Clock::now();
                received_ += static_cast<size_t>(n);
            } else if (output_within(std::chrono::microseconds(300))) {
                continue;
            } else if (idle()) {
                break;
            } else if (Clock::now() - start > std::chrono::minutes(3) || waitpid(pid_, nullptr, WNOHANG) != 0) {
                throw std::runtime_error("the editor ended or hangs");
            }
        }
        return std::chrono::duration<double, std::milli>(last - start).count();
    }
    // Sleeps that long at most, so as not to disturb what it measures.
    bool output_within(std::chrono::nanoseconds most) const {
        pollfd output{master_, POLLIN, 0};
        const timespec limit{0, most.count()};
        return ppoll(&output, 1, &limit, nullptr) > 0;
    }
    bool idle() const {
        pollfd unread{slave_, POLLIN, 0};
        if (poll(&unread, 1, 0) > 0 || !sleeps_in_read(pid_)) return false;
        pollfd unseen{master_, POLLIN, 0};
        return poll(&unseen, 1, 0) == 0;
    }

    int master_ = -1, slave_ = -1;
    pid_t pid_ = -1;
    double started_ = 0;
    size_t received_ = 0;
};

std::vector<Kind> kinds(const std::string& kpe) {
    const auto nothing = [](size_t) { return std::string(); };
    const auto plus = [](size_t line) { return "+" + std::to_string(line); };
    return {
        {"kpe",
         [kpe](const std::string& file, size_t) {
             return std::vector<std::string>{kpe, file};
         },
         [](size_t line) { return (line > 1 ? std::to_string(line) + "\r" : "") + "CHANGE\r\002"; }, "", "\033[6~",
         "\033OP\033OR"},
        {"vim",
         [plus](const std::string& file, size_t line) {
             return std::vector<std::string>{"vim", "-N", "-u", "NONE", "-i", "NONE", "-n", plus(line), file};
         },
         nothing, "i", "\006", "/"},
        {"ne",
         [plus](const std::string& file, size_t line) {
             return std::vector<std::string>{"ne", "--no-config", plus(line), file};
         },
         nothing, "", "\033[6~", "\006"},
        {"nano",
         [plus](const std::string& file, size_t line) {
             return std::vector<std::string>{"nano", "--ignorercfiles", plus(line), file};
         },
         nothing, "", "\033[6~", "\027"},
    };
}

const std::vector<std::string> MEASURES = {
    "first screen", "typed key", "Return", "Delete", "page down", "bytes for a typed key", "search half of the file"};
using Result = std::map<std::string, double>;  // by measure

// Lowers the figures of result to those of a session in the middle of the file.
void measure_keys(const Kind& kind, const File& file, Result& result) {
    Session session(kind, file.path, file.lines / 2);
    const auto lower = [&](const char* what, double time) {
        const auto known = result.find(what);
        result[what] = known == result.end() ? time : std::min(time, known->second);
    };
    lower("page down", session.median(kind.page_down, 41));
    if (!kind.type.empty()) session.time(kind.type);
    lower("typed key", session.median("x", 51));
    lower("bytes for a typed key", static_cast<double>(session.received()));
    lower("Return", session.median("\r", 41, "x"));  // else the screen soon stays as it is
    lower("Delete", session.median("\033[3~", 41));
}

Result measure(const Kind& kind, const File& file) {
    Result result;
    const int runs = file.lines > 100000 ? 3 : 11;
    std::vector<double> starts, searches;
    for (int i = 0; i < runs; ++i) {
        Session session(kind, file.path, 1);
        starts.push_back(session.started());
        session.time(kind.find);
        session.time("needle-in-the-middle");
        searches.push_back(session.time("\r"));
    }
    result["first screen"] = *std::min_element(starts.begin(), starts.end());
    result["search half of the file"] = *std::min_element(searches.begin(), searches.end());

    for (int i = 0; i < 3; ++i) measure_keys(kind, file, result);
    return result;
}

void print_row(const std::string& label, double kpe, double other, double wanted) {
    const double ratio = other > 0 ? kpe / other : 0;
    std::printf("%-58s %10.4f %10.4f %7.3f ", label.c_str(), kpe, other, ratio);
    if (wanted > 0)
        std::printf("%8.2f %s\n", wanted, ratio <= wanted ? "reached" : "MISSED");
    else
        std::printf("%8s\n", "-");
    std::fflush(stdout);
}

struct Want {
    std::vector<std::string> beside;
    double ratio;  // 0: none
};
const std::map<std::string, Want> WANTED = {
    {"first screen", {{"vim"}, 0.30}},
    {"typed key", {{"vim", "ne"}, 1.2}},
    {"Return", {{"vim", "ne"}, 1.2}},
    {"Delete", {{"vim", "ne"}, 1.2}},
    {"page down", {{"vim", "ne", "nano"}, 1.2}},
    {"bytes for a typed key", {{"vim", "ne", "nano"}, 0}},
    {"search half of the file", {{"vim", "ne", "nano"}, 0.6}},
};

void compare(const std::vector<Kind>& editors, const std::vector<File>& files) {
    std::map<std::string, double> smallest;  // kpe's time on the first file
    for (const File& file : files) {
        std::map<std::string, Result> results;
        for (const Kind& kind : editors) results[kind.name] = measure(kind, file);
        for (const std::string& what : MEASURES) {
            const Want& want = WANTED.at(what);
            std::string best = want.beside[0];
            for (const std::string& name : want.beside)
                if (results[name][what] < results[best][what]) best = name;
            const double kpe = results["kpe"][what];
            print_row(what + ", " + file.label + ": " + best, kpe, results[best][what], want.ratio);
            if (smallest.count(what) == 0)
                smallest[what] = kpe;
            else if (what == "typed key" || what == "Return" || what == "Delete")
                print_row(what + ", " + file.label + ": the same in " + files[0].label, kpe, smallest[what], 1.2);
        }
    }
}

// A key at the end of a line of 1 MB, beside one at the end of a short line.
void long_line(const Kind& kpe) {
    double times[2] = {};
    const size_t lengths[2] = {60, 1000000};
    for (size_t i = 0; i < 2; ++i) {
        const std::string path = "line" + std::to_string(i) + ".txt";
        std::FILE* file = std::fopen(path.c_str(), "w");
        if (!file) throw std::runtime_error("cannot write " + path);
        std::fprintf(file, "first\n%s\nlast\n", std::string(lengths[i], 'w').c_str());
        std::fclose(file);
        Session session(kpe, path, 2);
        times[i] = session.median("x", 51);
    }
    print_row("typed key on a line of 1 MB: on a short line", times[1], times[0], 10);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc % 3 != 2) {
        std::fputs("usage: kpe_screen_bench KPE [NAME FILE LINES]...\n", stderr);
        return 2;
    }
    pin_to(0);
    std::vector<File> files;
    for (int i = 2; i < argc; i += 3) files.push_back({argv[i], argv[i + 1], std::strtoul(argv[i + 2], nullptr, 10)});
    try {
        const std::vector<Kind> editors = kinds(argv[1]);
        compare(editors, files);
        long_line(editors[0]);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "kpe_screen_bench: %s\n", problem.what());
        return 1;
    }
}
