#pragma once

#include <string_view>

// What HELP tells of each verb, beside the texts of print_line_help. A text may have several lines; one that is empty
// is left out.
struct VerbHelp {
    std::string_view verb;    // as parse_command gives it
    std::string_view syntax;  // its forms, one a line
    std::string_view text;    // what it does
    std::string_view qualifiers;
    std::string_view example;
    bool range = false;  // whether it takes a range of lines
    // What screen mode calls a key that does the same, if that is none of the verb's spellings.
    std::string_view function = {};
};

// clang-format off
inline constexpr VerbHelp KPE_VERB_HELP[] = {
    {"GOTO-LINE", "12\n.+3\n.-3",
     "Goes to the end of the line with this number, or so many lines down or up.",
     "", "250"},
    {"TYPE", "T[YPE] [range]",
     "Types the lines of the range; without one those of RANGE, or the line of the cursor.",
     "/BRIEF:n  only the first n characters of each line (40)", "TYPE 10 THRU 20 /BRIEF:60", true},
    {"TYPECURRENT", "TYPECURRENT", "Types the line of the cursor.", "", ""},
    {"FIND", "F[IND] text\nFIND =name",
     "Goes to the next match in the direction of ADVANCE or BACKUP, and types its line. "
     "* stands for any text, ? and % for one character, [a-z] for one of these, "
     "^ for the start of a line, $ for its end; a \\ before one of them makes it plain. "
     "FIND =name goes to a buffer, and makes it if there is none.",
     "/BRIEF  types the number of the line and the text only", "FIND \"total cost\""},
    {"FNDNXT", "FNDNXT\nFIND NEXT", "Goes to the next match of the last search.", "", ""},
    {"ADVANCE", "ADV[ANCE]", "Searches, and keys that move, go forward from now on.", "", ""},
    {"BACKUP", "BACK[UP]", "Searches, and keys that move, go backward from now on.", "", ""},
    {"TOP", "TOP", "Goes to the beginning of the text.", "", ""},
    {"BOTTOM", "BOTTOM", "Goes to the end of the text.", "", ""},
    {"CHANGE", "C[HANGE]\nCHANGE ;words",
     "Shows the text on the whole screen and edits it there; Ctrl/Z comes back. "
     "With words it runs functions of the keypad: see HELP NOKEYPAD.",
     "", "CHANGE ;3DW"},
    {"INSERT", "I[NSERT] text\nI[NSERT]",
     "Inserts the text at the cursor; quotes around it are left out. Without a text it "
     "reads lines and inserts them; a line that is Ctrl/Z, ^Z or . ends them.",
     "", "INSERT \"Dear all,\""},
    {"DELETE", "D[ELETE] [range]",
     "Deletes the lines of the range; without one those of RANGE, or the line of the cursor.",
     "", "DELETE 10 THRU END", true},
    {"SUBSTITUTE", "S/old/new/ [range]\nSUBSTITUTE [new]",
     "Puts the new text in the place of the next match, or of each match in the range. "
     "Other signs than / may stand around the texts. Without the old text it takes the "
     "last search; without a new one the text of PASTE.",
     "/GLOBAL, /G  each match in the buffer\n/QUERY  asks before each one\n/STAY  does not go on to the next match",
     "S/colour/color/ WHOLE /QUERY", true},
    {"SUBSTITUTE-ALL", "SUBSTITUTE ALL [new]", "Puts the new text in the place of each match of the last search.",
     "/QUERY  asks before each one", "SUBSTITUTE ALL \"color\""},
    {"SELECT", "SEL[ECT]", "Begins a selection at the cursor; it reaches to where the cursor goes.", "", ""},
    {"RESET", "RESET", "Forgets the selection and goes forward again (ADVANCE).", "", ""},
    {"CUT", "CUT", "Takes the selected text out and keeps it in PASTE.", "", ""},
    {"APPEND", "APPEND", "Takes the selected text out and adds it to PASTE.", "", ""},
    {"PASTE", "PASTE", "Inserts the text of PASTE at the cursor.", "", ""},
    {"REPLACE", "REPLACE", "Puts the text of PASTE in the place of the selected text.", "", ""},
    {"DEL-C", "DEL C, DC, DELETE CHARACTER", "Deletes the character at the cursor; UND C brings it back.", "", ""},
    {"DEL-W", "DEL W, DW, DELETE WORD", "Deletes the word at the cursor; UND W brings it back.", "", ""},
    {"DEL-L", "DEL L, DL, DELETE LINE", "Deletes the line of the cursor; UND L brings it back.", "", ""},
    {"DEL-EOL", "DEL EOL, DELETE TO END OF LINE", "Deletes from the cursor to the end of the line.", "", ""},
    {"UND-C", "UND C, UNDELETE CHARACTER", "Inserts the character that was deleted last.", "", ""},
    {"UND-W", "UND W, UNDELETE WORD", "Inserts the word that was deleted last.", "", ""},
    {"UND-L", "UND L, UNDELETE LINE", "Inserts the line that was deleted last.", "", ""},
    {"COPY", "COPY range TO =name", "Adds the lines to the end of a buffer, which is made if there is none.",
     "", "COPY 1:5 TO =SAVED", true},
    {"COPY-CLIPBOARD", "COPY TO CLIPBOARD", "Sends the selected text, or the line of the cursor, to the clipboard.",
     "", ""},
    {"MOVE", "MOVE range TO =name", "Adds the lines to the end of a buffer, and deletes them here.",
     "", "MOVE 1:5 TO =SAVED", true},
    {"RETAIN", "RETAIN =name\nSTORE TEXT =name",
     "Puts the selected lines, those of RANGE, or the line of the cursor into a buffer, "
     "in the place of what it held.", "", "RETAIN =SAVED"},
    {"CLEAR", "CLEAR [name]", "Deletes a buffer and its text; MAIN and PASTE stay, without text.", "", "CLEAR SAVED"},
    {"RANGE", "RANGE [range]", "Sets or shows the lines that TYPE, DELETE, WRITE and RETAIN take if none are named.",
     "", "RANGE 3 THRU 9", true},
    {"FILL", "FILL [range]", "Fills lines with words up to the width of SET SCREEN. Without a range it takes the "
     "selected text.", "", "FILL 3:9", true},
    {"XLATE", "XLATE\nXLATE a b [range]", "Puts character b in the place of each a; by itself it shows the table.",
     "", "XLATE ; , WHOLE", true},
    {"TAB", "TAB", "Inserts blanks up to the next tab stop (SET TAB).", "", "", false, "tab to next stop"},
    {"TAB-ADJUST", "TAB ADJUST [range]", "Puts blanks in the place of tabs at the beginning of lines.",
     "", "TAB ADJUST WHOLE", true},
    {"RESEQUENCE", "RESEQ[UENCE]", "Numbers all lines in their first eight columns, over what stands there.",
     "/SEQUENCE=n:i  begins with n, in steps of i (100:100)\n/DUPLICATE  gives each line the same number",
     "RESEQUENCE /SEQUENCE=10:5"},
    {"CHGL", "CHGL [range]", "Makes letters small: those selected, of the range, or of the line of the cursor.",
     "", "CHGL 3:9", true},
    {"CHGU", "CHGU [range]", "Makes letters capital: those selected, of the range, or of the line of the cursor.",
     "", "CHGU 3:9", true},
    {"DATE", "DATE", "Inserts date and time at the cursor.", "", ""},
    {"BELL", "BELL", "Rings the bell of the terminal.", "", ""},
    {"UNDO", "U[NDO]", "Takes the last change back, up to 100 of them.", "", ""},
    {"REDO", "REDO", "Makes the change again that UNDO took back.", "", ""},
    {"INCLUDE", "INCLUDE file", "Inserts the lines of a file above the line of the cursor.", "", "INCLUDE notes.txt"},
    {"WRITE", "WRITE file [range] [BUFFER name]", "Writes the text, lines of it, or another buffer to a file.",
     "", "WRITE part.txt 10:20", true},
    {"PRINT", "PRINT [range]", "Sends the text, or lines of it, to the printer.", "", "PRINT 1:60", true},
    {"DEFINE-KEY", "DEFINE KEY [GOLD] [CTRL] [ALT] [SHIFT] key AS \"command\"",
     "Gives a key of screen mode a command. SHOW KEY shows the keys that have one.",
     "", "DEFINE KEY GOLD T AS \"DATE\""},
    {"DEFINE-MACRO", "DEFINE MACRO name AS \"command;command\"\nDEFINE MACRO name",
     "Gives commands a name that runs them. Without AS it reads them, up to END DEFINE or "
     "a blank line. SHOW MACRO shows them.", "", "DEFINE MACRO TIDY AS \"FILL WHOLE;TOP\""},
    {"NEXT", "NEXT", "Saves this file and goes to the next one of the command line.", "", ""},
    {"PREVIOUS", "PREV[IOUS]", "Saves this file and goes to the one before it on the command line.", "", ""},
    {"FILES", "FILES\nSHOW FILES", "Names the file that is edited, where it is saved, and the other files.", "", ""},
    {"SET", "SET name value",
     "NUMBERS, NONUMBERS  line numbers on the screen\n"
     "SEARCH EXACT|GENERAL  capital and small letters differ, or not\n"
     "SEARCH BEGIN|END  matches only where a line begins, or ends\n"
     "SEARCH WORD|NOWORD  whole words only, or not\n"
     "OVERSTRIKE, INSERT  typed text replaces, or moves the old aside\n"
     "CASE NONE|LOWER|UPPER  letters as typed, or changed while typing\n"
     "WRAP, NOWRAP  breaks lines while typing, or not\n"
     "SCREEN n  the width for WRAP and FILL; 0 is the terminal's\n"
     "TAB n, NOTAB  the distance of the tab stops (8)\n"
     "LINES n  rows of text on the screen; 0 is all of them\n"
     "CURSOR top bottom  the rows between which the cursor is kept\n"
     "TRUNCATE, NOTRUNCATE  cuts long lines, or scrolls sideways\n"
     "KEYPAD KPE|PC|EDITING|NOKEYPAD  the kind of keypad there is\n"
     "NUMLOCK GOLD|NONE  Num Lock is GOLD, where the terminal reports it\n"
     "REPEAT, AUTOREPEAT  digits after GOLD count; both must be on\n"
     "ENTITY WORD \"chars\"  the characters between words\n"
     "WORD DELIMITER|NODELIMITER  they count, or only blanks do\n"
     "CLIPBOARD, NOCLIPBOARD  CUT and APPEND reach the clipboard, or not\n"
     "RMS FIXED n|VARIABLE  writes records of n bytes, or lines\n"
     "VERSIONING ON|OFF  each save makes a new version, or not\n"
     "SUMMARY, FNF, QUIET, VERIFY, and NO in front  what kpe says\n"
     "MODE CHANGE|LINE  CHANGE goes to the screen\n"
     "PROMPT \"text\", TEXT END \"text\", TEXT FORMFEED \"text\"  what is shown\n"
     "TERMINAL type  the type of the terminal\n"
     "COMMAND file  runs a file of commands\n"
     "HELP file  shows this file for HELP",
     "", "SET SEARCH GENERAL", false, "Line numbers"},
    {"SHOW", "SHOW name",
     "Shows a setting, or what there is of BUFFERS, FILES, KEYS, MACROS, and the VERSION.", "", "SHOW BUFFERS"},
    {"HELP", "H[ELP] [topic]", "Shows what kpe can do, or more of one command or topic.", "", "HELP SUBSTITUTE"},
    {"EXIT", "EX[IT]", "Saves the text of MAIN under the name of the file, and leaves.", "", ""},
    {"QUIT", "Q[UIT]", "Leaves without saving.", "", ""},
};
// clang-format on

// Whether the table has a row that HELP shows for the verb: its own, or SET and SHOW for those of settings.
constexpr bool kpe_is_explained(std::string_view verb) {
    for (const std::string_view family : {"SET-", "SHOW-"}) {
        if (verb.starts_with(family)) return true;
    }
    for (const VerbHelp& row : KPE_VERB_HELP) {
        if (row.verb == verb) return true;
    }
    return false;
}
