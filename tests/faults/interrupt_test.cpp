#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "unit/scratch.h"

// Signals that reach a session in the middle of a command: each is sent when its output or the kernel tells
// that the program has got there.

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds PATIENCE{60};

// The program on one file t.txt, reading from a pipe or a terminal. Its startup file runs before the first
// prompt, and so before anything is read.
class Session {
public:
    enum class Input { Pipe, Terminal };

    explicit Session(const std::string& text, const std::string& startup = "", Input input = Input::Pipe,
                     bool ignore_hangup = false) {
        dir_.put("t.txt", text);
        dir_.put("startup", startup);
        int in[2], out[2];
        int terminal = -1;
        if (input == Input::Terminal) {
            EXPECT_EQ(openpty(&in[1], &in[0], nullptr, nullptr, nullptr), 0);
            terminal = in[0];
            fcntl(in[1], F_SETFD, FD_CLOEXEC);
        } else {
            EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
        }
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            if (terminal >= 0) login_tty(terminal);
            if (ignore_hangup) signal(SIGHUP, SIG_IGN);
            if (terminal < 0) dup2(in[0], 0);
            dup2(out[1], 1);
            if (chdir(dir_.root().c_str()) != 0) _exit(126);
            setenv("HOME", dir_.root().c_str(), 1);
            execl(KPE_PROGRAM, "kpe", "-command=startup", "t.txt", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        signal(SIGPIPE, SIG_IGN);  // a program that ended too early fails its test and no other
        to_ = in[1];
        from_ = out[0];
    }
    ~Session() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        hang_up();
        close(from_);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void type(const std::string& line) {
        const std::string text = line + "\n";
        EXPECT_EQ(write(to_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // What was printed since the last call, up to and with text.
    std::string read_to(const std::string& text) {
        const auto end = Clock::now() + PATIENCE;
        size_t at;
        while ((at = out_.find(text)) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            pollfd fd = {from_, POLLIN, 0};
            char bytes[4096];
            if (left <= 0 || poll(&fd, 1, static_cast<int>(left)) <= 0) return "no \"" + text + "\" in: " + out_;
            const ssize_t n = read(from_, bytes, sizeof bytes);
            if (n <= 0) return "ended after: " + out_;
            out_.append(bytes, static_cast<size_t>(n));
        }
        std::string seen = out_.substr(0, at + text.size());
        out_.erase(0, seen.size());
        return seen;
    }
    // Until the program waits for something.
    bool sleeps() {
        return until([&] { return field(3) == "S"; });
    }
    // Until the program has worked for some time since this was called.
    bool works() {
        const long before = clock_ticks();
        return until([&] { return clock_ticks() - before >= 10; });
    }
    void send(int number) { kill(pid_, number); }
    void hang_up() {
        if (to_ >= 0) close(to_);
        to_ = -1;
    }
    // The wait status, or -1 when it does not end.
    int ended() {
        int how = -1;
        if (!until([&] { return waitpid(pid_, &how, WNOHANG) == pid_; })) return -1;
        pid_ = -1;
        return how;
    }

private:
    static bool until(const std::function<bool()>& reached) {
        for (const auto end = Clock::now() + PATIENCE; Clock::now() < end;) {
            if (reached()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
    // A field of the program's line in /proc, counted from one; its name holds no blank.
    std::string field(int number) const {
        std::ifstream in("/proc/" + std::to_string(pid_) + "/stat");
        std::string word;
        while (number-- > 0) in >> word;
        return word;
    }
    long clock_ticks() const { return std::stol(field(14)); }

    Scratch dir_;
    pid_t pid_ = -1;
    int to_ = -1, from_ = -1;
    std::string out_;
};

// A wildcard search that takes many minutes: many single bytes to compare at each column.
std::string endless_needle() {
    std::string needle;
    for (int i = 0; i < 5000; ++i) needle += "[a]";
    return needle + "[b]";
}
const std::string ENDLESS_TEXT = std::string("x\n").append(20'000'000, 'a').append("\nlast\n");

}  // namespace

TEST(Interrupt, EndsALongSearch) {
    for (const bool range : {false, true}) {
        Session session(ENDLESS_TEXT);
        const std::string line = range ? "S/" + endless_needle() + "/x/ 1:3" : "FIND " + endless_needle();
        session.read_to("*");
        session.type(line);
        ASSERT_TRUE(session.works());
        session.send(SIGINT);
        EXPECT_EQ(session.read_to("*Abort*\n"), "*Abort*\n");
        EXPECT_EQ(session.read_to("*"), range ? "No substitutions\n*" : "*");
        session.type("T 3");
        EXPECT_EQ(session.read_to("*"), "3 last\n[EOB]\n*");
    }
}

TEST(Interrupt, EndsAQuestionAndKeepsWhatWasReplaced) {
    struct Row {
        const char *command, *question, *after;
    };
    for (const Row& row : {Row{"S/a/x/ /GLOBAL/QUERY", "[Y/N]: ", "*Abort*\n1 substitution\n"},
                           Row{"S/a/x/ 1/QUERY", "[Y/N/A/Q]: ", "*Abort*\n1 x a\n1 substitution\n"}}) {
        Session session("a a\n");
        session.read_to("*");
        session.type(row.command);
        session.read_to(row.question);
        session.type("Y");
        session.read_to(row.question);
        ASSERT_TRUE(session.sleeps());
        session.send(SIGINT);
        EXPECT_EQ(session.read_to(std::string(row.after) + "*"), std::string(row.after) + "*") << row.command;
        session.type("T");
        EXPECT_EQ(session.read_to("*"), "1 x a\n*");
    }
    Session session("a a\n");
    session.read_to("*");
    session.type("S/a/x/ /QUERY");
    session.read_to("[Y/N]: ");
    ASSERT_TRUE(session.sleeps());
    session.send(SIGINT);
    EXPECT_EQ(session.read_to("*Abort*\n*"), "*Abort*\n*");
    session.type("T");
    EXPECT_EQ(session.read_to("*"), "1 a a\n*");
}

// What would repeat itself for ever sleeps instead.
struct Repeating {
    const char *text, *commands, *shown, *after_abort;
};
constexpr Repeating REPEATING[] = {
    {"xab\n", "1\nBACKUP\nSET SEARCH BEGIN\nFIND ?b\n", "1 xab\nDirection: BACKUP\n", ""},
    {"a\nb\n", "T\nFIND b\nS/$/\"\"//GLOBAL\n", "1 a\n2 b\n", "1 substitution\n"},
};

TEST(Interrupt, EndsWhatWouldRepeatItselfForEver) {
    for (const Repeating& row : REPEATING) {
        Session session(row.text, row.commands);
        EXPECT_EQ(session.read_to(row.shown), row.shown);
        ASSERT_TRUE(session.sleeps()) << row.commands;
        session.send(SIGINT);
        EXPECT_EQ(session.read_to("$"), std::string("*Abort*\n") + row.after_abort + "$") << row.commands;
        session.type("QUIT");
        EXPECT_EQ(session.ended(), 0);
    }
}

TEST(Interrupt, AHangupEndsWhatWouldRepeatItselfForEver) {
    for (const Repeating& row : REPEATING) {
        for (const int number : {SIGHUP, SIGTERM}) {
            Session session(row.text, row.commands);
            EXPECT_EQ(session.read_to(row.shown), row.shown);
            ASSERT_TRUE(session.sleeps()) << row.commands;
            session.send(number);
            const int how = session.ended();
            EXPECT_TRUE(WIFSIGNALED(how) && WTERMSIG(how) == number) << row.commands << how;
        }
        // With SIGHUP ignored, the terminal that is gone tells it.
        Session session(row.text, row.commands, Session::Input::Terminal, /*ignore_hangup=*/true);
        EXPECT_EQ(session.read_to(row.shown), row.shown);
        ASSERT_TRUE(session.sleeps()) << row.commands;
        session.hang_up();
        EXPECT_EQ(session.ended(), 0) << row.commands;
    }
}

TEST(Interrupt, EndsTheWaitingForTheOtherEndOfAPipe) {
    const Scratch dir;
    const std::string pipe = dir.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string command : {"INCLUDE ", "WRITE "}) {
        Session session("a\n", command + pipe);
        ASSERT_TRUE(session.sleeps());
        session.send(SIGINT);
        EXPECT_EQ(session.read_to("$"), "*Abort*\n$") << command;
        session.read_to("*");
        session.type("TYPE WHOLE");
        EXPECT_EQ(session.read_to("*"), "1 a\n[EOB]\n*") << command;
    }
}
