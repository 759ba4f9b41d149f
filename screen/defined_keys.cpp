#include <curses.h>

#include "editor/kpe.h"
#include "screen/n3_kpe_keymap.h"
#include "system/ascii.h"

namespace {

constexpr int CTRL_A = 1, CTRL_H = 8, CTRL_Z = 26, RUBOUT = 127;

std::string key_part(int key) {
    if (key >= KEY_F(1) && key <= KEY_F(4)) return "PF" + std::to_string(key - KEY_F0);
    if (key == KEY_BACKSPACE || key == RUBOUT || key == CTRL_H) return "DELETE";
    if (key >= CTRL_A && key <= CTRL_Z) return std::string("CTRL+") + static_cast<char>(key + 'A' - 1);
    if (key >= ' ' && key < RUBOUT) return {kpe_to_upper(static_cast<char>(key))};
    return "";
}

bool is_cancel(int key) { return key == ERR || key == kpe_ctrl('C') || key == KPE_ESCAPE; }

}  // namespace

std::string Editor::key_id_from_input(int key, bool gold) const {
    const std::string part = key_part(key);
    return gold && !part.empty() ? "GOLD+" + part : part;
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
