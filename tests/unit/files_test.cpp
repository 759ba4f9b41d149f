#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <thread>
#include <tuple>

#include "config/n3_rzconfig.h"
#include "unit/scratch.h"

namespace {

const char* const VARIABLES[] = {"RZ_CONFIG", "RT_CONFIG", "HOME", "RZREL", "KPE_NO_RZCONFIG", "KPE_RZ_DEBUG"};

class Config : public testing::Test {
protected:
    Config() {
        for (const char* name : VARIABLES) unsetenv(name);
    }
    ~Config() override {
        for (const char* name : VARIABLES) unsetenv(name);
    }

    // What the key has in a file with these bytes, "-" for nothing.
    std::string value_in(std::string_view bytes, const char* key = "KPE/VERSIONING") {
        setenv("RZ_CONFIG", scratch.put("config", bytes).c_str(), 1);
        std::string value = "-";
        const bool found = n3rz::config_lookup(key, value, "kpe");
        EXPECT_EQ(found, value != "-");
        return value;
    }

    Scratch scratch;
};

TEST_F(Config, TakesTheFirstWordAfterTheKey) {
    const std::string megabyte(1 << 20, 'x');
    using namespace std::string_literals;
    const std::pair<std::string, std::string> ROWS[] = {
        {"KPE/VERSIONING   ON\n", "ON"},
        {" \tkpe/versioning\t on off", "on"},
        {"KPE/VERSIONING \t \n", ""},
        {"KPE/VERSIONING ON\r\n", "ON\r"},
        {"KPE/VERSIONING\r\n", "-"},
        {"KPE/VERSIONINGS on\nKPE/VERSION on\n", "-"},
        {"#KPE/VERSIONING a\n  [KPE/VERSIONING a\n# KPE/VERSIONING b\n\n \t\nKPE/VERSIONING c\nKPE/VERSIONING d\n",
         "c"},
        {"KPE/VERSIONING 'yes'\n", "yes"},
        {"KPE/VERSIONING \"yes'\n", "\"yes'"},
        {"KPE/VERSIONING \"\n", "\""},
        {"KPE/VERSIONING \"\"\n", ""},
        {"\vKPE/VERSIONING on\n", "-"},
        {megabyte + "\n" + "KPE/VERSIONING " + megabyte, megabyte},
        {"a\0b\nKPE/VERSIONING\0 on\nKPE/VERSIONING o\0n\n"s, "o\0n"s},
    };
    for (const auto& [bytes, value] : ROWS) EXPECT_EQ(value_in(bytes), value) << bytes.substr(0, 100);
    EXPECT_EQ(value_in("# x\nother y\n", ""), "-");
}

TEST_F(Config, AsksTheFilesInOrder) {
    const char* const FILES[] = {"home/SYS0/SYSMGR/CONFIG.INI", "root/syslib/CONFIG.INI", "root/library/CONFIG.INI",
                                 "root/syslib/Config",          "root/library/Config",    "root/syslib/Config2",
                                 "root/library/Config2"};
    const auto value = [](std::string before = "-") {
        n3rz::config_lookup("TEST/ORDER", before, "kpe");
        return before;
    };
    setenv("RZREL", scratch.path("root").c_str(), 1);
    setenv("HOME", scratch.path("home").c_str(), 1);
    setenv("RT_CONFIG", scratch.path("rt").c_str(), 1);
    EXPECT_EQ(value("as it was"), "as it was");
    for (size_t i = std::size(FILES); i-- > 0;) {
        scratch.put(FILES[i], "TEST/ORDER " + std::to_string(i));
        EXPECT_EQ(value(), std::to_string(i));
    }
    ASSERT_EQ(chdir(scratch.path("home").c_str()), 0);
    setenv("HOME", ".", 1);
    EXPECT_EQ(value(), "1") << "the working directory is no home";
    ASSERT_EQ(chdir("/"), 0);
    scratch.put("rt", "test/order rt");
    EXPECT_EQ(value(), "rt");
    setenv("RZ_CONFIG", scratch.put("rz", "other line\n").c_str(), 1);
    EXPECT_EQ(value(), "rt") << "a file without the key ended the search";
    setenv("RZ_CONFIG", scratch.root().c_str(), 1);
    EXPECT_EQ(value(), "rt") << "a directory ended the search";
    scratch.put("rz", "test/order rz\n");
    setenv("RZ_CONFIG", scratch.path("rz").c_str(), 1);
    EXPECT_EQ(value(), "rz");
    setenv("KPE_NO_RZCONFIG", "", 1);
    EXPECT_EQ(value(), "-");
}

TEST_F(Config, ReadsPipesButNeverWaitsForOneNorReadsDevices) {
    ASSERT_EQ(mkfifo(scratch.path("fifo").c_str(), 0600), 0);
    setenv("RZ_CONFIG", scratch.path("fifo").c_str(), 1);
    setenv("RT_CONFIG", "/dev/zero", 1);
    std::string value;
    EXPECT_FALSE(n3rz::config_lookup("A/B", value, "kpe"));

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    setenv("RZ_CONFIG", ("/dev/fd/" + std::to_string(ends[0])).c_str(), 1);
    std::thread late([&] {
        usleep(20000);
        EXPECT_EQ(write(ends[1], "A/B piped\n", 10), 10);
        close(ends[1]);
    });
    EXPECT_TRUE(n3rz::config_lookup("A/B", value, "kpe"));
    EXPECT_EQ(value, "piped");
    late.join();
    close(ends[0]);
}

TEST(ConfigWords, OnAndOff) {
    for (const char* on : {"1", "true", "Yes", "on", "ONE", "y", "T", "10"}) EXPECT_TRUE(n3rz::config_is_on(on)) << on;
    for (const char* off : {"", "0", "off", "no", "o", "OFF", " on", "01"})
        EXPECT_FALSE(n3rz::config_is_on(off)) << off;
    EXPECT_EQ(n3rz::env_name("kpe", "_No"), "KPE_No");
    EXPECT_EQ(n3rz::env_name(nullptr, "_X"), "_X");
}

const std::string FORTY_NINES(40, '9');

TEST(Versions, SuffixesOfAnyLength) {
    const std::tuple<std::string, std::string, int> ROWS[] = {{"x;12", "x", 12},
                                                              {"x;1a", "x;1a", 0},
                                                              {"x;1;2", "x;1", 2},
                                                              {"d;1/x", "d;1/x", 0},
                                                              {"x;-1", "x;-1", 0},
                                                              {";5", "", 5},
                                                              {"x;2147483648", "x", INT_MAX},
                                                              {"x;" + FORTY_NINES, "x", INT_MAX},
                                                              {"x;" + std::string(40, '0') + "3", "x", 3}};
    for (const auto& [path, base, version] : ROWS) {
        EXPECT_EQ(n3rz::strip_version(path), base) << path;
        EXPECT_EQ(n3rz::version_of(path), version) << path;
    }
}

// The files that exist, the name used, and the names then read and written.
TEST(Versions, ReadAndWriteResolution) {
    const struct {
        std::set<std::string> files;
        std::string given, read, written;
    } ROWS[] = {
        {{"a;1"}, "a", "a", "a;2"},
        {{"a", "a;2"}, "a", "a;2", "a;3"},
        {{"a;3", "a;150"}, "a", "a;3", "a;4"},
        {{"a;3", "a;104"}, "a", "a;104", "a;105"},
        {{"a;3", "a;105"}, "a", "a;3", "a;4"},
        {{"a;3", "a;104", "a;205"}, "a", "a;205", "a;206"},
        {{"a;102"}, "a", "a", "a"},
        {{"a", "a;103"}, "a", "a", "a;2"},
        {{"a;7", "a;8"}, "a;7", "a;7", "a;9"},
        {{"a"}, "a;5", "a;5", "a;6"},
        {{"a", "a;2", "a;3"}, "a;2", "a;2", "a;4"},
        {{"a", "a;2"}, "a;1", "a", "a;3"},
        {{"a;1"}, "a;0", "a;1", "a;2"},
        {{}, "a;0009", "a;0009", "a;10"},
        {{"a;2147483647"}, "a;2147483646", "a;2147483646", "a;2147483648"},
        {{}, "a;" + FORTY_NINES, "a;" + FORTY_NINES, "a;1" + std::string(40, '0')},
        {{"a;1" + std::string(40, '0')}, "a;" + FORTY_NINES, "a;" + FORTY_NINES, "a;1" + std::string(39, '0') + "1"},
        {{"a;", "a;x"}, "a;", "a;", "a;;2"},
    };
    for (const auto& row : ROWS) {
        const Scratch scratch;
        for (const std::string& file : row.files) scratch.put(file, "");
        const std::string given = scratch.path(row.given);
        EXPECT_EQ(n3rz::resolve_read_path(given, true), scratch.path(row.read)) << row.given;
        EXPECT_EQ(n3rz::resolve_write_path(given, true), scratch.path(row.written)) << row.given;
        EXPECT_EQ(n3rz::resolve_read_path(given, false), given);
        EXPECT_EQ(n3rz::resolve_write_path(given, false), given);
    }
    EXPECT_EQ(n3rz::resolve_read_path("", true), "");
    EXPECT_EQ(n3rz::resolve_write_path("", true), "");
}

}  // namespace
