#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "files/rescue_file.h"
#include "screens/terminal.h"

// Ends that nobody asked for: the terminal is as it was, the status tells the signal, and every text that is
// nowhere else lies in a rescue file. Nothing waits for long.

namespace {

// An end that hangs is forced after ten seconds: what came sooner came by itself, however busy the machine is.
constexpr std::chrono::seconds BY_ITSELF{8};

using namespace screens;
namespace fs = std::filesystem;
using Texts = std::map<std::string, std::string>;

constexpr const char* RESCUE = ".local/state/kpe/rescue";

// What was rescued: the name up to the time, and the text.
Texts rescued(const Scratch& dir, const std::string& where = RESCUE) {
    Texts texts;
    if (!fs::exists(dir.path(where))) return texts;
    for (const std::string& name : dir.names(where))
        texts[name.substr(0, name.find("-20"))] = dir.get(where + "/" + name);
    return texts;
}

Setup line_mode(const std::string& text = "one\n") {
    return {.files = {{"t.txt", text}, {"u", "two\n"}}, .args = {"t.txt", "u"}, .change = false};
}

// A shell that becomes, or runs, the program.
Setup shell(const std::string& command) {
    return {
        .files = {{"t.txt", "one\n"}, {"u", "two\n"}, {"edit", "INSERT \"x\"\n"}, {"leave", "INSERT \"x\"\nEXIT\n"}},
        .args = {"-c", command},
        .env = {{"KPE", KPE_PROGRAM}},
        .change = false,
        .program = "/bin/sh"};
}

std::string typed(const std::string& line) { return line + RETURN; }

const std::string EDIT = typed("INSERT \"x\"");
const std::string CHANGED = "xone\n";

bool same_modes(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

}  // namespace

// --- Signals ---

// Where a session may be when it is ended, and the text it has then.
struct Place {
    const char* name;
    std::string keys, text = CHANGED;
    bool interruptible = false;  // SIGINT only ends what goes on there
};
const std::string SCREEN = EDIT + typed("CHANGE"), OWN = SCREEN + "y", OWN_TEXT = "xyone\n";
const Place PLACES[] = {
    {"the prompt, half a line typed", EDIT + "abc"},
    {"INSERT", typed("INSERT") + "a" + RETURN + "b" + RETURN + "c", "a\nbone\n"},
    {"DEFINE MACRO", EDIT + typed("DEFINE MACRO m")},
    {"a question in a range", EDIT + typed("S/o/y/ WHOLE/QUERY"), CHANGED, true},
    {"a question everywhere", EDIT + typed("S/o/y//GLOBAL/QUERY"), CHANGED, true},
    {"a search that finds the same for ever",
     EDIT + typed("1") + typed("BACKUP") + typed("SET SEARCH BEGIN") + typed("FIND ?n"), CHANGED, true},
    {"a replacement that repeats itself", EDIT + typed("S/$/\"\"//GLOBAL"), CHANGED, true},
    {"the screen", OWN, OWN_TEXT, true},
    {"GOLD with a count", OWN + GOLD + "3", OWN_TEXT, true},
    {"the search prompt", OWN + GOLD + PF3 + "abc", OWN_TEXT, true},
    {"the command prompt, answered by half", OWN + GOLD + KP7 + "EXIT", OWN_TEXT, true},
    {"the help page", OWN + PF2, OWN_TEXT, true},
    {"the key to define", OWN + Ctrl('k'), OWN_TEXT, true},
    {"the definition", OWN + Ctrl('k') + "q", OWN_TEXT, true},
    {"a repeated prompt", OWN + GOLD + "9" + PF3, OWN_TEXT, true},
    {"a nested session", SCREEN + command("CHANGE") + "y", OWN_TEXT, true},
    {"the keypad-less session", EDIT + typed("SET KEYPAD NOKEYPAD") + typed("CHANGE") + "W", CHANGED, true},
    {"INSERT from the screen", SCREEN + command("INSERT") + "a" + RETURN, "xaone\n", true},
    {"DEFINE MACRO from the screen", OWN + command("DEFINE MACRO m"), OWN_TEXT, true},
};

constexpr int HANG_UP = 1000, DEAF_HANG_UP = 1001;  // the terminal goes away; the session is not told by a signal

TEST(Rescue, AnEndKeepsTheTextWhereverItComes) {
    for (const Place& place : PLACES) {
        for (const int way : {SIGTERM, SIGHUP, SIGQUIT, SIGINT, HANG_UP, DEAF_HANG_UP}) {
            if (way == SIGINT && place.interruptible) continue;
            SCOPED_TRACE(place.name + std::string(", way ") + std::to_string(way));
            const bool gone = way >= HANG_UP;
            Terminal s(way == DEAF_HANG_UP ? shell("trap '' HUP; exec \"$KPE\" t.txt") : line_mode());
            const termios before = s.modes();
            s.keys(place.keys);
            s.forget_output();
            gone ? s.hang_up() : s.signal(way);
            const auto start = std::chrono::steady_clock::now();
            const int status = s.status();
            // A terminal that goes away first lets reading fail and then sends the signal.
            EXPECT_TRUE(gone ? status == 0 || (status == -SIGHUP && way == HANG_UP) : status == -way) << status;
            EXPECT_LT(std::chrono::steady_clock::now() - start, BY_ITSELF);
            EXPECT_EQ(s.files().get("t.txt"), "one\n");
            EXPECT_NE(s.files().get("t.txt.jou"), "");
            EXPECT_EQ(rescued(s.files()), (Texts{{"t.txt-MAIN", place.text}}));
            const std::string path = s.files().path(RESCUE) + "/" + *s.files().names(RESCUE).begin();
            EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
            EXPECT_EQ(fs::status(s.files().path(RESCUE)).permissions(), fs::perms::owner_all);
            if (gone) continue;
            EXPECT_TRUE(same_modes(s.modes(), before));
            EXPECT_TRUE(place.keys.find("CHANGE") == std::string::npos || s.sent("\033>") > 0);
            EXPECT_EQ(s.sent("\nThe text of MAIN is kept in " + path + "\r\n"), 1U);
        }
    }
}

// Each waits in another way, or works on.
TEST(Rescue, ASignalEndsWhatLasts) {
    struct Row {
        const char* name;
        std::string text, keys;
        std::function<void(Terminal&)> until;
    };
    const auto some_time = [](Terminal&) { std::this_thread::sleep_for(100ms); };
    const std::string needle = [] {
        std::string many;
        for (int i = 0; i < 1000; ++i) many += "[a]";
        return many + "[b]";
    }();
    const Row rows[] = {
        {"a search", std::string(2'000'000, 'a') + "\n", typed("FIND " + needle), some_time},
        {"a search in a macro", std::string(2'000'000, 'a') + "\n",
         typed("DEFINE MACRO m AS \"FIND " + needle + ";INSERT \"y\";FNDNXT;EXIT\"") + typed("m"), some_time},
        {"a repeated key", "one\n", typed("CHANGE") + GOLD + "2147483647" + KP0, some_time},
        {"a search on the screen", std::string(2'000'000, 'a') + "\n",
         typed("CHANGE") + GOLD + KP7 + typed("FIND " + needle), some_time},
        {"a printer", "one\n", typed("PRINT"),
         [](Terminal& s) { s.wait_until([&] { return fs::exists(s.files().path("printing")); }); }},
        {"a FIFO without a writer", "one\n", typed("INCLUDE p"), some_time},
        {"a FIFO without a reader", "one\n", typed("WRITE p"), some_time},
        {"a FIFO that is full", numbered_lines(20000), typed("WRITE full"), some_time},
        {"output that nobody takes", numbered_lines(20000), typed("TYPE WHOLE"), some_time},
        {"a screen that nobody takes", numbered_lines(100), typed("CHANGE"),
         [](Terminal& s) {
             for (int i = 0; i < 300; ++i) {
                 s.send(Ctrl('w'));
                 std::this_thread::sleep_for(1ms);
             }
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        screens::Setup setup = line_mode(row.text);
        const Scratch dir;
        setup.directory = &dir;
        setup.env["PATH"] = dir.path("bin") + ":/usr/bin:/bin";
        dir.put("bin/lpr", "#!/bin/sh\n: >printing\nexec sleep 60\n");
        fs::permissions(dir.path("bin/lpr"), fs::perms::owner_all);
        for (const char* pipe : {"p", "full"}) ASSERT_EQ(mkfifo(dir.path(pipe).c_str(), 0600), 0);
        const FileHandle reader(open(dir.path("full").c_str(), O_RDWR | O_CLOEXEC));
        Terminal s(setup);
        const termios before = s.modes();
        s.keys(EDIT);
        if (std::string(row.name).ends_with("nobody takes")) s.stop_reading();
        s.send(row.keys);
        row.until(s);
        const auto start = std::chrono::steady_clock::now();
        s.signal(SIGTERM);
        EXPECT_EQ(s.status(), -SIGTERM);
        EXPECT_LT(std::chrono::steady_clock::now() - start, BY_ITSELF);
        EXPECT_TRUE(same_modes(s.modes(), before));
        EXPECT_NE(rescued(dir)["t.txt-MAIN"].find("x" + row.text), std::string::npos);
        EXPECT_EQ(dir.get("t.txt").size(), row.text.size());
    }
}

TEST(Rescue, ADiskThatHangsDoesNotHoldUpTheEnd) {
    screens::Setup setup = line_mode();
    setup.env["LD_PRELOAD"] = KPE_FAILING_CALLS;
    setup.env["KPE_FAULT"] = "stuck";
    setup.env["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    Terminal waits(setup), hurries(setup);
    for (Terminal* s : {&waits, &hurries}) {
        s->keys(EDIT + typed("CHANGE"));
        s->signal(SIGTERM);
        s->wait_until([&] { return s->sent("is kept in") > 0; });
        s->signal(SIGTERM);  // signals come in pairs: no haste yet
        EXPECT_EQ(rescued(s->files()), (Texts{{"t.txt-MAIN", CHANGED}}));
    }
    std::this_thread::sleep_for(1500ms);
    EXPECT_TRUE(hurries.running());
    hurries.signal(SIGTERM);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(hurries.status(), -SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - start, BY_ITSELF);
    EXPECT_TRUE(waits.running());
    EXPECT_EQ(waits.status(), -SIGTERM);
}

TEST(Rescue, AStoppedSessionCanBeEnded) {
    Terminal s(line_mode());
    s.keys(EDIT + typed("CHANGE"));
    s.signal(SIGTSTP);
    s.wait_until([&] { return state_of(s.pid()) == 'T'; });
    s.signal(SIGTERM);
    s.signal(SIGCONT);
    EXPECT_EQ(s.status(), -SIGTERM);
    EXPECT_EQ(rescued(s.files()), (Texts{{"t.txt-MAIN", CHANGED}}));
}

// Whatever the signal means elsewhere; a crash as well, as far as a process that has crashed can.
TEST(Rescue, EverySignalThatEndsAProcess) {
    for (const int number : {SIGUSR1, SIGUSR2, SIGALRM, SIGXCPU, SIGPWR, SIGIO, SIGRTMIN + 1,
#ifndef __SANITIZE_ADDRESS__
                             SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL
#endif
         }) {
        SCOPED_TRACE(number);
        Terminal s(line_mode());
        const termios before = s.modes();
        s.keys(OWN);
        s.signal(number);
        EXPECT_EQ(s.status(), -number);
        EXPECT_EQ(rescued(s.files()), (Texts{{"t.txt-MAIN", OWN_TEXT}}));
        EXPECT_TRUE(same_modes(s.modes(), before));
        EXPECT_GT(s.sent("\033>"), 0U);
        EXPECT_EQ(s.sent("is kept in"), 1U);
    }
}

// A rescue and a save that take longer than an end may wait for a terminal.
TEST(Rescue, ASlowDiskIsWaitedFor) {
    const std::string text = numbered_lines(20000);
    screens::Setup setup = line_mode(text);
    setup.env["LD_PRELOAD"] = KPE_FAILING_CALLS;
    setup.env["KPE_FAULT"] = "slow";
    setup.env["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    Terminal rescues(setup), saves(setup), overwrites(setup);
    fs::create_hard_link(overwrites.files().path("t.txt"), overwrites.files().path("link"));
    for (Terminal* s : {&rescues, &saves, &overwrites}) s->keys(EDIT);
    for (Terminal* s : {&saves, &overwrites}) {
        s->send(typed("EXIT"));
        s->wait_until([&] { return fs::exists(s->files().path("slow")); });
    }
    for (Terminal* s : {&rescues, &saves, &overwrites}) s->signal(SIGTERM);
    std::this_thread::sleep_for(1500ms);
    for (Terminal* s : {&rescues, &saves, &overwrites}) s->signal(SIGTERM);
    for (Terminal* s : {&rescues, &saves, &overwrites}) EXPECT_EQ(s->status(), -SIGTERM);
    EXPECT_EQ(rescued(rescues.files()), (Texts{{"t.txt-MAIN", "x" + text}}));
    EXPECT_EQ(saves.files().get("t.txt"), "x" + text);
    EXPECT_EQ(overwrites.files().get("link"), "x" + text);
#ifndef __SANITIZE_ADDRESS__
    Terminal crashes(setup);
    crashes.keys(EDIT);
    crashes.send(typed("EXIT"));
    crashes.wait_until([&] { return fs::exists(crashes.files().path("slow")); });
    crashes.signal(SIGSEGV);
    EXPECT_EQ(crashes.status(), -SIGSEGV);
    EXPECT_EQ(crashes.sent("Ended before all was written to t.txt"), 1U);
#endif
}

// What is typed is on its way to the disk soon, also while nothing more is typed.
TEST(Rescue, TheJournalIsSynced) {
    screens::Setup setup = line_mode();
    setup.env["LD_PRELOAD"] = KPE_FAILING_CALLS;
    setup.env["KPE_FAULT"] = "note syncs";
    setup.env["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    for (const std::string& keys : {EDIT, SCREEN}) {
        Terminal s(setup);
        s.keys(keys);
        EXPECT_TRUE(s.wait_until([&] { return s.files().get("syncs") == "t.txt.jou\n.\n"; }));
    }
}

// One session at a time has the journal: another one neither adds to it nor removes it. After a line that could not be
// added there are no more lines.
TEST(Rescue, AJournalIsWholeAndOfOneSession) {
    Terminal first(line_mode());
    first.keys(EDIT);
    screens::Setup setup = line_mode("two\n");
    setup.directory = &first.files();
    Terminal second(setup);
    second.keys(typed("INSERT \"y\"") + typed("EXIT"));
    EXPECT_EQ(second.status(), 0);
    EXPECT_EQ(second.sent("t.txt.jou: another session is using it"), 1U);
    EXPECT_EQ(first.files().get("t.txt.jou"), "INSERT \"x\"\n");

    Terminal full(shell("ulimit -f 1; exec \"$KPE\" t.txt"));
    full.keys(EDIT + typed("INSERT \"" + std::string(1500, 'y') + "\"") + EDIT);
    EXPECT_EQ(full.files().get("t.txt.jou"), "INSERT \"x\"\n");
    EXPECT_EQ(full.sent("has no journal from here on, t.txt.jou: File too large"), 1U);
}

TEST(Rescue, AReaderThatHasGoneEndsTheSession) {
    Terminal s(shell("mkfifo p; exec 3<>p 4>p 3<&-; \"$KPE\" -command=edit t.txt <edit >&4 2>err; echo $? >status"));
    s.status();
    EXPECT_EQ(s.files().get("status"), "141\n");
    EXPECT_EQ(s.files().get("err"), "");
    EXPECT_EQ(rescued(s.files()), (Texts{{"t.txt-MAIN", CHANGED}}));
}

// --- What is kept ---

TEST(Rescue, OnlyWhatIsNowhereElse) {
    struct Row {
        std::string commands;
        Texts kept;
    };
    const Texts main{{"t.txt-MAIN", CHANGED}};
    const Row rows[] = {
        {"TYPE", {}},
        {"INSERT \"x\"|UNDO", {}},
        {"INSERT \"x\"|/SAVE", {}},
        {"INSERT \"x\"|/SAVE|UNDO", {{"t.txt-MAIN", "one\n"}}},
        {"INSERT \"x\"|WRITE o", {}},
        {"INSERT \"x\"|WRITE o 1", main},
        {"INSERT \"x\"|WRITE /dev/null", main},
        {"CHGU WHOLE|CHGL WHOLE", {}},
        {"DELETE WHOLE", {}},  // there is nothing to keep
        {"INCLUDE u", {{"t.txt-MAIN", "two\none\n"}}},
        {"INSERT \"x\"|FIND =../b\x01|INSERT \"y\"", {{"t.txt-MAIN", CHANGED}, {"t.txt-_._B_", "y\n"}}},
        {"FIND =b|INSERT \"y\"|WRITE o", {}},
        {"COPY 1 TO =PASTE", {{"t.txt-PASTE", "one\n"}}},
        {"DEFINE MACRO m AS \"TYPE\"", {{"t.txt-M", "TYPE\n"}}},
        {"NEXT|INSERT \"y\"", {{"u-MAIN", "ytwo\n"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.commands);
        screens::Setup setup = line_mode();
        setup.files["KPE.INI"] = "DEFINE MACRO own AS \"TYPE\"\n";
        Terminal s(setup);
        std::string keys = row.commands + "|";
        for (size_t bar; (bar = keys.find('|')) != std::string::npos;) keys.replace(bar, 1, RETURN);
        s.keys(keys);
        s.signal(SIGTERM);
        EXPECT_EQ(s.status(), -SIGTERM);
        EXPECT_EQ(rescued(s.files()), row.kept);
        EXPECT_EQ(s.sent("is kept in"), row.kept.size());
    }
}

TEST(Rescue, NextAndPreviousKeepWhatTheyCouldNotSave) {
    struct Row {
        std::string keys;
        Texts kept;
    };
    const std::string change = EDIT + typed("FIND =b") + typed("INSERT \"y\"");
    for (const Row& row : {
             Row{EDIT + typed("NEXT"), {{"new-MAIN", "x\n"}}},
             Row{typed("NEXT") + typed("PREVIOUS"), {}},
             Row{change + typed("NEXT"), {{"new-MAIN", "x\n"}, {"new-B", "y\n"}}},
             Row{EDIT + typed("CHANGE") + GOLD + KP7 + typed("NEXT"), {{"new-MAIN", "x\n"}}},
         }) {
        screens::Setup setup = line_mode();
        setup.args = {"missing/new", "u"};
        Terminal s(setup);
        s.keys(row.keys);
        EXPECT_EQ(rescued(s.files()), row.kept);
        EXPECT_EQ(s.sent("is kept in") > 0, !row.kept.empty());
        if (row.keys.find("CHANGE") != std::string::npos) {
            EXPECT_TRUE(s.has(23, "The text of MAIN is kept in "));
        }
    }
}

// Commands that come from a file are there to be given again.
TEST(Rescue, EndsOnATerminalAndInAPipe) {
    struct Row {
        std::string command, keys;
        int status;
        bool kept;
        std::string err;
    };
    const std::string no_memory =
        "truncate -s 500M long; cat edit long | { ulimit -v 200000; exec \"$KPE\" t.txt; } 2>err >out";
    const Row rows[] = {
        {"exec \"$KPE\" t.txt", EDIT + Ctrl('d'), 0, true, ""},
        {"ulimit -f 2; exec \"$KPE\" t.txt", typed("INSERT \"" + std::string(3000, 'y') + "\"") + Ctrl('d'), 2, true,
         ""},
        {"exec \"$KPE\" t.txt", EDIT + typed("QUIT"), 0, false, ""},
        {"exec \"$KPE\" t.txt", EDIT + typed("FIND =b") + EDIT + typed("EXIT"), 0, false, ""},
        {"exec \"$KPE\" missing/t.txt", EDIT + typed("EXIT"), 2, true, ""},
        {"exec \"$KPE\" t.txt <edit >out 2>err", "", 0, false, ""},
        {"exec \"$KPE\" missing/t.txt <leave >out 2>err", "", 2, false, "?Unable to write missing/t.txt\n"},
        {"exec \"$KPE\" missing/t.txt <leave >out 2>&-", "", 2, false, ""},
        {"exec \"$KPE\" t.txt <leave >&- 2>err", "", 0, false, ""},
        {"printf 'INSERT \"x\"\\nNEXT\\n' | \"$KPE\" missing/t.txt u >out 2>err", "", 0, true, ""},
#ifndef __SANITIZE_ADDRESS__
        {no_memory, "", 1, true, "fatal: std::bad_alloc\n"},
#endif
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command + " " + row.keys);
        Terminal s(shell(row.command));
        s.keys(row.keys);
        EXPECT_EQ(s.status(), row.status);
        EXPECT_EQ(rescued(s.files()).size(), row.kept ? 1U : 0U);
        EXPECT_EQ(s.files().get("err"), row.err);
        EXPECT_EQ(s.sent("is kept in") > 0, row.kept && !row.keys.empty());
    }
}

// --- Where it is kept ---

TEST(Rescue, PlacesGoodAndBad) {
    struct Row {
        const char* name;
        std::string command;  // of the shell, before the session
        std::string where, message;
        size_t files = 1;
    };
    const std::string home = RESCUE, made = "mkdir -p .local/state/kpe; ";
    const std::string shared = "tmp/kpe-rescue-" + std::to_string(geteuid());
    const Row rows[] = {
        {"the state directory", "export XDG_STATE_HOME=$PWD/s", "s/kpe/rescue", "is kept in"},
        {"a relative one is none", "export XDG_STATE_HOME=s", home, "is kept in"},
        {"that cannot be made", "export XDG_STATE_HOME=$PWD/u", home, "is kept in"},
        {"no home", "unset HOME", shared, "is kept in"},
        {"no home, and a link in a shared directory", "unset HOME; mkdir tmp away; ln -s $PWD/away " + shared,
         shared + "-", "is kept in"},
        {"open to all", made + "mkdir -m 777 " + home, home, "is kept in"},
        {"no umask", "umask 0", home, "is kept in"},
        {"a link", made + "mkdir away; ln -s $PWD/away " + home, shared, "is kept in"},
        {"a file", made + ": >" + home, shared, "is kept in"},
        {"somebody else's",
         made + "mkdir -m 777 " + home + "; chown 65534 " + home + " || rm -r " + home + " .local/state",
         geteuid() == 0 ? shared : home, "is kept in"},
        {"a name that is taken",
         made + "mkdir " + home + "; now=$(date +%s); for i in 0 1 2 3 4 5 6 7 8 9; do ln -s $PWD/u " + home +
             "/t.txt-MAIN-$(date -d @$((now + i)) +%Y%m%d-%H%M%S)-$$; done",
         home, "-2\r\n"},
        {"no room for all of it", "ulimit -f 2", home, "?Only a part of the text of MAIN is kept in"},
        {"no room at all", "ulimit -f 0", home, "?Unable to keep the text of MAIN: File too large", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Terminal s(shell("export TMPDIR=$PWD/tmp; " + row.command + "; exec \"$KPE\" t.txt"));
        if (row.command.starts_with("ulimit")) s.keys(typed("INSERT \"" + std::string(3000, 'y') + "\""));
        s.keys(EDIT);
        s.signal(SIGTERM);
        EXPECT_EQ(s.status(), -SIGTERM);
        EXPECT_EQ(s.sent("he text of MAIN"), 1U) << "told once";
        EXPECT_EQ(s.sent(row.message), 1U);
        EXPECT_EQ(s.files().get("u"), "two\n");
        size_t files = 0;
        for (const auto& entry : fs::recursive_directory_iterator(s.files().root())) {
            if (entry.is_symlink() || !entry.path().filename().string().starts_with("t.txt-MAIN-")) continue;
            ++files;
            const fs::path place = entry.path().parent_path();
            EXPECT_TRUE(place.string().starts_with(s.files().path(row.where))) << place;
            EXPECT_EQ(fs::status(place).permissions(), fs::perms::owner_all);
            EXPECT_EQ(entry.status().permissions(), fs::perms::owner_read | fs::perms::owner_write);
        }
        EXPECT_EQ(files, row.files);
    }
}

// What it kept of the text before it was full is not left there.
TEST(Rescue, AFullPlaceIsLeftForTheNext) {
    screens::Setup setup = shell("exec \"$KPE\" t.txt");
    const Scratch dir;
    fs::create_directory(dir.path("full"));
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no file system of one's own here";
    ASSERT_EQ(mount("none", dir.path("full").c_str(), "tmpfs", 0, "size=8k"), 0);
    setup.directory = &dir;
    setup.env["XDG_STATE_HOME"] = dir.path("full");
    const std::string line(3000, 'y');
    Terminal s(setup);
    for (int i = 0; i < 4; ++i) s.keys(typed("INSERT \"" + line + "\""));
    s.signal(SIGTERM);
    EXPECT_EQ(s.status(), -SIGTERM);
    EXPECT_EQ(rescued(dir), (Texts{{"t.txt-MAIN", line + line + line + line + "one\n"}}));
    EXPECT_EQ(s.sent("he text of MAIN"), 1U);
    EXPECT_EQ(dir.names("full/kpe"), std::set<std::string>{});
    umount(dir.path("full").c_str());
}

TEST(Rescue, NamesAreSafe) {
    const std::string long_name = std::string(89, 'a') + "\xc3\xa4" + "b";
    for (const auto& [name, safe] : std::vector<std::pair<std::string, std::string>>{
             {"notes.txt", "notes.txt"},
             {"/etc/../x y", "_etc_.._x y"},
             {"..", "_."},
             {"-rf", "_rf"},
             {"a\033[2J\n\177b", "a_[2J__b"},
             {"\xc3\xa4\xe2\x82\xac", "\xc3\xa4\xe2\x82\xac"},
             {"\xc2\x9b\x9b", "___"},
             {long_name, std::string(89, 'a')},
         })
        EXPECT_EQ(kpe_safe_name(name), safe) << name;
}

// --- Nothing to read ---

TEST(Rescue, WithoutInputEverySessionEndsAtOnce) {
    for (const std::string startup : {"TYPE", "INSERT", "DEFINE MACRO m", "S/o/x/ WHOLE/QUERY", "S/o/x//GLOBAL/QUERY",
                                      "CHANGE", "SET KEYPAD NOKEYPAD\nCHANGE", "HELP"}) {
        for (const char* rest : {"", " >out 2>&1", " >/dev/null 2>&1"}) {
            SCOPED_TRACE(startup + rest);
            screens::Setup setup = shell("trap '' HUP; exec \"$KPE\" -command=c t.txt </dev/null" + std::string(rest));
            setup.files["c"] = startup + "\n";
            const auto start = std::chrono::steady_clock::now();
            Terminal s(setup);
            EXPECT_EQ(s.status(), 0);
            EXPECT_LT(std::chrono::steady_clock::now() - start, BY_ITSELF);
            EXPECT_FALSE(fs::exists(s.files().path(RESCUE)));
        }
    }
}
