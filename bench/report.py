#!/usr/bin/env python3
"""Prints the results of rast_bench (its JSON output) as a Markdown table and, with --plot, draws
them as bars against memcpy."""
import argparse
import json
import statistics
from collections import defaultdict

LEVELS = ("baseline", "avx2", "avx512", "neon")
PEERS = ("opencv", "libyuv", "pixman", "engine")
COLORS = {"baseline": "#9aa5b1", "avx2": "#4c78a8", "avx512": "#e8873a", "neon": "#54a24b"}


class Results:
    def __init__(self, path):
        self.times = defaultdict(dict)  # (operation, row, size) -> repetition -> microseconds
        self.bytes = {}
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        # In the order the rows were registered, which interleaving shuffles.
        for run in sorted(runs, key=lambda run: run["family_index"]):
            if run["run_type"] == "iteration":
                key = tuple(run["name"].split("/")[:3])
                self.times[key][run["repetition_index"]] = run["real_time"]
                self.bytes[key] = run["bytes"]
        self.operations = list(dict.fromkeys(key[0] for key in self.times))

    def levels(self, operation, size):
        return [level for level in LEVELS if (operation, level, size) in self.times]

    def peers(self, operation, size):
        return [peer for peer in PEERS if (operation, peer, size) in self.times]

    def speed(self, operation, level, size):
        """Gigabytes moved per second."""
        key = (operation, level, size)
        return self.bytes[key] / statistics.median(self.times[key].values()) / 1e3

    def microseconds(self, operation, level, size):
        return statistics.median(self.times[operation, level, size].values())

    def ratio(self, operation, level, other, size):
        """How many times as fast as another row: the median over repetitions."""
        own = self.times[operation, level, size]
        others = self.times[operation, other, size]
        return statistics.median(others[i] / own[i] for i in own)


def print_table(results):
    print("| operation | level | page: GB/s | of memcpy | × definition | × peer "
          "| band: of memcpy | × definition | tile: ns | × definition |")
    print("|---|---|---:|---:|---:|:---|---:|---:|---:|---:|")
    for operation in results.operations:
        for level in results.levels(operation, "page"):
            peers = ", ".join(f"{results.ratio(operation, level, peer, 'page'):.1f} {peer}"
                              for peer in results.peers(operation, "page"))
            cells = [
                f"{results.speed(operation, level, 'page'):.1f}",
                f"{results.ratio(operation, level, 'memcpy', 'page'):.2f}",
                f"{results.ratio(operation, level, 'definition', 'page'):.1f}",
                peers,
                f"{results.ratio(operation, level, 'memcpy', 'band'):.2f}",
                f"{results.ratio(operation, level, 'definition', 'band'):.1f}",
                f"{results.microseconds(operation, level, 'tile') * 1e3:.0f}",
                f"{results.ratio(operation, level, 'definition', 'tile'):.1f}",
            ]
            print(f"| {operation} | {level} | " + " | ".join(cells) + " |")


def draw(results, path):
    left, scale, bar, gap = 190, 420, 9, 8
    y = 40
    parts = []
    for operation in results.operations:
        levels = results.levels(operation, "page")
        middle = y + bar * len(levels) / 2
        parts.append(f'<text x="{left - 8}" y="{middle + 4}" text-anchor="end">{operation}</text>')
        for level in levels:
            ratio = results.ratio(operation, level, "memcpy", "page")
            length = f"{ratio * scale:.1f}"
            parts.append(f'<rect x="{left}" y="{y}" width="{length}" height="{bar - 1}" '
                         f'fill="{COLORS[level]}"><title>{operation}, {level}: {ratio:.2f} of memcpy'
                         '</title></rect>')
            y += bar
        y += gap
    used = [level for level in LEVELS
            if any(level in results.levels(o, "page") for o in results.operations)]
    for i, level in enumerate(used):
        x = left + i * 100
        parts.append(f'<rect x="{x}" y="10" width="12" height="12" fill="{COLORS[level]}"/>')
        parts.append(f'<text x="{x + 17}" y="20">{level}</text>')
    parts.append(f'<path d="M{left + scale} 30V{y}" stroke="#c33" stroke-dasharray="4 3"/>')
    parts.append(f'<text x="{left + scale}" y="{y + 14}" text-anchor="middle" fill="#c33">'
                 'memcpy</text>')
    width, height = left + int(scale * 1.7), y + 24
    with open(path, "w", encoding="utf-8") as file:
        file.write(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
                   'font-family="sans-serif" font-size="11" role="img">'
                   "<title>Speed of every operation on a page as a ratio to memcpy</title>"
                   f'<rect width="{width}" height="{height}" fill="#fff"/>\n'
                   + "\n".join(parts) + "\n</svg>\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("results")
    parser.add_argument("--plot", metavar="SVG")
    arguments = parser.parse_args()
    results = Results(arguments.results)
    print_table(results)
    if arguments.plot:
        draw(results, arguments.plot)


if __name__ == "__main__":
    main()
