// stopwatch RUNS SECONDS LIMIT PAUSE INPUT OUTPUT PREPARE COMMAND...: runs the command with these files as standard
// input and output, each time after the shell command PREPARE (may be empty) and a sleep of PAUSE seconds: RUNS times,
// but no more once the runs took SECONDS together. Without a pause one run goes ahead of them, and counts only if it
// took as much. Prints the wall time in seconds and the peak memory in kilobytes of each run that counts, a line each;
// or only
// ">LIMIT 0" when a run took longer and was killed. Standard error goes nowhere; the exit status does not count.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

struct Run {
    double seconds;
    long peak_kb;
};

void open_as(int descriptor, const char* path, int flags) {
    const int file = open(path, flags, 0600);
    if (file < 0) _exit(126);
    dup2(file, descriptor);
    close(file);
}

[[noreturn]] void become(char** argv, const sigset_t& mask) {
    open_as(STDIN_FILENO, argv[0], O_RDONLY);
    open_as(STDOUT_FILENO, argv[1], O_WRONLY | O_CREAT | O_TRUNC);
    open_as(STDERR_FILENO, "/dev/null", O_WRONLY);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    execvp(argv[3], argv + 3);
    _exit(127);
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "stopwatch: %s could not be run or was killed\n", what);
    std::exit(1);
}

// Nothing when the limit was passed. SIGCHLD is blocked while the command runs, to be waited for.
std::optional<Run> run(char** argv, long limit, unsigned pause) {
    if (*argv[2] && std::system(argv[2]) != 0) fail(argv[2]);
    sleep(pause);
    sigset_t child, before;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, &before);
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) become(argv, before);
    const timespec most{limit, 0};
    const bool ended = sigtimedwait(&child, nullptr, &most) == SIGCHLD;
    if (!ended) kill(pid, SIGKILL);
    int status = 0;
    rusage used{};
    if (wait4(pid, &status, 0, &used) != pid) fail(argv[3]);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (!ended) return std::nullopt;
    if (!WIFEXITED(status) || WEXITSTATUS(status) >= 126) fail(argv[3]);
    return Run{took.count(), used.ru_maxrss};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 9) return 2;
    const long wanted = std::strtol(argv[1], nullptr, 10), limit = std::strtol(argv[3], nullptr, 10);
    const double budget = std::strtod(argv[2], nullptr);
    const unsigned pause = static_cast<unsigned>(std::strtoul(argv[4], nullptr, 10));
    std::vector<Run> runs;
    double all = 0;
    for (bool first = pause == 0; static_cast<long>(runs.size()) < wanted; first = false) {
        const std::optional<Run> one = run(argv + 5, limit, pause);
        if (!one) {
            std::printf(">%ld 0\n", limit);
            return 0;
        }
        all += one->seconds;
        if (first && one->seconds < budget) continue;
        runs.push_back(*one);
        if (all >= budget) break;
    }
    for (const Run& one : runs) std::printf("%.6f %ld\n", one.seconds, one.peak_kb);
}
