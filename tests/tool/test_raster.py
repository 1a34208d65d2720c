"""End-to-end tests of CUPS and PWG raster; the environment variable RAST names the binary."""

import json
import os
import struct
import subprocess
import unittest

import raster
from raster import ADOBERGB, GRAY_SPACES, K, RGB, RGB_SPACES, SRGB, SW, W, page, stream
from test_rast import (
    DAMAGED, DONE, MEMORY, OUTPUT, RAST, RUN_TIME, UNSUPPORTED, RastTest, chunk, gray_png,
    pgm, png, ppm, ramp,
)

IDENTITY = ("colgamma", "--curve", "gamma=1")
QUIET = (*IDENTITY, "-q")  # about the resolution of pages that name none


def inverted(samples):
    return bytes(255 - sample for sample in samples)


def text(content):
    return content.ljust(64, b"\0")


def full_page(width, height, space=SW, **changes):
    """Every field has a value of its own."""
    values = iter(range(1000, 2000))
    fields = {}
    for name, kind, count in raster.LAYOUT:
        if kind == "64s":
            made = [text(b"%s %d" % (name.encode(), next(values))) for _ in range(count)]
        else:
            made = [next(values) + (0.5 if kind == "f" else 0) for _ in range(count)]
        fields[name] = made[0] if count == 1 else tuple(made)
    fields |= page(width, height, space, NumCopies=7, cupsColorOrder=0)
    return fields | changes


class Raster(RastTest):
    def through(self, content, *arguments, operation=IDENTITY):
        """Standard input to standard output, expected to succeed in silence."""
        done = self.run_rast(*operation, *arguments, input=content)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        return done.stdout

    def reads(self, content, expected):
        self.assert_same(self.through(content, "-f", "pnm"), expected)

    def writes(self, content, output_format, **options):
        return raster.pages_of(self.through(content, "-f", output_format, **options))

    def refuse_all(self, cases):
        for content, code, *words in cases:
            with self.subTest(words):
                self.refuse(content, code, *words, operation=IDENTITY[0], arguments=IDENTITY[1:])


class Reading(Raster):
    def test_every_space_version_and_order(self):
        for space in GRAY_SPACES + RGB_SPACES:
            make, colors = (ppm, 3) if space in RGB_SPACES else (pgm, 1)
            for width, height in ((1, 1), (5, 3), (300, 7)):
                samples = ramp(width * height * colors)
                expected = make(width, height, inverted(samples) if space == K else samples)
                for version in "t23":
                    for order in "<>":
                        with self.subTest((space, width, version, order)):
                            content = stream(
                                (page(width, height, space), samples), version=version, order=order
                            )
                            self.reads(content, expected)

    def test_runs(self):
        for line in (b"a" * 300, b"ab" * 150, b"a" * 129 + b"bcd", b"abb" * 43):
            samples = line * 300 + ramp(len(line)) + line * 2
            fields = page(len(line), 303)
            self.reads(stream((fields, samples), version="2"), pgm(len(line), 303, samples))
        # Code 128 leaves the rest of the line white.
        for space, expected in ((SW, b"a\xff\xff\xff"), (K, b"\x9e\xff\xff\xff")):
            content = stream((page(4, 1, space), b""), version="2") + b"\0\0a\x80"
            self.reads(content, pgm(4, 1, expected))

    def test_padded_lines(self):
        for version in "t23":
            for space, make, width, stored in (
                (SW, pgm, 5, 8), (K, pgm, 5, 4101), (RGB, ppm, 5, 18)
            ):
                fields = page(width, 3, space, cupsBytesPerLine=stored)
                lines = [ramp(stored + y)[y:] for y in range(3)]
                used = b"".join(line[: width * (3 if make is ppm else 1)] for line in lines)
                self.reads(
                    stream((fields, b"".join(lines)), version=version),
                    make(width, 3, inverted(used) if space == K else used),
                )

    def test_gray_in_any_order(self):
        for order in range(3):
            self.reads(stream((page(2, 2, cupsColorOrder=order), b"abcd")), pgm(2, 2, b"abcd"))

    def test_info(self):
        pwg = page(4, 3, MediaClass=b"PwgRaster")
        for fields, samples, kind in (
            (page(4, 3), bytes(12), b"CUPS raster, 4 x 3, gray, 300 dpi"),
            (page(4, 3, HWResolution=(600, 300)), bytes(12),
             b"CUPS raster, 4 x 3, gray, 600 x 300 dpi"),
            (page(4, 3, SRGB, HWResolution=(0, 0)), bytes(36), b"CUPS raster, 4 x 3, RGB"),
            (page(4, 3, HWResolution=(300, 0)), bytes(12), b"CUPS raster, 4 x 3, gray"),
            (pwg, bytes(12), b"PWG raster, 4 x 3, gray, 300 dpi"),
        ):
            done = self.run_rast("info", input=stream((fields, samples), version="2"))
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertEqual(done.stdout, b"page 1: " + kind + b"\n1 page\n")

    def test_pages(self):
        pages = [
            (page(4, 3), ramp(12)), (page(2, 5, SRGB), ramp(30)), (page(1, 1, K), b"\1"),
            (page(300, 2, cupsBytesPerLine=304), ramp(608)),
        ]
        expected = pgm(4, 3, ramp(12)) + ppm(2, 5, ramp(30)) + pgm(1, 1, b"\xfe")
        expected += pgm(300, 2, ramp(608)[:300] + ramp(608)[304:604])
        for version in "t23":
            for order in "<>":
                self.reads(stream(*pages, version=version, order=order), expected)
        many = stream(*[(page(3, 3), ramp(9))] * 100, version="2")
        self.reads(many, pgm(3, 3, ramp(9)) * 100)


class Damaged(Raster):
    def test_truncation(self):
        for version in "t23":
            whole = stream(
                (page(4, 3), ramp(12)), (page(2, 2, RGB), ramp(12)), version=version, order="<"
            )
            header = raster.HEADER_1 if version == "t" else raster.HEADER
            body = (len(whole) - 4 - 2 * header) // 2
            ends = {4, 5, 4 + header - 1, len(whole) - 1, len(whole) - 2}
            ends |= set(range(4 + header, 4 + header + body))
            second = len(stream((page(4, 3), ramp(12)), version=version))
            ends |= {second + 1, second + header - 1, second + header} - {second}
            for end in sorted(ends - {second}):
                with self.subTest((version, end)):
                    done = self.run_rast(*IDENTITY, "-f", "pnm", input=whole[:end])
                    self.assert_fails(done, DAMAGED, "ends early; expected")
                    if end > second:
                        self.assertIn(b"page 2", done.stderr)

    def test_truncation_at_every_byte_of_a_header(self):
        """Of the short one; of the long one at some."""
        for version, step in (("t", 1), ("3", 13)):
            whole = stream((page(1, 1), b"a"), (page(1, 1), b"b"), version=version)
            second = len(whole) // 2 + 2
            for end in (*range(1, second, step), *range(second + 1, len(whole), 7)):
                done = self.run_rast("info", input=whole[:end])
                self.assert_fails(done, DAMAGED, "ends early; expected")

    def test_no_page(self):
        for sync in (b"RaSt", b"RaS2", b"RaS3"):
            for content in (sync, sync[::-1]):
                self.refuse_all([(content, DAMAGED, "expected at least one page")])

    def test_unknown_words(self):
        for sync in (b"RaS1", b"RaS4", b"RaSx", b"1SaR", b"RINU", b"test", b"3333", b"1 2\n"):
            self.refuse_all([(sync + bytes(2000), UNSUPPORTED, "no known kind of page image")])

    def test_trailing_garbage(self):
        for version in "t23":
            sound = stream((page(4, 3), ramp(12)), version=version)
            for garbage in (b"\0", b"\n", b"RaS3", bytes(419), bytes(5000), b"junk" * 999, sound):
                with self.subTest((version, garbage[:8])):
                    self.refuse_all([(sound + garbage, DAMAGED, "page 2: ")])

    def test_number_fields(self):
        """Whatever a number says, the page is refused, or nothing changes."""
        sound = page(4, 3)
        judged = {
            "cupsWidth", "cupsHeight", "cupsBitsPerColor", "cupsBitsPerPixel", "cupsBytesPerLine",
            "cupsColorSpace", "cupsColorOrder", "cupsNumColors",
        }
        for version in "23":
            data = bytearray(stream((sound, ramp(12)), version=version))
            for name, kind, _ in raster.LAYOUT:
                if kind == "64s":
                    continue
                for number in (0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x41414141):
                    changed = data[:]
                    struct.pack_into(">I", changed, 4 + raster.offset(name), number)
                    with self.subTest((version, name, number)):
                        done = self.run_rast(*IDENTITY, "-f", "pnm", input=bytes(changed))
                        if name in judged:
                            self.assertIn(done.returncode, (DAMAGED, MEMORY), done.stderr)
                        else:
                            self.assertEqual(done.stdout, pgm(4, 3, ramp(12)), done.stderr)

    def test_inconsistent_headers(self):
        for changes, words in (
            ({"cupsWidth": 0}, "out of range"),
            ({"cupsHeight": 0}, "out of range"),
            ({"cupsBitsPerColor": 3}, "3 bits a color"),
            ({"cupsBitsPerPixel": 24}, "24 bits a pixel"),
            ({"cupsBitsPerPixel": 0}, "0 bits a pixel"),
            ({"cupsNumColors": 3}, "3 colors"),
            ({"cupsBytesPerLine": 3}, "lines of 3 bytes, expected 4"),
            ({"cupsBytesPerLine": 0}, "lines of 0 bytes"),
            ({"cupsBytesPerLine": 4101}, "lines of 4101 bytes"),
            ({"cupsColorSpace": 21}, "color space 21"),
            ({"cupsColorSpace": 47}, "color space 47"),
            ({"cupsColorOrder": 3}, "order 3"),
        ):
            for version in "t23":
                if version == "t" and "cupsNumColors" in changes:
                    continue
                content = stream((page(4, 3) | changes, b""), version=version) + ramp(99)
                self.refuse_all([(content, DAMAGED, "page 1: ", words)])
        split = page(5, 1, RGB, cupsBytesPerLine=16)
        self.refuse_all([(stream((split, bytes(16))), DAMAGED, "lines of 16 bytes, expected 15")])

    def test_lines_above_the_cap(self):
        wide = page(200_000_000, 1)
        for version in "23":
            content = stream((wide, b""), version=version)
            self.refuse_all([(content, MEMORY, "page 1", "200000000 columns", "--memory")])

    def test_failing_device(self):
        # A folder can be opened, but not read.
        self.assert_fails(self.run_rast("info", self.folder), RUN_TIME, "cannot be read")


class Unsupported(Raster):
    def test_kinds(self):
        names = {
            2: "RGBA", 4: "CMY", 5: "YMC", 6: "CMYK", 7: "YMCK", 8: "KCMY", 9: "KCMYcm", 10: "GMCK",
            11: "GMCS", 12: "WHITE", 13: "GOLD", 14: "SILVER", 15: "CIEXYZ", 16: "CIELab",
            17: "RGBW", 32: "ICC1", 46: "ICC15", 48: "DEVICE1", 62: "DEVICE15",
        }
        cases = [
            ({"cupsColorSpace": space}, f"color space {space} ({name}) is not supported; ")
            for space, name in names.items()
        ]
        for bits in (1, 2, 4, 16):
            cases.append((
                {"cupsBitsPerColor": bits, "cupsBitsPerPixel": bits}, f"{bits}-bit raster is not"
            ))
        for order, name in ((1, "banded"), (2, "planar")):
            changes = {"cupsColorSpace": SRGB, "cupsColorOrder": order}
            cases.append((changes, f"{name} raster is not"))
        for changes, words in cases:
            content = stream((page(4, 3) | changes, ramp(36)))
            self.refuse_all([(content, UNSUPPORTED, "page 1: ", words)])

    def test_on_a_later_page(self):
        content = stream((page(1, 1), b"a"), (page(1, 1, raster.CMYK), b"abcd"))
        self.refuse_all([(content, UNSUPPORTED, "page 2: ", "CMYK")])


class Writing(Raster):
    def test_unchanged(self):
        """All that a header says is in the output, byte for byte."""
        for space in GRAY_SPACES + RGB_SPACES:
            colors = 3 if space in RGB_SPACES else 1
            fields, samples = full_page(5, 3, space), ramp(15 * colors)
            for order in "<>":
                for version in "23":
                    content = stream((fields, samples), version=version, order=order)
                    self.assertEqual(self.writes(content, "cups"), [(fields, samples)])
        unended = full_page(4, 2, MediaType=b"x" * 64, cupsPageSizeName=b"y" * 64)
        self.assertEqual(self.writes(stream((unended, ramp(8))), "cups"), [(unended, ramp(8))])

    def test_version_1(self):
        fields, samples = full_page(5, 3), ramp(15)
        written = self.writes(stream((fields, samples), version="t"), "cups")[0][0]
        for name, _, _ in raster.LAYOUT:
            if raster.offset(name) < raster.HEADER_1 or name == "cupsNumColors":
                self.assertEqual(written[name], fields[name], name)

    def test_what_is_corrected(self):
        fields = full_page(5, 1, cupsBytesPerLine=8, cupsColorOrder=2)
        corrected = fields | {"cupsBytesPerLine": 5, "cupsColorOrder": 0}
        self.assertEqual(self.writes(stream((fields, ramp(8))), "cups"), [(corrected, ramp(5))])

    def test_pages(self):
        pages = [
            (full_page(4, 3), ramp(12)), (full_page(2, 5, SRGB), ramp(30)),
            (full_page(1, 1, K), b"\1"),
        ]
        self.assertEqual(self.writes(stream(*pages, version="2"), "cups"), pages)
        images = pgm(4, 3, ramp(12)) + ppm(2, 5, ramp(30))
        for output_format in ("cups", "pwg"):
            written = self.writes(images, output_format, operation=QUIET)
            self.assertEqual([samples for _, samples in written], [ramp(12), ramp(30)])

    def test_form(self):
        image = pgm(4, 3, ramp(12))
        out = self.through(image, "-f", "cups", operation=QUIET)
        self.assertIn(out[:4], (b"RaS3", b"3SaR"))
        out = self.through(image, "-f", "pwg", operation=QUIET)
        self.assertEqual(out[:4], b"RaS2")
        self.assertEqual(self.through(image, "-f", "pwg", operation=QUIET), out)
        for ending, words in ((".ras", (b"RaS3", b"3SaR")), (".pwg", (b"RaS2",))):
            source, target = self.file("in.pgm", image), self.folder / f"out{ending}"
            done = self.run_rast(*QUIET, source, target)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertIn(target.read_bytes()[:4], words)

    def test_without_header(self):
        for image, space, samples in ((pgm(600, 300, ramp(180000)), SW, ramp(180000)),
                                      (ppm(600, 300, ramp(540000)), SRGB, ramp(540000))):
            expected = page(
                600, 300, space, PageSize=(144, 72), cupsPageSize=(144.0, 72.0),
                ImagingBoundingBox=(0, 0, 144, 72), cupsImagingBBox=(0.0, 0.0, 144.0, 72.0),
            )
            expected = raster.fields_of(raster.header(expected))
            self.assertEqual(self.writes(image, "cups", operation=QUIET), [(expected, samples)])
            changes = {
                "MediaClass": text(b"PwgRaster"), "ImagingBoundingBox": (0,) * 4,
                "cupsPageSize": (0.0,) * 2, "cupsImagingBBox": (0.0,) * 4,
                "cupsInteger": (0, 1, 1, 0, 0, 600, 300, 0xFFFFFF) + (0,) * 8,
            }
            written = self.writes(image, "pwg", operation=QUIET)
            self.assertEqual(written, [(expected | changes, samples)])

    def test_from_cups_to_pwg_and_back(self):
        for space, becomes in ((W, SW), (SW, SW), (K, K), (RGB, RGB), (SRGB, SRGB),
                               (ADOBERGB, ADOBERGB)):
            samples = ramp(18 if space in RGB_SPACES else 6)
            given = full_page(3, 2, space, HWResolution=(600, 600))
            out = self.through(stream((given, samples)), "-f", "pwg")
            ((fields, pixels),) = raster.pages_of(out)
            self.assertEqual(pixels, samples)
            self.assertEqual(fields["cupsColorSpace"], becomes)
            self.assertEqual(fields["MediaClass"], text(b"PwgRaster"))
            for name in ("MediaColor", "MediaType", "OutputType", "NumCopies", "HWResolution",
                         "MediaPosition", "cupsRenderingIntent", "Duplex", "Tumble"):
                self.assertEqual(fields[name], given[name], name)
            self.assertEqual(fields["cupsInteger"][:9], (0, 1, 1, 0, 0, 3, 2, 0xFFFFFF, 0))
            self.assertEqual(fields["cupsPageSizeName"], text(b""))
            self.assertEqual(raster.pages_of(self.through(out, "-f", "pwg")), [(fields, pixels)])
            ((back, pixels),) = self.writes(out, "cups")
            self.assertEqual(pixels, samples)
            self.assertEqual(back["MediaClass"], text(b""))
            self.assertEqual(back["cupsInteger"], (0,) * 16)
            self.assertEqual(back["MediaType"], given["MediaType"])

    def test_pwg_unchanged(self):
        """What PWG knows stays but for the number of pages; the fields that it reserves are zero."""
        given = full_page(3, 2, MediaClass=text(b"PwgRaster"), PageSize=(595, 842))
        ((fields, _),) = self.writes(stream((given, ramp(6)), version="2"), "pwg")
        given["cupsInteger"] = (0, *given["cupsInteger"][1:])
        for name in ("MediaColor", "MediaType", "OutputType", "CutMedia", "Duplex", "HWResolution",
                     "NumCopies", "PageSize", "cupsInteger", "cupsReal", "cupsString",
                     "cupsRenderingIntent", "cupsPageSizeName"):
            self.assertEqual(fields[name], given[name], name)
        self.assertEqual(fields["cupsMarkerType"], text(b""))

    def test_unended_texts_to_pwg(self):
        names = ("MediaColor", "MediaType", "OutputType", "cupsRenderingIntent", "cupsPageSizeName")
        unended = {name: b"z" * 64 for name in names}
        given = full_page(1, 1, MediaClass=text(b"PwgRaster"), **unended)
        ((fields, _),) = self.writes(stream((given, b"a")), "pwg")
        for name in names:
            self.assertEqual(fields[name], text(b"z" * 63))

    def test_runs(self):
        for width, space in ((300, SW), (131, SRGB), (2, K)):
            colors = 3 if space in RGB_SPACES else 1
            blank, busy = b"\7" * width * colors, ramp(width * colors)
            samples = blank * 300 + busy * 2 + blank + busy[::-1]
            given = stream((page(width, 304, space), samples), version="2")
            self.assert_same(self.writes(given, "pwg")[0][1], samples)


class Resized(Raster):
    """What a header says of the page once that has another size."""

    def media(self, width, height, **changes):
        return full_page(
            width, height, HWResolution=(300, 600), PageSize=(612, 792), Margins=(18, 36),
            cupsPageSizeName=text(b"Letter"), **changes,
        )

    def check(self, operation, width, height, points):
        given = self.media(1200, 1200)
        content = stream((given, ramp(1440000)), version="2")
        ((fields, samples),) = self.writes(content, "cups", operation=operation)
        self.assertEqual(len(samples), width * height)
        geometry = {
            "cupsWidth": width, "cupsHeight": height, "cupsBytesPerLine": width,
            "HWResolution": fields["HWResolution"],
        }
        if points:
            geometry |= {
                "PageSize": points, "cupsPageSize": points, "Margins": (0, 0),
                "ImagingBoundingBox": (0, 0, *points), "cupsImagingBBox": (0, 0, *points),
                "cupsPageSizeName": text(b""),
            }
        self.assertEqual(fields, given | geometry)
        return fields

    def test_zoom(self):
        """The page is smaller, unless its pixels have become larger instead."""
        resolution = self.check_zoomed()
        self.assertIn(resolution, ((300, 600), (150, 300)))

    def check_zoomed(self):
        operation = ("zoom", "--percent", "50")
        content = stream((self.media(1200, 1200), ramp(1440000)), version="2")
        resolution = self.writes(content, "cups", operation=operation)[0][0]["HWResolution"]
        self.check(operation, 600, 600, (144, 72) if resolution == (300, 600) else None)
        return resolution

    def test_rotate(self):
        fields = self.check(("rotate", "cw"), 1200, 1200, (144, 288))
        self.assertEqual(fields["HWResolution"], (600, 300))

    def test_rotate_pixels(self):
        for output_format in ("cups", "pwg"):
            given = stream((page(3, 2, MediaClass=b"PwgRaster"), b"abcdef"))
            ((fields, samples),) = self.writes(given, output_format, operation=("rotate", "cw"))
            self.assertEqual((fields["cupsWidth"], fields["cupsHeight"]), (2, 3))
            self.assertEqual(samples, b"daebfc")
            if output_format == "pwg":
                self.assertEqual(fields["cupsInteger"][3:7], (0, 0, 2, 3))


class Resolution(Raster):
    NOTE = b"page %d names no resolution and is written with 300 dpi"
    ADVICE = b"; --resolution names another\n"

    def test_option(self):
        """A sheet of A7 keeps its size, whatever its pixels."""
        for dpi, width, height, numbers in (("300", 874, 1240, (300, 300)),
                                            ("600", 1748, 2480, (600, 600)),
                                            ("203.2x600", 592, 2480, (203, 600))):
            image = pgm(width, height, bytes(width * height))
            for output_format in ("cups", "pwg"):
                ((fields, _),) = self.writes(
                    image, output_format, operation=(*IDENTITY, "--resolution", dpi)
                )
                self.assertEqual(fields["HWResolution"], numbers)
                self.assertEqual(fields["PageSize"], (210, 298))

    def test_in_place_of_the_header(self):
        given = full_page(1200, 1200, PageSize=(288, 288), Margins=(18, 36))
        content = stream((given, bytes(1440000)), version="2")
        ((fields, _),) = self.writes(content, "cups", operation=(*IDENTITY, "-r", "600"))
        self.assertEqual((fields["HWResolution"], fields["PageSize"]), ((600, 600), (144, 144)))

    def test_default_is_announced_once(self):
        images = stream((page(2, 1), b"ab")), pgm(2, 1, b"ab"), gray_png(2, 1, b"ab")
        for content, number in ((images[1] * 3, 1), (images[2] + images[1], 1)):
            for output_format in ("cups", "pwg"):
                target = self.folder / "out"
                done = self.run_rast(*IDENTITY, "-f", output_format, "-", target, input=content)
                self.assertEqual(done.returncode, DONE)
                self.assertEqual(done.stderr, b"rast: " + self.NOTE % number + self.ADVICE)
                for fields, _ in raster.pages_of(target.read_bytes()):
                    self.assertEqual(fields["HWResolution"], (300, 300))
        dense = chunk(b"pHYs", struct.pack(">IIB", 11811, 11811, 1))
        dense = png(2, 1, 8, 0, [b"ab"], before=dense)
        for content, more in (
            (images[0], ()), (images[1], ("-q",)), (images[1], ("-r", "600")), (dense, ()),
        ):
            done = self.run_rast(*IDENTITY, *more, "-f", "pwg", input=content)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        for output_format in ("pnm", "png", "tiff"):
            done = self.run_rast(*IDENTITY, "-f", output_format, input=images[1])
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))

    def test_later_page(self):
        known, unknown = page(2, 1), page(2, 1, HWResolution=(0, 0))
        content = stream((known, b"ab"), (unknown, b"ab"), (unknown, b"ab"))
        done = self.run_rast(*IDENTITY, "-f", "pwg", input=content)
        self.assertEqual(done.returncode, DONE)
        self.assertEqual(done.stderr, b"rast: " + self.NOTE % 2 + self.ADVICE)
        # CUPS raster need not name one, so it stays as it was.
        self.assertEqual(self.writes(content, "cups")[1][0]["HWResolution"], (0, 0))

    def test_forms(self):
        image = pgm(2, 1, b"ab")
        done = self.run_rast(*IDENTITY, "-f", "pwg", "--progress=json", input=image)
        lines = [json.loads(line) for line in done.stderr.splitlines()]
        notes = [line["note"] for line in lines if "note" in line]
        self.assertEqual(notes, [(self.NOTE % 1 + self.ADVICE).decode().rstrip()])
        self.assertEqual(lines[-1], {"done": True, "pages": 1})
        done = self.run_rast(*IDENTITY, "-f", "pwg", "--progress", input=image)
        self.assertIn(b"rast: " + self.NOTE % 1 + self.ADVICE, done.stderr)

    def test_print_filter(self):
        print_filter = self.folder / "rasttoraster"
        print_filter.symlink_to(RAST)
        done = subprocess.run([print_filter, *"1 user title 1".split(), ""], input=pgm(2, 1, b"ab"),
                              capture_output=True, timeout=20, check=False)
        self.assertEqual(done.returncode, DONE)
        self.assertIn(b"\nWARNING: " + self.NOTE % 1 + b"\n", done.stderr)


class Devices(Raster):
    def test_files_and_pipes(self):
        content = stream((page(300, 400), ramp(120000)), (page(300, 400, K), ramp(120000)))
        source, target = self.file("in.ras", content), self.folder / "out.ras"
        done = self.run_rast(*IDENTITY, source, target)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        self.assert_same(target.read_bytes(), self.through(content, "-f", "cups"))

    def test_trickling_pipe(self):
        content = stream((page(4, 3), ramp(12)), (page(4, 3), ramp(12)), version="2")
        with subprocess.Popen(
            [RAST, *IDENTITY, "-f", "pnm"], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        ) as process:
            for i in range(0, len(content), 97):
                process.stdin.write(content[i : i + 97])
                process.stdin.flush()
            out = process.communicate(timeout=20)[0]
        self.assertEqual((process.returncode, out), (DONE, pgm(4, 3, ramp(12)) * 2))

    def test_full(self):
        small, large = pgm(4, 3, ramp(12)), pgm(600, 300, ramp(180000))
        for image in (small, large):
            source = self.file("in.pgm", image)
            for output_format in ("cups", "pwg"):
                done = self.run_rast(*QUIET, "-f", output_format, source, "/dev/full")
                self.assert_fails(done, OUTPUT, "/dev/full", "No space left")

    def test_closed_pipe(self):
        source = self.file("in.pgm", pgm(600, 300, ramp(180000)))
        for output_format in ("cups", "pwg"):
            reader, writer = os.pipe()
            os.close(reader)
            done = self.run_rast(*QUIET, "-f", output_format, source, stdout=writer)
            os.close(writer)
            self.assert_fails(done, OUTPUT, "Broken pipe")

    def test_refused_page_leaves_no_output(self):
        content = stream((page(4, 3), ramp(12)), (page(4, 3, raster.RGBW), ramp(12)))
        source, target = self.file("in.ras", content), self.folder / "out.ras"
        self.assert_fails(self.run_rast(*IDENTITY, source, target), UNSUPPORTED, "page 2", "RGBW")
        self.assertEqual(os.listdir(self.folder), ["in.ras"])


class Derived(Raster):
    def test_boxes_do_not_survive_a_turn(self):
        fields = full_page(4, 4, SW, Margins=(7, 9), cupsImagingBBox=(1.0, 2.0, 3.0, 4.0))
        content = stream((fields, ramp(16)))
        for chain in ("rotate cw", "rotate cw : rotate cw", "rotate cw : shift x=0 : gray"):
            done = self.run_rast("chain", chain, "-f", "cups", input=content)
            ((written, _),) = raster.pages_of(done.stdout)
            self.assertEqual(written["Margins"], (0, 0))
            self.assertEqual(written["cupsImagingBBox"][:2], (0, 0))
        ((written, _),) = raster.pages_of(
            self.run_rast("chain", "shift x=0 : gray", "-f", "cups", input=content).stdout
        )
        self.assertEqual(written["Margins"], (7, 9))

    def test_page_count_is_not_claimed(self):
        counted = page(2, 1, SW, MediaClass=b"PwgRaster", cupsInteger=(3,) + (0,) * 15)
        content = stream(*[(counted, b"ab")] * 3, version="2")
        done = self.run_rast(*IDENTITY, "-f", "pwg", "--pages", "2", input=content)
        ((written, _),) = raster.pages_of(done.stdout)
        self.assertEqual(written["cupsInteger"][0], 0)



if __name__ == "__main__":
    unittest.main()
