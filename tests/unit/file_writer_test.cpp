#include "files/file_writer.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <functional>
#include <tuple>

#include "files/file_handle.h"
#include "unit/scratch.h"

namespace fs = std::filesystem;

namespace {

using Names = std::set<std::string>;
using Existing = FileWriter::Existing;

constexpr size_t MB = size_t{1} << 20;
constexpr uid_t NOBODY = 65534;

// Saves text; 0, or what errno said.
int save(const std::string& path, std::string_view text, Existing existing = Existing::Replace) {
    FileWriter writer;
    if (!writer.open(path, existing)) return errno;
    writer.write(text);
    return writer.commit() ? 0 : errno;
}

struct stat stat_of(const std::string& path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st;
}

// Saves as an ordinary user, in a child, because nobody becomes root again.
int save_as_user(const std::string& path, std::string_view text) {
    const pid_t child = fork();
    if (child == 0) {
        if (getuid() == 0 && (setgroups(0, nullptr) || setgid(NOBODY) || setuid(NOBODY))) _exit(255);
        _exit(save(path, text));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Text that shows any misplaced piece.
std::string numbered(size_t size) {
    std::string text;
    while (text.size() < size) text += std::to_string(text.size()) + "\n";
    text.resize(size);
    return text;
}

class Saving : public testing::Test {
protected:
    Saving() {
        for (const char* name : {"state", "d", "."}) {
            fs::create_directory(scratch.path(name));
            fs::permissions(scratch.path(name), fs::perms::all);
        }
        setenv("XDG_STATE_HOME", scratch.path("state").c_str(), 1);
        unsetenv("HOME");
    }
    ~Saving() override { unsetenv("XDG_STATE_HOME"); }

    Scratch scratch;
};

TEST_F(Saving, ReplacesTextWithTheOldModeAndAttributes) {
    const std::string path = scratch.put("d/a", "old");
    ASSERT_TRUE(getuid() != 0 || chown(path.c_str(), NOBODY, 12) == 0);
    chmod(path.c_str(), 06754);
    const bool attributes = setxattr(path.c_str(), "user.kpe", "x", 1, 0) == 0;
    const struct stat old = stat_of(path);
    EXPECT_EQ(save(path, "new\n"), 0);
    const struct stat now = stat_of(path);
    EXPECT_NE(now.st_ino, old.st_ino) << "written in place";
    EXPECT_EQ(std::tie(now.st_mode, now.st_uid, now.st_gid), std::tie(old.st_mode, old.st_uid, old.st_gid));
    char value = 0;
    EXPECT_EQ(getxattr(path.c_str(), "user.kpe", &value, 1) == 1, attributes);
    {
        FileWriter writer;  // that is never committed
        ASSERT_TRUE(writer.open(path, Existing::Replace));
        writer.write(numbered(2 * MB));
    }
    EXPECT_EQ(scratch.get("d/a"), "new\n");
    EXPECT_EQ(scratch.names("d"), Names{"a"});
}

TEST_F(Saving, FollowsLinksAndFailsAtOpenWhereNoFileCanBe) {
    scratch.put("d/real/file", "old");
    const std::pair<const char*, const char*> LINKS[] = {{"first", "d/second"},
                                                         {"d/second", "real/file"},
                                                         {"dangling", "d/real/made"},
                                                         {"loop", "loop"},
                                                         {"lost", "nowhere/x"}};
    for (const auto& [link, to] : LINKS) fs::create_symlink(to, scratch.path(link));
    const std::pair<std::string, int> ROWS[] = {
        {"first", 0},       {"dangling", 0},
        {"loop", ELOOP},    {"lost", ENOENT},
        {"d", EISDIR},      {"d/real/file/a", ENOTDIR},
        {"d/new/", ENOENT}, {"d/" + std::string(256, 'n'), ENAMETOOLONG},
    };
    for (const auto& [name, error] : ROWS) EXPECT_EQ(save(scratch.path(name), name), error) << name;
    EXPECT_EQ(scratch.get("d/real/file"), "first");
    EXPECT_EQ(scratch.get("d/real/made"), "dangling");
    EXPECT_EQ(scratch.names("d/real"), (Names{"file", "made"}));
    for (const auto& [link, to] : LINKS) EXPECT_TRUE(fs::is_symlink(scratch.path(link))) << link;
}

TEST_F(Saving, WritesFurtherLinksInPlace) {
    const std::string path = scratch.put("d/a", numbered(3 * MB));
    fs::create_hard_link(path, scratch.path("other"));
    // An ordinary owner, because only from such a one a write takes the special bits away.
    for (const std::string& owned : {path, scratch.path("state")})
        ASSERT_TRUE(getuid() != 0 || chown(owned.c_str(), NOBODY, NOBODY) == 0);
    chmod(path.c_str(), 06755);
    for (const size_t size : {size_t{5}, size_t{0}, 4 * MB + 1}) {
        EXPECT_EQ(save_as_user(path, numbered(size)), 0);
        EXPECT_TRUE(scratch.get("other") == numbered(size)) << size;
        EXPECT_EQ(stat_of(path).st_mode & 07777, 06755u);
        EXPECT_EQ(scratch.names("d"), Names{"a"});
        EXPECT_EQ(scratch.names("state/kpe"), Names{}) << "a safety copy is left";
    }
    EXPECT_EQ(stat_of(scratch.path("state/kpe")).st_mode & 07777, 0700u);
}

// What lies under the name of a new text is removed only if it is a file that a killed save left there.
TEST_F(Saving, TrustsNothingUnderTheNameOfItsNewText) {
    const std::string path = scratch.put("d/a", "old"), beside = scratch.path("d/.kpe-a");
    scratch.put("victim", "victim");
    FileHandle busy;
    const auto put_marked = [&](ino_t other) {
        const std::string inode = std::to_string(stat_of(scratch.put("d/.kpe-a", "text")).st_ino + other);
        return setxattr(beside.c_str(), "user.kpe.unfinished", inode.data(), inode.size(), 0) == 0;
    };
    const bool attributes = put_marked(0) && fs::remove(beside);
    const std::pair<std::function<void()>, bool> ROWS[] = {
        {[&] { fs::create_symlink(scratch.path("victim"), beside); }, true},
        {[&] { fs::create_directory(beside); }, true},
        {[&] { ASSERT_EQ(mkfifo(beside.c_str(), 0600), 0); }, true},
        {[&] { scratch.put("d/.kpe-a", "the user's own"); }, true},
        {[&] { put_marked(1); }, true},  // a copy of a leftover
        {[&] {
             put_marked(0);  // of another session
             busy = FileHandle(open(beside.c_str(), O_RDONLY));
             ASSERT_EQ(flock(busy.fd(), LOCK_EX), 0);
         },
         true},
        {[&] { put_marked(0); }, !attributes},
    };
    for (const auto& [plant, stays] : ROWS) {
        plant();
        EXPECT_EQ(save(path, "new"), 0);
        EXPECT_EQ(scratch.get("d/a"), "new");
        EXPECT_EQ(fs::exists(fs::symlink_status(beside)), stays);
        EXPECT_EQ(scratch.names("d").size(), stays ? 2U : 1U);
        fs::remove(beside);
        busy.close();
    }
    EXPECT_EQ(scratch.get("victim"), "victim");
}

// As standard output of a shell's redirection: whoever holds the file open must see the new text.
TEST_F(Saving, WritesInPlaceWhatIsNamedThroughItsDescriptor) {
    const FileHandle held(open(scratch.put("d/a", "old text").c_str(), O_RDWR));
    EXPECT_EQ(save("/dev/fd/" + std::to_string(held.fd()), "new"), 0);
    char bytes[20];
    EXPECT_EQ(pread(held.fd(), bytes, sizeof bytes, 0), 3);
    EXPECT_EQ(scratch.get("d/a"), "new");
}

TEST_F(Saving, NeverWritesToAFileThatLostItsName) {
    const std::string path = scratch.put("d/a", "old");
    fs::create_hard_link(path, scratch.path("other"));
    fs::create_hard_link(path, scratch.path("third"));
    FileWriter writer;
    ASSERT_TRUE(writer.open(path, Existing::Replace));
    writer.write("mine");
    fs::remove(path);
    scratch.put("d/a", "somebody else's");
    EXPECT_FALSE(writer.commit());
    EXPECT_EQ(errno, ESTALE);
    EXPECT_EQ(scratch.get("d/a") + scratch.get("other"), "somebody else'sold");
}

TEST_F(Saving, DevicesAndFifosAreWrittenPlainly) {
    EXPECT_EQ(save_as_user("/dev/full", numbered(2 * MB)), ENOSPC);  // root could replace it, if it were a mistake

    const std::string path = scratch.path("d/fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    FileHandle reader(open(path.c_str(), O_RDONLY | O_NONBLOCK));
    FileWriter writer;
    ASSERT_TRUE(writer.open(path, Existing::Replace));
    EXPECT_EQ(save(path, "through"), 0);
    char bytes[20];
    EXPECT_EQ(std::string_view(bytes, static_cast<size_t>(read(reader.fd(), bytes, sizeof bytes))), "through");
    reader.close();
    writer.write("nobody reads this");
    EXPECT_FALSE(writer.commit());
    EXPECT_EQ(errno, EPIPE);
    EXPECT_TRUE(fs::is_fifo(path));
}

TEST_F(Saving, WithoutAPlaceForTheSafetyCopyNothingIsTouched) {
    const std::string path = scratch.put("d/a", "old");
    fs::create_hard_link(path, scratch.path("other"));
    setenv("XDG_STATE_HOME", path.c_str(), 1);  // a file
    setenv("TMPDIR", "/proc/none", 1);
    chmod(path.c_str(), 0666);
    EXPECT_NE(save_as_user(path, "new"), 0);
    EXPECT_EQ(scratch.get("other"), "old");

    setenv("TMPDIR", scratch.path("d").c_str(), 1);  // the last resort
    EXPECT_EQ(save(path, "new"), 0);
    EXPECT_EQ(scratch.get("other"), "new");
    EXPECT_EQ(scratch.names("d"), Names{"a"});
    unsetenv("TMPDIR");
}

}  // namespace
