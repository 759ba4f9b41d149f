#include "buffer/line_store.h"
#include "buffer/row_rewriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "buffer/byte_search.h"
#include "unit/no_memory.h"

namespace {

using Lines = std::vector<std::string>;

constexpr size_t LONG = 40000;  // bytes of a line

bool holds(const LineStore& store, const Lines& lines) {
    std::vector<std::string_view> rows(store.size());
    store.views(0, rows);
    return std::equal(rows.begin(), rows.end(), lines.begin(), lines.end());
}

// What the runs make of the text, going either way.
Lines lines_by_runs(const LineStore& store, size_t limit, bool backwards) {
    std::deque<std::string> lines;
    for (size_t done = 0; done < store.size();) {
        const auto run = backwards ? store.run_to(store.size() - 1 - done, limit) : store.run_from(done, limit);
        EXPECT_EQ(run.first_row, backwards ? store.size() - done - run.rows : done);
        if (run.rows == 0 || testing::Test::HasFailure()) return {};
        EXPECT_TRUE(run.rows == 1 || run.bytes.size() <= limit);
        Lines part;
        size_t at = 0;
        for (size_t row = run.first_row; row < run.first_row + run.rows; ++row) {
            EXPECT_EQ(store.row_at(run, std::min(at + store.length(row), run.bytes.size() - 1)), row);
            part.emplace_back(run.bytes.substr(at, store.length(row)));
            at += part.back().size() + (run.terminated ? 1 : 0);
        }
        EXPECT_EQ(at, run.bytes.size());
        lines.insert(backwards ? lines.begin() : lines.end(), part.begin(), part.end());
        done += run.rows;
    }
    return {lines.begin(), lines.end()};
}

Lines some_lines(size_t count, std::mt19937& random) {
    Lines lines;
    for (size_t i = 0; i < count; ++i) {
        std::string line(random() % 8 == 0 ? 0 : random() % 40, static_cast<char>('a' + random() % 26));
        if (random() % 20 == 0) line += "\nwith a break";
        lines.push_back(std::move(line));
    }
    return lines;
}

// A store and what it should hold. Each step does the same to both.
class Twin {
public:
    LineStore store;
    Lines plain;
    bool without_memory = false;  // each change fails at one allocation after the other before it is made

    void check() const {
        ASSERT_TRUE(holds(store, plain));
        ASSERT_EQ(lines_by_runs(store, 1000, /*backwards=*/false), plain);
        ASSERT_EQ(lines_by_runs(store, 300, /*backwards=*/true), plain);
        const size_t third = plain.size() / 3;
        std::string by_runs, by_rows;
        for (const LineRun& run : store.runs(third, 2 * third))
            by_runs.append(run.bytes).append(run.terminated ? "" : "\n");
        for (size_t row = third; row < 2 * third; ++row) by_rows.append(store.view(row)) += "\n";
        ASSERT_EQ(by_runs, by_rows);
    }

    void step(std::mt19937& random) {
        const size_t n = plain.size(), kind = random() % 13;
        if (n == 0) return insert(0, some_lines(3000, random), random() % 2 == 0);
        const size_t row = random() % n, last = row + random() % (random() % 10 == 0 ? 2000 : 5);
        if (kind <= 1) {
            const std::string text = some_lines(1, random)[0];
            for (size_t i = row; i <= std::min({last, row + 60, n - 1}); i += 3) {  // more than a slice keeps apart
                change([&] { store.edit(i) += text; });
                plain[i] += text;
            }
        } else if (kind == 2) {
            const size_t from = random() % n;  // a part of its own text
            change([&] { store.set(row, store.view(from).substr(store.length(from) / 2)); });
            plain[row] = std::string(plain[from].substr(plain[from].size() / 2));
        } else if (kind == 3) {
            change([&] { EXPECT_EQ(store.at(row), plain[row]); });
        } else if (kind <= 6) {
            const bool many = random() % 10 == 0;
            insert(random() % (n + 1), some_lines(many ? random() % 1500 : 1 + random() % 3, random), kind == 6);
        } else if (kind <= 8) {
            change([&] { store.erase(row, last); });
            plain.erase(at(row), at(std::min(last, n)));
        } else if (kind == 9) {
            const bool itself = n < 3000 && random() % 2 == 0;
            const LineStore part = store.slice(row, last);
            const Lines copy(itself ? plain.begin() : at(row), itself ? plain.end() : at(std::min(last, n)));
            const size_t to = random() % (n + 1);
            change([&] { itself ? store.insert(to, store) : store.insert(to, part); });
            plain.insert(at(to), copy.begin(), copy.end());
        } else if (kind == 10) {
            rewrite(row, random);
        } else if (kind == 11) {
            replace(row, last, random);
        } else if (n > 20000) {
            store.erase(100, n - 100);
            plain.erase(at(100), at(n - 100));
        }
    }

    // Bytes come or go in some line that is long, if there is one.
    void change_long_line(std::mt19937& random) {
        const auto is_long = [](const std::string& line) { return line.size() > LONG / 2; };
        const size_t from = random() % plain.size();
        const auto found = std::find_if(at(from), plain.end(), is_long);
        if (found == plain.end()) return;
        const size_t row = static_cast<size_t>(found - plain.begin()), col = random() % found->size();
        const size_t erased = random() % 3 == 0 ? random() % 2000 : 0;
        const std::string text(random() % 5 == 0 ? 3000 : random() % 3, static_cast<char>('a' + random() % 26));
        found->erase(col, erased).insert(col, text);
        if (random() % 4 == 0)
            store.set(row, *found);
        else
            store.edit(row).erase(col, erased).insert(col, text);
        if (random() % 10 == 0) insert(row + 1, {found->substr(col)}, random() % 2 == 0);
    }

private:
    Lines::iterator at(size_t row) { return plain.begin() + static_cast<std::ptrdiff_t>(row); }

    template <typename Change>
    void change(const Change& make) {
        if (!without_memory) return make();
        const LineStore before = ++changes_ % 2 == 0 ? store : LineStore();  // shared by a copy, or not
        fail_each_allocation(make, [&] {
            EXPECT_TRUE(holds(store, plain));
            if (!before.empty()) store = before;
        });
    }

    void insert(size_t row, const Lines& lines, bool as_store) {
        change([&] { as_store ? store.insert(row, LineStore(lines)) : store.insert(row, lines); });
        plain.insert(at(row), lines.begin(), lines.end());
    }

    // Every line from row on, or one in so many of them.
    void rewrite(size_t row, std::mt19937& random) {
        const size_t every = 1 + random() % 40;
        std::vector<std::pair<size_t, std::string>> texts;
        for (size_t i = row; i < std::min(plain.size(), row + 1200); i += every) {
            const size_t to = random() % 50 == 0 ? random() % plain.size() : i;  // rows come in any order
            texts.emplace_back(to, some_lines(1, random)[0]);
        }
        change([&] {
            RowRewriter rewriter(store);
            for (const auto& [to, text] : texts) rewriter.put(to, text);
            rewriter.finish();
        });
        for (const auto& [to, text] : texts) plain[to] = text;
    }

    void replace(size_t first, size_t last, std::mt19937& random) {
        const char letter = plain[first].find_first_not_of('\n') == 0 ? plain[first].front() : 'a';
        const std::string what = random() % 8 == 0 ? "break" : std::string(1 + random() % 3, letter);
        const std::string by[] = {"", what, "another\ntext", std::string(2, letter), "E"};
        const std::string& text = by[random() % std::size(by)];
        Patience patience(nullptr);
        LineStore::Hits done, expected;
        change([&] { done = store.replace(first, last, ByteSearch(what, false), text, patience); });
        for (size_t row = first; row <= std::min(last, plain.size() - 1); ++row) {
            for (size_t col = 0; (col = plain[row].find(what, col)) != std::string::npos; col += text.size()) {
                plain[row].replace(col, what.size(), text);
                expected = {expected.count + 1, row, col, text != what};
            }
        }
        ASSERT_EQ(std::tie(done.count, done.last_row, done.last_col, done.changed),
                  std::tie(expected.count, expected.last_row, expected.last_col, expected.changed));
    }

    size_t changes_ = 0;
};

}  // namespace

// States as undo keeps them: the oldest are dropped, and one of them comes back. In every second text those below the
// newest are thinned, some of them without memory.
TEST(LineStore, EditsLeaveOlderStatesAsTheyWere) {
    for (unsigned seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const bool thins = seed % 2 == 0;
        Twin now, outside;
        for (int i = 0; i < 400 && thins; ++i) now.plain.push_back(i % 50 == 0 ? std::string(LONG, 'x') : "short");
        now.store = LineStore(now.plain);
        std::deque<Twin> kept;
        for (int i = 0; i < 700; ++i) {
            if (i % 40 == 0) outside = now;
            if (i % 30 == 29) {
                now = kept[random() % kept.size()];
                kept.resize(1 + random() % kept.size(), {});
            }
            if (thins || i % 20 == 0) kept.push_back(now);
            g_failing_allocation = i % 3 == 0 ? 1 + random() % 20 : 0;
            if (kept.size() > 1 && thins) kept[kept.size() - 2].store.thin(kept.back().store);
            g_failing_allocation = 0;
            if (kept.size() > 20) {
                LineStore::Differences left;
                kept[0].store.add_differences(kept[1].store, left);
                kept.pop_front();
                LineStore::settle(left);
            }
            random() % 4 == 0 || !thins ? now.step(random) : now.change_long_line(random);
            if (HasFatalFailure()) return;
        }
        kept.insert(kept.end(), {now, outside});
        for (const Twin& copy : kept) copy.check();
        if (HasFailure()) return;
    }
}

TEST(LineStore, ChangesAreWholeOrNotMadeWhenMemoryRunsOut) {
    std::mt19937 random(7);
    Twin now;
    now.without_memory = true;
    for (int i = 0; i < 250 && !HasFailure(); ++i) {
        now.step(random);
        now.store.erase(1200, now.store.size());  // many rows would take long
        now.plain.resize(now.store.size());
    }
    now.check();
}

TEST(LineStore, AHundredKeysInAHugeLineAreKeptInFewBytes) {
    LineStore now(Lines{"first", std::string(2 * LineStore::HUGE_LINE, 'x'), "last"});
    std::vector<LineStore> kept;
    size_t bytes = 0;
    for (size_t i = 0; i < 100; ++i) {
        kept.push_back(now);
        if (i > 0) bytes += kept[i - 1].thin(now).bytes;
        now.edit(1, 1).insert(i * 1000, 1, 'y');
    }
    EXPECT_LT(bytes, 1000u);
    EXPECT_EQ(kept[41].view(1)[40000], 'y');
}

// Numbers of lines and lengths about those where a chunk, a leaf or a branch is full.
TEST(LineStore, HoldsTextsOfEverySize) {
    const std::vector<std::pair<size_t, size_t>> rows = {
        {255, 1},     {256, 3},   {257, 3},   {513, 0},   {20000, 2},
        {1000000, 1}, {3, 32766}, {3, 32767}, {5, 65534}, {5, 65535},  // lines, bytes of each
    };
    for (const auto& [count, bytes] : rows) {
        SCOPED_TRACE(std::to_string(count) + " lines of " + std::to_string(bytes));
        for (const size_t more : {size_t{0}, size_t{1}}) {  // all lines alike, or one in the middle that is longer
            Lines lines(count, std::string(bytes, 'x'));
            lines[count / 2].append(more, 'y');
            LineStore store(lines);
            EXPECT_EQ(store.run_from(0).rows, count);  // what was not edited is one run
            EXPECT_EQ(store.run_to(count - 1).rows, count);
            store.insert(0, store.slice(count / 3, count));
            store.erase(count, store.size());
            std::rotate(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count / 3), lines.end());
            EXPECT_TRUE(holds(store, lines));
            store.erase(1, count - 1);
            EXPECT_TRUE(holds(store, {lines.front(), lines.back()}));
        }
    }
}

// A block has to keep what it holds while it goes from heap memory to pages and back.
TEST(Block, KeepsItsBytesInEverySize) {
    Block block(10);
    std::string text;
    constexpr size_t MB = size_t{1} << 20;
    for (const size_t size : {size_t{9}, size_t{70000}, MB, 5 * MB, 20 * MB, 3 * MB, size_t{70000}, size_t{0}}) {
        fail_each_allocation([&] { block.reserve(size + 1); }, [&] { EXPECT_TRUE(block.bytes() == text); });
        text.resize(size, static_cast<char>('a' + size % 26));
        if (size > block.size()) block.append(std::string_view(text).substr(block.size()));
        block.set_size(size);
        block.shrink();
        block.data()[size] = '\n';
        ASSERT_TRUE(block.bytes() == text) << size;
    }
    EXPECT_THROW(Block(SIZE_MAX - 5), std::bad_alloc);
}
