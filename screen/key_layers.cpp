#include "screen/key_layers.h"

#include <curses.h>

#include "buffer/characters.h"
#include "system/ascii.h"

namespace {

// clang-format off
constexpr LayerKey ALT_LAYER[] = {
    {KPE_ALT + 'u', KPE_KP7}, {KPE_ALT + 'i', KPE_KP8},       {KPE_ALT + 'o', KPE_KP9}, {KPE_ALT + 'p', KPE_KP_MINUS},
    {KPE_ALT + 'j', KPE_KP4}, {KPE_ALT + 'k', KPE_KP5},       {KPE_ALT + 'l', KPE_KP6}, {KPE_ALT + ';', KPE_KP_COMMA},
    {KPE_ALT + 'm', KPE_KP1}, {KPE_ALT + ',', KPE_KP2},       {KPE_ALT + '.', KPE_KP3}, {KPE_ALT + 'h', KPE_KP_ENTER},
    {KPE_ALT + 'n', KPE_KP0}, {KPE_ALT + '/', KPE_KP_PERIOD},
    {KPE_ALT + 'z', KPE_ALT + 'z'}, {KPE_ALT + 'y', KPE_ALT + 'y'},
};
constexpr LayerKey LEAVING_LAYER[] = {
    {KPE_ALT + 's', KPE_ALT + 's'}, {KPE_ALT + 'x', KPE_ALT + 'x'}, {KPE_ALT + 'q', KPE_ALT + 'q'},
};
constexpr LayerKey EDITING_LAYER[] = {
    {KEY_HOME, KPE_KP7}, {KEY_PPAGE, KPE_KP9}, {KEY_END, KPE_KP1},
    {KEY_NPAGE, KPE_KP3}, {KEY_IC, KPE_KP0}, {KEY_DC, KPE_KP_PERIOD},
};
constexpr LayerKey GOLD_ARROWS[] = {
    {KEY_UP, KPE_KP8}, {KEY_LEFT, KPE_KP4}, {KEY_RIGHT, KPE_KP6}, {KEY_DOWN, KPE_KP2},
};
// clang-format on

bool is_printable(int key) { return key >= ' ' && key <= '~'; }

std::string plain_name(int key) {
    if (const char* const label = kpe_key_label(key); *label) return label;
    if (key == KPE_RETURN || key == KPE_LINEFEED) return "RETURN";
    if (key == KPE_TAB) return "TAB";
    if (key >= 1 && key <= 26) return {'^', static_cast<char>(key + 64)};
    if (is_printable(key)) return {'\'', static_cast<char>(key), '\''};
    if (key == KPE_PASTE) return "Paste";
    if (key == KPE_NUM_LOCK) return "Num Lock";
    const char* const known = keyname(key);
    return known ? known : "?";
}

}  // namespace

int kpe_plain_key(int key) {
    if (!kpe_is_modified(key)) return key;
    const int plain = key & ~KPE_MODIFIERS;
    const bool letter = is_printable(plain) && kpe_is_alpha(static_cast<char>(plain));
    if ((key & KPE_CTRL) != 0 && letter) return kpe_ctrl(kpe_to_upper(static_cast<char>(plain)));
    return plain;
}

char kpe_alt_character(int key) {
    const int plain = key & ~KPE_MODIFIERS;
    const bool alt = kpe_is_modified(key) && (key & KPE_MODIFIERS & ~KPE_SHIFT) == KPE_ALT;
    return alt && is_printable(plain) ? static_cast<char>(plain) : '\0';
}

std::span<const LayerKey> kpe_alt_layer() { return ALT_LAYER; }

std::span<const LayerKey> kpe_leaving_layer() { return LEAVING_LAYER; }

std::span<const LayerKey> kpe_editing_layer() { return EDITING_LAYER; }

std::span<const LayerKey> kpe_gold_arrows() { return GOLD_ARROWS; }

int kpe_in_layer(std::span<const LayerKey> layer, int key) {
    if (const char typed = kpe_alt_character(key)) key = KPE_ALT + kpe_to_lower(typed);
    for (const LayerKey& row : layer) {
        if (row.key == key) return row.stands_for;
    }
    return 0;
}

std::string kpe_key_name(int key) {
    if (kpe_is_character(key)) return "'" + kpe_utf8_of(kpe_code_point(key)) + "'";
    if (!kpe_is_modified(key)) return plain_name(key);
    std::string name;
    if (key & KPE_CTRL) name += "Ctrl/";
    if (key & KPE_ALT) name += "Alt/";
    if (key & KPE_SHIFT) name += "Shift/";
    const int plain = key & ~KPE_MODIFIERS;
    if (is_printable(plain)) return name + static_cast<char>(plain);
    if (plain >= KEY_F(1) && plain <= KEY_F(63)) return name + "F" + std::to_string(plain - KEY_F0);
    return name + plain_name(plain);
}
