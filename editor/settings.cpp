#include <algorithm>
#include <cstdlib>

#include "editor/kpe.h"
#include "system/ascii.h"
#include "system/report.h"

// Settings by kind. A row gives SET, SET NO and SHOW; what fits no kind is a function of its own.
struct Editor::SettingTable {
    struct OnOff {
        std::string_view name;
        bool Editor::*field;
        std::string_view label;
    };
    // One of a few words.
    struct Word {
        std::string_view name;
        std::string Editor::*field;
        std::string_view label, choices;
        bool confirm_refused;   // whether the value that stays is shown after a refusal
        std::string_view more;  // a choice that the refusal does not name
    };
    // A number of at least 0; note is shown beside 0.
    struct Number {
        std::string_view name;
        int Editor::*field;
        std::string_view label;
        int otherwise;  // for text that is no number
        std::string_view note;
    };
    struct Search {
        std::string_view word;
        void (*set)(Editor&);
    };
    struct Own {
        std::string_view verb;
        void (*run)(Editor&, const std::string& args, bool report);
    };

    // clang-format off
    static constexpr OnOff ON_OFF[] = {
        {"QUIET",      &Editor::quiet_,          "Quiet"},
        {"VERIFY",     &Editor::verify_,         "Verify"},
        {"WRAP",       &Editor::wrap_,           "Wrap"},
        {"AUTOREPEAT", &Editor::autorepeat_,     "Autorepeat"},
        {"REPEAT",     &Editor::repeat_enabled_, "Repeat"},
        {"FNF",        &Editor::fnf_,            "FNF"},
        {"SUMMARY",    &Editor::summary_,        "Summary"},
        {"TRUNCATE",   &Editor::truncate_,       "Truncate"},
        {"CLIPBOARD",  &Editor::clipboard_,      "Clipboard"},
        {"HISTORY",    &Editor::history_,        "History"},
    };
    static constexpr Word WORDS[] = {
        {"CASE",      &Editor::case_mode_,      "Case",      "NONE|LOWER|UPPER",    true,  ""},
        {"KEYPAD",    &Editor::keypad_mode_,    "Keypad",    "KPE|NOKEYPAD|WPS|PC", false, "EDITING"},
        {"NUMLOCK",   &Editor::num_lock_,       "Numlock",   "GOLD|NONE",           false, ""},
        {"PARAGRAPH", &Editor::paragraph_mode_, "Paragraph", "WPS|NOWPS",           true,  ""},
    };
    static constexpr Number NUMBERS[] = {
        {"TAB",    &Editor::tab_width_,    "Tab width",    8, ""},
        {"LINES",  &Editor::set_lines_,    "Lines",        0, " (terminal height)"},
        {"SCREEN", &Editor::screen_width_, "Screen width", 0, " (auto)"},
    };
    // BEGIN and END exclude each other; no form clears WILD or both anchors.
    static constexpr Search SEARCH[] = {
        {"EXACT",   [](Editor& e) { e.search_exact_ = true; }},
        {"GENERAL", [](Editor& e) { e.search_exact_ = false; }},
        {"BEGIN",   [](Editor& e) { e.search_begin_ = true;  e.search_end_ = false; }},
        {"END",     [](Editor& e) { e.search_begin_ = false; e.search_end_ = true; }},
        {"WILD",    [](Editor& e) { e.search_wild_ = true; }},
        {"WORD",    [](Editor& e) { e.search_word_ = true; }},
        {"NOWORD",  [](Editor& e) { e.search_word_ = false; }},
    };
    // clang-format on
    static const Own OWN[];

    static std::string quoted(const std::string& text) { return "\"" + text + "\""; }

    static void set_search(Editor& e, const std::string& args, bool report) {
        const std::string word = upper(trim(args));
        for (const Search& row : SEARCH) {
            if (row.word == word) return row.set(e);
        }
        kpe_complain(report, "SET SEARCH expects EXACT|GENERAL|BEGIN|END|WILD|WORD|NOWORD");
    }
    static void show_search(Editor& e, const std::string&, bool report) {
        std::string text = "Search: " + (e.last_search_.empty() ? "(none)" : quoted(e.last_search_));
        text += e.search_exact_ ? " [EXACT]" : " [GENERAL]";
        if (e.search_begin_) text += " BEGIN";
        if (e.search_end_) text += " END";
        if (e.search_wild_) text += " WILD";
        if (e.search_word_) text += " WORD";
        kpe_say(report, text);
    }

    static void show_numbers(Editor& e, const std::string&, bool report) {
        kpe_say(report, e.show_line_numbers_ ? "line numbers enabled" : "line numbers disabled");
    }
    static void set_numbers(Editor& e, const std::string&, bool report) {
        e.show_line_numbers_ = true;
        e.message_ = "Line numbers ON";
        show_numbers(e, {}, report);
    }
    static void set_nonumbers(Editor& e, const std::string&, bool report) {
        e.show_line_numbers_ = false;
        e.message_ = "Line numbers OFF";
        show_numbers(e, {}, report);
    }
    static void set_recovery(Editor& e, const std::string& args, bool report) {
        e.switch_recovery(args == "OFF" ? Recovery::Off : Recovery::On);
        kpe_say(report, std::string("Recovery ") + kpe_on_off(e.wants_recording()));
    }
    static void show_recovery(Editor& e, const std::string&, bool report) {
        kpe_say(report, std::string("Recovery: ") + kpe_on_off(e.wants_recording()));
    }
    static void set_overstrike(Editor& e, const std::string&, bool report) {
        e.overstrike_ = true;
        kpe_say(report, e.message_ = "Overstrike mode");
    }
    static void set_insert(Editor& e, const std::string&, bool report) {
        e.overstrike_ = false;
        kpe_say(report, e.message_ = "Insert mode");
    }
    static void set_mode_line(Editor& e, const std::string&, bool) { e.last_set_mode_ = "Line"; }
    static void show_mode(Editor& e, const std::string&, bool report) { kpe_say(report, e.last_set_mode_); }

    static void set_command(Editor& e, const std::string& args, bool report) {
        e.command_set_file_ = strip_optional_quotes(args);
        const std::string name = e.command_set_file_;
        if (file_exists(name)) e.run_command_file(name, report);
        kpe_say(report, "Command file: " + name);
    }
    static void show_command(Editor& e, const std::string&, bool report) {
        kpe_say(report, "Command file: " + (e.command_set_file_.empty() ? "(none)" : e.command_set_file_));
    }

    static void show_cursor(Editor& e, const std::string&, bool report) {
        kpe_say(report, "Cursor margins: " + std::to_string(e.cursor_top_) + " " + std::to_string(e.cursor_bottom_));
    }
    static void set_cursor(Editor& e, const std::string& args, bool report) {
        std::string_view rest = args;
        const auto top = kpe_take_int(rest), bottom = kpe_take_int(rest);
        if (top && bottom) {
            e.cursor_top_ = *top;
            e.cursor_bottom_ = *bottom;
        } else {
            kpe_complain(report, "SET CURSOR expects top bottom");
        }
        show_cursor(e, {}, report);
    }

    static void show_help(Editor& e, const std::string&, bool report) { kpe_say(report, "Help: " + e.help_name_); }
    static void set_help(Editor& e, const std::string& args, bool report) {
        e.help_name_ = strip_optional_quotes(args);
        show_help(e, {}, report);
    }

    static void set_terminal(Editor& e, const std::string& args, bool report) {
        e.terminal_type_ = strip_optional_quotes(args);
        if (!e.terminal_type_.empty()) setenv("TERM", e.terminal_type_.c_str(), /*overwrite=*/1);
        kpe_say(report, "Terminal: " + e.terminal_type_);
    }
    static void show_terminal(Editor& e, const std::string&, bool report) {
        const char* const term = std::getenv("TERM");
        kpe_say(report, "Terminal: " + e.terminal_type_ + (term ? " (TERM=" + std::string(term) + ")" : ""));
    }

    static void show_text(Editor& e, const std::string&, bool report) {
        kpe_say(report, "Text FORMFEED=" + quoted(e.text_formfeed_) + " END=" + quoted(e.text_eob_));
    }
    static void set_text(Editor& e, const std::string& args, bool report) {
        const std::string a = trim(args);
        if (starts_with_ci(a, "FORMFEED ")) {
            e.text_formfeed_ = strip_optional_quotes(trim(a.substr(9)));
        } else if (starts_with_ci(a, "END ")) {
            e.text_eob_ = strip_optional_quotes(trim(a.substr(4)));
        } else {
            kpe_complain(report, "SET TEXT expects FORMFEED string | END string");
        }
        show_text(e, {}, report);
    }

    static void show_prompt(Editor& e, const std::string&, bool report) {
        kpe_say(report, "Prompt: " + quoted(e.prompt_));
    }
    static void set_prompt(Editor& e, const std::string& args, bool report) {
        e.prompt_ = strip_optional_quotes(args);
        show_prompt(e, {}, report);
    }

    static void set_entity(Editor& e, const std::string& args, bool report) {
        e.word_delimiters_ = strip_optional_quotes(args);
        e.word_delimiter_on_ = true;
        kpe_say(report, "Word delimiters: " + quoted(e.word_delimiters_));
    }
    static void set_word_delim(Editor& e, const std::string& args, bool report) {
        e.word_delimiter_on_ = upper(trim(args)) != "OFF";
        kpe_say(report, std::string("Word delimiter: ") + kpe_on_off(e.word_delimiter_on_));
    }
    static void show_entity(Editor& e, const std::string&, bool report) {
        kpe_say(report,
                std::string("Word delimiters: ") + kpe_on_off(e.word_delimiter_on_) + " " + quoted(e.word_delimiters_));
    }

    static void show_rms(Editor& e, const std::string&, bool report) {
        kpe_say(report, e.rms_fixed_ ? "RMS: FIXED " + std::to_string(e.rms_fixed_len_) : "RMS: VARIABLE");
    }
    static void set_rms(Editor& e, const std::string& args, bool report) {
        const std::string a = upper(trim(args));
        if (a == "VARIABLE") {
            e.rms_fixed_ = false;
            e.rms_fixed_len_ = 0;
        } else if (a.starts_with("FIXED")) {
            const std::string length = trim(a.substr(5));
            e.rms_fixed_len_ = std::max(1, kpe_stoi(length).value_or(80));
            e.rms_fixed_ = true;
        } else {
            kpe_complain(report, "SET RMS expects FIXED n | VARIABLE");
        }
        show_rms(e, {}, report);
    }

    static void show_versioning(Editor& e, const std::string&, bool report) {
        kpe_say(report, std::string("Versioning: ") + kpe_on_off(e.versioning_));
    }
    static void set_versioning(Editor& e, const std::string& args, bool report) {
        const std::string a = upper(trim(args));
        if (a == "ON" || a == "YES") {
            e.versioning_ = true;
        } else if (a == "OFF" || a == "NO") {
            e.versioning_ = false;
        } else {
            kpe_complain(report, "SET VERSIONING expects ON|OFF");
        }
        show_versioning(e, {}, report);
    }

    // The kinds: each tells whether it knew the name.
    static bool set_on_off(Editor& e, std::string_view name, bool report) {
        const bool on = !name.starts_with("NO");
        if (!on) name.remove_prefix(2);
        for (const OnOff& row : ON_OFF) {
            if (row.name != name) continue;
            e.*row.field = on;
            kpe_say(report, std::string(row.label) + " " + kpe_on_off(on));
            return true;
        }
        return false;
    }
    static bool set_word(Editor& e, std::string_view name, const std::string& args, bool report) {
        for (const Word& row : WORDS) {
            if (row.name != name) continue;
            const std::string word = upper(trim(args));
            const std::string choices = "|" + std::string(row.choices) + "|" + std::string(row.more) + "|";
            const bool known = word.find('|') == std::string::npos && !word.empty() &&
                               choices.find("|" + word + "|") != std::string::npos;
            if (known) e.*row.field = word;
            if (!known) kpe_complain(report, "SET " + std::string(name) + " expects " + std::string(row.choices));
            if (known || row.confirm_refused) kpe_say(report, std::string(row.label) + ": " + e.*row.field);
            return true;
        }
        return false;
    }
    static bool set_number(Editor& e, std::string_view name, const std::string& args, bool report) {
        for (const Number& row : NUMBERS) {
            if (row.name != name) continue;
            e.*row.field = std::max(0, kpe_stoi(args).value_or(row.otherwise));
            kpe_say(report, std::string(row.label) + ": " + std::to_string(e.*row.field));
            return true;
        }
        return false;
    }
    static bool show(Editor& e, std::string_view name, bool report) {
        for (const OnOff& row : ON_OFF) {
            if (row.name == name)
                return kpe_say(report, std::string(row.label) + ": " + kpe_on_off(e.*row.field)), true;
        }
        for (const Word& row : WORDS) {
            if (row.name == name) return kpe_say(report, std::string(row.label) + ": " + e.*row.field), true;
        }
        for (const Number& row : NUMBERS) {
            if (row.name != name) continue;
            const std::string_view note = e.*row.field == 0 ? row.note : "";
            return kpe_say(report, std::string(row.label) + ": " + std::to_string(e.*row.field) + std::string(note)),
                   true;
        }
        return false;
    }
};

// clang-format off
const Editor::SettingTable::Own Editor::SettingTable::OWN[] = {
    {"SET-SEARCH",     set_search},       {"SHOW-SEARCH",       show_search},
    {"SET-NUMBERS",    set_numbers},      {"SET-NONUMBERS",     set_nonumbers},   {"SHOW-NUMBERS",    show_numbers},
    {"SET-OVERSTRIKE", set_overstrike},   {"SET-OVERTYPE",      set_overstrike},
    {"SET-INSERT",     set_insert},       {"SET-NOOVERSTRIKE",  set_insert},
    {"SET-MODE-LINE",  set_mode_line},    {"SHOW-MODE",         show_mode},
    {"SET-COMMAND",    set_command},      {"SHOW-COMMAND",      show_command},
    {"SET-CURSOR",     set_cursor},       {"SHOW-CURSOR",       show_cursor},
    {"SET-HELP",       set_help},         {"SHOW-HELP",         show_help},
    {"SET-TERMINAL",   set_terminal},     {"SHOW-TERMINAL",     show_terminal},
    {"SET-TEXT",       set_text},         {"SHOW-TEXT",         show_text},
    {"SET-PROMPT",     set_prompt},       {"SHOW-PROMPT",       show_prompt},
    {"SET-ENTITY",     set_entity},       {"SET-WORD-DELIM",    set_word_delim},  {"SHOW-ENTITY",     show_entity},
    {"SET-RMS",        set_rms},          {"SHOW-RMS",          show_rms},
    {"SET-VERSIONING", set_versioning},   {"SHOW-VERSIONING",   show_versioning},
    {"SET-RECOVERY",   set_recovery},     {"SHOW-RECOVERY",     show_recovery},
};
// clang-format on

bool Editor::setting_command(const std::string& verb, const std::string& args, bool report) {
    for (const SettingTable::Own& row : SettingTable::OWN) {
        if (row.verb == verb) return row.run(*this, args, report), true;
    }
    const std::string_view name(verb);
    if (name.starts_with("SHOW-")) return SettingTable::show(*this, name.substr(5), report);
    if (!name.starts_with("SET-")) return false;
    const std::string_view set = name.substr(4);
    if (set.starts_with("SEARCH-")) {
        const std::string_view word = set.substr(7);
        const auto known = std::find_if(std::begin(SettingTable::SEARCH), std::end(SettingTable::SEARCH),
                                        [&](const SettingTable::Search& row) { return row.word == word; });
        if (known == std::end(SettingTable::SEARCH)) return false;
        return known->set(*this), true;
    }
    return SettingTable::set_on_off(*this, set, report) || SettingTable::set_word(*this, set, args, report) ||
           SettingTable::set_number(*this, set, args, report);
}

std::vector<std::string> Editor::setting_phrases() {
    std::vector<std::string> phrases;
    for (const SettingTable::OnOff& row : SettingTable::ON_OFF) {
        for (const char* const form : {"SET ", "SET NO", "SHOW "}) phrases.push_back(form + std::string(row.name));
    }
    for (const SettingTable::Word& row : SettingTable::WORDS) {
        const std::string choices = std::string(row.choices) + "|" + std::string(row.more);
        for (size_t from = 0; from < choices.size();) {
            const size_t end = std::min(choices.find('|', from), choices.size());
            phrases.push_back("SET " + std::string(row.name) + " " + choices.substr(from, end - from));
            from = end + 1;
        }
    }
    return phrases;
}
