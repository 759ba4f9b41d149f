// stopwatch RUNS INPUT OUTPUT PREPARE COMMAND...: runs the command once uncounted and then RUNS times with these files
// as standard input and output, each time after the shell command PREPARE (may be empty). Prints the shortest wall time
// in seconds and the largest peak memory in kilobytes. Standard error goes nowhere; the exit status does not count.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

void open_as(int descriptor, const char* path, int flags) {
    const int file = open(path, flags, 0600);
    if (file < 0) _exit(126);
    dup2(file, descriptor);
    close(file);
}

[[noreturn]] void run(char** argv) {
    open_as(STDIN_FILENO, argv[2], O_RDONLY);
    open_as(STDOUT_FILENO, argv[3], O_WRONLY | O_CREAT | O_TRUNC);
    open_as(STDERR_FILENO, "/dev/null", O_WRONLY);
    execvp(argv[5], argv + 5);
    _exit(127);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) return 2;
    const long runs = std::strtol(argv[1], nullptr, 10);
    double best = 1e9;
    long peak = 0;
    for (long i = 0; i <= runs; ++i) {
        if (*argv[4] && std::system(argv[4]) != 0) return 1;
        const auto start = std::chrono::steady_clock::now();
        const pid_t pid = fork();
        if (pid == 0) run(argv);
        int status = 0;
        rusage used{};
        if (wait4(pid, &status, 0, &used) != pid) return 1;
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        if (!WIFEXITED(status) || WEXITSTATUS(status) >= 126) {
            std::fprintf(stderr, "stopwatch: %s could not be run or was killed\n", argv[5]);
            return 1;
        }
        if (i > 0) best = std::min(best, took.count());
        peak = std::max(peak, used.ru_maxrss);
    }
    std::printf("%.6f %ld\n", best, peak);
}
