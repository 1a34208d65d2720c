"""End-to-end tests of the rast command; the environment variable RAST names the binary."""

import ctypes
import errno
import itertools
import json
import math
import os
import platform
import pty
import random
import re
import resource
import shlex
import shutil
import signal
import stat
import struct
import subprocess
import tempfile
import time
import unittest
import zlib
from pathlib import Path

RAST = os.path.abspath(os.environ.get("RAST", "rast"))
DONE, RUN_TIME, USAGE, DAMAGED, OUTPUT, UNSUPPORTED, MEMORY = range(7)
TROUBLE = 2  # every failure of compare
PARAMETERS = ("--threshold", "30", "--offset", "9", "--gain", "300")
SAME = ("--gain", "256")  # what expgamma does by itself, which is nothing


def curve(samples, threshold=30, offset=9, gain=300):
    return bytes(
        0 if x <= threshold else min(255, ((x - threshold) * gain >> 8) + offset) for x in samples
    )


def luma(rgb):
    return bytes(
        (299 * r + 587 * g + 114 * b + 500) // 1000
        for r, g, b in zip(rgb[0::3], rgb[1::3], rgb[2::3])
    )


def ramp(size):
    return bytes((i * 37 + i // 256) % 256 for i in range(size))


def pgm(width, height, samples):
    return b"P5\n%d %d\n255\n" % (width, height) + samples


def ppm(width, height, samples):
    return b"P6\n%d %d\n255\n" % (width, height) + samples


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(width, height, depth, color, rows, interlaced=0, before=b""):
    head = struct.pack(">IIBBBBB", width, height, depth, color, 0, 0, interlaced)
    lines = b"".join(b"\0" + row for row in rows)
    start = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + before
    return start + chunk(b"IDAT", zlib.compress(lines)) + chunk(b"IEND", b"")


def gray_png(width, height, samples):
    return png(width, height, 8, 0, [samples[i * width : (i + 1) * width] for i in range(height)])


def decode_gray_png(data):
    """Size and samples of an 8-bit gray PNG, by the five filter rules."""
    data, width, height, packed = data[8:], 0, 0, b""
    while data:
        size, kind = struct.unpack(">I4s", data[:8])
        body, data = data[8 : 8 + size], data[12 + size :]
        if kind == b"IHDR":
            width, height, depth, color = struct.unpack(">IIBB", body[:10])
            assert (depth, color) == (8, 0)
        elif kind == b"IDAT":
            packed += body
    lines, above, out = zlib.decompress(packed), bytes(width), b""
    for y in range(height):
        line = bytearray(lines[y * (width + 1) : (y + 1) * (width + 1)])
        rule = line.pop(0)
        for x in range(width):
            a, b, c = (line[x - 1] if x else 0), above[x], (above[x - 1] if x else 0)
            nearest = min((abs(b - c), 0, a), (abs(a - c), 1, b), (abs(a + b - 2 * c), 2, c))[2]
            line[x] = (line[x] + (0, a, b, (a + b) // 2, nearest)[rule]) % 256
        above, out = bytes(line), out + line
    return width, height, out


SIGNALS = [number for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT,
                                 signal.SIGXCPU, signal.SIGALRM)
           if signal.getsignal(number) != signal.SIG_IGN]
# The number of the system call, where it is known.
OPENAT = {"x86_64": 257, "aarch64": 56}.get(platform.machine())


def without_unnamed_files():
    """Before a program starts: a filter of the kernel makes open fail with O_TMPFILE."""
    set_no_new_privileges, set_seccomp, mode_filter = 38, 22, 2
    load, if_equal, if_set, end = 0x20, 0x15, 0x45, 0x06
    number, flags = 0, 32
    fail, allow = 0x00050000 | errno.EOPNOTSUPP, 0x7FFF0000
    rules = b"".join(struct.pack("HBBI", *rule) for rule in (
        (load, 0, 0, number), (if_equal, 0, 3, OPENAT),
        (load, 0, 0, flags), (if_set, 0, 1, os.O_TMPFILE & ~os.O_DIRECTORY),
        (end, 0, 0, fail), (end, 0, 0, allow),
    ))
    rules = ctypes.create_string_buffer(rules, len(rules))
    program = struct.pack("HxxxxxxP", len(rules) // 8, ctypes.addressof(rules))
    program = ctypes.create_string_buffer(program, len(program))
    prctl = ctypes.CDLL(None, use_errno=True).prctl
    for arguments in ((set_no_new_privileges, 1, 0, 0, 0),
                      (set_seccomp, mode_filter, ctypes.c_void_p(ctypes.addressof(program)))):
        if prctl(*arguments) != 0:
            raise OSError(ctypes.get_errno(), "prctl")


class RastTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def file(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def aside(self, name, content):
        """A file in a folder of its own."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        path = Path(folder.name) / name
        path.write_bytes(content)
        return path

    def run_rast(self, *arguments, **options):
        options.setdefault("stdin" if "input" not in options else "input", subprocess.DEVNULL)
        options.setdefault("stdout", subprocess.PIPE)
        return subprocess.run(
            [RAST, *map(str, arguments)], stderr=subprocess.PIPE, timeout=20, check=False, **options
        )

    def curve_of(self, content, *arguments):
        """Standard input to standard output, expected to succeed in silence."""
        done = self.run_rast("expgamma", *PARAMETERS, *arguments, input=content)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        return done.stdout

    def temporaries(self, process, folder=None):
        """Temporary files in the folder that the process has open, and their sizes."""
        folder, sizes = str(folder or self.folder), {}
        for link in Path(f"/proc/{process.pid}/fd").iterdir():
            try:
                parent, name = os.path.split(os.readlink(link))
                if parent == folder and (name.endswith(" (deleted)") or name.startswith(".rast-")):
                    sizes[link] = link.stat().st_size
            except FileNotFoundError:
                continue  # closed in the meantime
        return sizes

    def wait_for(self, condition):
        end = time.monotonic() + 10
        while not condition():
            self.assertLess(time.monotonic(), end, "waited in vain")
            time.sleep(0.002)

    def assert_fails(self, done, code, *words):
        text = done.stderr.decode()
        self.assertEqual(done.returncode, code, text)
        self.assertRegex(text, r"\Arast: [^\n]+\n\Z")
        for word in words:
            self.assertIn(word, text)

    def assert_same(self, actual, expected):
        """Without the comparison that assertEqual prints, which takes minutes for pages."""
        alike = len(os.path.commonprefix([actual, expected]))
        self.assertTrue(actual == expected, f"differs from byte {alike} on")

    def refuse(self, content, code, *words, operation="expgamma", arguments=()):
        """Refused with the code, the words in its message, and an existing output left alone; the
        message."""
        source, target = self.file("in", content), self.file("out.pgm", b"before")
        more = SAME if operation == "expgamma" else ()
        done = self.run_rast(operation, *more, *arguments, source, target)
        self.assert_fails(done, code, str(source), *words)
        self.assertEqual(target.read_bytes(), b"before")
        self.assertEqual(sorted(os.listdir(self.folder)), ["in", "out.pgm"])
        return done.stderr


class Usage(RastTest):
    def test_help_and_version(self):
        for arguments in (["--help"], ["-h"], ["help"]):
            done = self.run_rast(*arguments)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertIn(b"expgamma", done.stdout)
            for code in range(7):
                self.assertRegex(done.stdout, rb"\n  %d  \w" % code)
        for arguments in (["help", "expgamma"], ["expgamma", "--help"], ["expgamma", "x", "-h"]):
            done = self.run_rast(*arguments)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            for word in (b"--threshold", b"0..65535", b"default 256", b"1/256", b"BT.601"):
                self.assertIn(word, done.stdout)
        self.assertRegex(self.run_rast("--version").stdout, rb"\Arast \d+\.\d+\.\d+\n\Z")
        with open("/dev/full", "wb") as full:
            self.assert_fails(self.run_rast("--help", stdout=full), OUTPUT, "standard output")

    def test_other_commands(self):
        general = self.run_rast("--help").stdout.decode()
        for name, usage, words in (
            ("info", "[OPTION]... [IN]", ["--pages LIST", "--progress", "--json"]),
            (
                "compare", "[OPTION]... A B [DIFFERENCE]",
                ["--pages LIST", "--format", "--band", "--progress"],
            ),
            ("ops", "[OPTION]...", ["--json"]),
        ):
            self.assertIn(f" rast {name} {usage}\n", general)
            self.assertRegex(general, rf"\n  {name}  +\w")
            done = self.run_rast("help", name)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertEqual(self.run_rast(name, "--help").stdout, done.stdout)
            self.assertEqual(self.run_rast(name, "-h").stdout, done.stdout)
            text = done.stdout.decode()
            self.assertTrue(text.startswith(f"usage: rast {name} {usage}\n"))
            self.assertLessEqual(max(map(len, text.splitlines())), 100)
            for word in (*words, f"\nExample:\n  rast {name} ", "\nExit status:\n  0  "):
                self.assertIn(word, text)
            taken = {word.split()[0] for word in words}
            for option in {"--gray", "--progress", "--pages", "--json", "--format"} - taken:
                self.assertNotIn(f", {option}", text)

    def test_wrong_usage(self):
        for arguments, words in (
            (["inf"], ["did you mean 'info'?"]), (["compair"], ["did you mean 'compare'?"]),
            (["help", "oops"], ["did you mean 'ops'?"]),
            ([], ["no operation"]),
            (["expgama"], ["expgama", "did you mean 'expgamma'?"]),
            (["sharpen"], ["sharpen", "rast help"]),
            (["help", "expgama"], ["did you mean 'expgamma'?"]),
            (["--gray", "expgamma"], ["--gray", "before the operation"]),
            (["expgamma", "--treshold", "3"], ["--treshold", "did you mean '--threshold'?"]),
            (["expgamma", "--treshold=3"], ["did you mean '--threshold'?"]),
            (["expgamma", "--verbosity"], ["--verbosity", "rast help expgamma"]),
            (["expgamma", "--p"], ["ambiguous", "--pages or --progress"]),
            (["expgamma", "--p=1"], ["ambiguous", "--pages or --progress"]),
            (["expgamma", "-gx"], ["'-x'"]),
            (["expgamma", "-é"], ["unknown option"]),
            (["expgamma", "--gray=1"], ["takes no value"]),
            (["expgamma", "--gain"], ["--gain", "needs a value"]),
            (["expgamma", "-b"], ["-b", "needs a value"]),
            (["expgamma", "--format", "gif"], ["gif", "pnm, pbm, pam, png"]),
            (["expgamma", "a", "b", "c"], ["'c'"]),
            (["gray", "a", "b.jpg"], ["b.jpg", ".pgm"]),
        ):
            with self.subTest(arguments):
                self.assert_fails(self.run_rast(*arguments), USAGE, *words)

    def test_values(self):
        for option, high in (("threshold", 255), ("offset", 255), ("gain", 65535), ("band", 65536)):
            low = 1 if option == "band" else 0
            for value in (low, high):
                done = self.run_rast("expgamma", *SAME, f"--{option}={value}", input=pgm(1, 1, b"a"))
                self.assertEqual(done.returncode, DONE, done.stderr)
            for value in (low - 1, high + 1, 2**64, "", "1x", "0x1", " 1", "1.0", "+1", "many"):
                with self.subTest(option=option, value=value):
                    done = self.run_rast("expgamma", f"--{option}", value)
                    self.assert_fails(done, USAGE, f"--{option}", f"'{value}'", f"{low}..{high}")

    def test_message_stays_one_line(self):
        self.assert_fails(self.run_rast("expgamma", *SAME, "a\nb\x1b[31m"), RUN_TIME, "a?b?[31m")


class Curve(RastTest):
    def test_formula(self):
        for threshold, offset, gain in (
            (0, 0, 256), (0, 0, 0), (255, 255, 65535), (254, 255, 65535), (128, 7, 255), (0, 200, 1)
        ):
            with self.subTest(threshold=threshold, offset=offset, gain=gain):
                done = self.run_rast(
                    "expgamma", "--threshold", threshold, "--offset", offset, "--gain", gain,
                    input=pgm(256, 1, bytes(range(256))),
                )
                expected = pgm(256, 1, curve(range(256), threshold, offset, gain))
                self.assertEqual((done.returncode, done.stdout), (DONE, expected))

    def test_neutral_values_change_nothing(self):
        page = pgm(16, 16, bytes(range(256)))
        for value in ("--threshold=0", "--offset=0", "--gain=256"):
            self.assertEqual(self.run_rast("expgamma", value, input=page).stdout, page)

    def test_bands(self):
        gray, rgb = ramp(13 * 150), ramp(3 * 13 * 150)
        for lines in (1, 7, 64, 1000, 65536):
            with self.subTest(lines):
                done = self.curve_of(pgm(13, 150, gray), "--band", lines)
                self.assert_same(done, pgm(13, 150, curve(gray)))
                done = self.curve_of(ppm(13, 150, rgb), "--gray", "--band", lines)
                self.assert_same(done, pgm(13, 150, curve(luma(rgb))))
                done = self.curve_of(pgm(13, 150, gray), "--format", "png", "--band", lines)
                self.assertEqual(decode_gray_png(done), (13, 150, curve(gray)))

    def test_gray_weights(self):
        colors = bytes.fromhex("000000 ffffff ff0000 00ff00 0000ff 010101 7f8081 fe0102")
        done = self.run_rast("expgamma", *SAME, "--gray", input=ppm(8, 1, colors))
        self.assertEqual(done.stdout, pgm(8, 1, luma(colors)))
        self.assertEqual(luma(colors)[:5], bytes((0, 255, 76, 150, 29)))

    def test_gray_option_leaves_gray_alone(self):
        self.assertEqual(self.curve_of(pgm(2, 1, b"ab"), "-g"), pgm(2, 1, curve(b"ab")))

    def test_color_is_refused(self):
        self.refuse(ppm(1, 1, b"rgb"), UNSUPPORTED, "page 1", "color", "--gray")
        self.refuse(pgm(1, 1, b"a") + ppm(1, 1, b"rgb"), UNSUPPORTED, "page 2", "color", "--gray")


class Pnm(RastTest):
    def test_several_pages(self):
        pages = [(4, 3, ramp(12)), (1, 1, b"z"), (70, 130, ramp(9100))]
        expected = b"".join(pgm(w, h, curve(s)) for w, h, s in pages)
        self.assertEqual(self.curve_of(b"".join(pgm(*page) for page in pages)), expected)
        self.assertEqual(self.curve_of(b"\n \n".join(pgm(*p) for p in pages) + b"\r\n"), expected)

    def test_kinds_may_be_mixed(self):
        stream = pgm(2, 1, b"ab") + gray_png(2, 2, b"cdef") + ppm(1, 1, b"rgb")
        expected = pgm(2, 1, curve(b"ab")) + pgm(2, 2, curve(b"cdef"))
        expected += pgm(1, 1, curve(luma(b"rgb")))
        self.assertEqual(self.curve_of(stream, "--gray"), expected)

    def test_headers(self):
        expected = pgm(2, 2, curve(b"#\n 9"))
        for header in (
            b"P5 2 2 255 ",
            b"P5\r\n2\t2\v\f255\r",
            b"P5#\n2 2 255\n",
            b"P5 # 7 7\n# P6\r 2#\n\n2 # 9\n255\n",
            b"P5\n#\n#\n2 2\n255# last\n",
            b"P5 000000000000000000000002 2 0255\n",
        ):
            with self.subTest(header):
                self.assertEqual(self.curve_of(header + b"#\n 9"), expected)

    def test_truncated(self):
        header = b"P5\n# note\n4 3\n255\n"
        for size in range(len(header)):
            with self.subTest(size):
                self.refuse(header[:size], DAMAGED, "expected")
        for size, line in ((0, 1), (1, 1), (3, 1), (4, 2), (11, 3)):
            with self.subTest(size):
                self.refuse(header + ramp(size), DAMAGED, f"page 1, line {line}:", "ends early")
        self.refuse(header + ramp(11), DAMAGED, "line 3:", arguments=["--band", "1"])
        self.refuse(ppm(4, 3, ramp(35)), DAMAGED, "line 3:", arguments=["--gray"])

    def test_damaged_headers(self):
        for header, word in (
            (b"P5 x 1 255\n", "width"), (b"P5 -1 1 255\n", "width"), (b"P5 1x 1 255\n", "width"),
            (b"P5 1 1.5 255\n", "height"), (b"P5 1 1 m\n", "maximum"), (b"P5 1 1 255a", "maximum"),
            (b"P5x1 1 255\n", "P5"), (b"P51 1 255\n", "P5"),
            (b"P5 0 1 255\n", "size"), (b"P5 1 0 255\n", "size"),
            (b"P5 2147483648 1 255\n", "size"), (b"P5 1 %s 255\n" % (b"9" * 400), "size"),
            (b"P5 18446744073709551617 1 255\n", "size"),
            (b"P5 1 1 0\n", "maximum"), (b"P5 1 1 65536\n", "maximum"),
        ):
            with self.subTest(header):
                self.refuse(header + b"abc", DAMAGED, "page 1", word)

    def test_memory_cap(self):
        for header in (b"P5 2147483647 1 255\n", b"P6 1431655766 2 255\n", b"P5 134217729 1 255\n"):
            with self.subTest(header):
                self.refuse(header, MEMORY, "page 1", "251658240", arguments=["--gray"])
        for width, code in ((27962027, MEMORY), (27962026, DAMAGED)):
            head = b"P6 %d 1 255\n" % width
            self.refuse(head, code, "page 1", operation="binconv")
        self.refuse(b"P5 83886080 1 255\n", DAMAGED, "line 1")
        self.refuse(b"P5 83886081 1 255\n", MEMORY, "83886081 columns")
        self.refuse(b"P5 1000 2147483647 255\n", DAMAGED, "line 1", arguments=["-b", "65536"])

    def test_unsupported_kinds(self):
        for content, *words in (
            (b"P1\n1 1\n0\n", "P1", "ASCII", "P4 to P7"), (b"P2\n1 1\n255\n0\n", "P2", "ASCII"),
            (b"P3\n1 1\n255\n0 0 0\n", "P3", "ASCII"),
            (b"Pf\n1 1\n", "P4 to P7"), (b"GIF89a", "PNG"),
            (b"RIFF\x24\0\0\0WEBPVP8 ", "no known kind", "PNG"),
            (b"P5 1 1 15\n\0", "15", "255"), (b"P5 1 1 65535\n\0\0", "65535", "255"),
        ):
            with self.subTest(content):
                self.refuse(content, UNSUPPORTED, *words)

    def test_damage_after_a_good_page(self):
        good = pgm(2, 1, b"ab")
        self.refuse(good + good[:-1], DAMAGED, "page 2, line 1:")
        self.refuse(good + b"P5\n2", DAMAGED, "page 2:")
        self.refuse(good + b"P9\n", DAMAGED, "page 2:")
        for rest in (b"x", b"\n\0", b"\n# note\n", b"255"):
            with self.subTest(rest):
                self.refuse(good + rest, DAMAGED, "page 1:", "not an image")

    def test_empty(self):
        self.refuse(b"", DAMAGED, "empty")
        self.assert_fails(self.run_rast("expgamma", *SAME), DAMAGED, "standard input", "empty")


class Png(RastTest):
    def test_gray_depths(self):
        for depth in (1, 2, 4, 8):
            with self.subTest(depth):
                samples = bytes(i % 2**depth for i in ramp(8 * 5))
                bits = "".join(f"{s:0{depth}b}" for s in samples)
                packed = int(bits, 2).to_bytes(5 * depth, "big")
                rows = [packed[i * depth : (i + 1) * depth] for i in range(5)]
                expected = curve(s * 255 // (2**depth - 1) for s in samples)
                self.assertEqual(self.curve_of(png(8, 5, depth, 0, rows)), pgm(8, 5, expected))

    def test_color_kinds(self):
        rgb = ramp(3 * 6)
        image = png(3, 2, 8, 2, [rgb[:9], rgb[9:]])
        self.assertEqual(self.curve_of(image, "--gray"), pgm(3, 2, curve(luma(rgb))))
        self.refuse(image, UNSUPPORTED, "page 1", "color", "--gray")
        palette = bytes((10, 20, 30, 200, 100, 50, 90, 80, 250, 255, 255, 255))
        image = png(4, 1, 2, 3, [b"\x1b"], before=chunk(b"PLTE", palette))
        self.assertEqual(self.curve_of(image, "--gray"), pgm(4, 1, curve(luma(palette))))
        self.refuse(image, UNSUPPORTED, "color", "--gray")

    def test_refused_kinds(self):
        gray_alpha, rgb_alpha = png(1, 1, 8, 4, [b"aA"]), png(1, 1, 8, 6, [b"rgbA"])
        transparent = png(1, 1, 8, 0, [b"a"], before=chunk(b"tRNS", b"\0a"))
        for image, *words in (
            (png(1, 1, 8, 0, [b"a"], interlaced=1), "interlaced"),
            (png(1, 1, 16, 0, [b"ab"]), "16-bit", "8 bits"),
            (png(1, 1, 16, 2, [b"rrggbb"]), "16-bit"),
            (gray_alpha, "transparency", "flatten"),
            (rgb_alpha, "transparency"),
            (transparent, "transparency"),
        ):
            with self.subTest(words):
                self.refuse(image, UNSUPPORTED, "page 1", *words, arguments=["--gray"])

    def test_damaged(self):
        image = gray_png(5, 4, ramp(20))
        body = len(image) - 16  # in the check sum of the image data
        for size in (1, 4, 8, 20, 33, 45, body, len(image) - 1):
            with self.subTest(size):
                self.refuse(image[:size], DAMAGED, "page 1", "ends early")
        for place in (1, 17, 30, 45, body, len(image) - 1):
            with self.subTest(place):
                broken = bytearray(image)
                broken[place] ^= 0x40
                self.refuse(bytes(broken), DAMAGED, "page 1", "PNG")
        note = chunk(b"tEXt", b"a\0b")[:-1] + b"\0"
        self.refuse(png(1, 1, 8, 0, [b"a"], before=note), DAMAGED, "CRC")
        self.refuse(png(5, 4, 8, 0, [bytes(5)] * 3), DAMAGED, "line 4")
        self.refuse(png(1, 1, 8, 3, [b"a"]), DAMAGED, "PNG")
        self.refuse(png(0, 1, 8, 0, [b""]), DAMAGED, "PNG")
        self.refuse(image + b"x", DAMAGED, "not an image")

    def test_sizes(self):
        self.refuse(png(2**31 - 1, 1, 8, 0, [b""]), MEMORY, "251658240")
        self.refuse(png(2**28, 1, 8, 2, [b""]), MEMORY, "251658240")
        self.refuse(png(2**31, 1, 8, 0, [b""]), DAMAGED, "PNG")

    def test_written(self):
        samples = ramp(31 * 90)
        source, target = self.file("in.pgm", pgm(31, 90, samples)), self.folder / "out.PNG"
        done = self.run_rast("expgamma", *PARAMETERS, source, target)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (DONE, b"", b""))
        self.assertEqual(decode_gray_png(target.read_bytes()), (31, 90, curve(samples)))

    def test_holds_one_page(self):
        source, target = self.file("in.pgm", pgm(1, 1, b"a") * 2), self.folder / "out.png"
        done = self.run_rast("expgamma", *SAME, source, target)
        self.assert_fails(done, UNSUPPORTED, str(target), "one page")
        self.assertEqual(os.listdir(self.folder), ["in.pgm"])


class Files(RastTest):
    def setUp(self):
        super().setUp()
        self.source = self.file("in.pgm", pgm(40, 200, ramp(8000)))
        self.expected = pgm(40, 200, curve(ramp(8000)))

    def apply(self, *arguments, **options):
        return self.run_rast("expgamma", *PARAMETERS, *arguments, **options)

    def test_names(self):
        for name in ("out.pgm", "out.ppm", "out.pnm", "out", "x" * 250 + ".pgm"):
            self.assertEqual(self.apply(self.source, self.folder / name).returncode, DONE)
            self.assert_same((self.folder / name).read_bytes(), self.expected)
        self.assertEqual(self.apply("in.pgm", "here.pgm", cwd=self.folder).returncode, DONE)
        self.assert_same((self.folder / "here.pgm").read_bytes(), self.expected)
        self.assert_same(self.apply(self.source, "-").stdout, self.expected)
        content = self.source.read_bytes()
        self.assertEqual(self.apply("-", self.folder / "out.pgm", input=content).stdout, b"")
        self.assert_same((self.folder / "out.pgm").read_bytes(), self.expected)
        self.assertFalse([name for name in os.listdir(self.folder) if name.startswith(".")])

    def test_in_place(self):
        self.assertEqual(self.apply(self.source, self.source).returncode, DONE)
        self.assert_same(self.source.read_bytes(), self.expected)

    def test_link_is_followed(self):
        link = self.folder / "link.pgm"
        link.symlink_to("in.pgm")
        self.assertEqual(self.apply(link, link).returncode, DONE)
        self.assertTrue(link.is_symlink())
        self.assert_same(self.source.read_bytes(), self.expected)
        link.unlink()
        link.symlink_to("nowhere.pgm")
        self.assert_fails(self.apply(self.source, link), OUTPUT, str(link), "symbolic link")

    def test_temporary_names_that_are_taken(self):
        for arguments in (["colgamma", "--curve", "invert"], ["rotate", "cw"]):
            with self.subTest(arguments):
                done = subprocess.run(
                    ["sh", "-c", 'echo mine > .rast-$$-0; ln -s victim .rast-$$-1; exec "$@"', "sh",
                     RAST, *arguments, self.source, "out.pgm"],
                    cwd=self.folder, env=os.environ | {"TMPDIR": str(self.folder)}, check=False,
                )
                self.assertEqual(done.returncode, DONE)
                taken = sorted(self.folder.glob(".rast-*"))
                self.assertEqual(len(taken), 2)
                self.assertEqual(taken[0].read_bytes(), b"mine\n")
                self.assertTrue(taken[1].is_symlink())
                self.assertEqual(
                    {path.name for path in self.folder.iterdir()} - {path.name for path in taken},
                    {"in.pgm", "out.pgm"},
                )
                for path in taken:
                    path.unlink()

    def test_modes(self):
        target = self.folder / "out.pgm"
        self.apply(self.source, target, umask=0o027)
        self.assertEqual(stat.S_IMODE(target.stat().st_mode), 0o640)
        target.chmod(0o604)
        self.apply(self.source, target)
        self.assertEqual(stat.S_IMODE(target.stat().st_mode), 0o604)

    def test_inputs_that_cannot_be_read(self):
        target = self.folder / "out.pgm"
        for source in (self.folder / "missing.pgm", self.folder):
            self.assert_fails(self.apply(source, target), RUN_TIME, str(source))
        self.assertFalse(target.exists())

    def test_outputs_that_cannot_be_written(self):
        for target in ("/dev/full", self.folder, self.folder / "missing" / "out.pgm"):
            for more in ((), ("--format", "png"), ("--band", "1")):
                done = self.apply(*more, self.source, target)
                self.assert_fails(done, OUTPUT, str(target), "cannot be written")
        with open("/dev/full", "wb") as full:
            self.assert_fails(self.apply(self.source, stdout=full), OUTPUT, "standard output")
        self.assertEqual(os.listdir(self.folder), ["in.pgm"])

    def test_the_first_failure_is_told(self):
        """Lines that fail to be written come before those that fail to be read meanwhile."""
        page = png(700, 600, 8, 0, [random.Random(y).randbytes(700) for y in range(600)])
        cut = self.file("cut.png", page[:-9000])
        for _ in range(20):
            done = self.apply("--format", "png", "--band", "200", cut, "/dev/full")
            self.assert_fails(done, OUTPUT, "/dev/full", "cannot be written")

    def test_closed_pipe(self):
        for more in ((), ("--format", "png")):
            reader, writer = os.pipe()
            os.close(reader)
            self.assert_fails(self.apply(*more, self.source, stdout=writer), OUTPUT, "Broken pipe")
            os.close(writer)

    def test_closed_descriptors(self):
        """A descriptor closed by the caller never becomes the output file."""
        target = self.folder / "out.pgm"
        command = f"'{RAST}' expgamma --gain=256 {' '.join(PARAMETERS)} '{self.source}'"
        shell = lambda line: subprocess.run(["sh", "-c", line], check=False).returncode
        self.assertEqual(shell(f"{command} '{target}' <&- >&- 2>&-"), DONE)
        self.assert_same(target.read_bytes(), self.expected)
        self.assertEqual(shell(f"{command} >&- 2>/dev/null"), OUTPUT)
        self.assertEqual(shell(f"'{RAST}' expgamma --gain=256 <&- 2>/dev/null"), RUN_TIME)

    def test_pipes_are_written_straight(self):
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        with subprocess.Popen(["cat", fifo], stdout=subprocess.PIPE) as cat:
            self.assertEqual(self.apply(self.source, fifo).returncode, DONE)
            self.assert_same(cat.communicate()[0], self.expected)
        self.assertTrue(fifo.is_fifo())
        self.assertEqual(self.apply(self.source, "/dev/null").returncode, DONE)
        self.assert_same(self.apply(self.source, "/dev/stdout").stdout, self.expected)

    def test_file_size_limit(self):
        done = subprocess.run(
            ["sh", "-c", f"ulimit -f 1; exec '{RAST}' expgamma --gain=256 in.pgm out.pgm"],
            cwd=self.folder, stderr=subprocess.PIPE, check=False,
        )
        self.assert_fails(done, OUTPUT, "out.pgm", "File too large")
        self.assertEqual(os.listdir(self.folder), ["in.pgm"])

    def start_half(self, *arguments, **options):
        """A process that waits for the second half of its page."""
        command = [RAST, "expgamma", *PARAMETERS, "-b", "1", "-", *map(str, arguments)]
        process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stderr=subprocess.PIPE, **options
        )
        process.stdin.write(pgm(1000, 64000, bytes(32_000_000)))
        process.stdin.flush()
        return process

    def check_signals(self, numbers, named, *arguments, before_start=lambda: None):
        """Files that are left aside, by name or without, when a signal ends the command."""

        def prepare():
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            before_start()

        target = self.folder / "out.pgm"
        for number, before in itertools.product(numbers, (None, b"before")):
            if before:
                target.write_bytes(before)
            names = sorted(os.listdir(self.folder))
            with self.subTest(number=number, before=before), self.start_half(
                target, preexec_fn=prepare
            ) as process:
                self.wait_for(lambda: self.temporaries(process))
                self.assertEqual(len(os.listdir(self.folder)), len(names) + named)
                process.send_signal(number)
                self.assertEqual(process.wait(), -number)
                self.assertEqual(sorted(os.listdir(self.folder)), names)
                process.stdin.close()
            if before:
                self.assertEqual(target.read_bytes(), before)
                target.unlink()

    def test_signals_leave_nothing(self):
        try:
            os.close(os.open(self.folder, os.O_TMPFILE | os.O_RDWR))
        except OSError:
            self.skipTest("needs a file system that has files without names")
        self.check_signals([*SIGNALS, signal.SIGKILL], 0)

    @unittest.skipUnless(OPENAT, "needs a machine whose system calls are known here")
    def test_signals_leave_nothing_without_unnamed_files(self):
        self.check_signals(SIGNALS, 1, before_start=without_unnamed_files)

    @unittest.skipUnless(OPENAT, "needs a machine whose system calls are known here")
    def test_without_unnamed_files(self):
        target = self.folder / "out.pgm"
        environment = os.environ | {"TMPDIR": str(self.folder)}
        for _ in range(2):
            done = self.apply(self.source, target, preexec_fn=without_unnamed_files)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assert_same(target.read_bytes(), self.expected)
            done = self.run_rast("chain", "rotate cw : rotate ccw", target, target,
                                 preexec_fn=without_unnamed_files, env=environment)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assert_same(target.read_bytes(), self.expected)
            self.assertEqual(sorted(os.listdir(self.folder)), ["in.pgm", "out.pgm"])

    def test_files_that_appear_meanwhile(self):
        """They are replaced too."""
        target = self.folder / "out.pgm"
        with self.start_half(target) as process:
            self.wait_for(lambda: self.temporaries(process))
            target.write_bytes(b"other")
            process.stdin.write(bytes(32_000_000))
            process.stdin.close()
            self.assertEqual((process.wait(), process.stderr.read()), (DONE, b""))
        self.assert_same(target.read_bytes(), pgm(1000, 64000, bytes(64_000_000)))
        self.assertEqual(sorted(os.listdir(self.folder)), ["in.pgm", "out.pgm"])

    @unittest.skipUnless(os.geteuid() == 0, "needs the right to change owners")
    def test_owner_is_kept(self):
        target = self.file("out.pgm", b"before")
        for mode, becomes in ((0o640, 0o640), (0o4775, 0o775), (0o2606, 0o606)):
            os.chown(target, 1234, 5678)
            target.chmod(mode)
            self.assertEqual(self.apply(self.source, target).returncode, DONE)
            after = target.stat()
            self.assertEqual((after.st_uid, after.st_gid), (1234, 5678))
            self.assertEqual(oct(stat.S_IMODE(after.st_mode)), oct(becomes))

    @unittest.skipUnless(os.geteuid() == 0, "needs the right to change owners")
    def test_owner_that_cannot_be_kept(self):
        """Where the group is another, nobody gets access who did not have it."""
        target = self.folder / "out.pgm"
        self.folder.chmod(0o777)
        for mode, groups, group, becomes in (
            (0o662, [], 9, 0o622), (0o646, [], 9, 0o644), (0o666, [], 9, 0o666),
            (0o660, [5678], 5678, 0o660), (0o626, [5678], 5678, 0o626),
        ):
            with self.subTest(mode=oct(mode), groups=groups):
                target.write_bytes(b"before")
                os.chown(target, 1111, 5678)
                target.chmod(mode)
                try:
                    done = self.apply("-", target, input=self.source.read_bytes(),
                                      user=1234, group=9, extra_groups=groups)
                except PermissionError:
                    self.skipTest("needs a command that other users can start")
                self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                after = target.stat()
                self.assertEqual((after.st_uid, after.st_gid), (1234, group))
                self.assertEqual(oct(stat.S_IMODE(after.st_mode)), oct(becomes))
                target.unlink()

    def test_memory_is_flat(self):
        with self.start_half("/dev/null") as process:
            lines = Path(f"/proc/{process.pid}/status").read_text().splitlines()
            peak = next(int(line.split()[1]) for line in lines if line.startswith("VmHWM"))
            process.kill()
            self.assertLess(peak, 28_000)

    def test_progress(self):
        pages = self.source.read_bytes() * 2
        for more in ((), ("--quiet",), ("--progress", "--quiet")):
            self.assertEqual(self.apply(*more, input=pages).stderr, b"")
        done = self.apply("--progress", input=pages)
        self.assertEqual(done.returncode, DONE)
        self.assert_same(done.stdout, self.expected * 2)
        for words in (b"\rpage 1: 100%, ", b"\rpage 2: 100%, ", b" MB/s"):
            self.assertIn(words, done.stderr)
        self.assertRegex(done.stderr, rb"\r +\r2 pages done\n\Z")
        self.assertEqual(done.stderr.count(b"\n"), 1)
        done = self.apply("--progress", input=pages[:-1])
        self.assertRegex(done.stderr, rb"\r +\rrast: [^\r\n]+ page 2, line 200: [^\r\n]+\n\Z")

    def test_progress_of_a_file(self):
        job = self.file("job.pgm", self.source.read_bytes() * 4)
        done = self.run_rast("expgamma", *PARAMETERS, "--gray", "-p", job, "/dev/null")
        lines = re.findall(rb"\r(page[^\r]+)", done.stderr)
        self.assertGreaterEqual(len(lines), 4)
        for k, percent in ((1, 25), (2, 50), (3, 75), (4, 100)):
            shown = rb"page %d: +%d%%, \d+ MB/s, \d+ s left *" % (k, percent)
            self.assertTrue(any(re.fullmatch(shown, line) for line in lines), lines)
        done = self.run_rast("expgamma", *SAME, "--gray", "-p", "-P", "2-3", job, "/dev/null")
        self.assertIn(b"\rpage 2 of 2:  75%, ", done.stderr)
        self.assertTrue(done.stderr.endswith(b"2 pages done\n"))

    def test_progress_as_json(self):
        pages = self.source.read_bytes() * 2
        done = self.apply("--progress=json", input=pages)
        lines = [json.loads(line) for line in done.stderr.splitlines()]
        self.assertEqual(lines[-1], {"done": True, "pages": 2})
        self.assertIn((2, 100), [(line["page"], line["percent"]) for line in lines[:-1]])
        for line in lines[:-1]:
            self.assertLessEqual(
                set(line), {"page", "pages", "percent", "megabytes_per_second", "seconds_left"}
            )
        done = self.apply("--progress=xml", input=pages)
        self.assert_fails(done, USAGE, "--progress", "xml", "json")

    def test_stats(self):
        done = self.apply("--stats", input=self.source.read_bytes() * 2)
        size = 2 * len(self.expected.split(b"\n255\n", 1)[1])
        self.assertRegex(
            done.stderr.decode(),
            rf"\Apages: 2\nsample bytes: {size} read, {size} written\n"
            r"seconds: [\d.]+ in all, [\d.]+ in the library, [\d.]+ in files\n"
            r"peak memory: \d+ KiB\n\Z",
        )


def lines_of(components, width, height, samples):
    """Lists of pixels, which are tuples."""
    pixels = list(zip(*[iter(samples)] * components))
    return [pixels[y * width : (y + 1) * width] for y in range(height)]


def image_of(lines):
    write = pgm if len(lines[0][0]) == 1 else ppm
    samples = bytes(itertools.chain.from_iterable(itertools.chain.from_iterable(lines)))
    return write(len(lines[0]), len(lines), samples)


def random_lines(components, width, height, seed=7):
    samples = random.Random(seed).randbytes(width * height * components)
    return lines_of(components, width, height, samples)


def clamp(value):
    return max(0, min(255, value))


def tone_model(table):
    return lambda line: [tuple(table[x] for x in pixel) for pixel in line]


def gamma_table(gamma):
    return [math.floor(255 * (i / 255) ** (1 / gamma) + 0.5) for i in range(256)]


def saturation_model(quarters):
    """The distance to the gray level becomes this many quarters of what it was."""

    def adjusted(pixel):
        gray = (70 * pixel[0] + 150 * pixel[1] + 29 * pixel[2]) >> 8
        return tuple(clamp(gray + math.trunc((c - gray) * quarters / 4)) for c in pixel)

    def model(line):
        whole = len(line) // 4 * 4
        groups = [line[x : x + 4][::-1] for x in range(0, whole, 4)] + [line[whole:]]
        return [adjusted(pixel) for group in groups for pixel in group]

    return model


def matrix_model(numbers, reverse=False, mirror=False):
    rows = [numbers[0:5], numbers[5:10], numbers[10:15]]

    def component(pixel, row):
        total = sum((c + rows[j][3]) * row[j] for j, c in enumerate(pixel))
        wrapped = (total + 2**31) % 2**32 - 2**31
        value = clamp(math.trunc(wrapped / 256) + row[4])
        return 255 - value if reverse else value

    def model(line):
        out = [tuple(component(pixel, row) for row in rows[: len(pixel)]) for pixel in line]
        return out[::-1] if mirror else out

    return model


def rotation_matrix(degrees):
    """Without the rounding: rows of floating-point weights."""
    c, s = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))
    luma_weights = (0.213, 0.715, 0.072)
    cosines = ((0.787, -0.715, -0.072), (-0.213, 0.285, -0.072), (-0.213, -0.715, 0.928))
    sines = ((-0.213, -0.715, 0.928), (0.143, 0.140, -0.283), (-0.787, 0.715, 0.072))
    return [
        [luma_weights[j] + c * cosines[k][j] + s * sines[k][j] for j in range(3)] for k in range(3)
    ]


def balance_model(curves):
    """Curves of red, green, blue and the gray part."""

    def balanced(pixel):
        gray = min(pixel)
        k = curves[3][gray]
        above = [min(255, (c - gray) * 256 // (255 - gray)) if gray < 255 else 255 for c in pixel]
        return tuple(((255 - k) * curves[j][x] >> 8) + k for j, x in enumerate(above))

    return lambda line: [balanced(pixel) for pixel in line]


class Operation(RastTest):
    """Base: a stream of pages, in several band sizes, against a model of what becomes of a line."""

    SIZES = ((13, 70), (67, 9), (3, 2), (1, 1), (130, 3))

    def pages(self, components):
        source = random.Random(components)
        for width, height in self.SIZES:
            samples = bytearray(source.randbytes(width * height * components))
            samples[:components] = samples[:1] * components  # a neutral pixel
            samples[-1] = 0
            yield width, height, bytes(samples)

    def apply(self, *arguments, page):
        done = self.run_rast(*arguments, input=page)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        return done.stdout

    def check(self, model, *arguments, **more):
        self.check_pages(lambda lines: [model(line) for line in lines], *arguments, **more)

    def check_pages(self, model, *arguments, kinds=(1, 3), bands=(1, 7, 64)):
        """The model makes lines of lines."""
        for components in kinds:
            stream, expected = b"", b""
            for page in self.pages(components):
                lines = lines_of(components, *page)
                stream += image_of(lines)
                expected += image_of(model(lines))
            for band in bands:
                with self.subTest(arguments=arguments, components=components, band=band):
                    done = self.run_rast(*arguments, "--band", band, input=stream)
                    self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                    self.assert_same(done.stdout, expected)

    def refuse_values(self, operation, option, *values):
        for value, *words in values:
            with self.subTest(operation=operation, option=option, value=value):
                done = self.run_rast(operation, f"--{option}", value)
                self.assert_fails(done, USAGE, f"--{option}", str(value).split("=")[-1][:100], *words)


class EveryOperation(Operation):
    def operations(self):
        text = self.run_rast("help").stdout.decode()
        return re.findall(r"^  (\w+) .*\((.*) pages\)$", text, re.MULTILINE)

    def test_list(self):
        names = [name for name, _ in self.operations()]
        expected = ["expgamma", "colgamma", "binconv", "satadjust", "hueadjust", "colbalance"]
        expected += ["overlay", "overlayrgb", "rotate", "zoom", "shift", "gray"]
        self.assertEqual(names, expected)

    def test_help_and_its_example(self):
        command = self.folder / "bin" / "rast"
        command.parent.mkdir()
        command.symlink_to(RAST)
        path = {"PATH": f"{command.parent}:{os.environ['PATH']}"}
        self.file("in.pgm", pgm(9, 5, ramp(45)))
        self.file("in.ppm", ppm(9, 5, ramp(135)))
        self.file("logo.ppm", ppm(4, 3, ramp(36)[::-1]))
        sizes = {"rotate": b"5 9", "zoom": b"5 3"}
        for name, _ in self.operations():
            with self.subTest(name):
                done = self.run_rast(name, "--help")
                self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                text = done.stdout.decode()
                self.assertLessEqual(max(map(len, text.splitlines())), 100)
                example = re.search(r"^Example:\n  (rast .*)$", text, re.MULTILINE)[1]
                self.assertTrue(example.startswith(f"rast {name} "))
                target = self.folder / shlex.split(example)[-1]
                done = subprocess.run(
                    example, shell=True, cwd=self.folder, env=os.environ | path, check=False,
                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                )
                self.assertEqual((done.returncode, done.stdout), (DONE, b""))
                size = sizes.get(name, b"9 5")
                self.assertRegex(target.read_bytes(), rb"\AP[56]\n%s\n255\n" % size)
                self.assertNotEqual(target.read_bytes(), target.with_stem("in").read_bytes())
                target.unlink()

    def test_color_operations_refuse_gray(self):
        logo = self.aside("logo.ppm", ppm(1, 1, b"rgb"))
        for name, takes in self.operations():
            if takes != "color":
                continue
            more = {"satadjust": ["--mode", "raise"], "overlayrgb": ["--with", logo],
                    "colbalance": ["--curve", "4"]}.get(name, [])
            gray, words = pgm(1, 1, b"a"), (name, "color pages only", "is gray")
            for content, page in ((gray, 1), (ppm(1, 1, b"rgb") + gray, 2)):
                self.refuse(
                    content, UNSUPPORTED, f"page {page}:", *words, operation=name, arguments=more
                )
            done = self.run_rast(name, *more, "--gray")
            self.assert_fails(done, USAGE, "--gray", name, "color pages only")
            self.assertNotIn(b"--gray", self.run_rast(name, "--help").stdout)

    def test_required_parameters(self):
        for name, option in (
            ("colgamma", "--curve"), ("satadjust", "--mode"), ("overlay", "--with"),
            ("overlayrgb", "--with"), ("rotate", "--turn"),
        ):
            self.assert_fails(self.run_rast(name), USAGE, option, "missing", f"rast help {name}")

    def test_close_names(self):
        for arguments, word in (
            (["colbalnce"], "colbalance"), (["colgamma", "--crve", "x"], "--curve"),
            (["hueadjust", "--miror"], "--mirror"), (["hueadjust", "--matrix", "sepai"], "sepia"),
            (["colgamma", "--curve", "inverted"], "invert"),
        ):
            with self.subTest(arguments):
                self.assert_fails(self.run_rast(*arguments), USAGE, f"did you mean '{word}'?")

    def test_flags_take_no_value(self):
        for option in ("--reverse=1", "--mirror="):
            self.assert_fails(self.run_rast("hueadjust", option), USAGE, "takes no value")

    def test_color_png(self):
        for width, height, samples in self.pages(3):
            page = ppm(width, height, samples)
            packed = self.apply("hueadjust", "--matrix=identity", "--format", "png", page=page)
            self.assertEqual(packed[:4], b"\x89PNG")
            self.assert_same(self.apply("hueadjust", "--matrix=identity", page=packed), page)


class ColGamma(Operation):
    def test_formulas(self):
        self.check(tone_model(range(255, -1, -1)), "colgamma", "--curve", "invert")
        for text in ("2.2", "0.1", "10", "1", ".45", "3.", f"2.2{0:040}", "0." + "3" * 400):
            self.check(tone_model(gamma_table(float(text))), "colgamma", "--curve", f"gamma={text}")
        for gamma in [n / 37 for n in range(4, 370)] + [0.1 + 1e-15, 1 - 1e-15]:
            done = self.run_rast(
                "colgamma", "--curve", f"gamma={gamma}", input=pgm(256, 1, bytes(range(256)))
            )
            self.assert_same(done.stdout, pgm(256, 1, bytes(gamma_table(gamma))))

    def test_file(self):
        table = random.Random(1).choices(range(256), k=256)
        rows = [", ".join(map(str, table[i : i + 16])) for i in range(0, 256, 16)]
        for between, after in (("\n", "\n"), ("\r\n", "\t"), (",", ""), ("# 1 # 3\n#\n", "#4")):
            path = self.file("curve.txt", (between.join(rows) + after).encode())
            self.check(tone_model(table), "colgamma", "--curve", path, kinds=[1])
        self.check(tone_model(table), "colgamma", "--curve", path, kinds=[3])
        for name in ("invert", "gamma=1"):
            self.file(name, path.read_bytes())
            done = self.run_rast(
                "colgamma", "--curve", f"./{name}", input=pgm(1, 1, b"\7"), cwd=self.folder
            )
            self.assertEqual(done.stdout, pgm(1, 1, bytes(table[7:8])))

    def test_files_that_are_refused(self):
        numbers = b"0\n" * 100 + b"7 " * 100
        for content, *words in (
            (b"", "holds 0 numbers", "256"),
            (b"# 1 2 3", "holds 0 numbers"),
            (numbers + b"9 " * 55, "holds 255 numbers", "expected 256"),
            (numbers + b"9 " * 56 + b"\n8", "line 102", "'8'", "256"),
            (numbers + b"256 " * 56, "line 101", "'256' is out of range", "0..255"),
            (numbers + b"-1 " * 56, "line 101", "'-1' is out of range"),
            (b"\n1\n# note\n2 1.5", "line 4", "'1.5' is no whole number"),
            (b"1;2", "line 1", "'1;2'"), (b"\0", "line 1"), (b"0" * 5000, "line 1"),
            (b"99999999999999999999 ", "out of range"), (pgm(2, 1, b"ab"), "line 1", "'P5'"),
        ):
            with self.subTest(words):
                path = self.file("curve.txt", content)
                done = self.run_rast("colgamma", "--curve", path, "in", "out.pgm")
                self.assert_fails(done, USAGE, "--curve", str(path), *words)
        missing = self.folder / "missing"
        for path, word in ((missing, "No such file"), (self.folder, "cannot be read")):
            self.assert_fails(self.run_rast("colgamma", "--curve", path), USAGE, str(path), word)
        self.assertEqual(os.listdir(self.folder), ["curve.txt"])

    def test_values(self):
        bad = ["0.09", "10.1", "0", "-1", "-.5", "9" * 400, "0." + "0" * 400 + "1"]
        words = ("out of range", "0.1..10")
        self.refuse_values("colgamma", "curve", *((f"gamma={g}", *words) for g in bad))
        bad = ["", "x", "1x", "2,2", " 1", "+1", ".", "-", "-.", ".-5", "1.-5", "1.2.3", "1e1", "0x1",
               "nan", "inf", "1e999", "0" * 500 + "x"]
        words = ("no decimal number", "0.1..10")
        self.refuse_values("colgamma", "curve", *((f"gamma={g}", *words) for g in bad))
        self.refuse_values("colgamma", "curve", ("", "cannot be opened", "FILE|invert|gamma=G"))


class BinConv(Operation):
    PLANES = ((0,), (1,), (2,), (1, 2), (0, 2), (0, 1))

    def ink(self, width, height, samples):
        out = self.apply("binconv", page=ppm(width, height, samples))
        return out[-width * height * 3 :: 3]

    def test_ink(self):
        for size in self.pages(3):
            samples = size[2]
            for ink, pixel in zip(self.ink(*size), zip(*[iter(samples)] * 3)):
                luminance = (77 * pixel[0] + 150 * pixel[1] + 29 * pixel[2]) >> 8
                most = max(0, luminance - 30)
                if len(set(pixel)) == 1:
                    self.assertEqual(ink, 0)
                elif min(pixel) == 0:  # fully saturated
                    self.assertEqual(ink, most)
                else:
                    self.assertLessEqual(ink, most)

    def test_planes(self):
        known = {}
        for size in self.pages(3):
            known.update(zip(zip(*[iter(size[2])] * 3), self.ink(*size)))
        for color, planes in enumerate(self.PLANES):
            fed = [int(c in planes) for c in range(3)]
            model = lambda line: [tuple(known[pixel] * f for f in fed) for pixel in line]
            self.check(model, "binconv", "--color", color, kinds=[3])

    def test_values(self):
        self.refuse_values("binconv", "color", (-1, "0..5"), (6, "0..5"), ("red", "0..5"))


class SatAdjust(Operation):
    def test_modes(self):
        for mode, quarters in (("lower", 3), ("raise", 5)):
            self.check(saturation_model(quarters), "satadjust", "--mode", mode, kinds=[3])

    def test_value_before_the_files(self):
        """As a chain spells it: the value of the first parameter, then IN and OUT."""
        page = ppm(5, 3, ramp(45))
        source, target = self.file("in.ppm", page), self.folder / "out.ppm"
        curve = self.file("curve", " ".join(str(255 - x) for x in range(256)).encode())
        for operation, value, option in (
            ("satadjust", "raise", "--mode=raise"), ("colgamma", "invert", "--curve=invert"),
            ("colgamma", curve, f"--curve={curve}"), ("hueadjust", "sepia", "--matrix=sepia"),
            ("hueadjust", "rotate=30", "--matrix=rotate=30"), ("rotate", "cw", "--turn=cw"),
        ):
            with self.subTest(operation, value=value):
                done = self.run_rast(operation, value, source, target)
                self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                expected = self.run_rast(operation, option, source).stdout
                self.assertEqual(target.read_bytes(), expected)
                self.assertEqual(self.run_rast(operation, value, input=page).stdout, expected)
        # A matrix is not required, so a file stands for the page.
        done = self.run_rast("hueadjust", "--mirror", source)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))

    def test_values(self):
        bad = [(mode, "expected lower or raise") for mode in ("rise", "", "0", "lower|raise")]
        self.refuse_values("satadjust", "mode", *bad)


class HueAdjust(Operation):
    IDENTITY = [256, 0, 0, 0, 0, 0, 256, 0, 0, 0, 0, 0, 256, 0, 0]

    def matrix_file(self, numbers):
        rows = [" ".join(map(str, row)) for row in (numbers[:5], numbers[5:10], numbers[10:])]
        return self.file("matrix.txt", ("# weights, offsets\n" + "\n".join(rows) + "\n").encode())

    def test_flags(self):
        numbers = [200, 30, -50, 3, -9, 17, 300, -90, -20, 11, -40, 55, 222, 5, 0]
        path = self.matrix_file(numbers)
        for arguments, reverse, mirror in (
            ([], False, False), (["--reverse"], True, False), (["--mirror"], False, True),
            (["--mirror", "--reverse"], True, True),
        ):
            model = matrix_model(numbers, reverse, mirror)
            self.check(model, "hueadjust", "--matrix", path, *arguments)

    def test_wild_matrices(self):
        source = random.Random(2)
        for _ in range(3):
            numbers = [source.randint(-32768, 32767) for _ in range(15)]
            path = self.matrix_file(numbers)
            self.check(matrix_model(numbers), "hueadjust", "--matrix", path)

    def test_presets(self):
        self.check(matrix_model(self.IDENTITY, reverse=True), "hueadjust", "--reverse")
        for name, rows in (
            ("identity", [[1, 0, 0], [0, 1, 0], [0, 0, 1]]),
            ("swap-rb", [[0, 0, 1], [0, 1, 0], [1, 0, 0]]),
            ("grayscale", [[0.299, 0.587, 0.114]] * 3),
            ("sepia", [[0.393, 0.769, 0.189], [0.349, 0.686, 0.168], [0.272, 0.534, 0.131]]),
        ):
            numbers = [n for row in rows for n in [round(256 * w) for w in row] + [0, 0]]
            self.check(matrix_model(numbers), "hueadjust", "--matrix", name)
            self.assertIn(name.encode(), self.run_rast("hueadjust", "--help").stdout)

    def test_rotation(self):
        for degrees in (30, 90, 123.5, 180, 360, -77, -360, *range(-351, 360, 27)):
            numbers = []
            for k, row in enumerate(rotation_matrix(degrees)):
                rounded = [math.floor(256 * w + 0.5) for w in row]
                rounded[k] += 256 - sum(rounded)
                self.assertLess(abs(rounded[k] - 256 * row[k]), 1.6)
                numbers += rounded + [0, 0]
            self.check(matrix_model(numbers), "hueadjust", "--matrix", f"rotate={degrees}")
            grays = ppm(256, 1, bytes(v for v in range(256) for _ in range(3)))
            out = self.apply("hueadjust", f"--matrix=rotate={degrees}", page=grays)
            self.assert_same(out, grays)
        self.check(matrix_model(self.IDENTITY), "hueadjust", "--matrix", "rotate=0")

    def test_nothing_is_printed(self):
        """No trace lines of the library's."""
        page = pgm(3, 2, b"abcdef")
        for arguments in ([], ["--mirror"], ["--mirror", "--reverse"], ["-q", "--mirror"]):
            done = self.run_rast("hueadjust", "--matrix=identity", *arguments, "-b1", input=page)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        done = self.run_rast("hueadjust", "--mirror", "--progress=json", "-b1", input=page)
        self.assertEqual(done.stdout, pgm(3, 2, b"cbafed"))
        for line in done.stderr.splitlines():
            json.loads(line)

    def test_values(self):
        for numbers, *words in (
            ([1] * 14, "holds 14 numbers", "15"), ([1] * 16, "line 4", "15"),
            ([1] * 14 + [32768], "line 4", "'32768'", "-32768..32767"),
            ([-32769] + [1] * 14, "line 2", "'-32769'"), (["1.0"] * 15, "line 2", "'1.0'"),
        ):
            path = self.matrix_file(numbers)
            self.refuse_values("hueadjust", "matrix", (path, *words))
        for angle in ("361", "-360.5", "nan"):
            self.refuse_values("hueadjust", "matrix", (f"rotate={angle}", "-360..360"))
        self.refuse_values("hueadjust", "matrix", ("rotate=", "no decimal number"))
        self.refuse_values("hueadjust", "matrix", ("nothing", "FILE|PRESET|rotate=DEGREES"))


class ColBalance(Operation):
    def curve_of(self, tone, level):
        """Tone curve, then level, as grays show it; 255 shows as 254 on a saturated pixel."""
        grays = bytes(v for v in range(255) for _ in range(3)) + b"\xff\0\0"
        levels = ",".join([str(level)] * 4)
        arguments = ("colbalance", "--curve", tone, "--level", levels)
        curve = self.apply(*arguments, page=ppm(256, 1, grays))[-768::3]
        return [*curve[:255], curve[255] + 1]

    def test_levels_shift(self):
        self.assertEqual(self.curve_of(4, 5), list(range(256)))
        for level in range(11):
            shifted = [clamp(v + 5 * (level - 5)) for v in range(256)]
            start = 0 if level <= 5 else 20  # raised levels rise gently from 0
            self.assertEqual(self.curve_of(4, level)[start:], shifted[start:])
        self.assertEqual(self.curve_of(4, 11), self.curve_of(4, 10))

    def test_pages(self):
        self.check(balance_model([range(256)] * 4), "colbalance", "--curve=4", kinds=[3])
        for tone, levels in (
            (0, (5, 5, 5, 5)), (1, (0, 3, 6, 10)), (2, (11, 9, 8, 7)), (3, (4, 2, 1, 0)),
            (4, (10, 5, 0, 6)),
        ):
            model = balance_model([self.curve_of(tone, level) for level in levels])
            text = ",".join(map(str, levels))
            self.check(model, "colbalance", "--curve", tone, "--level", text, kinds=[3])

    def test_values(self):
        self.refuse_values("colbalance", "curve", (-1, "0..4"), (5, "0..4"), ("", "0..4"))
        bad = ("12,5,5,5", "5,5,5,-1", "5,,5,5", "5,5,5,5,5", "5,5,5,5,", "5,5,5, 5", "a,b,c,d")
        for value in bad:
            done = self.run_rast("colbalance", "--level", value)
            self.assert_fails(done, USAGE, "--level", "0..11")
        self.refuse_values("colbalance", "level", ("5,5,5", "R,G,B,GRAY"), ("", "R,G,B,GRAY"))


class Canvas:
    """Where page and overlay lie in an output page, and which one covers a place."""

    def __init__(self, page, overlay, at, base, size=None):
        self.page, self.overlay, self.at, self.base = page, overlay, at, base
        self.width, self.height = size or (len(page[0]), len(page))
        self.top = min(base[0], at[1])

    @staticmethod
    def holds(image, corner, x, y):
        in_columns = corner[0] <= x < corner[0] + len(image[0])
        return in_columns and corner[1] <= y < corner[1] + len(image)

    def compose(self, background, pixel):
        """The pixel by what covers it: page, overlay, x, y."""
        nothing = (background,) * len(self.page[0][0])
        out = [[nothing] * self.width for _ in range(self.height)]
        for y in range(self.top, self.height):
            for x in range(self.width):
                in_page = self.holds(self.page, self.base, x, y)
                in_overlay = self.holds(self.overlay, self.at, x, y)
                if in_page or in_overlay:
                    out[y][x] = pixel(in_page, in_overlay, x, y)
        return out


def overlay_model(canvas, mode, density, background):
    components = len(canvas.page[0][0])
    scale, threshold = (density * 256 + 50) // 100, (16, 0, 1)[mode]

    def pixel_of(image, corner, x, y):
        width = len(image[0])
        line = y - max(canvas.top, corner[1])
        cut = min(width, max(0, corner[0] + width - canvas.width)) if components == 1 else 0
        place = line * (width - cut) + x - corner[0]
        return image[place // width][place % width]

    def pixel(in_page, in_overlay, x, y):
        below = pixel_of(canvas.page, canvas.base, x, y) if in_page else (0,) * components
        if not in_overlay:
            return below
        over = tuple(v * scale >> 8 for v in pixel_of(canvas.overlay, canvas.at, x, y))
        if max(over) < threshold:
            return below
        return tuple(map(max, over, below)) if mode == 1 else over

    return canvas.compose(background, pixel)


def crossing_model(canvas, background):
    rest = itertools.repeat((background,) * 3)
    page = itertools.chain(itertools.chain.from_iterable(canvas.page), rest)
    overlay = itertools.chain(itertools.chain.from_iterable(canvas.overlay), rest)
    shown = [next(overlay)]  # the overlay's next pixel

    def pixel(in_page, in_overlay, *_):
        taken = shown[0]
        if in_overlay:
            passed = next(page)
            return taken if in_page else passed
        shown[0] = next(overlay)
        return taken

    return canvas.compose(background, pixel)


class Placed(Operation):
    """Base: page sizes, overlay sizes and places that cut, miss, and lie beyond the first line."""

    PLACES = (
        # page, overlay, at, base, size
        ((20, 15), (6, 4), (3, 2), (0, 0), None),
        ((20, 15), (6, 4), (17, 13), (0, 0), None),  # cut on the right and below
        ((20, 15), (6, 40), (17, 0), (0, 3), (21, 30)),
        ((20, 15), (30, 20), (2, 1), (4, 3), (25, 17)),  # both cut
        ((20, 15), (6, 4), (9, 9), (5, 0), (40, 25)),  # begins at line 5
        ((20, 15), (6, 4), (0, 7), (9, 1), (40, 25)),  # begins at line 7
        ((5, 5), (5, 5), (8, 8), (0, 0), (16, 16)),
        ((5, 5), (7, 7), (0, 0), (1, 1), (8, 9)),
        ((5, 5), (3, 3), (90, 0), (0, 0), (6, 6)),  # the overlay beyond the right edge
        ((5, 5), (3, 3), (0, 0), (90, 90), (6, 6)),
        ((1, 1), (1, 1), (0, 0), (0, 0), (1, 1)),
    )

    def check_place(self, operation, components, place, expected_of, *arguments):
        (width, height), overlay_size, at, base, size = place
        page = random_lines(components, width, height, 1)
        overlay = random_lines(components, *overlay_size, 2)
        for line in overlay:
            line[0] = (0,) * components
            line[-1] = (17, 16, 15)[:components]
        path = self.file("logo", image_of(overlay))
        more = ["--size", f"{size[0]}x{size[1]}"] if size else []
        with self.subTest(components=components, place=place, arguments=arguments):
            out = self.apply(
                operation, "--with", path, "--at", f"{at[0]},{at[1]}", "--base",
                f"{base[0]},{base[1]}", *more, *arguments, page=image_of(page) * 2,
            )
            expected = image_of(expected_of(Canvas(page, overlay, at, base, size)))
            self.assert_same(out, expected * 2)

    def check_refusals(self, operation):
        page, logo = ppm(4, 3, ramp(36)), self.aside("logo.ppm", ppm(2, 2, ramp(12)))
        for more, words in (
            (["--at", "4,0", "--base", "4,0"], ["column 4", "4 columns"]),
            (["--at", "0,3", "--base", "3,0"], ["line 3", "3 lines"]),
            (["--at", "1,1", "--base", "1,1", "--size", "1x9"], ["column 1", "1 columns"]),
            (["--at", "1,1", "--base", "1,1", "--size", "9x1"], ["line 1", "1 lines"]),
            (["--at", "2147483647,0"], ["the overlay", "2147483647"]),
            (["--at", "0,2147483646"], ["the overlay", "2147483647"]),
            (["--base", "2147483644,0"], ["the page", "2147483647"]),
            (["--base", "0,2147483645"], ["the page", "2147483647"]),
        ):
            with self.subTest(more):
                arguments = ["--with", logo, *more]
                self.refuse(
                    page, USAGE, "page 1", *words, operation=operation, arguments=arguments
                )
        for size, code, words in (
            ("200000000x1", MEMORY, ["251658240"]), ("50000x50000", UNSUPPORTED, ["too large"])
        ):
            arguments = ["--with", logo, "--size", size]
            self.refuse(page, code, *words, operation=operation, arguments=arguments)
        for size in ("0x1", "1x0", "2147483648x1", "-1x5", "5", "5x", "x", "5,5", "5x5x5", ""):
            done = self.run_rast(operation, "--with", logo, "--size", size)
            self.assert_fails(done, USAGE, "--size", "1..2147483647" if "x" in size else "WxH")
        for option in ("--at", "--base"):
            for value, word in (("-1,0", "'-1'"), ("0,-1", "'-1'"), ("1", "X,Y"), ("1;1", "X,Y")):
                self.assert_fails(self.run_rast(operation, option, value), USAGE, option, word)
        self.refuse_values(operation, "flatten", ("gray", "black or white"))


class Overlay(Placed):
    def test_places(self):
        for place in self.PLACES:
            for components in (1, 3):
                model = lambda canvas: overlay_model(canvas, 0, 100, 0)
                self.check_place("overlay", components, place, model)
        for components in (1, 3):
            model = lambda canvas: overlay_model(canvas, 1, 100, 255)
            more = ("--mode", "max", "--white")
            self.check_place("overlay", components, self.PLACES[3], model, *more)

    def test_modes_and_densities(self):
        for mode, name in enumerate(("replace", "max", "ink")):
            for density in (10, 33, 99, 100):
                for components in (1, 3):
                    model = lambda canvas: overlay_model(canvas, mode, density, 255)
                    more = ("--mode", name, "--density", density, "--white")
                    self.check_place("overlay", components, self.PLACES[4], model, *more)

    def test_gray_drifts_where_cut(self):
        page, logo = pgm(4, 3, bytes(12)), self.file("logo", pgm(3, 3, b"abcdefghi"))
        out = self.apply("overlay", "--with", logo, "--at", "2,0", "--base", "0,0", page=page)
        self.assertEqual(out, pgm(4, 3, b"\0\0ab\0\0cd\0\0ef"))

    def test_refusals(self):
        self.check_refusals("overlay")
        gray, color = pgm(1, 1, b"a"), ppm(1, 1, b"rgb")
        for page, overlay, word in ((gray, color, "page is gray"), (color, gray, "is color")):
            logo = self.aside("logo", overlay)
            more = ["--with", logo]
            self.refuse(page, UNSUPPORTED, str(logo), word, operation="overlay", arguments=more)
        self.refuse_values("overlay", "density", (9, "10..100"), (101, "10..100"))
        self.refuse_values("overlay", "mode", ("min", "replace or max or ink"))

    def test_files_that_are_refused(self):
        page = pgm(1, 1, b"a")
        for content, code, word in (
            (b"", DAMAGED, "empty"), (b"GIF", UNSUPPORTED, "PGM"), (page[:-1], DAMAGED, "line 1"),
            (page * 2, UNSUPPORTED, "several pages"), (page + b"x", DAMAGED, "not an image"),
        ):
            logo = self.aside("logo", content)
            target = self.folder / "out.pgm"
            done = self.run_rast("overlay", "--with", logo, "-", target, input=page)
            self.assert_fails(done, code, str(logo), word)
        done = self.run_rast("overlay", "--with", self.folder / "missing", input=page)
        self.assert_fails(done, RUN_TIME, "missing", "cannot be opened")
        self.assert_fails(self.run_rast("overlay", "--with", "-", input=page), USAGE, "--with")
        self.assertEqual(os.listdir(self.folder), [])

    def test_transparency(self):
        alphas = range(0, 256, 5)
        values = [(37 * a + 11) % 256 for a in alphas]
        count = len(values)
        gray = b"".join(bytes((v, a)) for v, a in zip(values, alphas))
        rgb = b"".join(bytes((v, 255 - v, 7, a)) for v, a in zip(values, alphas))
        for name, ground in (("black", 0), ("white", 255)):
            onto = lambda v, a: math.floor((v * a + ground * (255 - a)) / 255 + 0.5)
            flat = bytes(map(onto, values, alphas))
            colors = bytes(
                onto(c, a) for v, a in zip(values, alphas) for c in (v, 255 - v, 7)
            )
            for image, page, expected in (
                (png(count, 1, 8, 4, [gray]), pgm(count, 1, bytes(count)), pgm(count, 1, flat)),
                (png(count, 1, 8, 6, [rgb]), ppm(count, 1, bytes(3 * count)),
                 ppm(count, 1, colors)),
            ):
                logo = self.aside("logo.png", image)
                more = ("--with", logo, "--mode", "max")
                out = self.apply("overlay", *more, "--flatten", name, page=page)
                self.assert_same(out, expected)
                done = self.run_rast("overlay", *more, input=page)
                self.assert_fails(done, UNSUPPORTED, str(logo), "transparency", "--flatten")
        keyed = png(2, 1, 8, 0, [b"ab"], before=chunk(b"tRNS", b"\0a"))
        more = ("--with", self.aside("keyed.png", keyed), "--flatten", "white")
        out = self.apply("overlay", *more, page=pgm(2, 1, b"xy"))
        self.assertEqual(out, pgm(2, 1, b"\xffb"))


class OverlayRgb(Placed):
    def test_places(self):
        for place in self.PLACES:
            model = lambda canvas: crossing_model(canvas, 0)
            self.check_place("overlayrgb", 3, place, model)
            model = lambda canvas: crossing_model(canvas, 255)
            self.check_place("overlayrgb", 3, place, model, "--white")

    def test_runs_that_grow(self):
        """The one overlay serves pages that take more and more of it."""
        overlay = random_lines(3, 3, 3, 5)
        logo, pages = self.aside("logo", image_of(overlay)), [(2, 2), (70, 90), (9, 9), (200, 100)]
        stream = [random_lines(3, *size) for size in pages]
        out = self.apply("overlayrgb", "--with", logo, page=b"".join(map(image_of, stream)))
        models = [crossing_model(Canvas(page, overlay, (0, 0), (0, 0)), 0) for page in stream]
        self.assert_same(out, b"".join(map(image_of, models)))

    def test_refusals(self):
        self.check_refusals("overlayrgb")
        logo = self.aside("logo", pgm(1, 1, b"a"))
        more = ["--with", logo]
        self.refuse(
            ppm(1, 1, b"rgb"), UNSUPPORTED, "is color", str(logo), operation="overlayrgb",
            arguments=more,
        )


class Rotate(Operation):
    SIZES = ((5, 1), (4, 127), (3, 128), (70, 129), (2, 300), (130, 3), (1, 1))

    def test_turns(self):
        clockwise = lambda lines: list(zip(*lines[::-1]))
        counter = lambda lines: list(zip(*lines))[::-1]
        self.check_pages(clockwise, "rotate", "cw")
        self.check_pages(counter, "rotate", "ccw")
        self.check_pages(counter, "rotate", "--turn", "ccw", bands=[64])
        self.check_pages(clockwise, "rotate", "--turn=cw", bands=[65536])

    def test_gray_option(self):
        out = self.apply("rotate", "cw", "--gray", page=ppm(2, 1, b"abcdef"))
        self.assertEqual(out, pgm(1, 2, luma(b"abcdef")))

    def test_operands(self):
        page = self.file("in.pgm", pgm(2, 1, b"ab"))
        for arguments in (
            ["cw", page, "out.pgm"], ["--turn", "cw", page, "out.pgm"],
            [page, "out.pgm", "--turn=cw"], ["-b1", "cw", page, "out.pgm"],
        ):
            with self.subTest(arguments):
                done = self.run_rast("rotate", *arguments, cwd=self.folder)
                self.assertEqual((done.returncode, done.stdout), (DONE, b""), done.stderr)
                self.assertEqual((self.folder / "out.pgm").read_bytes(), pgm(1, 2, b"ab"))
        for arguments in (["in.pgm"], ["--turn", "left"]):
            self.assert_fails(self.run_rast("rotate", *arguments), USAGE, "--turn", "cw or ccw")
        self.assert_fails(self.run_rast("rotate", "cw", "a", "b", "c"), USAGE, "'c'")

    def test_sizes(self):
        self.refuse(b"P5 1 134217729 255\n", MEMORY, "output", operation="rotate",
                    arguments=["cw"])
        self.refuse(b"P5 50000 50000 255\n", UNSUPPORTED, "too large", operation="rotate",
                    arguments=["cw"])
        self.refuse(b"P5 40000 40000 255\n", DAMAGED, "line 1", operation="rotate",
                    arguments=["cw"])

    def test_temporary_files(self):
        page = pgm(3, 2, b"abcdef")
        for folder, word in (("/nonexistent", "No such file"), ("/proc", "")):
            done = self.run_rast(
                "rotate", "cw", input=page, env=os.environ | {"TMPDIR": folder}
            )
            self.assert_fails(done, RUN_TIME, folder, "temporary file", "TMPDIR", word)
            self.assertEqual(done.stdout, b"")
        here = os.environ | {"TMPDIR": str(self.folder)}
        done = self.run_rast("rotate", "cw", input=page * 3, env=here)
        self.assertEqual((done.returncode, os.listdir(self.folder)), (DONE, []))
        done = subprocess.run(
            ["sh", "-c", f"ulimit -f 1; exec '{RAST}' rotate cw"], input=pgm(999, 99, bytes(98901)),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
        )
        self.assert_fails(done, RUN_TIME, "temporary file", "File too large")


def reduced(values, ratio):
    out, progress, count, before = [], 0, 0, 0
    for value in values:
        count, progress = count + 1, progress + ratio
        if progress >= 1000:
            out.append((before + value) // count % 256)
            count, progress = 0, progress - 1000
        else:
            before = value if count == 1 else (before + value) % 65536
    return out + [before // count % 256] if count else out


def zoom_model(ratio_x, ratio_y):
    def each(values, ratio):
        """Of tuples, component by component."""
        return list(zip(*(reduced(component, ratio) for component in zip(*values))))

    def model(lines):
        columns = [each(column, ratio_y) for column in zip(*lines)]
        return [each(line, ratio_x) for line in zip(*columns)]

    return model


class Zoom(Operation):
    SIZES = ((13, 70), (67, 9), (3, 2), (1, 1), (40, 133))

    def test_ratios(self):
        for x, y in ((1000, 1000), (500, 500), (333, 600), (600, 700), (700, 1), (1, 999)):
            self.check_pages(zoom_model(x, y), "zoom", "--x", x, "--y", y)

    def test_many_bands(self):
        lines = random_lines(1, 3, 3333)
        for ratio in (333, 999, 250):
            for band in (1, 7, 64, 1001, 65536):
                out = self.apply("zoom", "--y", ratio, "-b", band, page=image_of(lines))
                self.assert_same(out, image_of(zoom_model(1000, ratio)(lines)))

    def test_percent(self):
        for percent, ratio in (("50", 500), ("33.3", 333), ("0.1", 1), ("100", 1000), (".7", 7),
                               ("12.3000000000000000000000", 123)):
            self.check_pages(zoom_model(ratio, ratio), "zoom", "--percent", percent, bands=[64])
        model = zoom_model(250, 500)
        self.check_pages(model, "zoom", "--percent", "50", "--x", "250", bands=[64])
        self.check_pages(zoom_model(1000, 1000), "zoom", "--percent=100", bands=[64])

    def test_values(self):
        for option in "xy":
            self.refuse_values("zoom", option, (0, "1..1000"), (1001, "1..1000"), ("1.5", "whole"))
        self.refuse_values(
            "zoom", "percent", ("0", "0.1..100"), ("100.1", "0.1..100"), ("0.05", "0.1..100"),
            ("33.33", "one decimal"), ("12.30000000000000000000001", "one decimal"), ("nan", "0.1..100"), ("5%", "no decimal number"),
            ("", "no decimal number"),
        )

    def test_memory_cap(self):
        page = b"P5 134300 2000 255\n"
        self.refuse(page, MEMORY, "1000 lines", operation="zoom", arguments=["--y", "999"])
        self.refuse(page, DAMAGED, "line 1", operation="zoom", arguments=["--y", "500"])
        for page, memory in ((b"P6 60000 20 255\n", "20M"), (b"P6 1000000 20 255\n", "34M")):
            arguments = ["--y", "703", "-m", memory]
            refused = self.refuse(page, MEMORY, "20 lines", operation="zoom", arguments=arguments)
            arguments[-1] = re.search(rb"--memory (\d+M) or more", refused)[1].decode()
            self.refuse(page, DAMAGED, "line 1", operation="zoom", arguments=arguments)


def shift_model(x, y, size=None, fill=255):
    def model(lines):
        width, height = size or (len(lines[0]), len(lines))
        rest = (fill,) * len(lines[0][0])
        kept = [line[: len(line) + min(x, 0)] for line in lines[: len(lines) + min(y, 0)]]
        out = [[rest] * max(x, 0) + line + [rest] * width for line in kept]
        out = [[rest] * width] * max(y, 0) + out + [[rest] * width] * height
        return [line[:width] for line in out[:height]]

    return model


class Shift(Operation):
    SIZES = ((13, 70), (67, 9), (6, 6), (130, 5))

    def test_offsets(self):
        for x, y in ((0, 0), (3, 2), (5, 0), (0, 4), (-2, -3), (-5, 0), (-1, -4)):
            self.check_pages(shift_model(x, y), "shift", "--x", x, "--y", y, bands=[7])

    def test_sizes_and_fills(self):
        for x, y, size in (
            (7, 3, (150, 80)), (2, 1, (4, 3)), (-3, -2, (150, 100)), (199, 0, (200, 1)),
        ):
            more = ["--x", x, "--y", y, "--size", f"{size[0]}x{size[1]}"]
            for name, fill in (("none", 0), ("black", 0), ("white", 255)):
                model = shift_model(x, y, size, fill)
                self.check_pages(model, "shift", *more, "--fill", name, bands=[64])

    def test_refusals(self):
        for page in (pgm(4, 3, ramp(12)), ppm(4, 3, ramp(36))):
            for more, words in (
                (["--x", "5"], ["--x 5", "4 columns"]), (["--y", "4"], ["--y 4", "3 lines"]),
                (["--x", "-4"], ["--x -4", "none of the 4 columns"]),
                (["--x", "-1", "--y", "-3"], ["--y -3", "none of the 3 lines"]),
                (["--y", "-1"], ["--y -1", "negative --x"]),
                (["--x", "2", "--y", "-1"], ["--y -1", "negative --x"]),
                (["--x", "-1", "--y", "1"], ["--y 1", "negative --x"]),
                (["--x", "-1", "--size", "2x9"], ["3 columns are left", "the 2"]),
                (["--x", "-1", "--size", "9x2"], ["3 lines are left", "the 2"]),
                (["--x", "10", "--size", "9x9"], ["--x 10", "9 columns"]),
                (["--x", "2147483645"], ["2147483647"]),
                (["--y", "2147483645"], ["2147483647"]),
                (["--x", "-2147483647"], ["none of the 4 columns"]),
            ):
                with self.subTest(more):
                    self.refuse(page, USAGE, "page 1", *words, operation="shift", arguments=more)
        self.refuse_values("shift", "fill", ("gray", "none or black or white"))
        self.refuse_values("shift", "x", ("2147483648", "2147483647"), ("1.5", "whole"))

    def test_out_of_the_page(self):
        """As far as the size of the output page, where nothing of the page is left."""
        for make, components in ((pgm, 1), (ppm, 3)):
            page = make(4, 3, ramp(12 * components))
            for arguments, size in (
                (["--x", "4"], (4, 3)), (["--y", "3"], (4, 3)), (["--x", "4", "--y", "3"], (4, 3)),
                (["--x", "9", "--size", "9x9"], (9, 9)),
            ):
                for fill, sample in (("white", 255), ("black", 0), ("none", 0)):
                    made = self.run_rast("shift", *arguments, "--fill", fill, input=page).stdout
                    blank = bytes([sample]) * (size[0] * size[1] * components)
                    self.assertEqual(made, make(*size, blank))

    def test_second_page_is_refused(self):
        page = pgm(4, 3, ramp(12))
        self.refuse(
            page + pgm(1, 1, b"a"), USAGE, "page 2", operation="shift", arguments=["--x", "2"]
        )


class Pages(RastTest):
    """The option --pages, of operations and of the commands that look into pages."""

    PAGES = [pgm(2, 1, b"ab"), gray_png(1, 2, b"cd"), pgm(1, 1, b"e"), pgm(3, 1, b"fgh")]
    TURNED = [pgm(1, 2, b"ab"), pgm(2, 1, b"dc"), pgm(1, 1, b"e"), pgm(1, 3, b"fgh")]
    LISTS = (
        ("1", [1]), ("4", [4]), ("2-3", [2, 3]), ("2-2", [2]), ("3-", [3, 4]), ("1-", [1, 2, 3, 4]),
        ("1,4", [1, 4]), ("1,2-3,4-", [1, 2, 3, 4]), ("1-2,3", [1, 2, 3]), ("4-", [4]),
    )

    def test_chosen_pages(self):
        stream = b"".join(self.PAGES)
        for text, chosen in self.LISTS:
            for option in (["--pages", text], [f"-P{text}"]):
                with self.subTest(option):
                    done = self.run_rast("rotate", "cw", *option, input=stream)
                    expected = b"".join(self.TURNED[page - 1] for page in chosen)
                    self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                    self.assertEqual(done.stdout, expected)
                    done = self.run_rast("info", *option, input=stream)
                    numbers = re.findall(rb"^page (\d+):", done.stdout, re.MULTILINE)
                    self.assertEqual(list(map(int, numbers)), chosen)
                    words = b"%d page%s\n" % (len(chosen), b"" if len(chosen) == 1 else b"s")
                    self.assertTrue(done.stdout.endswith(b"\n" + words))

    def test_bands(self):
        """A page is read past whatever its size, and bands do not matter."""
        long = random.Random(3).randbytes(3 * 50 * 1000)
        stream = ppm(50, 1000, long) + pgm(2, 1, b"ab") + pgm(50, 3000, long)
        for band in (1, 64, 65536):
            done = self.run_rast("expgamma", *PARAMETERS, "-P2", "-b", band, input=stream)
            self.assertEqual((done.returncode, done.stdout), (DONE, pgm(2, 1, curve(b"ab"))))

    def test_kinds_are_those_of_chosen_pages(self):
        stream = pgm(2, 1, b"ab") + ppm(1, 1, b"rgb")
        done = self.run_rast("expgamma", *SAME, "--pages", "1", input=stream)
        self.assertEqual((done.returncode, done.stdout), (DONE, pgm(2, 1, b"ab")))
        self.refuse(stream, UNSUPPORTED, "page 2", "color", arguments=["--pages", "2"])

    def test_png_of_one(self):
        source, target = self.file("in.pgm", b"".join(self.PAGES)), self.folder / "out.png"
        done = self.run_rast("expgamma", *SAME, source, target)
        self.assert_fails(done, UNSUPPORTED, "one page", "--pages")
        self.assertEqual(self.run_rast("expgamma", *SAME, "-P4", source, target).returncode, DONE)
        self.assertEqual(decode_gray_png(target.read_bytes()), (3, 1, b"fgh"))

    def test_others_have_to_be_sound(self):
        for text, place in (("1", "page 2, line 1:"), ("3", "page 2, line 1:")):
            self.refuse(
                pgm(1, 1, b"a") + pgm(2, 1, b"b"), DAMAGED, place, arguments=["--pages", text]
            )
        stream = pgm(1, 1, b"a") + pgm(1, 1, b"b")
        self.refuse(stream + b"x", DAMAGED, "page 2:", arguments=["--pages", "1"])
        broken = bytearray(gray_png(5, 4, ramp(20)))
        broken[-17] ^= 1
        self.refuse(bytes(broken) + stream, DAMAGED, "page 1", "PNG", arguments=["--pages=2"])
        self.refuse(stream + b"P3\n1 1\n\0", UNSUPPORTED, "page 3:", arguments=["--pages", "1"])

    def test_beyond_the_end(self):
        stream = b"".join(self.PAGES)
        for text, missing in (
            ("5", 5), ("9", 9), ("5-", 5), ("7-", 7), ("3-6", 5), ("8-9", 8), ("1,7,9", 7),
            ("2,4-5", 5), (str(2**63 - 1), 2**63 - 1),
        ):
            with self.subTest(text):
                words = ["page 4:", "the last", f"--pages names page {missing}\n"]
                self.refuse(stream, USAGE, *words, arguments=["--pages", text])
        done = self.run_rast("expgamma", *SAME, "--pages", "4,5", input=stream)
        self.assert_fails(done, USAGE, "standard input", "page 4", "page 5")
        self.assertEqual(done.stdout, self.PAGES[3])

    def test_other_orders(self):
        """Pages come once and in the order of the stream, so no list may ask for anything else."""
        for text, words, instead in (
            ("3,2,1", "'2' comes after '3'", "1-3"), ("4,1", "'1' comes after '4'", "1,4"),
            ("1,2,2", "'2' repeats pages of '2'", "1-2"), ("7,7", "'7' repeats pages of '7'", "7"),
            ("1-3,2-4,3,3", "'2-4' repeats pages of '1-3'", "1-4"),
            ("2-,1-2", "'1-2' repeats pages of '2-'", "1-"),
            ("2-,1", "'1' comes after '2-'", "1-"), ("1-,9,7", "'9' repeats pages of '1-'", "1-"),
            ("9-12,1-3,5-", "'1-3' comes after '9-12'", "1-3,5-"),
            ("8-9,1,2,4", "'1' comes after '8-9'", "1-2,4,8-9"),
        ):
            for command in ("expgamma", "info", "compare"):
                with self.subTest(text=text, command=command):
                    done = self.run_rast(command, f"--pages={text}", "a", "b")
                    self.assert_fails(done, USAGE, f"--pages: {words}; ", f": write {instead}\n")
                    self.assertEqual(done.stdout, b"")

    def test_malformed_lists(self):
        hint = "such as 1-10,15,20-"
        for text, item, word in (
            ("0", "0", "out of range"), ("0-3", "0-3", "out of range"), ("1-0", "1-0", "range"),
            (str(2**63), 2**63, "out of range"), ("3-1", "3-1", "backwards"), ("", "", "no page"),
            ("1,", "", "no page"), (",1", "", "no page"), ("1,,2", "", "no page"),
            ("-3", "-3", "no page"), ("-", "-", "no page"), ("1-2-3", "1-2-3", "no page"),
            ("1--2", "1--2", "out of range"), ("1..3", "1..3", "no page"),
            ("1 -3", "1 -3", "no page"), ("+1", "+1", "no page"), ("all", "all", "no page"),
            ("1;2", "1;2", "no page"),
        ):
            for command in ("expgamma", "info", "compare"):
                with self.subTest(text=text, command=command):
                    done = self.run_rast(command, f"--pages={text}", "a", "b")
                    self.assert_fails(done, USAGE, "--pages", f"'{item}'", word, hint)
        self.assert_fails(self.run_rast("expgamma", "--page"), USAGE, "--page", "needs a value")

    def test_progress(self):
        done = self.run_rast("expgamma", *SAME, "-pP2", input=pgm(1, 1, b"a") * 3)
        self.assertIn(b"\rpage 1 of 1: 100%, ", done.stderr)


class Info(RastTest):
    PAGES = (
        (pgm(4, 3, ramp(12)), "PGM", 4, 3, "gray"),
        (ppm(1, 70, ramp(210)), "PPM", 1, 70, "RGB"),
        (gray_png(5, 4, ramp(20)), "PNG", 5, 4, "gray"),
        (png(1, 1, 8, 2, [b"rgb"]), "PNG", 1, 1, "RGB"),
        (png(2, 1, 1, 3, [b"\x40"], before=chunk(b"PLTE", b"abcdef")), "PNG", 2, 1, "RGB"),
    )
    STREAM = b"".join(page[0] for page in PAGES)

    def test_progress_beside_a_report(self):
        """Of info and compare, unless the report can be seen instead."""
        job = self.file("job.pgm", pgm(4, 3, ramp(12)) * 2)
        for command in (["info", job], ["compare", job, job]):
            with self.subTest(command[0]):
                done = self.run_rast(*command, "--progress=json")
                self.assertEqual(done.returncode, DONE)
                lines = [json.loads(line) for line in done.stderr.splitlines()]
                self.assertEqual([line.get("percent") for line in lines], [50, 100, None])
                self.assertEqual(lines[-1], {"done": True, "pages": 2})
                self.assertIn(b"page 1: ", done.stdout)
                self.assertEqual(self.run_rast(*command, "-p", "-q").stderr, b"")
                self.assertRegex(self.on_terminal(command, subprocess.DEVNULL), rb"\rpage 2: 100%")
                self.assertNotIn(b"%", self.on_terminal(command, None))

    def on_terminal(self, command, out):
        """What is shown where standard error is a terminal, and standard output too without out."""
        ours, terminal = pty.openpty()
        try:
            done = subprocess.run(
                [RAST, *command], stdin=subprocess.DEVNULL, stdout=terminal if out is None else out,
                stderr=terminal, timeout=20, check=False,
            )
            self.assertEqual(done.returncode, DONE)
            return os.read(ours, 65536)
        finally:
            os.close(ours)
            os.close(terminal)

    def test_lines(self):
        expected = "page 1: PGM, 4 x 3, gray\npage 2: PPM, 1 x 70, RGB\n"
        expected += "page 3: PNG, 5 x 4, gray\npage 4: PNG, 1 x 1, RGB\npage 5: PNG, 2 x 1, RGB\n"
        path = self.file("in", self.STREAM)
        for done in (
            self.run_rast("info", path), self.run_rast("info", "-", input=self.STREAM),
            self.run_rast("info", input=self.STREAM),
        ):
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertEqual(done.stdout.decode(), expected + "5 pages\n")
        done = self.run_rast("info", input=pgm(1, 1, b"a"))
        self.assertEqual(done.stdout, b"page 1: PGM, 1 x 1, gray\n1 page\n")

    def test_json(self):
        keys = ("page", "format", "width", "height", "kind")
        expected = [dict(zip(keys, (i + 1, *page[1:]))) for i, page in enumerate(self.PAGES)]
        for more, chosen in (([], expected), (["--pages", "2-3"], expected[1:3])):
            done = self.run_rast("info", "--json", *more, input=self.STREAM)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertEqual(json.loads(done.stdout), chosen)
        done = self.run_rast("info", "-j", input=pgm(1, 2, b"ab"))
        line = b'{"page": 1, "format": "PGM", "width": 1, "height": 2, "kind": "gray"}'
        self.assertEqual(done.stdout, b"[\n" + line + b"\n]\n")

    def test_failures(self):
        good = pgm(2, 1, b"ab")
        line = b"page 1: PGM, 2 x 1, gray\n"
        for content, code, words, told in (
            (good + good[:-1], DAMAGED, "page 2, line 1:", line),
            (good + b"x", DAMAGED, "not an image", line), (good[:5], DAMAGED, "page 1:", b""),
            (gray_png(5, 4, ramp(20))[:-1], DAMAGED, "ends early", b""),
            (b"", DAMAGED, "empty", b""), (b"P1", UNSUPPORTED, "ASCII", b""),
            (b"P6 41943041 1 255\n", MEMORY, "251658240", b""),
        ):
            with self.subTest(words):
                path = self.file("in", content)
                done = self.run_rast("info", path)
                self.assert_fails(done, code, str(path), words)
                self.assertEqual(done.stdout, told)
                done = self.run_rast("info", "--json", path)
                self.assert_fails(done, code, str(path), words)
                self.assertRaises(ValueError, json.loads, done.stdout)
        self.assert_fails(self.run_rast("info", "missing"), RUN_TIME, "missing", "cannot be opened")
        with open("/dev/full", "wb") as full:
            done = self.run_rast("info", input=good, stdout=full)
            self.assert_fails(done, OUTPUT, "standard output", "cannot be written")

    def test_usage(self):
        for arguments, word in (
            (["a", "b"], "'b'"), (["--jason"], "--json"), (["-g"], "'-g'"), (["--gray"], "--gray"),
            (["--threshold", "1"], "rast help info"),
        ):
            self.assert_fails(self.run_rast("info", *arguments), USAGE, word)


class Resolution(RastTest):
    """Pixels to the inch, from file to file, as far as PNG has them."""

    def described(self, content):
        text = self.run_rast("info", input=content).stdout.decode()
        (json_page,) = json.loads(self.run_rast("info", "--json", input=content).stdout)
        return text.splitlines()[0].removeprefix("page 1: "), json_page.get("resolution")

    @staticmethod
    def stored(x, y, unit=1):
        return png(2, 1, 8, 0, [b"ab"], before=chunk(b"pHYs", struct.pack(">IIB", x, y, unit)))

    @staticmethod
    def pixels_per_meter(content):
        at = content.find(b"pHYs")
        return None if at < 0 else struct.unpack_from(">IIB", content, at + 4)

    def test_png_is_read(self):
        for x, y, unit, words, numbers in (
            (11811, 11811, 1, ", 300 dpi", [300, 300]),
            (23622, 11811, 1, ", 600 x 300 dpi", [600, 300]), (2835, 2835, 1, ", 72 dpi", [72, 72]),
            (8000, 8000, 1, ", 203.2 dpi", [203.2, 203.2]),
            (1000, 1000, 1, ", 25.4 dpi", [25.4, 25.4]), (4, 3, 0, "", None), (0, 9, 1, "", None),
            (11811, 11811, 7, "", None),
        ):
            described = self.described(self.stored(x, y, unit))
            self.assertEqual(described, (f"PNG, 2 x 1, gray{words}", numbers))
        damaged = bytearray(self.stored(11811, 11811))
        damaged[damaged.index(b"pHYs") + 5] ^= 1
        self.refuse(bytes(damaged), DAMAGED, "page 1", "PNG")

    def test_whole_numbers_return(self):
        for dpi in (*range(1, 130), 150, 200, 300, 360, 600, 720, 1200, 2400, 4800, 9600, 65535):
            out = self.run_rast("colgamma", "invert", "-f", "png", "-r", dpi, input=pgm(2, 1, b"ab")).stdout
            self.assertEqual(self.pixels_per_meter(out), (*(round(dpi / 0.0254),) * 2, 1))
            self.assertEqual(self.described(out)[1], [dpi, dpi])

    def test_option(self):
        """In place of what the page says; a turn swaps it, a reduction reduces it."""
        for given, arguments, expected in (
            (None, ["colgamma", "invert", "-r", "300"], (300, 300)),
            (None, ["colgamma", "invert", "--resolution=600x300"], (600, 300)),
            (None, ["colgamma", "invert", "--resolution", "203.2x101.6"], (203.2, 101.6)),
            (11811, ["colgamma", "invert", "-r", "600"], (600, 600)), (11811, ["colgamma", "invert"], (300, 300)),
            (None, ["rotate", "cw", "-r", "600x300"], (300, 600)),
            (None, ["zoom", "--percent", "50", "-r", "600x300"], (300, 150)),
            (11811, ["zoom", "--x", "100"], (30, 300)),
            (None, ["chain", "rotate cw : zoom percent=10", "-r", "600x300"], (30, 60)),
            (None, ["colgamma", "invert"], None),
        ):
            with self.subTest(arguments=arguments, given=given):
                content = self.stored(given, given) if given else pgm(2, 1, b"ab")
                done = self.run_rast(*arguments, "-f", "png", input=content)
                self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                expected = expected and (*(round(dpi / 0.0254) for dpi in expected), 1)
                self.assertEqual(self.pixels_per_meter(done.stdout), expected)

    def test_refusals(self):
        for text, words in (
            ("0", "out of range"), ("-300", "out of range"), ("65536", "out of range"),
            ("0.5", "out of range"), ("600x0", "'0' is out of range"), ("", "no decimal"),
            ("300x", "'' is no decimal"), ("x300", "no decimal"), ("300X300", "no decimal"),
            ("300x300x300", "'300x300'"), ("300dpi", "no decimal"), ("1e3", "no decimal"),
            ("nan", "no decimal"), ("300,300", "no decimal"), (" 300", "no decimal"),
        ):
            for arguments in (["rotate", "cw"], ["chain", "rotate cw"]):
                done = self.run_rast(*arguments, f"--resolution={text}", input=pgm(1, 1, b"a"))
                self.assert_fails(done, USAGE, "--resolution: '", words, "expected 1..65535")
        for command in ("info", "compare", "ops"):
            self.assert_fails(self.run_rast(command, "-r", "300"), USAGE, "'-r'")


class Compare(RastTest):
    def compare(self, a, b, *more):
        """The exit code and the lines, with A as a file and B as a file."""
        paths = [self.aside("a", a), self.aside("b", b)]
        done = self.run_rast("compare", *paths, *more)
        self.assertEqual(done.stderr, b"")
        return done.returncode, done.stdout.decode().splitlines()

    @staticmethod
    def difference(a, b):
        """The words of a line, from the samples."""
        apart = [abs(x - y) for x, y in zip(a, b)]
        psnr = 10 * math.log10(255 * 255 * len(apart) / sum(d * d for d in apart))
        count = sum(d > 0 for d in apart)
        return f"{count} of {len(a)} samples differ by up to {max(apart)}, PSNR {psnr:.2f} dB"

    def test_equal(self):
        pages = pgm(4, 3, ramp(12)) + ppm(1, 2, ramp(6))
        expected = ["page 1: equal", "page 2: equal", "2 pages, 0 different"]
        self.assertEqual(self.compare(pages, pages), (DONE, expected))
        packed = gray_png(4, 3, ramp(12)) + ppm(1, 2, ramp(6))
        self.assertEqual(self.compare(pages, packed), (DONE, expected))
        expected = ["page 1: equal", "1 page, 0 different"]
        self.assertEqual(self.compare(pgm(1, 1, b"a"), pgm(1, 1, b"a")), (DONE, expected))

    def test_differences(self):
        a, b = bytes(range(100, 112)), bytearray(range(100, 112))
        b[6], b[11] = 255, 110
        words = "page 1: differs first at line 2, column 3, gray: 106 and 255; "
        words += "2 of 12 samples differ by up to 149, PSNR 15.46 dB"
        self.assertEqual(self.difference(a, b), words[words.index("2 of") :])
        self.assertEqual(
            self.compare(pgm(4, 3, a), pgm(4, 3, b)), (1, [words, "1 page, 1 different"])
        )
        for place, where in (
            (0, "line 1, column 1, red"), (4, "line 1, column 2, green"),
            (11, "line 2, column 2, blue"),
        ):
            changed = bytearray(a)
            changed[place] ^= 0xFF
            words = f"page 1: differs first at {where}: {a[place]} and {changed[place]}; "
            words += self.difference(a, changed)
            self.assertEqual(
                self.compare(ppm(2, 2, a), ppm(2, 2, changed)), (1, [words, "1 page, 1 different"])
            )
        source = random.Random(3)
        for size in (1, 3, 1000) * 20:
            a = source.randbytes(size)
            b = bytes(v ^ (source.getrandbits(8) >> source.randrange(8)) for v in a[:-1])
            b += bytes([a[-1] ^ 1])
            (line, _) = self.compare(pgm(size, 1, a), pgm(size, 1, b))[1]
            self.assertTrue(line.endswith(self.difference(a, b)), line)
        lines = self.compare(pgm(2, 1, b"\0\0"), pgm(2, 1, b"\xff\xff"))[1]
        self.assertTrue(lines[0].endswith("2 of 2 samples differ by up to 255, PSNR 0.00 dB"))

    def test_bands_and_picture(self):
        for components, write in ((1, pgm), (3, ppm)):
            size = 37 * 150 * components
            a, b = random.Random(1).randbytes(size), bytearray(random.Random(2).randbytes(size))
            b[: 40 * components] = a[: 40 * components]
            equal = a[:1] * (6 * components)
            apart = bytes(abs(x - y) for x, y in zip(a, b))
            stream_a = write(37, 150, a) + write(3, 2, equal) + write(1, 1, bytes(components))
            stream_b = write(37, 150, b) + write(3, 2, equal) + write(1, 2, bytes(2 * components))
            for band in (1, 7, 64, 65536):
                target = self.folder / "out.pnm"
                code, lines = self.compare(stream_a, stream_b, target, "--band", band)
                component = "gray" if components == 1 else "red"
                words = f"page 1: differs first at line 2, column 4, {component}: "
                words += f"{a[40 * components]} and {b[40 * components]}; "
                self.assertEqual((code, lines[0]), (1, words + self.difference(a, b)))
                expected = write(37, 150, apart) + write(3, 2, bytes(6 * components))
                self.assert_same(target.read_bytes(), expected)
                target.unlink()

    def test_sizes_kinds_and_numbers(self):
        one, two, rgb = pgm(4, 3, ramp(12)), pgm(3, 4, ramp(12)), ppm(4, 3, ramp(36))
        self.assertEqual(
            self.compare(one + one + one, two + rgb + one),
            (1, ["page 1: 4 x 3 gray in A and 3 x 4 gray in B",
                 "page 2: 4 x 3 gray in A and 4 x 3 RGB in B", "page 3: equal",
                 "3 pages, 2 different"]),
        )
        expected = ["page 1: equal", "page 2: only in A", "page 3: only in A"]
        expected += ["3 pages, 2 different"]
        self.assertEqual(self.compare(one * 3, one), (1, expected))
        expected = [line.replace("A", "B") for line in expected]
        self.assertEqual(self.compare(one, one * 3), (1, expected))

    def test_pages(self):
        a = pgm(1, 1, b"a") + pgm(2, 1, b"bc") + pgm(1, 1, b"d")
        b = pgm(1, 1, b"x") + pgm(2, 1, b"bc")
        for text, code, lines in (
            ("2", DONE, ["page 2: equal", "1 page, 0 different"]),
            ("2-", 1, ["page 2: equal", "page 3: only in A", "2 pages, 1 different"]),
            ("3", 1, ["page 3: only in A", "1 page, 1 different"]),
        ):
            self.assertEqual(self.compare(a, b, "--pages", text), (code, lines))
        a, b = self.file("a", a), self.file("b", b)
        for paths in ((a, b), (b, a)):
            done = self.run_rast("compare", *paths, "-P2,4")
            self.assert_fails(done, TROUBLE, f"{a}: page 3:", "the last", "page 4")
            self.assertEqual(done.stdout, b"page 2: equal\n")

    def test_standard_input(self):
        page, path = pgm(2, 1, b"ab"), self.file("page", pgm(2, 1, b"ac"))
        done = self.run_rast("compare", "-", path, input=page)
        self.assertIn(b"98 and 99;", done.stdout)
        done = self.run_rast("compare", path, "-", input=page)
        self.assertIn(b"99 and 98;", done.stdout)
        self.assertEqual((done.returncode, done.stderr), (1, b""))
        self.assert_fails(self.run_rast("compare", "-", "-", input=page), TROUBLE, "standard input")
        self.assert_fails(self.run_rast("compare", path, path, "-"), TROUBLE, "standard output")

    def test_damage(self):
        good, other = pgm(2, 2, b"abcd"), pgm(1, 2, b"ab")
        a = self.file("a", good + good)
        target = self.file("out.pgm", b"before")
        for content, words in (
            (good + good[:-1], "page 2, line 2:"),
            (good + other[:-1], "page 2, line 2:"), (b"", "empty"),
            (good * 2 + good[:-1], "page 3, line 2:"), (good + b"x", "page 1:"),
            (b"P1", "page 1:"),
        ):
            b = self.file("b", content)
            for paths in ((a, b), (b, a)):
                with self.subTest(words):
                    done = self.run_rast("compare", *paths, target)
                    self.assert_fails(done, TROUBLE, str(b), words)
                    self.assertEqual(target.read_bytes(), b"before")
        for paths in ((a, "missing"), ("missing", a)):
            done = self.run_rast("compare", *paths)
            self.assert_fails(done, TROUBLE, "missing: cannot be opened")
        self.assertEqual(sorted(os.listdir(self.folder)), ["a", "b", "out.pgm"])

    def test_outputs(self):
        one, two = pgm(2, 1, b"ab"), pgm(2, 1, b"cb")
        a, b = self.file("a", one), self.file("b", two)
        for target in ("/dev/full", self.folder, self.folder / "missing" / "out.pgm"):
            for more in ((), ("--format", "png")):
                done = self.run_rast("compare", a, b, target, *more)
                self.assert_fails(done, TROUBLE, str(target), "cannot be written")
        with open("/dev/full", "wb") as full:
            done = self.run_rast("compare", a, b, stdout=full)
            self.assert_fails(done, TROUBLE, "standard output", "cannot be written")
        self.assertEqual(self.run_rast("compare", a, b, "out.png", cwd=self.folder).returncode, 1)
        self.assertEqual(decode_gray_png((self.folder / "out.png").read_bytes()), (2, 1, b"\2\0"))
        self.assert_fails(self.run_rast("compare", a, b, "out.jpg"), TROUBLE, "out.jpg", ".pgm")
        c = self.file("c", pgm(1, 1, b"a"))
        self.assertEqual(self.run_rast("compare", a, c, self.folder / "none.pgm").returncode, 1)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a", "b", "c", "out.png"])
        self.file("a", one * 2)
        done = self.run_rast("compare", a, a, self.folder / "out.png")
        self.assert_fails(done, TROUBLE, "one page", "--pages")

    def test_memory(self):
        wide = self.file("wide", b"P5 200000000 1 255\n")
        self.assert_fails(self.run_rast("compare", wide, wide), TROUBLE, "--memory")

    def test_statuses_in_help(self):
        text = self.run_rast("help", "compare").stdout.decode().split("Exit status:\n")[1]
        self.assertEqual([line.split()[0] for line in text.splitlines()], ["0", "1", "2"])
        text = self.run_rast("help").stdout.decode().split("Exit status:\n")[1]
        self.assertRegex(text, r"(?m)^  1  .*compare.*\n  2  .*compare")

    def test_usage(self):
        for arguments, words in (
            ([], ["expected A B", "rast help compare"]), (["a"], ["expected A B"]),
            (["a", "b", "c", "d"], ["'d'"]), (["a", "b", "--json"], ["--json"]),
        ):
            self.assert_fails(self.run_rast("compare", *arguments), TROUBLE, *words)

    def test_memory_is_flat(self):
        """Half of a page of 64 million samples."""
        fifo = self.folder / "fifo"
        os.mkfifo(fifo)
        command = [RAST, "compare", "--band", "16", "-", fifo, "/dev/null"]
        with subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        ) as process, open(fifo, "wb") as other:
            half = bytes(16_000)
            for stream in (process.stdin, other):
                stream.write(b"P5 1000 64000 255\n")
            for _ in range(2000):
                for stream in (process.stdin, other):
                    stream.write(half)
                    stream.flush()
            lines = Path(f"/proc/{process.pid}/status").read_text().splitlines()
            peak = next(int(line.split()[1]) for line in lines if line.startswith("VmHWM"))
            process.kill()
            self.assertLess(peak, 28_000)


class Ops(RastTest):
    def test_lines(self):
        done = self.run_rast("ops")
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        lines = done.stdout.decode().splitlines()
        self.assertEqual(lines[0], "expgamma: threshold-gain curve, for gray pages")
        self.assertEqual(lines[1], "colgamma: tone curve, for gray and color pages")
        for line in lines:
            text = self.run_rast("help", line.split(":")[0]).stdout.decode()
            self.assertIn(f"\n{line}.\n", text)
        self.assertEqual(len(lines), 12)

    def test_json(self):
        done = self.run_rast("ops", "--json")
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        known = {operation["name"]: operation for operation in json.loads(done.stdout)}
        lines = self.run_rast("ops").stdout.decode().splitlines()
        self.assertEqual(list(known), [line.split(":")[0] for line in lines])
        for line, operation in zip(lines, known.values()):
            pages = " and ".join(kind for kind in operation["pages"] if kind != "cmyk")
            summary = f"{operation['name']}: {operation['summary']}"
            self.assertEqual(line, f"{summary}, for {pages} pages")
        self.assert_texts_are_those_of_help(known)
        number = {"kind": "number", "argument": "N", "low": 0, "required": False}
        self.assertEqual(
            known["expgamma"],
            {"name": "expgamma", "summary": "threshold-gain curve", "pages": ["gray", "cmyk"],
             "example": "rast expgamma --threshold 16 --offset 8 --gain 320 in.pgm out.pgm",
             "needs_parameter": True,
             "parameters": [
                 {"name": "threshold", "high": 255, "default": "0"} | number,
                 {"name": "offset", "high": 255, "default": "0"} | number,
                 {"name": "gain", "high": 65535, "default": "256"} | number]},
        )
        parameters = {
            (name, p["name"]): p for name in known for p in known[name]["parameters"]
        }
        for operation, expected in (
            ("satadjust", {"name": "mode", "kind": "choice", "argument": "lower|raise",
                           "values": ["lower", "raise"], "required": True}),
            ("overlay", {"name": "mode", "kind": "choice", "argument": "replace|max|ink",
                         "values": ["replace", "max", "ink"], "default": "replace",
                         "required": False}),
            ("overlay", {"name": "with", "kind": "file", "argument": "FILE", "required": True}),
            ("overlay", {"name": "white", "kind": "switch", "required": False}),
            ("zoom", {"name": "percent", "kind": "decimal", "argument": "P", "low": 0.1,
                      "high": 100, "default": "100", "required": False}),
            ("shift", {"name": "size", "kind": "size", "argument": "WxH", "low": 1,
                       "high": 2147483647, "required": False}),
            ("colbalance", {"name": "level", "kind": "numbers", "argument": "R,G,B,GRAY", "low": 0,
                            "high": 11, "default": "5,5,5,5", "required": False}),
            ("colgamma", {"name": "curve", "kind": "curve", "argument": "FILE|invert|gamma=G",
                          "low": 0, "high": 255, "count": 256,
                          "formula": {"name": "gamma", "low": 0.1, "high": 10, "neutral": 1},
                          "required": True}),
            ("hueadjust", {"name": "matrix", "kind": "matrix", "low": -32768, "high": 32767,
                           "argument": "FILE|PRESET|rotate=DEGREES", "default": "identity",
                           "count": 15, "formula": {"name": "rotate", "low": -360, "high": 360,
                                                    "neutral": 0},
                           "required": False}),
        ):
            presets = parameters[operation, expected["name"]].pop("presets", None)
            self.assertEqual(parameters[operation, expected["name"]], expected)
            self.assertEqual(presets is not None, expected["kind"] in ("curve", "matrix"))
            for name, numbers in (presets or {}).items():
                self.assert_stands_for(operation, expected["name"], name, numbers)
        for (operation, name), parameter in parameters.items():
            with self.subTest(operation=operation, name=name):
                text = self.run_rast("help", operation).stdout.decode()
                argument = f" {parameter['argument']}" if "argument" in parameter else ""
                self.assertIn(f"\n      --{name}{argument}", text)

    def assert_texts_are_those_of_help(self, known):
        for name, operation in known.items():
            text = " ".join(self.run_rast("help", name).stdout.decode().split())
            for described in (operation, *operation["parameters"]):
                words = described.pop("details" if described is operation else "help").split()
                self.assertGreater(len(words), 2)
                self.assertIn(" ".join(words), text)

    def assert_stands_for(self, operation, parameter, preset, numbers):
        page = ppm(128, 128, random.Random(1).randbytes(128 * 128 * 3))
        file = self.file("numbers", " ".join(map(str, numbers)).encode())
        expected = self.run_rast(operation, f"--{parameter}", preset, input=page)
        done = self.run_rast(operation, f"--{parameter}", file, input=page)
        self.assertEqual((done.returncode, expected.returncode), (DONE, DONE))
        self.assert_same(done.stdout, expected.stdout)

    def test_usage(self):
        for arguments, word in ((["a"], "'a'"), (["--jsn"], "--json"), (["-P1"], "'-P'")):
            self.assert_fails(self.run_rast("ops", *arguments), USAGE, word)
        with open("/dev/full", "wb") as full:
            self.assert_fails(self.run_rast("ops", stdout=full), OUTPUT, "standard output")


@unittest.skipUnless(shutil.which("cc"), "needs a C compiler")
class Library(RastTest):
    """The command with another rastExpGamma loaded in front of the library's."""

    def apply_with(self, body, *arguments):
        code = "#include <stdio.h>\n#include <string.h>\n#include <unistd.h>\n"
        code += f"unsigned rastExpGamma(const void *area, char **planes) {{ {body} }}"
        source, library = self.file("front.c", code.encode()), self.folder / "front.so"
        subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)
        front = {"LD_PRELOAD": str(library), "ASAN_OPTIONS": "verify_asan_link_order=0"}
        page = self.file("in.pgm", pgm(2, 2, b"page"))
        return self.run_rast("expgamma", *SAME, page, *arguments, env=os.environ | front)

    def test_output_stays_out_of_the_pixels(self):
        body = 'printf("printed\\n"); memcpy(planes[7], planes[3], 4);'
        body += 'return write(1, "written\\n", 8) != 8;'
        target = self.folder / "out.pgm"
        for name, expected in (("-", pgm(2, 2, b"page")), ("/dev/stdout", pgm(2, 2, b"page")),
                               (target, b"")):
            done = self.apply_with(body, name)
            self.assertEqual((done.returncode, done.stdout), (DONE, expected))
            self.assertEqual(sorted(done.stderr.split()), [b"printed", b"written"])
        self.assertEqual(target.read_bytes(), pgm(2, 2, b"page"))

    def test_refusal_is_reported(self):
        done = self.apply_with("return 0x8001;", self.folder / "out.pgm")
        self.assert_fails(done, RUN_TIME, "page 1, line 1", "0x8001")
        self.assertFalse((self.folder / "out.pgm").exists())


if __name__ == "__main__":
    unittest.main()
