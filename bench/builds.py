"""Builds of the library for the scripts that examine what the compiler made of it, and the heading
of the pages that scripts print."""
import datetime
import os
import platform
import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
MEANING = "[Performance](../performance.md) says what the figures mean."
TOOLS = {"x86-64": "", "armhf": "arm-linux-gnueabihf-", "aarch64": "aarch64-linux-gnu-"}


def note(text):
    print(text, file=sys.stderr, flush=True)


def has_compiler(target):
    found = shutil.which(TOOLS[target] + "g++") is not None
    if not found:
        note(f"{target}: there is no {TOOLS[target]}g++; its rows are left out")
    return found


def run(*command, **options):
    """What the command prints on standard output; exits where it fails."""
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                          check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{done.stdout[-2000:]}{done.stderr[-2000:]}Failed: {' '.join(map(str, command))}")
    return done.stdout


def build(directory, target, product, *definitions, flags=""):
    """Configures a Release build of a target with additional compiler flags and makes a product."""
    note(f"Building {directory.relative_to(ROOT)} ...")
    compiler = [f"-DCMAKE_TOOLCHAIN_FILE=cmake/{target}.cmake"]
    if target == "x86-64":
        compiler = ["-DCMAKE_C_COMPILER=gcc", "-DCMAKE_CXX_COMPILER=g++"]
    run("cmake", "-S", ".", "-B", directory, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
        "-DRAST_TOOL=OFF", *compiler, *definitions, cwd=ROOT,
        env={**os.environ, "CXXFLAGS": flags})
    run("cmake", "--build", directory, "--target", product, cwd=ROOT)


def commit():
    """The commit that is checked out; "unknown" outside a repository."""
    done = subprocess.run("git rev-parse --short HEAD", shell=True, capture_output=True, text=True,
                          check=False, cwd=ROOT)
    return done.stdout.strip() or "unknown"


def processor():
    """The name of this processor, with what the figures depend on, as far as Linux knows it."""
    information = Path("/proc/cpuinfo").read_text(encoding="utf-8")
    name = re.search(r"^model name\s*: (.*)", information, re.MULTILINE)
    facts = [name[1] if name else platform.machine(), f"{os.cpu_count()} cores"]
    cache = Path("/sys/devices/system/cpu/cpu0/cache/index2/size")
    if cache.exists():
        kib = cache.read_text(encoding="ascii").strip().removesuffix("K")
        facts.append(f"{kib} KiB of second-level cache each")
    return ", ".join(facts)


def print_heading(title, command, machine=""):
    """The first lines of a page: the command that prints it, and what was measured when."""
    origin = f"{machine and machine + '; '}commit {commit()}, {datetime.date.today()}"
    print(f"# {title}\n\n`{command}` prints this page: {origin}. {MEANING}\n")
