#!/usr/bin/env python3
"""Follows every operation through an emulated ARM processor and prints, as a Markdown page, the
instructions that 64 samples of it take and the cycles that llvm-mca estimates for these.

A call is made on two heights of a rectangle. The last instructions of the longer one, as many as it
has more, are what the lines between take; a window that long holds each of their steps once."""
import argparse
import array
import re
from dataclasses import dataclass, field

from builds import ROOT, build, has_compiler, note, print_heading, run

BUILDS = ROOT / "build/cycles"
PLUGIN = BUILDS / "follow.so"
CPUS = {"A53": "cortex-a53", "A72": "cortex-a72"}
# Width, lower and greater height. Reductions gather whole groups of lines between the heights;
# rotation takes one band of output lines and one more band of source lines.
SIZE = (992, 3, 6)
SIZES = {
    "rotate-one-plane": (124, 128, 256),
    "rotate-three-planes": (124, 128, 256),
    "zoom-1000": (992, 16, 20),
    "zoom-500": (992, 16, 20),
    "zoom-333": (992, 16, 22),
    "zoom-700": (992, 20, 30),
}


@dataclass
class Target:
    title: str
    name: str
    emulator: list
    triple: str
    levels: list
    cpus: list
    text: dict = field(default_factory=dict)  # assembly by address

    def __post_init__(self):
        self.program = BUILDS / self.name / "bench/rast_once"

    def prepare(self):
        build(BUILDS / self.name, self.name, "rast_once", "-DRAST_BENCH=ON")
        for line in run("llvm-objdump", "-d", "--no-show-raw-insn", self.program).splitlines():
            found = re.match(r" *([0-9a-f]+): +\t(.*)", line)
            if found:
                text = re.sub(r"<.*?>|//.*|@.*", "", found[2]).replace("\t", " ").strip()
                self.text[int(found[1], 16)] = text

    def operations(self):
        return [name for name in run(*self.emulator, self.program).split() if name != "shift"]

    def follow(self, operation, level, width, height):
        """The addresses of the instructions of a call."""
        path = BUILDS / "trace"
        run(*self.emulator, "-plugin", f"{PLUGIN},out={path}", self.program, operation, level,
            width, height)
        addresses = array.array("Q")
        addresses.frombytes(path.read_bytes())
        return addresses

    def measure(self, operation, level):
        """Instructions, and cycles for each processor, of 64 samples."""
        width, low, high = SIZES.get(operation, SIZE)
        addresses = self.follow(operation, level, width, high)
        count = len(addresses) - len(self.follow(operation, level, width, low))
        start = len(addresses) - count
        for back in range(1, 5):  # not from the midst of what an IT instruction covers
            covers = re.match(r"it[te]* ", self.text[addresses[start - back]])
            if covers and len(covers[0]) - 2 >= back:
                start -= back
        code = BUILDS / "code.s"
        with open(code, "w", encoding="ascii") as file:
            for address in addresses[start:]:
                file.write(as_jump(self.text[address]) + "\n")
        scale = 64 / (width * (high - low))
        return [count * scale, *(self.cycles(code, cpu) * scale for cpu in self.cpus)]

    def cycles(self, code, cpu):
        report = run("llvm-mca", f"-mtriple={self.triple}", f"-mcpu={CPUS[cpu]}", "-iterations=1",
                     "-instruction-info=false", "-resource-pressure=false", code)
        return int(re.search(r"^Total Cycles: +(\d+)", report, re.MULTILINE)[1])


def as_jump(text):
    """A call as a jump: llvm-mca takes a call for 100 cycles, but what is called follows here."""
    mnemonic, space, operands = text.partition(" ")
    return {"bl": "b", "blr": "br", "blx": "bx"}.get(mnemonic, mnemonic) + space + operands


# Of the 32-bit state llvm-mca knows no in-order processor with all of NEON.
TARGETS = [
    Target("64-bit ARM", "aarch64", ["qemu-aarch64", "-cpu", "cortex-a53"], "aarch64", ["neon"],
           ["A53", "A72"]),
    Target("32-bit ARM", "armhf", ["qemu-arm", "-cpu", "cortex-a7"], "thumbv7",
           ["baseline", "neon"], ["A72"]),
]


def print_table(target, wanted):
    columns = ["instructions", *(f"{cpu}: cycles" for cpu in target.cpus)]
    print(f"{target.title}:\n\n| operation | level | "
          + " | ".join(f"{column}, definition | kernel | × definition" for column in columns) + " |")
    print("|---|---|" + "---:|" * (3 * len(columns)), flush=True)
    for operation in wanted or target.operations():
        note(f"{target.title}: {operation}")
        definition = target.measure(operation, "definition")
        for level in target.levels:
            kernel = target.measure(operation, level)
            cells = [f"{a:.0f} | {b:.0f} | {a / b:.1f}" for a, b in zip(definition, kernel)]
            print(f"| {operation} | {level} | " + " | ".join(cells) + " |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("operation", nargs="*", help="rows to print; default: all of them")
    wanted = parser.parse_args().operation
    BUILDS.mkdir(parents=True, exist_ok=True)
    run("gcc", "-O2", "-shared", "-fPIC", "-o", PLUGIN, ROOT / "bench/follow.c")
    print_heading("Operations on ARM", "make arm-cycles")
    separator = ""
    for target in TARGETS:
        if has_compiler(target.name):
            print(separator, end="")
            target.prepare()
            print_table(target, wanted)
            separator = "\n"


if __name__ == "__main__":
    main()
