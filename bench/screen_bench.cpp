// screen_bench EDITOR PROGRAM FILE LINES COPY: how long a full-screen editor takes, through a pty, from a key to the
// last byte of what it changes on the screen. Prints a line a measure: its name, milliseconds (of keys the median), the
// 99th percentile (0 for single events), and the most memory used in kilobytes. The editor works on COPY, a copy of the
// log FILE; what it saved is compared. With LINES 0 FILE is any file and only keys are typed into its second line; with
// "cat" as EDITOR and "sh" as PROGRAM that shows what the pty takes.
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/pseudo_terminal.h"

namespace {

using Clock = std::chrono::steady_clock;

// The keys of an editor. "%" in an option or in go stands for the number of the line to begin on.
struct Kind {
    std::string name;
    std::vector<std::string> options;
    std::string go, open;               // typed at once: to a line other than the first; brings up the screen
    std::string page_down, find;        // find is followed by the text and Return
    std::string text, end;              // into typing text and back
    std::string ahead_of_write, write;  // write is the key that then writes the file
    std::string ahead_of_undo, undo;    // undo is the key that then takes back what was typed last
};
// clang-format off
const std::vector<Kind> KINDS = {
    {"kpe", {}, "%\r", "CHANGE\r\002",
     "\033[6~", "\033OP\033OR", "", "", "\033OP\033OwTYPE . /SAVE", "\r", "\033OP\033OwUNDO", "\r"},
    {"vim", {"-N", "-u", "NONE", "-i", "NONE", "-n", "+%"}, "", "",
     "\006", "/", "i", "\033", ":w", "\r", "", "u"},
    {"ne", {"--no-config", "+%"}, "", "",
     "\033[6~", "\006", "", "", "", "\023", "", "\033[15~"},
    {"nano", {"--ignorercfiles", "+%"}, "", "",
     "\033[6~", "\027", "", "", "", "\023", "", "\033u"},
    {"cat", {"-c", "stty raw -echo; exec cat"}, "", "", "", "", "", "", "", "", "", ""},
};
// clang-format on

std::string with_line(std::string text, size_t line) {
    const size_t at = text.find('%');
    return at == std::string::npos ? text : text.replace(at, 1, std::to_string(line));
}

// The watching process and the editor on processors of their own: else the scheduler's choice decides the times.
// pid 0 is this process.
void pin_to(int processor, pid_t pid = 0) {
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(processor, &only);
    sched_setaffinity(pid, sizeof only, &only);
}

cpu_set_t allowed_processors() {
    cpu_set_t all;
    sched_getaffinity(0, sizeof all, &all);
    return all;
}
const cpu_set_t PROCESSORS = allowed_processors();

double percentile(std::vector<double> values, size_t percent) {
    const size_t nth = (values.size() - 1) * percent / 100;
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(nth), values.end());
    return values[nth];
}

// An editor on a pty of 24 rows and 80 columns, its screen up and complete.
class Session {
public:
    Session(const Kind& kind, const std::string& program, const std::string& file, size_t line)
        : start_(Clock::now()), pty_(command(kind, program, file, line)) {
        pin_to(0);
        started_ = time((line > 1 ? with_line(kind.go, line) : "") + kind.open, start_);
    }

    // Keeps the editor on one processor from now on: keys are timed more evenly. Starts and searches may use all.
    void pin() { pin_to(1, pty_.pid()); }

    // From the start of the process to the last byte of the first screen.
    double started() const { return started_; }
    // Bytes that the last time() received.
    size_t received() const { return received_.size(); }
    // The most memory that the editor has used.
    long peak_kb() const {
        std::ifstream status("/proc/" + std::to_string(pty_.pid()) + "/status");
        for (std::string word; status >> word;)
            if (long kb = 0; word == "VmHWM:" && status >> kb) return kb;
        return 0;
    }

    double time(const std::string& keys) { return keys.empty() ? 0 : time(keys, Clock::now()); }
    // Of a key pressed count times, each time after others that are not timed.
    std::vector<double> times(const std::string& key, int count, const std::string& before = "") {
        std::vector<double> result;
        for (int i = 0; i < count; ++i) {
            time(before);
            result.push_back(time(key));
        }
        return result;
    }

private:
    // What is started may use every processor.
    static Command command(const Kind& kind, const std::string& program, const std::string& file, size_t line) {
        sched_setaffinity(0, sizeof PROCESSORS, &PROCESSORS);
        Command result{{program}, {}};
        for (const std::string& option : kind.options) result.words.push_back(with_line(option, line));
        result.words.push_back(file);
        return result;
    }
    // Milliseconds from start to the last byte that came before the editor slept in a read again.
    double time(const std::string& keys, Clock::time_point start) {
        if (pty_.write(keys) != keys.size()) throw std::runtime_error("the editor takes no keys");
        auto last = start;
        received_.clear();
        while (true) {
            if (pty_.read(received_) > 0) {
                last = Clock::now();
            } else if (pty_.output_within(std::chrono::microseconds(300))) {
                continue;
            } else if (pty_.waits_for_input()) {
                break;
            } else if (Clock::now() - start > std::chrono::minutes(1) || !pty_.running()) {
                throw std::runtime_error("the editor ended or hangs");
            }
        }
        return std::chrono::duration<double, std::milli>(last - start).count();
    }

    Clock::time_point start_;
    PseudoTerminal pty_;
    double started_ = 0;
    std::string received_;
};

std::string contents(const std::string& path) {
    std::string text(std::filesystem::file_size(path), '\0');
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

void expect(bool right, const std::string& what) {
    if (!right) throw std::runtime_error("not what was expected: " + what);
}

struct Figures {
    std::vector<std::string> names;  // as they came up
    struct Figure {
        double time, p99;
        long peak_kb;
    };
    std::vector<Figure> figures;

    // Keeps the figure with the shortest time of each name, and the largest memory.
    void add(const std::string& name, double time, double p99, long peak_kb) {
        const size_t i = static_cast<size_t>(std::find(names.begin(), names.end(), name) - names.begin());
        if (i == names.size()) {
            names.push_back(name);
            figures.push_back({time, p99, peak_kb});
            return;
        }
        if (time < figures[i].time) figures[i] = {time, p99, figures[i].peak_kb};
        figures[i].peak_kb = std::max(figures[i].peak_kb, peak_kb);
    }
    void add(const std::string& name, const std::vector<double>& times, long peak_kb) {
        add(name, percentile(times, 50), percentile(times, 99), peak_kb);
    }
    void print() const {
        for (size_t i = 0; i < names.size(); ++i)
            std::printf("%s\t%.6f\t%.6f\t%ld\n", names[i].c_str(), figures[i].time, figures[i].p99, figures[i].peak_kb);
    }
};

struct Task {
    const Kind& kind;
    std::string program, original, copy;
    size_t lines;
    const std::string& text;  // of the original
};

void save(const Task& task, Session& session, Figures& figures) {
    session.time(task.kind.ahead_of_write);
    const double time = session.time(task.kind.write);
    figures.add("save", time, 0, session.peak_kb());
}

// A start takes milliseconds, in which other work on the machine shows: the shortest of many.
void start(const Task& task, Figures& figures) {
    constexpr size_t SOON = 100000;  // lines that are loaded in next to no time
    for (int i = task.lines < SOON ? 10 : 1; i > 0; --i) {
        const Session session(task.kind, task.program, task.original, 1);
        figures.add("first screen", session.started(), 0, session.peak_kb());
    }
}

// From the first line to a word in the middle; what is typed there shows where the cursor was.
void search(const Task& task, Figures& figures) {
    std::filesystem::copy_file(task.original, task.copy, std::filesystem::copy_options::overwrite_existing);
    Session session(task.kind, task.program, task.copy, 1);
    session.time(task.kind.find);
    session.time("needle-in-the-middle");
    figures.add("far search", session.time("\r"), 0, session.peak_kb());
    session.time(task.kind.text + "#" + task.kind.end);
    save(task, session, figures);
    std::string wanted = task.text;
    wanted.insert(wanted.find("needle-in-the-middle"), "#");
    expect(contents(task.copy) == wanted, "the text saved after a search");
}

constexpr size_t PAGES = 41, RETURNS = 41, DELETES = 81, UNDONE = 41;
constexpr size_t TYPED_LINES = 3, TYPED = 67;  // in each; the last one goes on, out of the screen
constexpr size_t TO_THE_EDGE = 20, OUTSIDE = 41;

// Pages down from the middle, and keys there. What they saved must differ in one place, where the pages end: an editor
// that wraps lines shows half as many.
void keys(const Task& task, Figures& figures) {
    std::filesystem::copy_file(task.original, task.copy, std::filesystem::copy_options::overwrite_existing);
    Session session(task.kind, task.program, task.copy, task.lines / 2);
    session.pin();
    const std::vector<double> pages = session.times(task.kind.page_down, PAGES);
    session.time(task.kind.text);
    std::vector<double> typed;
    std::string made;
    for (size_t i = 0; i < TYPED_LINES; ++i) {
        if (i > 0) session.time("\r");
        const std::vector<double> times = session.times("x", TYPED);
        typed.insert(typed.end(), times.begin(), times.end());
        made += (i > 0 ? "\n" : "") + std::string(TYPED, 'x');
    }
    const double bytes = static_cast<double>(session.received());
    session.time(std::string(TO_THE_EDGE, 'x'));
    const std::vector<double> outside = session.times("x", OUTSIDE);
    made += std::string(TO_THE_EDGE + OUTSIDE, 'x');
    const std::vector<double> returns = session.times("\r", RETURNS, "x");  // else the screen soon stays as it is
    const std::vector<double> deletes = session.times("\033[3~", DELETES);
    session.time(task.kind.end);
    const std::vector<double> undone =
        session.times(task.kind.undo, UNDONE, task.kind.text + "x" + task.kind.end + task.kind.ahead_of_undo);
    const long peak = session.peak_kb();
    save(task, session, figures);
    figures.add("page down", pages, peak);
    figures.add("typed key", typed, peak);
    figures.add("bytes sent for a typed key", bytes, 0, peak);
    figures.add("typed key beyond the width", outside, peak);
    figures.add("Return", returns, peak);
    figures.add("Delete", deletes, peak);
    figures.add("undo of a typed key", undone, peak);

    const std::string saved = contents(task.copy);
    const size_t at = static_cast<size_t>(
        std::mismatch(saved.begin(), saved.end(), task.text.begin(), task.text.end()).first - saved.begin());
    const long row = std::count(saved.begin(), saved.begin() + static_cast<std::ptrdiff_t>(at), '\n');
    const long moved = row + 1 - static_cast<long>(task.lines / 2);
    for (size_t i = 0; i < RETURNS; ++i) made += "x\n";
    std::string wanted = task.text;
    wanted.replace(at, DELETES, made);
    expect(saved == wanted, "the text saved after typing");
    expect(moved >= static_cast<long>(PAGES) * 8 && moved <= static_cast<long>(PAGES) * 24,
           "pages ended " + std::to_string(moved) + " rows below");
}

void type(const Task& task, Figures& figures) {
    Session session(task.kind, task.program, task.original, 2);
    session.pin();
    session.time(task.kind.text);
    figures.add("typed key", session.times("x", TYPED), session.peak_kb());
}

}  // namespace

int main(int argc, char** argv) {
    const auto kind =
        std::find_if(KINDS.begin(), KINDS.end(), [&](const Kind& k) { return argc == 6 && k.name == argv[1]; });
    if (kind == KINDS.end()) {
        std::fputs("usage: kpe_screen_bench kpe|vim|ne|nano|cat PROGRAM FILE LINES COPY\n", stderr);
        return 2;
    }
    pin_to(0);
    setenv("TERM", "xterm-256color", 1);
    try {
        const std::string text = contents(argv[3]);
        const Task task{*kind, argv[2], argv[3], argv[5], std::strtoul(argv[4], nullptr, 10), text};
        Figures figures;
        if (task.lines == 0) {
            type(task, figures);
        } else {
            start(task, figures);
            search(task, figures);
            keys(task, figures);
        }
        figures.print();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "kpe_screen_bench: %s: %s\n", argv[1], problem.what());
        return 1;
    }
}
