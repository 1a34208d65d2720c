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
    """Paragraphs, lists of numbered or named items, whose lines are indented, and indented code."""
    out = []
    in_item = in_code = False
    lines = "\n".join(lines).strip("\n").split("\n")
    for before, line in zip(["", *lines], lines):
        item = LIST_ITEM.match(line)
        is_code = line.startswith("    ") and (in_code or before == "") and not in_item
        if is_code != in_code:
            out.append(".EX" if is_code else ".EE")
        in_code = is_code
        if is_code:
            out.append(escaped(line))
        elif item:
            label = item[1].removeprefix("- ")
            out += [f".IP {label} 4"] if label[0].isdigit() else [".TP", f".B {escaped(label)}"]
            out.append(escaped(item[2]))
        else:
            if (not line or (in_item and line[0] != " ")) and out[-1] != ".PP":
                out.append(".PP")
            if line:
                out.append(escaped(line.strip()))
        in_item = bool(item) or (in_item and line.startswith(" "))
    return [*out, ".EE"] if in_code else out


def fields(body):
    """Members, or constants, with their meaning, which stands behind them or in front."""
    meanings = {}
    in_front = ""
    declarations = r"/\*\*(.*?)\*/|([^;,/(]+(?:\([^;]*)?)[;,]"  # a function has commas of its own
    for comment, declaration in re.findall(declarations, body, re.S):
        comment = re.sub(r"\n *\* ?", "\n", comment).strip()
        if declaration:
            last = " ".join(declaration.split())
            meanings[last] = in_front
            in_front = ""
        elif comment.startswith("<"):
            meanings[last] = comment[1:]
        else:
            in_front = comment
    out = []
    for declaration, meaning in meanings.items():
        description, parameters, result, _ = parts(meaning.split("\n"))
        out += [".TP", f".B {escaped(declaration)}", escaped(" ".join(" ".join(description).split()))]
        if result:
            out += [".RS", *described(parameters), ".TP", ".B Returns", *prose(result), ".RE"]
    return out


def inside(declaration):
    return declaration[declaration.index("{") + 1 : declaration.rindex("}")]


def title(library, name, version, summary):
    option = library.removeprefix("lib")
    return [f'.TH {name} 3 "" "{library} {version}"', ".SH NAME", f"{name} \\- {summary}",
            ".SH LIBRARY", f"{library} (\\-l{option})", ".SH SYNOPSIS"]


def parts(comment):
    """What a comment says of a function: description, parameters, result and notes."""
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
    return description, parameters, result, notes


def described(parameters):
    out = []
    for parameter, text in parameters.items():
        out += [".TP", f".I {parameter}", *prose([line.strip() for line in text])]
    return out


def function_page(comment, prototype, library, header, version, records):
    name = re.search(r"(\w+)\(", prototype)[1]
    description, parameters, result, notes = parts(comment)
    returns = not prototype.startswith("void ")
    if set(parameters) != set(re.findall(r"(\w+)[,)]", prototype)) or bool(result) != returns:
        sys.exit(f"functions.py: {name}: parameters or result are not described as they are")

    summary = " ".join(description).split(".")[0]
    out = title(library, name, version, escaped(summary[0].lower() + summary[1:]))
    out += [".nf", f".B #include <{header}>", ".PP"]
    out += [f'.B "{escaped(line)}"' for line in prototype.split("\n")]
    out += [".fi", ".SH DESCRIPTION", *prose(description), ".SH PARAMETERS", *described(parameters)]
    if result:
        out += [".SH RETURN VALUE", *prose(result)]
    if any(notes):
        out += [".SH NOTES", *prose(notes)]
    needed = list(dict.fromkeys(re.findall(r"\bRast\w+", prototype)))
    for record in needed:  # those that it holds follow
        needed += [r for r in records if r not in needed and any(re.search(rf"\b{r}\b", l) for l in records[record])]
    if needed:
        out += [".SH RECORDS", *(line for record in needed for line in records[record])]
    return name, [*out, ".SH SEE ALSO", f".BR {header} (3)"]


def pages(text, header, version):
    """The lines of each page, by its name."""
    constants, objects, records, functions = [], [], {}, []
    about, *rest = blocks("\n" + text)
    before = []  # by the comment before, of objects that stand together
    for comment, declaration in rest:
        if declaration.startswith("typedef struct"):
            name = declaration.split()[2].rstrip(";")
            members = fields(inside(declaration)) if "{" in declaration else []
            records[name] = [f".SS {name}", *prose(comment), *members]
        elif declaration.startswith("enum"):
            constants += [".PP", *prose(comment), *fields(inside(declaration))]
        elif declaration.startswith("#define"):
            constant = re.match(r"#define (\w+) \(?(-?\d+)\)?$", declaration, re.M)
            constants += [".TP", f".B {constant[1]} = {escaped(constant[2])}", *prose(comment)]
        elif re.match(r"(uint32_t|size_t|void) ", declaration):
            functions.append((comment, declaration[: declaration.index(";") + 1]))
        elif comment == ["@{"]:
            objects += [".PP", ".nf", *(f".B {line}" for line in declaration.split("\n")), ".fi"]
            objects += [".PP", *prose(before)]
        before = comment

    library, summary = about[0][1].split(": ", 1)
    result = dict(function_page(*each, library, header, version, records) for each in functions)
    out = title(library, header, version, escaped(summary.rstrip(".")))
    out += [f".B #include <{header}>", ".SH DESCRIPTION", *prose(about[0][3:]), ".SH CONSTANTS"]
    out += [*constants[1:], ".SH RECORDS", *(line for record in records.values() for line in record)]
    if objects:
        out += [".SH OBJECTS", *objects[1:]]
    out += [".SH SEE ALSO", *(f".BR {name} (3)," for name in sorted(result))]
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
