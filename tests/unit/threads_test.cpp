#include "system/threads.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "buffer/match.h"
#include "buffer/text_buffer.h"
#include "unit/no_memory.h"
#include "unit/scratch.h"

// What threads share has to come out the same, however many there are.

namespace {

using std::string;

class Threads : public testing::TestWithParam<const char*> {
protected:
    Threads() { setenv("KPE_THREADS", GetParam(), 1); }
    ~Threads() override { unsetenv("KPE_THREADS"); }
};
INSTANTIATE_TEST_SUITE_P(Number, Threads, testing::Values("1", "2", "3", "8"));

TEST_P(Threads, DoEachPartOnceAndThrowWhatTheFirstOneThrows) {
    std::vector<std::atomic<int>> done(1000);
    std::atomic<bool> wrongly_open = false;
    const std::thread::id own = std::this_thread::get_id();
    kpe_share_work(done.size(), [&](size_t part) {
        ++done[part];
        if (std::this_thread::get_id() == own) return;
        sigset_t blocked;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        if (!sigismember(&blocked, SIGINT) || sigismember(&blocked, SIGSEGV)) wrongly_open = true;
    });
    for (const std::atomic<int>& times : done) EXPECT_EQ(times, 1);
    EXPECT_FALSE(wrongly_open);

    const auto fail = [](size_t part) {
        if (part >= 5) throw std::runtime_error(std::to_string(part));
    };
    try {
        kpe_share_work(100, fail);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "5");
    }
}

TEST_P(Threads, AreNotAskedByAChildProcess) {
    kpe_share_work(8, [](size_t) { usleep(1000); });
    const pid_t child = fork();
    if (child == 0) {
        size_t done = 0;  // by one thread
        kpe_share_work(1000, [&](size_t) { ++done; });
        _exit(done == 1000 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// --- Reading ---

// Some 20 MB in lines of all lengths, with a carriage return at the end of one part of the file and its line break in
// the next, and a line that is longer than two parts.
string text_with_hard_places(bool returns) {
    const string end = returns ? "\r\n" : "\n";
    std::mt19937 random(1);
    string text;
    const auto add_lines_to = [&](size_t size) {
        while (text.size() < size) text += string(random() % 90, static_cast<char>('a' + random() % 20)) + end;
    };
    const size_t part = size_t{2} << 20;
    add_lines_to(part - 200);
    text += string(part - 1 - text.size(), 'x') + "\r\n";
    add_lines_to(3 * part - 100000);
    text += string(5 << 20, 'y') + end;
    add_lines_to(9 * part + 12345);
    return text + "no end";
}

TEST_P(Threads, CutAFileIntoTheSameRows) {
    const Scratch scratch;
    for (const bool returns : {false, true}) {
        const string text = text_with_hard_places(returns);
        const string path = scratch.put("f", text);
        for (const auto ends : {TextBuffer::LineEnds::Plain, TextBuffer::LineEnds::Same}) {
            TextBuffer read;
            ASSERT_TRUE(read.load(path, nullptr, ends));
            const bool kept = ends == TextBuffer::LineEnds::Same && !read.returns_dropped();
            const LineStore rows =
                LineStore::from_text(text, kept ? LineStore::Returns::Keep : LineStore::Returns::Drop);
            ASSERT_EQ(read.line_count(), rows.size());
            for (size_t row = 0; row < rows.size(); ++row) ASSERT_EQ(read.view(row), rows.view(row)) << row;
            EXPECT_FALSE(read.final_newline());
        }
    }
}

TEST_P(Threads, StopReadingWhereTheyAreInterruptedOrMemoryEnds) {
    const Scratch scratch;
    const string path = scratch.put("f", text_with_hard_places(false));
    TextBuffer all;
    all.load(path);
    const string text = all.text();
    volatile std::sig_atomic_t abort = 0;
    TextBuffer read;
    std::thread interrupts([&] {
        usleep(3000);
        __atomic_store_n(&abort, 1, __ATOMIC_RELAXED);
    });
    read.load(path, &abort);
    interrupts.join();
    EXPECT_TRUE(text.starts_with(read.text()));

    for (size_t nth = 1;; nth *= 2) {
        g_failing_allocation = nth;
        try {
            read.load(path);
        } catch (const std::bad_alloc&) {
            continue;  // before the file was opened
        }
        if (g_failing_allocation.exchange(0) > 0) break;
        EXPECT_EQ(read.load_state(), TextBuffer::Load::Broken);
        EXPECT_EQ(read.text(), "");
    }
    EXPECT_TRUE(read.text() == text);
}

// --- Searching and replacing ---

constexpr size_t ROWS = 300000;

// Some 24 MB, with a word in these rows.
LineStore text_with(std::string_view word, const std::set<size_t>& in) {
    string text;
    for (size_t row = 0; row < ROWS; ++row) {
        text += "line " + std::to_string(row) + " of a text in which nothing is looked for in vain";
        if (in.contains(row)) text += word;
        text += '\n';
    }
    return LineStore::from_text(text);
}

TEST_P(Threads, FindTheNearestOfFarMatches) {
    const LineStore lines = text_with(" Needle here", {9, 150000, 150001, 290000});
    for (const auto& [needle, exact] : {std::pair("Needle", true), {"nEEDLE", false}, {"N*d?e here$", true}}) {
        const Matcher matcher(needle, exact);
        const auto below = matcher.find_forward(lines, 10, 0);
        ASSERT_TRUE(below) << needle;
        EXPECT_EQ(below->row, 150000) << needle;
        EXPECT_EQ(lines.view(below->row).substr(below->col, 2), "Ne") << needle;
        const auto above = matcher.find_backward(lines, 289999, 5);
        ASSERT_TRUE(above) << needle;
        EXPECT_EQ(above->row, 150001) << needle;
        EXPECT_FALSE(matcher.find_forward(lines, 290001, 0)) << needle;
    }
    const Matcher row_by_row("[N][e]", true);
    EXPECT_EQ(row_by_row.find_forward(lines, 10, 0).value().row, 150000);
    volatile std::sig_atomic_t abort = 1;
    EXPECT_FALSE(Matcher("Needle", true, &abort).find_forward(lines, 10, 0));
}

string joined(const LineStore& lines) {
    string text;
    lines.append_text(text, 0, lines.size());
    return text;
}

// The text with the first count places of "line" in rows [first, last] replaced.
string replaced(const LineStore& lines, size_t first, size_t last, std::string_view by, size_t count) {
    string text;
    for (size_t row = 0; row < lines.size(); ++row) {
        string line(lines.view(row));
        if (first <= row && row <= last && count > 0) {
            line.replace(0, 4, by);
            --count;
        }
        text += line + "\n";
    }
    return text;
}

TEST_P(Threads, ReplaceInTheSameRows) {
    const LineStore lines = text_with("", {});
    const ByteSearch what("line ", false);
    Patience patience(nullptr);
    LineStore changed = lines;
    const LineStore::Hits hits = changed.replace(1000, 299000, what, "row ", patience);
    EXPECT_EQ(hits.count, 298001);
    EXPECT_EQ(hits.last_row, 299000);
    EXPECT_EQ(hits.last_col, 0);
    EXPECT_TRUE(hits.changed);
    EXPECT_TRUE(joined(changed) == replaced(lines, 1000, 299000, "row", hits.count));
    EXPECT_FALSE(changed.replace(0, ROWS, what, "line ", patience).changed);

    // Interrupted: what was replaced is what was counted, from the first row on.
    volatile std::sig_atomic_t abort = 0;
    std::thread interrupts([&] {
        usleep(2000);
        __atomic_store_n(&abort, 1, __ATOMIC_RELAXED);
    });
    LineStore partly = lines;
    Patience short_patience(&abort);
    const LineStore::Hits some = partly.replace(0, ROWS, what, "row ", short_patience);
    interrupts.join();
    EXPECT_TRUE(joined(partly) == replaced(lines, 0, ROWS, "row", some.count));

    // Memory ends, in whatever thread.
    LineStore whole = lines;
    for (size_t nth = 1;; nth *= 3) {
        g_failing_allocation = nth;
        try {
            whole.replace(0, ROWS, what, "row ", patience);
            g_failing_allocation = 0;
            break;
        } catch (const std::bad_alloc&) {
            g_failing_allocation = 0;
            ASSERT_EQ(whole.view(ROWS - 1), lines.view(ROWS - 1));
            ASSERT_EQ(whole.view(0), lines.view(0));
        }
    }
    EXPECT_EQ(whole.view(ROWS / 2).substr(0, 4), "row ");
}

}  // namespace
