#!/usr/bin/env python3
"""Checks that level files, which are built for more than the baseline, hold nothing that may serve
other files, and no reference to a C++ runtime: KERNELS_<level>.cpp.o define the table's function alone."""
import argparse
import re
import subprocess
import sys

RUNTIME = re.compile(r"__cxa|__gxx|_Unwind|__gnu_unwind|\bstd::|operator (new|delete)")


def symbols(nm, *files):
    """Object, kind and name of each symbol of archives and objects."""
    for line in subprocess.run([nm, "-A", "-C", *files], check=True, stdout=subprocess.PIPE,
                               text=True).stdout.splitlines():
        yield re.match(r".*?([^:/]+\.o):[0-9a-f ]* (\w) (.*)", line).groups()


def problems(nm, kernels, table, *files):
    levels = {}
    for member, kind, name in symbols(nm, *files):
        level = re.match(rf"{kernels}_(\w+)\.cpp", member)
        if level:
            levels.setdefault(level[1], []).append((kind, name))
    if not levels:
        yield f"no level files {kernels}"
    for level, found in levels.items():
        for kind, name in found:
            if kind in "wWvVu":
                yield f"{level} has the weak symbol {name}"
            if RUNTIME.search(name):
                yield f"{level} refers to {name}"
        # 32-bit x86 finds its own address by a call, of a function that is the same in all files.
        shared = [name for kind, name in found
                  if kind.isupper() and kind != "U" and not name.startswith("__x86.get_pc_thunk")]
        if shared != [f"{table} const* rast::{level}::kernels<{table}>()"]:
            yield f"{level} defines {shared}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("kernels")
    parser.add_argument("table")
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    found = list(problems(options.nm, options.kernels, options.table, *options.files))
    for problem in found:
        print(problem)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
