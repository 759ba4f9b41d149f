#include <algorithm>

#include "editor/kpe.h"
#include "system/ascii.h"
#include "system/pages.h"
#include "system/report.h"

namespace {

struct KeyName {
    std::string_view typed, id;
};
constexpr KeyName KEY_NAMES[] = {{"F1", "PF1"}, {"F2", "PF2"}, {"F3", "PF3"}, {"F4", "PF4"}};

// Keys that can be defined only together with Shift, Ctrl or Alt. DELETE alone is the key that deletes to the left.
constexpr std::string_view EDITING_KEYS[] = {
    "LEFT", "RIGHT", "UP", "DOWN", "HOME", "END", "INSERT", "DELETE", "PGUP", "PGDN",
};
constexpr int MOST_FUNCTION_KEYS = 20;

std::string_view key_name(std::string_view typed) {
    const auto name =
        std::find_if(std::begin(KEY_NAMES), std::end(KEY_NAMES), [&](const KeyName& k) { return k.typed == typed; });
    return name == std::end(KEY_NAMES) ? typed : name->id;
}

bool take(std::string_view& text, std::string_view start) {
    const bool found = text.starts_with(start);
    if (found) text.remove_prefix(start.size());
    return found;
}

// PF1 to PF4, F5 to F20.
bool is_function_key(std::string_view key) {
    const bool pf = take(key, "PF");
    if (!pf && !take(key, "F")) return false;
    if (key.starts_with('0') || !kpe_all_digits(key)) return false;
    const int number = kpe_stoi(std::string(key)).value_or(0);
    return pf ? number >= 1 && number <= 4 : number >= 5 && number <= MOST_FUNCTION_KEYS;
}

// Whether a key that is pressed, by itself or after GOLD, can have this id.
bool can_come(std::string_view id) {
    const bool ctrl = take(id, "CTRL+"), alt = take(id, "ALT+"), shift = take(id, "SHIFT+");
    const bool modified = ctrl || alt || shift;
    if (is_function_key(id)) return true;
    if (std::find(std::begin(EDITING_KEYS), std::end(EDITING_KEYS), id) != std::end(EDITING_KEYS))
        return modified || id == "DELETE";
    if (id.size() != 1 || id.front() <= ' ' || id.front() > '~' || shift) return false;
    if (ctrl) return !alt && kpe_is_alpha(id.front()) && id != "H";  // Ctrl/H is DELETE
    return true;
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
    const std::string_view pressed = std::string_view(id).substr(id.starts_with("GOLD+") ? 5 : 0);
    if (report && !can_come(pressed)) tell_user("?No key is known as " + id + ": this definition will never run");
}

// SHIFT and ALT are modifiers only if the words then name a key that can come; else they are words like others.
std::string Editor::normalize_key_spec(const std::string& spec) const {
    const std::string words = upper(spec);
    bool gold = false, ctrl = false, alt = false, shift = false;
    std::string_view key, modified;  // the last word; the same without SHIFT and ALT
    for (auto [word, rest] = kpe_first_word(words); !word.empty(); std::tie(word, rest) = kpe_first_word(rest)) {
        if (word == "GOLD") {
            gold = true;
        } else if (word == "CONTROL" || word == "CTRL") {
            ctrl = true;
        } else {
            key = word;
            alt |= word == "ALT";
            shift |= word == "SHIFT";
            if (word != "ALT" && word != "SHIFT") modified = word;
        }
    }
    if (key.empty()) return "";
    const std::string start = gold ? "GOLD+" : "", control = ctrl ? "CTRL+" : "";
    if (alt || shift) {
        const bool letter = modified.size() == 1 && kpe_is_alpha(modified.front());  // of either case
        const std::string with_shift = shift && !(alt && letter) ? "SHIFT+" : "";
        const std::string id = control + (alt ? "ALT+" : "") + with_shift + std::string(key_name(modified));
        if (can_come(id)) return start + id;
    }
    return start + control + std::string(key_name(key));
}

void Editor::show_key_command(const std::string& filter, bool report) {
    if (!report) return;
    const std::string f = upper(trim(filter));
    bool shown = false;
    Pages pages;
    for (const auto& [id, command] : key_defs_) {
        if (id.find(f) == std::string::npos) continue;
        shown = true;
        pages.say("  " + id + " = \"" + command + "\"");
    }
    if (shown) return;
    if (f.empty()) {
        kpe_say(true, "No user-defined keys");
        pages.tell("The keys that kpe has itself: HELP KEYPAD, or PF2 (F2) in screen mode");
    } else {
        kpe_complain(true, "Key not defined: " + filter);
    }
}
