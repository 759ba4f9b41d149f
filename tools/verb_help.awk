# Writes what HELP tells of each command, from the entries of docs/manual/commands.md: rows of KPE_VERB_HELP in
# editor/verb_help.h. An entry is a heading of the third level with the forms of the command indented below it. HELP
# takes from it these forms, the first paragraph, whether there is a list item "Range:", the list items that begin with
# a qualifier, and of the example the first command of this name.

function quoted(text,    parts, n, i) {
    n = split(text, parts, /\\/)  # gsub would need a number of backslashes that differs between awks
    text = parts[1]
    for (i = 2; i <= n; i++) text = text "\\" "\\" parts[i]
    gsub(/"/, "\\\"", text)
    gsub(/\n/, "\\n", text)
    return "\"" text "\""
}

function plain(text) {
    gsub(/`/, "", text)
    return text
}

function add(list, text) {
    return list == "" ? text : list "\n" text
}

# Of a setting the forms and what it does are a line of what HELP SET tells.
function note_setting(    n, lines, i, names) {
    n = split(syntax, lines, "\n")
    for (i = 1; i <= n; i++)
        if (sub(/^SET /, "", lines[i])) names = names (names == "" ? "" : ", ") lines[i]
    settings = add(settings, names "  " text)
}

# Of what is said of a qualifier the first sentence.
function end_item() {
    match(item, /^\/[^ ]*(, \/[^ ]*)*/)
    item = substr(item, 1, RLENGTH) " " substr(item, RLENGTH + 1)
    qualifiers = add(qualifiers, match(item, /\. /) ? substr(item, 1, RSTART) : item)
    item = ""
}

function write_entry() {
    if (syntax == "") return
    if (verb == "SET") text = text "\n@"
    else if (verb ~ /^SET-/) note_setting()
    entry = "    {" quoted(verb) ", " quoted(syntax) ", " quoted(text) ", " quoted(qualifiers) ", " quoted(example) \
        ", " (range ? "true" : "false") "},"
    entries[++count] = entry
}

BEGIN {
    VERBS["A line number"] = "GOTO-LINE"
    VERBS["COPY TO CLIPBOARD"] = "COPY-CLIPBOARD"
    VERBS["SHOW BUFFERS"] = "SHOW-BUFFER"
    VERBS["SET ENTITY WORD"] = "SET-ENTITY"
    VERBS["SET WORD DELIMITER"] = "SET-WORD-DELIM"
}
/^```/ { fenced = !fenced; next }
fenced {
    if (/^\?/ && just_found) example = ""  # one that is refused is none
    just_found = example == "" && index($0, "*" name " ") + index($0, "*" first_form "/") == 1
    if (just_found) example = substr($0, 2)
    next
}
/^##? / { write_entry(); syntax = "" }
/^### / {
    write_entry()
    name = substr($0, 5)
    verb = name
    gsub(/ /, "-", verb)
    if (name in VERBS) verb = VERBS[name]
    syntax = text = qualifiers = example = first_form = ""
    range = 0
    part = "syntax"
    next
}
part == "syntax" && /^    / {
    syntax = add(syntax, substr($0, 5))
    if (first_form == "") first_form = substr($1, 1, match($1 "/", "/") - 1)
    next
}
part == "syntax" && NF { part = "text" }
part == "text" && !NF { part = "" }
part == "text" { text = text (text == "" ? "" : " ") plain($0) }
/^- Range:/ { range = 1 }
item != "" && !/^  / { end_item() }
/^- `\// { item = plain(substr($0, 3)) }
item != "" && /^  / { item = item " " plain(substr($0, 3)) }
END {
    write_entry()
    print "// Made from docs/manual/commands.md by tools/verb_help.awk."
    for (i = 1; i <= count; i++) {
        at = index(entries[i], "@")
        if (entries[i] ~ /^    \{"SET",/)
            entries[i] = substr(entries[i], 1, at - 1) substr(quoted(settings), 2, length(quoted(settings)) - 2) \
                substr(entries[i], at + 1)
        print entries[i]
    }
}
