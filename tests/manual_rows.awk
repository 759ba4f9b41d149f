# Compares the rows of the program's tables with the manual: each row has its place there, and what the manual lists is a
# row. Reads the sources, then commands.md, keypad.md, kpe.1 and kpe-editor.md. Prints what does not fit.

# Keeps what the pattern finds in the text, without the signs around it, in rows or else in manual.
function note(is_row, kind, pattern, text,    found) {
    for (; match(text, pattern); text = substr(text, RSTART + RLENGTH)) {
        found = substr(text, RSTART, RLENGTH)
        gsub(/^[{"` ]+|[,;"` ]+$/, "", found)
        if (kind == "qualifier") sub(/^\//, "", found)
        if (is_row) {
            rows[kind, found] = 1
            counts[kind]++
        } else {
            manual[kind, found] = 1
        }
    }
}

# The phrases that the form of a command stands for: "F[IND] text" for F and FIND, up to the first argument.
function expand(form,    before, inside, behind, n, choices, i) {
    sub(/ *[^ ]*[a-z="\/;.0-9].*/, "", form)
    if (!match(form, /\[[A-Z|]+\]/) && !match(form, /[A-Z]+\|[A-Z|]+/)) {
        gsub(/ +/, " ", form)
        sub(/ $/, "", form)
        if (form != "") manual["phrase", form] = 1
        return
    }
    before = substr(form, 1, RSTART - 1)
    inside = substr(form, RSTART, RLENGTH)
    behind = substr(form, RSTART + RLENGTH)
    if (gsub(/[][]/, "", inside)) expand(before behind)
    n = split(inside, choices, "|")
    for (i = 1; i <= n; i++) expand(before choices[i] behind)
}

# Whether the manual has the phrase with arguments behind it.
function is_begun(phrase,    key) {
    for (key in manual) if (index(key " ", "phrase" SUBSEP phrase " ") == 1) return 1
    return 0
}

# Whether a phrase of the manual is one of a prefix and arguments, or the name of a verb.
function is_command(phrase,    verb) {
    verb = phrase
    gsub(/ /, "-", verb)
    if (("verb", verb) in rows) return 1
    do if (("prefix", phrase) in rows) return 1
    while (sub(/ [^ ]*$/, "", phrase))
    return 0
}

function complain(where, key) {
    sub(SUBSEP, " ", key)
    print where ": " key
    bad = 1
}

FILENAME ~ /cpp$/ && / = \{$/ { table = $0 }
FILENAME ~ /cpp$/ && /^ *};/ { table = "" }
table ~ / SPELLINGS/ { note(1, "phrase", "[{]\"[^\"]+\", ", $0) }
table ~ /PREFIXES/ { note(1, "prefix", "[{]\"[^\"]+\", ", $0) }
table ~ / QUALIFIERS/ { note(1, "qualifier", "[{]\"[^\"]+\"", $0) }
table ~ / ROWS/ && FILENAME ~ /dispatch/ { note(1, "verb", "[{]\"[^\"]+\"", $0) }
table ~ / WORDS/ && split($0, strings, "\"") > 8 {
    split(strings[6] "|" strings[8], choices, "|")
    for (i in choices) if (choices[i] != "") rows["phrase", "SET " strings[2] " " choices[i]] = 1
}
table ~ /FlagForm|ValueForm/ { note(1, "option", "[{]\"[^\"]+\"", $0) }
table ~ / Flag FLAGS/ { note(1, "option of kpe-editor", "[{]\"[^\"]+\"", $0) }
FILENAME ~ /nokeypad/ && /^ *\{\{"/ { note(1, "word", "\"[A-Z]+\"", $0) }
FILENAME ~ /cpp$/ && /getenv\(|env_|is_set_and_not_zero\(|RT_CONFIG|LC_ALL/ {
    gsub(/"_/, "\"KPE_")
    note(1, "variable", "\"[A-Z_]+[A-Z]\"", $0)
}
FILENAME ~ /line_editor.cpp/ && /&LineEditor::/ {
    gsub(/kpe_ctrl\('/, "Ctrl/")
    gsub(/KPE_ALT \+ '/, "Alt/")
    note(1, "key at the prompt", "(CTRL|ALT)/[A-Z]", toupper($0))
}

FILENAME ~ /commands.md$/ && /^(###|[^ ])/ { in_forms = /^###/ }
FILENAME ~ /commands.md$/ && in_forms && /^    / { expand(substr($0, 5)) }
FILENAME ~ /commands.md$/ && /^\| `\// { note(0, "qualifier", "`/[A-Z]+", $0) }
FILENAME ~ /commands.md$/ && /^## / { at_prompt = /at the prompt/ }
at_prompt && split($0, cells, "|") > 3 { note(0, "key at the prompt", "(CTRL|ALT)/[A-Z][,; ]", toupper(cells[2])) }
FILENAME ~ /keypad.md$/ && /^## / { in_words = /as words/ }
FILENAME ~ /keypad.md$/ && in_words && split($0, cells, "|") > 3 { note(0, "word", "`[A-Z]+", cells[2]) }
FILENAME ~ /kpe.1$/ && /^\.SH/ { section = $2 }
FILENAME ~ /kpe.1$/ && above == ".TP" {
    gsub(/\\f.|^\.[A-Z]+/, "")
    gsub(/\\~|,/, " ")
    gsub(/\\-/, "-")
    if (section == "OPTIONS") note(0, "option", " [-/][^ ]+", $0)
    if (section == "ENVIRONMENT") note(0, "variable", " [A-Z_]+", $0)
}
FILENAME ~ /kpe-editor.md$/ && /^\| `/ { note(0, "option of kpe-editor", "`-[^` ]+", $0) }
{ above = $0 }

END {
    for (key in rows) {
        split(key, parts, SUBSEP)
        known = parts[1] == "verb" || (parts[1] == "prefix" ? is_begun(parts[2]) : key in manual)
        if (!known) complain("not in the manual", key)
    }
    rows["option", "-command"] = rows["phrase", "SET"] = rows["phrase", "SHOW"] = 1  # in no table
    rows["option of kpe-editor", "--"] = rows["option of kpe-editor", "-"] = rows["key at the prompt", "CTRL/C"] = 1
    for (key in manual) {
        split(key, parts, SUBSEP)
        if (!(key in rows || parts[1] == "phrase" && is_command(parts[2]))) complain("not in the program", key)
    }
    n = split("phrase,prefix,qualifier,verb,word,option,option of kpe-editor,variable,key at the prompt", kinds, ",")
    for (i = 1; i <= n; i++) if (counts[kinds[i]] < 4) complain("the table was not found", kinds[i])
    exit bad
}
