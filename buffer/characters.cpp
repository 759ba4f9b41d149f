#include "buffer/characters.h"

#include <algorithm>
#include <array>
#include <utf8proc.h>

#include "system/ascii.h"
#include "system/locale.h"

namespace {

bool g_joined = false;

constexpr size_t LONGEST = 4;  // bytes of a code point
constexpr utf8proc_int32_t NO_CODE = -1, ZERO_WIDTH_JOINER = 0x200D, TEXT_STYLE = 0xFE0E, EMOJI_STYLE = 0xFE0F;

bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

struct Code {
    utf8proc_int32_t value = NO_CODE;  // NO_CODE: the byte is no UTF-8
    size_t bytes = 1;
};

[[gnu::noinline]] Code rare_code(std::string_view text) {
    Code code;
    const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto size = static_cast<utf8proc_ssize_t>(std::min(text.size(), LONGEST));
    const utf8proc_ssize_t taken = utf8proc_iterate(bytes, size, &code.value);
    if (taken <= 0) return {};
    code.bytes = static_cast<size_t>(taken);
    return code;
}

// text is not empty. The library is asked where a sequence is none of those that nearly all text consists of.
inline Code first_code(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<utf8proc_int32_t>(static_cast<unsigned char>(text[i])); };
    const utf8proc_int32_t first = byte(0);
    if (first < 0x80) return {first, 1};
    if (first > 0xE0 && first < 0xED && text.size() > 2 && kpe_is_continuation(text[1]) && kpe_is_continuation(text[2]))
        return {(first & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F), 3};
    if (first >= 0xC2 && first < 0xE0 && text.size() > 1 && kpe_is_continuation(text[1]))
        return {(first & 0x1F) << 6 | (byte(1) & 0x3F), 2};
    return rare_code(text);
}

// Where the code point begins that holds the byte at col; col < text.size().
size_t code_start(std::string_view text, size_t col) {
    if (!kpe_is_continuation(text[col])) return col;
    for (size_t back = 1; back < LONGEST && back <= col; ++back) {
        const size_t start = col - back;
        if (kpe_is_continuation(text[start])) continue;
        return start + first_code(text.substr(start)).bytes > col ? start : col;
    }
    return col;
}

// What the library says of a code point.
struct Properties {
    utf8proc_int32_t next_code = 0;  // the code point and one; 0: of none
    unsigned char boundary = 0, cells = 0;
    bool doubtful = false;  // terminals disagree about the cells
};

// Terminals agree on letters, digits and punctuation, and on marks that take no cell.
bool width_in_doubt(int category) {
    switch (category) {
        case UTF8PROC_CATEGORY_CN:
        case UTF8PROC_CATEGORY_CO:
        case UTF8PROC_CATEGORY_CF:
        case UTF8PROC_CATEGORY_MC:
        case UTF8PROC_CATEGORY_SO:
        case UTF8PROC_CATEGORY_SK:
            return true;
        default:
            return false;
    }
}

[[gnu::noinline]] Properties look_up(utf8proc_int32_t code) {
    const utf8proc_property_t& found = *utf8proc_get_property(code);
    // Most terminals give a cell to the signs that stand beside their letter.
    const bool beside =
        found.boundclass == UTF8PROC_BOUNDCLASS_SPACINGMARK || found.boundclass == UTF8PROC_BOUNDCLASS_PREPEND;
    const unsigned cells = beside ? std::max<unsigned>(found.charwidth, 1) : found.charwidth;
    return {code + 1, static_cast<unsigned char>(found.boundclass), static_cast<unsigned char>(cells),
            width_in_doubt(found.category)};
}

std::array<Properties, 1024> g_known;

// Text asks for few code points again and again: those that were asked for last are kept. code is not NO_CODE.
inline const Properties& properties(utf8proc_int32_t code) {
    Properties& place = g_known[static_cast<size_t>(code) % g_known.size()];
    if (place.next_code != code + 1) place = look_up(code);
    return place;
}

// Whether it is one of those that stand by themselves among their like: nearly all.
inline bool is_plain(const Code& code) {
    return code.value != NO_CODE && properties(code.value).boundary == UTF8PROC_BOUNDCLASS_OTHER;
}

int boundary_class(utf8proc_int32_t code) { return properties(code).boundary; }

// Whether a character ends between these two; state is 0 at its start, and kept within it.
bool breaks(utf8proc_int32_t a, utf8proc_int32_t b, utf8proc_int32_t& state) {
    if (a == NO_CODE || b == NO_CODE) return true;
    return utf8proc_grapheme_break_stateful(a, b, &state);
}

// Whether a character begins between these two, whatever stands in front of them.
bool surely_breaks(utf8proc_int32_t a, utf8proc_int32_t b) {
    if (a == NO_CODE || b == NO_CODE) return true;
    const int second = boundary_class(b);
    if (second == UTF8PROC_BOUNDCLASS_REGIONAL_INDICATOR) {
        return boundary_class(a) != UTF8PROC_BOUNDCLASS_REGIONAL_INDICATOR && utf8proc_grapheme_break(a, b);
    }
    return a != ZERO_WIDTH_JOINER && utf8proc_grapheme_break(a, b);
}

// The code point in front of col, which is not 0.
Code code_before(std::string_view line, size_t col) { return first_code(line.substr(code_start(line, col - 1))); }

// The last column up to col where a character surely begins; col is the start of a code point.
size_t sure_start(std::string_view line, size_t col) {
    Code code = first_code(line.substr(col));
    while (col > 0) {
        const size_t before = code_start(line, col - 1);
        const Code previous = first_code(line.substr(before));
        if (surely_breaks(previous.value, code.value)) break;
        col = before;
        code = previous;
    }
    return col;
}

// The bytes of the cluster at the start of text, which is not empty.
size_t cluster_size(std::string_view text) {
    Code code = first_code(text);
    size_t size = code.bytes;
    for (utf8proc_int32_t state = 0; size < text.size();) {
        const Code next = first_code(text.substr(size));
        if (breaks(code.value, next.value, state)) break;
        size += next.bytes;
        code = next;
    }
    return size;
}

// Both bytes around col are ASCII, or there is none: nearly all text. A carriage return and a line feed stay apart.
bool plain_border(std::string_view line, size_t col) {
    return (col == 0 || is_ascii(line[col - 1])) && (col >= line.size() || is_ascii(line[col]));
}

// Format characters by themselves are among them: they change the order of what follows, or show nothing.
bool is_control(int boundary) {
    return boundary == UTF8PROC_BOUNDCLASS_CONTROL || boundary == UTF8PROC_BOUNDCLASS_CR ||
           boundary == UTF8PROC_BOUNDCLASS_LF;
}

}  // namespace

size_t kpe_character_start(std::string_view line, size_t col) {
    if (col >= line.size()) return line.size();
    if (!kpe_utf8_locale() || plain_border(line, col)) return col;
    const size_t code = code_start(line, col);
    if (is_plain(first_code(line.substr(code))) && (code == 0 || is_plain(code_before(line, code)))) return code;
    size_t start = sure_start(line, code);
    for (;;) {
        const size_t end = start + cluster_size(line.substr(start));
        if (end > col) return start;
        start = end;
    }
}

size_t kpe_character_end(std::string_view line, size_t col) {
    if (col >= line.size()) return line.size();
    if (!kpe_utf8_locale()) return col + 1;
    if (is_ascii(line[col]) && (col + 1 == line.size() || is_ascii(line[col + 1]))) return col + 1;
    const size_t start = kpe_character_start(line, col);
    return start + cluster_size(line.substr(start));
}

size_t kpe_character_before(std::string_view line, size_t col) {
    col = std::min(col, line.size());
    return col == 0 ? 0 : kpe_character_start(line, col - 1);
}

size_t kpe_character_border(std::string_view line, size_t col) {
    const size_t start = kpe_character_start(line, col);
    return start < col ? kpe_character_end(line, start) : start;
}

Utf8Character kpe_utf8_character(std::string_view text) {
    Code code = first_code(text);
    Utf8Character found;
    found.bytes = code.bytes;
    found.code = static_cast<char32_t>(code.value);
    if (code.value == NO_CODE) {
        found.shown = false;
        return found;
    }
    const Properties first = properties(code.value);
    found.shown = !is_control(first.boundary);
    found.cells = first.cells;
    found.doubtful = first.doubtful;
    const std::string_view rest = text.substr(found.bytes);
    if (first.boundary == UTF8PROC_BOUNDCLASS_OTHER && (rest.empty() || is_plain(first_code(rest)))) return found;
    for (utf8proc_int32_t state = 0; found.bytes < text.size();) {
        const Code next = first_code(text.substr(found.bytes));
        if (breaks(code.value, next.value, state)) break;
        found.bytes += next.bytes;
        code = next;
        const Properties& more = properties(code.value);
        if (code.value == EMOJI_STYLE && found.cells == 1) {
            found.cells = 2;  // where a terminal shows it in one, the second stays blank
            found.doubtful = true;
        } else {
            found.cells += more.cells;
            found.doubtful = found.doubtful || more.cells > 0 || more.doubtful || code.value == TEXT_STYLE;
        }
    }
    if (g_joined && found.cells > 2) found.cells = std::max<size_t>(first.cells, 2);
    found.lone_mark = first.cells == 0;
    found.cells = std::max<size_t>(found.cells, 1);
    return found;
}

void kpe_join_clusters(bool joined) { g_joined = joined; }

size_t kpe_utf8_size(std::string_view text) {
    const Code code = first_code(text);
    return code.value == NO_CODE ? 0 : code.bytes;
}

std::string kpe_utf8_of(char32_t code) {
    utf8proc_uint8_t bytes[LONGEST];
    const utf8proc_ssize_t size = utf8proc_encode_char(static_cast<utf8proc_int32_t>(code), bytes);
    return {reinterpret_cast<const char*>(bytes), static_cast<size_t>(size)};
}

namespace {

// The character in front of at, which is not 0.
struct Before {
    size_t start, columns;
};
Before character_before(std::string_view line, size_t at) {
    if (!kpe_utf8_locale()) return {at - 1, 1};
    size_t start = code_start(line, at - 1);
    const Code code = first_code(line.substr(start));
    if (is_plain(code) && (start == 0 || is_plain(code_before(line, start)))) {
        return {start, is_ascii(line[start]) ? size_t{1} : properties(code.value).cells};
    }
    start = kpe_character_before(line, at);
    if (is_ascii(line[start])) return {start, 1};
    return {start, kpe_utf8_character(line.substr(start)).cells};
}

}  // namespace

size_t kpe_view_columns(std::string_view line, size_t from, size_t to, size_t most) {
    size_t columns = to - std::min(to, std::max(from, line.size()));
    to = std::min(to, line.size());
    while (to > from && columns <= most) {
        const Before before = character_before(line, to);
        to = before.start;
        columns += before.columns;
    }
    return std::min(columns, most + 1);
}

size_t kpe_view_start(std::string_view line, size_t to, size_t columns) {
    const size_t behind = to - std::min(to, line.size());
    if (behind >= columns) return to - columns;
    columns -= behind;
    to -= behind;
    while (to > 0) {
        const Before before = character_before(line, to);
        if (before.columns > columns) break;
        columns -= before.columns;
        to = before.start;
    }
    return to;
}

size_t kpe_view_end(std::string_view text, size_t columns) {
    if (!kpe_utf8_locale()) return std::min(columns, text.size());
    size_t at = 0;
    while (at < text.size()) {
        const Utf8Character character = kpe_utf8_character(text.substr(at));
        const size_t taken = is_ascii(text[at]) ? 1 : character.cells;
        if (at > 0 && taken > columns) break;
        columns -= std::min(columns, taken);
        at += character.bytes;
    }
    return at;
}
