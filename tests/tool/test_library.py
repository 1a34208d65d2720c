"""The rast command against direct calls of the shared library, which LIBRAST names."""

import ctypes
import itertools
import math
import os
import random
import unittest
from contextlib import contextmanager
from ctypes import POINTER, Structure, byref, c_int16, c_int32, c_uint8, c_uint16, c_uint32
from ctypes import c_void_p
from fractions import Fraction

from test_chain import is_plain
from test_rast import DONE, RastTest, pgm, ppm

OK, COMPLETE = 0, 16
BANDS = (1, 7, 64, 1000, 65536)
MONO, COLOR = 1, 3


class Area(Structure):
    _fields_ = [(n, c_int32) for n in ("nLineWidth", "nStartX", "nWidth", "nStartY", "nHeight")]


class PlaneSet(Structure):
    _fields_ = [("pIn", c_void_p * 4), ("pOut", c_void_p * 4), ("nSize", c_int32)]


class ExpGamma(Structure):
    _fields_ = [("nThreshold", c_uint8), ("nOffset", c_uint8), ("nGain", c_uint16)]


class Hue(Structure):
    _fields_ = [("nMatrix", c_int16 * 5 * 3), ("nReverse", c_int16), ("nMirror", c_int16)]


class HueLutRow(Structure):
    _fields_ = [("nProd", c_int32 * 256 * 3), ("nOutOffset", c_int32)]


class HueLut(Structure):
    _fields_ = [("row", HueLutRow * 3), ("nReverse", c_int16), ("nBuilt", c_int16)]


class ColBalance(Structure):
    _fields_ = [("nCurve", c_uint8), ("nLevel", c_int16 * 4)]


class OverlayParam(Structure):
    _fields_ = [("pOvl", c_void_p * 4), ("nOvlLineWidth", c_int32), ("nReserved0", c_uint32)]
    _fields_ += [(n, c_int32) for n in ("nOvlStartX", "nOvlWidth", "nOvlStartY", "nOvlHeight")]
    _fields_ += [("nReserved1", c_uint32)]
    _fields_ += [
        (n, c_int32) for n in ("nBaseX", "nBaseY", "nOvlX", "nOvlY", "nOutWidth", "nOutHeight")
    ]


class RotateBand(Structure):
    _fields_ = [("nPlaneNum", c_int32), ("pIn", c_void_p * 4), ("pOut", c_void_p * 4)]
    _fields_ += [("nLines", c_int32), ("nOutStartX", c_int32), ("nOutStartY", c_int32)]
    _fields_ += [("nOutLineWidth", c_int32), ("nOutHeight", c_int32), ("nReserved", c_int32)]


class RotateBandEntry(Structure):
    _fields_ = [("pPlane", c_void_p * 4), ("nLines", c_int32)]


class RotateCtx(Structure):
    _fields_ = [
        (n, c_int32)
        for n in ("nPlaneNum", "nOutStartX", "nOutStartY", "nOutLineWidth", "nOutHeight",
                  "nRotWidth", "nRotHeight", "nReserved")
    ]
    _fields_ += [("stArea", Area), ("nRotate", c_int32), ("stBand", RotateBandEntry * 128)]
    _fields_ += [("pCurBand", POINTER(RotateBandEntry))]
    _fields_ += [(n, c_int32) for n in ("nCurLine", "nSrcX", "nOutPos", "nBandNum", "nTotalLines")]


class ZoomParam(Structure):
    _fields_ = [(n, c_uint32) for n in ("nPlaneNum", "nRatioX", "nRatioY")]


class ShiftParam(Structure):
    _fields_ = [(n, c_int32) for n in ("nShiftX", "nShiftY", "nOutLineWidth", "nOutHeight")]
    _fields_ += [("nFillMode", c_uint32)]


class Page:
    """Planes that stay where they are, one or three."""

    def __init__(self, width, height, planes):
        self.width, self.height = width, height
        self.planes = [ctypes.create_string_buffer(bytes(plane), len(plane)) for plane in planes]

    @classmethod
    def random(cls, source, components, width, height):
        planes = [bytearray(source.randbytes(width * height)) for _ in range(components)]
        for place in source.choices(range(width * height), k=width * height // 4):
            value = source.choice((0, 15, 16, 255, planes[0][place]))
            for plane in planes:
                plane[place] = value
        return cls(width, height, planes)

    @classmethod
    def empty(cls, components, width, height, value=0):
        return cls(width, height, [bytes([value]) * (width * height)] * components)

    @classmethod
    def of_pixels(cls, width, height, pixels):
        return cls(width, height, [pixels[c :: COLOR] for c in range(COLOR)])

    @property
    def components(self):
        return len(self.planes)

    @property
    def area(self):
        return Area(self.width, 0, self.width, 0, self.height)

    def pixels(self):
        out = bytearray(self.width * self.height * self.components)
        for c, plane in enumerate(self.planes):
            out[c :: self.components] = plane.raw
        return bytes(out)

    def image(self):
        write = pgm if self.components == MONO else ppm
        return write(self.width, self.height, self.pixels())

    def addresses(self, mono_first=False):
        """Of four planes; a single one is the last, or the first."""
        out = [ctypes.addressof(plane) for plane in self.planes]
        if self.components == MONO and not mono_first:
            return (c_void_p * 4)(None, None, None, out[0])
        return (c_void_p * 4)(*out)


def plane_set(page, out, mono_first=False):
    size = page.width * page.height
    return PlaneSet(page.addresses(mono_first), out.addresses(mono_first), size)


def groups(count, ratio):
    """How many groups an accumulator makes that emits at 1000."""
    out = gathered = progress = 0
    for _ in range(count):
        gathered, progress = gathered + 1, progress + ratio
        if progress >= 1000:
            out, gathered, progress = out + 1, 0, progress - 1000
    return out + (gathered > 0)


@contextmanager
def silence():
    """What C prints to standard output goes nowhere."""
    libc = ctypes.CDLL(None)
    libc.fflush(None)
    kept, null = os.dup(1), os.open(os.devnull, os.O_WRONLY)
    os.dup2(null, 1)
    try:
        yield
        libc.fflush(None)
    finally:
        os.dup2(kept, 1)
        os.close(kept)
        os.close(null)


@unittest.skipUnless(os.environ.get("LIBRAST"), "LIBRAST does not name the shared library")
class Direct(RastTest):
    SIZES = ((13, 70), (67, 9), (4, 3), (1, 1), (130, 5), (3, 131))

    @classmethod
    def setUpClass(cls):
        path = os.path.abspath(os.environ["LIBRAST"])
        if not is_plain(path):
            raise unittest.SkipTest("LIBRAST is no library that this interpreter can load")
        cls.library = ctypes.CDLL(path)

    def setUp(self):
        super().setUp()
        self.source = random.Random(self.id())
        self.turn = 0

    def call(self, name, *arguments, expected=OK):
        function = getattr(self.library, name)
        function.restype = c_uint32
        self.assertEqual(function(*arguments), expected, name)

    def pages(self, components, sizes=None):
        return [Page.random(self.source, components, *size) for size in sizes or self.SIZES]

    def compare(self, operation, pages, expected, *arguments, bands=None):
        """Two of the band sizes, in turn, if none are given."""
        if bands is None:
            bands = [BANDS[(self.turn + k) % len(BANDS)] for k in (0, 2)]
            self.turn += 1
        stream = b"".join(page.image() for page in pages)
        wanted = b"".join(page.image() for page in expected)
        for band in bands:
            with self.subTest(arguments=arguments, components=pages[0].components, band=band):
                done = self.run_rast(operation, *arguments, "--band", band, input=stream)
                self.assertEqual(done.returncode, DONE, done.stderr)
                self.assert_same(done.stdout, wanted)

    def alike(self, operation, name, components, *arguments, parameters=()):
        """A function that keeps the page's size and takes area, planes and parameters."""
        pages, expected = self.pages(components), []
        for page in pages:
            out = Page.empty(components, page.width, page.height)
            self.call(name, byref(page.area), byref(plane_set(page, out)), *parameters)
            expected.append(out)
        self.compare(operation, pages, expected, *arguments)


class Tone(Direct):
    def test_expgamma(self):
        for _ in range(10):
            threshold, offset = self.source.randrange(256), self.source.randrange(256)
            gain = self.source.choice((0, 1, 255, 256, 257, 65535, self.source.randrange(2000)))
            arguments = ("--threshold", threshold, "--offset", offset, "--gain", gain)
            curve = ExpGamma(threshold, offset, gain)
            self.alike(
                "expgamma", "rastExpGamma", MONO, *arguments, parameters=(byref(curve), None)
            )

    def test_colgamma(self):
        for components in (MONO, COLOR):
            for _ in range(4):
                curve = self.source.randbytes(256)
                path = self.file("curve", " ".join(map(str, curve)).encode())
                self.alike(
                    "colgamma", "rastColGamma", components, "--curve", path, parameters=(curve,)
                )


class Color(Direct):
    def test_binconv(self):
        for color in range(6):
            self.alike(
                "binconv", "rastBinConv", COLOR, "--color", color, parameters=(c_uint32(color),)
            )

    def test_satadjust(self):
        for mode, name in enumerate(("lower", "raise")):
            self.alike(
                "satadjust", "rastSatAdjust", COLOR, "--mode", name, parameters=(c_uint32(mode),)
            )

    def matrix(self, most):
        numbers = [self.source.randint(-most, most) for _ in range(15)]
        hue = Hue()
        for k in range(15):
            hue.nMatrix[k // 5][k % 5] = numbers[k]
        return hue, self.file("matrix", " ".join(map(str, numbers)).encode())

    def test_hueadjust_with_a_buffer(self):
        for components in (MONO, COLOR):
            for most in (300, 1000, 32767):
                for reverse in (0, 1):
                    hue, path = self.matrix(most)
                    more = ["--reverse"] if reverse else []
                    lut = HueLut(nReverse=reverse)
                    self.alike(
                        "hueadjust", "rastHueAdjust", components, "--matrix", path, *more,
                        parameters=(byref(hue), byref(lut)),
                    )
                    self.assertEqual(lut.nBuilt, 1)

    def test_hueadjust_without_a_buffer(self):
        for components in (MONO, COLOR):
            for mirror, reverse, span in itertools.product((0, 1), (0, 1), (400, 32767)):
                hue, path = self.matrix(span)
                hue.nReverse, hue.nMirror = reverse, mirror
                more = ["--reverse"] * reverse + ["--mirror"] * mirror
                with silence():
                    self.alike(
                        "hueadjust", "rastHueAdjust", components, "--matrix", path, *more,
                        parameters=(byref(hue), None),
                    )

    def test_colbalance(self):
        for curve in range(5):
            for use_buffer in (False, True):
                levels = [self.source.randrange(12) for _ in range(4)]
                parameters = ColBalance(curve, (c_int16 * 4)(*levels))
                lut = ctypes.create_string_buffer(1025) if use_buffer else None
                self.alike(
                    "colbalance", "rastColBalance", COLOR, "--curve", curve,
                    "--level", ",".join(map(str, levels)), parameters=(byref(parameters), lut),
                )

    def test_gray(self):
        """The library turns what the command has made gray."""
        weights = (Fraction(299, 1000), Fraction(587, 1000), Fraction(114, 1000))
        pages, grays, expected = self.pages(COLOR), [], []
        for page in pages:
            columns = zip(*(plane.raw for plane in page.planes))
            luma = bytes(
                math.floor(sum(w * c for w, c in zip(weights, pixel)) + Fraction(1, 2))
                for pixel in columns
            )
            grays.append(Page(page.width, page.height, [luma]))
            out = Page.empty(MONO, page.width, page.height)
            curve = ExpGamma(90, 7, 300)
            self.call(
                "rastExpGamma", byref(page.area), byref(plane_set(grays[-1], out)), byref(curve),
                None,
            )
            expected.append(out)
        self.compare("gray", pages, grays, bands=BANDS)
        self.compare("gray", grays, grays)
        parameters = ("--threshold", 90, "--offset", 7, "--gain", 300)
        self.compare("expgamma", pages, expected, "--gray", *parameters, bands=BANDS)


class Overlays(Direct):
    def place(self, page, overlay):
        """Positions that keep to what the functions ask for, and the arguments that say so."""
        width, height = (
            (page.width, page.height) if self.source.random() < 0.4
            else (self.source.randint(1, 90), self.source.randint(1, 80))
        )
        at = [self.source.randrange(2 * width), self.source.randrange(2 * height)]
        base = [self.source.randrange(2 * width), self.source.randrange(2 * height)]
        if self.source.random() < 0.5:
            base[0] = 0
        if min(at[0], base[0]) >= width or min(base[0], at[1]) >= height:
            base[0] = self.source.randrange(min(width, height))
        arguments = ["--at", f"{at[0]},{at[1]}", "--base", f"{base[0]},{base[1]}"]
        if (width, height) != (page.width, page.height):
            arguments += ["--size", f"{width}x{height}"]
        param = OverlayParam(
            nOvlLineWidth=overlay.width, nOvlWidth=overlay.width, nOvlHeight=overlay.height,
            nBaseX=base[0], nBaseY=base[1], nOvlX=at[0], nOvlY=at[1], nOutWidth=width,
            nOutHeight=height,
        )
        return param, arguments

    def images(self, components):
        page = Page.random(
            self.source, components, self.source.randint(1, 60), self.source.randint(1, 60)
        )
        overlay = Page.random(
            self.source, components, self.source.randint(1, 40), self.source.randint(1, 40)
        )
        return page, overlay, self.file("logo", overlay.image())

    def test_overlay(self):
        for components in (MONO, COLOR):
            for k in range(36):
                page, overlay, logo = self.images(components)
                param, arguments = self.place(page, overlay)
                param.pOvl = overlay.addresses(mono_first=True)
                mode, density = k % 3, self.source.choice((10, 50, 99, 100))
                white = self.source.randrange(2)
                out = Page.empty(components, param.nOutWidth, param.nOutHeight, 99)
                self.call(
                    "rastOverlay", byref(page.area), byref(plane_set(page, out, True)),
                    byref(param), 2 if components == MONO else 0, 0, mode, density, white,
                )
                arguments += ["--mode", ("replace", "max", "ink")[mode], "--density", density]
                arguments += ["--white"] * white
                self.compare("overlay", [page], [out], "--with", logo, *arguments)

    def test_overlayrgb(self):
        for _ in range(30):
            page, overlay, logo = self.images(COLOR)
            param, arguments = self.place(page, overlay)
            white = self.source.randrange(2)
            count = param.nOutWidth * param.nOutHeight * COLOR
            rest = bytes([255 * white]) * (count + COLOR)
            below, above = page.pixels() + rest, overlay.pixels() + rest
            out = ctypes.create_string_buffer(b"\x63" * count, count)
            below = ctypes.create_string_buffer(below, len(below))
            above = ctypes.create_string_buffer(above, len(above))
            param.pOvl[0] = ctypes.addressof(above)
            images = (c_void_p * 2)(ctypes.addressof(below), ctypes.addressof(out))
            self.call(
                "rastOverlayRGB24bpp", byref(page.area), images, byref(param), 0, 0, 0, 10, white
            )
            expected = Page.of_pixels(param.nOutWidth, param.nOutHeight, out.raw)
            arguments += ["--white"] * white
            self.compare("overlayrgb", [page], [expected], "--with", logo, *arguments)


class Geometry(Direct):
    def turned(self, page, mode):
        out = Page.empty(page.components, page.height, page.width, 99)
        band = RotateBand(
            nPlaneNum=page.components, pIn=page.addresses(mono_first=True),
            pOut=out.addresses(mono_first=True), nLines=page.height, nOutLineWidth=page.height,
            nOutHeight=page.width,
        )
        turn = RotateCtx()
        self.call(
            "rastRotateInputAccumulate", byref(page.area), byref(band), byref(turn), mode,
            expected=COMPLETE,
        )
        band.nLines = page.width
        end = COMPLETE if mode == 2 else OK
        self.call("rastRotateSockOutput", byref(band), byref(turn), expected=end)
        return out

    def test_rotate(self):
        for components in (MONO, COLOR):
            for mode, name in ((0, "ccw"), (2, "cw")):
                pages = self.pages(components)
                expected = [self.turned(page, mode) for page in pages]
                self.compare("rotate", pages, expected, name, bands=BANDS)

    def reduced(self, page, ratio_x, ratio_y):
        out = Page.empty(page.components, page.width, page.height, 99)
        self.call(
            "rastZoom", byref(page.area), byref(plane_set(page, out, True)),
            byref(ZoomParam(page.components, ratio_x, ratio_y)),
        )
        size = groups(page.width, ratio_x), groups(page.height, ratio_y)
        count = size[0] * size[1]
        for plane in out.planes:
            self.assertEqual(set(plane.raw[count:]) - {99}, set())
        return Page(*size, [plane.raw[:count] for plane in out.planes])

    def test_zoom(self):
        special = (1, 333, 500, 501, 999, 1000)
        for components in (MONO, COLOR):
            for _ in range(14):
                x, y = (
                    self.source.choice((*special, self.source.randint(1, 1000))) for _ in range(2)
                )
                pages = self.pages(components)
                expected = [self.reduced(page, x, y) for page in pages]
                self.compare("zoom", pages, expected, "--x", x, "--y", y)
            for tenths in (1, 335, 500, 667, 1000):
                pages = self.pages(components)
                expected = [self.reduced(page, tenths, tenths) for page in pages]
                percent = f"{tenths // 10}.{tenths % 10}"
                self.compare("zoom", pages, expected, "--percent", percent)

    def test_zoom_of_long_pages(self):
        for ratio in (999, 601, 250):
            pages = self.pages(MONO, [(3, 2345), (5, 1001)])
            expected = [self.reduced(page, 800, ratio) for page in pages]
            self.compare("zoom", pages, expected, "--x", 800, "--y", ratio, bands=BANDS)

    def shifted(self, page, x, y, size, fill):
        out = Page.empty(page.components, *size)
        planes = plane_set(page, out)
        param = ShiftParam(x, y, *size, fill)
        mode = 1 if page.components == MONO else 0
        self.call("rastImageShift", byref(page.area), byref(planes), byref(param), mode)
        return out

    def test_shift(self):
        for components in (MONO, COLOR):
            for k in range(24):
                page = Page.random(
                    self.source, components, self.source.randint(2, 60), self.source.randint(2, 99)
                )
                fill = k % 3
                negative, sized = self.source.random() < 0.4, self.source.random() < 0.5
                size = page.width, page.height
                if negative:
                    x = -self.source.randrange(1, page.width)
                    y = -self.source.randrange(page.height)
                    if sized:
                        size = size[0] + self.source.randrange(9), size[1] + 5
                else:
                    if sized:
                        size = self.source.randint(1, 90), self.source.randint(1, 120)
                    x, y = self.source.randrange(size[0]), self.source.randrange(size[1])
                arguments = ["--x", x, "--y", y, "--fill", ("none", "black", "white")[fill]]
                arguments += ["--size", f"{size[0]}x{size[1]}"] if sized else []
                expected = self.shifted(page, x, y, size, fill)
                self.compare("shift", [page], [expected], *arguments)


if __name__ == "__main__":
    unittest.main()
