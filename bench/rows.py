"""The rows of the benchmark: what each editor is told to do, what bounds it from below, and which ratio is wanted."""
from dataclasses import dataclass, field

NEAR, NOWHERE = "needle-near-the-end", "needle-nowhere"


@dataclass
class Wanted:
    """The largest ratios to the best of the other editors, to sed and to the floor; 0: none is wanted."""
    best: float = 0
    sed: float = 0
    floor: float = 0


@dataclass
class Row:
    """Commands are lists of lines for standard input; none leaves the tool out. {log} is the generated log, {work} a
    copy of the row's file that the tool may change. A row whose kpe commands end in EXIT saves: the saved texts must be
    the same. In all others the numbered lines that the tools print must be the same."""
    section: str
    label: str
    kpe: list
    vim: list = field(default_factory=list)
    ed: list = field(default_factory=list)
    sed: str = ""
    floor: str = ""            # a command line; with floor_input it reads commands as the editors do
    floor_name: str = ""
    floor_input: list = field(default_factory=list)
    wanted: Wanted = field(default_factory=Wanted)
    cold: Wanted = field(default_factory=Wanted)  # the same of runs that begin after a pause
    file: str = "{log}"
    size: str = ""             # how the size of another file is shown
    start: str = "{kpe} {work}"  # how kpe is started
    sizes: str = "M"           # of S, M, L (1 MB, 115 MB, 1.15 GB) and G (growth: those between)
    limit: int = 60            # seconds after which a tool is stopped
    compare: bool = True       # whether the printed lines are compared


@dataclass
class Measure:
    """One of screen_bench: its name, the editors to be compared with, and the largest ratio to the best of them."""
    name: str
    beside: str
    wanted: Wanted = field(default_factory=Wanted)
    floor_name: str = ""
    cold: bool = False  # whether it is measured in sessions that begin after a pause as well


def screen(size):
    """What is measured on a screen; size is S, M, L or G."""
    key = Wanted(1.0) if size != "G" else Wanted()
    page, far = (Wanted(1.2), Wanted(0.6)) if size != "G" else (Wanted(), Wanted())
    return [
        Measure("first screen", "vim", Wanted({"S": 0.25, "M": 0.20, "L": 0.15}.get(size, 0)), cold=True),
        Measure("typed key", "vim ne", key, "pty echo"),
        Measure("typed key beyond the width", "vim ne nano"),
        Measure("Return", "vim ne", key),
        Measure("Delete", "vim ne", key),
        Measure("undo of a typed key", "vim ne nano"),
        Measure("page down", "vim ne nano", page),
        Measure("far search", "vim ne nano", far, cold=True),
        Measure("save", "vim ne nano", cold=True),
        Measure("bytes sent for a typed key", "vim ne nano"),
        Measure("typed key on a line of 1 MB", "", Wanted(floor=10), "60 bytes"),
    ]


def rows(size, n):
    """The rows for a log of n lines; size is S, M, L or G."""
    half, moved = n // 2, min(100000, n // 10)
    spread = [1 + i * 97 % n for i in range(min(10000, n))]  # all different, so that every edit finds its word
    short = [f"{1 + i % 8000}" for i in range(100000)] + ["QUIT"]
    change = [f"S/status/STATUS/ {i} /NOTYPE" for i in spread]
    change_ex = [f"{i}s/status/STATUS/g" for i in spread]
    wide = min(1000, n // 870)
    judged = size in "ML"  # of the other sizes only the start is

    def want(best, at_most=None, sed=0.0):
        """The ratio to the best editor at 115 MB and, if it differs, at 1.15 GB."""
        if not judged:
            return Wanted()
        return Wanted(at_most if at_most and size == "L" else best, sed)

    load = {"S": (Wanted(0.30), Wanted(0.40)), "M": (Wanted(0.22, floor=1.6), Wanted(0.35)),
            "L": (Wanted(0.15), Wanted(0.30))}.get(size, (Wanted(), Wanted()))

    def saving(label, kpe, vim, ed, sed="", **more):
        return Row("edit", label, kpe + ["EXIT"], vim and vim + ["wq"], ed and ed + ["w", "q"], sed,
                   "cat {file}", "cat", **more)

    def finding(label, word, kpe, vim, ed, grep, **more):  # ed ends at a search that fails, but not at a "g"
        return Row("find", label, kpe + [f"FIND {word}", f"TYPE {n}", "QUIT"],
                   vim + ["1", f"/{word}/nu", "$nu", "q!"], [ed, "$n", "q"],
                   floor=f"{grep} {word} {{file}}", floor_name=grep, **more)

    general = ["SET SEARCH GENERAL"]
    made = [
        Row("load", "start, load, quit", ["1", "QUIT"], ["1nu", "q!"], ["1n", "q"], "", "wc -l {file}", "wc -l",
            wanted=load[0], cold=load[1], sizes="S M L G"),
        Row("load", "load, show the last line", [f"{n}", "QUIT"], ["$nu", "q!"], ["$n", "q"], "", "wc -l {file}",
            "wc -l", wanted=want(0.30), sizes="S M L"),
        Row("load", "INCLUDE into an empty text", ["INCLUDE {log}", f"TYPE {n}", "QUIT"], ["0r {log}", f"{n}nu", "q!"],
            ["0r {log}", f"{n}n", "Q"], floor="{kpe} {log}", floor_name="kpe load", floor_input=["QUIT"],
            file="empty.txt", wanted=Wanted(floor=1.5)),
        finding("find near the end", NEAR, [], [], f"/{NEAR}/n", "grep -c", wanted=want(0.12, 0.10),
                sizes="M L"),
        finding("find what is not there", NOWHERE, [], [], f"g/{NOWHERE}/n", "grep -c", wanted=want(0.12, 0.10),
                sizes="M L"),
        finding("find near the end, ignoring case", NEAR.upper(), general, ["set ic"], f"/{NEAR}/In", "grep -ci",
                wanted=want(0.12, 0.10), sizes="M L"),
        Row("find", "a*a*a*a*a*a*b in a line of a", ["FIND a*a*a*a*a*a*b", "TYPE 1", "QUIT"],
            ["1", "/a.*a.*a.*a.*a.*a.*b/nu", "1nu", "q!"], ["g/a.*a.*a.*a.*a.*a.*b/n", "1n", "q"],
            floor="grep -c a.*a.*a.*a.*a.*a.*b {file}", floor_name="grep -c", file="aaaa.txt", size="5 KB",
            wanted=want(0.45), limit=10),
        Row("find", "not there, ignoring case, lines of 100 KB", general + [f"FIND {NOWHERE}", "QUIT"],
            ["set ic", "1", f"/{NOWHERE}/nu", "q!"], [f"g/{NOWHERE}/In", "q"],
            floor=f"grep -ci {NOWHERE} {{file}}", floor_name="grep -ci", file="wide.txt", size=f"{wide // 10} MB",
            wanted=want(0.12), compare=False),
        saving("change a line, save", [f"S/status/STATUS/ {half} /NOTYPE"],
               [f"{half}s/status/STATUS/g"], [f"{half}s/status/STATUS/g"], f"{half}s/status/STATUS/g",
               wanted=want(0.25), sizes="S M L G"),
        saving("replace a word everywhere, save", ["S/status/result/ WHOLE /NOTYPE"], ["%s/status/result/g"],
               [",s/status/result/g"], "s/status/result/g", wanted=want(0.07, 0.06, 0.35), sizes="S M L G",
               limit=60 if size == "L" else 12),
        saving("delete the second half, save", [f"DELETE {half + 1}:{n}"], [f"{half + 1},$d"], [f"{half + 1},$d"],
               f"{half + 1},$d", wanted=want(0.10), sizes="M L"),
        saving(f"move {moved:,} lines, save", [f"MOVE {2 * moved + 1}:{3 * moved} TO =MAIN"],
               [f"{2 * moved + 1},{3 * moved}m$"], [f"{2 * moved + 1},{3 * moved}m$"], wanted=want(0.18), sizes="M L"),
        saving(f"{len(spread):,} edits by number, save", change, change_ex, change_ex, wanted=want(0.22), limit=20),
        saving("100 edits, 100 undos, save", change[:100] + ["UNDO"] * 100, change_ex[:100] + ["undo"] * 100, [],
               wanted=want(0.25)),
        saving("1,000,000 replacements in one line, save", ["S/ef/XYZ/ WHOLE /NOTYPE"], ["%s/ef/XYZ/g"],
               [",s/ef/XYZ/g"], "s/ef/XYZ/g", file="line.txt", size="10 MB", wanted=Wanted(sed=0.3), limit=10),
        Row("language", "TYPE WHOLE", ["TYPE WHOLE", "QUIT"], ["%nu", "q!"], [",n", "q"], "", "cat -n {file}",
            "cat -n"),
        Row("language", "10,000 lines typed by number", [f"TYPE {i}" for i in spread] + ["QUIT"],
            [f"{i}nu" for i in spread] + ["q!"], [f"{i}n" for i in spread] + ["q"]),
        Row("language", "100,000 commands through a pipe", short,
            start="sh -c 'rm -f j; cat | {kpe} {work} -journal=j'",
            floor="sh -c 'cat | {kpe} {work} -journal=/nowhere/j'", floor_name="no journal", floor_input=short,
            wanted=Wanted(floor=2), sizes="S", compare=False),
    ] + [
        Row("language", f"{name} WHOLE", [f"{command} /NOTYPE", "QUIT"], floor="{kpe} {file}", floor_name="kpe load",
            floor_input=["QUIT"], compare=False)
        for name, command in [("FILL", "FILL WHOLE"), ("CHGU", "CHGU WHOLE"), ("XLATE", "XLATE e E WHOLE"),
                              ("TAB ADJUST", "TAB ADJUST WHOLE"), ("RESEQUENCE", "RESEQUENCE")]
    ]
    if size == "L":  # a quarter of a minute each, and vim is the faster one
        for row in made:
            row.ed = row.ed if row.label.startswith(("start", "delete", "change", "replace")) else []
    return made
