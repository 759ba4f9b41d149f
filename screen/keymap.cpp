#include <algorithm>
#include <cstdlib>
#include <curses.h>
#include <map>
#include <string>
#include <vector>

#include "screen/n3_kpe_keymap.h"

namespace {

struct Sequence {
    const char* bytes;
    int code;
};

// clang-format off

// What a VT100 sends in keypad application mode. Where a sequence stands twice the later row holds.
constexpr Sequence KEYPAD[] = {
    {"\033Op", KPE_KP0}, {"\033Oq", KPE_KP1}, {"\033Or", KPE_KP2}, {"\033Os", KPE_KP3}, {"\033Ot", KPE_KP4},
    {"\033Ou", KPE_KP5}, {"\033Ov", KPE_KP6}, {"\033Ow", KPE_KP7}, {"\033Ox", KPE_KP8}, {"\033Oy", KPE_KP9},
    {"\033Om", KPE_KP_MINUS}, {"\033Ol", KPE_KP_COMMA}, {"\033On", KPE_KP_PERIOD}, {"\033OM", KPE_KP_ENTER},
    {"\033Oo", KEY_F(2)}, {"\033Oj", KEY_F(3)},  // "/" and "*" of a PC keypad
};
// After KP-: with a PC keypad "-" is PF4, and "+" is KP-.
constexpr Sequence PC_KEYPAD[] = {{"\033Om", KEY_F(4)}, {"\033Ok", KPE_KP_MINUS}};
constexpr Sequence OTHER_KEYPAD[] = {{"\033Ok", KPE_KP_COMMA}};
// Some terminals have other sequences for F1 to F4 in their entries, and send these from the keypad.
constexpr Sequence PF_KEYS[] = {
    {"\033OP", KEY_F(1)}, {"\033OQ", KEY_F(2)}, {"\033OR", KEY_F(3)}, {"\033OS", KEY_F(4)},
};
// clang-format on

// Far above every code that curses gives out.
constexpr int UNUSED_CODES = 2048;

template <size_t N>
void define_all(const Sequence (&rows)[N]) {
    for (const Sequence& row : rows) define_key(row.bytes, row.code);
}

using Sequences = std::vector<std::string>;

// By code, for keys that were pressed: keybound goes through all keys that there are.
std::map<int, Sequences> g_sequences;

Sequences bound_to(int code) {
    Sequences found;
    for (int i = 0; char* const bytes = keybound(code, i); ++i) {
        found.emplace_back(bytes);
        std::free(bytes);
    }
    return found;
}

const Sequences& sequences_of(int code) {
    const auto [known, unknown] = g_sequences.try_emplace(code);
    if (unknown) known->second = bound_to(code);
    return known->second;
}

}  // namespace

void kpe_clear_keys() {
    g_sequences.clear();
    const auto clear = [](char c) {
        const std::string bytes(1, c);
        if (key_defined(bytes.c_str()) != KEY_BACKSPACE) define_key(bytes.c_str(), 0);
    };
    for (char c = 1; c < ' '; ++c) clear(c);
    clear(KPE_DELETE);
    for (int code = KPE_KP0; code <= KPE_NUM_LOCK; ++code) {
        for (const std::string& bytes : bound_to(code)) define_key(bytes.c_str(), UNUSED_CODES + code);
    }
}

int kpe_code_of(const std::string& bytes) {
    for (int code = KEY_MIN; code <= UNUSED_CODES + KPE_NUM_LOCK; ++code) {
        const Sequences bound = bound_to(code);
        if (std::find(bound.begin(), bound.end(), bytes) != bound.end()) return code;
    }
    return 0;
}

size_t kpe_length_of(int code, const std::string& bytes) {
    size_t length = 1;
    for (const std::string& bound : sequences_of(code)) {
        if (bytes.starts_with(bound)) length = std::max(length, bound.size());
    }
    return length;
}

void kpe_register_keypad(bool pc_keypad) {
    g_sequences.clear();
    define_key("\033O", 0);  // curses takes no key that begins with another one
    for (const Sequence& row : PF_KEYS) {
        if (key_defined(row.bytes) != row.code) define_key(row.bytes, row.code);
    }
    define_all(KEYPAD);
    if (pc_keypad) {
        define_all(PC_KEYPAD);
    } else {
        define_all(OTHER_KEYPAD);
    }
}

int kpe_normalize_key(int key, bool) {
    switch (key) {
        case KEY_ENTER:
            return KPE_KP_ENTER;
        case KEY_A1:
            return KPE_KP7;
        case KEY_A3:
            return KPE_KP9;
        case KEY_B2:
            return KPE_KP5;
        case KEY_C1:
            return KPE_KP1;
        case KEY_C3:
            return KPE_KP3;
        default:
            return key;
    }
}
