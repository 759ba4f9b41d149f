#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <map>
#include <optional>
#include <sstream>

#include "faults/program.h"

// Saves under every fault at every call: one of the calls that the program makes on files fails, comes short, or is
// its last, and this for each of them. Whatever happens, the name holds the whole old or the whole new text, the
// answer tells which, and nothing else is left behind.

namespace fs = std::filesystem;

namespace {

const std::string LONG = std::string(40000, 'l') + "\n", ADDED(25000, 'n');

struct Target {
    const char* name;
    std::function<void(const Scratch&)> files;  // made before each run; d/t is edited, d/o written as well
    std::string old = "old text\n", added = "new ";
    std::string whole = added + old, edit = "INSERT \"" + added + '"';  // the new text, and the command to it
    std::string saved_as = "d/t";
    bool with_write = false, as_user = false, own_disk = false, overwritten = false;
    rlim_t limit = RLIM_INFINITY;
    const char* without = "";
    mode_t mode = 0644;

    bool versions() const { return saved_as != "d/t"; }
    bool fits() const { return !own_disk && limit == RLIM_INFINITY; }
};

void link_to(const Scratch& dir) { fs::create_hard_link(dir.path("d/t"), dir.path("link")); }
void give(const Scratch& dir, uid_t owner, gid_t group) {
    if (geteuid() == 0 && chown(dir.path("d/t").c_str(), owner, group) != 0) abort();
}
void has_version(const Scratch& dir) { dir.put("d/t;4", "old text\n"); }
void become_link(const Scratch& dir) {
    fs::rename(dir.path("d/t"), dir.path("real"));
    fs::create_symlink("../real", dir.path("d/t"));
}
void link_beside(const Scratch& dir) { fs::create_hard_link(dir.path("d/t"), dir.path("d/link")); }
void protect(const Scratch& dir) {
    for (const char* name : {"d/t", "d/o"}) chmod(dir.path(name).c_str(), 0666);
    chmod(dir.path("d").c_str(), 0555);
}

// clang-format off
const Target TARGETS[] = {
    {.name = "Regular", .files = {}, .with_write = true, .mode = 0600},
    {.name = "New", .files = {}, .old = "", .whole = "new \n"},
    {.name = "Version", .files = has_version, .saved_as = "d/t;5", .with_write = true},
    {.name = "SymbolicLink", .files = become_link},
    {.name = "HardLink", .files = link_to, .with_write = true, .overwritten = true},
    {.name = "HardLinkShorter", .files = link_to, .old = "text that goes\n", .whole = "text\n",
     .edit = "S/ that goes//", .overwritten = true},
    {.name = "ReadOnlyDirectory", .files = protect, .as_user = true, .overwritten = true},
    {.name = "ForeignOwner", .files = [](auto& dir) { give(dir, NOBODY, NOBODY); }, .mode = 0640},
    {.name = "ForeignOwnerRefused", .files = {}, .as_user = true, .overwritten = true, .mode = 0666},
    {.name = "SetGroupId", .files = [](auto& dir) { give(dir, 0, 12); }, .mode = 02755},
    {.name = "NoNamelessFiles", .files = {}, .without = "nameless"},
    {.name = "VersionOnPlainFileSystem", .files = has_version, .saved_as = "d/t;5",
     .without = "nameless noreplace links"},
    {.name = "VersionWithoutExclusiveRename", .files = has_version, .saved_as = "d/t;5",
     .without = "nameless noreplace"},
    {.name = "SmallDisk", .files = {}, .old = LONG, .own_disk = true},
    {.name = "SmallDiskHardLink", .files = link_beside, .old = LONG, .added = ADDED, .own_disk = true,
     .overwritten = true},
    {.name = "SizeLimit", .files = {}, .old = LONG, .limit = 20000},
    {.name = "SizeLimitHardLink", .files = link_to, .old = LONG, .added = ADDED, .overwritten = true, .limit = 60000},
};
// clang-format on

void PrintTo(const Target& target, std::ostream* out) { *out << target.name; }

struct Session {
    const char* commands;  // after the edit
    // The file, and the words of an answer that it was saved, and that it was not.
    struct Save {
        const char *name, *done, *refused;
    };
    std::vector<Save> saves;
};
const Session EXIT{"EXIT\n", {{"d/t", " lines\n", "?Unable to write d/t"}}};
const Session SAVE_AND_WRITE{
    "/SAVE\nWRITE d/o\nQUIT\n",
    {{"d/t", "[Saved d/t", "?Unable to save d/t"}, {"d/o", " written\n", "?Unable to write d/o"}}};

struct Fault {
    const char* name;
    std::string_view calls;  // that it can happen to; all if empty
};
constexpr std::string_view WAITING = "open read pread write pwrite writev fsync ftruncate close";
constexpr std::string_view FILLING = "open link rename write pwrite writev fsync ftruncate close";
// Being killed after a call is being killed before the next one.
constexpr Fault FAULTS[] = {
    {"ENOSPC", FILLING},
    {"EIO", {}},
    {"EINTR", WAITING},
    {"EACCES", "open link rename fchown fchmod"},
    {"short", "write pwrite writev"},
    {"full", "write pwrite writev open link"},
    {"dead", {}},
    {"before", {}},
};
constexpr const char* KEPT = "?The old text is kept in ";
// One call of the program, as the library logged it.
struct Call {
    std::string name, file, note;
    bool is_one_of(std::string_view calls) const { return calls.find(name) != std::string_view::npos; }
};

#ifdef __SANITIZE_ADDRESS__
constexpr size_t STEP = 4;  // only some of the calls, as each run takes ten times as long
#else
constexpr size_t STEP = 1;
#endif

using Text = std::optional<std::string>;  // none: there is no such file
using Names = std::set<std::string>;

class EveryCall : public ProgramTest, public testing::WithParamInterface<Target> {
protected:
    void SetUp() override {
        fs::copy_file(KPE_FAILING_CALLS, library_);
        for (const Scratch* scratch : {&dir, &io}) fs::permissions(scratch->root(), fs::perms::all);
        fs::create_directory(dir.path("d"));
        if (!target.own_disk) return;
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "no file system of one's own here";
        ASSERT_EQ(mount("none", dir.path("d").c_str(), "tmpfs", 0, "size=64k"), 0);
    }
    void TearDown() override {
        fs::permissions(dir.path("d"), fs::perms::all);
        if (target.own_disk) umount(dir.path("d").c_str());
    }
    void make_files() {
        fs::permissions(dir.path("d"), fs::perms::all);
        for (const char* where : {"d", "."})
            for (const std::string& name : dir.names(where))
                if (name != "d") fs::remove_all(dir.path(std::string(where) + "/" + name));
        fs::create_directory(dir.path("state"));
        fs::permissions(dir.path("state"), fs::perms::all);
        if (target.as_user && geteuid() == 0 && chown(dir.path("state").c_str(), NOBODY, NOBODY) != 0) abort();
        dir.put("d/o", "other\n");
        if (!target.old.empty()) {
            dir.put("d/t", target.old);
            chmod(dir.path("d/t").c_str(), target.mode);
        }
        if (target.files) target.files(dir);
        if (target.mode & 07000) chmod(dir.path("d/t").c_str(), target.mode);  // a change of owner took it away
        for (const char* name : {"d/t", "d/o"}) before_[name] = text(place(name));
        if (stat(dir.path("d/t").c_str(), &old_status_) != 0) old_status_ = {};
        names_ = names();
        names_.insert({"t", "t;5", "o;2", ".local"});
    }
    Ended run_with(const Session& session, long n, const char* fault) {
        return run({"d/t"}, target.edit + "\n" + session.commands, [&] {
            setenv("XDG_STATE_HOME", dir.path("state").c_str(), 1);
            if (target.versions()) setenv("KPE_VMS_VERSIONS", "1", 1);
            const rlimit limit{target.limit, target.limit};
            setrlimit(RLIMIT_FSIZE, &limit);
            if (target.as_user) without_privileges();
            const int log = open(log_.c_str(), O_WRONLY | O_TRUNC);
            setenv("KPE_FAULT_LOG", std::to_string(log).c_str(), 1);
            setenv("KPE_FAULT_AT", std::to_string(n).c_str(), 1);
            setenv("KPE_FAULT", fault, 1);
            setenv("KPE_FAULT_DIR", dir.root().c_str(), 1);
            setenv("KPE_FAULT_WITHOUT", target.without, 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
            setenv("LD_PRELOAD", library_.c_str(), 1);
        });
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
    Text text(const std::string& name) const { return fs::exists(dir.path(name)) ? Text(dir.get(name)) : std::nullopt; }
    Names copies() const { return fs::exists(dir.path("state/kpe")) ? dir.names("state/kpe") : Names{}; }
    Names names() const {
        Names all = dir.names("d");
        all.merge(dir.names("."));
        return all;
    }
    // The file that a save of name makes or replaces.
    std::string place(const std::string& name) const {
        if (!target.versions()) return name;
        return name == "d/t" ? target.saved_as : name + ";2";
    }
    void judge(const Session& session, const Ended& ended, const Fault* fault, const Call& hit);
    void judge_names(const Session& session, const Ended& ended, bool excused, bool torn);
    void judge_journal(const Session& session, bool excused);

    const Target target = GetParam();
    std::map<std::string, Text> before_;  // a run: what the saves of the names replace
    struct stat old_status_ {};
    Names names_;
    const std::string library_ = io.path("failing_calls.so");
    const std::string log_ = [this] {
        std::string name = io.put("log", "");
        chmod(name.c_str(), 0666);
        return name;
    }();
};

// fault is null for a run without any.
void EveryCall::judge(const Session& session, const Ended& ended, const Fault* fault, const Call& hit) {
    const bool killed = ended.status == -SIGKILL;
    const bool loaded = ended.out.find("\n1 " + target.old.substr(0, 5)) != std::string::npos || target.old.empty();
    const std::string_view how = fault ? fault->name : "";
    const bool must_be_saved = how.empty() || how == "EINTR" || how == "short";
    const bool not_removed = hit.name == "unlink" || how == "dead";
    EXPECT_TRUE(killed || ended.status == 0 || ended.status == 2) << ended.status;
    bool torn = false;
    for (const Session::Save& save : session.saves) {
        const Text found = text(place(save.name)), old = before_.at(save.name);
        const bool done = (ended.out + ended.err).find(save.done) != std::string::npos;
        const bool refused = (ended.out + ended.err).find(save.refused) != std::string::npos;
        if (found != old && found != target.whole && !(save.name == std::string_view("d/o") && !loaded)) torn = true;
        if (killed) continue;
        EXPECT_NE(done, refused) << ended.out << ended.err;
        // A text of which it is not known whether it reached the disk does not count as saved.
        const bool doubtful = found == target.whole && ended.err.starts_with(KEPT);
        EXPECT_EQ(done, found != old && !torn && !doubtful) << "told otherwise: " << ended.out << ended.err;
        EXPECT_TRUE(!must_be_saved || done == target.fits()) << ended.out << ended.err;
        EXPECT_TRUE(&session != &EXIT || ended.status == (done ? 0 : 2)) << ended.status;
    }
    if (!killed && !torn && old_status_.st_ino != 0) {
        struct stat now {};
        ASSERT_EQ(stat(dir.path("d/t").c_str(), &now), 0);
        EXPECT_EQ(now.st_mode, old_status_.st_mode);
        EXPECT_EQ(now.st_uid, old_status_.st_uid);
        EXPECT_EQ(now.st_gid, old_status_.st_gid);
    }
    judge_names(session, ended, killed || not_removed, torn);
    judge_journal(session, killed || how == "dead" || hit.name == "ftruncate");
}

// Of what is left behind.
void EveryCall::judge_names(const Session& session, const Ended& ended, bool excused, bool torn) {
    bool kept = false;
    for (const std::string& name : copies()) {
        EXPECT_TRUE(dir.get("state/kpe/" + name) == target.old) << name << " is not the old text";
        kept = true;
    }
    EXPECT_TRUE(kept || !torn) << "the old text is gone";
    EXPECT_TRUE(!torn || target.overwritten) << "neither the old nor the new text";
    EXPECT_TRUE(torn || !kept || excused || ended.err.starts_with(KEPT)) << "a copy that nobody needs";
    EXPECT_TRUE(!torn || ended.status == -SIGKILL || ended.err.starts_with(KEPT)) << ended.err;

    bool left = false;
    for (const std::string& name : names()) {
        left = left || name.starts_with(".kpe-");
        EXPECT_TRUE(names_.contains(name) || name.ends_with(".jou") || name.starts_with(".kpe-")) << name;
    }
    EXPECT_TRUE(!left || excused) << "a new text that was not removed";
    if (!left) return;
    run_with(session, 0, "");
    for (const std::string& name : names()) EXPECT_FALSE(name.starts_with(".kpe-")) << "left by the next save";
}

// It holds whole lines; only on a full disk half a line may be its last, if it could not be taken back.
void EveryCall::judge_journal(const Session& session, bool excused) {
    const std::string typed = "\n" + target.edit + "\n" + session.commands;
    for (const std::string& name : dir.names("d")) {
        if (!name.ends_with(".jou")) continue;
        std::istringstream lines(dir.get("d/" + name));
        for (std::string line; std::getline(lines, line);) {
            const bool whole = !lines.eof() && typed.find("\n" + line + "\n") != std::string::npos;
            EXPECT_TRUE(whole || (lines.eof() && excused && target.own_disk)) << "journal: " << line;
        }
    }
}

TEST_P(EveryCall, MayFail) {
    std::vector<const Session*> sessions{&EXIT};
    if (target.with_write) sessions.push_back(&SAVE_AND_WRITE);
    int runs = 0;
    for (const Session* session : sessions) {
        make_files();
        judge(*session, run_with(*session, 0, ""), nullptr, {});
        const std::vector<Call> calls = log();
        bool synced = true;  // what was written for a file, before a name leads to it and before the old text goes
        for (const Call& call : calls) {
            if (call.is_one_of("write pwrite writev") && !call.file.ends_with(".jou")) synced = false;
            if (call.name == "fsync") synced = true;
            EXPECT_TRUE(synced || !call.is_one_of("link rename unlink")) << call.name << " " << call.file;
            EXPECT_TRUE(call.note != "careless" || call.file.ends_with(".jou")) << call.name << " " << call.file;
            const bool is_private = (target.mode & 077) == 0 && call.file.ends_with("(deleted)");
            EXPECT_TRUE(call.note != "exposed" || !(is_private || call.file.starts_with("state"))) << call.file;
        }
        for (size_t n = 1; n <= calls.size(); n += STEP) {
            const Call& call = calls[n - 1];
            for (const Fault& fault : FAULTS) {
                if (!fault.calls.empty() && !call.is_one_of(fault.calls)) continue;
                SCOPED_TRACE(std::string(fault.name) + " at call " + std::to_string(n) + ", " + call.name + " " +
                             call.file + ", of " + session->commands);
                make_files();
                judge(*session, run_with(*session, static_cast<long>(n), fault.name), &fault, call);
                ++runs;
            }
        }
    }
    RecordProperty("runs", runs);
}

INSTANTIATE_TEST_SUITE_P(Saving, EveryCall, testing::ValuesIn(TARGETS), [](const auto& row) { return row.param.name; });

}  // namespace
