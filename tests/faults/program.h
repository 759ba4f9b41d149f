#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "unit/scratch.h"

// Runs the program in a directory of the test's own, dir, which is its HOME as well; what goes in and comes out
// lies in another one, io.
class ProgramTest : public testing::Test {
protected:
    struct Ended {
        int status;  // exit status, or a signal's number below 0
        std::string out, err;
    };
    using Preparation = std::function<void()>;

    // Starts the program on what input holds. prepare runs in the new process.
    pid_t start(std::vector<std::string> args, const std::string& input, const Preparation& prepare = {}) {
        const std::string in = io.put("in" + std::to_string(++started_), input);
        const std::string out = io.path("out"), err = io.path("err");
        args.insert(args.begin(), "kpe");
        std::vector<char*> argv;
        argv.reserve(args.size() + 1);
        for (std::string& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        const pid_t child = fork();
        if (child != 0) return child;
        if (!redirected(in, O_RDONLY, 0) || !redirected(out, O_WRONLY | O_CREAT | O_TRUNC, 1) ||
            !redirected(err, O_WRONLY | O_CREAT | O_TRUNC, 2) || chdir(dir.root().c_str()) != 0)
            _exit(126);
        setenv("HOME", dir.root().c_str(), 1);
        setenv("TMPDIR", dir.root().c_str(), 1);
        for (const char* name : {"XDG_STATE_HOME", "RZ_TTY", "KPE_INI"}) unsetenv(name);
        alarm(60);
        const int program = open(KPE_PROGRAM, O_RDONLY | O_CLOEXEC);  // the way there may be closed to others
        if (prepare) prepare();
        fexecve(program, argv.data(), environ);
        _exit(127);
    }
    static int status_of(pid_t child) {
        int how = 0;
        waitpid(child, &how, 0);
        return WIFEXITED(how) ? WEXITSTATUS(how) : -WTERMSIG(how);
    }
    Ended run(const std::vector<std::string>& args, const std::string& input, const Preparation& prepare = {}) {
        const int status = status_of(start(args, input, prepare));
        return {status, io.get("out"), io.get("err")};
    }
    mode_t mode(const std::string& name) const {
        struct stat st {};
        return lstat(dir.path(name).c_str(), &st) == 0 ? st.st_mode : 0;
    }

    Scratch dir, io;

private:
    static bool redirected(const std::string& path, int flags, int to) {
        const int fd = open(path.c_str(), flags | O_CLOEXEC, 0600);
        return fd >= 0 && dup2(fd, to) == to;
    }
    int started_ = 0;
};

// As somebody whom permissions stop. Root becomes nobody.
inline constexpr uid_t NOBODY = 65534;
inline void without_privileges() {
    if (geteuid() == 0 && (setgid(NOBODY) != 0 || setuid(NOBODY) != 0)) _exit(125);
}
