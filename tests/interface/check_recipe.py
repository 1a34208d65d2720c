#!/usr/bin/env python3
"""Fails when a file names an operation and CONTRIBUTING's recipe for a new one does not name the file,
or names one that is not there."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = ("bench", "debian", "include", "packaging", "src", "tests", "tool", "web")
NAMED = re.compile(rb"[rR]ast(SatAdjust|Zoom|Overlay)\b|Rast(Zoom|Overlay)Param\b")
# Whoever includes the header may call any operation.
CALLERS = ("tests/interface/consumer/", "tests/mutation/equivalent.txt", "tests/interface/check_")


def main():
    text = (ROOT / "CONTRIBUTING.md").read_text(encoding="utf-8")
    table = "\n".join(line.split("|")[2] for line in text.split("\n") if line.startswith("| "))
    named = [path.replace("<kind>", kind) for kind in ("tone", "color", "overlay", "geometry")
             for path in re.findall(r"`([\w./<>-]+/[\w./<>-]*)`", table)]
    problems = [f"CONTRIBUTING.md names {path}, which is not there"
                for path in named if not (ROOT / path).exists()]
    for path in (p for folder in FOLDERS for p in (ROOT / folder).rglob("*") if p.is_file()):
        file = str(path.relative_to(ROOT))
        known = file.startswith(CALLERS) or any(
            file == name or name.endswith("/") and file.startswith(name) for name in named)
        if not known and NAMED.search(path.read_bytes()):
            problems.append(f"CONTRIBUTING.md does not name {file}")
    for problem in sorted(set(problems)):
        print(problem)
    return 1 if problems or not named else 0


if __name__ == "__main__":
    sys.exit(main())
