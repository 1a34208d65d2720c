#!/usr/bin/env python3
"""Prints the results of rast_bench (its JSON output) as a Markdown table."""
import json
import sys


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        results = json.load(file)
    print("| operation | level | size | GB/s | of memcpy | of the definition |")
    print("|---|---|---|---:|---:|---:|")
    for row in results["benchmarks"]:
        operation, level, size = row["name"].split("/")[:3]
        rate = row["bytes_per_second"] / 1e9
        print(
            f"| {operation} | {level} | {size} | {rate:.1f} "
            f"| {row['of_memcpy']:.2f} | {row['definition_x']:.1f} x |"
        )


if __name__ == "__main__":
    main()
