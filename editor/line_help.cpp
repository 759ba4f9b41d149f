#include <algorithm>
#include <cerrno>
#include <span>
#include <sys/stat.h>

#include "config/n3_rzconfig.h"
#include "editor/kpe.h"
#include "editor/reasons.h"
#include "files/file_reader.h"
#include "system/ascii.h"
#include "system/pages.h"
#include "system/report.h"
#include "system/version.h"

namespace {

constexpr std::string_view SET[] = {
    "HELP SET — settings:",
    "  SET NUMBERS / NONUMBERS / SEARCH EXACT|GENERAL|BEGIN|END|WILD|WORD|NOWORD",
    "  SET MODE CHANGE|LINE / SET KEYPAD KPE|NOKEYPAD|WPS",
    "  SET CURSOR top bottom / SET TAB n / SET CASE NONE|LOWER|UPPER",
    "  SET LINES n / SET TRUNCATE / SET TERMINAL type / SET TEXT FORMFEED",
    "  SET PARAGRAPH WPS|NOWPS / SET RMS FIXED n|VARIABLE / SET VERSIONING ON|OFF",
    "  SET HELP file / SET OVERSTRIKE / INSERT / QUIET / VERIFY / WRAP / ...",
};
constexpr std::string_view SHOW[] = {
    "HELP SHOW — status:",
    "  SHOW VERSION / FILES / MODE / BUFFER / NUMBERS / SEARCH / KEYPAD",
    "  SHOW CURSOR / TAB / CASE / KEY / MACRO / ENTITY / TERMINAL / RMS",
    "  SHOW LINES / TRUNCATE / PARAGRAPH / VERSIONING / HELP",
};
constexpr std::string_view CHANGE[] = {
    "HELP CHANGE — screen editing:",
    "  CHANGE / C (or SET MODE CHANGE) enters screen/keypad mode.",
    "  Ctrl/Z returns to line mode. GOLD=PF1/F1. See HELP KEYPAD.",
    "  With SET KEYPAD NOKEYPAD, CHANGE enters nokeypad command line.",
    "  SET KEYPAD WPS keeps KPE GOLD bindings; SHOW KEYPAD reports WPS.",
    "  Inline: CHANGE ;5W  (run nokeypad cmds without interactive mode).",
};
constexpr std::string_view KEYPAD[] = {
    "HELP KEYPAD — KPE keypad CHANGE mode:",
    "  SET KEYPAD KPE|WPS restores keypad CHANGE mode (WPS uses KPE map).",
    "  KP0 LINE  KP1 WORD  KP3 CHAR  KP4 ADV  KP5 BACK  KP6 CUT",
    "  KP7 PAGE  KP. SELECT  PF3 FNDNXT  GOLD+PF3 FIND",
    "  LK201: PgUp/PgDn=PAGE, Insert=PASTE, Find=FNDNXT, Select=SELECT",
};
constexpr std::string_view NOKEYPAD[] = {
    "HELP NOKEYPAD — command language (no spaces):",
    "  ADVANCE/ADV/A  BACKUP/BACK/B  CHAR/C  WORD/W  LINE/L  EOL  BOL/BL",
    "  PAGE/V  TOP  BOTTOM  SEL/SELECT  CUT  PASTE  APPEND",
    "  DCHAR/DC  DWORD/DW  DLINE/DL  CHGC/CHNGCASE  CLSS/RESET",
    "  FIND/F\"text\" or F/text/   INSERT/Itext<ESC>",
    "  EX/EXIT/EXT  Ctrl/Z   (counts: 5W 3DW 2CHGC)",
    "  SET KEYPAD NOKEYPAD then CHANGE, or CHANGE ;cmds",
};
constexpr std::string_view XLATE[] = {
    "HELP XLATE — character translation:",
    "  XLATE           show the current translation map",
    "  XLATE a b       map character a to b on the current line",
    "  XLATE a b range apply over a line range",
};
constexpr std::string_view RETAIN[] = {
    "HELP RETAIN / STORE TEXT — copy into a named buffer:",
    "  RETAIN =name          copy select range or current line to =name",
    "  STORE TEXT =name      alias of RETAIN",
};
constexpr std::string_view RANGE[] = {
    "HELP RANGE — sticky line range:",
    "  RANGE n THRU m   set sticky range used by bare TYPE/DELETE/WRITE",
    "  RANGE            show the sticky range",
};
constexpr std::string_view FILES[] = {
    "HELP FILES — list argv files (also SHOW FILES):",
    "  FILES / SHOW FILES   input, output, and multi-file list",
};
constexpr std::string_view JOURNAL[] = {
    "HELP JOURNAL — host text journal (not binary OVMS):",    "  -journal=path / /JOURNAL=path   journal file location",
    "  -recover / /RECOVER             replay journal",       "  Clean EXIT deletes the journal file when present.",
    "  CHANGE enter/leave are recorded; keystrokes are not.",
};
constexpr std::string_view GENERAL[] = {
    "  =========================",
    "  EDIT line-mode commands:",
    "  CHANGE / C            enter screen mode (HELP CHANGE / HELP NOKEYPAD)",
    "  VERSION              show editor version (also SHOW VERSION)",
    "  TYPE [range]          e.g. TYPE 10 THRU 20, TYPE 1:5 /BRIEF, TYPE .+1",
    "  DELETE [range]        e.g. DELETE 3, DELETE 10 THRU END",
    "  FIND text             search (FIND =name switches buffer); /BRIEF",
    "  FNDNXT / FIND NEXT    repeat search in current direction",
    "  INSERT [text]         single-arg insert; bare INSERT reads until ^Z or .",
    "  TAB                   insert spaces to next tab stop",
    "  SUBSTITUTE [repl]     replace next match; repl defaults to PASTE",
    "  SUBSTITUTE/old/new/N  set search/replace; N = max replacements",
    "  XLATE / RETAIN|=buf / STORE TEXT =buf / RANGE / FILES",
    "  BELL / DATE / TAB ADJUST [range] / RESEQUENCE [/SEQUENCE=n:i|/DUPLICATE]",
    "  ADVANCE / BACKUP      set search direction",
    "  SELECT / CUT / APPEND / REPLACE / PASTE / RESET",
    "  UNDO / U              undo last change",
    "  REDO                  redo last undone change",
    "  FILL                  reformat paragraph (SET PARAGRAPH WPS|NOWPS)",
    "  PRINT [range]         send lines to printer via lpr/lp",
    "  COPY range TO =name / MOVE range TO =name / CLEAR name",
    "  INCLUDE file / WRITE file [range] [BUFFER name]",
    "  SHOW BUFFER / SHOW FILES / SHOW MODE / SHOW VERSION",
    "  SET NUMBERS / SET NONUMBERS / SET SEARCH EXACT|GENERAL|WORD|...",
    "  SET MODE CHANGE / SET MODE LINE / SET CASE NONE|LOWER|UPPER",
    "  SET KEYPAD KPE|NOKEYPAD|WPS / SET OVERSTRIKE / SET INSERT",
    "  SET RMS FIXED n|VARIABLE / SET VERSIONING ON|OFF",
    "  DEFINE KEY [GOLD] key AS \"cmd\" / DEFINE MACRO name AS \"cmd;cmd\"",
    "  EXIT / EX   save and exit",
    "  QUIT / Q    exit without saving",
    "Qualifiers: /QUERY /GLOBAL /NOTYPE /BRIEF[:n] /SAVE /STAY /SEQUENCE=n:i /DUPLICATE",
    "Topics: HELP SET|SHOW|CHANGE|KEYPAD|NOKEYPAD|VERSION|XLATE|RETAIN|RANGE|FILES|JOURNAL",
    "Screen GOLD key: PF1 or F1 (see HELP in CHANGE mode for keypad tips)",
    "INSERT multiline: end with a line that is Ctrl/Z, ^Z, or .",
};

struct Topic {
    std::string_view word;
    std::span<const std::string_view> lines;
};
constexpr Topic TOPICS[] = {
    {"SET", SET},     {"SHOW", SHOW},     {"CHANGE", CHANGE}, {"KEYPAD", KEYPAD}, {"NOKEYPAD", NOKEYPAD},
    {"XLATE", XLATE}, {"RETAIN", RETAIN}, {"RANGE", RANGE},   {"FILES", FILES},   {"JOURNAL", JOURNAL},
};

// The lines of a user's own help text. Returns 0, or the errno for which it cannot be opened.
int print_file(const std::string& path, Pages& pages) {
    struct stat there;
    if (kpe_stat(path.c_str(), &there) != 0) return errno;
    if (S_ISDIR(there.st_mode)) return EISDIR;
    if (!S_ISREG(there.st_mode)) return ENOTSUP;  // to open a FIFO could take for ever
    const FileContent content = kpe_read_file(path, nullptr);
    if (content.end == FileContent::End::Missing || content.end == FileContent::End::Refused) return content.error;
    if (content.too_large) return content.error;
    for (std::string_view rest = content.block->bytes(); !rest.empty();) pages.say(kpe_take_line(rest));
    return 0;
}

}  // namespace

// What scripts read stays as it always was; what verbs add is for people. The general text is long: in front of it they
// find what they have asked for.
void Editor::print_line_help(const std::string& topic) const {
    Pages pages;
    if (!help_name_.empty() && help_name_ != "KPEHELP") {
        const int error = print_file(help_name_, pages);
        if (error == 0) return;
        pages.tell(kpe_why_unread(error, help_name_) + "; this is the help of kpe:");
    }
    const std::string word = upper(trim(topic));
    if (word == "VERSION") {
        kpe_say_lines(kpe_version_banner() + "\n");
        return;
    }
    const auto row = std::find_if(std::begin(TOPICS), std::end(TOPICS), [&](const Topic& t) { return t.word == word; });
    const bool general = row == std::end(TOPICS);
    if (general) {
        tell_verb_help(word, pages);
        pages.say("  " + kpe_version_string() + "  kpe, a text editor for character terminals");
    }
    for (const std::string_view line : general ? std::span<const std::string_view>(GENERAL) : row->lines) {
        pages.say(line);
    }
    if (!general) tell_verb_help(word, pages);
}
