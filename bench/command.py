#!/usr/bin/env python3
"""Times the command on a page of 600 dpi against cp and other tools that do something similar.

Every round runs each command once, in a folder in memory; what is told are medians: of the time's
ratio to that of cp in the same round, and of the most memory that its processes had, which run at
the same time. (The kernel counts pages in batches for each processor, so that figures of the same
work differ by 0.2 MiB.) Tools that are not there are left out. Prints a Markdown page.
"""

import argparse
import os
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from builds import ROOT, print_heading, processor

# What is done, then each tool's way to do the same, or nearly: {i} and {o} are files in and out.
WORK = {
    "tone curve": {
        "rast": "rast colgamma --curve gamma=1.8 {i} {o}",
        "netpbm": "pnmgamma 1.8 {i} > {o}",
        "GraphicsMagick": "gm convert {i} -gamma 1.8 {o}",
        "libvips": "vips gamma {i} {o} --exponent 1.8",
    },
    "saturation": {
        "rast": "rast satadjust --mode raise {i} {o}",
        "netpbm": "ppmbrighten -s 25 {i} > {o}",
        "GraphicsMagick": "gm convert {i} -modulate 100,125 {o}",
    },
    "color matrix": {
        "rast": "rast hueadjust --matrix sepia {i} {o}",
        "GraphicsMagick":
            "gm convert {i} -recolor '.393 .769 .189 .349 .686 .168 .272 .534 .131' {o}",
        "libvips": "vips recomb {i} {o} {m}",
    },
    "reduction to 50 %": {
        "rast": "rast zoom --percent 50 {i} {o}",
        "netpbm": "pamscale -reduce 2 -quiet {i} > {o}",
        "GraphicsMagick": "gm convert {i} -scale 50% {o}",
        "libvips": "vips shrink {i} {o} 2 2",
    },
    "quarter turn": {
        "rast": "rast rotate cw {i} {o}",
        "netpbm": "pamflip -rotate270 {i} > {o}",
        "GraphicsMagick": "gm convert {i} -rotate 90 {o}",
        "libvips": "vips rot {i} {o} d90",
    },
    "shift": {
        "rast": "rast shift --x 40 --y 20 {i} {o}",
        "netpbm": "pnmpad -left 40 -top 20 -white {i} > {o}",
        "GraphicsMagick": "gm convert {i} -background white -extent 4960x7016-40-20 {o}",
        "libvips": "vips embed {i} {o} 40 20 4960 7016 --extend white",
    },
    "saturation, curve and shift": {
        "rast": "rast chain 'satadjust raise : colgamma gamma=1.8 : shift x=40 y=20' {i} {o}",
        "netpbm": "ppmbrighten -s 25 {i} | pnmgamma 1.8 | "
                  "pnmpad -left 40 -top 20 -white > {o}",
        "GraphicsMagick":
            "gm convert {i} -modulate 100,125 -gamma 1.8 -background white -extent 4960x7016-40-20 {o}",
    },
}


def measure(command, environment, log):
    """Seconds, and the most KiB that the processes had, which only GNU time tells of them alone: a
    process begins with the figure of the one that it was forked from."""
    log.unlink(missing_ok=True)
    timed = " | ".join(
        f"time --format=%M --append --output={log} {stage}" for stage in command.split(" | ")
    )
    start = time.perf_counter()
    done = subprocess.run(["sh", "-c", timed], env=environment, stdout=subprocess.DEVNULL)
    if done.returncode != 0:
        sys.exit(f"failed: {command}")
    seconds = time.perf_counter() - start
    return seconds, sum(map(int, log.read_text(encoding="utf-8").split()))


def program(command):
    return command.split()[0]


def main():
    options = argparse.ArgumentParser(description=__doc__)
    options.add_argument("rast", type=Path, help="the command to be timed")
    options.add_argument("--rounds", type=int, default=9)
    options.add_argument("--folder", default="/dev/shm", help="in memory; default /dev/shm")
    options.add_argument("--page", type=Path, help="a PPM file; without it a page is drawn")
    chosen = options.parse_args()

    with tempfile.TemporaryDirectory(dir=chosen.folder) as folder:
        names = ("in.ppm", "out.ppm", "m.mat", "log")
        page, out, matrix, log = (Path(folder) / name for name in names)
        if chosen.page:
            shutil.copy(chosen.page, page)
        else:
            size = ("--width", "4960", "--height", "7016")
            subprocess.run([ROOT / "scripts/draw_page.py", *size, page], check=True)
        matrix.write_text("3 3\n.393 .769 .189\n.349 .686 .168\n.272 .534 .131\n")
        path = f"{chosen.rast.resolve().parent}:{os.environ['PATH']}"
        environment = os.environ | {"PATH": path, "TMPDIR": folder}
        rows = [("copy", "cp", f"cp {page} {out}")]
        for work, tools in WORK.items():
            for tool, command in tools.items():
                if shutil.which(program(command), path=path):
                    rows.append((work, tool, command.format(i=page, o=out, m=matrix)))
        times, memory = {}, {}
        for number in range(chosen.rounds + 1):  # the first one warms up
            for k, (work, tool, command) in enumerate(rows):
                if sys.stderr.isatty():
                    print(f"\rround {number} of {chosen.rounds}: {tool}, {work:<40}", end="",
                          file=sys.stderr)
                seconds, most = measure(command, environment, log)
                out.unlink(missing_ok=True)
                if number > 0:
                    times.setdefault(k, []).append(seconds)
                    memory.setdefault(k, []).append(most)
        if sys.stderr.isatty():
            print(file=sys.stderr)

    command = shlex.join(["bench/command.py", *sys.argv[1:]])
    print_heading("The command beside other tools", command, processor())
    print("| work | tool | time / cp | memory MiB |\n|---|---|---:|---:|")
    for k, (work, tool, _) in enumerate(rows):
        ratio = statistics.median(a / b for a, b in zip(times[k], times[0]))
        print(f"| {work} | {tool} | {ratio:.2f} | {statistics.median(memory[k]) / 1024:.1f} |")


if __name__ == "__main__":
    main()
