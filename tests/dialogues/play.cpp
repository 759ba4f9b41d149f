// Plays dialogue files against the program: play [-p PROGRAM] [-k] FILE...
// -p: another program than the one built; -k: keeps the directories of failed cases.

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

#include "script.h"

namespace fs = std::filesystem;
using dialogue::Case, dialogue::Piece, dialogue::Session, dialogue::shown_as, dialogue::Step;

namespace {

constexpr std::chrono::seconds TIME_LIMIT{20};
constexpr size_t SHOWN_LINES = 12;

struct Failure {
    int line;
    std::string what;
};

struct Outcome {
    std::string out, err, end;  // end: "status 0", "signal 9" or "no end within the time limit"
};

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

std::optional<std::string> content_of(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in || fs::is_directory(path)) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A child process in a directory, with a whole environment, fed and watched to its end.
class Child {
public:
    Child(const std::vector<std::string>& words, const std::vector<std::string>& env, const fs::path& dir) {
        for (Pipe& pipe : pipes_) {
            if (pipe2(pipe.ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        }
        pid_ = fork();
        if (pid_ < 0) throw std::runtime_error("no process");
        if (pid_ == 0) run(words, env, dir);
        close(pipes_[0].ends[0]);
        close(pipes_[1].ends[1]);
        close(pipes_[2].ends[1]);
        fcntl(pipes_[0].ends[1], F_SETFL, O_NONBLOCK);
    }

    // Until the child has closed both outputs and is gone.
    Outcome watch(const std::string& input) {
        Outcome outcome;
        const auto deadline = std::chrono::steady_clock::now() + TIME_LIMIT;
        std::array<pollfd, 3> fds = {pollfd{pipes_[0].ends[1], POLLOUT, 0}, pollfd{pipes_[1].ends[0], POLLIN, 0},
                                     pollfd{pipes_[2].ends[0], POLLIN, 0}};
        size_t fed = 0;
        bool late = false;
        while (fds[1].fd >= 0 || fds[2].fd >= 0) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            late = left.count() <= 0;
            if (late || (poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0 && errno != EINTR)) break;
            if (fds[0].revents != 0) feed(fds[0], input, fed);
            if (fds[1].revents != 0) take(fds[1], outcome.out);
            if (fds[2].revents != 0) take(fds[2], outcome.err);
        }
        for (const pollfd& fd : fds) {
            if (fd.fd >= 0) close(fd.fd);
        }
        if (late) kill(-pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
        if (late)
            outcome.end = "no end within the time limit";
        else if (WIFSIGNALED(status))
            outcome.end = "signal " + std::to_string(WTERMSIG(status));
        else
            outcome.end = "status " + std::to_string(WEXITSTATUS(status));
        return outcome;
    }

private:
    struct Pipe {
        int ends[2];
    };

    [[noreturn]] void run(const std::vector<std::string>& words, const std::vector<std::string>& env,
                          const fs::path& dir) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGPIPE, SIG_DFL);
        dup2(pipes_[0].ends[0], 0);
        dup2(pipes_[1].ends[1], 1);
        dup2(pipes_[2].ends[1], 2);
        std::vector<char*> argv, envp;
        for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
        for (const std::string& pair : env) envp.push_back(const_cast<char*>(pair.c_str()));
        argv.push_back(nullptr);
        envp.push_back(nullptr);
        if (chdir(dir.c_str()) == 0) execve(argv[0], argv.data(), envp.data());
        fprintf(stderr, "%s: %s\n", argv[0], strerror(errno));
        _exit(127);
    }

    static void feed(pollfd& fd, const std::string& input, size_t& fed) {
        const ssize_t n = fed < input.size() ? write(fd.fd, input.data() + fed, input.size() - fed) : 0;
        if (n > 0) fed += static_cast<size_t>(n);
        if (n > 0 || (n < 0 && (errno == EAGAIN || errno == EINTR))) return;
        close(fd.fd);  // all fed, or nobody reads
        fd.fd = -1;
    }

    static void take(pollfd& fd, std::string& out) {
        std::array<char, 65536> bytes;
        const ssize_t n = read(fd.fd, bytes.data(), bytes.size());
        if (n > 0) out.append(bytes.data(), static_cast<size_t>(n));
        if (n > 0 || (n < 0 && errno == EINTR)) return;
        close(fd.fd);
        fd.fd = -1;
    }

    std::array<Pipe, 3> pipes_;
    pid_t pid_ = -1;
};

// One case in a directory of its own, which is its home as well.
class Stage {
public:
    Stage(const Case& c, const std::string& program, bool keep) : case_(c), program_(program), keep_(keep) {
        std::string name = (fs::temp_directory_path() / "kpe_play_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
        dir_ = name;
        std::map<std::string, std::string> env = {{"HOME", name},
                                                  {"LC_ALL", "C"},
                                                  {"PATH", "/usr/local/bin:/usr/bin:/bin"},
                                                  {"TERM", "vt100"},
                                                  {"SRC", KPE_SOURCE_DIR}};
        for (const char* kept : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"}) {
            if (const char* value = getenv(kept)) env[kept] = value;
        }
        for (const auto& [key, value] : c.env) env[key] = value;
        for (const auto& [key, value] : env) env_.push_back(key + "=" + here(value));
    }
    ~Stage() {
        std::error_code ignored;
        if (!keep_) fs::remove_all(dir_, ignored);
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // Throws the first Failure.
    void play() {
        for (const Session& session : case_.sessions) play(session);
        keep_ = false;
    }
    const fs::path& dir() const { return dir_; }

private:
    std::string here(const std::string& text) const { return replaced(text, "$DIR", dir_.string()); }

    void play(const Session& session) {
        for (const Step& step : session.before) prepare(step);
        std::vector<Piece> shown = session.shown;
        shown.insert(shown.begin(), {Piece::Text, session.banner.value_or(usual_banner(session)), "", session.line});
        shown.insert(shown.begin(), {Piece::Text, session.preface, "", session.line});

        std::vector<std::string> words = {program_};
        for (const std::string& arg : session.args) words.push_back(here(arg));
        const Outcome outcome = Child(words, env_, dir_).watch(here(session.input));

        const std::string wanted = "status " + std::to_string(session.status);
        std::string ending =
            outcome.end == wanted ? "" : "  ended with " + outcome.end + " instead of " + wanted + "\n";
        if (outcome.err != here(session.errors))
            ending += difference("standard error", here(session.errors), outcome.err);
        compare(shown, outcome.out, ending);
        if (!ending.empty()) throw Failure{session.line, ending};
        for (const Step& step : session.after) look_at(step);
    }

    // What a session prints before its first prompt, when nothing was set otherwise.
    std::string usual_banner(const Session& session) const {
        for (const std::string& arg : session.args) {
            if (arg.empty() || arg[0] == '-' || arg[0] == '/') continue;
            const std::string start = "$ EDIT/KPE " + arg + "\n";
            const std::optional<std::string> text = content_of(dir_ / here(arg));
            if (!text) return start + "Input file does not exist\n[EOB]\n";
            std::string first = text->substr(0, text->find('\n'));
            if (!first.empty() && first.back() == '\r') first.pop_back();
            return start + "1 " + replaced(first, "\f", "^L") + "\n";
        }
        return "";
    }

    static std::string difference(const std::string& of, const std::string& wanted, const std::string& got) {
        return "  expected " + of + ":\n" + shown_as(wanted, "    | ", SHOWN_LINES) + "  got:\n" +
               shown_as(got, "    | ", SHOWN_LINES);
    }

    // All of out has to be the pieces one behind the other.
    void compare(const std::vector<Piece>& pieces, const std::string& out, const std::string& more) const {
        size_t at = 0;
        for (size_t i = 0; i < pieces.size(); ++i) {
            if (fits(pieces[i], out, at)) continue;
            std::string rest;
            for (size_t j = i; j < pieces.size(); ++j) {
                rest += pieces[j].kind == Piece::Like ? "(like " + pieces[j].text + ")\n" : here(pieces[j].text);
            }
            fail(pieces[i].line, pieces[i].after, rest, out.substr(at), more);
        }
        if (at < out.size()) fail(pieces.back().line, pieces.back().after, "", out.substr(at), more);
    }

    bool fits(const Piece& piece, const std::string& out, size_t& at) const {
        const std::string wanted = here(piece.text);
        if (piece.kind == Piece::Text) {
            if (out.compare(at, wanted.size(), wanted) != 0) return false;
            at += wanted.size();
            return true;
        }
        const size_t end = out.find('\n', at);
        if (end == std::string::npos || !std::regex_match(out.substr(at, end - at), std::regex(wanted))) return false;
        at = end + 1;
        return true;
    }

    [[noreturn]] static void fail(int line, const std::string& after, const std::string& wanted, const std::string& got,
                                  const std::string& more) {
        const std::string typed = after.empty() ? "  before anything was typed\n" : "  after " + after + "\n";
        throw Failure{line, typed + difference("from here on", wanted, got) + more};
    }

    void prepare(const Step& step) {
        if (step.kind == Step::Shell) return shell(step);
        std::ofstream(dir_ / step.name, std::ios::binary) << here(step.text);
    }

    void look_at(const Step& step) const {
        if (step.kind == Step::Shell) return shell(step);
        const std::optional<std::string> found = content_of(dir_ / step.name);
        if (step.kind == Step::Absent) {
            if (fs::exists(fs::symlink_status(dir_ / step.name)))
                throw Failure{step.line, "  there is a " + step.name + "\n"};
            return;
        }
        if (!found) throw Failure{step.line, "  there is no " + step.name + "\n"};
        if (*found != here(step.text)) throw Failure{step.line, difference(step.name, here(step.text), *found)};
    }

    void shell(const Step& step) const {
        const Outcome outcome = Child({"/bin/sh", "-e", "-c", here(step.text)}, env_, dir_).watch("");
        if (outcome.end != "status 0") {
            throw Failure{step.line, "  the shell ended with " + outcome.end + "\n" +
                                         shown_as(outcome.out + outcome.err, "    | ", SHOWN_LINES)};
        }
    }

    const Case& case_;
    std::string program_;
    bool keep_;
    fs::path dir_;
    std::vector<std::string> env_;
};

// The number of failed cases.
int play_file(const std::string& path, const std::string& program, bool keep) {
    const std::vector<Case> cases = dialogue::read_cases(path);
    if (cases.empty()) throw std::runtime_error("no case in it");
    int failed = 0;
    for (const Case& c : cases) {
        Stage stage(c, program, keep);
        try {
            stage.play();
        } catch (const Failure& failure) {
            ++failed;
            printf("%s:%d: %s\n%s", path.c_str(), failure.line, c.title.c_str(), failure.what.c_str());
            if (keep) printf("  kept in %s\n", stage.dir().c_str());
        }
    }
    printf("%s: %zu cases, %d failed\n", fs::path(path).filename().c_str(), cases.size(), failed);
    return failed;
}

}  // namespace

int main(int argc, char** argv) {
    std::string program = KPE_PROGRAM;
    bool keep = false;
    int option;
    while ((option = getopt(argc, argv, "p:k")) != -1) {
        if (option == 'p')
            program = optarg;
        else if (option == 'k')
            keep = true;
        else
            return 2;
    }
    if (optind == argc) {
        fprintf(stderr, "usage: %s [-p PROGRAM] [-k] FILE...\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    int failed = 0;
    for (int i = optind; i < argc; ++i) {
        try {
            failed += play_file(argv[i], program, keep);
        } catch (const std::exception& e) {
            ++failed;
            printf("%s: %s\n", argv[i], e.what());
        }
    }
    return failed == 0 ? 0 : 1;
}
