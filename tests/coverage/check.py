#!/usr/bin/env python3
"""Fails where a line or branch of the library was never run, unless unreached.txt gives the reason.

Takes what gcovr --json wrote. A line is known by its text, so that it is found wherever it moves;
an entry whose line is gone fails too."""
import json
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def reasons():
    known = {}
    for row in Path(__file__).with_name("unreached.txt").read_text().splitlines():
        if row and not row.startswith("#"):
            file, rest = row.split(": ", 1)
            line, reason = rest.rsplit(": ", 1)
            known[file, line.rstrip(":")] = reason
    return known


def main():
    known = reasons()
    sources = set()
    lines = branches = 0
    unreached = []
    for file in json.loads(Path(sys.argv[1]).read_text())["files"]:
        name = file["file"]
        text = (ROOT / name).read_text().splitlines()
        sources.update((name, line.strip()) for line in text)
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            counts = [branch["count"] for branch in line["branches"]]
            lines += 1
            branches += len(counts)
            if line["count"] == 0 or 0 in counts:
                unreached.append((name, line["line_number"], text[line["line_number"] - 1].strip()))
    problems = [f"{name}:{number}: not run, or only one way: {line}"
                for name, number, line in unreached if (name, line) not in known]
    problems += [f"unreached.txt: no such line: {name}: {line}"
                 for name, line in known if (name, line) not in sources]
    for problem in problems:
        print(problem)
    explained = len(unreached) - sum("not run" in problem for problem in problems)
    print(f"{lines} lines and {branches} branches; {explained} lines are not run, or only one way, "
          "for a reason that stands in unreached.txt")
    return 1 if problems or not branches else 0


if __name__ == "__main__":
    sys.exit(main())
