#include <algorithm>

#include "editor/kpe.h"
#include "system/ascii.h"
#include "system/report.h"

namespace {

struct KeyName {
    std::string_view typed, id;
};
constexpr KeyName KEY_NAMES[] = {{"F1", "PF1"}, {"F2", "PF2"}, {"F3", "PF3"}, {"F4", "PF4"}};

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
