"""Chains of operations, the memory they keep within, and the bilevel and arbitrary-map formats."""

import fcntl
import json
import os
import random
import re
import resource
import subprocess
import sys
import termios
import time
import unittest
from pathlib import Path

from test_rast import (
    DAMAGED, DONE, MEMORY, OUTPUT, RAST, RUN_TIME, SIGNALS, UNSUPPORTED, USAGE, RastTest, gray_png,
    pgm, png, ppm, ramp, reduced,
)

GRAY, COLOR = 1, 3
BANDS = (1, 7, 64, 1000, 65536)
MEMORIES = ("20M", "24M", "64M", "1G")


def is_plain(path):
    """For this machine, and without a sanitizer, which needs memory of its own."""
    content, own = Path(path).read_bytes(), Path(sys.executable).read_bytes()[:20]
    sanitized = any(name in content for name in (b"__asan_init", b"__tsan_init", b"__msan_init"))
    return not sanitized and (content[4], content[18:20]) == (own[4], own[18:20])


def page(source, components, width, height):
    samples = source.randbytes(width * height * components)
    return (pgm if components == GRAY else ppm)(width, height, samples)


def sizes_of(stream):
    """Of the pages in a stream of PGM and PPM as the command writes it, and their components."""
    out = []
    while stream:
        kind, width, height = re.match(rb"P([56])\n(\d+) (\d+)\n255\n", stream).groups()
        components = GRAY if kind == b"5" else COLOR
        header = len(b"Px\n%s %s\n255\n" % (width, height))
        out.append((int(width), int(height), components))
        stream = stream[header + int(width) * int(height) * components :]
    return out


class ChainTest(RastTest):
    def assert_same(self, actual, expected):
        """Fast for streams of many megabytes that are the same."""
        if actual != expected:
            super().assert_same(actual, expected)

    def out(self, *arguments, **options):
        """What goes to standard output, expected to succeed."""
        done = self.run_rast(*arguments, **options)
        self.assertEqual(done.returncode, DONE, done.stderr)
        return done.stdout

    def one_by_one(self, stream, steps):
        """The single commands; a step is an operation and pairs, None for a parameter's flag."""
        for operation, pairs in steps:
            words = [f"--{name}" if value is None else f"--{name}={value}" for name, value in pairs]
            stream = self.out(operation, *words, input=stream)
        return stream

    def refuse_chain(self, chain, *words, code=USAGE, arguments=()):
        target = self.file("out.pgm", b"before")
        done = self.run_rast("chain", *arguments, chain, "-", target, input=pgm(1, 1, b"a"))
        self.assert_fails(done, code, *words)
        self.assertEqual(target.read_bytes(), b"before")


def text_of(steps):
    return " : ".join(
        " ".join([name, *(p if v is None else f"{p}={v}" for p, v in pairs)])
        for name, pairs in steps
    )


FIRST = {"colgamma": "curve", "satadjust": "mode", "hueadjust": "matrix", "overlay": "with",
         "overlayrgb": "with", "rotate": "turn"}


class Writer:
    """The same steps in the many ways there are to write them."""

    def __init__(self, source):
        self.source = source

    def quoted(self, word):
        style = self.source.randrange(5)
        if style == 0:
            return f'"{word}"'
        if style == 1:
            return f"'{word}'"
        if style == 2 and "=" in word:
            name, value = word.split("=", 1)
            return f'{name}="{value}"'
        if style == 3:
            cut = self.source.randrange(len(word) + 1)
            return f"{word[:cut]}'{word[cut:]}'"
        return word

    def words(self, operation, pairs):
        words = [p if v is None else f"{p}={v}" for p, v in pairs]
        for k, (name, value) in enumerate(pairs):
            if FIRST.get(operation) == name and self.source.random() < 0.6:
                words[k] = str(value)
        self.source.shuffle(words)
        return [operation, *words]

    def step(self, operation, pairs):
        gap = lambda: self.source.choice((" ", "\t", "   "))
        words = self.words(operation, pairs)
        return "".join(self.quoted(word) + gap() for word in words).rstrip()

    def write(self, steps):
        out = self.source.choice(("", "# first\n", "\n \n", ": ", " "))
        for operation, pairs in steps:
            out += self.step(operation, pairs)
            out += self.source.choice(
                (" : ", " :\n", "\n", "\n\n", "\t:\t", " # note : rotat 'cw\n", "\n: : ", "\n#\n")
            )
        return out


    def write_without_blanks(self, steps):
        out = self.source.choice(("", "# first\n", "\n \n", ":", " "))
        for operation, pairs in steps:
            words = self.words(operation, pairs)
            # Partly in quotation marks, a list of numbers is no longer one.
            words = [word if "," in word else self.quoted(word) for word in words]
            out += ",".join(words) + self.source.choice((":", "::", "\n", ":\n", " # note\n"))
        return out


class Draw:
    """Steps that suit the pages at hand."""

    def __init__(self, test, source):
        self.test, self.source = test, source

    def file(self, content):
        return self.test.aside("file", content)

    def expgamma(self, _):
        return [("threshold", self.source.randrange(99)), ("offset", self.source.randrange(99)),
                ("gain", self.source.randrange(600))]

    def colgamma(self, _):
        table = " ".join(map(str, self.source.randbytes(256)))
        curve = self.source.choice(("invert", "gamma=1.8", self.file(table.encode())))
        return [("curve", curve)]

    def binconv(self, _):
        return [("color", self.source.randrange(6))]

    def satadjust(self, _):
        return [("mode", self.source.choice(("raise", "lower")))]

    def hueadjust(self, _):
        matrix = self.source.choice(("sepia", "swap-rb", "rotate=33"))
        more = [(name, None) for name in ("reverse", "mirror") if self.source.random() < 0.4]
        return [("matrix", matrix), *more]

    def colbalance(self, _):
        level = ",".join(str(self.source.randrange(12)) for _ in range(4))
        return [("curve", self.source.randrange(5)), ("level", level)]

    def placed(self, sizes):
        width, height = min(s[0] for s in sizes), min(s[1] for s in sizes)
        logo = self.file(page(self.source, sizes[0][2], *self.source.choices(range(1, 30), k=2)))
        out = [("with", logo)]
        out.append(("at", f"{self.source.randrange(2 * width)},{self.source.randrange(height)}"))
        if self.source.random() < 0.5:
            out.append(("base", f"0,{self.source.randrange(2 * height)}"))
        elif self.source.random() < 0.5:
            base = self.source.randrange(min(width, height))
            out.append(("base", f"{base},{self.source.randrange(height)}"))
        if self.source.random() < 0.3:
            out.append(("size", f"{width + 9}x{height + self.source.randrange(9)}"))
        return out + [("white", None)] * self.source.randrange(2)

    def overlay(self, sizes):
        mode = self.source.choice(("replace", "max", "ink"))
        return [*self.placed(sizes), ("mode", mode), ("density", self.source.randint(10, 100))]

    def overlayrgb(self, sizes):
        return self.placed(sizes)

    def rotate(self, _):
        return [("turn", self.source.choice(("cw", "ccw")))]

    def zoom(self, _):
        ratios = [self.source.choice((333, 500, 501, 750, 900, 999, 1000)) for _ in range(2)]
        if self.source.random() < 0.2:
            return [("percent", ratios[0] / 10)]
        return [("x", ratios[0]), ("y", ratios[1])]

    def shift(self, sizes):
        width, height = min(s[0] for s in sizes), min(s[1] for s in sizes)
        fill = ("fill", self.source.choice(("none", "black", "white")))
        if self.source.random() < 0.4 and width > 1:
            x, y = -self.source.randrange(1, width), -self.source.randrange(height)
            return [("x", x), ("y", y), fill]
        x, y = self.source.randrange(width), self.source.randrange(height)
        size = [("size", f"{width + 3}x{height + 2}")] if self.source.random() < 0.4 else []
        return [("x", x), ("y", y), fill, *size]

    def gray(self, _):
        return []

    NAMES = ("expgamma", "colgamma", "binconv", "satadjust", "hueadjust", "colbalance", "overlay",
             "overlayrgb", "rotate", "zoom", "shift", "gray")
    ONLY = {"expgamma": GRAY, "binconv": COLOR, "satadjust": COLOR, "colbalance": COLOR,
            "overlayrgb": COLOR}

    def step(self, sizes, wanted=None):
        components = sizes[0][2]
        fits = [n for n in self.NAMES if self.ONLY.get(n, components) == components]
        operation = wanted or self.source.choice(fits)
        return operation, getattr(self, operation)(sizes)


class SameBytes(ChainTest):
    """A chain gives what the single commands give, whatever the band and the memory."""

    def stream(self, source, components, most=60):
        count = source.randint(1, 3)
        sizes = [(source.randint(2, most), source.randint(2, 2 * most)) for _ in range(count)]
        return b"".join(page(source, components, *size) for size in sizes)

    def draw(self, source, components, count, first=None, most=60):
        """Steps, their input and what they make of it, by single commands."""
        stream = given = self.stream(source, components, most)
        steps, draw = [], Draw(self, source)
        for k in range(count):
            steps.append(draw.step(sizes_of(stream), first if k == 0 else None))
            stream = self.one_by_one(stream, steps[-1:])
        return steps, given, stream

    def test_random_chains(self):
        for seed in range(45):
            source = random.Random(seed)
            components = source.choice((GRAY, COLOR))
            only = Draw.ONLY
            names = [n for n in Draw.NAMES if only.get(n, components) == components]
            steps, given, expected = self.draw(
                source, components, source.randint(2, 5), names[seed % len(names)]
            )
            text = Writer(source).write(steps)
            path = self.file("steps", text.encode())
            short = Writer(source).write_without_blanks(steps)
            short_path = self.file("short", short.encode())
            for chain in (
                [text_of(steps)], [text], ["--chain", path], [short], ["--chain", short_path]
            ):
                with self.subTest(seed=seed, chain=text_of(steps), text=chain[-1]):
                    band = source.choice(BANDS)
                    made = self.out("chain", *chain, "--band", band, input=given)
                    self.assert_same(made, expected)

    def test_bands_and_memory(self):
        for components in (GRAY, COLOR):
            for number, name in enumerate(Draw.NAMES):
                if Draw.ONLY.get(name, components) != components:
                    continue
                source = random.Random(100 * components + number)
                steps, given, expected = self.draw(source, components, 3, name)
                for k, band in enumerate(BANDS):
                    memory = MEMORIES[(number + k) % len(MEMORIES)]
                    with self.subTest(chain=text_of(steps), band=band, memory=memory):
                        more = ("--band", band, "--memory", memory)
                        self.assert_same(self.out("chain", *more, text_of(steps), input=given),
                                         expected)
                operation, pairs = steps[0]
                words = [f"--{p}" if v is None else f"--{p}={v}" for p, v in pairs]
                single = self.one_by_one(given, steps[:1])
                for band, memory in zip((65536, 1, 1000, 7), MEMORIES):
                    with self.subTest(operation=steps[0], band=band, memory=memory):
                        more = ("--band", band, "--memory", memory)
                        self.assert_same(self.out(operation, *words, *more, input=given), single)

    CHAINS = (
        "colgamma invert : zoom x=777 y=300 : colgamma gamma=2",
        "zoom y=600 : rotate cw : zoom x=501 y=700",
        "rotate ccw : zoom x=600 y=875 : shift x=-3 y=-5 : zoom y=300",
        "zoom percent=50 : zoom percent=75 : zoom x=900 y=900",
        "shift x=-7 y=-9 : hueadjust sepia reverse : zoom y=625",
        "shift x=30 y=40 : rotate cw : shift x=-1 y=-80 : rotate ccw : gray",
        "overlay with=LOGO at=40,100 mode=ink : zoom y=900 : overlay LOGO at=3,2 density=60",
        "rotate cw : rotate cw : rotate cw : rotate cw",
    )

    def test_long_pages(self):
        """Pages of many bands, and of more bytes than the least memory."""
        source = random.Random(5)
        for components in (GRAY, COLOR):
            logo = self.aside("logo", page(source, components, 41, 37))
            given = page(source, components, 1000, 5700 // components) + page(
                source, components, 90, 900
            ) + page(source, components, 1100, 131)
            for k, text in enumerate(self.CHAINS):
                text = text.replace("LOGO", str(logo))
                stream = given
                for step in text.split(" : "):
                    stream = self.out("chain", step, input=stream)
                choices = ((1000, "20M"), (65536, "24M"), (7, "20M"), (65536, "1G"), (300, "64M"))
                for band, memory in (choices[k % 5], choices[(k + 2) % 5]):
                    with self.subTest(text=text, band=band, memory=memory):
                        made = self.out("chain", "-b", band, "-m", memory, text, input=given)
                        self.assert_same(made, stream)

    def test_ratios_of_long_bands(self):
        """Ratios that need bands of 1000 lines."""
        source = random.Random(6)
        for components in (GRAY, COLOR):
            given = page(source, components, 90, 2345) + page(source, components, 7, 1001)
            for text, least in (
                ("shift x=1 y=3 : zoom y=333 : colgamma invert", "20M"),
                ("zoom y=999 : zoom y=501", "20M"),
                ("rotate cw : zoom x=333 y=999 : rotate ccw : zoom x=777 y=777", "128M"),
            ):
                stream = given
                for step in text.split(" : "):
                    stream = self.out("chain", step, input=stream)
                for band, memory in ((7, least), (1000, least), (65536, "1G")):
                    with self.subTest(text=text, band=band, memory=memory):
                        made = self.out("chain", "-b", band, "-m", memory, text, input=given)
                        self.assert_same(made, stream)

    def test_sizes_by_hand(self):
        """Not against the command itself: what becomes of six samples."""
        given = pgm(3, 2, b"abcdef")
        for text, expected in (
            ("rotate cw", pgm(2, 3, b"daebfc")),
            ("rotate cw : colgamma invert", pgm(2, 3, bytes(255 - x for x in b"daebfc"))),
            ("rotate cw : rotate ccw", given), ("colgamma invert : colgamma invert", given),
            ("hueadjust mirror : rotate ccw", pgm(2, 3, b"adbecf")),
            ("shift x=-1 : rotate cw", pgm(2, 3, b"dae b\xff\xff".replace(b" ", b""))),
            ("shift x=1 y=1 fill=black : shift x=1", pgm(3, 2, b"\xff\0\0\xff\0a")),
            ("gray : gray", given),
            ("zoom y=500 : zoom x=333",
             pgm(1, 1, bytes(reduced(reduced_rows(b"abcdef", 3), 333)))),
        ):
            with self.subTest(text):
                self.assertEqual(self.out("chain", text, input=given), expected)

    def test_many_steps(self):
        source = random.Random(9)
        given = page(source, COLOR, 40, 50) + page(source, GRAY, 5, 300)
        mirrored = self.out("hueadjust", "--mirror", input=given)
        for steps, expected in (
            (["colgamma invert"] * 40, given),
            (["rotate cw"] * 40, given), (["hueadjust mirror"] * 41, mirrored),
        ):
            for memory in ("20M", "256M"):
                made = self.out("chain", "-m", memory, " : ".join(steps), input=given)
                self.assert_same(made, expected)
        stream = given
        for _ in range(20):
            stream = self.one_by_one(stream, [("zoom", [("y", 970)]), ("shift", [("y", 1)])])
        text = "\n".join(["zoom y=970", "shift y=1"] * 20)
        self.assert_same(self.out("chain", "-m", "20M", text, input=given), stream)

    def test_chosen_pages(self):
        source = random.Random(3)
        pages = [page(source, GRAY, *size) for size in ((4, 5), (9, 2), (3, 3), (1, 8))]
        made = self.out("chain", "--pages", "2,4", "rotate cw : rotate cw", input=b"".join(pages))
        turned = lambda one: self.out("chain", "rotate ccw : rotate ccw", input=one)
        self.assertEqual(made, turned(pages[1]) + turned(pages[3]))

    def test_mirror(self):
        given = pgm(2, 1, b"ab") * 2
        done = self.run_rast("chain", "hueadjust mirror : colgamma invert", input=given)
        expected = (DONE, pgm(2, 1, b"\x9d\x9e") * 2, b"")
        self.assertEqual((done.returncode, done.stdout, done.stderr), expected)


def reduced_rows(samples, width):
    columns = [reduced(samples[x::width], 500) for x in range(width)]
    return [column[0] for column in columns]


class Writing(ChainTest):
    """How chains are written."""

    GIVEN = ppm(3, 2, ramp(18))

    def test_same_as(self):
        turned = self.out("rotate", "cw", "--gray", input=self.GIVEN)
        for text in (
            "gray : rotate cw", "gray : rotate turn=cw", "gray\nrotate cw", "gray\r\nrotate cw\r\n",
            " gray  :\trotate\tcw ", "gray # : rotat\nrotate cw # cww",
            "# only\ngray\n# x\nrotate cw",
            "'gray' : \"rotate\" 'cw'", "gray : rotate turn='cw'", "gray : rotate 'turn=cw'",
            "gray : rotate tu'rn=c'w", "gray :\n: rotate cw :", ": gray : : rotate cw : :",
            "rotate cw : gray", "gray : gray : rotate cw : gray",
            "gray:rotate,cw", "gray:rotate,turn=cw", "gray\nrotate,cw", ":gray::rotate,cw:",
            " gray:rotate,cw \n", "gray:rotate,'cw' # , :", "'gray':\"rotate\",'cw'",
            "gray:rotate,tu'rn=c'w", "# a b\ngray # c\nrotate,cw", "gray : rotate cw\ngray:gray",
        ):
            with self.subTest(text):
                self.assertEqual(self.out("chain", text, input=self.GIVEN), turned)
                path = self.file("steps", text.encode())
                for option in (["--chain", path], [f"--chain={path}"], ["-c", path], [f"-c{path}"]):
                    self.assertEqual(self.out("chain", *option, input=self.GIVEN), turned)

    def test_lists_without_blanks(self):
        """A number goes on with the value before it."""
        logo = self.file("logo.ppm", ppm(1, 1, b"rgb"))
        named = self.file("1,2.ppm", ppm(1, 1, b"abc"))
        for short, text in (
            ("colbalance,level=6,5,4,5,curve=2", "colbalance level=6,5,4,5 curve=2"),
            (f"overlay,{logo},at=2,1,white:shift,x=-1,y=-1",
             f"overlay {logo} at=2,1 white : shift x=-1 y=-1"),
            (f"overlay,with='{named}',at=0,1", f"overlay '{named}' at=0,1"),
            ("shift,size=7x5,x=2,y=1", "shift size=7x5 x=2 y=1"),
            ("hueadjust,matrix=rotate=-90,reverse", "hueadjust rotate=-90 reverse"),
            ("zoom,percent=33.3", "zoom percent=33.3"),
        ):
            with self.subTest(short):
                made = self.out("chain", short, input=self.GIVEN)
                self.assertEqual(made, self.out("chain", text, input=self.GIVEN))

    def test_no_end_of_line(self):
        path = self.file("steps", b"gray\nrotate cw")
        self.assertEqual(
            self.out("chain", "-c", path, input=self.GIVEN),
            self.out("chain", "gray : rotate cw", input=self.GIVEN),
        )

    def test_hash_within_a_word_and_in_quotes(self):
        curve = " ".join(map(str, range(255, -1, -1))).encode()
        inverted = self.out("colgamma", "--curve", "invert", input=self.GIVEN)
        for name, texts in (
            ("a#b", ["a#b", "curve=a#b", "'a#b'"]), ("#b", ["'#b'", "curve=#b", '"#b"']),
            ("a b : c", ["'a b : c'", 'curve="a b : c"', "\"curve=a b : c\""]),
            ('it"s', ["'it\"s'"]), ("it's", ["\"it's\"", "curve=\"it's\""]),
            ("a\nb", ["'a\nb'"]), (":", ["':'", "curve=:"]), ("gamma=x", ["./gamma=x"]),
            ("curve=1", ["curve=curve=1", "curve=./curve=1"]),
        ):
            self.file(name, curve)
            for text in texts:
                with self.subTest(name=name, text=text):
                    made = self.out(
                        "chain", f"colgamma {text}", input=self.GIVEN, cwd=self.folder
                    )
                    self.assertEqual(made, inverted)

    def test_flags_and_unnamed(self):
        for text, single in (
            ("hueadjust reverse", ["--reverse"]),
            ("hueadjust sepia reverse mirror", ["--matrix=sepia", "--mirror", "--reverse"]),
            ("hueadjust mirror sepia", ["--mirror", "--matrix", "sepia"]),
            ("hueadjust rotate=30 reverse", ["--matrix", "rotate=30", "--reverse"]),
            ("hueadjust matrix=identity", ["--matrix=identity"]),
        ):
            with self.subTest(text):
                self.assertEqual(
                    self.out("chain", text, input=self.GIVEN),
                    self.out("hueadjust", *single, input=self.GIVEN),
                )

    def test_operands(self):
        source = self.file("in.ppm", self.GIVEN)
        steps = self.file("steps", b"rotate cw\n")
        turned = self.out("rotate", "cw", source)
        for arguments in (
            ["rotate cw", "in.ppm", "out.ppm"], ["-c", steps, "in.ppm", "out.ppm"],
            ["in.ppm", "out.ppm", "-c", steps], ["rotate cw", "-b1", "in.ppm", "-q", "out.ppm"],
        ):
            with self.subTest(arguments):
                done = self.run_rast("chain", *arguments, cwd=self.folder)
                self.assertEqual((done.returncode, done.stdout, done.stderr), (DONE, b"", b""))
                self.assertEqual((self.folder / "out.ppm").read_bytes(), turned)
                (self.folder / "out.ppm").unlink()
        done = self.run_rast("chain", "rotate cw : rotate ccw", source, source)
        self.assertEqual((done.returncode, source.read_bytes()), (DONE, self.GIVEN))

    def test_gray_option(self):
        text = "hueadjust reverse : rotate cw"
        gray = self.out("gray", input=self.GIVEN)
        expected = self.out("chain", text, input=gray)
        self.assertEqual(self.out("chain", "--gray", text, input=self.GIVEN), expected)
        self.assertEqual(self.out("chain", f"gray : {text}", input=self.GIVEN), expected)
        self.assertEqual(self.out("chain", "gray", input=self.GIVEN), gray)
        self.assertEqual(self.out("colgamma", "-g", "--curve", "gamma=1", input=self.GIVEN), gray)
        stream = self.GIVEN + pgm(2, 1, b"ab") + self.GIVEN
        self.assertEqual(self.out("chain", "gray", input=stream), gray + pgm(2, 1, b"ab") + gray)


class Refused(ChainTest):
    def test_too_many_steps(self):
        page = pgm(1, 1, b"a")
        self.assertEqual(self.out("chain", " : ".join(["gray"] * 100), input=page), page)
        done = self.run_rast("chain", " : ".join(["shift x=0"] * 101), input=page)
        self.assert_fails(done, USAGE, "step 101", "100")

    def test_the_step_is_named(self):
        chain = "rotate cw : shift x=7 : shift x=7"
        done = self.run_rast("chain", chain, input=pgm(9, 5, bytes(45)))
        self.assert_fails(done, USAGE, "page 1: step 2, shift: --x 7")
        done = self.run_rast("chain", "--gray", "gray : shift y=9", input=ppm(9, 5, bytes(135)))
        self.assert_fails(done, USAGE, "page 1: step 2, shift: --y 9")
        done = self.run_rast("shift", "--gray", "--y", "9", input=pgm(9, 5, bytes(45)))
        self.assert_fails(done, USAGE, "page 1: --y 9")

    def test_overlays_keep_to_the_memory(self):
        wide = self.file("wide.pgm", b"P5 3000000 1 255\n" + bytes(3_000_000))
        arguments = ("overlay", "--with", wide, "--memory", "20M")
        done = self.run_rast(*arguments, input=pgm(1, 1, b"a"))
        self.assert_fails(done, MEMORY, str(wide), "3000000 columns", "--memory")

    def test_ratios_that_no_memory_serves(self):
        head = b"P5 1100000 1001 255\n"
        done = self.run_rast("zoom", "--y", "999", "--memory", "3G", input=head)
        self.assert_fails(done, UNSUPPORTED, "1000 lines", "ratios")


class Malformed(ChainTest):
    def test_chains(self):
        for text, *words in (
            ("", "no step", "rast help chain"), (":", "no step"), (" : : :\n:", "no step"),
            ("# rotate cw", "no step"), (" \t\n", "no step"),
            ("rotat cw", "step 1", "'rotat'", "did you mean 'rotate'?"),
            ("gray : colgama invert", "step 2", "'colgama'", "did you mean 'colgamma'?"),
            ("gray\ngray\n\nsift x=1", "step 3", "'sift'", "did you mean 'shift'?"),
            ("gray : sharpen", "step 2", "'sharpen'", "rast help"),
            ("gray:rotate cw", "step 1", "'gray:rotate'", "stands alone"),
            ("shift,x=1 y=2", "step 1", "'shift,x=1'", "a chain without blanks"),
            ("gray : shift,x=1", "step 2", "'shift,x=1'", "a chain without blanks"),
            ("shift,x=1,", "step 1, shift", "beside a comma"), (",gray", "step 1", "comma"),
            ("shift,,x=1", "step 1", "comma"), ("gray,:gray", "step 1, gray", "comma"), (",", "comma"),
            ("gray:shift,,x=1", "step 2, shift", "beside a comma"),
            ("gray:shift,x=1,2", "step 2, shift", "'1,2'"), ("gray:rotat,cw", "step 2", "'rotate'"),
            ("binconv,3", "step 1, binconv", "'3'"), ("rotate,'cw", "step 1", "quotation mark"),
            ("gray : rotate cw: gray", "step 2, rotate", "'cw:'"),
            ("chain gray", "step 1", "'chain'"), ("info", "step 1", "'info'"),
            ("compare a b", "step 1"), ("help", "step 1"), ("x=1", "step 1"), ("''", "step 1"),
            ("gray : '' : gray", "step 2"),
            ("zoom percnt=50", "step 1, zoom", "'percnt'", "did you mean 'percent'?"),
            ("gray : hueadjust mirrr", "step 2, hueadjust", "did you mean"),
            ("shift --x=1", "step 1, shift", "'--x'"), ("shift -x 1", "step 1, shift", "'-x'"),
            ("shift x 1", "step 1, shift", "'x' needs a value"),
            ("gray : zoom percent", "step 2, zoom", "'percent' needs a value"),
            ("shift =1", "step 1, shift"), ("gray band=3", "step 1, gray", "'band'"),
            ("gray x", "step 1, gray", "'x'"), ("shift ''", "step 1, shift"),
            ("hueadjust reverse=1", "step 1, hueadjust", "'reverse' takes no value"),
            ("hueadjust mirror=", "step 1, hueadjust", "'mirror' takes no value"),
            ("gray : rotate", "step 2, rotate", "turn", "missing"),
            ("colgamma", "step 1, colgamma", "curve", "missing"),
            ("satadjust : gray", "step 1, satadjust", "mode", "missing"),
            ("gray : overlay at=1,1", "step 2, overlay", "with", "missing"),
            ("overlayrgb white", "step 1, overlayrgb", "with", "missing"),
            ("rotate left", "step 1, rotate", "'left'", "cw or ccw"),
            ("gray : zoom percent=0", "step 2, zoom", "'0'", "0.1..100"),
            ("gray : zoom x=1001", "step 2, zoom", "'1001'", "1..1000"),
            ("expgamma threshold=256", "step 1, expgamma", "'256'", "0..255"),
            ("expgamma gain=-1", "step 1, expgamma", "'-1'", "0..65535"),
            ("expgamma offset=", "step 1, expgamma", "''"),
            ("binconv color=6", "step 1, binconv", "0..5"),
            ("colbalance level=5,5,5", "step 1, colbalance", "R,G,B,GRAY"),
            ("shift fill=red", "step 1, shift", "'red'", "none or black or white"),
            ("shift size=3", "step 1, shift", "WxH"),
            ("colgamma gamma=99", "step 1, colgamma", "0.1..10"),
            ("gray : colgamma /nonexistent", "step 2, colgamma", "/nonexistent"),
            ("hueadjust sepai", "step 1, hueadjust", "did you mean 'sepia'?"),
            ("gray 'x", "step 1", "quotation mark"), ('gray : "rotate cw', "step 2", "quotation"),
            ("gray : rotate 'cw\" : gray", "step 2", "quotation mark"),
            ("rotate cw : '", "step 2", "quotation mark"),
        ):
            with self.subTest(text):
                self.refuse_chain(text, *words)
                path = self.aside("steps", text.encode())
                done = self.run_rast("chain", "--chain", path, "-", self.folder / "none.pgm",
                                     input=pgm(1, 1, b"a"))
                self.assert_fails(done, USAGE, *words)
        self.assertEqual(os.listdir(self.folder), ["out.pgm"])

    def test_nothing_is_given(self):
        """A step that has nothing to do for that."""
        needy = {"expgamma": "gain=256", "hueadjust": "identity", "colbalance": "level=5,5,5,5",
                 "zoom": "percent=100", "shift": "fill=white"}
        known = json.loads(self.out("ops", "--json"))
        needs = [operation["name"] for operation in known if operation["needs_parameter"]]
        self.assertEqual(needs, list(needy))
        pages = {"gray": pgm(3, 2, ramp(6)), "color": ppm(3, 2, ramp(18))}
        for operation in known:
            name = operation["name"]
            if name not in needy:
                continue
            names = [f"--{parameter['name']}" for parameter in operation["parameters"]]
            words = f"expected {', '.join(names[:-1])} or {names[-1]};"
            page = pages[[kind for kind in operation["pages"] if kind in pages][-1]]
            done = self.run_rast(name, input=page)
            self.assert_fails(done, USAGE, f"nothing is given for {name} to do", words, f"rast help {name}")
            for chain in (f"{name}", f"gray : {name}", f"{name}:gray", f"rotate,cw\n{name}"):
                self.refuse_chain(chain, f"nothing is given for {name} to do", words)
            self.out("chain", f"{name} {needy[name]}", input=page)

    def test_given_twice(self):
        for text in ("rotate cw ccw", "rotate turn=cw turn=ccw", "rotate cw turn=ccw",
                     "shift x=1 x=2", "zoom percent=50 percent=20", "colgamma invert gamma=2"):
            with self.subTest(text):
                self.refuse_chain(text, "step 1")

    def test_number_unnamed(self):
        """As the help has it, only values that are no numbers go without their name."""
        for text in ("zoom 50", "binconv 3", "expgamma 9", "shift 1", "colbalance 2"):
            with self.subTest(text):
                self.refuse_chain(text, "step 1", f"'{text.split()[1]}'")

    def test_operands(self):
        steps = self.file("steps", b"gray\n")
        for arguments, words in (
            ([], ["CHAIN [IN [OUT]]", "rast help chain"]),
            (["gray", "a", "b", "c"], ["'c'"]), (["-c", steps, "a", "b", "c"], ["'c'"]),
            (["-c", steps, "gray", "a", "b"], ["'b'"]), (["--chain"], ["--chain", "needs a value"]),
            (["--turn=cw", "rotate"], ["--turn"]),
            (["--chian", steps], ["did you mean '--chain'?"]),
            (["gray", "a", "b.jpg"], ["b.jpg"]), (["gray", "--band=0"], ["--band", "1..65536"]),
        ):
            with self.subTest(arguments):
                self.assert_fails(self.run_rast("chain", *arguments), USAGE, *words)
        self.assert_fails(self.run_rast("gray", "-c", steps), USAGE, "'-c'")
        self.assert_fails(self.run_rast("help", "chian"), USAGE, "did you mean 'chain'?")
        self.assert_fails(self.run_rast("chian", "gray"), USAGE, "did you mean 'chain'?")

    def test_files(self):
        source = random.Random(1)
        for content, *words in (
            (b"", "no step"), (b"\n# x\n", "no step"), (b"\0", "null bytes"),
            (bytes(256) * 9, "null bytes"),
            (bytes(x % 127 + 1 for x in source.randbytes(5000)), "chain, step 1"),
            (b"gray\0rotate cw", "steps", "null bytes"), (b"\xef\xbb\xbfgray", "step 1"),
            (b" " * 2**21, "steps", "too long"), (b"gray\n" * 2**20, "steps", "too long"),
            (pgm(1, 1, b"a"), "step 1", "'P5'"),
            (b"gray\nrotate cw\nrotate\n", "step 3, rotate", "missing"),
        ):
            with self.subTest(words=words, content=content[:20]):
                path = self.file("steps", content)
                done = self.run_rast("chain", "--chain", path, input=pgm(1, 1, b"a"))
                self.assert_fails(done, USAGE, *words)
                self.assertEqual(done.stdout, b"")
        for path, word in (
            (self.folder / "missing", "No such file"), (self.folder, "cannot be read"),
            ("", "cannot be opened"), ("/dev/zero", "too long"),
        ):
            done = self.run_rast("chain", "--chain", path, input=pgm(1, 1, b"a"))
            self.assert_fails(done, USAGE, "--chain", word)

    def refuse_file(self, content):
        path = self.file("steps", content)
        done = self.run_rast("chain", "--chain", path, input=pgm(1, 1, b"a"))
        self.assertEqual((done.returncode, done.stdout), (USAGE, b""))
        return done

    def test_messages_are_short(self):
        """Whatever the chain holds, the line can be read."""
        for content in (b"x" * 500_000, b"gray " + b"x" * 500_000,
                        b"rotate turn=" + b"y" * 500_000):
            with self.subTest(content[:20]):
                self.assertLess(len(self.refuse_file(content).stderr), 2000)

    def test_messages_are_text(self):
        for content in (b"\x89PNG\r\n\x1a\n", b"\xff\xfegray", b"gray \x9b31m",
                        random.Random(2).randbytes(3000).replace(b"\0", b""), "\u00e9t\u00e9".encode()):
            with self.subTest(content[:20]):
                self.assert_fails(self.refuse_file(content), USAGE, "step 1")

    def test_nothing_is_read_or_written_before(self):
        target = self.folder / "out.pgm"
        done = self.run_rast("chain", "gray : rotat", "/nonexistent/in", target)
        self.assert_fails(done, USAGE, "step 2")
        self.assertEqual(os.listdir(self.folder), [])


class Kinds(ChainTest):
    RGB, ONE = ppm(2, 1, b"abcdef"), pgm(2, 1, b"ab")

    def test_color_operations_after_gray(self):
        logo = self.aside("logo", ppm(1, 1, b"rgb"))
        for name, more in (("binconv", ""), ("satadjust", "raise"), ("colbalance", "curve=4"),
                           ("overlayrgb", logo)):
            with self.subTest(name):
                for text, arguments in (
                    (f"gray : {name} {more}", []), (f"{name} {more}", ["--gray"]),
                    (f"gray : rotate cw : zoom percent=50 : {name} {more}", []),
                    (f"{name} {more} : gray : {name} {more}", []),
                ):
                    self.refuse(self.RGB, UNSUPPORTED, "page 1", name, "gray", operation="chain",
                                arguments=[*arguments, text])
                self.refuse(self.RGB * 2 + self.ONE, UNSUPPORTED, "page 3", name, "gray",
                            operation="chain", arguments=[f"{name} {more}"])
                self.out("chain", f"{name} {more} : gray", input=self.RGB)

    def test_gray_operations(self):
        self.refuse(self.RGB, UNSUPPORTED, "page 1", "expgamma", "color", operation="chain",
                    arguments=["rotate cw : expgamma gain=256"])
        self.refuse(self.ONE + self.RGB, UNSUPPORTED, "page 2", "expgamma", operation="chain",
                    arguments=["rotate cw : expgamma gain=256"])
        self.out("chain", "rotate cw : gray : expgamma gain=256", input=self.ONE + self.RGB)
        self.out("chain", "-g", "rotate cw : expgamma gain=256", input=self.ONE + self.RGB)

    def test_overlays(self):
        gray, color = self.aside("gray", self.ONE), self.aside("color", self.RGB)
        text = f"overlay {color} : gray : overlay {gray}"
        self.assertEqual(self.out("chain", text, input=self.RGB)[:2], b"P5")
        for text, given, path in (
            (f"gray : overlay {color}", self.RGB, color), (f"overlay {gray}", self.RGB, gray),
            (f"rotate cw : overlay {color}", self.ONE, color),
        ):
            self.refuse(given, UNSUPPORTED, str(path), operation="chain", arguments=[text])

    def test_geometry_in_the_middle(self):
        """Sizes are those that the steps before have made."""
        tall = pgm(2, 5, ramp(10))
        self.refuse(tall, USAGE, "page 1", "--x 3", "2 columns", operation="chain",
                    arguments=["rotate cw : rotate cw : shift x=3"])
        self.out("chain", "rotate cw : shift x=3", input=tall)
        self.refuse(tall, USAGE, "page 1", "5 columns", operation="chain",
                    arguments=["rotate cw : shift x=6"])
        self.refuse(tall * 2 + self.ONE, USAGE, "page 3", operation="chain",
                    arguments=["rotate cw : shift x=2 : rotate cw"])


class Memory(ChainTest):
    def peak(self, arguments, blocks):
        """Exit code, standard error, and the most memory in KiB of a job that reads the blocks."""
        if not is_plain(RAST):
            self.skipTest("the binary is not one whose memory can be measured")
        with subprocess.Popen(
            [RAST, *map(str, arguments)], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
        ) as process:
            try:
                for block in blocks:
                    process.stdin.write(block)
                process.stdin.flush()
                kilobytes = self.peak_when_waiting(process)
                process.stdin.close()
            except BrokenPipeError:
                kilobytes = None
            text = process.stderr.read().decode()
            return process.wait(20), text, kilobytes

    def peak_when_waiting(self, process):
        """Of a job that has read all there is and waits for more; None if it has ended."""
        end = time.monotonic() + 20
        while time.monotonic() < end:
            left = fcntl.ioctl(process.stdin, termios.FIONREAD, bytes(4))
            fields = dict(
                line.split(":", 1)
                for line in Path(f"/proc/{process.pid}/status").read_text().splitlines()
            )
            state = fields["State"].split()[0]
            if state in "ZX":
                return None
            # Within a page there is a thread that writes.
            if state == "S" and left == bytes(4) and int(fields["Threads"]) == 1:
                return int(fields["VmHWM"].split()[0])
            time.sleep(0.002)
        self.fail("the job neither ended nor waited for more")

    def done(self, arguments, blocks):
        """The most memory of a job that succeeds in silence."""
        code, text, kilobytes = self.peak(arguments, blocks)
        self.assertEqual((code, text), (DONE, ""))
        self.assertIsNotNone(kilobytes)
        return kilobytes

    def wide(self, components, width, height):
        line = random.Random(2).randbytes(width * components)
        yield b"P%d\n%d %d\n255\n" % (5 if components == GRAY else 6, width, height)
        for _ in range(0, height, 50):
            yield line * min(50, height)

    def test_values(self):
        page_of_one = pgm(1, 1, b"a")
        for size in ("20M", "20480K", str(20 * 2**20), "1G", "24M", "8191G", "020M"):
            with self.subTest(size):
                for option in (["--memory", size], [f"-m{size}"], [f"--memory={size}"]):
                    self.assertEqual(self.out("chain", *option, "gray", input=page_of_one),
                                     page_of_one)
        self.assertEqual(self.out("gray", "-m", "20M", input=page_of_one), page_of_one)
        for size in ("19M", "20479K", str(20 * 2**20 - 1), "0", "0G", "1", "20", "-20M", "+20M", "",
                     "M", "20MM", "20MB", "20m", "20 M", " 20M", "20.5M", "1e9", "0x2000000", "all",
                     "1T", "9" * 30, "9" * 30 + "G", "17179869184G", "18014398509481984K",
                     "8589934592G"):
            with self.subTest(size):
                for command in (["chain", "gray"], ["gray"], ["rotate", "cw"]):
                    done = self.run_rast(*command, f"--memory={size}", input=page_of_one)
                    self.assert_fails(done, USAGE, "--memory")
                    self.assertEqual(done.stdout, b"")
        self.assert_fails(self.run_rast("gray", "--memory"), USAGE, "--memory", "needs a value")
        done = self.run_rast("gray", "--memroy=24M")
        self.assert_fails(done, USAGE, "did you mean '--memory'?")

    def test_streaming_page(self):
        """Far more bytes than the memory, in steps that pass lines on."""
        for text, components, memory in (
            ("colgamma gamma=2 : hueadjust sepia : satadjust raise", COLOR, 24),
            ("shift x=9 y=9 : zoom x=901 y=500 : colgamma invert : gray", COLOR, 24),
            ("zoom percent=50 : shift x=-5 y=-5 : colbalance curve=4", COLOR, 20),
            ("expgamma gain=256 : zoom y=900 : expgamma gain=256", GRAY, 24),
        ):
            for band in (64, 65536):
                with self.subTest(text=text, band=band):
                    arguments = ("chain", "-m", f"{memory}M", "-b", band, text)
                    kilobytes = self.done(arguments, self.wide(components, 30_000, 450))
                    self.assertLess(kilobytes, memory * 1024)

    def test_whole_pages(self):
        """Pages in temporary files do not count; all else, as the system counts it, does."""
        if not is_plain(RAST):
            self.skipTest("the binary is not one whose memory can be measured")
        logo = self.aside("logo", pgm(500, 500, bytes(250_000)))
        given = b"".join(self.wide(GRAY, 4_000, 6_000))
        for text in ("rotate cw", "rotate cw : zoom y=900 : rotate ccw", f"overlay {logo} at=9,9",
                     f"zoom percent=90 : overlay {logo} : rotate cw"):
            with self.subTest(text):
                done = subprocess.run(
                    ["sh", "-c", f'ulimit -d {24 * 1024}; exec "$@"', "sh", RAST, "chain", "-m",
                     "24M", text, "-", "/dev/null"],
                    input=given, stderr=subprocess.PIPE, check=False,
                )
                self.assertEqual((done.returncode, done.stderr), (DONE, b""))

    def test_operations_by_themselves(self):
        for arguments in (["colgamma", "--curve=invert"], ["satadjust", "--mode=raise"],
                          ["zoom", "--y=300"], ["shift", "--x=-1"], ["gray"],
                          ["hueadjust", "--matrix=identity", "--format=png"]):
            with self.subTest(arguments):
                blocks = self.wide(COLOR, 30_000, 150)
                self.assertLess(self.done([*arguments, "-m24M"], blocks), 24 * 1024)

    def test_shared_libraries(self):
        """Each costs more memory than a line; those of formats come when a page needs them."""
        if not is_plain(RAST):
            self.skipTest("a sanitizer brings libraries of its own")
        entries = subprocess.run(
            ["readelf", "-d", RAST], stdout=subprocess.PIPE, text=True, check=True
        ).stdout
        needed = re.findall(r"NEEDED.*\[(\w+)", entries)
        self.assertIn("librast", needed)
        self.assertFalse({"libpng16", "libtiff", "libcups"}.intersection(needed), needed)

    def test_too_little(self):
        """One line in all steps does not fit."""
        for arguments, width in (
            (["chain", "gray : colgamma invert"], 9_000_000),
            (["chain", "zoom y=999"], 30_000), (["chain", "rotate cw"], 20_000_000),
            (["colgamma", "--curve=invert"], 9_000_000),
        ):
            with self.subTest(arguments):
                target = self.file("out.pgm", b"before")
                header = b"P6 %d 2000 255\n" % width
                done = self.run_rast(*arguments, "-m", "24M", "-", target, input=header)
                self.assert_fails(done, MEMORY, "page 1", "bytes")
                self.assertEqual(target.read_bytes(), b"before")
        line = b"P5 2000000 1 255\n" + bytes(2_000_000)
        self.out("chain", "-m", "24M", "colgamma invert", input=line)
        text = " : ".join(["colgamma invert", "shift x=1"] * 20)
        done = self.run_rast("chain", "-m", "24M", text, input=line)
        self.assert_fails(done, MEMORY, "page 1", "2000000 columns")
        self.out("chain", "-m", "1G", text, input=line)

    def test_what_is_asked_for(self):
        """No more than the job then takes, but for what the libraries of formats may."""
        page = b"P6 5100 6600 255\n"
        done = self.run_rast("zoom", "--percent", "33.3", "-m", "20M", input=page)
        self.assert_fails(done, MEMORY, "--memory", "1000 lines")
        asked = int(re.search(rb"--memory (\d+)M or more", done.stderr)[1])
        self.assertLess(asked, 36)
        kilobytes = self.done(("zoom", "--percent", "33.3", "-q", "-m", f"{asked}M"),
                              self.wide(COLOR, 5100, 6600))
        self.assertLess(kilobytes, asked * 1024)
        self.assertGreater(kilobytes, (asked - 17) * 1024)

    def test_large_paper(self):
        """A3 at 1200 dpi, in every ratio that needs bands of a thousand lines."""
        for ratio in ("33.3", "99.9", "66.7"):
            done = self.run_rast("zoom", "--percent", ratio, input=b"P6 14031 19843 255\n")
            self.assert_fails(done, DAMAGED, "line 1")

    def test_message_names_the_option(self):
        for arguments in (["colgamma", "--curve=invert"], ["chain", "gray : colgamma invert"],
                          ["chain", "zoom y=999"]):
            done = self.run_rast(*arguments, "-m", "24M", input=b"P6 9000000 2000 255\n")
            self.assert_fails(done, MEMORY, "--memory")

    def test_many_steps(self):
        text = " : ".join(["colgamma invert", "zoom y=900", "shift x=1", "satadjust raise"] * 10)
        for band in (1, 65536):
            arguments = ("chain", "-m", "64M", "-b", band, text)
            self.assertLess(self.done(arguments, self.wide(COLOR, 300, 3000)), 64 * 1024)

    def test_address_space(self):
        """Another folder would not help."""
        if not is_plain(RAST):
            self.skipTest("a sanitizer needs address space of its own")
        done = subprocess.run(
            ["sh", "-c", f'ulimit -v {200 * 1024}; exec "$@"', "sh", RAST, "rotate", "cw"],
            input=b"P5 20000 20000 255\n" + bytes(20000), stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, check=False,
        )
        self.assert_fails(done, MEMORY, "ulimit -v")
        self.assertNotIn(b"TMPDIR", done.stderr)

    def test_flat_over_pages(self):
        source = random.Random(4)
        one = page(source, COLOR, 60, 40)
        for text, count in (
            ("colgamma invert : zoom percent=70 : shift x=3 : gray", 1000), ("rotate cw", 200),
            ("zoom y=900 : rotate ccw : shift x=-2 : rotate cw", 200),
        ):
            with self.subTest(text):
                alone = self.done(("chain", text), [one])
                self.assertLess(self.done(("chain", text), [one * count]), alone + 1024)

    def test_flat_over_lines(self):
        for text in ("colgamma invert : zoom x=500 y=900 : satadjust raise : gray",
                     "shift x=5 y=90 : hueadjust sepia", "colbalance curve=4 : shift x=-5 y=-9"):
            with self.subTest(text):
                # enough lines that all bands are full
                alone = self.done(("chain", text), self.wide(COLOR, 200, 2_000))
                longer = self.done(("chain", text), self.wide(COLOR, 200, 100_000))
                self.assertLess(longer, alone + 1024)

    def test_stats_tell_the_truth(self):
        """Of the process alone, not of the program that has started it."""
        ballast = b"x" * 60_000_000
        for band in (1, 700):
            with self.subTest(band):
                code, text, kilobytes = self.peak(
                    ("chain", "-s", "-b", band, "rotate cw : colgamma invert : zoom y=500"),
                    self.wide(COLOR, 3_000, 2_000),
                )
                self.assertEqual(code, DONE)
                told = int(re.search(r"peak memory: (\d+) KiB", text)[1])
                self.assertLess(abs(told - kilobytes), 2048)
                seconds = re.findall(r"(\S+) in (?:all|the library|files)", text)
                self.assertEqual(len(seconds), 3)
                self.assertTrue(all(float(figure) > 0 for figure in seconds), text)
        self.assertEqual(len(ballast), 60_000_000)


class Jobs(ChainTest):
    CHAIN = "colgamma invert : rotate cw : colgamma invert : rotate ccw"

    def setUp(self):
        super().setUp()
        self.page = pgm(40, 300, ramp(12_000))
        self.source = self.file("in.pgm", self.page * 3)

    def test_quiet_and_progress(self):
        for more in ((), ("-q",), ("-p", "-q"), ("--progress=json", "--quiet")):
            done = self.run_rast("chain", *more, self.CHAIN, self.source)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assert_same(done.stdout, self.page * 3)
        done = self.run_rast("chain", "-p", self.CHAIN, self.source)
        self.assertEqual(done.returncode, DONE)
        self.assert_same(done.stdout, self.page * 3)
        self.assertRegex(done.stderr, rb"\r +\r3 pages done\n\Z")
        self.assertEqual(done.stderr.count(b"\n"), 1)
        percents = [int(p) for p in re.findall(rb" (\d+)%", done.stderr)]
        self.assertEqual(percents, sorted(percents))
        self.assertEqual(percents[-1], 100)

    def test_json(self):
        for text in (self.CHAIN, "zoom percent=50 : gray", "gray : rotate cw : shift x=1"):
            done = self.run_rast("chain", "-p=json".replace("-p", "--progress"), text, self.source)
            lines = [json.loads(line) for line in done.stderr.splitlines()]
            self.assertEqual((done.returncode, lines[-1]), (DONE, {"done": True, "pages": 3}))
            numbers = [line["page"] for line in lines[:-1]]
            self.assertEqual((numbers, set(numbers)), (sorted(numbers), {1, 2, 3}))
            percents = [line["percent"] for line in lines[:-1]]
            self.assertTrue(all(0 <= p <= 100 for p in percents), percents)
            self.assertEqual(percents, sorted(percents))
            self.assertEqual(percents[-1], 100)

    def test_json_of_a_failure(self):
        done = self.run_rast(
            "chain", "--progress=json", self.CHAIN, input=self.page * 2 + self.page[:-1]
        )
        lines = done.stderr.decode().splitlines()
        self.assertEqual(done.returncode, DAMAGED)
        self.assertTrue(lines[-1].startswith("rast: standard input: page 3, line 300: "), lines)
        for line in lines[:-1]:
            self.assertNotIn("done", json.loads(line))

    def test_stats(self):
        for text, written in ((self.CHAIN, 36_000), ("zoom percent=50", 9_000), ("gray", 36_000)):
            done = self.run_rast("chain", "--stats", text, self.source, "/dev/null")
            self.assertRegex(
                done.stderr.decode(),
                rf"\Apages: 3\nsample bytes: 36000 read, {written} written\n"
                r"seconds: [\d.]+ in all, [\d.]+ in the library, [\d.]+ in files\n"
                r"peak memory: \d+ KiB\n\Z",
            )

    def start(self, *arguments, **options):
        """A job that has read all but the end of its third page."""
        process = subprocess.Popen(
            [RAST, *map(str, arguments)], stdin=subprocess.PIPE, stderr=subprocess.PIPE, **options
        )
        process.stdin.write(pgm(1000, 2000, bytes(2_000_000)) * 3)
        process.stdin.write(pgm(1000, 2000, bytes(1_900_000)))
        process.stdin.flush()
        return process

    def test_signals(self):
        temporary = self.folder / "tmp"
        temporary.mkdir()
        target = self.file("out.pgm", b"before")
        for text in ("colgamma invert : zoom y=900 : shift x=1", self.CHAIN):
            for number in SIGNALS:
                with self.subTest(text=text, number=number), self.start(
                    "chain", text, "-", target, env=os.environ | {"TMPDIR": str(temporary)},
                    preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)),
                ) as process:
                    self.wait_for(lambda: self.temporaries(process))
                    self.assertEqual(target.read_bytes(), b"before")
                    process.send_signal(number)
                    self.assertEqual(process.wait(10), -number)
                    self.assertEqual(os.listdir(temporary), [])
                    names = sorted(os.listdir(self.folder))
                    self.assertEqual(names, ["in.pgm", "out.pgm", "tmp"])
                    self.assertEqual(target.read_bytes(), b"before")
                    process.stdin.close()

    def test_replaced_at_the_end(self):
        target = self.file("out.pgm", b"before")
        with self.start("chain", "colgamma invert : colgamma invert", "-", target) as process:
            self.wait_for(lambda: self.temporaries(process))
            self.assertEqual(target.read_bytes(), b"before")
            process.stdin.write(bytes(100_000))
            process.stdin.close()
            self.assertEqual((process.wait(10), process.stderr.read()), (DONE, b""))
        self.assert_same(target.read_bytes(), pgm(1000, 2000, bytes(2_000_000)) * 4)
        self.assertEqual(sorted(os.listdir(self.folder)), ["in.pgm", "out.pgm"])

    def test_second_page_fails(self):
        good, color = pgm(9, 300, ramp(2700)), ppm(2, 2, ramp(12))
        for text, second, code, words in (
            (self.CHAIN, good[:-1], DAMAGED, ["page 2, line 300:"]),
            ("gray : zoom percent=50", b"P5 3", DAMAGED, ["page 2"]),
            ("rotate cw : expgamma gain=256", color, UNSUPPORTED, ["page 2", "expgamma"]),
            ("shift x=8 : rotate cw", pgm(7, 1, ramp(7)), USAGE, ["page 2", "8"]),
            ("gray : rotate cw", pgm(9, 300, ramp(2700)) + b"x", DAMAGED, ["page 2"]),
        ):
            for band in (1, 64):
                with self.subTest(text=text, band=band):
                    (self.folder / "in.pgm").unlink(missing_ok=True)
                    self.refuse(good + second, code, *words, operation="chain",
                                arguments=["-b", band, text])

    def test_outputs_that_cannot_be_written(self):
        for text in (self.CHAIN, "gray : zoom percent=50"):
            for more in ((), ("-f", "png", "-P1"), ("-f", "pam")):
                done = self.run_rast("chain", *more, text, self.source, "/dev/full")
                self.assert_fails(done, OUTPUT, "/dev/full", "cannot be written")
            with open("/dev/full", "wb") as full:
                done = self.run_rast("chain", text, self.source, stdout=full)
            self.assert_fails(done, OUTPUT, "standard output")
            reader, writer = os.pipe()
            os.close(reader)
            done = self.run_rast("chain", text, self.source, stdout=writer)
            os.close(writer)
            self.assert_fails(done, OUTPUT, "Broken pipe")

    def test_closed_descriptors(self):
        target = self.folder / "out.pgm"
        command = f"'{RAST}' chain '{self.CHAIN}'"
        shell = lambda line: subprocess.run(["sh", "-c", line], check=False).returncode
        self.assertEqual(shell(f"{command} '{self.source}' '{target}' <&- >&- 2>&-"), DONE)
        self.assert_same(target.read_bytes(), self.page * 3)
        self.assertEqual(shell(f"{command} <&- 2>/dev/null"), RUN_TIME)
        self.assertEqual(shell(f"{command} '{self.source}' >&- 2>/dev/null"), OUTPUT)
        done = subprocess.run(
            ["sh", "-c", f"{command} <&-"], stderr=subprocess.PIPE, stdout=subprocess.PIPE,
            check=False,
        )
        self.assert_fails(done, RUN_TIME, "standard input")

    def test_temporary_folder(self):
        done = self.run_rast("chain", self.CHAIN, self.source,
                             env=os.environ | {"TMPDIR": "/nonexistent"})
        self.assert_fails(done, RUN_TIME, "/nonexistent", "TMPDIR")
        logo = self.file("logo", ppm(2, 2, bytes(12)))
        done = self.run_rast("overlay", "--with", logo, self.source,
                             env=os.environ | {"TMPDIR": "/nonexistent"})
        self.assert_fails(done, RUN_TIME, "/nonexistent", "TMPDIR")
        done = self.run_rast("chain", "gray : zoom percent=50", self.source,
                             env=os.environ | {"TMPDIR": "/nonexistent"})
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))


def pbm(width, height, samples, padding=0):
    """Samples of 0, black, and 255; padding bits beyond the width are all the same."""
    out = b""
    for y in range(height):
        bits = [int(x == 0) for x in samples[y * width : (y + 1) * width]]
        bits += [padding] * (-width % 8)
        out += bytes(
            sum(bit << 7 - i for i, bit in enumerate(bits[x : x + 8]))
            for x in range(0, len(bits), 8)
        )
    return b"P4\n%d %d\n" % (width, height) + out


def pam(width, height, samples, kind=None, most=255):
    depth = len(samples) // (width * height)
    kind = kind or ("GRAYSCALE" if depth == GRAY else "RGB")
    fields = (width, height, depth, most, kind.encode())
    return b"P7\nWIDTH %d\nHEIGHT %d\nDEPTH %d\nMAXVAL %d\nTUPLTYPE %s\nENDHDR\n" % fields + samples


class Formats(ChainTest):
    def black_and_white(self, count, seed=1):
        return bytes(random.Random(seed).choices((0, 255), k=count))

    def test_pbm_widths(self):
        plain = padded = ones = b""
        for width in range(1, 18):
            samples = self.black_and_white(width * 5, width)
            plain += pgm(width, 5, samples)
            padded += pbm(width, 5, samples, 1)
            ones += pbm(width, 5, samples)
        for band in (1, 7, 64):
            for given in (padded, ones):
                self.assert_same(self.out("gray", "-b", band, input=given), plain)
                self.assert_same(self.out("gray", "-b", band, "-f", "pbm", input=given), ones)
            self.assert_same(self.out("gray", "-b", band, "-f", "pbm", input=plain), ones)

    def test_pbm_headers(self):
        for header in (b"P4 3 2 ", b"P4\n# P5\n3# 9\n 2\n", b"P4\r\n3\t2\r", b"P4\n3 2# last\n"):
            with self.subTest(header):
                self.assertEqual(self.out("gray", input=header + b"\xbf\x1f"),
                                 pgm(3, 2, b"\0\xff\0\xff\xff\xff"))
        for header in (b"P4 0 1\n", b"P4 1 0\n", b"P4 -1 1\n", b"P4 x 1\n", b"P41 1\n",
                       b"P4 2147483648 1\n", b"P4 1 1x\n"):
            with self.subTest(header):
                self.refuse(header + b"\0" * 9, DAMAGED, "page 1", operation="gray")

    def refuse_output(self, content, *words, arguments):
        source, target = self.file("in", content), self.file("out.pbm", b"before")
        done = self.run_rast(*arguments, source, target)
        self.assert_fails(done, UNSUPPORTED, str(target), "PBM", *words)
        self.assertEqual(target.read_bytes(), b"before")
        self.assertEqual(sorted(os.listdir(self.folder)), ["in", "out.pbm"])

    def test_pbm_of_grays(self):
        for x, y, value in ((0, 0, 1), (4, 2, 254), (2, 1, 128)):
            samples = bytearray(self.black_and_white(15))
            samples[y * 5 + x] = value
            for band in (1, 64):
                self.refuse_output(
                    pgm(5, 3, bytes(15)) + pgm(5, 3, samples), f"page 2, line {y + 1}:",
                    f"is {value};", arguments=["gray", "-b", band],
                )
        (self.folder / "out.pbm").unlink()
        source, target = self.file("in", pgm(1, 2, b"\xff\7")), self.folder / "out.pbm"
        done = self.run_rast("chain", "gray", source, target)
        self.assert_fails(done, UNSUPPORTED, str(target), "page 1, line 2", "PBM")
        self.assertEqual(os.listdir(self.folder), ["in"])

    def test_pbm_of_color(self):
        for given in (ppm(2, 1, bytes(6)), pgm(1, 1, b"\0") + ppm(2, 1, b"\xff" * 6)):
            self.refuse_output(given, "color", arguments=["shift", "--x=0"])
            self.refuse_output(given, "color", arguments=["chain", "rotate cw : colgamma invert"])
        made = self.out("chain", "-f", "pbm", "gray", input=ppm(2, 1, b"\xff" * 3 + bytes(3)))
        self.assertEqual(made, b"P4\n2 1\n\x40")

    def test_pbm_through_operations(self):
        samples = self.black_and_white(13 * 70)
        for text in ("rotate cw", "colgamma invert : rotate ccw", "shift x=3 y=2",
                     "shift x=-3 y=-2 : hueadjust mirror"):
            expected = self.out("chain", text, input=pgm(13, 70, samples))
            made = self.out("chain", text, input=pbm(13, 70, samples, 1))
            self.assert_same(made, expected)
            packed = self.out("chain", "-f", "pbm", text, input=pbm(13, 70, samples, 1))
            self.assertEqual(packed[:2], b"P4")
            self.assert_same(self.out("gray", input=packed), expected)

    def header(self, *lines):
        return "".join(f"{line}\n" for line in ("P7", *lines, "ENDHDR")).encode()

    GRAY_LINES = ("WIDTH 2", "HEIGHT 3", "DEPTH 1", "MAXVAL 255", "TUPLTYPE GRAYSCALE")

    def test_pam_headers(self):
        expected = pgm(2, 3, b"#\n 9ab")
        w, h, d, m, t = self.GRAY_LINES
        for lines in (
            (w, h, d, m, t), (t, m, d, h, w), (w, h, d, m),
            ("# note", w, "", "#", h, d, m, t, "#x"),
            ("WIDTH\t2", "HEIGHT   3", " DEPTH 1", "MAXVAL 255 ", "TUPLTYPE\tGRAYSCALE "),
            ("WIDTH 0002", h, d, "MAXVAL 00255"), ("#WIDTH 9", w, h, d, m, "# ENDHDR"),
        ):
            with self.subTest(lines):
                self.assertEqual(self.out("gray", input=self.header(*lines) + b"#\n 9ab"), expected)
        rgb = ("WIDTH 1", "HEIGHT 2", "DEPTH 3", "MAXVAL 255")
        for lines in (rgb, (*rgb, "TUPLTYPE RGB"), ("TUPLTYPE RGB", *rgb[::-1])):
            made = self.out("shift", "--x=0", input=self.header(*lines) + b"abcdef")
            self.assertEqual(made, ppm(1, 2, b"abcdef"))

    def test_pam_of_two_levels(self):
        for count in (1, 9, 4000):
            bits = bytes(random.Random(count).choices((0, 1), k=count))
            given = pam(count, 1, bits, "BLACKANDWHITE", 1)
            white = bytes(255 * bit for bit in bits)
            self.assert_same(self.out("gray", input=given), pgm(count, 1, white))
            self.assert_same(self.out("gray", "-f", "pbm", input=given), pbm(count, 1, white))
        for place in (0, 5, 11):
            for value in (2, 255):
                bits = bytearray(12)
                bits[place] = value
                self.refuse(pam(4, 3, bits, "BLACKANDWHITE", 1), DAMAGED,
                            f"page 1, line {place // 4 + 1}:", operation="gray")

    def test_pam_headers_that_are_refused(self):
        w, h, d, m, t = self.GRAY_LINES
        for lines, code, *words in (
            ((h, d, m, t), DAMAGED, "WIDTH"), ((w, d, m, t), DAMAGED, "HEIGHT"),
            ((w, h, m, t), DAMAGED, "DEPTH"), ((w, h, d, t), DAMAGED, "MAXVAL"), ((), DAMAGED,),
            ((w, w, h, d, m, t), DAMAGED, "WIDTH", "twice"),
            ((w, h, d, m, t, "HEIGHT 3"), DAMAGED, "HEIGHT", "twice"),
            ((w, h, d, d, m), DAMAGED, "DEPTH", "twice"), ((w, h, d, m, m), DAMAGED, "MAXVAL"),
            ((w, h, d, m, "COLOR 3"), DAMAGED, "unknown"), ((w, h, d, m, "width 2"), DAMAGED,),
            ((w, h, d, m, "WIDTHS 2"), DAMAGED,), ((w, h, d, m, "3"), DAMAGED,),
            (("WIDTH", h, d, m), DAMAGED, "WIDTH"), (("WIDTH 2 2", h, d, m), DAMAGED, "WIDTH"),
            (("WIDTH 2 # two", h, d, m), DAMAGED, "WIDTH"), (("WIDTH -2", h, d, m), DAMAGED,),
            (("WIDTH 2.0", h, d, m), DAMAGED,), (("WIDTH 0", h, d, m), DAMAGED,),
            ((w, "HEIGHT 0", d, m), DAMAGED,), (("WIDTH 2147483648", h, d, m), DAMAGED,),
            (("WIDTH " + "9" * 99, h, d, m), DAMAGED,), ((w, h, d, "MAXVAL 0"), DAMAGED, "maximum"),
            ((w, h, d, "MAXVAL 65536"), DAMAGED, "maximum"),
            ((w, h, d, "MAXVAL 65535"), UNSUPPORTED, "65535", "255"),
            ((w, h, d, "MAXVAL 1", t), UNSUPPORTED, "255"),
            ((w, h, d, "MAXVAL 254", t), UNSUPPORTED, "254"),
            ((w, h, "DEPTH 3", "MAXVAL 1", "TUPLTYPE RGB"), UNSUPPORTED, "255"),
            ((w, h, "DEPTH 2", m, "TUPLTYPE GRAYSCALE_ALPHA"), UNSUPPORTED, "depth 2"),
            ((w, h, "DEPTH 4", m, "TUPLTYPE RGB_ALPHA"), UNSUPPORTED, "depth 4"),
            ((w, h, "DEPTH 4", m, "TUPLTYPE CMYK"), UNSUPPORTED, "depth 4"),
            ((w, h, "DEPTH 2", m), UNSUPPORTED, "depth 2"),
            ((w, h, d, m, "TUPLTYPE RGB"), UNSUPPORTED, "GRAYSCALE"),
            ((w, h, d, m, "TUPLTYPE FOO"), UNSUPPORTED, "tuple type"),
            ((w, h, d, m, "TUPLTYPE grayscale"), UNSUPPORTED,),
            ((w, h, d, m, "TUPLTYPE GRAYSCALE", "TUPLTYPE X"), UNSUPPORTED,),
            ((w, h, "DEPTH 3", m, "TUPLTYPE GRAYSCALE"), UNSUPPORTED, "RGB"),
            ((w, h, "DEPTH 3", m, "TUPLTYPE BLACKANDWHITE"), UNSUPPORTED, "RGB"),
        ):
            with self.subTest(lines):
                content = self.header(*lines) + bytes(24)
                self.refuse(content, code, "page 1", *words, operation="gray")
        for content in (b"P7 WIDTH 2\n", b"P7WIDTH 2\n", b"P7\n" + b"#" * 100_000,
                        self.header(*self.GRAY_LINES)[:-1] + b" abcdef"):
            with self.subTest(content[:20]):
                self.refuse(content, DAMAGED, "page 1", operation="gray")

    def test_pam_written(self):
        samples = ramp(13 * 70 * 3)
        for image, expected in (
            (ppm(13, 70, samples), pam(13, 70, samples)),
            (pgm(39, 70, samples), pam(39, 70, samples)),
            (pbm(5, 1, b"\0\xff\0\0\xff"), pam(5, 1, b"\0\xff\0\0\xff")),
        ):
            for band in (1, 64):
                made = self.out("shift", "--x=0", "-f", "pam", "-b", band, input=image * 2)
                self.assert_same(made, expected * 2)
            back = self.out("shift", "--x=0", input=expected * 2)
            self.assert_same(self.out("shift", "--x=0", "-f", "pam", input=back), expected * 2)

    def test_truncated_everywhere(self):
        """No part of a stream is taken for the whole."""
        two_levels = pam(3, 2, bytes((0, 1, 1, 0, 1, 0)), "BLACKANDWHITE", 1)
        for whole in (pbm(11, 3, self.black_and_white(33)), pam(2, 2, ramp(4)), two_levels,
                      pam(1, 2, ramp(6)), b"P4 # n\n8 1\n\x55"):
            self.out("gray", input=whole)
            for size in range(len(whole)):
                done = self.run_rast("gray", "--format", "pam", input=whole[:size])
                self.assert_fails(done, DAMAGED, "standard input")
        first = pgm(1, 1, b"a")
        for size in range(1, len(two_levels), 5):
            done = self.run_rast("chain", "rotate cw", input=first + two_levels[:size])
            self.assert_fails(done, DAMAGED, "page 2")

    def test_names(self):
        black = pgm(3, 1, b"\0\xff\0")
        heads = {"pnm": b"P5", "pbm": b"P4", "pam": b"P7", "png": b"\x89P"}
        for name, head in heads.items():
            for option in (["-f", name], ["--format", name], [f"--format={name}"]):
                self.assertEqual(self.out("chain", *option, "gray", input=black)[:2], head)
        endings = [(".pnm", "pnm"), (".pgm", "pnm"), (".ppm", "pnm"), (".pbm", "pbm"),
                   (".PBM", "pbm"), (".pam", "pam"), (".Pam", "pam"), (".png", "png")]
        for ending, name in endings:
            with self.subTest(ending):
                target = self.folder / f"out{ending}"
                self.out("gray", "-", target, input=black)
                self.assertEqual(target.read_bytes()[:2], heads[name])
                for other, head in heads.items():
                    self.out("gray", "-f", other, "-", target, input=black)
                    self.assertEqual(target.read_bytes()[:2], head)
        for name in ("PBM", ".pbm", "pbm ", "", "p", "tiffany"):
            done = self.run_rast("gray", "--format", name, input=black)
            self.assert_fails(done, USAGE, "--format", "pnm", "pbm", "pam", "png")

    def test_mixed_streams(self):
        samples = self.black_and_white(9 * 4)
        stream = pbm(9, 4, samples, 1) + pgm(2, 1, b"ab") + pam(1, 2, b"cd") + b"\n"
        stream += gray_png(3, 1, b"efg") + pam(1, 1, b"rgb") + ppm(1, 1, b"xyz")
        stream += pam(9, 4, bytes(x // 255 for x in samples), "BLACKANDWHITE", 1)
        stream += png(1, 1, 8, 2, [b"rgb"]) + pbm(1, 1, b"\0")
        expected = [pgm(9, 4, samples), pgm(2, 1, b"ab"), pgm(1, 2, b"cd"), pgm(3, 1, b"efg"),
                    ppm(1, 1, b"rgb"), ppm(1, 1, b"xyz"), pgm(9, 4, samples), ppm(1, 1, b"rgb"),
                    pgm(1, 1, b"\0")]
        for band in (1, 64):
            made = self.out("chain", "-b", band, "colgamma invert : colgamma invert", input=stream)
            self.assertEqual(made, b"".join(expected))
        self.assertEqual(self.out("shift", "--x=0", "-P", "1,3,7-8", input=stream),
                         b"".join(expected[k] for k in (0, 2, 6, 7)))
        lines = self.out("info", input=stream).decode().splitlines()
        told = [line.split()[2].strip(",") for line in lines[:-1]]
        self.assertEqual(told, ["PBM", "PGM", "PAM", "PNG", "PAM", "PPM", "PAM", "PNG", "PBM"])
        same = self.aside("same", b"".join(expected))
        done = self.run_rast("compare", "-", same, input=stream)
        self.assertEqual(done.returncode, DONE, done.stdout)

    def test_logos(self):
        """Overlays come in all formats."""
        samples = self.black_and_white(5 * 3)
        given = pgm(20, 10, ramp(200))
        expected = self.out("overlay", "--with", self.file("a", pgm(5, 3, samples)), input=given)
        bits = bytes(x // 255 for x in samples)
        for logo in (pbm(5, 3, samples, 1), pam(5, 3, samples),
                     pam(5, 3, bits, "BLACKANDWHITE", 1)):
            path = self.file("logo", logo)
            self.assertEqual(self.out("overlay", "--with", path, input=given), expected)
            self.assertEqual(self.out("chain", f"overlay {path}", input=given), expected)


if __name__ == "__main__":
    unittest.main()
