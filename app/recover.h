#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/options.h"

// kpe-recover: shows and brings back texts that were not saved. It is the same program under that name.

// Whether argv0 ends in "recover".
bool kpe_called_as_recover(const char* argv0);

// What is left to do when the command line was carried out.
struct RecoverResult {
    int status = 0;  // 0: done; 1: there is nothing to recover; 2: an error, which was told
    // For --edit: the file, and the log or rescue file with its text. "": there is nothing to edit.
    std::string edit, edit_from;
    int64_t edit_until = 0;  // see SessionPolicy::recovers_until
};
RecoverResult kpe_recover(int argc, char** argv);
std::vector<OptionForm> kpe_recover_option_forms();
