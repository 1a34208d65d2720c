#!/usr/bin/env python3
"""Prints what rast_bench measured: `summary` condenses the JSON output of a run into the results
file of a processor; `table` and `plot` make a Markdown page and a picture of the results files of
any number of processors. In both a results file's name stands for its processor."""
import argparse
import json
import statistics
from collections import defaultdict
from pathlib import Path

from builds import MEANING, commit, processor

LEVELS = ("baseline", "avx2", "avx512", "neon")
PEERS = ("opencv", "libyuv", "pixman", "engine")
COLORS = {"baseline": "#9aa5b1", "avx2": "#4c78a8", "avx512": "#e8873a", "neon": "#54a24b"}
# The figures of each size: speeds, times, and how many times as fast as the row of that name.
FIGURES = {
    "page": ("GB/s", "memcpy", "definition", *PEERS),
    "document": ("memcpy", "definition", *PEERS),
    "band": ("memcpy", "definition"),
    "tile": ("ns", "definition"),
}
DIGITS = {"GB/s": 1, "ns": 0, "memcpy": 2, "definition": 1} | dict.fromkeys(PEERS, 1)
HEADINGS = {"GB/s": "GB/s", "ns": "ns", "memcpy": "of memcpy", "definition": "× definition"}
DRAWN = {"page": "noise", "document": "document"}


class Run:
    """The times of a run."""

    def __init__(self, path):
        self.times = defaultdict(dict)  # (operation, row, size) -> repetition -> microseconds
        self.bytes = {}
        run = json.loads(path.read_text(encoding="utf-8"))
        self.date = run["context"]["date"][:10]
        # In the order the rows were registered, which interleaving shuffles.
        for part in sorted(run["benchmarks"], key=lambda part: part["family_index"]):
            if part["run_type"] == "iteration":
                key = tuple(part["name"].split("/")[:3])
                self.times[key][part["repetition_index"]] = part["real_time"]
                self.bytes[key] = part["bytes"]

    def figure(self, name, operation, level, size):
        """The median over the repetitions, rounded; none where nothing is there to compare with."""
        own = self.times[operation, level, size]
        if name == "GB/s":
            values = [self.bytes[operation, level, size] / time / 1e3 for time in own.values()]
        elif name == "ns":
            values = [time * 1e3 for time in own.values()]
        else:
            others = self.times.get((operation, name, size), {})
            values = [others[i] / own[i] for i in own if i in others]
        return round(statistics.median(values), DIGITS[name] or None) if values else None

    def rows(self):
        for operation in dict.fromkeys(key[0] for key in self.times):
            for level in LEVELS:
                for size in FIGURES:
                    if (operation, level, size) in self.times:
                        figures = {name: self.figure(name, operation, level, size)
                                   for name in FIGURES[size]}
                        yield {"operation": operation, "level": level, "size": size} | {
                            name: value for name, value in figures.items() if value is not None}


class Results:
    """A results file."""

    def __init__(self, path):
        self.name = path.stem
        content = json.loads(path.read_text(encoding="utf-8"))
        self.origin = f"{content['processor']}; commit {content['commit']}, {content['date']}"
        self.rows = {(row["operation"], row["level"], row["size"]): row for row in content["rows"]}

    def operations(self):
        return [operation for operation, _, _ in self.rows]

    def levels(self, operation):
        return [level for level in LEVELS
                if any((operation, level, size) in self.rows for size in FIGURES)]

    def ratio(self, operation, level, size):
        """The speed as a ratio to memcpy, if it was measured."""
        return self.rows.get((operation, level, size), {}).get("memcpy")

    def cells(self, operation, level):
        for size, names in FIGURES.items():
            row = self.rows.get((operation, level, size), {})
            for name in names:
                if name in HEADINGS:
                    yield f"{row[name]:.{DIGITS[name]}f}" if name in row else ""
            if PEERS[0] in names:
                yield ", ".join(f"{row[peer]:.1f} {peer}" for peer in PEERS if peer in row)


def operations(files):
    return list(dict.fromkeys(operation for file in files for operation in file.operations()))


def summary(run, origin):
    """The text of a results file, a line for each row."""
    head = [f' "{key}": {json.dumps(value, ensure_ascii=False)}' for key, value in origin.items()]
    rows = ",\n".join("  " + json.dumps(row) for row in run.rows())
    return "{\n" + ",\n".join(head) + ',\n "rows": [\n' + rows + "\n ]\n}\n"


def table(files):
    head, rule = ["operation", "processor", "level"], "|---|---|---"
    for size, names in FIGURES.items():
        columns = [HEADINGS[name] for name in names if name in HEADINGS]
        peers = PEERS[0] in names
        head += [f"{size}: {columns[0]}", *columns[1:], *(["× peer"] if peers else [])]
        rule += "|---:" * len(columns) + "|:---" * peers
    lines = ["# Operations", "", f"`bench/report.py table` prints this page. {MEANING}", ""]
    lines += [f"- {file.name}: {file.origin}" for file in files]
    lines += ["", "![Speed of every operation on a page as a ratio to memcpy](operations.svg)", ""]
    lines += ["| " + " | ".join(head) + " |", rule + "|"]
    for operation in operations(files):
        for file in files:
            for level in file.levels(operation):
                cells = [operation, file.name, level, *file.cells(operation, level)]
                lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines) + "\n"


def plot(files):
    """A panel of bars for each processor and kind of page, beside the names of the operations."""
    panels = [(file, size) for file in files for size in DRAWN
              if any(key[2] == size for key in file.rows)]
    ratios = [row["memcpy"] for file in files for row in file.rows.values() if "memcpy" in row]
    left, width, gap, bar = 130, 230, 20, 9
    scale = width / max([1, *ratios])
    levels = [level for level in LEVELS
              if any(key[1] == level for file in files for key in file.rows)]
    parts = []

    def text(x, y, content, attributes=""):
        parts.append(f'<text x="{x:.0f}" y="{y:.0f}"{attributes}>{content}</text>')

    for i, level in enumerate(levels):
        parts.append(f'<rect x="{left + i * 90}" y="10" width="12" height="12" '
                     f'fill="{COLORS[level]}"/>')
        text(left + i * 90 + 17, 20, level)
    for i, (file, size) in enumerate(panels):
        text(left + i * (width + gap), 44, f"{file.name}, {DRAWN[size]}", ' font-weight="bold"')
    y = 54
    for operation in operations(files):
        drawn = [level for level in levels if any(level in file.levels(operation) for file in files)]
        text(left - 8, y + bar * len(drawn) / 2 + 4, operation, ' text-anchor="end"')
        for level in drawn:
            for i, (file, size) in enumerate(panels):
                ratio = file.ratio(operation, level, size)
                if ratio:
                    parts.append(
                        f'<rect x="{left + i * (width + gap)}" y="{y}" width="{ratio * scale:.1f}" '
                        f'height="{bar - 1}" fill="{COLORS[level]}"><title>{operation}, {level}: '
                        f'{ratio:.2f} of memcpy</title></rect>')
            y += bar
        y += 8
    for i in range(len(panels)):
        x = left + i * (width + gap) + scale
        parts.append(f'<path d="M{x:.0f} 50V{y}" stroke="#c33" stroke-dasharray="4 3"/>')
        text(x, y + 14, "memcpy", ' text-anchor="middle" fill="#c33"')
    size = f"{left + len(panels) * (width + gap)} {y + 24}"
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {size}" '
            'font-family="sans-serif" font-size="11" role="img">'
            "<title>Speed of every operation on a page as a ratio to memcpy</title>"
            '<rect width="100%" height="100%" fill="#fff"/>\n' + "\n".join(parts) + "\n</svg>\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    commands = parser.add_subparsers(dest="command", required=True)
    options = commands.add_parser("summary", help="a results file")
    options.add_argument("run", type=Path)
    options.add_argument("--processor", help="default: this one")
    options.add_argument("--commit", help="that was measured; default: the one checked out")
    options.add_argument("--date", help="default: that of the run")
    for command in ("table", "plot"):
        options = commands.add_parser(command)
        options.add_argument("files", type=Path, nargs="+")
    chosen = parser.parse_args()
    if chosen.command == "summary":
        run = Run(chosen.run)
        origin = {
            "processor": chosen.processor or processor(),
            "commit": chosen.commit or commit(),
            "date": chosen.date or run.date,
        }
        print(summary(run, origin), end="")
    else:
        files = [Results(path) for path in chosen.files]
        print({"table": table, "plot": plot}[chosen.command](files), end="")


if __name__ == "__main__":
    main()
