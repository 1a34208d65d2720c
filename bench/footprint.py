#!/usr/bin/env python3
"""Prints, as a Markdown page, what the library takes of a device's memory for each choice of
levels: its file, code, data and the largest stack use of a call. Fails where the smallest library,
the baseline alone on x86-64, has 64 KiB of code or more."""
import platform
import re
import sys
from pathlib import Path

from builds import ROOT, TOOLS, build, has_compiler, note, print_heading, run

CODE_LIMIT = 64 * 1024
CHOICES = {
    "x86-64": ["baseline", "avx2", "avx512", "baseline;avx2;avx512"],
    "armhf": ["baseline", "neon", "baseline;neon"],
    "aarch64": ["neon"],
}
INDIRECT = "__indirect_call"


def kernel_names():
    """Which function stands behind which member of the kernel table."""
    table = (ROOT / "src/frame/rows.inl").read_text()
    return dict(re.findall(r"\.(\w+) = (\w+)", table))


class CallGraph:
    """The frames and calls that g++ writes, of all source files together.

    A call through a pointer may reach the kernels that its source file names, at any level, and the
    file's own local functions that nothing calls by name. Frames of the C library are not known and
    count nothing."""

    def __init__(self, directory):
        self.frame = {}
        self.source = {}
        self.name = {}
        self.unit = {}
        self.calls = {}
        self.kernels = kernel_names()
        self.depths = {}
        for path in directory.rglob("*.ci"):
            self.read(path)
        self.called = {callee for callees in self.calls.values() for callee, _ in callees}

    def read(self, path):
        for line in path.read_text().splitlines():
            node = re.match(r'node: \{ title: "(.*?)" label: "(.*?)\\n(.*?):\d+:\d+\\n'
                            r'(\d+) bytes \((.*?)\)', line)
            edge = re.match(r'edge: \{ sourcename: "(.*?)" targetname: "(.*?)"'
                            r'(?: label: "(.*?):\d+:\d+")?', line)
            if node:
                title, label, source, size, kind = node.groups()
                if kind == "dynamic":
                    sys.exit(f"{label} has a frame without a bound.")
                self.frame[title] = int(size)
                self.source[title] = source
                self.name[title] = re.search(r"(\w+)\(", label)[1]
                self.unit[title] = path
            elif edge:
                caller, callee, source = edge.groups()
                self.calls.setdefault(caller, set()).add((callee, source))

    def pointees(self, caller, source):
        named = re.findall(r"\brows(?:->|\.)(\w+)", Path(source).read_text())
        kernels = {self.kernels[name] for name in named if name in self.kernels}
        entries = set(self.kernels.values())
        for title, name in self.name.items():
            if name in entries:
                if name in kernels:
                    yield title
            elif (self.unit[title] == self.unit[caller] and self.source[title] == source
                  and ":" in title and title not in self.called):
                yield title

    def depth(self, title):
        """Bytes of the deepest chain of calls from a function on, its own frame included."""
        if title not in self.frame:
            return 0
        if title not in self.depths:
            self.depths[title] = None
            deepest = 0
            for callee, source in self.calls.get(title, ()):
                callees = self.pointees(title, source) if callee == INDIRECT else [callee]
                deepest = max([deepest, *map(self.depth, callees)])
            self.depths[title] = self.frame[title] + deepest
        if self.depths[title] is None:
            sys.exit(f"{title} calls itself: its stack use has no bound.")
        return self.depths[title]


def sections(path):
    rows = re.findall(r"^ *\[ *\d+\] (\.\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)",
                      run("readelf", "-SW", path), re.MULTILINE)
    return {name: int(size, 16) for name, size in rows}


def examine(target, levels):
    directory = ROOT / "build/footprint" / f"{target}-{levels.replace(';', '-')}"
    build(directory, target, "rast", f"-DRAST_LEVELS={levels}", flags="-fcallgraph-info=su")
    library = directory / "src/librast.so"
    stripped = directory / "stripped.so"
    run(TOOLS[target] + "strip", "-o", stripped, library)
    size = sections(stripped)
    graph = CallGraph(directory / "src")
    exported = re.findall(r"\brast[A-Z]\w+", (ROOT / "src/rast.map").read_text())
    depth, deepest = max((graph.depth(name), name) for name in exported)
    writable = size.get(".data", 0) + size.get(".bss", 0)
    cells = [stripped.stat().st_size, size[".text"], size[".rodata"], writable]
    print(f"| {target} | {levels.replace(';', ', ')} | " + " | ".join(f"{n:,}" for n in cells)
          + f" | {depth:,} ({deepest}) |", flush=True)
    return size[".text"]


def main():
    print_heading("Footprint", "make footprint")
    print("| target | levels | file, stripped | code | read-only data | writable data "
          "| largest stack use of a call |")
    print("|---|---|---:|---:|---:|---:|:---|")
    excess = None
    for target, choices in CHOICES.items():
        if target == "x86-64" and platform.machine() != "x86_64":
            note("x86-64: this is another machine; its rows are left out")
        elif has_compiler(target):
            for levels in choices:
                code = examine(target, levels)
                if target == "x86-64" and levels == "baseline" and code >= CODE_LIMIT:
                    excess = (f"The baseline library has {code:,} bytes of code; "
                              f"it must stay below {CODE_LIMIT:,}.")
    sys.exit(excess)


if __name__ == "__main__":
    main()
