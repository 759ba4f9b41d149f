#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The command line of kpe.

struct Options {
    std::vector<std::string> files;
    std::optional<std::string> command_file, output_file, journal;
    bool read_only = false, recover = false, debug_keys = false, no_command = false, help = false;
    bool version = false, stop = false, quiet = false;
};

// Unknown options are ignored. Stops at a form that asks for help or for the version: it ends the program at once.
Options kpe_options(int argc, char** argv);

// A form of an option, for what tells people of options. Without help it is another spelling of a form that has one.
struct OptionForm {
    std::string_view form, help;
    bool takes_file;  // the form ends where the name of a file begins
};
std::vector<OptionForm> kpe_option_forms();
