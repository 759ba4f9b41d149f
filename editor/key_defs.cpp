#include <algorithm>
#include <curses.h>

#include "editor/kpe.h"
#include "editor/report.h"
#include "editor/text_helpers.h"

namespace {

struct KeyName {
    std::string_view typed, id;
};
constexpr KeyName KEY_NAMES[] = {{"F1", "PF1"}, {"F2", "PF2"}, {"F3", "PF3"}, {"F4", "PF4"}};

constexpr int CTRL_A = 1, CTRL_H = 8, CTRL_Z = 26, RUBOUT = 127;

std::string key_part(int key) {
    if (key >= KEY_F(1) && key <= KEY_F(4)) return "PF" + std::to_string(key - KEY_F0);
    if (key == KEY_BACKSPACE || key == RUBOUT || key == CTRL_H) return "DELETE";
    if (key >= CTRL_A && key <= CTRL_Z) return std::string("CTRL+") + static_cast<char>(key + 'A' - 1);
    if (key >= ' ' && key < RUBOUT) return {kpe_to_upper(static_cast<char>(key))};
    return "";
}

}  // namespace

void Editor::define_key_command(const std::string& args, bool report) {
    const std::string t = trim(args);
    const size_t as = upper(t).find(" AS ");
    if (as == std::string::npos) {
        kpe_complain(report, "DEFINE KEY syntax: DEFINE KEY [GOLD] key AS \"command\"");
        return;
    }
    const std::string key = trim(t.substr(0, as));
    const std::string command = strip_optional_quotes(trim(t.substr(as + 4)));
    const std::string id = normalize_key_spec(key);
    if (id.empty()) {
        kpe_complain(report, "Invalid key specification");
        return;
    }
    key_defs_[id] = command;
    kpe_say(report, "key " + key + " defined as " + command);
}

std::string Editor::normalize_key_spec(const std::string& spec) const {
    const std::string words = upper(spec);
    bool gold = false, ctrl = false;
    std::string_view key;
    for (auto [word, rest] = kpe_first_word(words); !word.empty(); std::tie(word, rest) = kpe_first_word(rest)) {
        if (word == "GOLD") {
            gold = true;
        } else if (word == "CONTROL" || word == "CTRL") {
            ctrl = true;
        } else {
            key = word;
        }
    }
    if (key.empty()) return "";
    const auto name =
        std::find_if(std::begin(KEY_NAMES), std::end(KEY_NAMES), [&](const KeyName& k) { return k.typed == key; });
    if (name != std::end(KEY_NAMES)) key = name->id;
    return (gold ? "GOLD+" : "") + std::string(ctrl ? "CTRL+" : "") + std::string(key);
}

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

void Editor::show_key_command(const std::string& filter, bool report) {
    if (!report) return;
    const std::string f = upper(trim(filter));
    bool shown = false;
    for (const auto& [id, command] : key_defs_) {
        if (id.find(f) == std::string::npos) continue;
        shown = true;
        kpe_say(true, "  " + id + " = \"" + command + "\"");
    }
    if (shown) return;
    if (f.empty()) {
        kpe_say(true, "No user-defined keys");
    } else {
        kpe_complain(true, "Key not defined: " + filter);
    }
}
