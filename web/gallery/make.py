#!/usr/bin/python3
"""Builds the gallery, one HTML file with pictures before and after each operation of the command.

pictures.toml says what it shows. The pictures come from Debian packages, which are only unpacked.
"""
import argparse
import base64
import contextlib
import functools
import hashlib
import html
import io
import json
import os
import shlex
import string
import subprocess
import sys
import tarfile
import tempfile
import tomllib
from pathlib import Path

from PIL import Image

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
APT = ("apt-get", "-qq", "-o", "APT::Sandbox::User=root")
LOSSLESS_BYTES = 100_000  # a larger file is embedded as JPEG
ENLARGED_WIDTH = 200  # a picture that is narrower shows its pixels


def fail(message):
    sys.exit(f"{Path(sys.argv[0]).name}: {message}")


def last_line(text):
    return (text.decode(errors="replace").strip().splitlines() or ["no message"])[-1]


@contextlib.contextmanager
def rast_in_path(rast):
    """An environment in which the command is called as the gallery shows it."""
    if not os.access(rast, os.X_OK):
        fail(f"{rast}: no such command; 'make gallery' builds it")
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / "rast").symlink_to(rast.resolve())
        yield os.environ | {"PATH": f"{folder}:{os.environ['PATH']}"}


def run(command, folder, environment):
    done = subprocess.run(
        ["bash", "-ec", command], cwd=folder, env=environment, capture_output=True, check=False
    )
    if done.returncode:
        fail(f"{command.strip().splitlines()[0]}: {last_line(done.stderr)}")
    return done.stdout.decode()


def download(package, folder):
    """The Debian package as a file in the folder."""
    command = [*APT, "download", package]
    done = subprocess.run(command, cwd=folder, capture_output=True, check=False)
    if done.returncode:
        subprocess.run([*APT, "update"], capture_output=True, check=False)
        done = subprocess.run(command, cwd=folder, capture_output=True, check=False)
    if done.returncode:
        fail(f"package {package} cannot be downloaded: {last_line(done.stderr)}")
    (path,) = Path(folder).glob("*.deb")
    return path


def has_content(path, sha256):
    return path.exists() and hashlib.sha256(path.read_bytes()).hexdigest() == sha256


def fetch(package, folder):
    """The package's pictures, in the folder; nothing is downloaded when they are there."""
    if all(has_content(folder / name, digest) for name, digest in package["sha256"].items()):
        return
    print(f"Fetching pictures of the Debian package {package['name']} ...")
    with tempfile.TemporaryDirectory(dir=folder) as temporary:
        unpack(download(package["name"], temporary), package, folder)


def unpack(deb, package, folder):
    tar = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], stdout=subprocess.PIPE, check=True)
    with tarfile.open(fileobj=io.BytesIO(tar.stdout)) as archive:
        for name, digest in package["sha256"].items():
            try:
                content = archive.extractfile(f"./{package['folder']}/{name}").read()
            except KeyError:
                fail(f"{name} is not in {deb.name}")
            if hashlib.sha256(content).hexdigest() != digest:
                fail(f"{name} in {deb.name} is not the file that pictures.toml names by SHA-256")
            (folder / name).write_bytes(content)


def steps(command):
    """The operations that a command line runs."""
    words = shlex.split(command)
    if words[1] != "chain":
        return words[1:2]
    return [step.split()[0] for step in words[2].split(" : ")]


def check_table(shown, operations):
    """Each operation has pictures, and they show it."""
    for name in [*operations, "chain"]:
        if not shown.get(name):
            fail(f"pictures.toml: there is no picture of '{name}'")
    for name, pictures in shown.items():
        if name not in operations and name != "chain":
            fail(f"pictures.toml: there is no operation '{name}'")
        for picture in pictures:
            if name != "chain" and name not in steps(picture["command"]):
                fail(f"pictures.toml: '{picture['title']}' does not show '{name}'")


@functools.cache
def embedded(path):
    """A picture as a data URI: the file as it stands, or as JPEG where that would be too large."""
    kind, data = "png", path.read_bytes()
    if len(data) > LOSSLESS_BYTES:
        buffer = io.BytesIO()
        with Image.open(path) as picture:
            picture.save(buffer, "JPEG", quality=90, subsampling=0)
        kind, data = "jpeg", buffer.getvalue()
    return f"data:image/{kind};base64,{base64.b64encode(data).decode()}"


def side(path, size, name):
    """One of the two pictures, with its label."""
    width, height = size
    enlarged = ' class="enlarged"' if width < ENLARGED_WIDTH else ""
    return (
        f'<div class="{name.lower()}" style="--width: {width}">'
        f'<img{enlarged} width="{width}" height="{height}" alt="{name}: {path.name}" '
        f'src="{embedded(path)}"><span>{name}</span></div>'
    )


def view(before, after, title):
    """A slider, or both pictures side by side where their shapes differ."""
    with Image.open(before) as one, Image.open(after) as other:
        a, b = one.size, other.size
    sides = side(before, a, "Before") + side(after, b, "After")
    shape = a[0] / a[1]
    if abs(shape * b[1] / b[0] - 1) < 0.01:
        kind = "compare"
        sides += (
            '<div class="handle"></div><input type="range" min="0" max="100" step="any" value="50" '
            f'aria-label="Share of the picture before: {title}">'
        )
    else:
        kind = "pair"
        shape = (a[0] + b[0]) / max(a[1], b[1])
    return f'<div class="mat"><div class="{kind}" style="--shape: {shape:.4f}">{sides}</div></div>'


def figure(picture, folder):
    title, text = html.escape(picture["title"]), html.escape(picture["text"].strip())
    words = picture["command"].split(" ")
    before, after = (folder / name for name in words[-2:])
    command = " ".join(f"<span>{html.escape(word, quote=False)}</span>" for word in words)
    return (
        f"<figure>{view(before, after, title)}\n<figcaption><h3>{title}</h3>\n<p>{text}</p>\n"
        f'<div class="command"><code>{command}</code><button type="button">Copy</button></div>'
        "</figcaption></figure>"
    )


def section(name, pictures, folder, environment):
    headline = run(f"rast help {name}", folder, environment).splitlines()[2]
    summary = html.escape(headline.removeprefix(f"{name}: ").rstrip("."))
    figures = "\n".join(figure(picture, folder) for picture in pictures)
    return (
        f'<section id="{name}">\n'
        f'<h2><a href="#{name}">{name}</a> <small>{summary}</small></h2>\n'
        f'<div class="figures">\n{figures}\n</div>\n</section>'
    )


def page(table, names, folder, environment):
    template = string.Template((HERE / "page.html").read_text(encoding="utf-8"))
    return template.substitute(
        style=(HERE / "page.css").read_text(encoding="utf-8"),
        script=(HERE / "page.js").read_text(encoding="utf-8"),
        links="\n".join(f'<li><a href="#{name}">{name}</a></li>' for name in names),
        sections="\n".join(
            section(name, table["show"][name], folder, environment) for name in names
        ),
        credits="\n".join(f"<li>{html.escape(p['credit'])}</li>" for p in table["package"]),
        prepare=html.escape(table["prepare"]["commands"]),
        version=html.escape(run("rast --version", folder, environment).strip()),
        kilobytes=LOSSLESS_BYTES // 1000,
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rast", type=Path, default=ROOT / "build/demo/tool/rast")
    parser.add_argument("--out", type=Path, default=ROOT / "build/gallery", help="folder")
    options = parser.parse_args()
    table = tomllib.loads((HERE / "pictures.toml").read_text(encoding="utf-8"))
    folder = options.out / "pictures"
    folder.mkdir(parents=True, exist_ok=True)
    with rast_in_path(options.rast) as environment:
        operations = json.loads(run("rast ops --json", folder, environment))
        names = [operation["name"] for operation in operations]
        check_table(table["show"], names)
        for package in table["package"]:
            fetch(package, folder)
        run(table["prepare"]["commands"], folder, environment)
        for pictures in table["show"].values():
            for picture in pictures:
                run(picture["command"], folder, environment)
        text = page(table, [*names, "chain"], folder, environment)
    (options.out / "index.html").write_text(text, encoding="utf-8")
    print(f"The gallery is in {options.out / 'index.html'}.")


if __name__ == "__main__":
    main()
