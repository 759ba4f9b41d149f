#include <algorithm>
#include <string_view>

#include "editor/kpe.h"
#include "system/ascii.h"

namespace {

// clang-format off

// A whole command line, upper case with single blanks, and what it means.
struct Spelling { std::string_view phrase, verb, args = {}; };
constexpr Spelling SPELLINGS[] = {
    // Session and motion
    {"C", "CHANGE"},              {"CHANGE", "CHANGE"},         {"EX", "EXIT"},               {"EXIT", "EXIT"},
    {"Q", "QUIT"},                {"QUIT", "QUIT"},             {"T", "TYPE"},                {"TYPE", "TYPE"},
    {"D", "DELETE"},              {"DELETE", "DELETE"},         {"U", "UNDO"},                {"UNDO", "UNDO"},
    {"REDO", "REDO"},             {"H", "HELP"},                {"HELP", "HELP"},             {"I", "INSERT"},
    {"INSERT", "INSERT"},         {"TAB", "TAB"},               {"FILL", "FILL"},             {"PRINT", "PRINT"},
    {"FNDNXT", "FNDNXT"},         {"FIND NEXT", "FNDNXT"},      {"TOP", "TOP"},               {"BOTTOM", "BOTTOM"},
    {"NEXT", "NEXT"},             {"PREVIOUS", "PREVIOUS"},     {"PREV", "PREVIOUS"},         {"FILES", "FILES"},
    {"BELL", "BELL"},             {"DATE", "DATE"},             {"CLEAR", "CLEAR"},           {"CHGL", "CHGL"},
    {"CHGU", "CHGU"},             {"SUBSTITUTE", "SUBSTITUTE"}, {"SUBS", "SUBSTITUTE"},
    {"SUBSTITUTE NEXT", "SUBSTITUTE"},
    // Keypad functions
    {"PASTE", "PASTE"},           {"CUT", "CUT"},               {"APPEND", "APPEND"},         {"REPLACE", "REPLACE"},
    {"SELECT", "SELECT"},         {"SEL", "SELECT"},            {"RESET", "RESET"},           {"ADV", "ADVANCE"},
    {"ADVANCE", "ADVANCE"},       {"BACK", "BACKUP"},           {"BACKUP", "BACKUP"},         {"DEL L", "DEL-L"},
    {"DL", "DEL-L"},              {"DELETE LINE", "DEL-L"},     {"UND L", "UND-L"},           {"UNDELETE LINE", "UND-L"},
    {"DEL C", "DEL-C"},           {"DC", "DEL-C"},              {"DELETE CHARACTER", "DEL-C"},
    {"UND C", "UND-C"},           {"UNDELETE CHARACTER", "UND-C"},
    {"COPY TO CLIPBOARD", "COPY-CLIPBOARD"},
    {"DEL W", "DEL-W"},           {"DW", "DEL-W"},              {"DELETE WORD", "DEL-W"},     {"UND W", "UND-W"},
    {"UNDELETE WORD", "UND-W"},   {"DEL EOL", "DEL-EOL"},       {"DELETE EOL", "DEL-EOL"},
    {"DELETE TO END OF LINE", "DEL-EOL"},
    // Text transforms
    {"RESEQUENCE", "RESEQUENCE"}, {"RESEQ", "RESEQUENCE"},      {"XLATE", "XLATE"},           {"RETAIN", "RETAIN"},
    {"STORE TEXT", "RETAIN"},     {"RANGE", "RANGE"},           {"TAB ADJUST", "TAB-ADJUST"},
    // SET
    {"SET NUMBERS", "SET-NUMBERS"},               {"SET NUMBER", "SET-NUMBERS"},
    {"SET NONUMBERS", "SET-NONUMBERS"},           {"SET NONUMBER", "SET-NONUMBERS"},
    {"SET SEARCH EXACT", "SET-SEARCH-EXACT"},     {"SET SEARCH GENERAL", "SET-SEARCH-GENERAL"},
    {"SET SEARCH BEGIN", "SET-SEARCH-BEGIN"},     {"SET SEARCH END", "SET-SEARCH-END"},
    {"SET SEARCH WILD", "SET-SEARCH-WILD"},       {"SET SEARCH WORD", "SET-SEARCH-WORD"},
    {"SET SEARCH NOWORD", "SET-SEARCH-NOWORD"},   {"SET MODE CHANGE", "SET-MODE-CHANGE"},
    {"SET MODE LINE", "SET-MODE-LINE"},           {"SET OVERSTRIKE", "SET-OVERSTRIKE"},
    {"SET OVERTYPE", "SET-OVERSTRIKE"},           {"SET INSERT", "SET-INSERT"},
    {"SET NOOVERSTRIKE", "SET-INSERT"},           {"SET AUTOREPEAT", "SET-AUTOREPEAT"},
    {"SET NOAUTOREPEAT", "SET-NOAUTOREPEAT"},     {"SET CASE NONE", "SET-CASE", "NONE"},
    {"SET CASE LOWER", "SET-CASE", "LOWER"},      {"SET CASE UPPER", "SET-CASE", "UPPER"},
    {"SET FNF", "SET-FNF"},                       {"SET NOFNF", "SET-NOFNF"},
    {"SET KEYPAD KPE", "SET-KEYPAD", "KPE"},      {"SET KEYPAD NOKEYPAD", "SET-KEYPAD", "NOKEYPAD"},
    {"SET KEYPAD WPS", "SET-KEYPAD", "WPS"},      {"SET KEYPAD PC", "SET-KEYPAD", "PC"},
    {"SET NOKEYPAD", "SET-KEYPAD", "NOKEYPAD"},   {"SET PARAGRAPH WPS", "SET-PARAGRAPH", "WPS"},
    {"SET PARAGRAPH NOWPS", "SET-PARAGRAPH", "NOWPS"},
    {"SET REPEAT", "SET-REPEAT"},                 {"SET NOREPEAT", "SET-NOREPEAT"},
    {"SET SUMMARY", "SET-SUMMARY"},               {"SET NOSUMMARY", "SET-NOSUMMARY"},
    {"SET TRUNCATE", "SET-TRUNCATE"},             {"SET NOTRUNCATE", "SET-NOTRUNCATE"},
    {"SET QUIET", "SET-QUIET"},                   {"SET NOQUIET", "SET-NOQUIET"},
    {"SET VERIFY", "SET-VERIFY"},                 {"SET NOVERIFY", "SET-NOVERIFY"},
    {"SET WRAP", "SET-WRAP"},                     {"SET NOWRAP", "SET-NOWRAP"},
    {"SET WORD DELIMITER", "SET-WORD-DELIM", "ON"},
    {"SET WORD DELIMITERS", "SET-WORD-DELIM", "ON"},
    {"SET WORD NODELIMITER", "SET-WORD-DELIM", "OFF"},
    {"SET WORD NODELIMITERS", "SET-WORD-DELIM", "OFF"},
    {"SET TAB", "SET-TAB", "8"},                  {"SET NOTAB", "SET-TAB", "0"},
    {"SET CLIPBOARD", "SET-CLIPBOARD"},           {"SET NOCLIPBOARD", "SET-NOCLIPBOARD"},
    {"SET CLIPBOARD ON", "SET-CLIPBOARD"},        {"SET CLIPBOARD OFF", "SET-NOCLIPBOARD"},
    {"SET HISTORY", "SET-HISTORY"},               {"SET NOHISTORY", "SET-NOHISTORY"},
    {"SET RECOVERY", "SET-RECOVERY", "ON"},       {"SET NORECOVERY", "SET-RECOVERY", "OFF"},
    {"SET RECOVERY ON", "SET-RECOVERY", "ON"},    {"SET RECOVERY OFF", "SET-RECOVERY", "OFF"},
    {"SET VERSIONING", "SET-VERSIONING", "ON"},   {"SET NOVERSIONING", "SET-VERSIONING", "OFF"},
    // SHOW
    {"SHOW NUMBERS", "SHOW-NUMBERS"},       {"SHOW NUMBER", "SHOW-NUMBERS"},   {"SHOW BUFFER", "SHOW-BUFFER"},
    {"SHOW BUFFERS", "SHOW-BUFFER"},        {"SHOW FILES", "SHOW-FILES"},      {"SHOW FILE", "SHOW-FILES"},
    {"SHOW MODE", "SHOW-MODE"},             {"SHOW VERSION", "SHOW-VERSION"},  {"VERSION", "SHOW-VERSION"},
    {"SHOW MACRO", "SHOW-MACRO"},           {"SHOW MACROS", "SHOW-MACRO"},     {"SHOW AUTOREPEAT", "SHOW-AUTOREPEAT"},
    {"SHOW CASE", "SHOW-CASE"},             {"SHOW COMMAND", "SHOW-COMMAND"},  {"SHOW CURSOR", "SHOW-CURSOR"},
    {"SHOW FNF", "SHOW-FNF"},               {"SHOW HELP", "SHOW-HELP"},        {"SHOW KEYPAD", "SHOW-KEYPAD"},
    {"SHOW LINES", "SHOW-LINES"},           {"SHOW PARAGRAPH", "SHOW-PARAGRAPH"},
    {"SHOW REPEAT", "SHOW-REPEAT"},         {"SHOW SCREEN", "SHOW-SCREEN"},    {"SHOW SUMMARY", "SHOW-SUMMARY"},
    {"SHOW TERMINAL", "SHOW-TERMINAL"},     {"SHOW TEXT", "SHOW-TEXT"},        {"SHOW TRUNCATE", "SHOW-TRUNCATE"},
    {"SHOW QUIET", "SHOW-QUIET"},           {"SHOW VERIFY", "SHOW-VERIFY"},    {"SHOW WRAP", "SHOW-WRAP"},
    {"SHOW SEARCH", "SHOW-SEARCH"},         {"SHOW PROMPT", "SHOW-PROMPT"},    {"SHOW TAB", "SHOW-TAB"},
    {"SHOW KEY", "SHOW-KEY"},               {"SHOW KEYS", "SHOW-KEY"},         {"SHOW ENTITY", "SHOW-ENTITY"},
    {"SHOW WORD", "SHOW-ENTITY"},           {"SHOW RMS", "SHOW-RMS"},          {"SHOW VERSIONING", "SHOW-VERSIONING"},
    {"SHOW CLIPBOARD", "SHOW-CLIPBOARD"},   {"SHOW NUMLOCK", "SHOW-NUMLOCK"},  {"SHOW HISTORY", "SHOW-HISTORY"},
    {"SHOW RECOVERY", "SHOW-RECOVERY"},
};

// The beginning of a line; the arguments are what follows it. The first row that fits wins, and the rules for
// SUBSTITUTE (see substitute_form) have their place between the two tables.
struct Prefix { std::string_view text, verb; };
constexpr Prefix PREFIXES[] = {
    {"TYPE ", "TYPE"},             {"T ", "TYPE"},           {"DELETE ", "DELETE"},   {"D ", "DELETE"},
    {"FIND ", "FIND"},             {"F ", "FIND"},           {"INSERT ", "INSERT"},   {"I ", "INSERT"},
    {"HELP ", "HELP"},             {"H ", "HELP"},           {"CHANGE ", "CHANGE"},   {"C ", "CHANGE"},
    {"RESEQUENCE ", "RESEQUENCE"}, {"RESEQ ", "RESEQUENCE"}, {"XLATE", "XLATE"},      {"STORE TEXT ", "RETAIN"},
    {"RETAIN ", "RETAIN"},         {"RANGE ", "RANGE"},      {"COPY ", "COPY"},       {"MOVE ", "MOVE"},
    {"CLEAR ", "CLEAR"},           {"INCLUDE ", "INCLUDE"},  {"WRITE ", "WRITE"},     {"PRINT ", "PRINT"},
    {"FILL ", "FILL"},
};
constexpr Prefix LATE_PREFIXES[] = {
    {"TAB ADJUST", "TAB-ADJUST"},
    {"SET CASE ", "SET-CASE"},           {"SET COMMAND ", "SET-COMMAND"},     {"SET CURSOR ", "SET-CURSOR"},
    {"SET HELP ", "SET-HELP"},           {"SET KEYPAD ", "SET-KEYPAD"},       {"SET LINES ", "SET-LINES"},
    {"SET PARAGRAPH ", "SET-PARAGRAPH"}, {"SET SCREEN ", "SET-SCREEN"},       {"SET TERMINAL ", "SET-TERMINAL"},
    {"SET TEXT ", "SET-TEXT"},           {"SET SEARCH ", "SET-SEARCH"},       {"SET RMS ", "SET-RMS"},
    {"SET VERSIONING ", "SET-VERSIONING"}, {"SET NUMLOCK ", "SET-NUMLOCK"},
    {"CHGL ", "CHGL"},                   {"CHGU ", "CHGU"},
    {"SET TAB ", "SET-TAB"},             {"SET PROMPT ", "SET-PROMPT"},       {"SHOW KEY ", "SHOW-KEY"},
    {"SET ENTITY WORD ", "SET-ENTITY"},  {"SET ENTITY ", "SET-ENTITY"},       {"SET WORD ", "SET-ENTITY"},
    {"DEFINE KEY ", "DEFINE-KEY"},       {"DEFINE MACRO ", "DEFINE-MACRO"},   {"SHOW MACRO ", "SHOW-MACRO"},
};

// The verbs that are refused in a read-only session and that open an undo unit. Not the same set as the verbs
// that change text: SUBSTITUTE-ALL opens no unit, FILL, CHGL and CHGU open their own.
constexpr std::string_view CHANGING_VERBS[] = {
    "DELETE", "PASTE",   "CUT",   "APPEND", "REPLACE", "DEL-L",   "UND-L", "DEL-C",      "UND-C",
    "DEL-W",  "UND-W",   "DEL-EOL", "INSERT", "CLEAR", "COPY",    "MOVE",  "INCLUDE",    "WRITE",
    "SUBSTITUTE", "DEFINE-MACRO", "DEFINE-KEY", "DATE", "TAB-ADJUST", "TAB", "RESEQUENCE", "XLATE", "RETAIN",
};
// clang-format on

constexpr bool phrases_differ() {
    for (const Spelling& a : SPELLINGS) {
        for (const Spelling& b : SPELLINGS) {
            if (&a != &b && a.phrase == b.phrase) return false;
        }
    }
    return true;
}
static_assert(phrases_differ(), "a phrase is listed twice");

using ParsedCommand = Editor::ParsedCommand;

void become(ParsedCommand& command, std::string_view verb, std::string_view args) {
    command.verb = verb;
    command.args = kpe_trim(args);
}

template <size_t N>
const Prefix* prefix_of(std::string_view upper, const Prefix (&rows)[N]) {
    const auto row = std::find_if(std::begin(rows), std::end(rows),
                                  [&](const Prefix& prefix) { return upper.starts_with(prefix.text); });
    return row == std::end(rows) ? nullptr : row;
}

// A SUBSTITUTE command behind its verb: plain, or ALL.
void substitute_form(ParsedCommand& command, std::string_view behind, std::string_view behind_upper) {
    const std::string_view rest = kpe_trim(behind), rest_upper = kpe_trim(behind_upper);
    const bool all = rest_upper == "ALL" || rest_upper.starts_with("ALL ");
    if (all) {
        become(command, "SUBSTITUTE-ALL", rest.substr(3));
    } else {
        become(command, "SUBSTITUTE", rest);
    }
}

}  // namespace

Editor::ParsedCommand Editor::parse_command(const std::string& raw) const {
    ParsedCommand command;
    const std::string s = trim(raw);
    command.original = s;
    if (s.empty()) return command;

    const auto [word, rest] = kpe_first_word(s);
    if (rest.empty() && word.size() > 1 && word.front() == '.' && (word[1] == '+' || word[1] == '-')) {
        if (const auto row = parse_line_ref(std::string(word))) {
            become(command, "GOTO-LINE", std::to_string(*row + 1));
            return command;
        }
    }
    if (rest.empty() && kpe_all_digits(word)) {
        const auto number = kpe_stoul(word);  // one too large is complained about when it is used
        become(command, "GOTO-LINE", number ? std::to_string(*number) : std::string(word));
        return command;
    }

    const std::string u = upper(s);
    for (const Spelling& spelling : SPELLINGS) {
        if (spelling.phrase == u) {
            become(command, spelling.verb, spelling.args);
            return command;
        }
    }
    if (const Prefix* prefix = prefix_of(u, PREFIXES)) {
        become(command, prefix->verb, std::string_view(s).substr(prefix->text.size()));
        return command;
    }
    const bool one_word = upper(std::string(word)) == "SUBSTITUTE-ALL";
    if (!one_word) {
        if (substitute_tail_pos(s) != std::string::npos) {
            size_t letters = 0;
            while (kpe_is_alpha(s[letters])) ++letters;
            become(command, "SUBSTITUTE", std::string_view(s).substr(letters));
            return command;
        }
        const size_t verb = u.starts_with("SUBSTITUTE") ? 10 : u.starts_with("SUBS") ? 4 : 0;
        if (verb > 0) {
            substitute_form(command, std::string_view(s).substr(verb), std::string_view(u).substr(verb));
            return command;
        }
    }
    if (const Prefix* prefix = prefix_of(u, LATE_PREFIXES)) {
        become(command, prefix->verb, std::string_view(s).substr(prefix->text.size()));
        return command;
    }
    become(command, upper(std::string(word)), rest);
    return command;
}

bool Editor::command_changes_text_or_buffers(const std::string& verb) const {
    return std::find(std::begin(CHANGING_VERBS), std::end(CHANGING_VERBS), verb) != std::end(CHANGING_VERBS);
}

// An abbreviation is what a longer spelling of the same command begins with.
std::vector<std::string> Editor::command_phrases() {
    std::vector<Spelling> all(std::begin(SPELLINGS), std::end(SPELLINGS));
    for (const Prefix& row : PREFIXES) all.push_back({kpe_trim(row.text), row.verb});
    for (const Prefix& row : LATE_PREFIXES) all.push_back({kpe_trim(row.text), row.verb});
    std::vector<std::string> phrases;
    for (const Spelling& one : all) {
        const bool abbreviated = std::any_of(all.begin(), all.end(), [&](const Spelling& other) {
            return other.verb == one.verb && other.args == one.args && other.phrase.size() > one.phrase.size() &&
                   other.phrase.starts_with(one.phrase) && other.phrase[one.phrase.size()] != ' ';
        });
        if (!abbreviated) phrases.emplace_back(one.phrase);
    }
    return phrases;
}
