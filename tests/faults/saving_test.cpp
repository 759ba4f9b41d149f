#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "faults/program.h"

// Saving where the machine refuses: the text on disk stays whole, the message and the status tell, the journal
// stays.

namespace {

class SavingFaults : public ProgramTest {
protected:
    // The session ended with "?Unable to write", and the journal is there.
    static void expect_refused(const Ended& ended, const std::string& name) {
        EXPECT_EQ(ended.status, 2) << ended.out;
        EXPECT_EQ(ended.err, "?Unable to write " + name + "\n");
    }
};

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

// PRINT runs what the row calls a printer, so that the file changes between two commands.
TEST_F(SavingFaults, WhatHadChangedOnDiskIsKept) {
    struct Row {
        const char *printer, *commands, *kept;  // the texts of all copies
    };
    const Row ROWS[] = {
        {"true", "INSERT \"x\"\n/SAVE\nINSERT \"y\"\n/SAVE\nEXIT\n", ""},
        {"echo his >t", "INSERT \"x\"\nPRINT\n/SAVE\nEXIT\n", "his\n"},
        {"touch -r t .r; echo his >t; touch -r .r t", "PRINT\nEXIT\n", "his\n"},
        {"echo his >n; mv n t", "/SAVE\nPRINT\nEXIT\n", "his\n"},
        {"ln -f t l; echo his >t", "PRINT\nEXIT\n", "his\n"},
        {"echo his >>t", "PRINT\n/SAVE\nPRINT\nEXIT\n", "old\nhis\nold\nhis\n"},
        {"rm t", "PRINT\nEXIT\n", ""},
        {"chmod 600 t; ln t m; touch t", "PRINT\nINSERT \"x\"\n/SAVE\nPRINT\nEXIT\n", ""},
        {"echo his >t", "PRINT\nWRITE other\nQUIT\n", ""},
        {"true", "INCLUDE t\nWRITE t 1\nPRINT\nEXIT\n", ""},
        {"echo his >t", "WRITE ./t 1\nPRINT\nWRITE l 1\nQUIT\n", "his\n"},
        {"echo his >t", "SET VERSIONING\nPRINT\nEXIT\n", ""},
    };
    for (const Row& row : ROWS) {
        for (const std::string& name : dir.names()) std::filesystem::remove_all(dir.path(name));
        dir.put("t", "old\n");
        dir.put("other", "other\n");
        ASSERT_EQ(symlink("t", dir.path("l").c_str()), 0);
        dir.put("bin/lpr", std::string("#!/bin/sh\n") + row.printer + "\n");
        ASSERT_EQ(chmod(dir.path("bin/lpr").c_str(), 0755), 0);
        const Ended ended = run({"t"}, row.commands, [&] { setenv("PATH", "bin:/usr/bin:/bin", 1); });
        EXPECT_EQ(ended.status, 0) << ended.out;
        EXPECT_EQ(ended.err, "") << "not a terminal, so nothing is said";
        std::string kept;
        const std::string state = ".local/state/kpe";
        if (std::filesystem::exists(dir.path(state)))
            for (const std::string& name : dir.names(state)) kept += dir.get(state + "/" + name);
        EXPECT_EQ(kept, row.kept) << row.printer << ": " << row.commands << ended.out;
    }
}

// A FIFO would be waited for, and what goes into a device is gone. PRINT changes the file as above.
TEST_F(SavingFaults, AFileThatHasBecomeADeviceIsNotWritten) {
    struct Row {
        const char *before, *printer, *saved;  // what shell commands make of t, and a session then says
    };
    const Row ROWS[] = {
        {"echo old >t", "ln -sf /dev/null t", "?Unable to save t"},
        {"echo old >t", "rm t; mkfifo t", "?Unable to save t"},
        {"true", "mkfifo t", "?Unable to save t"},
        {"ln -s /dev/null t", "true", "[Saved t]"},
    };
    dir.put("bin/lpr", "#!/bin/sh\neval \"$PRINTER\"\n");
    ASSERT_EQ(chmod(dir.path("bin/lpr").c_str(), 0755), 0);
    for (const Row& row : ROWS) {
        const auto prepare = [&] {
            alarm(5);
            setenv("PATH", "bin:/usr/bin:/bin", 1);
            setenv("PRINTER", row.printer, 1);
            if (std::system((std::string("rm -f t; ") + row.before).c_str()) != 0) _exit(124);
        };
        const Ended ended = run({"t"}, "INSERT \"x\"\nPRINT\n/SAVE\nWRITE /dev/null\nEXIT\n", prepare);
        const bool saved = *row.saved == '[';
        EXPECT_EQ(ended.status, saved ? 0 : 2) << row.printer;
        EXPECT_EQ(ended.err, saved ? "" : "?Unable to write t\n") << row.printer;
        EXPECT_NE(ended.out.find(row.saved), std::string::npos) << ended.out;
    }
}

TEST_F(SavingFaults, WhatCannotBeKeptIsNotReplaced) {
    int master = -1, shown = -1;
    ASSERT_EQ(openpty(&master, &shown, nullptr, nullptr, nullptr), 0);
    dir.put(".local/state/kpe", "not a directory");
    dir.put("lpr", "#!/bin/sh\necho his >t\n");
    ASSERT_EQ(chmod(dir.path("lpr").c_str(), 0755), 0);
    // There is no such file at the start.
    const auto saved_over = [&](const std::string& temporary) {
        std::filesystem::remove(dir.path("t"));
        run({"t"}, "INSERT \"x\"\nPRINT\nEXIT\n", [&] {
            dup2(shown, 2);
            setenv("TMPDIR", temporary.c_str(), 1);
            setenv("PATH", dir.root().c_str(), 1);
        });
        return dir.get("t");
    };
    EXPECT_EQ(saved_over(dir.path("lpr")), "his\n");
    EXPECT_EQ(saved_over(dir.root()), "x\n");
    close(shown);
    std::string bytes(500, '\0');
    size_t size = 0;
    for (ssize_t n = 0; (n = read(master, bytes.data() + size, bytes.size() - size)) > 0;)
        size += static_cast<size_t>(n);
    EXPECT_TRUE(bytes.starts_with("?Unable to write t\r\n?The file had changed on disk; what it held is kept in " +
                                  dir.path("t.")));
    close(master);
}

// The safety copy of a file with two names has to lie somewhere.
TEST_F(SavingFaults, NothingIsMadeInTheHomeOfSomebodyElse) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a directory away";
    dir.put("KPE.INI", "INSERT \"x\"\n");
    dir.put("t", "old\n");
    std::filesystem::create_hard_link(dir.path("t"), dir.path("l"));
    ASSERT_EQ(chown(dir.root().c_str(), NOBODY, NOBODY), 0);
    EXPECT_EQ(run({"t"}, "EXIT\n").status, 0);
    EXPECT_EQ(dir.get("l"), "xold\n");
    EXPECT_FALSE(std::filesystem::exists(dir.path(".local")));
    // Nor is anything run there that happens to lie in the working directory.
    EXPECT_EQ(run({"t"}, "EXIT\n", [] { setenv("HOME", ".", 1); }).status, 0);
    EXPECT_EQ(dir.get("l"), "xold\n");
}

// The text as it was loaded and the edited line: neither undo nor the save needs a third copy.
TEST_F(SavingFaults, AHugeLineIsInMemoryTwice) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "memory is larger under the sanitizers";
#endif
    // Before anything large is in memory here: a process begins as large as the one that started it.
    constexpr long KILOBYTES = 24'000;
    const std::string piece(1000, 'a');
    for (const char* name : {"t", "v"}) {
        std::ofstream out(dir.path(name));
        for (long i = 0; i < KILOBYTES; ++i) out << piece;
    }
    dir.put("u", "b\n");
    run({"u"}, "INCLUDE t\nFIND b\nFIND 1\nTYPE 1/BRIEF\nS/a/xxx/\nFIND z\nEXIT\n");
    run({"v"}, "INSERT \"xxx\"\nEXIT\n");
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, KILOBYTES * 5 / 2);
    const std::string text = dir.get("t");
    EXPECT_TRUE(dir.get("u") == "xxx" + text.substr(1) + "\nb\n");
    EXPECT_TRUE(dir.get("v") == "xxx" + text + "\n");
}

TEST_F(SavingFaults, SessionsThatSaveAtOnceEachGetAVersion) {
    constexpr int SESSIONS = 12;
    for (const char* without : {"", "nameless", "nameless noreplace", "nameless noreplace links"}) {
        const auto on_file_system = [&] {
            setenv("LD_PRELOAD", KPE_FAILING_CALLS, 1);
            setenv("KPE_FAULT_WITHOUT", without, 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        };
        for (const std::string& name : dir.names()) std::filesystem::remove_all(dir.path(name));
        std::vector<pid_t> sessions;
        for (int i = 0; i < SESSIONS; ++i) {
            const std::string n = std::to_string(i), commands = "SET VERSIONING\nINSERT \"" + n + "\"\nEXIT\n";
            sessions.push_back(start({"-journal=j" + n, "t"}, commands, on_file_system));
        }
        for (const pid_t session : sessions) EXPECT_EQ(status_of(session), 0);
        std::set<std::string> texts;
        for (const std::string& name : dir.names()) texts.insert(dir.get(name));
        EXPECT_EQ(dir.names().size(), static_cast<size_t>(SESSIONS)) << without;
        EXPECT_EQ(texts.size(), static_cast<size_t>(SESSIONS)) << without;
    }
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
