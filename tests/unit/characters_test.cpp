#include <gtest/gtest.h>
#include <utf8proc.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "buffer/characters.h"

namespace {

const int UTF8 = setenv("LC_ALL", "C.UTF-8", 1);  // before anything asks for the locale

// A flag is two of the letters; a family is joined; e has a mark; Hangul syllables are made of parts.
const std::string PIECES[] = {"a", " ",      "e",  "\u0301", "🇩",      "🇪",      "👩",      "\u200D", "🚀",
                              "❤", "\uFE0F", "日", "\u1100", "\u1161", "\u0600", "\u0903", "\xff",   "\xE6\x97"};

// Where the characters of line begin, and its end: from its start, by the library's own rule.
std::vector<size_t> borders(const std::string& line) {
    std::vector<size_t> found{0};
    utf8proc_int32_t before = -1, state = 0;
    for (size_t at = 0; at < line.size();) {
        utf8proc_int32_t code = -1;
        const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(line.data() + at);
        const auto size = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(line.size() - at), &code);
        if (at > 0 && (before < 0 || code < 0 || utf8proc_grapheme_break_stateful(before, code, &state))) {
            found.push_back(at);
            state = 0;
        }
        before = code;
        at += size > 0 ? static_cast<size_t>(size) : 1;
    }
    if (!line.empty()) found.push_back(line.size());
    return found;
}

TEST(Characters, AreTheSameFromEveryColumnAsFromTheStart) {
    ASSERT_EQ(UTF8, 0);
    std::mt19937 random;
    for (int round = 0; round < 5000 && !testing::Test::HasFailure(); ++round) {
        std::string line;
        for (auto pieces = random() % 12; pieces > 0; --pieces) line += PIECES[random() % std::size(PIECES)];
        const std::vector<size_t> all = borders(line);
        for (size_t i = 0; i + 1 < all.size(); ++i) {
            for (size_t col = all[i]; col < all[i + 1]; ++col) {
                EXPECT_EQ(kpe_character_start(line, col), all[i]) << line << " at " << col;
                EXPECT_EQ(kpe_character_end(line, col), all[i + 1]) << line << " at " << col;
                EXPECT_EQ(kpe_character_border(line, col), col == all[i] ? col : all[i + 1]) << line << " at " << col;
                EXPECT_EQ(kpe_character_before(line, col + 1), all[i]) << line << " at " << col;
            }
            const std::string_view character = std::string_view(line).substr(all[i]);
            EXPECT_EQ(kpe_utf8_character(character).bytes, all[i + 1] - all[i]) << line;
        }
        for (const size_t columns : {0u, 1u, 5u, 50u}) {
            const size_t start = kpe_view_start(line, line.size(), columns);
            EXPECT_LE(kpe_view_columns(line, start, line.size(), 100), columns) << line;
            if (start == 0) continue;
            EXPECT_GT(kpe_view_columns(line, start - 1, line.size(), 100), columns) << line;
        }
    }
}

}  // namespace
