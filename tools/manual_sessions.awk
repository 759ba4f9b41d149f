# Writes the examples of a page of the manual as sessions for kpe_play.
#
# ```file NAME       a file that is there in each example below, or in each that follows in the session
# ```session         a session in line mode as it looks on a terminal. "$ kpe ARGUMENTS" may be its first line; without
#                    it the session is on the file that was named last
# ```screen          "Keys:" and what is pressed, then the rows from the first one on; "^" below a row is the cursor,
#                    and behind a row of dashes are the last two rows ("..." stands for the rest of one)
# ```shell           "$ COMMAND" and what it prints
#
# Each example has a directory of its own. With -v follow=1 they all share one, and an example that does not begin
# with "$ kpe" goes on in the session before it. With -v alt=1 keys of the keypad are pressed as Alt and a letter.

function fail(what) {
    print FILENAME ":" FNR ": " what >"/dev/stderr"
    failed = 1
    exit 1
}

# As the files of sessions want it.
function escaped(text,    i, c, all) {
    for (i = 1; i <= length(text); i++) {
        c = substr(text, i, 1)
        all = all (c == "\\" || c == "|" ? "\\" c : c)
    }
    text = all
    if (text ~ /^ /) text = "\\s" substr(text, 2)
    return text == "" ? "\\e" : text
}

function quoted(word) {
    gsub(/'/, "'\\''", word)
    return " '" word "'"
}

function begin_case(    i, n, lines, j) {
    print "== " FILENAME " line " FNR
    for (i = 1; i <= file_count; i++) {
        print "file " names[i] ":"
        n = split(contents[i], lines, "\n")
        for (j = 1; j < n; j++) print "        " escaped(lines[j])
    }
    prompt = "*"
    open = runs = typed_any = 0
    begun = 1
}

# A program on a terminal; arguments holds the whole command.
function begin_session(arguments) {
    if (!begun || !follow) begin_case()
    else if (typed_any) {
        print "again:"
        runs = 0
    }
    if (arguments ~ /^kpe-/) print "start: exec \"${KPE%/*}/\"" arguments
    else {
        sub(/^kpe ?/, "", arguments)
        gsub(/'/, "", arguments)
        print "args: " arguments
    }
    prompt = "*"
    open = typed_any = 1
}

function need_session() {
    if (!follow || !begun || !open) {
        if (follow && begun) fail("no session goes on here")
        begin_session("kpe " names[file_count])
        return 1
    }
    return 0
}

function ends_session(text) {
    return toupper(text) ~ /^(EX|EXIT|Q|QUIT)$/
}

function type_line(text) {
    print "type:"
    print "        " escaped(text)
    last_typed = text
    if (match(text, /^SET PROMPT "/)) prompt = substr(text, 13, length(text) - 13)
}

function play_session(    i, text, first, wanted, fresh, at) {
    first = 1
    if (block[1] ~ /^\$ kpe/) {
        begin_session(substr(block[1], 3))
        first = 2
        fresh = 1
    } else need_session()
    if (!runs) print "terminal: " (follow ? 24 : 60) "x80"
    runs = 1
    last_typed = ""
    for (i = first; i <= count; i++) {
        text = block[i]
        wanted = wanted (follow ? (i > first || !fresh ? "\\n" : "") : "\n        ") escaped(text)
        at = index(text, "]: ")
        if (index(text, prompt) == 1 && (i < count || text != prompt)) type_line(substr(text, length(prompt) + 1))
        else if (text ~ /^_/ || last_typed ~ /^(I|INSERT)$/) type_line(text ~ /^_/ ? substr(text, 2) : text)
        else if (at && text ~ /^Substitute\? /) type_line(substr(text, at + 3))
    }
    if (fresh && last_typed == "") print "send: \"\""  # or it would begin on the screen
    on_screen = last_typed ~ /^(C|CHANGE)$/
    if (on_screen) return
    open = !ends_session(last_typed)
    at = open && block[count] != prompt ? substr(prompt, 1, 1) : ""  # the next one
    if (follow) print "has: " wanted (open ? "\\n" : "") at
    else print "row " (fresh ? 0 : BANNER) ":" wanted "\n        " escaped(at)
    if (!open) print "status: 0"
}

function key_for_player(name) {
    if (alt && name in LETTERS) name = "Alt/" LETTERS[name]
    if (name in NAMES) return NAMES[name]
    if (name ~ /^Ctrl\/[A-Z]$/) return "^" substr(name, 6)
    if (name ~ /^Alt\/.$/) return "\"\\x1b" escaped(substr(name, 5)) "\""
    if (name ~ /^(GOLD|PF[234]|KP[-0-9,.+\/*]|".*")$/) return name
    fail("unknown key " name)
}

# Returns the status if they end the session, or "".
function press(keys,    all, count_of, rest) {
    all = ""
    for (rest = keys; match(rest, /^ *("[^"]*"|[^ ]+)/); rest = substr(rest, RSTART + RLENGTH)) {
        name = substr(rest, RSTART, RLENGTH)
        sub(/^ */, "", name)
        count_of = ""
        if (match(name, /^[0-9]+\*/)) {
            count_of = substr(name, 1, RLENGTH)
            name = substr(name, RLENGTH + 1)
            rest = " " rest
        }
        all = all " " count_of key_for_player(name)
        match(rest, /^ *("[^"]*"|[^ ]+)/)
    }
    print "keys:" all
    if (keys == "Ctrl/C" && !on_screen) return "INT"
    if (keys ~ /Ctrl\/Z$/) on_screen = 0
    return keys ~ /GOLD "?[qQ]"?$|Alt\/[xq]$|"(EXIT|QUIT)" Return$/ ? "0" : ""
}

function play_screen(    i, row, ended) {
    if (block[1] ~ /^\$ kpe/) begin_session(substr(block[1], 3))
    else need_session()
    if (!runs) on_screen = block[1] !~ /kpe-keys/
    if (!runs && block[1] ~ /^\$ kpe-/) print "send: \"\""
    runs = 1
    row = 0
    for (i = block[1] ~ /^\$/ ? 2 : 1; i <= count; i++) {
        if (block[i] ~ /^Keys: /) {
            ended = press(substr(block[i], 7))
            if (ended == "INT" && block[1] ~ /kpe-keys/) ended = "0"
            row = 0
        } else if (block[i] ~ /^ *\^$/) {
            print "cursor: " row - 1 "," length(block[i]) - 1
        } else if (block[i] ~ /^-----/) {
            row = 22
        } else {
            if (block[i] ~ /\.\.\.$/) print "has " row ": " escaped(substr(block[i], 1, length(block[i]) - 3))
            else print "row " row ":\n        " escaped(block[i])
            row++
        }
    }
    open = ended == ""
    if (!open) print "status: " ended
}

function play_shell(    i, wanted, command) {
    if (!begun || !follow) begin_case()
    for (i = 1; i <= count; i++) {
        if (block[i] !~ /^\$ /) fail("no command")
        command = substr(block[i], 3)
        wanted = ""
        while (i < count && block[i + 1] !~ /^\$ [^E]/) wanted = wanted quoted(block[++i])
        print "shell:"
        print "        PATH=\"${KPE%/*}:$PATH\""
        print "        { " command "; } >../got 2>&1 || true"
        print "        " (wanted == "" ? ":" : "printf '%s\\n'" wanted) " | diff - ../got"
    }
}

BEGIN {
    BANNER = 2  # rows in front of the first prompt
    split("Return RET Tab TAB Backspace BS Delete DEL Insert INS Home HOME End END PgUp PGUP PgDn PGDN Up UP " \
          "Down DOWN Left LEFT Right RIGHT KPenter ENTER F1 GOLD F2 PF2 F3 PF3 F4 PF4 PF1 GOLD Esc ESC", words, " ")
    for (i = 1; i in words; i += 2) NAMES[words[i]] = words[i + 1]
    split("KP7 u KP8 i KP9 o KP- p KP4 j KP5 k KP6 l KP, ; KP1 m KP2 , KP3 . KPenter h KP0 n KP. /", words, " ")
    for (i = 1; i <= 28; i += 2) LETTERS[words[i]] = words[i + 1]
}

/^```/ {
    if (kind == "") {
        kind = substr($1, 4)
        name = $2
        count = 0
    } else {
        if (kind == "file") {
            names[++file_count] = name
            contents[file_count] = ""
            for (i = 1; i <= count; i++) contents[file_count] = contents[file_count] block[i] "\n"
        }
        if (kind == "session") play_session()
        if (kind == "screen") play_screen()
        if (kind == "shell") play_shell()
        kind = ""
    }
    next
}
kind != "" { block[++count] = $0 }
END {
    if (kind != "" && !failed) print "the last example has no end" >"/dev/stderr"
    exit failed || kind != ""
}
