#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <sstream>
#include <tuple>
#include <vector>

#include "unit/scratch.h"

// Saves under every fault at every call: one of the calls that the program makes on files fails, comes short, or is
// its last, and this for each of them. Whatever happens, the name holds the whole old or the whole new text, or a copy
// that is kept holds the old one; the status tells which; and nothing else is left behind.

namespace fs = std::filesystem;

namespace {

const std::string LONG = std::string(40000, 'l') + "\n", ADDED(25000, 'n');
const std::string LARGE = [] {  // more than is written at once
    std::string text;
    for (int i = 0; i < 150'000; ++i) text += "old text\n";
    return text;
}();

const std::string CLONED = [] {  // large enough to be cloned
    std::string text(size_t{65} << 20, 'x');
    for (size_t at = 999; at < text.size(); at += 1000) text[at] = '\n';
    return text + '\n';
}();

struct Target {
    const char* name;
    const char* files;  // shell commands before each run; d/t is edited
    std::string old = "old text\n", added = "new ";
    std::string whole = added + old, edit = "INSERT \"" + added + '"';  // the new text, and the command to it
    bool version = false, as_user = false, own_disk = false, overwritten = false, is_private = false;
    rlim_t limit = RLIM_INFINITY;
    const char* without = "";
    bool cloned = false;  // from a file system that can share bytes; only the calls for that fail

    std::string saved_as() const { return version ? "d/t;5" : "d/t"; }
    bool lets_fail(std::string_view call) const { return !cloned || call == "copy_file_range" || call == "ioctl"; }
    bool fits() const { return !own_disk && limit == RLIM_INFINITY; }
};

// clang-format off
const Target TARGETS[] = {
    {.name = "Regular", .files = "chmod 600 d/t", .is_private = true},
    {.name = "Large", .files = "", .old = LARGE},
    {.name = "New", .files = "", .old = "", .whole = "new \n"},
    {.name = "Version", .files = "cp d/t 'd/t;4'", .version = true},
    {.name = "SymbolicLink", .files = "mv d/t real; ln -s ../real d/t"},
    {.name = "HardLink", .files = "ln d/t link", .overwritten = true},
    {.name = "HardLinkShorter", .files = "ln d/t link", .old = "text that goes\n", .whole = "text\n",
     .edit = "S/ that goes//", .overwritten = true},
    {.name = "ReadOnlyDirectory", .files = "chmod 666 d/t; chmod 555 d", .as_user = true, .overwritten = true},
    {.name = "ForeignOwner", .files = "chmod 640 d/t; chown 65534:65534 d/t"},
    {.name = "ForeignOwnerRefused", .files = "chmod 666 d/t", .as_user = true, .overwritten = true},
    {.name = "SetGroupId", .files = "chown 0:12 d/t; chmod 2755 d/t"},
    {.name = "NoNamelessFiles", .files = "", .without = "nameless"},
    {.name = "VersionOnPlainFileSystem", .files = "cp d/t 'd/t;4'", .version = true,
     .without = "nameless noreplace links"},
    {.name = "VersionWithoutExclusiveRename", .files = "cp d/t 'd/t;4'", .version = true,
     .without = "nameless noreplace"},
    {.name = "SmallDisk", .files = "", .old = LONG, .own_disk = true},
    {.name = "SmallDiskHardLink", .files = "ln d/t d/link", .old = LONG, .added = ADDED, .own_disk = true,
     .overwritten = true},
    {.name = "SizeLimit", .files = "", .old = LONG, .limit = 20000},
    {.name = "SizeLimitHardLink", .files = "ln d/t link", .old = LONG, .added = ADDED, .overwritten = true,
     .limit = 60000},
    {.name = "Cloned", .files = "dd if=/dev/null of=d/t oflag=nocache conv=notrunc,fdatasync count=0 status=none",
     .old = CLONED, .whole = "y" + CLONED.substr(1), .edit = "S/x/y/", .cloned = true},
};
// clang-format on

void PrintTo(const Target& target, std::ostream* out) { *out << target.name; }

struct Fault {
    const char* name;
    std::string_view calls;  // that it can happen to; all if empty
};
// Being killed after a call is being killed before the next one.
constexpr Fault FAULTS[] = {
    {"ENOSPC", "open link rename write pwrite writev copy_file_range fsync ftruncate close"},
    {"EIO", {}},
    {"EINTR", "open read pread write pwrite writev copy_file_range fsync ftruncate close"},
    {"EACCES", "open link rename fchown fchmod"},
    {"short", "write pwrite writev copy_file_range"},
    {"full", "write pwrite writev copy_file_range open link"},
    {"dead", {}},
    {"before", {}},
};
constexpr const char* KEPT = "?The old text is kept in ";

// One call of the program, as the library logged it.
struct Call {
    std::string name, file, note;
    bool is_one_of(std::string_view calls) const { return calls.find(name) != std::string_view::npos; }
};

struct Ended {
    int status;  // exit status, or a signal's number below 0
    std::string out, err;
};

#ifdef __SANITIZE_ADDRESS__
constexpr size_t STEP = 4;  // only some of the calls, as each run takes ten times as long
#else
constexpr size_t STEP = 1;
#endif

using Text = std::optional<std::string>;  // none: there is no such file
using Names = std::set<std::string>;

// The program runs in dir, which is its HOME as well; what goes in and comes out lies in io.
class EveryCall : public testing::TestWithParam<Target> {
protected:
    void SetUp() override {
        fs::copy_file(KPE_FAILING_CALLS, io.path("failing_calls.so"));
        io.put("log", "");
        fs::permissions(io.path("log"), fs::perms(0666));
        for (const Scratch* scratch : {&dir, &io}) fs::permissions(scratch->root(), fs::perms::all);
        fs::create_directory(dir.path("d"));
        if (!target.own_disk && !target.cloned) return;
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "no file system of one's own here";
        const std::string disk = io.path("disk");
        const std::string make_disk = "exec 2>&1 >/dev/null; truncate -s 400M " + disk + " && mkfs.xfs -q " + disk +
                                      " && mount -o loop " + disk + " " + dir.path("d");
        if (target.cloned && std::system(make_disk.c_str()) != 0) GTEST_SKIP() << "no such file system here";
        if (target.cloned) return;
        ASSERT_EQ(mount("none", dir.path("d").c_str(), "tmpfs", 0, "size=64k"), 0);
    }
    void TearDown() override {
        fs::permissions(dir.path("d"), fs::perms::all);
        if (target.own_disk || target.cloned) umount(dir.path("d").c_str());
    }
    void make_files() {
        fs::permissions(dir.path("d"), fs::perms::all);
        for (const char* where : {"d", "."})
            for (const std::string& name : dir.names(where))
                if (name != "d") fs::remove_all(dir.path(std::string(where) + "/" + name));
        fs::create_directory(dir.path("state"));
        fs::permissions(dir.path("state"), fs::perms::all);
        if (!target.old.empty()) dir.put("d/t", target.old);
        // An ordinary user may not give files away: then the target is a plain one.
        if (*target.files && std::system(("cd " + dir.root() + "; exec 2>&-; " + target.files).c_str()) == -1) abort();
        if (target.as_user && geteuid() == 0 && chown(dir.path("state").c_str(), NOBODY, NOBODY) != 0) abort();
        before_ = text();
        if (stat(dir.path("d/t").c_str(), &old_status_) != 0) old_status_ = {};
        names_ = names();
        names_.insert({"t", "t;5", ".local"});
    }
    Ended run(size_t n, const char* fault) {
        io.put("in", target.edit + "\nEXIT\n");
        const pid_t child = fork();
        if (child == 0) become_program(n, fault);
        int how = 0;
        waitpid(child, &how, 0);
        return {WIFEXITED(how) ? WEXITSTATUS(how) : -WTERMSIG(how), io.get("out"), io.get("err")};
    }
    std::vector<Call> log() const {
        std::istringstream all(io.get("log"));
        std::vector<Call> calls;
        for (std::string line; std::getline(all, line);) {
            const size_t first = line.find(' '), last = line.rfind(' ');
            calls.push_back({line.substr(0, first), line.substr(first + 1, last - first - 1), line.substr(last + 1)});
        }
        return calls;
    }
    Text text() const {
        const std::string name = target.saved_as();
        return fs::exists(dir.path(name)) ? Text(dir.get(name)) : std::nullopt;
    }
    Names copies() const { return fs::exists(dir.path("state/kpe")) ? dir.names("state/kpe") : Names{}; }
    Names names() const {
        Names all = dir.names("d");
        all.merge(dir.names("."));
        return all;
    }
    [[noreturn]] void become_program(size_t n, const char* fault) const;
    void judge(const Ended& ended, std::string_view fault, const Call& hit);
    void judge_leftovers(bool excused);
    void judge_journal(bool excused) const;
    void judge_order(const std::vector<Call>& calls) const;

    static constexpr uid_t NOBODY = 65534;  // as whom root is stopped by permissions
    const Target target = GetParam();
    Scratch dir, io;
    Text before_;  // a run: what the save replaces
    struct stat old_status_ {};
    Names names_;
};

void EveryCall::become_program(size_t n, const char* fault) const {
    const int program = open(KPE_PROGRAM, O_RDONLY | O_CLOEXEC);  // the way there may be closed to others
    const int log = open(io.path("log").c_str(), O_WRONLY | O_TRUNC);
    if (!freopen(io.path("in").c_str(), "r", stdin) || !freopen(io.path("out").c_str(), "w", stdout) ||
        !freopen(io.path("err").c_str(), "w", stderr) || chdir(dir.root().c_str()) != 0)
        _exit(126);
    alarm(60);
    const rlimit limit{target.limit, target.limit};
    setrlimit(RLIMIT_FSIZE, &limit);
    if (target.as_user && geteuid() == 0 && (setgid(NOBODY) != 0 || setuid(NOBODY) != 0)) _exit(125);
    std::string env[] = {"HOME=" + dir.root(),
                         "TMPDIR=" + dir.root(),
                         "XDG_STATE_HOME=" + dir.path("state"),
                         "KPE_FAULT_LOG=" + std::to_string(log),
                         "KPE_FAULT_AT=" + std::to_string(n),
                         std::string("KPE_FAULT=") + fault,
                         "KPE_FAULT_DIR=" + dir.root(),
                         std::string("KPE_FAULT_WITHOUT=") + target.without,
                         "ASAN_OPTIONS=verify_asan_link_order=0",
                         "LD_PRELOAD=" + io.path("failing_calls.so"),
                         target.version ? "KPE_VMS_VERSIONS=1" : "NONE="};
    std::string words[] = {"kpe", "d/t"};
    char* const args[] = {words[0].data(), words[1].data(), nullptr};
    std::vector<char*> pointers;
    for (std::string& variable : env) pointers.push_back(variable.data());
    pointers.push_back(nullptr);
    fexecve(program, args, pointers.data());
    _exit(127);
}

// fault is empty for a run without any.
void EveryCall::judge(const Ended& ended, std::string_view fault, const Call& hit) {
    const bool killed = ended.status == -SIGKILL, told_of_copy = ended.err.starts_with(KEPT);
    const bool not_removed = killed || hit.name == "unlink" || fault == "dead";
    const Text found = text();
    const bool saved = found == target.whole, torn = !saved && found != before_, kept = !copies().empty();
    for (const std::string& name : copies())
        EXPECT_TRUE(dir.get("state/kpe/" + name) == target.old) << name << " is not the old text";
    EXPECT_TRUE(!torn || (kept && target.overwritten)) << "neither the old nor the new text";
    EXPECT_TRUE(torn || !kept || not_removed || told_of_copy) << "a copy that nobody needs";
    judge_journal(killed || fault == "dead" || hit.name == "ftruncate");
    judge_leftovers(not_removed);
    if (killed) return;

    // A text of which it is not known whether it reached the disk does not count as saved.
    const bool done = saved && !told_of_copy;
    EXPECT_EQ(ended.status, done ? 0 : 2);
    EXPECT_EQ(ended.out.ends_with(" lines\n"), done) << ended.out;
    EXPECT_EQ(ended.err.find("?Unable to write d/t") != std::string::npos, !done) << ended.err;
    EXPECT_TRUE(!torn || told_of_copy) << ended.err;
    if (fault.empty() || fault == "EINTR" || fault == "short") {
        EXPECT_EQ(done, target.fits()) << ended.err;
    }
    if (torn || old_status_.st_ino == 0) return;
    struct stat now {};
    ASSERT_EQ(stat(dir.path("d/t").c_str(), &now), 0);
    const auto owned = [](const struct stat& st) { return std::tuple(st.st_mode, st.st_uid, st.st_gid); };
    EXPECT_EQ(owned(now), owned(old_status_));
}

// What must stay behind is known to the next save, which removes it.
void EveryCall::judge_leftovers(bool excused) {
    bool left = false;
    for (const std::string& name : names()) {
        left = left || name.starts_with(".kpe-");
        EXPECT_TRUE(names_.contains(name) || name.ends_with(".jou") || name.starts_with(".kpe-")) << name;
    }
    EXPECT_TRUE(!left || excused) << "a new text that was not removed";
    if (!left) return;
    run(0, "");
    for (const std::string& name : names()) EXPECT_FALSE(name.starts_with(".kpe-")) << "left by the next save";
}

// It holds whole lines; only on a full disk half a line may be its last, if it could not be taken back.
void EveryCall::judge_journal(bool excused) const {
    const std::string typed = "\n" + target.edit + "\nEXIT\n";
    for (const std::string& name : dir.names("d")) {
        if (!name.ends_with(".jou")) continue;
        std::istringstream lines(dir.get("d/" + name));
        for (std::string line; std::getline(lines, line);) {
            const bool whole = !lines.eof() && typed.find("\n" + line + "\n") != std::string::npos;
            EXPECT_TRUE(whole || (lines.eof() && excused && target.own_disk)) << "journal: " << line;
        }
    }
}

// What is written reaches the disk before a name leads to it and before the old text goes, and stays private.
void EveryCall::judge_order(const std::vector<Call>& calls) const {
    bool synced = true, named = false;
    for (const Call& call : calls) {
        const bool journal = call.file.ends_with(".jou");
        if (call.is_one_of("write pwrite writev copy_file_range") && !journal) synced = false;
        if (call.name == "fsync") synced = true;
        named = call.name != "fsync" && (named || call.is_one_of("link rename"));
        EXPECT_TRUE(synced || !call.is_one_of("link rename unlink")) << call.name << " " << call.file;
        EXPECT_TRUE(call.note != "careless" || journal) << call.name << " " << call.file;
        const bool secret = call.file.starts_with("state") || (target.is_private && call.file.ends_with("(deleted)"));
        EXPECT_TRUE(call.note != "exposed" || !secret) << call.file;
    }
    EXPECT_FALSE(named) << "the directory is not synced";
}

TEST_P(EveryCall, MayFail) {
    make_files();
    judge(run(0, ""), "", {});
    const std::vector<Call> calls = log();
    judge_order(calls);
    for (size_t n = 1; n <= calls.size(); n += STEP) {
        const Call& call = calls[n - 1];
        for (const Fault& fault : FAULTS) {
            if (!target.lets_fail(call.name)) continue;
            if (!fault.calls.empty() && !call.is_one_of(fault.calls)) continue;
            SCOPED_TRACE(std::string(fault.name) + " at call " + std::to_string(n) + ", " + call.name + " " +
                         call.file);
            make_files();
            judge(run(n, fault.name), fault.name, call);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Saving, EveryCall, testing::ValuesIn(TARGETS), [](const auto& row) { return row.param.name; });

}  // namespace
