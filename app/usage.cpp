#include "app/usage.h"

#include <string>
#include <string_view>

#include "system/report.h"
#include "system/version.h"

namespace {

// %p stands for the program's name, %v for the version.
constexpr std::string_view USAGE[] = {
    "usage: %p file [file2 ...] [options]",
    "",
    "OpenVMS KPE-compatible editor (%v).",
    "",
    "Arguments:",
    "  file [file2 ...]     File(s) to edit. NEXT / PREVIOUS walk the list.",
    "",
    "Options:",
    "  -command file        Startup command file (/COMMAND=file); replaces KPE.INI.",
    "                       Default type .kpe: -command=daily opens daily.kpe",
    "  -command=file        Same as -command file (also -command:file, /COMMAND=file)",
    "  -nocommand           No startup command file at all (/NOCOMMAND)",
    "  -output=file         Write MAIN to file on EXIT (/OUTPUT=file)",
    "  -readonly            Disallow mutating commands (/READ_ONLY)",
    "  -recover             Replay journal if present (/RECOVER)",
    "  -journal=path        Journal file path (/JOURNAL=path); host text journal",
    "  -d, -k               Debug: show last key's name + code on the status line",
    "",
    "Environment:",
    "  KPE_INI              Default startup command file when no -command is given",
    "                       (else $HOME/KPE.INI, kpe.ini)",
    "  KPE_VMS_VERSIONS     If set/non-0, force ;n versioning on save (see also",
    "                       librzrt KPE/VERSIONING)",
    "  RZ_TTY               Redirect stdin/stdout/stderr to this tty (POSIX)",
    "  TERM                 Must not be 'dumb' (ncurses screen mode)",
    "",
    "Line-mode tips:",
    "  HELP                 Command summary",
    "  VERSION              Show %v and copyright",
    "  CHANGE / C           Enter screen / keypad mode (Ctrl/Z returns)",
    "",
    "Screen-mode GOLD key: PF1 or F1 (sends Esc O P). Num Lock is not GOLD;",
    "map Num Lock to that sequence in your terminal emulator if desired.",
};

std::string filled_in(std::string_view line, std::string_view program) {
    std::string text(line);
    if (const size_t at = text.find("%v"); at != text.npos) text.replace(at, 2, kpe_version_string());
    if (const size_t at = text.find("%p"); at != text.npos) text.replace(at, 2, program);
    return text;
}

}  // namespace

void print_usage(const char* argv0) {
    const std::string_view program = argv0 && *argv0 ? argv0 : "kpe";
    for (const std::string_view line : USAGE) kpe_warn(filled_in(line, program));
}
