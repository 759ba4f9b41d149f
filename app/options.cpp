#include "app/options.h"

#include "system/ascii.h"
#include "system/report.h"

namespace {

using Value = std::optional<std::string> Options::*;

// clang-format off

// A form that begins with "-" is compared as typed, one that begins with "/" in any case.
struct FlagForm { std::string_view form; bool Options::*flag; std::string_view help = {}; };
constexpr FlagForm FLAGS[] = {
    {"-d", &Options::debug_keys, "Show the code of the last key"}, {"-k", &Options::debug_keys},
    {"/DEBUG", &Options::debug_keys},   {"/DEBUG_KEYS", &Options::debug_keys},
    {"-nocommand", &Options::no_command, "Run no startup file"}, {"/NOCOMMAND", &Options::no_command},
    {"-readonly", &Options::read_only, "Refuse commands that change text"}, {"-read_only", &Options::read_only},
    {"/READ_ONLY", &Options::read_only}, {"/READONLY", &Options::read_only},
    {"-recover", &Options::recover, "Repeat the commands in the journal"}, {"/RECOVER", &Options::recover},
    {"-h", &Options::help}, {"--help", &Options::help, "Print a summary and leave"}, {"/?", &Options::help},
    {"--version", &Options::version, "Print the version and leave"},
    {"-stop", &Options::stop, "End a script at the first error"},
    {"-quiet", &Options::quiet, "Print neither banner nor prompts"},
};
// The value is what follows the form, in its own case.
struct ValueForm { std::string_view form; Value value; std::string_view help = {}; };
constexpr ValueForm VALUES[] = {
    {"-command=", &Options::command_file, "Run this command file first"},
    {"-command:", &Options::command_file}, {"/COMMAND=", &Options::command_file},
    {"-output=", &Options::output_file, "Have EXIT write to this file"},
    {"-output:", &Options::output_file},   {"/OUTPUT=", &Options::output_file},
    {"-journal=", &Options::journal, "Keep the journal in this file"},
    {"-journal:", &Options::journal},      {"/JOURNAL=", &Options::journal},
};
// clang-format on

// An unknown option or qualifier. /tmp/x is a file, and so is /9.
bool is_ignored(std::string_view argument) {
    if (argument.starts_with('-')) return true;
    return argument.size() > 1 && argument.front() == '/' && kpe_is_alpha(argument[1]) &&
           argument.find('/', 1) == argument.npos;
}

bool take_option(const std::string& argument, Options& options) {
    std::string upper = argument;
    for (char& c : upper) c = kpe_to_upper(c);
    const auto as_compared = [&](std::string_view form) -> const std::string& {
        return form.front() == '/' ? upper : argument;
    };
    for (const FlagForm& row : FLAGS) {
        if (as_compared(row.form) == row.form) return options.*row.flag = true;
    }
    for (const ValueForm& row : VALUES) {
        if (!as_compared(row.form).starts_with(row.form)) continue;
        options.*row.value = argument.substr(row.form.size());
        return true;
    }
    return is_ignored(argument);
}

}  // namespace

Options kpe_options(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc && !options.help && !options.version; ++i) {
        const std::string argument = argv[i];
        if (argument == "-command") {
            if (i + 1 < argc) {
                options.command_file = argv[++i];
            } else {
                kpe_warn("?Missing file after -command");
            }
        } else if (!take_option(argument, options)) {
            options.files.push_back(argument);
        }
    }
    return options;
}

std::vector<OptionForm> kpe_option_forms() {
    std::vector<OptionForm> forms;
    for (const FlagForm& row : FLAGS) forms.push_back({row.form, row.help, /*takes_file=*/false});
    for (const ValueForm& row : VALUES) forms.push_back({row.form, row.help, /*takes_file=*/true});
    return forms;
}
