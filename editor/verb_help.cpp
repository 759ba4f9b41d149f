#include "editor/verb_help.h"

#include <algorithm>
#include <functional>

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

// Of a verb as it was recognised in the topic; for the beginning of several verbs all of these.
Rows rows_of(const std::string& topic, const std::string& verb) {
    Rows rows = rows_where([&](const VerbHelp& row) { return row.verb == verb || phrase(row.verb) == topic; });
    if (rows.empty() && verb.size() >= LEAST_LETTERS)
        rows = rows_where([&](const VerbHelp& row) { return row.verb.starts_with(verb); });
    if (!rows.empty()) return rows;
    const std::string family = verb.substr(0, verb.find('-'));
    return rows_where([&](const VerbHelp& row) { return row.verb == family; });
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
        if (command_word || key.function == row.function || key.function == phrase(row.verb))
            keys += (keys.empty() ? "" : ", ") + key.key;
    }
    return keys;
}
