#pragma once

#include <cstddef>
#include <string>

// The keys of screen mode. A key is an int: a byte, a KEY_ code of curses, or one of the codes below for the keys of
// the numeric keypad, which lie above those of curses.

constexpr int KPE_KP0 = 512, KPE_KP1 = 513, KPE_KP2 = 514, KPE_KP3 = 515, KPE_KP4 = 516, KPE_KP5 = 517, KPE_KP6 = 518,
              KPE_KP7 = 519, KPE_KP8 = 520, KPE_KP9 = 521;
constexpr int KPE_KP_MINUS = 522, KPE_KP_COMMA = 523, KPE_KP_PERIOD = 524, KPE_KP_ENTER = 525;

// A bracketed paste; kpe_take_paste() returns its text.
constexpr int KPE_PASTE = 526;
// The Num Lock key, which only some terminals report.
constexpr int KPE_NUM_LOCK = 527;
// Added to the code of a key that was pressed together with Shift, Ctrl or Alt.
constexpr int KPE_SHIFT = 0x10000, KPE_CTRL = 0x20000, KPE_ALT = 0x40000;
// Added to the code point of a character outside of ASCII, which is typed in a UTF-8 locale.
constexpr int KPE_CHARACTER = 0x1000000;
constexpr bool kpe_is_character(int key) { return key >= KPE_CHARACTER; }
constexpr char32_t kpe_code_point(int key) { return static_cast<char32_t>(key - KPE_CHARACTER); }

constexpr int kpe_ctrl(char letter) { return letter - 'A' + 1; }
constexpr int KPE_BACKSPACE = 8, KPE_TAB = 9, KPE_LINEFEED = 10, KPE_RETURN = 13, KPE_ESCAPE = 27, KPE_DELETE = 127;

// Changes those of curses' keys that would disturb ours; to be called once curses is started. Extended keys of modern
// terminals, such as Alt/Delete, which curses numbers from 512 up, get codes that nothing uses. A control byte is
// always read as itself, although some terminal entries make a key of it: that of the Linux console does so with
// Ctrl/Z. Only the terminal's backspace key stays KEY_BACKSPACE.
void kpe_clear_keys();
// Teaches curses the sequences of the keypad and of PF1 to PF4.
void kpe_register_keypad(bool pc_keypad);
// The code of the key that sends exactly these bytes, or 0 if there is none. This is slow, but unlike curses'
// key_defined it finds a key even if the bytes of another key begin in the same way.
int kpe_code_of(const std::string& bytes);
// How many of bytes belong to the key of this code, which key_defined has found in them; at least 1. They can be fewer
// than all: key_defined also finds a short key in bytes that begin like a longer key and go on differently.
size_t kpe_length_of(int code, const std::string& bytes);
// Turns curses' own codes for keys of the keypad into the codes above. Returns every other key as it is.
int kpe_normalize_key(int key, bool pc_keypad);

// The short label of a key, and the name of what it does in screen mode, by itself or after GOLD. "" if it has none.
const char* kpe_key_label(int key);
const char* kpe_function_name(int key, bool gold);
inline const char* gold_function_name(int key) { return kpe_function_name(key, /*gold=*/true); }
