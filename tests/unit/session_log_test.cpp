#include "files/session_log.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "buffer/log_replay.h"
#include "buffer/text_change.h"
#include "system/packed.h"
#include "unit/scratch.h"

namespace {

// A log of some changes of a file, and the text after each of them.
struct Recorded {
    Scratch dir;
    std::vector<std::string> texts;  // joined by "\n"
    std::string path;
    std::vector<std::string> changes;

    static std::string joined(const LineStore& text) {
        std::string all;
        for (size_t row = 0; row < text.size(); ++row) all += std::string(text.view(row)) + "\n";
        return all;
    }

    explicit Recorded(std::mt19937& random) {
        LogHead head;
        head.path = dir.put("t", "one\ntwo\nthree\n");
        struct stat st;
        stat(head.path.c_str(), &st);
        head.file = kpe_file_state(st);
        LineStore text = LineStore::from_text("one\ntwo\nthree\n");
        texts.push_back(joined(text));
        SourceTexts sources;
        sources.add(0, text);
        SessionLog log;
        EXPECT_TRUE(log.make(dir.path("recovery/"), head.path));
        log.add(LogRecord::Head, head.packed());
        for (int i = 0; i < 20; ++i) {
            const LineStore old = text;
            std::string& line = text.edit(random() % text.size(), 1);
            line.insert(random() % (line.size() + 1), 1, static_cast<char>('a' + i));
            if (i % 5 == 4) text.insert(random() % text.size(), {"new", "lines"});
            std::vector<size_t> used;
            std::string content;
            kpe_pack(content, uint64_t{1});
            kpe_pack(content, uint64_t{0});
            changes.push_back(content + kpe_pack_change(old, text, sources, used));
            log.add(LogRecord::Change, changes.back());
            texts.push_back(joined(text));
        }
        EXPECT_TRUE(log.write());
        path = log.path();
        log.end(LogEnd::Killed);
    }

    // Whether what is told of the log now is true: a text that was there, and a word where it is not the last one.
    bool tells_the_truth() const {
        LogReplay replay;
        if (!replay.open(path) || !replay.replay()) return true;
        const std::string text = joined(replay.text());
        return replay.repeated() < texts.size() && text == texts[replay.repeated()];
    }
};

TEST(SessionLog, GivesBackEveryStateAndNoneThatWasNot) {
    std::mt19937 random(1);
    const Recorded log(random);
    const std::string good = log.dir.get(log.path.substr(log.dir.root().size() + 1));
    LogReplay whole;
    ASSERT_TRUE(whole.open(log.path) && whole.replay());
    EXPECT_EQ(Recorded::joined(whole.text()), log.texts.back());
    EXPECT_EQ(whole.obstacle(), "");
    for (size_t i = 0; i < log.texts.size(); ++i) {
        ASSERT_TRUE(whole.replay(whole.head().started + static_cast<int64_t>(i)));
        EXPECT_EQ(Recorded::joined(whole.text()), log.texts[i]);
    }
    const std::string name = log.path.substr(log.dir.root().size() + 1);
    for (int round = 0; round < 600; ++round) {
        std::string bad = good;
        if (round % 3 == 0) bad.resize(random() % bad.size());
        if (round % 3 == 1) bad.erase(random() % bad.size(), 1 + random() % 60);
        if (round % 3 == 2) bad[random() % bad.size()] = static_cast<char>(random());
        log.dir.put(name, bad);
        EXPECT_TRUE(log.tells_the_truth()) << round;
    }
}

// Records whose checksums are good may still hold anything.
TEST(SessionLog, RecordsMadeByChanceDoNoHarm) {
    std::mt19937 random(2);
    for (int round = 0; round < 60; ++round) {
        const Recorded recorded(random);
        SessionLog log;
        ASSERT_TRUE(log.make(recorded.dir.path("other/"), "t"));
        LogHead head;
        head.from_file = false;
        log.add(LogRecord::Head, head.packed());
        constexpr LogRecord KINDS[] = {LogRecord::Head,   LogRecord::Base,   LogRecord::Source,
                                       LogRecord::Buffer, LogRecord::Saving, LogRecord::Change};
        for (int i = 0; i < 20; ++i) {
            std::string content = recorded.changes[random() % recorded.changes.size()];
            for (size_t flips = random() % 4; flips > 0; --flips)
                content[random() % content.size()] = static_cast<char>(random());
            log.add(random() % 3 == 0 ? KINDS[random() % std::size(KINDS)] : LogRecord::Change, content);
        }
        ASSERT_TRUE(log.write());
        LogReplay replay;
        ASSERT_TRUE(replay.open(log.path()));
        replay.replay();
        replay.added_text();
        log.remove();
    }
}

TEST(SessionLog, OldAndManyLogsGoButNotThoseInUse) {
    const Scratch dir;
    const std::string logs = dir.path("recovery/");
    SessionLog live;
    ASSERT_TRUE(live.make(logs, "live"));
    live.add(LogRecord::Base, "x");
    ASSERT_TRUE(live.write());
    const auto make = [&](const std::string& name, int days) {
        const timespec times[] = {{0, UTIME_NOW}, {std::time(nullptr) - days * 24 * 60 * 60, 0}};
        utimensat(AT_FDCWD, dir.put("recovery/" + name, "x").c_str(), times, 0);
    };
    const timespec ages[] = {{0, UTIME_NOW}, {1, 0}};
    utimensat(AT_FDCWD, live.path().c_str(), ages, 0);
    make("a.1-1-1.discarded", 8);
    make("b.1-1-1.discarded", 6);
    make("c.1-1-1.log", 29);
    make("d.1-1-1.rescued", 31);
    make("somebody's file", 100);
    kpe_tidy_logs(logs);
    EXPECT_EQ(dir.names("recovery").size(), 4);
    for (int i = 0; i < 100; ++i) make("n.1-1-" + std::to_string(i) + ".log", 1);
    kpe_tidy_logs(logs);
    EXPECT_EQ(kpe_list_logs(logs).size(), 65);
    EXPECT_EQ(kpe_list_logs(logs, "/x/n").size(), 64);
}

}  // namespace
