#!/usr/bin/env python3
"""Checks that the description of the operations is JSON, complete, and true of the chain library.

usage: check_description.py DESCRIBE...  the command that prints it
"""
import json
import subprocess
import sys

OPERATIONS = {
    "expgamma": {"threshold", "offset", "gain"},
    "colgamma": {"curve"},
    "binconv": {"color"},
    "satadjust": {"mode"},
    "hueadjust": {"matrix", "reverse", "mirror"},
    "colbalance": {"curve", "level"},
    "overlay": {"with", "flatten", "at", "base", "size", "white", "mode", "density"},
    "overlayrgb": {"with", "flatten", "at", "base", "size", "white"},
    "rotate": {"turn"},
    "zoom": {"percent", "x", "y"},
    "shift": {"x", "y", "size", "fill"},
    "gray": set(),
}
KINDS = {"switch", "number", "numbers", "size", "decimal", "choice", "curve", "matrix", "file"}


def no_duplicates(pairs):
    assert len({name for name, _ in pairs}) == len(pairs), pairs
    return dict(pairs)


def numbers_of(parameter, text):
    separator = "x" if parameter["kind"] == "size" else ","
    return [float(number) for number in text.split(separator)]


def check_parameter(parameter):
    assert parameter["kind"] in KINDS, parameter
    assert parameter["help"] and isinstance(parameter["required"], bool), parameter
    assert not (parameter["required"] and "default" in parameter), parameter
    if parameter["kind"] == "switch":
        return
    assert parameter["argument"], parameter
    preset = parameter.get("default")
    if parameter["kind"] == "choice":
        assert len(parameter["values"]) >= 2, parameter
        assert preset is None or preset in parameter["values"], parameter
    elif parameter["kind"] != "file":
        assert parameter["low"] < parameter["high"], parameter
    if parameter["kind"] in ("number", "numbers", "size", "decimal") and preset is not None:
        for number in numbers_of(parameter, preset):
            assert parameter["low"] <= number <= parameter["high"], parameter
    for name, numbers in parameter.get("presets", {}).items():
        assert name and len(numbers) in (15, 256), name
        assert all(parameter["low"] <= n <= parameter["high"] for n in numbers), name


def main():
    text = subprocess.run(sys.argv[1:], check=True, capture_output=True).stdout.decode()
    operations = json.loads(text, object_pairs_hook=no_duplicates)
    assert [operation["name"] for operation in operations] == list(OPERATIONS), text
    for operation in operations:
        names = [parameter["name"] for parameter in operation["parameters"]]
        assert set(names) == OPERATIONS[operation["name"]] and len(names) == len(set(names)), names
        assert operation["summary"] and operation["details"], operation["name"]
        assert operation["name"] in operation["example"], operation["example"]
        assert operation["pages"], operation["name"]
        for parameter in operation["parameters"]:
            check_parameter(parameter)


main()
