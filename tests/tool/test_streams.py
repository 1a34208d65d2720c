"""Pages on their way in and out, in bands, past slow, full, broken and half-used files."""

import fcntl
import json
import os
import random
import re
import resource
import signal
import subprocess
import sys
import termios
import threading
import time
import unittest
from pathlib import Path

from test_rast import DAMAGED, DONE, OUTPUT, RAST, TROUBLE, UNSUPPORTED, RastTest, pgm, ppm

INVERT = ("colgamma", "--curve", "invert", "--resolution", "300")
# Those that the binary names: some formats are not built in everywhere.
LIBRARIES = {
    name: found.group(1).decode()
    for name in ("png", "tiff", "cups")
    if (found := re.search(rb"(lib%s\d*\.so\.\d+)\0" % name.encode(), Path(RAST).read_bytes()))
}
MANY_PAGES = ["pnm", "pam", *(["tiff"] if "tiff" in LIBRARIES else []),
              *(["cups", "pwg"] if "cups" in LIBRARIES else [])]
FORMATS = [*MANY_PAGES, "png"]


def colors(make):
    return 3 if make is ppm else 1


def noise(make, width, height):
    """A page of samples that cannot be compressed."""
    return make(width, height, random.Random(width).randbytes(width * height * colors(make)))


def taken_apart(page):
    """What makes such a page, its width and height, its samples."""
    header = re.match(rb"P([56])\n(\d+) (\d+)\n255\n", page)
    make = ppm if header.group(1) == b"6" else pgm
    return make, int(header.group(2)), int(header.group(3)), page[header.end() :]


def inverted(page):
    make, width, height, samples = taken_apart(page)
    return make(width, height, samples.translate(bytes(range(255, -1, -1))))


def turned(page):
    """Clockwise, plane by plane."""
    make, width, height, samples = taken_apart(page)
    count, out = colors(make), bytearray(len(samples))
    for c in range(count):
        plane = samples[c::count]
        out[c::count] = b"".join(plane[x::width][::-1] for x in range(width))
    return make(height, width, bytes(out))


def is_full(pipe):
    held = int.from_bytes(fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)), sys.byteorder)
    return held == fcntl.fcntl(pipe, fcntl.F_GETPIPE_SZ)


class StreamsTest(RastTest):
    def out(self, *arguments, **options):
        done = self.run_rast(*arguments, **options)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        return done.stdout

    def start(self, *arguments, **options):
        return subprocess.Popen([RAST, *map(str, arguments)], stderr=subprocess.PIPE, **options)

    def end(self, process):
        """Of a process that no one writes to or reads from any more."""
        text = process.stderr.read()
        return subprocess.CompletedProcess(process.args, process.wait(20), stderr=text)


class Failing(StreamsTest):
    def test_full_device(self):
        source = self.file("in.pgm", noise(pgm, 400, 1500) * 2)
        environment = os.environ | {"TMPDIR": str(self.folder)}
        for output_format in FORMATS:
            for band in (1, 1000):
                arguments = (*INVERT, "-b", band, "-f", output_format, source)
                with self.subTest(output_format, band=band), open("/dev/full", "wb") as full:
                    done = self.run_rast(*arguments, stdout=full, env=environment)
                    self.assert_fails(done, OUTPUT, "standard output: cannot be written: No space")
                    done = self.run_rast(*arguments, "/dev/full", env=environment)
                    self.assert_fails(done, OUTPUT, "/dev/full: cannot be written: No space")
        self.assertEqual(os.listdir(self.folder), ["in.pgm"])

    def test_file_that_grows_too_large(self):
        source = self.file("in.pgm", noise(pgm, 400, 1500))
        target = self.file("out", b"before")
        limit = lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (300_000, 300_000))
        for output_format in FORMATS:
            for band in (1, 1000):
                with self.subTest(output_format, band=band):
                    done = self.run_rast(*INVERT, "-b", band, "-f", output_format, source, target,
                                         preexec_fn=limit)
                    self.assert_fails(done, OUTPUT, f"{target}: cannot be written: File too large")
                    self.assertEqual(target.read_bytes(), b"before")
                    self.assertEqual(sorted(os.listdir(self.folder)), ["in.pgm", "out"])

    def test_no_more_is_read(self):
        with open("/dev/full", "wb") as full, self.start(
            *INVERT, stdin=subprocess.PIPE, stdout=full, bufsize=0
        ) as process:
            with self.assertRaises(BrokenPipeError):
                process.stdin.write(pgm(2**20, 100, b""))
                for _ in range(100):
                    process.stdin.write(bytes(2**20))
            self.assert_fails(self.end(process), OUTPUT, "No space")

    def test_reader_that_leaves(self):
        source = self.file("in.pgm", noise(pgm, 1000, 1000))
        for output_format in FORMATS:
            whole = self.out(*INVERT, "-f", output_format, source)
            for band in (1, 300):
                with self.subTest(output_format, band=band), self.start(
                    *INVERT, "-b", band, "-f", output_format, source, stdout=subprocess.PIPE
                ) as process:
                    self.assert_same(process.stdout.read(100_000), whole[:100_000])
                    process.stdout.close()
                    self.assert_fails(self.end(process), OUTPUT, "standard output", "Broken pipe")

    def test_pipe_that_does_not_block(self):
        """What cannot be written when it is due is not written later, after what is missing."""
        page, start = noise(pgm, 1000, 1000), len(pgm(1000, 1000, b""))
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 8192)  # less than is written at once
        with open(reader, "rb", buffering=0) as pipe, self.start(
            *INVERT, "-b", 20, stdin=subprocess.PIPE, stdout=writer
        ) as process:
            os.close(writer)
            process.stdin.write(page[:start])
            for band in range(start, len(page) - 20_000, 20_000):
                process.stdin.write(page[band : band + 20_000])
                process.stdin.flush()
                time.sleep(0.01)  # for it to be read, and for what is written by now
                if is_full(pipe):
                    break
            out = pipe.read(fcntl.fcntl(pipe, fcntl.F_GETPIPE_SZ))
            process.stdin.close()
            out += pipe.readall()
            self.end(process)
        self.assert_same(out, inverted(page)[: len(out)])

    def test_input_that_ends_early(self):
        """All bands before the one that is cut come out, and nothing else."""
        lines = 801
        for make in (pgm, ppm):
            page = noise(make, 500, 1000)
            start = len(make(500, 1000, b""))
            line_bytes = 500 * colors(make)
            content = page + page[: start + lines * line_bytes - 1]
            for band in (1, 7, 64, 1000):
                with self.subTest(make.__name__, band=band):
                    done = self.run_rast(*INVERT, "-b", band, input=content)
                    self.assert_fails(done, DAMAGED, f"page 2, line {lines}: ends early")
                    made = (lines - 1) // band * band
                    whole = inverted(page)
                    expected = whole + (whole[: start + made * line_bytes] if made else b"")
                    self.assert_same(done.stdout, expected)
            # Of a page that is turned, the first line to be written takes the last that is read.
            done = self.run_rast("rotate", "cw", input=content)
            self.assert_fails(done, DAMAGED, f"page 2, line {lines}: ends early")
            self.assert_same(done.stdout, turned(page))

    def test_formats_of_an_input_that_ends_early(self):
        page = noise(pgm, 500, 1000)
        for output_format in FORMATS:
            with self.subTest(output_format):
                whole = self.out(*INVERT, "-f", output_format, input=page)
                done = self.run_rast(*INVERT, "-f", output_format, input=page[:-1])
                self.assert_fails(done, DAMAGED, "page 1, line 1000: ends early")
                # TIFF has its first bytes when it has its last.
                least = 400_000 if output_format != "tiff" else 0
                self.assertGreaterEqual(len(done.stdout), least)
                self.assert_same(done.stdout, whole[: len(done.stdout)])
                self.assertLess(len(done.stdout), len(whole))


class Slow(StreamsTest):
    def pieces(self, size):
        """Lengths of the pieces that so many bytes come in."""
        source = random.Random(size)
        while size > 0:
            length = min(size, source.choice((1, 700, 3001, 7000)))
            size -= length
            yield length

    def feed(self, pipe, content):
        with pipe:
            for length in self.pieces(len(content)):
                pipe.write(content[:length])
                pipe.flush()
                content = content[length:]
                time.sleep(0.001)

    def drain(self, pipe):
        out = b""
        for length in self.pieces(2**30):
            piece = os.read(pipe.fileno(), length)
            if not piece:
                return out
            out += piece
            time.sleep(0.001)

    def check(self, expected, arguments, content):
        source = self.file("in", content)
        with self.subTest(arguments):
            with self.start(*arguments, source, stdout=subprocess.PIPE, pipesize=4096) as process:
                out = self.drain(process.stdout)
                self.assertEqual((self.end(process).returncode, out == expected), (DONE, True))
            with self.start(*arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
                feeder = threading.Thread(target=self.feed, args=(process.stdin, content))
                feeder.start()
                out = process.stdout.read()
                feeder.join()
                self.assertEqual((self.end(process).returncode, out == expected), (DONE, True))

    def test_outputs(self):
        page = noise(pgm, 150, 300)
        for output_format in FORMATS:
            # Of a pipe without a number of pages, TIFF is another than of a file.
            command = (*INVERT, "--pages", "1", "-f", output_format)
            expected = self.out(*command, input=page)
            for band in (1, 64):
                self.check(expected, (*command, "-b", band), page)

    def test_inputs(self):
        page = noise(ppm, 50, 300)
        for input_format in FORMATS:
            content = self.out("shift", "--x=0", "-q", "-f", input_format, input=page)
            self.check(inverted(page), (*INVERT, "-b", 7, "-f", "pnm"), content)

    def test_turned(self):
        page = noise(pgm, 150, 300)
        self.check(turned(page), ("rotate", "cw", "-b", 7), page)


class Signals(StreamsTest):
    def test_within_a_page(self):
        """The temporary file goes, whether what was made so far is written or is yet to be."""
        half = noise(pgm, 1000, 1000)[:600_000]
        for arguments, written in ((INVERT, 400_000), (("rotate", "cw"), 0)):
            target = self.file("out.pgm", b"before")
            with self.subTest(arguments), self.start(
                *arguments, "-b", 1, "-", target, stdin=subprocess.PIPE,
                env=os.environ | {"TMPDIR": str(self.folder)},
            ) as process:
                process.stdin.write(half)
                process.stdin.flush()
                self.wait_for(
                    lambda: any(size >= written for size in self.temporaries(process).values())
                )
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(10), -signal.SIGTERM)
                self.assertEqual(os.listdir(self.folder), ["out.pgm"])
                self.assertEqual(target.read_bytes(), b"before")
                process.stdin.close()

    def test_before_a_pipe_that_is_full(self):
        source = self.file("in.pgm", noise(pgm, 1000, 1000))
        for band in (1, 1000):
            with self.subTest(band), self.start(
                *INVERT, "-b", band, source, stdout=subprocess.PIPE
            ) as process:
                self.wait_for(lambda: is_full(process.stdout))
                process.send_signal(signal.SIGTERM)
                self.assertEqual(process.wait(10), -signal.SIGTERM)

    def test_stopped_and_continued(self):
        """A write that this interrupts has written a part, and the rest is still to come."""
        page = noise(pgm, 1000, 1000)
        source = self.file("in.pgm", page)
        for band in (1, 300, 1000):
            with self.subTest(band), self.start(
                *INVERT, "-b", band, source, stdout=subprocess.PIPE
            ) as process:
                self.wait_for(lambda: is_full(process.stdout))
                process.send_signal(signal.SIGSTOP)
                os.waitid(os.P_PID, process.pid, os.WSTOPPED)
                process.send_signal(signal.SIGCONT)
                self.assert_same(process.stdout.read(), inverted(page))
                self.assertEqual((process.wait(20), process.stderr.read()), (DONE, b""))


class Many(StreamsTest):
    # Pages of one band and of many, gray and color, in turns.
    SHAPES = ((pgm, 9, 4), (ppm, 30, 40), (pgm, 300, 50), (ppm, 1, 1))

    def stream(self, count, shapes=SHAPES):
        pages = [noise(*shape) for shape in shapes]
        return b"".join(pages * count), b"".join(map(inverted, pages)) * count

    def test_pages(self):
        for shapes in (self.SHAPES[:1], self.SHAPES[2:3], self.SHAPES):
            for more in ((), ("-b", 1)):
                with self.subTest(shapes, more=more):
                    content, expected = self.stream(300 // len(shapes), shapes)
                    self.assert_same(self.out(*INVERT, *more, input=content), expected)

    def test_turned_pages(self):
        content = self.stream(40)[0]
        turns = "rotate cw : rotate ccw : colgamma invert : colgamma invert"
        self.assert_same(self.out("chain", "-b", 1, turns, input=content), content)

    def test_read_back(self):
        content, expected = self.stream(20)
        for output_format in MANY_PAGES:
            for band in (1, 65536):
                with self.subTest(output_format, band=band):
                    target = self.folder / "out"
                    self.out(*INVERT, "-b", band, "-f", output_format, "-", target, input=content)
                    # From the file, and from a pipe.
                    back = ("shift", "--x=0", "-b", band, "-f", "pnm")
                    self.assert_same(self.out(*back, target), expected)
                    stored = target.read_bytes()
                    self.assert_same(self.out(*back, input=stored), expected)
                    piped = self.out(*INVERT, "-f", output_format, input=content)
                    self.assert_same(piped, stored)


class Little(StreamsTest):
    def test_bands(self):
        for make in (pgm, ppm):
            page = noise(make, 500, 1100)
            smaller = self.out("zoom", "--percent", 70, "--memory", "1G", input=page)
            for band in (1, 7, 1000, 65536):
                with self.subTest(make.__name__, band=band):
                    little = ("--memory", "20M", "-b", band)
                    self.assert_same(self.out(*INVERT, *little, input=page), inverted(page))
                    self.assert_same(self.out("rotate", "cw", *little, input=page), turned(page))
                    zoomed = self.out("zoom", "--percent", 70, *little, input=page)
                    self.assert_same(zoomed, smaller)

    def test_few_bands_at_once(self):
        """Lines of which memory holds a few, or one alone."""
        for width in (500_000, 600_000, 1_000_000):
            page = noise(pgm, width, 4)
            for band in (1, 1000):
                with self.subTest(width, band=band):
                    arguments = (*INVERT, "--memory", "20M", "-b", band)
                    self.assert_same(self.out(*arguments, input=page), inverted(page))

    def test_no_thread(self):
        """The stack that a thread would get is more than memory may be."""
        stack = 2**31
        hard = resource.getrlimit(resource.RLIMIT_STACK)[1]
        if hard != resource.RLIM_INFINITY and hard < stack:
            self.skipTest("the stack may not be as large")
        limit = lambda: resource.setrlimit(resource.RLIMIT_STACK, (stack, hard))
        page = noise(pgm, 500, 300)
        for arguments, expected in ((INVERT, inverted(page)), (("rotate", "cw"), turned(page))):
            out = self.out(*arguments, "-b", 1, input=page, preexec_fn=limit)
            self.assert_same(out, expected)


class Offsets(StreamsTest):
    def test_input_partly_read(self):
        page = noise(pgm, 300, 200)
        for input_format in FORMATS:
            with self.subTest(input_format):
                stored = self.out("shift", "--x=0", "-q", "-f", input_format, input=page)
                for before in (b"x", b"P5\n", bytes(70_000)):
                    with open(self.file("in", before + stored), "rb", buffering=0) as source:
                        source.read(len(before))
                        out = self.out(*INVERT, "-f", "pnm", stdin=source)
                    self.assert_same(out, inverted(page))

    def test_progress_of_what_is_left(self):
        page = noise(pgm, 300, 200)
        with open(self.file("in", bytes(len(page)) + page), "rb", buffering=0) as source:
            source.read(len(page))
            done = self.run_rast(*INVERT, "--progress=json", stdin=source)
        self.assert_same(done.stdout, inverted(page))
        *_, shown, last = map(json.loads, done.stderr.splitlines())
        self.assertEqual((shown["percent"], last), (100, {"done": True, "pages": 1}))

    def test_input_read_to_its_end(self):
        with open(self.file("in", noise(pgm, 3, 2)), "rb", buffering=0) as source:
            for place in (source.seek(0, os.SEEK_END), source.seek(1000)):
                source.seek(place)
                self.assert_fails(self.run_rast(*INVERT, stdin=source), DAMAGED, "empty")

    def test_output_into_an_open_file(self):
        page = noise(pgm, 300, 200)
        for output_format in FORMATS:
            with self.subTest(output_format):
                command = (*INVERT, "-f", output_format)
                expected = self.out(*command, input=page)
                target = self.file("out", b"before")
                for _ in range(2):
                    with open(target, "ab") as appended:
                        self.out(*command, input=page, stdout=appended)
                self.assert_same(target.read_bytes(), b"before" + expected * 2)
                before = bytes(200_000)
                target = self.file("out", before)
                with open(target, "r+b", buffering=0) as middle:
                    middle.seek(5)
                    self.out(*command, input=page, stdout=middle)
                    self.out(*command, input=page, stdout=middle)
                written = before[:5] + expected * 2
                self.assert_same(target.read_bytes(), written + before[len(written) :])


class Libraries(StreamsTest):
    CONTENTS = (b"", b"no library, but longer than the head of one. " * 100)
    KINDS = {"png": "PNG", "tiff": "TIFF", "cups": "raster"}

    def damaged(self, name, content):
        """The environment in which a library is found damaged, and its file."""
        path = self.aside(LIBRARIES[name], content)
        return os.environ | {"LD_LIBRARY_PATH": str(path.parent)}, path

    def test_damaged(self):
        page = noise(pgm, 30, 20)
        for name in LIBRARIES:
            stored = self.out("shift", "--x=0", "-q", "-f", name, input=page)
            source = self.file("in", stored)
            for content in self.CONTENTS:
                with self.subTest(name, content=content[:5]):
                    environment, path = self.damaged(name, content)
                    text = f"rast: {self.KINDS[name]} needs a shared library that cannot be loaded:"
                    for arguments, code in (
                        ((*INVERT, "-f", "pnm", source), UNSUPPORTED),
                        (("info", source), UNSUPPORTED), (("compare", source, source), TROUBLE),
                    ):
                        done = self.run_rast(*arguments, env=environment)
                        self.assert_fails(done, code, text, str(path))
                        self.assertEqual(done.stdout, b"")
                    target = self.file("out", b"before")
                    done = self.run_rast(*INVERT, "-f", name, "-", target, input=page,
                                         env=environment)
                    self.assert_fails(done, UNSUPPORTED, text, str(path))
                    self.assertEqual(target.read_bytes(), b"before")
                    self.assertEqual(sorted(os.listdir(self.folder)), ["in", "out"])
                    self.assert_same(
                        self.out(*INVERT, input=page, env=environment), inverted(page)
                    )

    @unittest.skipUnless("cups" in LIBRARIES, "there is no print filter")
    def test_print_filter(self):
        environment, path = self.damaged("cups", b"")
        print_filter = self.folder / "rasttoraster"
        print_filter.symlink_to(RAST)
        done = subprocess.run([print_filter, *"1 user title 1".split(), ""], env=environment,
                              input=b"", capture_output=True, timeout=20, check=False)
        self.assertEqual((done.returncode, done.stdout), (UNSUPPORTED, b""))
        self.assertRegex(done.stderr.decode(), r"\AERROR: the print filter needs [^\n]+\n\Z")
        self.assertIn(str(path), done.stderr.decode())


if __name__ == "__main__":
    unittest.main()
