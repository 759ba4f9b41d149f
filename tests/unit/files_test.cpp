#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <thread>
#include <tuple>

#include "config/n3_rzconfig.h"
#include "unit/scratch.h"

namespace {

using std::string;

class Config : public testing::Test {
protected:
    Config() {
        for (const char* name : {"RZ_CONFIG", "RT_CONFIG", "HOME", "RZREL", "KPE_NO_RZCONFIG"}) unsetenv(name);
    }
    ~Config() override { setenv("KPE_NO_RZCONFIG", "", 1); }
    // "-" for none.
    static string value() {
        string value = "-";
        const bool found = n3rz::config_lookup("A/KEY", value, "kpe");
        EXPECT_EQ(found, value != "-");
        return value;
    }
    void put(const char* variable, std::string_view bytes) {
        setenv(variable, scratch.put(variable, bytes).c_str(), 1);
    }

    Scratch scratch;
};

TEST_F(Config, TakesTheFirstWordAfterTheKey) {
    using namespace std::string_literals;
    const string megabyte(1 << 20, 'x');
    const std::pair<string, string> ROWS[] = {
        {" \ta/key\t on off", "on"},
        {"A/KEY \t \n", ""},
        {"A/KEY ON\r\n", "ON\r"},
        {"A/KEYS on\nA/KE on\n\vA/KEY on\nA/KEY\r\n", "-"},
        {"#A/KEY a\n  [A/KEY a\n# A/KEY b\n\n \t\nA/KEY c\nA/KEY d\n", "c"},
        {"A/KEY 'yes'\n", "yes"},
        {"A/KEY \"yes'\n", "\"yes'"},
        {"A/KEY \"\n", "\""},
        {megabyte + "\nA/KEY " + megabyte, megabyte},
        {"a\0b\nA/KEY\0 on\nA/KEY o\0n\n"s, "o\0n"s},
    };
    for (const auto& [bytes, expected] : ROWS) {
        put("RZ_CONFIG", bytes);
        EXPECT_EQ(value(), expected) << bytes.substr(0, 100);
    }
}

TEST_F(Config, AsksTheFilesInOrder) {
    const char* const FILES[] = {"home/SYS0/SYSMGR/CONFIG.INI", "root/syslib/CONFIG.INI", "root/library/CONFIG.INI",
                                 "root/syslib/Config",          "root/library/Config",    "root/syslib/Config2",
                                 "root/library/Config2"};
    setenv("RZREL", scratch.path("root").c_str(), 1);
    setenv("HOME", scratch.path("home").c_str(), 1);
    for (size_t i = std::size(FILES); i-- > 0;) {
        scratch.put(FILES[i], "A/KEY " + std::to_string(i));
        EXPECT_EQ(value(), std::to_string(i));
    }
    ASSERT_EQ(chdir(scratch.path("home").c_str()), 0);
    setenv("HOME", ".", 1);
    EXPECT_EQ(value(), "1") << "the working directory is no home";
    ASSERT_EQ(chdir("/"), 0);
    put("RT_CONFIG", "A/KEY rt");
    put("RZ_CONFIG", "other line\n");
    EXPECT_EQ(value(), "rt") << "a file without the key ended the search";
    put("RZ_CONFIG", "A/KEY rz\n");
    EXPECT_EQ(value(), "rz");
    setenv("KPE_NO_RZCONFIG", "", 1);
    EXPECT_EQ(value(), "-");
}

TEST_F(Config, ReadsPipesButNeverWaitsForOneNorReadsDevices) {
    ASSERT_EQ(mkfifo(scratch.path("fifo").c_str(), 0600), 0);
    setenv("RZ_CONFIG", scratch.path("fifo").c_str(), 1);
    setenv("RT_CONFIG", "/dev/zero", 1);
    EXPECT_EQ(value(), "-");

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    setenv("RZ_CONFIG", ("/dev/fd/" + std::to_string(ends[0])).c_str(), 1);
    std::thread late([&] {
        usleep(20000);
        EXPECT_EQ(write(ends[1], "A/KEY piped\n", 12), 12);
        close(ends[1]);
    });
    EXPECT_EQ(value(), "piped");
    late.join();
    close(ends[0]);
}

TEST_F(Config, OnAndOff) {
    for (const char* on : {"1", "true", "Yes", "on", "ONE"}) EXPECT_TRUE(n3rz::config_is_on(on)) << on;
    for (const char* off : {"", "0", "o", "OFF", " on"}) EXPECT_FALSE(n3rz::config_is_on(off)) << off;
}

const string FORTY_NINES(40, '9'), FORTY_ZEROS(40, '0');

TEST(Versions, SuffixesOfAnyLength) {
    const std::tuple<string, string, int> ROWS[] = {
        {"x;12", "x", 12},     {"x;1a", "x;1a", 0},
        {"x;1;2", "x;1", 2},   {"x;2147483648", "x", INT_MAX},
        {"d;1/x", "d;1/x", 0}, {"x;" + FORTY_ZEROS + "3", "x", 3},
    };
    for (const auto& [path, base, version] : ROWS) {
        EXPECT_EQ(n3rz::strip_version(path), base) << path;
        EXPECT_EQ(n3rz::version_of(path), version) << path;
    }
}

// The files that exist, the name used, and the names then read and written.
TEST(Versions, ReadAndWriteResolution) {
    const struct {
        std::set<string> files;
        string given, read, written;
    } ROWS[] = {
        {{"a;1"}, "a", "a", "a;2"},
        {{"a;3", "a;104", "a;205"}, "a", "a;205", "a;206"},
        {{"a;3", "a;105"}, "a", "a;3", "a;4"},
        {{"a;102"}, "a", "a", "a"},
        {{"a;7", "a;8"}, "a;7", "a;7", "a;9"},
        {{"a", "a;2"}, "a;1", "a", "a;3"},
        {{"a;1"}, "a;0", "a;1", "a;2"},
        {{}, "a;0", "a;0", "a;2"},
        {{}, "a;0009", "a;0009", "a;10"},
        {{"a;1" + FORTY_ZEROS}, "a;" + FORTY_NINES, "a;" + FORTY_NINES, "a;1" + string(39, '0') + "1"},
        {{"a;", "a;x"}, "a;", "a;", "a;;2"},
    };
    for (const auto& row : ROWS) {
        const Scratch scratch;
        for (const string& file : row.files) scratch.put(file, "");
        const string given = scratch.path(row.given);
        EXPECT_EQ(n3rz::resolve_read_path(given, true), scratch.path(row.read)) << row.given;
        EXPECT_EQ(n3rz::resolve_write_path(given, true), scratch.path(row.written)) << row.given;
        EXPECT_EQ(n3rz::resolve_read_path(given, false) + n3rz::resolve_write_path(given, false), given + given);
    }
}

}  // namespace
