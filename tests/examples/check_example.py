#!/usr/bin/env python3
"""Runs an example program and checks its exit status, its errors and all of its output.

  check_example.py NAME COMMAND...
"""
import subprocess
import sys


def pgm(width, height, samples):
    return b"P5\n%d %d\n255\n" % (width, height) + bytes(samples)


def curve_in_place(run):
    samples = bytes(range(256))
    curve = [255 - (255 - i) * (255 - i) // 255 for i in samples]
    assert run(pgm(16, 16, samples)) == pgm(16, 16, curve)
    run(b"P6 1 1 255\nabc", 1, b"expected a binary PGM with maximum value 255\n")
    run(pgm(16, 17, samples), 1, b"the page ends early\n")


def reusable_buffer(run):
    expected = "".join(
        f"gray {v:3} became {min(v * 268 // 256, 255):3} {v:3} {v * 236 // 256:3}\n"
        for v in range(0, 200, 10))
    assert run() == expected.encode()


def rotate_bands(run):
    width, height = 620, 877
    turned = (0 if x < 20 else y * 255 // height for x in range(width) for y in reversed(range(height)))
    assert run() == pgm(height, width, turned)


def stamp(run):
    def sample(x, y):
        x, y = x - 230, y - 130
        inside = 0 <= x < 60 and 0 <= y < 60
        return 197 if inside and not (4 <= x < 56 and 4 <= y < 56) else 40

    assert run() == pgm(300, 200, (sample(x, y) for y in range(200) for x in range(300)))


def threads(run):
    assert run() == b"the last pixel is 80 161 240\n"


def main():
    name, *command = sys.argv[1:]

    def run(content=b"", status=0, errors=b""):
        done = subprocess.run(command, input=content, capture_output=True, timeout=60, check=False)
        assert (done.returncode, done.stderr) == (status, errors), done
        return done.stdout

    {f.__name__: f for f in (curve_in_place, reusable_buffer, rotate_bands, stamp, threads)}[name](run)


if __name__ == "__main__":
    main()
