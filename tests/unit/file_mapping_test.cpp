#include "system/file_mapping.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "buffer/line_cutter.h"
#include "files/file_writer.h"
#include "unit/scratch.h"

namespace {

using std::string;
using Returns = LineStore::Returns;

constexpr size_t MB = size_t{1} << 20;

std::shared_ptr<Block> mapped(const string& path, size_t size) {
    return std::make_shared<Block>(FileMapping::make(open(path.c_str(), O_RDONLY), size), size);
}

// What is left of a text whose bytes cannot move up: a few carriage returns, some at the ends of parts and of looks.
string text_of_parts(size_t size) {
    std::mt19937 random(1);
    string text;
    while (text.size() < size) {
        text += string(random() % (text.size() % 5 == 0 ? 100000 : 50), static_cast<char>('a' + random() % 20));
        text += random() % 1000 == 0 ? "\r\n" : "\n";
    }
    text.resize(size);
    for (const size_t place : {FILE_PART - 1, 2 * FILE_PART - 2, 3 * FILE_PART, FILE_PART + MB - 1})
        text.replace(place, 2, "\r\n");
    text.replace(size / FILE_PART * FILE_PART - 1, 4, "\rx\xff\n");  // no carriage return in front of a line end
    return text;
}

// The same whether the bytes are looked at or read, and whatever follows the last line end.
TEST(FileMapping, IsCutIntoTheRowsOfItsText) {
    const Scratch scratch;
    const string all = text_of_parts(4 * FILE_PART + 3 * MB);
    for (const string& text : {all, all + "\n", all + "\r", all.substr(0, 4 * FILE_PART)}) {
        const auto block = mapped(scratch.put("f", text), text.size());
        ASSERT_EQ(block->data()[text.size()], '\n');
        LineCutter cutter(Returns::Drop, LineCutter::Clones::Take);
        cutter.expect(block, (text.size() + FILE_PART - 1) / FILE_PART);
        string bytes;
        for (size_t from = 0; from < text.size(); from += bytes.size()) {
            bytes = text.substr(from, MB);
            ASSERT_TRUE(cutter.look(from / FILE_PART, from, bytes.data(), bytes.size()));
        }
        FileContent content;
        content.block = block;
        content.in_steps = true;
        const LineStore lines = cutter.finish(content), expected = LineStore::from_text(text);
        ASSERT_EQ(lines.size(), expected.size());
        for (size_t row = 0; row < lines.size(); ++row) ASSERT_EQ(lines.view(row), expected.view(row)) << row;
    }
}

TEST(FileMapping, IsNoUseForTextsOfWhichManyBytesWouldMove) {
    const Scratch scratch;
    string text;
    while (text.size() < MB) text += "\r\n";
    const auto block = mapped(scratch.put("f", text), text.size());
    for (const auto returns : {Returns::Drop, Returns::Keep}) {
        LineCutter cutter(returns, LineCutter::Clones::Take);
        cutter.expect(block, 1);
        text[0] = '\n';
        EXPECT_TRUE(cutter.look(0, 0, text.data(), MB / 16)) << "few of them";
        text[0] = '\r';
        cutter.expect(block, 1);
        EXPECT_FALSE(cutter.look(0, 0, text.data(), MB));
    }
}

TEST(FileMapping, HasZerosWhereTheDiskHasNothingAnyMore) {
    const Scratch scratch;
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), before = FileMapping::lost_pages();
    const string path = scratch.put("f", string(3 * page, 'x'));
    const auto block = mapped(path, 3 * page);
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(page)), 0);
    EXPECT_EQ(block->data()[0], 'x');
    EXPECT_FALSE(block->file()->lost_bytes());
    EXPECT_EQ(block->data()[page], '\0');
    EXPECT_TRUE(block->file()->lost_bytes());
    EXPECT_EQ(block->data()[2 * page - 1], '\0');
    EXPECT_EQ(FileMapping::lost_pages(), before + 1);

    // Any other such error ends the process as before.
    const pid_t child = fork();
    if (child == 0) {
        const auto other = mapped(path, page);
        raise(SIGBUS);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_NE(status, 0);
}

// Shared or copied, as the file system can: the bytes are the same.
TEST(FileMapping, IsSavedWithWhatStandsBetweenItsBytes) {
    const Scratch scratch;
    const string text = text_of_parts(6 * MB + 123);
    const auto block = mapped(scratch.put("f", text), text.size());
    const std::string_view bytes(block->data(), text.size());
    for (const size_t shift : {size_t{0}, size_t{1}, size_t{4096}}) {
        string expected(shift, 's');
        FileWriter writer;
        ASSERT_TRUE(writer.open(scratch.path("g"), FileWriter::Existing::Replace));
        writer.write(expected);
        const auto put = [&](size_t from, size_t count) {
            EXPECT_TRUE(writer.write(bytes.substr(from, count)));
            expected += bytes.substr(from, count);
        };
        put(0, 2 * MB);
        put(2 * MB, 5000);
        put(2 * MB + 5001, 3 * MB);
        put(7, 100);
        put(4 * MB, 2 * MB + 123);
        EXPECT_TRUE(writer.commit());
        EXPECT_TRUE(scratch.get("g") == expected) << shift;
    }
}

}  // namespace
