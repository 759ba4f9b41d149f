#pragma once

#include <span>
#include <string>

#include "screen/n3_kpe_keymap.h"

// Keys with Shift, Ctrl or Alt, and the layers: keys that stand for those of the numeric keypad, which many keyboards
// do not have and many terminals do not send.

constexpr int KPE_MODIFIERS = KPE_SHIFT | KPE_CTRL | KPE_ALT;

constexpr bool kpe_is_modified(int key) { return key > 0 && !kpe_is_character(key) && (key & KPE_MODIFIERS) != 0; }
// The key without Shift, Ctrl and Alt, which does what a modified key does that has no definition. Ctrl and a letter
// is a control byte. Other keys, ERR among them, come back as they are.
int kpe_plain_key(int key);
// Of Alt and a printable character the character as it was typed, or 0 for every other key.
char kpe_alt_character(int key);

// One key of a layer, and the key that it stands for. Both are the same where the key table has a row for the key.
struct LayerKey {
    int key, stands_for;
};
// Alt and letters: the block that keyboards without a keypad used to print under their letters. Always on.
std::span<const LayerKey> kpe_alt_layer();
// Alt and the letters that save and leave, for sessions that have such keys.
std::span<const LayerKey> kpe_leaving_layer();
// With SET KEYPAD EDITING: the keys around Home, and the arrow keys after GOLD.
std::span<const LayerKey> kpe_editing_layer();
std::span<const LayerKey> kpe_gold_arrows();
// The key that key stands for in the layer, or 0 if it is not in it. The case of a letter and Shift beside Alt do not
// count.
int kpe_in_layer(std::span<const LayerKey> layer, int key);

// The name of any key for people to read, such as "KP7", "Ctrl/Left", "Alt/u", "F5" or "RETURN".
std::string kpe_key_name(int key);
// What DEFINE KEY calls the key, such as "CTRL+A", "F5" or "ALT+SHIFT+UP"; "" for a key that cannot be defined.
std::string kpe_key_id(int key);
