#!/usr/bin/env python3
"""Writes manual pages: of functions from the comments of a header, of the command from its help, of
the print filter from its guide."""

import argparse
import json
import re
import subprocess
import sys
from pathlib import Path

LIST_ITEM = re.compile(r"  (\d+\.|- [A-Z_]+:) +(.*)")


ROFF = str.maketrans({"\\": "\\e", "-": "\\-", "'": "\\(aq", "^": "\\(ha", "~": "\\(ti"})


def escaped(text):
    # A line that begins with a full stop would be taken for a request.
    return ("\\&" if text.startswith(".") else "") + text.translate(ROFF)


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
        sys.exit(f"manual.py: {name}: parameters or result are not described as they are")

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


def header_pages(header, version):
    """The page of a header and those of its functions: their lines, by their names."""
    text = header.read_text(encoding="utf-8")
    header = header.name
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


def bold(text):
    return f"\\fB{escaped(text)}\\fR"


def italic(text):
    return f"\\fI{escaped(text)}\\fR"


def lines_of(text):
    """A text of the help. A line that explains a word, as in "replace: a pixel whose", stays one."""
    out = []
    for line in text.split("\n"):
        if out and re.match(r"[^ :]+: ", line):
            out.append(".br")
        out.append(escaped(line))
    return out


def items(entries):
    out = []
    for entry in entries:
        out += [".TP", bold(entry["names"]) + italic(entry["argument"]), *lines_of(entry["text"])]
        if entry["limits"]:
            out += [".br", escaped(entry["limits"])]
    return out


def example(line):
    return [".PP", "Example:", ".PP", ".EX", escaped(line), ".EE"]


def heading(name, section, version, summary):
    return [f'.TH {name.upper()} {section} "" "rast {version}"', ".SH NAME",
            f"{escaped(name)} \\- {escaped(summary)}"]


def see_also(*names):
    return [".SH SEE ALSO", *(f".BR {escaped(name)} ({section})," for name, section in names[:-1]),
            f".BR {escaped(names[-1][0])} ({names[-1][1]})"]


def command_page(told, version, others):
    out = heading("rast", 1, version, "raster filters for page images")
    out += [".SH SYNOPSIS", ".nf", *map(escaped, told["usage"]), ".fi"]
    out += [".SH DESCRIPTION", *lines_of(told["purpose"]), ".PP", *lines_of(told["operands"])]
    out += [*lines_of(told["files"]), ".SH OPERATIONS", "They are described in", ".BR rast\\-ops (7)."]
    for operation in told["operations"]:
        out += [".TP", bold(operation["name"])]
        out.append(f"{escaped(operation['summary'])} ({operation['pages']})")
    out.append(".SH COMMANDS")
    for command in told["commands"]:
        name = escaped(command["name"])
        out += [f".SS {name}", f".B rast {name}", "[OPTION]..." + escaped(command["operands"])]
        out += [".PP", bold(command["summary"]) + ".", ".PP", *lines_of(command["details"])]
        out += [".PP", "Options:", ".B " + escaped(command["options"]), *example(command["example"])]
    out += [".SH OPTIONS", *items(told["options"]), ".SH EXIT STATUS"]
    for status in told["exit_statuses"]:
        out += [".TP", f".B {status['status']}", escaped(status["meaning"])]
    out += [".SH ENVIRONMENT", ".TP", ".B TMPDIR", *lines_of(told["stored_pages"])]
    return out + see_also(("rast-ops", 7), *others)


def operations_page(told, version):
    out = heading("rast-ops", 7, version, "the operations of rast")
    out += [".SH DESCRIPTION", "Each may be given to", ".BR rast (1)"]
    out += [f"alone, or as a step of a chain, where {bold('--name value')} is"]
    out += [f"{bold('name=value')} and {bold('--name')} alone is", f"{bold('name')}."]
    out.append("Results are in integer arithmetic and the same on every machine.")
    for operation in told["operations"]:
        out += [f".SH {operation['name'].upper()}", ".B " + escaped(operation["usage"]), ".PP"]
        out += [f"{bold(operation['summary'])}, for {operation['pages']}.", ".PP"]
        out += lines_of(operation["details"])
        if operation["keeps_pages"]:
            out += lines_of(told["stored_pages"])
        out += [*items(operation["parameters"]), *example(operation["example"])]
    return out + see_also(("rast", 1), ("rast.h", 3))


def filter_page(guide, version, lowdown):
    """The guide below its title, after name and use."""
    command = [lowdown, "-Tman", "-m", "shiftheadinglevelby=-1", guide]
    text = subprocess.run(command, check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout
    title_of_guide = re.match(r"\.SH\n[^\n]+\n\.LP\n", text)
    if not title_of_guide:
        sys.exit(f"manual.py: {guide}: lowdown does not begin its page with the title")
    text = re.sub(r"(\.SH\n[^\n]+\n)\.LP\n", r"\1", text[title_of_guide.end():])
    return [f'.TH rasttoraster 8 "" "rast {version}"', ".SH NAME",
            "rasttoraster \\- raster filters in a print queue", ".SH SYNOPSIS", ".B rasttoraster",
            ".I job user title copies options", ".RI [ file ]", ".SH DESCRIPTION",
            *text.replace("\\fC", "\\fB").rstrip("\n").split("\n"),
            *see_also(("rast", 1), ("rast-ops", 7), ("cupsd.conf", 5))]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--version", required=True, help="of the project")
    parser.add_argument("--folder", required=True, type=Path, help="for the pages")
    kinds = parser.add_subparsers(dest="kind", required=True)
    functions = kinds.add_parser("functions", help="NAME.3 for each function, and for the header")
    functions.add_argument("header", type=Path)
    command = kinds.add_parser("command", help="rast.1 and rast-ops.7")
    command.add_argument("help", type=Path, help="what 'rast help --json' prints")
    command.add_argument("--filter", action="store_true", help="there is a page of the print filter")
    guide = kinds.add_parser("filter", help="rasttoraster.8")
    guide.add_argument("guide", type=Path)
    guide.add_argument("--lowdown", default="lowdown", help="the program lowdown")
    options = parser.parse_args()

    if options.kind == "functions":
        made = header_pages(options.header, options.version)
        made = {f"{name}.3": lines for name, lines in made.items()}
    elif options.kind == "command":
        told = json.loads(options.help.read_text(encoding="utf-8"))
        others = [("rasttoraster", 8)] if options.filter else []
        made = {"rast.1": command_page(told, options.version, others),
                "rast-ops.7": operations_page(told, options.version)}
    else:
        page = filter_page(options.guide, options.version, options.lowdown)
        made = {"rasttoraster.8": page}
    options.folder.mkdir(parents=True, exist_ok=True)
    for name, lines in made.items():
        (options.folder / name).write_text("\n".join(lines) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
