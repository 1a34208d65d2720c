#!/usr/bin/env python3
"""Puts the playground together: one HTML file with the module and samples."""
import argparse
import base64
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
DRAW = HERE.parent.parent / "scripts" / "draw_page.py"
SAMPLES = {
    "page.png": ["--width", "620", "--height", "877"],
    "page-gray.png": ["--width", "620", "--height", "877", "--gray"],
    "stamp.png": ["--width", "200", "--height", "120"],
    "stamp-gray.png": ["--width", "200", "--height", "120", "--gray"],
}
IMPORT = re.compile(r'^import \{[^}]*\} from "\./([\w.]+)";\n', re.MULTILINE)


def script(name, taken):
    """A module after those that it imports, as one script; each is taken once."""
    if name in taken:
        return ""
    taken.add(name)
    text = (HERE / name).read_text(encoding="utf-8")
    before = "".join(script(imported, taken) for imported in IMPORT.findall(text))
    return before + re.sub(r"^export ", "", IMPORT.sub("", text), flags=re.MULTILINE)


def samples():
    with tempfile.TemporaryDirectory() as folder:
        for name, options in SAMPLES.items():
            path = Path(folder) / name
            subprocess.run([sys.executable, DRAW, *options, path], check=True)
            yield name, base64.b64encode(path.read_bytes()).decode()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("module", type=Path)
    parser.add_argument("out", type=Path)
    options = parser.parse_args()
    data = {
        "module": base64.b64encode(options.module.read_bytes()).decode(),
        "samples": dict(samples()),
    }
    page = (HERE / "index.html").read_text(encoding="utf-8")
    for link, tag, content in (
        ('<link rel="stylesheet" href="page.css">', "style", (HERE / "page.css").read_text()),
        ('<script type="text/plain" id="worker" src="worker.js"></script>',
         'script type="text/plain" id="worker"', script("worker.js", set())),
        ('<script type="module" src="page.js"></script>', 'script type="module"',
         script("page.js", set())),
        ('<script type="application/json" id="data"></script>',
         'script type="application/json" id="data"', json.dumps(data).replace("<", "\\u003c")),
    ):
        if page.count(link) != 1 or "</s" in content:
            sys.exit(f"build.py: {link} cannot be filled")
        page = page.replace(link, f"<{tag}>\n{content}</{tag.split()[0]}>")
    options.out.parent.mkdir(parents=True, exist_ok=True)
    options.out.write_text(page, encoding="utf-8")


if __name__ == "__main__":
    main()
