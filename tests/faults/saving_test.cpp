#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "unit/scratch.h"

// Saving where the machine refuses: the text on disk stays whole, the message and the status tell, the journal
// stays.

namespace {

constexpr uid_t NOBODY = 65534;

class SavingFaults : public testing::Test {
protected:
    struct Ended {
        int status;
        std::string out, err;
    };
    using Preparation = std::function<void()>;

    // Starts the program in the test's directory, on what input holds. prepare runs in the new process.
    pid_t start(std::vector<std::string> args, const std::string& input, const Preparation& prepare = {}) {
        const std::string in = io.put("in" + std::to_string(++started), input);
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
    // The session ended with "?Unable to write", and the journal is there.
    static void expect_refused(const Ended& ended, const std::string& name) {
        EXPECT_EQ(ended.status, 2) << ended.out;
        EXPECT_EQ(ended.err, "?Unable to write " + name + "\n");
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
    int started = 0;
};

// As somebody whom permissions stop. Root becomes nobody.
void without_privileges() {
    if (geteuid() == 0 && (setgid(NOBODY) != 0 || setuid(NOBODY) != 0)) _exit(125);
}

TEST_F(SavingFaults, ASizeLimitIsAnErrorAndNotTheEnd) {
    std::string text;
    for (int i = 0; i < 50000; ++i) text += "aaa\n";
    dir.put("t.txt", text);
    const auto limit = [] {
        const rlimit small{100000, 100000};
        setrlimit(RLIMIT_FSIZE, &small);
    };
    const Ended kept = run({"t.txt"}, "INSERT \"x\"\n/SAVE\nWRITE new\nQUIT\n", limit);
    EXPECT_EQ(kept.status, 0);
    EXPECT_EQ(kept.out,
              "$ EDIT/KPE t.txt\n1 aaa\n**?Unable to save t.txt\n*?Unable to write new\n*Changes discarded\n");
    expect_refused(run({"t.txt"}, "INSERT \"x\"\nEXIT\n", limit), "t.txt");
    EXPECT_TRUE(dir.get("t.txt") == text);
    EXPECT_EQ(dir.names(), (std::set<std::string>{"t.txt", "t.txt.jou"}));
}

TEST_F(SavingFaults, AFullDiskLeavesTheOldText) {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no file system of one's own here";
    dir.put("disk/gone", "");
    ASSERT_EQ(mount("none", dir.path("disk").c_str(), "tmpfs", 0, "size=1m"), 0);
    const std::string text(700000, 'a');
    dir.put("disk/t", text);
    const Ended ended = run({"disk/t"}, "INSERT \"x\"\nEXIT\n");
    const std::string after = dir.get("disk/t");
    const std::set<std::string> names = dir.names("disk");
    umount(dir.path("disk").c_str());
    expect_refused(ended, "disk/t");
    EXPECT_TRUE(after == text);
    EXPECT_EQ(names, (std::set<std::string>{"t", "t.jou"}));
}

TEST_F(SavingFaults, WhatCouldNotBeReadIsNotOverwritten) {
    ASSERT_EQ(chmod(dir.root().c_str(), 0777), 0);
    dir.put("t", "secret\n");
    dir.put("u", "next\n");
    ASSERT_EQ(chmod(dir.path("t").c_str(), 0222), 0);
    expect_refused(run({"t"}, "INSERT \"x\"\n/SAVE\nEXIT\n", without_privileges), "t");
    EXPECT_NE(io.get("out").find("?Unable to save t\n"), std::string::npos);
    EXPECT_EQ(run({"t", "u"}, "INSERT \"x\"\nNEXT\nQUIT\n", without_privileges).status, 0);
    EXPECT_EQ(run({"t", "-output=o"}, "INSERT \"x\"\nEXIT\n", without_privileges).status, 0);
    EXPECT_EQ(dir.get("o"), "x\n");
    ASSERT_EQ(chmod(dir.path("t").c_str(), 0644), 0);
    EXPECT_EQ(dir.get("t"), "secret\n");
}

TEST_F(SavingFaults, TheJournalIsItsOwnersAlone) {
    const auto open_umask = [] { umask(0); };
    run({"t"}, "TYPE\n", open_umask);
    EXPECT_EQ(dir.get("t.jou"), "TYPE\n");
    EXPECT_EQ(mode("t.jou") & 07777, 0600U);

    ASSERT_EQ(symlink("own", dir.path("u.jou").c_str()), 0);
    run({"u"}, "TYPE\n");
    EXPECT_EQ(dir.get("own"), "TYPE\n");
    if (geteuid() != 0) return;
    dir.put("victim", "");
    ASSERT_EQ(symlink("victim", dir.path("v.jou").c_str()), 0);
    ASSERT_EQ(lchown(dir.path("v.jou").c_str(), NOBODY, NOBODY), 0);
    run({"v"}, "TYPE\n");
    EXPECT_EQ(dir.get("victim"), "");
}

TEST_F(SavingFaults, APipeAsJournalIsNeitherWaitedForNorRemoved) {
    ASSERT_EQ(mkfifo(dir.path("j").c_str(), 0600), 0);
    EXPECT_EQ(run({"-journal=j", "t"}, "INSERT \"x\"\nEXIT\n").status, 0);
    EXPECT_EQ(dir.get("t"), "x\n");
    EXPECT_TRUE(S_ISFIFO(mode("j")));
    EXPECT_EQ(run({"-journal=j", "-recover", "t"}, "").out.substr(0, 20), "?No journal file: j\n");
}

TEST_F(SavingFaults, SessionsThatSaveAtOnceEachGetAVersion) {
    constexpr int SESSIONS = 12;
    std::vector<pid_t> sessions;
    for (int i = 0; i < SESSIONS; ++i) {
        const std::string n = std::to_string(i);
        sessions.push_back(start({"-journal=j" + n, "t"}, "SET VERSIONING\nINSERT \"" + n + "\"\nEXIT\n"));
    }
    for (const pid_t session : sessions) EXPECT_EQ(status_of(session), 0);
    std::set<std::string> texts;
    for (const std::string& name : dir.names()) texts.insert(dir.get(name));
    EXPECT_EQ(dir.names().size(), static_cast<size_t>(SESSIONS));
    EXPECT_EQ(texts.size(), static_cast<size_t>(SESSIONS));
}

// The file may be where the output goes: both keep the order in which they were made.
TEST_F(SavingFaults, WhatWasPrintedComesBeforeAFileThatIsTheOutput) {
    ASSERT_EQ(mkfifo(dir.path("p").c_str(), 0600), 0);
    const int reader = open(dir.path("p").c_str(), O_RDWR | O_CLOEXEC);
    const auto to_pipe = [&] { dup2(reader, 1); };
    EXPECT_EQ(run({"-journal=j", "t"}, "INSERT \"x\"\nSHOW MODE\nWRITE p\nQUIT\n", to_pipe).status, 0);
    char bytes[1024];
    const ssize_t n = read(reader, bytes, sizeof bytes);
    close(reader);
    ASSERT_GT(n, 0);
    EXPECT_EQ(std::string(bytes, static_cast<size_t>(n)),
              "$ EDIT/KPE t\nInput file does not exist\n[EOB]\n**Line\n*x\np written\n*Changes discarded\n");
}

}  // namespace
