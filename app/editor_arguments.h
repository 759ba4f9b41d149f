#pragma once

#include <string>
#include <vector>

#include "app/options.h"
#include "editor/policy.h"

// The command line of kpe-editor: the same program under the name by which other programs call it as $EDITOR.

// Whether argv0 ends in "editor", as kpe-editor does, and /usr/bin/editor where that is a link to it.
bool kpe_called_as_editor(const char* argv0);

struct EditorArguments {
    std::vector<std::string> files;
    std::vector<SessionPolicy::Place> places;  // where each file is to be opened
    bool text_from_input = false;              // the only file is "-"
    bool never_writes = false, help = false, version = false;
    std::string wrong;  // what cannot be understood, in a line for the user; "" if all is well
};
// Reads at most up to what is wrong, or to an option that asks for help or for the version. "FILE:N" and "FILE:N:C"
// name a place in FILE unless a file has the whole name.
EditorArguments kpe_editor_arguments(int argc, char** argv);

std::vector<OptionForm> kpe_editor_option_forms();

extern const char* const KPE_EDITOR_USAGE;
