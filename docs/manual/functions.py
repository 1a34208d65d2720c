#!/usr/bin/env python3
"""Writes the manual pages of section 3 from the comments of a header: one for each function, one for
the header itself.

usage: functions.py HEADER VERSION FOLDER
"""

import re
import sys
from pathlib import Path

LIST_ITEM = re.compile(r"  (\d+\.|- [A-Z_]+:) +(.*)")


def escaped(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("^", "\\(ha")
    return "\\&" + text if text.startswith(".") else text


def blocks(text):
    """Each comment that begins a line, as lines, with what it describes."""
    for block in text.split("\n/**")[1:]:
        comment, declaration = block.split("*/", 1)
        lines = [line.strip().removeprefix("*").removeprefix(" ") for line in comment.split("\n")]
        yield "\n".join(lines).strip().split("\n"), declaration.strip()


def prose(lines):
    """Paragraphs, and lists of numbered or named items, whose lines are indented."""
    out = []
    in_item = False
    for line in "\n".join(lines).strip("\n").split("\n"):
        item = LIST_ITEM.match(line)
        if item:
            label = item[1].removeprefix("- ")
            out += [f".IP {label} 4"] if label[0].isdigit() else [".TP", f".B {escaped(label)}"]
            out.append(escaped(item[2]))
        else:
            if (not line or (in_item and line[0] != " ")) and out[-1] != ".PP":
                out.append(".PP")
            if line:
                out.append(escaped(line.strip()))
        in_item = bool(item) or (in_item and line.startswith(" "))
    return out


def fields(body):
    """Members, or constants, with their meaning, which stands behind them or in front."""
    meanings = {}
    in_front = ""
    for comment, declaration in re.findall(r"/\*\*(.*?)\*/|([^;,/]+)[;,]", body, re.S):
        comment = " ".join(re.sub(r"\n *\*", " ", comment).split())
        if declaration:
            last = " ".join(declaration.split())
            meanings[last] = in_front
            in_front = ""
        elif comment.startswith("<"):
            meanings[last] = comment[1:].strip()
        else:
            in_front = comment
    out = []
    for declaration, meaning in meanings.items():
        out += [".TP", f".B {escaped(declaration)}", escaped(meaning)]
    return out


def inside(declaration):
    return declaration[declaration.index("{") + 1 : declaration.rindex("}")]


def title(name, version, summary):
    return [f'.TH {name} 3 "" "librast {version}"', ".SH NAME", f"{name} \\- {summary}",
            ".SH LIBRARY", "librast (\\-lrast)", ".SH SYNOPSIS"]


def function_page(comment, prototype, header, version, records):
    name = re.search(r"(\w+)\(", prototype)[1]
    description, parameters, result, notes = [], {}, [], []
    part = description
    for line in comment:
        parameter = re.match(r"@param (\w+) (.*)", line)
        if parameter:
            part = parameters[parameter[1]] = [parameter[2]]
        elif line.startswith("@return "):
            part = result
            part.append(line.removeprefix("@return "))
        else:
            if not line and part is not description:
                part = notes
            part.append(line)
    if set(parameters) != set(re.findall(r"(\w+)[,)]", prototype)) or not result:
        sys.exit(f"functions.py: {name}: parameters or result are not described as they are")

    summary = " ".join(description).split(".")[0]
    out = title(name, version, escaped(summary[0].lower() + summary[1:]))
    out += [".nf", f".B #include <{header}>", ".PP"]
    out += [f'.B "{escaped(line)}"' for line in prototype.split("\n")]
    out += [".fi", ".SH DESCRIPTION", *prose(description), ".SH PARAMETERS"]
    for parameter, text in parameters.items():
        out += [".TP", f".I {parameter}", *prose([line.strip() for line in text])]
    out += [".SH RETURN VALUE", *prose(result)]
    if any(notes):
        out += [".SH NOTES", *prose(notes)]
    out.append(".SH RECORDS")
    needed = list(dict.fromkeys(re.findall(r"\bRast\w+", prototype)))
    for record in needed:  # those that it holds follow
        needed += [r for r in records if r not in needed and any(re.search(rf"\b{r}\b", l) for l in records[record])]
        out += records[record]
    return name, [*out, ".SH SEE ALSO", f".BR {header} (3)"]


def pages(text, header, version):
    """The lines of each page, by its name."""
    constants, objects, records, functions = [], [], {}, []
    about, *rest = blocks("\n" + text)
    described = []  # by the comment before, of objects that stand together
    for comment, declaration in rest:
        if declaration.startswith("typedef struct"):
            name = declaration.split()[2]
            records[name] = [f".SS {name}", *prose(comment), *fields(inside(declaration))]
        elif declaration.startswith("enum"):
            constants += [".PP", *prose(comment), *fields(inside(declaration))]
        elif declaration.startswith("uint32_t"):
            functions.append((comment, declaration[: declaration.index(";") + 1]))
        elif comment == ["@{"]:
            objects += [".PP", ".nf", *(f".B {line}" for line in declaration.split("\n")), ".fi"]
            objects += [".PP", *prose(described)]
        described = comment

    result = dict(function_page(*each, header, version, records) for each in functions)
    summary = about[0][1].split(": ", 1)[1].rstrip(".")
    out = title(header, version, escaped(summary))
    out += [f".B #include <{header}>", ".SH DESCRIPTION", *prose(about[0][3:]), ".SH CONSTANTS"]
    out += [*constants[1:], ".SH RECORDS", *(line for record in records.values() for line in record)]
    out += [".SH OBJECTS", *objects[1:], ".SH SEE ALSO"]
    out += [f".BR {name} (3)," for name in sorted(result)]
    result[header] = [*out, ".BR rast (1)"]
    return result


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    header, folder = Path(sys.argv[1]), Path(sys.argv[3])
    folder.mkdir(parents=True, exist_ok=True)
    for name, lines in pages(header.read_text(encoding="utf-8"), header.name, sys.argv[2]).items():
        (folder / f"{name}.3").write_text("\n".join(lines) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
