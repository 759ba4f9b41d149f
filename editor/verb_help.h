#pragma once

#include <string_view>

// What HELP tells of each verb, beside the texts of print_line_help. A text may have several lines; one that is empty
// is left out.
struct VerbHelp {
    std::string_view verb;    // as parse_command gives it; SET-CASE stands for all that is said of this setting
    std::string_view syntax;  // its forms, one a line
    std::string_view text;    // what it does
    std::string_view qualifiers;
    std::string_view example;
    bool range;  // whether it takes a range of lines
};

// One row for each entry of docs/manual/commands.md.
inline constexpr VerbHelp KPE_VERB_HELP[] = {
#include "verb_help_rows.inc"
};

// Whether HELP tells something of the verb; of one of a setting at least what SET or SHOW do.
constexpr bool kpe_is_explained(std::string_view verb) {
    for (const std::string_view family : {"SET-", "SHOW-"}) {
        if (verb.starts_with(family)) return true;
    }
    for (const VerbHelp& row : KPE_VERB_HELP) {
        if (row.verb == verb) return true;
    }
    return false;
}
