#pragma once

#include <cstddef>
#include <string>

#include "editor/key_codes.h"

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
