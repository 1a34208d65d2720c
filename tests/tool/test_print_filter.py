"""Tests of the command as a filter of a print queue; RAST names the binary."""

import os
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import raster
from raster import RGB, SW, page, pages_of, stream
from test_rast import DAMAGED, DONE, OUTPUT, RAST, RUN_TIME, UNSUPPORTED, USAGE, RastTest, ramp

PPD = Path(__file__).with_name("queue.ppd").read_text(encoding="ascii")


def inverted(samples):
    return bytes(255 - sample for sample in samples)


class FilterTest(RastTest):
    COLOUR = ramp(6 * 4 * 3)
    GRAY = ramp(5 * 2)
    JOB = stream((page(6, 4, RGB, NumCopies=3), COLOUR), (page(5, 2, SW), GRAY))

    def setUp(self):
        super().setUp()
        self.filter = self.folder / "bin" / "rasttoraster"
        self.filter.parent.mkdir()
        self.filter.symlink_to(RAST)
        self.ppd = self.file("queue.ppd", PPD.encode())

    def run_filter(self, *arguments, ppd=None, **options):
        environment = {k: v for k, v in os.environ.items() if k != "PPD"}
        if ppd is not None:
            environment["PPD"] = str(ppd)
        options.setdefault("stdin" if "input" not in options else "input", subprocess.DEVNULL)
        # A scheduler calls its filters by the names of printers.
        return subprocess.run(
            ["printer", *map(str, arguments)], executable=self.filter, stdout=options.pop("stdout", subprocess.PIPE),
            stderr=subprocess.PIPE, timeout=20, check=False, env=environment, **options,
        )

    def filtered(self, options, content=JOB, ppd=None):
        done = self.run_filter("7", "user", "title", "1", options, input=content, ppd=ppd)
        self.assertEqual(done.returncode, DONE, done.stderr)
        return [(fields["cupsWidth"], samples) for fields, samples in pages_of(done.stdout)]

    def assert_error(self, done, code, *words):
        lines = done.stderr.decode().splitlines()
        self.assertEqual(done.returncode, code, lines)
        self.assertTrue(lines[-1].startswith("ERROR: "), lines)
        for line in lines:
            self.assertRegex(line, r"\A(ERROR|DEBUG|PAGE|ATTR): ")
        for word in words:
            self.assertIn(word, lines[-1])


class Filter(FilterTest):
    def test_chain_of_the_job(self):
        both = [(6, inverted(self.COLOUR)), (5, inverted(self.GRAY))]
        for options in (
            "rast-chain='colgamma invert'", 'rast-chain="colgamma curve=invert"',
            "media=A4 rast-chain=colgamma\\ invert sides=one-sided",
            "rast-chain='colgamma invert : colgamma invert : colgamma invert'",
        ):
            with self.subTest(options):
                self.assertEqual(self.filtered(options), both)
        self.assertEqual([width for width, _ in self.filtered("rast-chain='rotate cw'")], [4, 2])

    def test_no_chain_passes_pages(self):
        as_they_are = [(6, self.COLOUR), (5, self.GRAY)]
        for options in ("", "media=A4 fit-to-page"):
            self.assertEqual(self.filtered(options), as_they_are)
        self.assertEqual(self.filtered("rast-chain=None", ppd=self.ppd), as_they_are)

    def test_headers_are_carried_over(self):
        fields = page(6, 4, RGB, MediaType=b"Plain", Duplex=1, PageSize=(1, 2), MediaPosition=3)
        done = self.run_filter(
            "1", "u", "t", "1", "rast-chain='colgamma invert'",
            input=stream((fields, self.COLOUR)),
        )
        written, _ = pages_of(done.stdout)[0]
        for name in ("MediaType", "Duplex", "PageSize", "MediaPosition", "cupsColorSpace"):
            expected = fields[name].ljust(64, b"\0") if name == "MediaType" else fields[name]
            self.assertEqual(written[name], expected)

    def test_chain_of_the_ppd(self):
        both = [(6, inverted(self.COLOUR)), (5, inverted(self.GRAY))]
        self.assertEqual(self.filtered("", ppd=self.ppd), both)
        self.assertEqual(self.filtered("rast-chain=Inverted", ppd=self.ppd), both)
        turned = self.filtered("rast-chain=Turned", ppd=self.ppd)
        self.assertEqual([width for width, _ in turned], [4, 2])
        own = self.filtered("rast-chain='rotate cw : rotate ccw'", ppd=self.ppd)
        self.assertEqual(own, [(6, self.COLOUR), (5, self.GRAY)])
        plain = self.file("plain.ppd", PPD.replace("rast-chain", "something").encode())
        self.assertEqual(self.filtered("", ppd=plain), [(6, self.COLOUR), (5, self.GRAY)])

    def test_file_argument(self):
        source = self.file("job.ras", self.JOB)
        done = self.run_filter("1", "u", "t", "1", "rast-chain='colgamma invert'", source)
        self.assertEqual(done.returncode, DONE)
        self.assertEqual(len(pages_of(done.stdout)), 2)

    def test_messages(self):
        arguments = ("1", "u", "t", "1", "rast-chain='colgamma invert'")
        lines = self.run_filter(*arguments, input=self.JOB).stderr.decode().splitlines()
        self.assertEqual([l for l in lines if l.startswith("PAGE:")], ["PAGE: 1 3", "PAGE: 2 1"])
        self.assertIn("ATTR: job-media-progress=100", lines)
        self.assertIn("DEBUG: chain: colgamma invert", lines)
        for line in lines:
            self.assertRegex(line, r"\A(DEBUG|PAGE|ATTR): ")
        done = self.run_filter(*arguments[:4], "page-logging=off", input=self.JOB)
        self.assertNotIn(b"PAGE:", done.stderr)

    def test_arguments(self):
        for arguments in ((), ("1", "u", "t", "1"), ("1", "u", "t", "1", "", "file", "more")):
            self.assert_error(self.run_filter(*arguments), USAGE, "job user title copies options")

    def test_failures(self):
        arguments = ("1", "u", "t", "1")
        run = lambda options, content, **more: self.run_filter(
            *arguments, options, input=content, **more
        )
        self.assert_error(run("rast-chain='colgama x'", self.JOB), USAGE, "colgamma")
        self.assert_error(run("rast-chain=Inverted", self.JOB), USAGE, "Inverted")
        self.assert_error(run("rast-chain=binconv", self.JOB), UNSUPPORTED, "page 2", "binconv")
        self.assert_error(run("", self.JOB[:-1]), DAMAGED, "page 2", "ends early")
        self.assert_error(run("", b""), DAMAGED, "empty")
        self.assert_error(run("", self.JOB, ppd="missing.ppd"), RUN_TIME, "missing.ppd")
        broken = self.file("broken.ppd", b"no printer description\n")
        self.assert_error(run("", self.JOB, ppd=broken), RUN_TIME, "broken.ppd")
        self.assert_error(self.run_filter(*arguments, "", "missing.ras"), RUN_TIME, "missing.ras")
        with open("/dev/full", "wb") as full:
            self.assert_error(run("", self.JOB, stdout=full), OUTPUT, "standard output")

    def test_jobs_name_no_files(self):
        """What the filter can read, whoever prints may not."""
        secret = self.file("secret", b"secret words\n")
        overlay = self.file("overlay.ppm", b"P6 1 1 255\nabc")
        for chain in (
            f"colgamma {secret}", f"colgamma curve=./{secret.name}", f"hueadjust {secret}",
            f"overlay {overlay}", f"overlay with={overlay}", f"gray : overlayrgb {overlay}",
        ):
            done = self.run_filter("1", "u", "t", "1", f"rast-chain='{chain}'", input=self.JOB)
            self.assert_error(done, USAGE, "names a file")
            self.assertNotIn(b"secret words", done.stderr)
            self.assertEqual(done.stdout, b"")
        for chain in ("hueadjust sepia", "hueadjust rotate=30"):
            self.assertEqual(len(self.filtered(f"rast-chain='{chain}'")), 2)
        curve = self.file("curve", b" ".join(b"%d" % (255 - x) for x in range(256)))
        ppd = PPD.replace('"colgamma invert"', f'"colgamma {curve}"')
        ppd = self.file("own.ppd", ppd.encode())
        self.assertEqual(self.filtered("", ppd=ppd)[0], (6, inverted(self.COLOUR)))

    def test_messages_cannot_be_forged(self):
        for words in ("STATE: +media-jam", "PAGE: 1 1000", "ATTR: job-impressions=1"):
            chain = f"rast-chain='colgamma invert\n{words}'"
            done = self.run_filter("1", "u", "t", "1", chain, input=self.JOB)
            self.assert_error(done, USAGE, "unknown operation")
            self.assertNotIn("\n" + words, done.stderr.decode())

    def test_progress_of_a_file(self):
        done = self.run_filter("1", "u", "t", "1", "", self.file("job.ras", self.JOB))
        self.assertEqual(done.stderr.count(b"ATTR: job-media-progress=100\n"), 2)

    def test_empty_jobs_write_nothing(self):
        self.assertEqual(self.run_filter("1", "u", "t", "1", "", input=b"").stdout, b"")

    def test_closed_output(self):
        """What comes next in the queue has ended; SIGPIPE does not kill the filter."""
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as pipe:
            done = self.run_filter("1", "u", "t", "1", "", input=self.JOB, stdout=pipe)
        self.assert_error(done, OUTPUT, "standard output")

    def test_cancelled(self):
        command = [self.filter, "1", "u", "t", "1", "rast-chain='rotate cw'"]
        with subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
            env=os.environ | {"TMPDIR": str(self.folder / "bin")},
        ) as process:
            process.stdin.write(self.JOB[:-1])
            process.stdin.flush()
            self.assertIn(b"DEBUG: chain", process.stderr.readline())
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(10), -signal.SIGTERM)
        self.assertEqual(os.listdir(self.folder / "bin"), ["rasttoraster"])


FILTERS = Path("/usr/lib/cups/filter")
PDF = b"""%%PDF-1.4
1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj
2 0 obj<</Type/Pages/Kids[%s]/Count %d>>endobj
%s
trailer<</Root 1 0 R>>
"""


def pdf(colours):
    """A page of A6 for each colour, with a square of it."""
    kids, objects = b"", b""
    for i, colour in enumerate(colours):
        kids += b"%d 0 R " % (3 + 2 * i)
        drawing = b"%s rg 50 50 100 100 re f" % colour
        objects += (
            b"%d 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 297 420]/Contents %d 0 R"
            b"/Resources<<>>>>endobj\n%d 0 obj<</Length %d>>stream\n%s\nendstream\nendobj\n"
            % (3 + 2 * i, 4 + 2 * i, 4 + 2 * i, len(drawing), drawing)
        )
    return PDF % (kids, len(colours), objects)


@unittest.skipUnless((FILTERS / "gstoraster").exists(), "needs the filters of a print queue")
class Queue(FilterTest):
    """Behind the filters that stand before it in a queue, without a scheduler."""

    def environment(self):
        return os.environ | {"PPD": str(self.ppd), "CONTENT_TYPE": "application/pdf"}

    def behind(self, *filters):
        content = pdf([b"1 0 0", b"0 0 1"])
        for command in filters:
            done = subprocess.run(
                [command, "1", "u", "t", "1", ""], input=content, stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, env=self.environment(), timeout=60, check=False,
            )
            self.assertEqual(done.returncode, 0, done.stderr.decode()[-1000:])
            content = done.stdout
        return [
            (fields["cupsWidth"], fields["cupsHeight"], samples)
            for fields, samples in pages_of(content)
        ]

    def check_behind(self, rasterizer):
        before = self.behind(FILTERS / "pdftopdf", FILTERS / rasterizer)
        after = self.behind(FILTERS / "pdftopdf", FILTERS / rasterizer, self.filter)
        self.assertEqual(len(before), 2)
        self.assertEqual(after, [(w, h, inverted(samples)) for w, h, samples in before])
        for _, _, samples in before:
            self.assertGreater(len(set(zip(*[iter(samples)] * 3))), 1)

    def test_behind_gstoraster(self):
        self.check_behind("gstoraster")

    @unittest.skipUnless((FILTERS / "pdftoraster").exists(), "needs pdftoraster")
    def test_behind_pdftoraster(self):
        self.check_behind("pdftoraster")

    @unittest.skipUnless(shutil.which("cupsfilter", path="/usr/sbin:/usr/bin"), "needs cupsfilter")
    def test_through_cupsfilter(self):
        """The scheduler's own way to put filters together, in folders of the test's."""
        server, root = self.folder / "etc", self.folder / "root"
        for folder in (server, root / "filter", root / "mime"):
            folder.mkdir(parents=True)
        for known in FILTERS.iterdir():
            (root / "filter" / known.name).symlink_to(known)
        (root / "filter" / "rasttoraster").symlink_to(RAST)
        (root / "filter" / "keepraster").write_text('#!/bin/sh\ncat ${6:+"$6"}\n')
        (root / "filter" / "keepraster").chmod(0o755)
        for known in Path("/usr/share/cups/mime").iterdir():
            shutil.copy(known, root / "mime")
        (server / "cups-files.conf").write_text(f"ServerBin {root}\nDataDir {root}\n")
        (server / "local.types").write_text("application/x-filtered-raster\n")
        (server / "local.convs").write_text(
            "application/vnd.cups-raster application/x-filtered-raster 50 rasttoraster\n"
        )
        done = subprocess.run(
            ["/usr/sbin/cupsfilter", "-c", server / "cups-files.conf", "-p", self.ppd,
             "-i", "application/pdf", "-m", "application/x-filtered-raster", "-e",
             self.file("job.pdf", pdf([b"1 0 0", b"0 0 1"]))],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60, check=False,
        )
        log = done.stderr.decode()
        self.assertEqual((done.returncode, log.count("PAGE: ")), (0, 2), log[-3000:])
        self.assertEqual(len(pages_of(done.stdout)), 2)
        self.assertIn("DEBUG: chain: colgamma invert", log)


if __name__ == "__main__":
    unittest.main()
