#include "editor/verb_help.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "system/ascii.h"
#include "system/pages.h"

namespace {

constexpr std::string_view RANGES =
    "12, . (this line), .+3, BEGIN, END, two of these with : or THRU between them, "
    "WHOLE, or REST";

// Takes what fits into a row from the start of text: a line, or as many words of it as there is room for.
std::string_view take_row(std::string_view& text, size_t width) {
    std::string_view rest = text;
    const std::string_view line = kpe_take_line(rest);
    const size_t blank = line.size() > width ? line.rfind(' ', width) : line.npos;
    text = blank == line.npos ? rest : text.substr(blank + 1);
    return line.substr(0, blank);
}

// A part of what is told of a verb: its name stands in front of its first row.
void tell_part(std::string_view name, std::string_view text, Pages& pages) {
    constexpr size_t INDENT = 14, WIDTH = 65;
    for (; !text.empty(); name = {}) {
        std::string row = "  " + std::string(name);
        row.resize(INDENT, ' ');
        pages.tell(row.append(take_row(text, WIDTH)));
    }
}

// "DEL-W" as people write it.
std::string phrase(std::string_view verb) {
    std::string words(verb);
    std::replace(words.begin(), words.end(), '-', ' ');
    return words;
}

using Rows = std::vector<const VerbHelp*>;

Rows rows_where(const std::function<bool(const VerbHelp&)>& fits) {
    Rows rows;
    for (const VerbHelp& row : KPE_VERB_HELP) {
        if (fits(row)) rows.push_back(&row);
    }
    return rows;
}

constexpr size_t LEAST_LETTERS = 3;

// The verb that SET has for what SHOW shows.
std::string setter_of(const std::string& verb) { return verb.starts_with("SHOW-") ? "SET-" + verb.substr(5) : verb; }

// Of a verb as it was recognised in the topic; for the beginning of several verbs all of these. A verb without a row
// belongs to the row of a shorter one: SET-SEARCH-WORD to SET-SEARCH, or at last to SET.
Rows rows_of(const std::string& topic, const std::string& verb) {
    Rows rows = rows_where([&](const VerbHelp& row) { return phrase(row.verb) == topic; });
    if (rows.empty()) rows = rows_where([&](const VerbHelp& row) { return row.verb == verb; });
    if (rows.empty() && verb.size() >= LEAST_LETTERS)
        rows = rows_where([&](const VerbHelp& row) { return row.verb.starts_with(verb); });
    std::string shorter = setter_of(verb);
    for (size_t length = shorter.size(); rows.empty() && length != shorter.npos; length = shorter.rfind('-')) {
        shorter.resize(length);
        rows = rows_where([&](const VerbHelp& row) { return row.verb == shorter; });
    }
    return rows;
}

// What screen mode calls a key that does the same, where that is none of the spellings.
constexpr std::pair<std::string_view, std::string_view> OTHER_FUNCTIONS[] = {
    {"TAB", "tab to next stop"},
    {"SET-NUMBERS", "Line numbers"},
};

bool is_function_of(const std::string& verb, std::string_view function) {
    const auto same = [&](const auto& row) { return row.first == verb && row.second == function; };
    return function == phrase(verb) || std::any_of(std::begin(OTHER_FUNCTIONS), std::end(OTHER_FUNCTIONS), same);
}

}  // namespace

void Editor::tell_verb_help(const std::string& topic, Pages& pages) const {
    for (const VerbHelp* const row : rows_of(topic, parse_command(topic).verb)) {
        tell_part("Command", row->syntax, pages);
        tell_part("", row->text, pages);
        if (row->range) tell_part("Range", RANGES, pages);
        tell_part("Qualifiers", row->qualifiers, pages);
        tell_part("Example", row->example, pages);
        tell_part("Keys", keys_for(*row), pages);
    }
}

std::string Editor::keys_for(const VerbHelp& row) const {
    std::string keys;
    for (const KeyFunction& key : kpe_key_functions()) {
        const ParsedCommand command = parse_command(std::string(key.function));
        const bool command_word = command.verb == row.verb && command.args.empty();
        if (command_word || is_function_of(std::string(row.verb), key.function))
            keys += (keys.empty() ? "" : ", ") + key.key;
    }
    return keys;
}
