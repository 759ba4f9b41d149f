#include <gtest/gtest.h>
#include <vterm.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "screen/shown_rows.h"

// curses and its terminfo header define plain words as macros: after all others.
#include <curses.h>
#include <term.h>

// Random pictures, each painted over the one before. What an emulator shows then is compared cell by cell, and the
// emulator is as unkind as terminals may be.

namespace {

using Random = std::mt19937;

size_t below(Random& random, size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random); }

struct Glyph {
    std::string bytes;
    std::vector<std::string> shown;  // on the screen, each in so many cells
    int cells = 1;
    int least = 1;  // so many cells or none of it
};
const Glyph GLYPHS[] = {{"a", {"a"}},
                        {"b", {"b"}},
                        {" ", {" "}},
                        {"é", {"é"}},
                        {"\t", {" "}},
                        {"世", {"世"}, 2},
                        {"界", {"界"}, 2},
                        {"\1", {"^", "A"}},
                        {"é\u0301", {"é\u0301"}},
                        {"❤\uFE0F", {"❤\uFE0F", " "}, 1, 2}};  // which this emulator shows in one cell only
constexpr size_t SINGLE = 4;                                   // the first ones, which rows that move aside are made of
constexpr std::string_view CONTINUED =
    "\x81\x8C\x8F\x95\x96\x9D\xA4\xA9\xB8\xCC\xEF";  // their bytes that begin no character

struct Row {
    std::string gutter, text;  // text: the numbers of glyphs
    size_t from = 0, to = 0;   // of text, in reverse video

    std::string bytes(size_t count) const {
        std::string all;
        for (const char glyph : text.substr(0, count)) all += GLYPHS[static_cast<unsigned char>(glyph)].bytes;
        return all;
    }
    // As Emulator::row has it. What would fill the last cell is left out unless that can be filled.
    std::string picture(int cols, bool can_fill) const {
        std::string row;
        int used = 0;
        const auto put = [&](const std::string& shown, int cells, bool reverse) {
            if (used + cells > cols) return false;
            used += cells;
            const bool left_out = used == cols && !can_fill;
            row += left_out ? std::string(static_cast<size_t>(cells), ' ') : reverse ? "[" + shown + "]" : shown;
            return true;
        };
        bool room = true;
        for (const char c : gutter) room = put(std::string(1, c), 1, false);
        for (size_t i = 0; i < text.size() && room; ++i) {
            const Glyph& glyph = GLYPHS[static_cast<unsigned char>(text[i])];
            room = used + glyph.least <= cols;
            const bool left_out = glyph.least > 1 && used + glyph.least == cols && !can_fill;
            do {
                for (const std::string& shown : glyph.shown)
                    room = room && put(left_out ? " " : shown, glyph.cells, from <= i && i < to && !left_out);
            } while (glyph.bytes == "\t" && used % 8 != 0 && room);
        }
        return row.append(static_cast<size_t>(cols - used), ' ');
    }
};

class Emulator {
public:
    Emulator(int rows, int cols, bool wraps_at_once, Random& random)
        : owner_(vterm_new(rows, cols), &vterm_free),
          terminal_(owner_.get()),
          cols_(cols),
          wraps_at_once_(wraps_at_once),
          random_(random) {
        vterm_set_utf8(terminal_, 1);
        vterm_screen_reset(vterm_obtain_screen(terminal_), 1);
        feed("left by others");
    }

    void take(std::string_view bytes) {
        while (!bytes.empty()) {
            size_t size = 1;
            if (bytes.starts_with("\033[")) {
                size = bytes.find_first_not_of("0123456789;", 2) + 1;
            } else if (bytes[0] == '\033') {
                size = bytes[1] == '(' ? 3 : 2;
            } else {  // a character with its marks
                size = std::min(bytes.find_first_not_of(CONTINUED, 1), bytes.size());
            }
            take_one(bytes.substr(0, size));
            bytes.remove_prefix(size);
        }
        expect_no_reverse("the end");
        lose_cursor();
    }
    // Its cells; those in reverse video are in brackets.
    std::string row(int number) const {
        std::string all;
        VTermScreenCell cell{};
        for (int col = 0; col < cols_; col += std::max<int>(cell.width, 1)) {
            vterm_screen_get_cell(vterm_obtain_screen(terminal_), {number, col}, &cell);
            std::string shown;
            for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; ++i) {
                char utf8[MB_LEN_MAX];
                shown.append(utf8, static_cast<size_t>(std::wctomb(utf8, static_cast<wchar_t>(cell.chars[i]))));
            }
            if (shown.empty()) shown = " ";
            all += cell.attrs.reverse ? "[" + shown + "]" : shown;
        }
        return all;
    }
    std::pair<int, int> cursor() const {
        VTermPos position{};
        vterm_state_get_cursorpos(vterm_obtain_state(terminal_), &position);
        return {position.row, position.col};
    }

private:
    void feed(std::string_view bytes) { vterm_input_write(terminal_, bytes.data(), bytes.size()); }

    // Some terminals clear, move and scroll in reverse video while it is on, and some put the cursor elsewhere.
    // Where it is behind the last column or a character of doubtful width, nobody can tell.
    void take_one(std::string_view piece) {
        if (static_cast<unsigned char>(piece[0]) >= ' ') {
            const int end = cursor().second + (piece == "世" || piece == "界" ? 2 : 1);
            feed(piece);
            if (end == cols_ && wraps_at_once_) feed("\r\n");
            lost_ = lost_ || end == cols_ || piece.size() > 1;
            return;
        }
        if (piece.back() != 'm' && piece != "\033(B" && piece != "\017") {  // which are only about attributes
            expect_no_reverse(piece.substr(1));
            lose_cursor();
        }
        feed(piece);
        if (piece.starts_with("\033[") && std::string_view("rLMJ").find(piece.back()) != std::string_view::npos)
            lost_ = true;
    }
    void expect_no_reverse(std::string_view what) const {
        VTermValue reverse{};
        vterm_state_get_penattr(vterm_obtain_state(terminal_), VTERM_ATTR_REVERSE, &reverse);
        EXPECT_FALSE(reverse.boolean) << "in reverse video: " << what;
    }
    void lose_cursor() {
        if (!lost_) return;
        lost_ = false;
        feed("\033[" + std::to_string(1 + below(random_, 9)) + ";" + std::to_string(1 + below(random_, 60)) + "H");
    }

    const std::unique_ptr<VTerm, decltype(&vterm_free)> owner_;
    VTerm* const terminal_;
    int cols_;
    bool wraps_at_once_, lost_ = false;
    Random& random_;
};

std::string random_text(Random& random, size_t size, size_t glyphs) {
    std::string text;
    while (text.size() < size) text += static_cast<char>(below(random, glyphs));
    return text;
}

Row random_row(Random& random, size_t cols) {
    const size_t glyphs = below(random, 4) == 0 ? std::size(GLYPHS) : SINGLE;
    return {below(random, 3) == 0 ? "12 " : "", random_text(random, below(random, cols + 9), glyphs)};
}

void change(Random& random, std::vector<Row>& picture, size_t cols) {
    Row& row = picture[below(random, picture.size())];
    const size_t place = below(random, row.text.size() + 1), way = below(random, 6);
    if (way == 0) row = {};
    if (way == 1) row = random_row(random, cols);
    if (way == 2) row.text.insert(place, random_text(random, 1 + below(random, 9), SINGLE));
    if (way == 3) row.text.erase(place, 1 + below(random, 9));
    if (way == 4) row.from = below(random, 4) * below(random, cols);
    if (way == 4) row.to = row.from + below(random, cols);
    if (way != 5) return;
    const auto at = [&](size_t number) { return picture.begin() + static_cast<std::ptrdiff_t>(number); };
    const size_t first = below(random, picture.size()), count = 1 + below(random, picture.size() - first);
    const size_t other = first + below(random, count);  // stays, or is new
    const Row before = below(random, 2) == 0 ? random_row(random, cols) : picture[other];
    std::rotate(at(first), at(first + below(random, count)), at(first + count));
    picture[other] = before;
}

TEST(Painter, ShowsEveryPictureOnEveryTerminal) {
    setenv("LC_ALL", "C.UTF-8", 1);
    setlocale(LC_CTYPE, "C.UTF-8");
    for (unsigned seed = 0; seed < 400 && !HasFailure(); ++seed) {
        constexpr const char* TYPES[] = {"xterm-256color", "vt100", "vt102", "linux", "ansi", "pcansi"};
        const std::string type = TYPES[seed % std::size(TYPES)];
        ASSERT_EQ(setupterm(type.c_str(), 1, nullptr), OK);
        const bool wraps_at_once = tigetflag("am") != 0 && tigetflag("xenl") == 0;
        Random random(seed);
        const size_t rows = 1 + below(random, 9), cols = 2 + below(random, 60);
        const int height = static_cast<int>(rows), width = static_cast<int>(cols);
        Emulator emulator(height, width, wraps_at_once, random);
        ShownRows shown;
        std::vector<Row> picture(rows);
        for (int step = 0; step < 40 && !HasFailure(); ++step) {
            SCOPED_TRACE(type + ", seed " + std::to_string(seed) + ", picture " + std::to_string(step));
            for (size_t changes = below(random, 4); changes > 0; --changes) change(random, picture, cols);
            shown.begin(height, width);
            for (int i = 0; i < height; ++i) {
                const Row& row = picture[static_cast<size_t>(i)];
                const std::string text = row.bytes(row.text.size());
                shown.show(i, {row.gutter, text, row.bytes(row.from).size(), row.bytes(row.to).size()});
            }
            const std::pair cursor(static_cast<int>(below(random, rows)), static_cast<int>(below(random, cols)));
            testing::internal::CaptureStdout();
            shown.paint(cursor.first, cursor.second);
            emulator.take(testing::internal::GetCapturedStdout());
            EXPECT_EQ(emulator.cursor(), cursor);
            for (int i = 0; i < height; ++i) {
                const bool can_fill = !wraps_at_once || i < height - 1;
                EXPECT_EQ(emulator.row(i), picture[static_cast<size_t>(i)].picture(width, can_fill)) << "row " << i;
            }
        }
        del_curterm(cur_term);
    }
    setlocale(LC_CTYPE, "C");
}

}  // namespace
