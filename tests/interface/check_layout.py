#!/usr/bin/env python3
"""Fails when a record of a public header, or a member of one, is not pinned in its layout file."""
import re
import sys


def main():
    header, layout = (open(name, encoding="ascii").read() for name in sys.argv[1:])
    header = re.sub(r"/\*.*?\*/", "", header, flags=re.S)
    missing = []
    for record, body in re.findall(r"typedef struct (\w+) \{(.*?)\}", header, flags=re.S):
        pins = [f"SIZE({record}, "]
        body = re.sub(r"\(\*(\w+)\)\([^;]*\);", r"\1;", body)  # pointers to functions
        pins += [f"AT({record}, {member}, " for member in re.findall(r"(\w+)(?:\[\w+\])*;", body)]
        missing += [pin for pin in pins if pin not in layout]
    for pin in missing:
        print(f"{sys.argv[2]} has no {pin}...)")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
