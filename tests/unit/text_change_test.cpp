#include "buffer/text_change.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "buffer/row_rewriter.h"
#include "system/crc32c.h"

namespace {

std::string numbered(size_t rows) {
    std::string text;
    for (size_t row = 0; row < rows; ++row) text += "this is line " + std::to_string(row) + "\n";
    return text;
}

bool same(const LineStore& a, const LineStore& b) {
    bool equal = a.size() == b.size();
    for (size_t row = 0; equal && row < a.size(); ++row) equal = a.view(row) == b.view(row);
    return equal;
}

struct Change {
    SourceTexts sources;
    std::vector<size_t> used;
    std::string bytes;

    // Source 0 is the text as it was loaded.
    Change(const LineStore& base, const LineStore& old, const LineStore& now) {
        sources.add(0, base);
        bytes = kpe_pack_change(old, now, sources, used);
    }
};

LineStore applied(const LineStore& base, LineStore text, const std::string& change) {
    const std::vector<const LineStore*> sources{&base};
    EXPECT_TRUE(change.empty() || kpe_apply_change(text, change, sources));
    return text;
}

void change_at_random(LineStore& text, const LineStore& base, std::mt19937& random) {
    const auto row = [&] { return random() % (text.size() + 1); };
    const auto present = [&] { return random() % std::max<size_t>(text.size(), 1); };
    switch (random() % 7) {
        case 0:
            text.erase(row(), row());
            break;
        case 1:
            text.insert(row(), std::vector<std::string>{"new", "", "with a \n break"});
            break;
        case 2: {
            const size_t first = row();
            const LineStore moved = text.slice(first, first + random() % 3000);
            text.erase(first, first + moved.size());
            text.insert(row(), moved);
            break;
        }
        case 3: {
            const size_t first = random() % base.size();
            text.insert(row(), base.slice(first, first + random() % 500));
            break;
        }
        case 4: {
            RowRewriter rewriter(text);
            for (size_t at = row(); at < text.size(); at += 1 + random() % 3)
                rewriter.put(at, std::string(text.view(at)) + " x " + std::string(text.view(at)));
            rewriter.finish();
            break;
        }
        default:
            if (text.empty()) break;
            std::string& line = text.edit(present(), 1);
            line.insert(random() % (line.size() + 1), 1, 'x');
    }
}

TEST(TextChange, AppliedToTheOldTextGivesTheNewOne) {
    std::mt19937 random(1);
    const LineStore base = LineStore::from_text(numbered(5000));
    for (int round = 0; round < 8; ++round) {
        LineStore old = base;
        for (int step = 0; step < 30; ++step) {
            LineStore now = old;
            for (size_t changes = 1 + random() % 3; changes > 0; --changes) change_at_random(now, base, random);
            const Change change(base, old, now);
            ASSERT_TRUE(same(applied(base, old, change.bytes), now)) << "round " << round << ", step " << step;
            old = now;
        }
    }
}

TEST(TextChange, SaysLittle) {
    const LineStore base = LineStore::from_text(numbered(100000));
    LineStore typed = base, moved = base, deleted = base, everywhere = base;
    typed.edit(70000).insert(5, "x");
    EXPECT_LE(Change(base, base, typed).bytes.size(), 20);
    moved.erase(10, 50000);
    moved.insert(moved.size(), base.slice(10, 50000));
    EXPECT_LE(Change(base, base, moved).bytes.size(), 200);
    for (size_t row = 0; row < deleted.size(); ++row) deleted.erase(row, row + 1);
    EXPECT_LE(Change(base, base, deleted).bytes.size(), 10 * deleted.size());
    RowRewriter rewriter(everywhere);
    for (size_t row = 0; row < base.size(); ++row) {
        std::string line(base.view(row));
        rewriter.put(row, line.replace(2, 2, "ose").replace(7, 1, ""));
    }
    rewriter.finish();
    EXPECT_LE(Change(base, base, everywhere).bytes.size(), 15 * base.size());
}

// What is applied to another text, or has another byte, must not pass for right.
TEST(TextChange, IsRefusedWhereItDoesNotFit) {
    std::mt19937 random(2);
    const LineStore base = LineStore::from_text(numbered(50));
    LineStore now = base;
    for (int i = 0; i < 6; ++i) change_at_random(now, base, random);
    const std::string good = Change(base, base, now).bytes;
    const std::vector<const LineStore*> none{nullptr}, sources{&base};
    for (size_t size = 0; size < good.size(); ++size) {
        LineStore text = base;
        const bool fits = kpe_apply_change(text, good.substr(0, size), sources);
        EXPECT_TRUE(!fits || same(text, now)) << size;
    }
    for (int round = 0; round < 3000; ++round) {
        std::string bad = good;
        for (size_t flips = 1 + random() % 3; flips > 0; --flips)
            bad[random() % bad.size()] = static_cast<char>(random());
        LineStore text = base;
        kpe_apply_change(text, bad, random() % 2 == 0 ? none : sources);
    }
    LineStore other = base;
    other.erase(0, 1);
    EXPECT_FALSE(kpe_apply_change(other, good, sources));
    EXPECT_EQ(other.size(), base.size() - 1);
}

// The examples of RFC 3720, appendix B.4, and the sum that catalogues of such codes give for "123456789".
TEST(Crc32c, IsTheOneOfTheStandard) {
    EXPECT_EQ(kpe_crc32c(std::string(32, '\0')), 0x8a9136aaU);
    EXPECT_EQ(kpe_crc32c(std::string(32, '\xff')), 0x62a8ab43U);
    EXPECT_EQ(kpe_crc32c("123456789"), 0xe3069283U);
    EXPECT_EQ(kpe_crc32c("6789", kpe_crc32c("12345")), 0xe3069283U);
}

}  // namespace
