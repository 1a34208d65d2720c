"""Tests of the command as a filter of a print queue; RAST names the binary."""

import os
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import raster
from raster import K, KCMY, RGB, SW, page, pages_of, stream
from test_rast import DAMAGED, DONE, OUTPUT, RAST, RUN_TIME, UNSUPPORTED, USAGE, RastTest, ramp

PPD = Path(__file__).with_name("queue.ppd").read_text(encoding="ascii")
GUIDE = Path(__file__).parents[2].joinpath("docs/print-queue.md").read_text(encoding="utf-8")


def joined(*options):
    """As libraries join names and values that they were given apart: in order, and unquoted."""
    words = {"true": "{0}", "false": "no{0}"}
    return " ".join(
        words.get(value, "{0}={1}").format(name, value)
        for name, value in sorted(options, key=lambda option: option[0].lower())
    )


def inverted(samples):
    return bytes(255 - sample for sample in samples)


class FilterTest(RastTest):
    COLOR = ramp(6 * 4 * 3)
    GRAY = ramp(5 * 2)
    JOB = stream((page(6, 4, RGB, NumCopies=3), COLOR), (page(5, 2, SW), GRAY))

    def setUp(self):
        super().setUp()
        self.filter = self.folder / "bin" / "rasttoraster"
        self.filter.parent.mkdir()
        self.filter.symlink_to(RAST)
        self.ppd = self.file("queue.ppd", PPD.encode())

    def run_filter(self, *arguments, ppd=None, final=None, **options):
        environment = {k: v for k, v in os.environ.items()
                       if k not in ("PPD", "FINAL_CONTENT_TYPE")}
        if ppd is not None:
            environment["PPD"] = str(ppd)
        if final is not None:
            environment["FINAL_CONTENT_TYPE"] = final
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
            self.assertRegex(line, r"\A(ERROR|INFO|DEBUG|PAGE|ATTR): ")
        for word in words:
            self.assertIn(word, lines[-1])


class Filter(FilterTest):
    def test_chain_of_the_job(self):
        both = [(6, inverted(self.COLOR)), (5, inverted(self.GRAY))]
        for options in (
            "rast-chain='colgamma invert'", 'rast-chain="colgamma curve=invert"',
            "media=A4 rast-chain=colgamma\\ invert sides=one-sided",
            "rast-chain='colgamma invert : colgamma invert : colgamma invert'",
        ):
            with self.subTest(options):
                self.assertEqual(self.filtered(options), both)
        self.assertEqual([width for width, _ in self.filtered("rast-chain='rotate cw'")], [4, 2])

    def test_split_chains(self):
        """At blanks, where what comes before joins options unquoted."""
        pixels, gray = self.COLOR, self.GRAY
        for text, short in (
            ("shift  x=40 y=20", "shift,x=40,y=20"),
            ("hueadjust matrix=rotate=90", "hueadjust,matrix=rotate=90"),
            ("satadjust raise : colgamma gamma=1.8", "satadjust,raise:colgamma,gamma=1.8"),
            ("gray : rotate cw", "gray:rotate,cw"), ("gray\nrotate cw", "gray:rotate,cw"),
            ("binconv color=2", "binconv,color=2"), ("zoom x=500 y=250", "zoom,x=500,y=250"),
            ("colbalance level=6,5,4,5 curve=1", "colbalance,level=6,5,4,5,curve=1"),
        ):
            others = (("sides", "one-sided"), ("Collate", "true"), ("job-name", "x"))
            for more in ((), others):
                options = joined(*more, ("rast-chain", text))
                with self.subTest(options):
                    done = self.run_filter("1", "u", "t", "1", options, input=self.JOB)
                    self.assert_error(done, USAGE, "split at blanks", f" rast-chain={short}")
                    self.assertTrue(done.stderr.endswith(f"rast-chain={short}\n".encode()))
                    self.assertEqual(done.stdout, b"")
                # What has been taken apart once more is in another order.
                again = dict.fromkeys(options.split(), "true")
                again = joined(*(tuple(word.split("=", 1)) if "=" in word else (word, "true")
                                 for word in again))
                with self.subTest(again):
                    done = self.run_filter("1", "u", "t", "1", again, input=self.JOB)
                    self.assertEqual(done.returncode, USAGE, done.stderr)
        chain = (("rast-chain", "gray:rotate,cw:shift,x=1,y=1"), ("sides", "one-sided"))
        self.assertEqual(self.filtered(joined(*chain)), self.filtered(
            "rast-chain='gray : rotate cw : shift x=1 y=1' sides=one-sided"))
        self.assertEqual(self.filtered("rast-chain=colbalance,level=5,5,5,5:gray",
                                       stream((page(6, 4, RGB), pixels)))[0][0], 6)
        self.assertEqual(self.filtered("rast-chain=gray"), self.filtered("rast-chain='gray'"))
        self.assertEqual(self.filtered("rast-chain=gray:gray")[1], (5, gray))

    def test_options_that_are_of_no_chain(self):
        """Others may have the names of parameters and operations."""
        for chain in ("colgamma,invert", "'colgamma invert'", "gray:colgamma,invert"):
            expected = self.filtered(f"rast-chain={chain}")
            for more in ("mirror", "gamma=1000", "x=4", "fill", "gray", "color=2 zoom"):
                self.assertEqual(self.filtered(f"{more} rast-chain={chain} {more}"), expected)
        self.assertEqual(self.filtered("mirror x=4 rast-chain=gray fill media=A4"),
                         self.filtered("rast-chain=gray"))
        # One that the queue has is not of the chain.
        page_of_color = stream((page(6, 4, RGB), self.COLOR))
        ppd = PPD.replace("*rast-chain", "*color").replace("rast-chain", "color")
        ppd = self.file("color.ppd", ppd.replace("colgamma invert", "").encode())
        plain = self.filtered("rast-chain=binconv", page_of_color)
        self.assertEqual(
            self.filtered("color=Turned rast-chain=binconv", page_of_color, ppd=ppd), plain
        )
        ppd = self.file("choice.ppd", PPD.replace("*rast-chain Turned", "*rast-chain gray").encode())
        turned = [width for width, _ in self.filtered("rast-chain=gray : rotate cw", ppd=ppd)]
        self.assertEqual(turned, [4, 2])

    def test_steps_that_are_given_nothing(self):
        for chain in ("shift", "zoom", "hueadjust", "gray:expgamma", "'gray : colbalance'"):
            done = self.run_filter("1", "u", "t", "1", f"rast-chain={chain}", input=self.JOB)
            self.assert_error(done, USAGE, "nothing is given for", "expected --")

    def test_mirror_prints_nothing(self):
        for chain in ("hueadjust,mirror", "gray:hueadjust,mirror,reverse"):
            done = self.run_filter("1", "u", "t", "1", f"rast-chain={chain}", input=self.JOB)
            self.assertEqual(done.returncode, DONE)
            for line in done.stderr.decode().splitlines():
                self.assertRegex(line, r"\A(DEBUG|ATTR): ")

    def test_kind_of_raster(self):
        """What came in, or what the queue's final type names."""
        cups = self.JOB
        pwg = subprocess.run(
            [RAST, "gray", "--format", "pwg", "-"], input=self.JOB, stdout=subprocess.PIPE,
            check=True,
        ).stdout
        begins = {"cups": b"3SaR", "pwg": b"RaS2"}
        for final, kinds in (
            (None, ("cups", "pwg")), ("application/x-filtered-raster", ("cups", "pwg")),
            ("image/pwg-raster", ("pwg", "pwg")), ("application/vnd.cups-raster", ("cups", "cups")),
            ("printer/queue", ("cups", "pwg")), ("", ("cups", "pwg")),
        ):
            for content, kind in zip((cups, pwg), kinds):
                with self.subTest(final=final, kind=kind):
                    done = self.run_filter("1", "u", "t", "1", "rast-chain=gray", input=content,
                                           final=final)
                    self.assertEqual(done.returncode, DONE, done.stderr)
                    self.assertEqual(done.stdout[:4], begins[kind])
                    for fields, _ in pages_of(done.stdout):
                        media = fields["MediaClass"].rstrip(b"\0")
                        self.assertEqual(media, b"PwgRaster" if kind == "pwg" else b"")
        path = self.file("page.pwg", pwg)
        done = self.run_filter("1", "u", "t", "1", "", path)
        self.assertEqual(done.stdout, pwg)

    def test_jobs_of_no_pages(self):
        """Rasterizers write no more than the beginning of a stream then, and drivers take that."""
        for content in (b"", b"RaS2", b"3SaR", b"RaS3", b"tSaR"):
            for final, expected in ((None, b"3SaR"), ("image/pwg-raster", b"RaS2")):
                with self.subTest(content=content, final=final):
                    done = self.run_filter("1", "u", "t", "1", "rast-chain=gray", input=content,
                                           final=final)
                    self.assertEqual((done.returncode, done.stdout), (DONE, expected), done.stderr)
                    self.assertIn("INFO: the job has no pages", done.stderr.decode().splitlines())
        for content in (b"R", b"RaS", b"RaS3x"):
            done = self.run_filter("1", "u", "t", "1", "", input=content)
            self.assert_error(done, DAMAGED, "ends early")
        done = self.run_filter("1", "u", "t", "1", "", self.file("empty", b""))
        self.assertEqual((done.returncode, done.stdout), (DONE, b"3SaR"))

    def unsupported(self, fields, options="", ppd=None):
        samples = bytes(fields["cupsHeight"] * fields["cupsBytesPerLine"])
        done = self.run_filter("1", "u", "t", "1", options, input=stream((fields, samples)), ppd=ppd)
        self.assert_error(done, UNSUPPORTED, "page 1", "not supported")
        return done.stderr.decode().splitlines()[-1]

    def test_choice_for_other_raster(self):
        bits = page(16, 2, K, cupsBitsPerColor=1, cupsBitsPerPixel=1, cupsBytesPerLine=2)
        kcmy = page(4, 2, KCMY, cupsBitsPerPixel=32, cupsBytesPerLine=16, cupsNumColors=4)
        banded = page(4, 2, RGB, cupsColorOrder=1)
        self.assertTrue(self.unsupported(bits).endswith("render it with 8 bits a color"))
        self.assertTrue(self.unsupported(bits, ppd=self.ppd).endswith("Resolution=100dpi"))
        models = """*OpenUI *ColorModel/Mode: PickOne
*OrderDependency: 20 AnySetup *ColorModel
*DefaultColorModel: {}
*ColorModel Black/1 bit: "<</cupsColorSpace 3/cupsBitsPerColor 1>>setpagedevice"
*ColorModel KCMY/Inks: "<</cupsColorSpace 8>>setpagedevice"
*ColorModel Banded/Bands: "<</cupsColorOrder 1>>setpagedevice"
*ColorModel Gray/Gray: "<</cupsColorSpace 18>>setpagedevice"
*ColorModel Photo/Color: "<</cupsColorSpace 19>>setpagedevice"
*CloseUI: *ColorModel
"""
        for default, options in (("Black", ""), ("KCMY", ""), ("Photo", "ColorModel=Banded")):
            ppd = self.file("models.ppd", (PPD + models.format(default)).encode())
            for fields, choice in ((bits, "Gray"), (kcmy, "Photo"), (banded, "Photo")):
                with self.subTest(default=default, choice=choice):
                    text = self.unsupported(fields, options, ppd)
                    self.assertTrue(text.endswith(f": -o ColorModel={choice}"), text)
        none = PPD.replace("cupsBitsPerColor 8", "cupsBitsPerColor 1")
        # Interpreters take colorimetric spaces, such as 19, for 8 bits.
        none += models.format("Gray").replace("cupsColorSpace 19", "cupsColorSpace 1")
        none = self.file("none.ppd", none.encode())
        self.assertRegex(self.unsupported(bits, ppd=none), "8 bits a color$")
        # Refused for another reason, pages get no such advice.
        done = self.run_filter("1", "u", "t", "1", "rast-chain=binconv", input=self.JOB,
                               ppd=self.file("models.ppd", (PPD + models.format("Gray")).encode()))
        self.assert_error(done, UNSUPPORTED, "page 2", "binconv")
        self.assertNotIn(b"-o", done.stderr)

    def test_chains_that_interpreters_take_for_code(self):
        ppd = self.file("code.ppd", PPD.replace('"% colgamma invert"', '"colgamma invert"').encode())
        for options in ("", "rast-chain=Inverted", "rast-chain='rotate cw'"):
            done = self.run_filter("1", "u", "t", "1", options, input=self.JOB, ppd=ppd)
            self.assert_error(done, RUN_TIME, "code.ppd", '"% gray"')
            self.assertEqual(done.stdout, b"")
        lines = '"%  gray\n%: colgamma\n% invert\n%# or not"'
        ppd = self.file("lines.ppd", PPD.replace('"% colgamma invert"', lines).encode())
        done = self.run_filter("1", "u", "t", "1", "", input=self.JOB, ppd=ppd)
        self.assert_error(done, USAGE, "step 2, colgamma", "missing")

    def test_no_chain_passes_pages(self):
        as_they_are = [(6, self.COLOR), (5, self.GRAY)]
        for options in ("", "media=A4 fit-to-page"):
            self.assertEqual(self.filtered(options), as_they_are)
        self.assertEqual(self.filtered("rast-chain=None", ppd=self.ppd), as_they_are)

    def test_headers_are_carried_over(self):
        fields = page(6, 4, RGB, MediaType=b"Plain", Duplex=1, PageSize=(1, 2), MediaPosition=3)
        done = self.run_filter(
            "1", "u", "t", "1", "rast-chain='colgamma invert'",
            input=stream((fields, self.COLOR)),
        )
        written, _ = pages_of(done.stdout)[0]
        for name in ("MediaType", "Duplex", "PageSize", "MediaPosition", "cupsColorSpace"):
            expected = fields[name].ljust(64, b"\0") if name == "MediaType" else fields[name]
            self.assertEqual(written[name], expected)

    def test_chain_of_the_ppd(self):
        both = [(6, inverted(self.COLOR)), (5, inverted(self.GRAY))]
        self.assertEqual(self.filtered("", ppd=self.ppd), both)
        self.assertEqual(self.filtered("rast-chain=Inverted", ppd=self.ppd), both)
        turned = self.filtered("rast-chain=Turned", ppd=self.ppd)
        self.assertEqual([width for width, _ in turned], [4, 2])
        own = self.filtered("rast-chain='rotate cw : rotate ccw'", ppd=self.ppd)
        self.assertEqual(own, [(6, self.COLOR), (5, self.GRAY)])
        plain = self.file("plain.ppd", PPD.replace("rast-chain", "something").encode())
        self.assertEqual(self.filtered("", ppd=plain), [(6, self.COLOR), (5, self.GRAY)])

    def test_file_argument(self):
        source = self.file("job.ras", self.JOB)
        done = self.run_filter("1", "u", "t", "1", "rast-chain='colgamma invert'", source)
        self.assertEqual(done.returncode, DONE)
        self.assertEqual(len(pages_of(done.stdout)), 2)

    def test_messages(self):
        arguments = ("1", "u", "t", "1", "rast-chain='colgamma invert' page-logging=on")
        lines = self.run_filter(*arguments, input=self.JOB).stderr.decode().splitlines()
        self.assertEqual([l for l in lines if l.startswith("PAGE:")], ["PAGE: 1 3", "PAGE: 2 1"])
        self.assertIn("ATTR: job-media-progress=100", lines)
        self.assertIn("DEBUG: chain: colgamma invert", lines)
        for line in lines:
            self.assertRegex(line, r"\A(DEBUG|PAGE|ATTR): ")
        for options in ("", "page-logging=off", "page-logging=auto"):
            done = self.run_filter(*arguments[:4], options, input=self.JOB)
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
        ppd = PPD.replace('"% colgamma invert"', f'"% colgamma {curve}"')
        ppd = self.file("own.ppd", ppd.encode())
        self.assertEqual(self.filtered("", ppd=ppd)[0], (6, inverted(self.COLOR)))

    def test_messages_cannot_be_forged(self):
        for words in ("STATE: +media-jam", "PAGE: 1 1000", "ATTR: job-impressions=1"):
            chain = f"rast-chain='colgamma invert\n{words}'"
            done = self.run_filter("1", "u", "t", "1", chain, input=self.JOB)
            self.assert_error(done, USAGE, "unknown operation")
            self.assertNotIn("\n" + words, done.stderr.decode())

    def test_progress_of_a_file(self):
        done = self.run_filter("1", "u", "t", "1", "", self.file("job.ras", self.JOB))
        self.assertEqual(done.stderr.count(b"ATTR: job-media-progress=100\n"), 2)

    def test_closed_output(self):
        """What comes next in the queue has ended; SIGPIPE does not kill the filter."""
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as pipe:
            done = self.run_filter("1", "u", "t", "1", "", input=self.JOB, stdout=pipe)
        self.assert_error(done, OUTPUT, "standard output")

    def test_canceled(self):
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


def pdf(colors):
    """A page of A6 for each color, with a square of it."""
    kids, objects = b"", b""
    for i, color in enumerate(colors):
        kids += b"%d 0 R " % (3 + 2 * i)
        drawing = b"%s rg 50 50 100 100 re f" % color
        objects += (
            b"%d 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 297 420]/Contents %d 0 R"
            b"/Resources<<>>>>endobj\n%d 0 obj<</Length %d>>stream\n%s\nendstream\nendobj\n"
            % (3 + 2 * i, 4 + 2 * i, 4 + 2 * i, len(drawing), drawing)
        )
    return PDF % (kids, len(colors), objects)


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
        self.assertEqual(done.returncode, 0, log[-3000:])
        self.assertEqual(len(pages_of(done.stdout)), 2)
        self.assertIn("DEBUG: chain: colgamma invert", log)


if __name__ == "__main__":
    unittest.main()
