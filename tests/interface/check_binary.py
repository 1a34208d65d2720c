#!/usr/bin/env python3
"""Checks what the built libraries contain, import, export and write."""
import argparse
import re
import subprocess
import sys

import check_levels

# On 32-bit ARM the compiler's own division routine, linked in, raises a signal for a divisor of 0.
ARM_IMPORTS = {"raise"}
ALLOCATION = {"malloc", "free"}
IMPORTS = {"printf", "puts", "malloc", "free", "memset", "memcpy"}
# What hardening by compiler flags puts in: checked forms of these, and where a broken stack ends.
HARDENING = {f"__{name}_chk" for name in IMPORTS} | {"__stack_chk_fail"}
WRITABLE = {".data.rel.ro", ".dynamic", ".got", ".bss"}
# PowerPC has tables of addresses of its own, and a section for small objects.
WRITABLE |= {".got2", ".plt", ".sbss"}

problems = []


def expect(holds, problem):
    if not holds:
        problems.append(problem)


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def declared(header):
    """The names of the functions, pointers and constant tables that the public header declares."""
    text = re.sub(r"/\*.*?\*/", "", open(header, encoding="ascii").read(), flags=re.S)
    text = re.sub(r"^\s*#.*$", "", text, flags=re.M)
    functions = set(re.findall(r"^\w[\w \*]*?(\w+)\([^;{}]*\);", text, flags=re.M))
    pointers = set(re.findall(r"^extern void ?\* ?(\w+);", text, flags=re.M))
    tables = set(re.findall(r"^extern const \w+ (\w+)\[\w+\];", text, flags=re.M))
    return functions, pointers, tables


def dynamic_symbols(readelf, library):
    imports, exports = set(), {}
    for line in output(readelf, "-W", "--dyn-syms", library).splitlines():
        fields = line.split()
        if len(fields) < 8 or not fields[0][:-1].isdigit() or fields[4] == "LOCAL":
            continue
        name, _, version = fields[7].partition("@")
        if fields[6] == "UND":
            imports.add(name)
        elif fields[6] != "ABS":
            exports[name] = (fields[3], int(fields[2], 0), version.lstrip("@"))
    return imports, exports


def check_exports(exports, functions, objects, expected_version):
    declarations = functions | objects
    expect(set(exports) <= declarations, f"undeclared exports {sorted(set(exports) - declarations)}")
    expect(set(exports) >= declarations, f"not exported {sorted(declarations - set(exports))}")
    for name, (kind, _, version) in exports.items():
        expect(version == expected_version, f"{name} has version {version!r}")
        expect(kind == ("OBJECT" if name in objects else "FUNC"), f"{name} is a {kind}")


def machine(readelf, library):
    return re.search(r"Machine: +(.*)", output(readelf, "-Wh", library))[1]


def check_dynamic(readelf, library, imports, hardened):
    dynamic = output(readelf, "-Wd", library)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    expect(needed == ["libc.so.6"], f"needs {needed}")
    expect("soname: [librast.so.1]" in dynamic, "SONAME is not librast.so.1")
    expect(re.search(r"\(FLAGS\).*BIND_NOW", dynamic), "no BIND_NOW")
    expect("TEXTREL" not in dynamic, "has TEXTREL")
    expect(not re.search(r"\((RPATH|RUNPATH|INIT|FINI|INIT_ARRAY|FINI_ARRAY)\)", dynamic),
           "has a run path or code that runs at load or unload")
    allowed = set(IMPORTS)
    if hardened:
        allowed |= HARDENING
    if machine(readelf, library) == "ARM":
        allowed |= ARM_IMPORTS
    expect(imports <= allowed, f"imports {sorted(imports - allowed)}")


def left_writable(readelf, library):
    """The sections that stay writable after load, with their sizes, and the size of a pointer."""
    segments = output(readelf, "-Wl", library)
    stack = re.search(r"GNU_STACK .* ([RWE ]{3}) +0x", segments)
    expect(stack and "E" not in stack[1], "the stack is executable")
    relro = re.search(r"GNU_RELRO +\S+ (\S+) \S+ \S+ (\S+)", segments)
    expect(relro, "no RELRO")
    start, size = (int(value, 16) for value in relro.groups()) if relro else (0, 0)
    left = {}
    pattern = r"\] (\S+) +\S+ +([0-9a-f]+) [0-9a-f]+ ([0-9a-f]+) \S+ +(\w*W\w*) "
    for name, address, length, _ in re.findall(pattern, output(readelf, "-WS", library)):
        if not start <= int(address, 16) < start + size:
            left[name] = int(length, 16)
        else:
            expect(name in WRITABLE, f"writable section {name}")
    width = 8 if "64" in re.search(r"Class: +(\S+)", output(readelf, "-Wh", library))[1] else 4
    return left, width


def check_writable(readelf, library, exports, pointers):
    """Nothing may stay writable after load but the interface's pointers."""
    left, width = left_writable(readelf, library)
    expect(len(left) == 1 and set(left) <= {".bss", ".sbss"}, f"writable after load: {sorted(left)}")
    zeroed = sum(left.values())
    expect(zeroed == len(pointers) * width, f"{zeroed} bytes are writable after load")
    for name in pointers & set(exports):
        expect(exports[name][1] == width, f"{name} is not the size of a pointer")


def check_marks(readelf, library):
    by_machine = {"Advanced Micro Devices X86-64": "IBT, SHSTK", "AArch64": "BTI, PAC"}
    marks = by_machine.get(machine(readelf, library))
    if marks:
        expect(marks in output(readelf, "-Wn", library), f"not marked {marks}")


def check_members(nm, archive):
    for member, _, name in check_levels.symbols(nm, archive):
        expect(not check_levels.RUNTIME.search(name), f"{member} refers to {name}")
        expect(name not in ALLOCATION or member == "rastZoom.cpp.o", f"{member} calls {name}")
    problems.extend(check_levels.problems(nm, "rows", "rast::Rows", archive))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--hardened", action="store_true",
                        help="built with flags that check at run time")
    parser.add_argument("header")
    parser.add_argument("library")
    parser.add_argument("archive")
    options = parser.parse_args()

    functions, pointers, tables = declared(options.header)
    expect(len(pointers) == 11 and functions, f"the header declares {functions} and {pointers}")
    imports, exports = dynamic_symbols(options.readelf, options.library)
    check_exports(exports, functions, pointers | tables, "RAST_1.0")
    check_dynamic(options.readelf, options.library, imports, options.hardened)
    check_writable(options.readelf, options.library, exports, pointers)
    check_marks(options.readelf, options.library)
    check_members(options.nm, options.archive)
    for line in output(options.nm, "-C", options.library).splitlines():
        expect(not check_levels.RUNTIME.search(line), f"the library has {line.split(maxsplit=1)[-1]}")
    for problem in problems:
        print(problem)
    print(f"{options.library}: {len(exports)} exports, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
