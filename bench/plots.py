#!/usr/bin/env python3
"""bench/plots.py FILE: puts the table and the plots of a large benchmark run into docs/performance.md and docs/plots/.
FILE is what the run wrote to BENCH_OUT. The prose of the page stays as it is."""
import csv
import math
import sys
from dataclasses import dataclass
from pathlib import Path

DOCS = Path(__file__).resolve().parent.parent / "docs"
COLOURS = {"kpe": "#c0392b", "vim": "#1f6fb2", "ed": "#7d5ba6", "ne": "#2e8b57", "nano": "#b8860b", "sed": "#555555",
           "floor": "#999999"}
SECTIONS = ["load", "find", "edit", "language", "screen"]
COLD = ", cold"
TABLE_SIZES = {"1 MB", "115 MB", "1.15 GB", "5 KB", "10 MB", "100 MB"}


@dataclass
class Plot:
    file: str
    row: str        # of the benchmark
    title: str
    tools: list     # in the order of the legend; "kpe, cold" stands for kpe's runs after a pause


PLOTS = [
    Plot("load", "start, load, quit", "Start and load", ["kpe", "kpe, cold", "vim", "ed", "floor"]),
    Plot("first-screen", "first screen", "First screen", ["kpe", "kpe, cold", "vim", "ne", "nano"]),
    Plot("key", "typed key", "A typed key in the middle of the file, median", ["kpe", "vim", "ne", "nano"]),
    Plot("page", "page down", "A page down in the middle of the file, median", ["kpe", "vim", "ne", "nano"]),
    Plot("undo", "undo of a typed key", "Undo of a typed key, median", ["kpe", "vim", "ne", "nano"]),
    Plot("replace", "replace a word everywhere, save", "Replace a word in every line, save",
         ["kpe", "kpe, cold", "vim", "ed", "sed", "floor"]),
    Plot("save", "change a line, save", "Load, change a line, save",
         ["kpe", "kpe, cold", "vim", "ed", "sed", "floor"]),
    Plot("screen-save", "save", "Save from screen mode", ["kpe", "kpe, cold", "vim", "ne", "nano"]),
]


def number(cell):
    """None for an empty cell and for a tool that was stopped."""
    return float(cell.rstrip("~")) if cell and cell[0] != ">" else None


# --- Plots: two panels side by side with logarithmic axes ---

PANEL_WIDTH, PANEL_HEIGHT, LEFT, TOP, BETWEEN = 350, 280, 62, 58, 128


class Panel:
    def __init__(self, x, title, unit_of, lines):
        self.x, self.title, self.unit_of = x, title, unit_of
        self.lines = lines  # tool: [(megabytes, value)]
        values = [value for points in lines.values() for _, value in points]
        self.low = math.floor(math.log10(min(values)))
        self.high = max(math.ceil(math.log10(max(values))), self.low + 2)

    def at(self, megabytes, value):
        across = math.log10(megabytes) / math.log10(2000)
        up = (math.log10(value) - self.low) / (self.high - self.low)
        return self.x + across * PANEL_WIDTH, TOP + (1 - up) * PANEL_HEIGHT

    def draw(self):
        yield f'<text class="h" x="{self.x}" y="{TOP - 12}">{self.title}</text>'
        for exponent in range(self.low, self.high + 1):
            y = self.at(1, 10.0**exponent)[1]
            yield f'<path class="g" d="M{self.x} {y:.1f}h{PANEL_WIDTH}"/>'
            yield f'<text x="{self.x - 7}" y="{y + 4:.1f}" text-anchor="end">{self.unit_of(10.0**exponent)}</text>'
        for megabytes in (1, 4, 16, 64, 256, 1024):
            x = self.at(megabytes, 1)[0]
            label = "1 GB" if megabytes == 1024 else f"{megabytes} MB"
            yield f'<path class="g" d="M{x:.1f} {TOP}v{PANEL_HEIGHT}"/>'
            yield f'<text x="{x:.1f}" y="{TOP + PANEL_HEIGHT + 18}" text-anchor="middle">{label}</text>'
        ends = []
        for tool, points in reversed(self.lines.items()):
            places = [self.at(*point) for point in points]
            path = "M" + "L".join(f"{x:.1f} {y:.1f}" for x, y in places)
            name = tool.removesuffix(COLD)
            colour, wide = COLOURS[name], 2.6 if name == "kpe" else 1.5
            dashes = ' stroke-dasharray="5 4"' if tool == "floor" or tool != name else ""
            yield f'<path d="{path}" fill="none" stroke="{colour}" stroke-width="{wide}"{dashes}/>'
            for x, y in places:
                yield f'<circle cx="{x:.1f}" cy="{y:.1f}" r="{wide + 0.8:.1f}" fill="{colour}"/>'
            ends.append((places[-1][1], tool))
        yield from self.names(sorted(ends))

    def names(self, ends):
        """Names to the right of the panel at the height of their lines' ends, moved apart where they would touch."""
        heights = [end for end, _ in ends]
        for _ in range(200):
            for i in range(len(heights) - 1):
                touching = 16 - (heights[i + 1] - heights[i])
                if touching > 0:
                    heights[i] -= touching / 2
                    heights[i + 1] += touching / 2
        for height, (_, tool) in zip(heights, ends):
            bold = ' font-weight="bold"' if tool == "kpe" else ""
            colour = COLOURS[tool.removesuffix(COLD)]
            yield (f'<text x="{self.x + PANEL_WIDTH + 8}" y="{height + 4:.1f}" fill="{colour}"{bold}>'
                   f'{self.shown(tool)}</text>')

    def shown(self, tool):
        return self.floor if tool == "floor" else tool


def time_of(ms):
    return f"{ms / 1000:g} s" if ms >= 1000 else f"{ms:g} ms" if ms >= 1 else f"{ms * 1000:g} us"


def memory_of(mb):
    return f"{mb / 1000:g} GB" if mb >= 1000 else f"{mb:g} MB"


def draw(plot, table):
    by_size = sorted(table, key=lambda row: int(row["bytes"]))
    rows = [row for row in by_size if row["row"] == plot.row]
    cold = [row for row in by_size if row["row"] == plot.row + COLD]
    panels = []
    for column, title, unit_of in [("{}", "Time", time_of), ("{}_mb", "Most memory used", memory_of)]:
        lines = {}
        for tool in plot.tools:
            name = tool.removesuffix(COLD)
            points = [(int(row["bytes"]) / 1e6, number(row.get(column.format(name), "")))
                      for row in (rows if tool == name else cold)]
            points = [point for point in points if point[1]]
            if points:
                lines[tool] = points
        panels.append(Panel(LEFT + len(panels) * (PANEL_WIDTH + BETWEEN), title, unit_of, lines))
        panels[-1].floor = rows[0]["floor_name"]
    width, height = LEFT + 2 * PANEL_WIDTH + BETWEEN + 66, TOP + PANEL_HEIGHT + 30
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
           'font-family="Helvetica, Arial, DejaVu Sans, sans-serif" font-size="13" fill="#333">',
           "<style>.h { font-weight: bold } .t { font-size: 16px; font-weight: bold } .g { stroke: #ddd; fill: none }",
           "</style>",
           '<rect width="100%" height="100%" fill="#fff"/>',
           f'<text class="t" x="{LEFT}" y="24">{plot.title}, by the size of the file</text>']
    for panel in panels:
        out += panel.draw()
    (DOCS / "plots" / f"{plot.file}.svg").write_text("\n".join(out + ["</svg>", ""]))


# --- The table ---

LINE_HEAD = ["", "kpe", "vim", "ed", "sed", "floor", "", "of the best", "of sed", "of the floor", "MB", ""]
SCREEN_HEAD = ["", "kpe", "vim", "ne", "nano", "of the best", "MB", ""]


def with_wanted(ratio, wanted):
    return f"{ratio} ({wanted})" if wanted else ratio


def label(row):
    cold = COLD if row["row"].endswith(COLD) else ""
    return f"{row['row'].removesuffix(COLD)}, {row['size']}{cold}"


def line_cells(row):
    best = row[f"{row['best']}_mb"] if row["best"] else ""
    times = [row[name] for name in ("kpe", "vim", "ed", "sed", "floor", "floor_name")]
    return [label(row), *times,
            with_wanted(row["of_best"], row["wanted"]), with_wanted(row["of_sed"], row["wanted_sed"]),
            with_wanted(row["of_floor"], row["wanted_floor"]),
            f"{float(row['kpe_mb']):.0f}" + (f" / {float(best):.0f}" if best else ""), row["verdict"]]


def screen_cells(row):
    def figure(tool):
        return row[tool] + (f" / {row['kpe_p99']}" if tool == "kpe" and row["kpe_p99"] else
                            f" / {row['best_p99']}" if tool == row["best"] and row["best_p99"] else "")
    return [label(row)] + [figure(tool) for tool in ("kpe", "vim", "ne", "nano")] + [
        with_wanted(row["of_best"], row["wanted"]), f"{float(row['kpe_mb']):.0f}", row["verdict"]]


def markdown(head, lines):
    yield "| " + " | ".join(head) + " |"
    yield "| --- |" + " ---: |" * (len(head) - 2) + " --- |"
    for line in lines:
        line = ["**MISSED**" if cell == "MISSED" else cell for cell in line]
        yield "| " + " | ".join(cell.replace("*a", "\\*a").replace("*b", "\\*b") for cell in line) + " |"


def tables(notes, table):
    names = list(dict.fromkeys(row["row"].removesuffix(COLD) for row in table))

    def place(row):
        return (SECTIONS.index(row["section"]), names.index(row["row"].removesuffix(COLD)), int(row["bytes"]),
                row["row"].endswith(COLD))

    table = sorted((row for row in table if row["size"] in TABLE_SIZES), key=place)
    missed = [f"*{label(row)}*" for row in table if row["verdict"] == "MISSED"]
    judged = sum(row["verdict"] != "" for row in table)
    yield from ["Measured " + "; ".join(notes) + ".", "",
                f"{judged - len(missed)} of {judged} rows with a wanted ratio reach it. Missed: "
                + ("; ".join(missed) if missed else "none") + ".", "", "### Line mode (milliseconds, medians)", ""]
    yield from markdown(LINE_HEAD, [line_cells(row) for row in table if row["section"] != "screen"])
    yield from ["", "### Screen mode (milliseconds, medians; of keys the median / the 99th percentile)", ""]
    yield from markdown(SCREEN_HEAD, [screen_cells(row) for row in table if row["section"] == "screen"])


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    lines = Path(sys.argv[1]).read_text().splitlines()
    notes = [line[2:] for line in lines if line.startswith("# ")]
    table = list(csv.DictReader((line for line in lines if not line.startswith("# ")), delimiter="\t",
                                quoting=csv.QUOTE_NONE))
    (DOCS / "plots").mkdir(exist_ok=True)
    for plot in PLOTS:
        draw(plot, table)
    page = DOCS / "performance.md"
    before, _, rest = page.read_text().partition("<!-- measured -->\n")
    _, _, after = rest.partition("<!-- end -->\n")
    page.write_text(before + "<!-- measured -->\n" + "\n".join(tables(notes, table)) + "\n<!-- end -->\n" + after)


if __name__ == "__main__":
    main()
