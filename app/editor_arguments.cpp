#include "app/editor_arguments.h"

#include <optional>
#include <string_view>
#include <unistd.h>

#include "system/ascii.h"

namespace {

using Place = SessionPolicy::Place;

struct Flag {
    std::string_view form;
    bool EditorArguments::*flag;
    bool ends;                   // nothing behind it counts
    std::string_view help = {};  // without it the row is another spelling
};
constexpr Flag FLAGS[] = {
    {"-R", &EditorArguments::never_writes, false, "Write nothing"},
    {"-h", &EditorArguments::help, true},
    {"--help", &EditorArguments::help, true, "Print a summary and leave"},
    {"--version", &EditorArguments::version, true, "Print the version and leave"},
};

const Flag* flag_of(std::string_view argument) {
    for (const Flag& row : FLAGS) {
        if (row.form == argument) return &row;
    }
    return nullptr;
}

// Decimal digits; a number that is too large is the last one.
std::optional<size_t> number_of(std::string_view digits) {
    if (digits.empty() || !kpe_all_digits(digits)) return std::nullopt;
    return kpe_stoul(digits).value_or(SIZE_MAX);
}

// What stands behind the "+".
std::optional<Place> place_of(std::string_view text) {
    if (text.size() > 1 && text.front() == '/') return Place{0, 0, std::string(text.substr(1))};
    const size_t comma = text.find_first_of(",:");
    const auto line = number_of(text.substr(0, comma));
    const auto column = comma == text.npos ? 0 : number_of(text.substr(comma + 1));
    if (!line || !column) return std::nullopt;
    return Place{*line, *column, {}};
}

bool is_there(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Takes the place off the name, if there is one and only the shorter name is a file.
Place take_place(std::string& name) {
    Place place;
    std::string shorter = name;
    for (int numbers = 0; numbers < 2 && !is_there(shorter); ++numbers) {
        const size_t colon = shorter.rfind(':');
        const auto number =
            colon == shorter.npos ? std::nullopt : number_of(std::string_view(shorter).substr(colon + 1));
        if (!number) return {};
        place = {*number, place.line, {}};
        shorter.resize(colon);
    }
    if (!is_there(shorter)) return {};
    name = shorter;
    return place;
}

void add_file(EditorArguments& arguments, std::string name, bool may_have_place) {
    arguments.places.push_back(may_have_place ? take_place(name) : Place());
    arguments.files.push_back(std::move(name));
}

}  // namespace

const char* const KPE_EDITOR_USAGE =
    "usage: kpe-editor [+N[,C]] [+/TEXT] [-R] [--] FILE...\n"
    "\n"
    "Edits the files on the screen, for programs that call $EDITOR and for people.\n"
    "\n"
    "  +N, +N,C     begin at line N, at character C\n"
    "  +/TEXT       begin where TEXT is found first\n"
    "  FILE:N       the same as +N FILE, unless there is a file FILE:N\n"
    "  -R           write nothing\n"
    "  -            as the only FILE: the text comes from standard input\n"
    "  --           what follows are names of files\n"
    "  --help       print this\n"
    "  --version    print the version\n"
    "\n"
    "On the screen Alt/s saves, Alt/x saves and leaves, Alt/q leaves, PF2 or F2 helps.\n"
    "Ctrl/Z goes to the prompt: EXIT saves and leaves, QUIT leaves, CHANGE goes back.\n"
    "With several files NEXT and PREVIOUS at the prompt go from one to the other.\n"
    "\n"
    "Exit status: 0 if each file is as it was wanted, 1 if changes were discarded,\n"
    "2 if a file could not be written or the command line not be understood.";

bool kpe_called_as_editor(const char* argv0) { return argv0 && std::string_view(argv0).ends_with("editor"); }

EditorArguments kpe_editor_arguments(int argc, char** argv) {
    EditorArguments arguments;
    std::optional<Place> first;
    bool only_files = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const Flag* const flag = only_files ? nullptr : flag_of(argument);
        if (flag) {
            arguments.*flag->flag = true;
            if (flag->ends) return arguments;
        } else if (!only_files && argument == "--") {
            only_files = true;
        } else if (!only_files && argument == "-") {
            arguments.text_from_input = true;
            add_file(arguments, "", /*may_have_place=*/false);
        } else if (!only_files && argument.starts_with('+')) {
            first = place_of(argument.substr(1));
            if (!first) arguments.wrong = "not a line number or a text to find: " + argument;
        } else if (!only_files && argument.starts_with('-')) {
            arguments.wrong = "unknown option: " + argument;
        } else {
            add_file(arguments, argument, !only_files);
        }
        if (!arguments.wrong.empty()) return arguments;
    }
    if (arguments.files.empty()) arguments.wrong = "no file is named";
    if (arguments.text_from_input && arguments.files.size() > 1) arguments.wrong = "\"-\" stands alone";
    if (first && !arguments.places.empty()) arguments.places.front() = *first;
    return arguments;
}

std::vector<OptionForm> kpe_editor_option_forms() {
    std::vector<OptionForm> forms;
    for (const Flag& row : FLAGS) forms.push_back({row.form, row.help, /*takes_file=*/false});
    return forms;
}
