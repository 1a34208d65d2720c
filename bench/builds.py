"""Builds of the library for the scripts that examine what the compiler made of it."""
import os
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
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
