#pragma once

#include <cstddef>
#include <string>

// The keys of screen mode. A key is an int as curses reads it (a byte, or a KEY_ code), or one of the codes
// of the numeric keypad, which lie above those of curses.

constexpr int KPE_KP0 = 512, KPE_KP1 = 513, KPE_KP2 = 514, KPE_KP3 = 515, KPE_KP4 = 516, KPE_KP5 = 517, KPE_KP6 = 518,
              KPE_KP7 = 519, KPE_KP8 = 520, KPE_KP9 = 521;
constexpr int KPE_KP_MINUS = 522, KPE_KP_COMMA = 523, KPE_KP_PERIOD = 524, KPE_KP_ENTER = 525;

constexpr int kpe_ctrl(char letter) { return letter - 'A' + 1; }
constexpr int KPE_BACKSPACE = 8, KPE_TAB = 9, KPE_LINEFEED = 10, KPE_RETURN = 13, KPE_ESCAPE = 27, KPE_DELETE = 127;

// Takes out of the terminal's own keys what would disturb ours: extended keys of modern terminals (Alt/Delete
// and the like), which curses numbers from 512 up, get codes that nothing uses, and a control byte is always
// read as itself (the Linux console's entry calls Ctrl/Z a key of its own), except that the terminal's
// backspace key stays KEY_BACKSPACE. After curses is started.
void kpe_clear_keys();
// Teaches curses the sequences of the keypad and of PF1 to PF4.
void kpe_register_keypad(bool pc_keypad);
// The key that exactly these bytes are; 0 for none. Slow, but unlike key_defined it knows a key whose bytes also
// begin those of others.
int kpe_code_of(const std::string& bytes);
// How many of bytes are the key of this code, which key_defined found in them: it also finds a key that begins longer
// ones in what goes on otherwise. At least 1.
size_t kpe_length_of(int code, const std::string& bytes);
// Folds curses' own codes for keypad keys onto the codes above; every other key is returned as it is.
int kpe_normalize_key(int key, bool pc_keypad);

// The short label of a key, and the name of what it does in screen mode, plain or after GOLD. "" for none.
const char* kpe_key_label(int key);
const char* kpe_function_name(int key, bool gold);
inline const char* gold_function_name(int key) { return kpe_function_name(key, /*gold=*/true); }
