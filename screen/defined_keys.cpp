#include <algorithm>
#include <curses.h>
#include <iterator>
#include <string>

#include "editor/kpe.h"
#include "screen/key_layers.h"
#include "screen/n3_kpe_keymap.h"
#include "system/ascii.h"

namespace {

constexpr int CTRL_A = 1, CTRL_H = 8, CTRL_Z = 26, RUBOUT = 127;

struct NamedKey {
    int code;
    const char* name;
};
constexpr NamedKey EDITING_KEYS[] = {
    {KEY_LEFT, "LEFT"}, {KEY_RIGHT, "RIGHT"}, {KEY_UP, "UP"},     {KEY_DOWN, "DOWN"},  {KEY_HOME, "HOME"},
    {KEY_END, "END"},   {KEY_IC, "INSERT"},   {KEY_DC, "DELETE"}, {KEY_PPAGE, "PGUP"}, {KEY_NPAGE, "PGDN"},
};

std::string function_key(int key) {
    if (key >= KEY_F(1) && key <= KEY_F(4)) return "PF" + std::to_string(key - KEY_F0);
    if (key >= KEY_F(5) && key <= KEY_F(20)) return "F" + std::to_string(key - KEY_F0);
    return "";
}

std::string editing_key(int key) {
    const auto row = std::find_if(std::begin(EDITING_KEYS), std::end(EDITING_KEYS),
                                  [&](const NamedKey& named) { return named.code == key; });
    return row == std::end(EDITING_KEYS) ? "" : row->name;
}

std::string modified_part(int key) {
    if (const char typed = kpe_alt_character(key)) return std::string("ALT+") + kpe_to_upper(typed);
    const int plain = key & ~KPE_MODIFIERS;
    const std::string name = function_key(plain) + editing_key(plain);
    if (name.empty()) return "";
    return std::string(key & KPE_CTRL ? "CTRL+" : "") + (key & KPE_ALT ? "ALT+" : "") +
           (key & KPE_SHIFT ? "SHIFT+" : "") + name;
}

}  // namespace

std::string kpe_key_id(int key) {
    if (kpe_is_modified(key)) return modified_part(key);
    if (key == KEY_BACKSPACE || key == RUBOUT || key == CTRL_H) return "DELETE";
    if (key >= CTRL_A && key <= CTRL_Z) return std::string("CTRL+") + static_cast<char>(key + 'A' - 1);
    if (key >= ' ' && key < RUBOUT) return {kpe_to_upper(static_cast<char>(key))};
    return function_key(key);
}

namespace {

bool is_cancel(int key) { return key == ERR || key == kpe_ctrl('C') || key == KPE_ESCAPE; }

}  // namespace

std::string Editor::key_id_from_input(int key, bool gold) const {
    const std::string part = kpe_key_id(key);
    return gold && !part.empty() ? "GOLD+" + part : part;
}

bool Editor::is_defined_key(int key, bool gold) const {
    return !key_defs_.empty() && key_defs_.contains(key_id_from_input(key, gold));
}

bool Editor::try_defined_key(int key, bool gold) {
    const auto definition = key_defs_.find(key_id_from_input(key, gold));
    if (definition == key_defs_.end()) return false;
    const std::string command = definition->second;  // the command may define its own key anew
    handle_command_result(execute_command(command, /*report=*/false), /*exit_allowed=*/true);
    return true;
}

std::optional<int> Editor::read_key_to_define(const std::string& message) {
    message_ = message;
    draw_screen();
    const int key = read_key();
    if (!is_cancel(key)) return key;
    message_ = "Define key cancelled";
    return std::nullopt;
}

void Editor::interactive_define_key() {
    auto key = read_key_to_define("Press key to define");
    const bool gold = key == KEY_F(1);
    if (gold) key = read_key_to_define("GOLD — press key");
    if (!key) return;
    const std::string id = key_id_from_input(*key, gold);
    if (id.empty()) {
        message_ = "Invalid key for DEFINE KEY";
        return;
    }
    const std::string definition = prompt_line("Definition: ");
    if (!definition.empty()) key_defs_[id] = definition;
    message_ = definition.empty() ? "Define key cancelled" : "Key defined: " + id;
}
