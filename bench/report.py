#!/usr/bin/env python3
"""Prints the results of rast_bench (its JSON output) as a Markdown table."""
import json
import sys

SIZES = ("page", "band", "line")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        results = json.load(file)
    rows = {}
    for result in results["benchmarks"]:
        operation, level, size = result["name"].split("/")[:3]
        rows.setdefault((operation, level), {})[size] = result
    print("| operation | level | " + " | ".join(f"{s}: GB/s | memcpy | definition" for s in SIZES) + " |")
    print("|---|---|" + "---:|---:|---:|" * len(SIZES))
    for (operation, level), sizes in rows.items():
        cells = []
        for size in SIZES:
            rate = sizes[size]["bytes_per_second"] / 1e9
            cells.append(f"{rate:.1f} | {sizes[size]['of_memcpy']:.2f} | {sizes[size]['definition_x']:.1f}")
        print(f"| {operation} | {level} | " + " | ".join(cells) + " |")


if __name__ == "__main__":
    main()
