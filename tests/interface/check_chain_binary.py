#!/usr/bin/env python3
"""Checks what the built chain library imports, exports and writes."""
import argparse
import re
import sys

from check_binary import (
    check_exports, check_marks, declared, dynamic_symbols, expect, left_writable, output, problems,
)

# librast, the C library with its loader, and what C++ needs.
NEEDED = re.compile(r"lib(rast|stdc\+\+|c\+\+|c\+\+abi|unwind|m|gcc_s|c)\.so\.\d+|ld-.*\.so\.\d")
# The library prints nothing, ends no program and changes nothing that a program has only once.
UNWANTED = re.compile(
    r"_?_?(v?d?f?printf|puts|fputs|f?putc|putchar|fwrite|perror)(_chk|_unlocked)?|std(out|err)"
    r"|_?exit|quick_exit|atexit|signal|sigaction|setlocale|(un|put)?setenv|putenv|chdir|umask|environ"
    r"|_ZSt4c(out|err|log)"
)


def check_dynamic(readelf, library):
    dynamic = output(readelf, "-Wd", library)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    expect("librast.so.1" in needed, "does not need librast.so.1")
    strangers = [name for name in needed if not NEEDED.fullmatch(name)]
    expect(not strangers, f"needs {strangers}")
    expect("soname: [librastchain.so.1]" in dynamic, "SONAME is not librastchain.so.1")
    expect(re.search(r"\(FLAGS\).*BIND_NOW", dynamic), "no BIND_NOW")
    expect("TEXTREL" not in dynamic, "has TEXTREL")
    expect(not re.search(r"\((INIT|FINI|INIT_ARRAY|FINI_ARRAY)\)", dynamic),
           "has code that runs at load or unload")
    for path in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", dynamic):
        expect(all(p.startswith("$ORIGIN") for p in path.split(":") if p), f"run path {path}")


def check_imports(imports, interface):
    ours = {name for name in imports if name.startswith("rast")}
    expect(ours <= interface, f"imports {sorted(ours - interface)} of librast")
    unwanted = sorted(name for name in imports if UNWANTED.fullmatch(name))
    expect(not unwanted, f"imports {unwanted}")


def check_writable(readelf, library):
    """Nothing may stay writable after load but the pointers by which exceptions find their handler
    and their type, which the loader fills in."""
    left, width = left_writable(readelf, library)
    size = sum(left.values())
    filled = re.findall(r"^[0-9a-f]+ +[0-9a-f]+ (?!\S*(?:JU?MP_SLOT|GLOB_DAT))\S+ +[0-9a-f]+ +"
                        r"(?:__gxx_personality_v0|_ZTISt9bad_alloc)\b",
                        output(readelf, "-Wr", library), flags=re.M)
    expect(size <= len(filled) * width, f"{size} bytes are writable after load: {left}")
    return size


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--readelf", default="readelf")
    parser.add_argument("header")
    parser.add_argument("rast_header")
    parser.add_argument("library")
    options = parser.parse_args()

    functions, pointers, tables = declared(options.header)
    expect(functions and not pointers | tables, "the header declares no functions, or more")
    imports, exports = dynamic_symbols(options.readelf, options.library)
    check_exports(exports, functions, set(), "RAST_CHAIN_1.0")
    check_dynamic(options.readelf, options.library)
    check_imports(imports, declared(options.rast_header)[0])
    size = check_writable(options.readelf, options.library)
    check_marks(options.readelf, options.library)
    for problem in problems:
        print(problem)
    print(f"{options.library}: {len(exports)} exports, {size} writable bytes, "
          f"{len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
