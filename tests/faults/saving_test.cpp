#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <pty.h>
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
