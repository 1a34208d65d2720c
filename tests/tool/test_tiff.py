"""End-to-end tests of TIFF pages; the environment variable RAST names the binary."""

import io
import itertools
import os
import random
import shutil
import signal
import struct
import subprocess
import unittest
import zlib

from raster import page as raster_page
from raster import stream
from test_rast import (
    DAMAGED, DONE, MEMORY, OUTPUT, RAST, UNSUPPORTED, RastTest, gray_png, pgm, ppm, ramp,
)
from test_streams import LIBRARIES

try:
    from PIL import Image
except ImportError:
    Image = None

WHITE_IS_ZERO, BLACK_IS_ZERO, RGB, PALETTE, MASK, CMYK, YCBCR, LAB = *range(7), 8
NONE, GROUP4, OLD_JPEG, JPEG, PACKBITS, DEFLATE = 1, 4, 6, 7, 32773, 8
WIDTH, HEIGHT, BITS, COMPRESSION, PHOTOMETRIC, FILL_ORDER = 256, 257, 258, 259, 262, 266
ORIENTATION, SAMPLES, ROWS, X_RESOLUTION, Y_RESOLUTION = 274, 277, 278, 282, 283
PLANAR, UNIT, MAP, EXTRA, FORMAT, KIND, SUBSAMPLING = 284, 296, 320, 338, 339, 254, 530
SUB = 330
OFFSETS, COUNTS = 273, 279
TILE_WIDTH, TILE_HEIGHT, TILE_OFFSETS, TILE_COUNTS = 322, 323, 324, 325


class Ratio(tuple):
    """The value of a tag that is a fraction."""


def page(width, height, strips, photometric=BLACK_IS_ZERO, bits=8, samples=1, **tags):
    """Strips and tags; keywords are names of tags above, None leaves a tag out."""
    values = {
        WIDTH: width, HEIGHT: height, BITS: [bits] * samples, COMPRESSION: NONE,
        PHOTOMETRIC: photometric, SAMPLES: samples, ROWS: height,
    }
    values.update({globals()[name]: value for name, value in tags.items()})
    return strips, values


def tiff(*pages, order="<", big=False, last=0):
    """A file of pages; the last directory leads on to an offset."""
    size, long, head = ("Q", 16, 16) if big else ("I", 4, 8)
    inline, count_type = (8, "Q") if big else (4, "H")
    out = bytearray(head)
    if big:
        out[:8] = (b"II" if order == "<" else b"MM") + struct.pack(order + "HHH", 43, 8, 0)
        link = 8
    else:
        out[:4] = (b"II" if order == "<" else b"MM") + struct.pack(order + "H", 42)
        link = 4
    for strips, tags in pages:
        offsets = []
        for strip in strips:
            offsets.append(len(out))
            out += strip
        tags = {OFFSETS: offsets, COUNTS: [len(strip) for strip in strips], **tags}
        tags = {tag: value for tag, value in tags.items() if value is not None}
        entries = b""
        for tag, value in sorted(tags.items()):
            if isinstance(value, Ratio):
                kind, count, data = 5, 1, struct.pack(order + "II", *value)
            else:
                value = value if isinstance(value, list) else [value]
                short = tag not in (OFFSETS, COUNTS, WIDTH, HEIGHT, ROWS, KIND, SUB)
                kind, count = 3 if short else 16 if big else 4, len(value)
                data = struct.pack(f"{order}{count}{'H' if short else size}", *value)
            if len(data) > inline:
                out += bytes(len(out) % 2)
                data, at = struct.pack(order + size, len(out)), data
                out += at
            entries += struct.pack(order + "HH" + size, tag, kind, count)
            entries += data.ljust(inline, b"\0")
        out += bytes(len(out) % 2)
        struct.pack_into(order + size, out, link, len(out))
        out += struct.pack(order + count_type, len(tags)) + entries
        link = len(out)
        out += bytes(inline)
    struct.pack_into(order + size, out, link, last)
    return bytes(out)


def is_big(data):
    assert data[:4] in (b"II*\0", b"II+\0"), data[:4]
    return data[2:3] == b"+"


def decode(data):
    """The pages of a little-endian file in strips without compression: tags with their samples."""
    big = is_big(data)
    word, count_bytes, entry, inline = ("<Q", 8, 20, 8) if big else ("<I", 2, 12, 4)
    if big:
        assert data[4:8] == b"\x08\0\0\0"
    at, pages = struct.unpack_from(word, data, inline)[0], []
    while at:
        tags = {}
        for i in range(int.from_bytes(data[at : at + count_bytes], "little")):
            place = at + count_bytes + entry * i
            tag, kind = struct.unpack_from("<HH", data, place)
            count = struct.unpack_from(word, data, place + 4)[0]
            code = {1: "B", 3: "H", 4: "I", 5: "Q", 16: "Q"}[kind]
            place += 4 + inline
            if struct.calcsize(f"<{count}{code}") > inline:
                place = struct.unpack_from(word, data, place)[0]
            tags[tag] = struct.unpack_from(f"<{count}{code}", data, place)
        at = struct.unpack_from(word, data, at + count_bytes + entry * len(tags))[0]
        strips = [data[o : o + n] for o, n in zip(tags[OFFSETS], tags[COUNTS])]
        pages.append((tags, b"".join(strips)))
    return pages


GRAY = ramp(12)
COLOR = ramp(36)


class TiffTest(RastTest):
    def setUp(self):
        super().setUp()
        self.curve = self.aside("identity", "".join(f"{i}\n" for i in range(256)).encode())

    def samples_of(self, content, *arguments):
        done = self.run_rast("colgamma", "--curve", self.curve, *arguments, input=content)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        return done.stdout

    def reads(self, expected, *pages, **options):
        self.assert_same(self.samples_of(tiff(*pages, **options)), expected)

    def refuses(self, content, code, *words):
        self.refuse(content, code, *words, operation="colgamma", arguments=["--curve", self.curve])


class Reading(TiffTest):
    def test_kinds(self):
        gray = page(4, 3, [GRAY])
        color = page(4, 3, [COLOR], RGB, samples=3)
        planes = page(4, 3, [COLOR[c::3] for c in range(3)], RGB, samples=3, PLANAR=2)
        white = page(4, 3, [GRAY], WHITE_IS_ZERO)
        for options in ({}, {"order": ">"}, {"big": True}, {"order": ">", "big": True}):
            self.reads(pgm(4, 3, GRAY), gray, **options)
            self.reads(ppm(4, 3, COLOR), color, **options)
            self.reads(ppm(4, 3, COLOR), planes, **options)
            self.reads(pgm(4, 3, bytes(255 - x for x in GRAY)), white, **options)
            everything = pgm(4, 3, GRAY) + ppm(4, 3, COLOR) + pgm(4, 3, GRAY)
            self.reads(everything, gray, planes, gray, **options)

    def test_few_bits(self):
        for bits in (1, 2, 4):
            top = 2**bits - 1
            for width in (1, 3, 8, 9, 17):
                levels = [[random.randint(0, top) for _ in range(width)] for _ in range(3)]
                rows = []
                for row in levels:
                    text = "".join(f"{level:0{bits}b}" for level in row)
                    text = text.ljust(-len(text) // 8 * -8, "1")
                    rows.append(int(text, 2).to_bytes(len(text) // 8, "big"))
                gray = bytes(level * 255 // top for row in levels for level in row)
                white = bytes(255 - x for x in gray)
                self.reads(pgm(width, 3, gray), page(width, 3, [b"".join(rows)], bits=bits))
                self.reads(pgm(width, 3, white),
                           page(width, 3, rows, WHITE_IS_ZERO, bits=bits, ROWS=1))
                mirrored = [bytes(int(f"{x:08b}"[::-1], 2) for x in row) for row in rows]
                self.reads(pgm(width, 3, gray),
                           page(width, 3, mirrored, bits=bits, ROWS=1, FILL_ORDER=2))

    def test_palettes(self):
        for bits, stored in (
            (1, b"\x60"), (2, b"\x1b"), (4, b"\x01\x23"), (8, b"\x00\x01\xfe\xff"),
        ):
            count = 2**bits
            colors = [[random.randrange(256) for _ in range(count)] for _ in range(3)]
            text = "".join(f"{x:08b}" for x in stored)
            levels = [int(text[i * bits : (i + 1) * bits], 2) for i in range(4)]
            expected = bytes(colors[c][level] for level in levels for c in range(3))
            for scale in (1, 256, 257):
                if scale != 1:
                    colors[0][0] = max(colors[0][0], 1)
                    expected = bytes(colors[c][level] for level in levels for c in range(3))
                values = [x * scale for plane in colors for x in plane]
                self.reads(ppm(4, 1, expected), page(4, 1, [stored], PALETTE, bits, MAP=values))

    def test_strips(self):
        for rows in (1, 2, 3, 100, 2**32 - 1):
            lines = [GRAY[i : i + rows * 4] for i in range(0, 12, rows * 4)]
            self.reads(pgm(4, 3, GRAY), page(4, 3, lines, ROWS=rows))
            planes = [COLOR[c::3][i : i + rows * 4] for c in range(3)
                      for i in range(0, 12, rows * 4)]
            self.reads(ppm(4, 3, COLOR), page(4, 3, planes, RGB, samples=3, PLANAR=2, ROWS=rows))
            packed = [zlib.compress(plane) for plane in planes]
            self.reads(ppm(4, 3, COLOR), page(4, 3, packed, RGB, samples=3, PLANAR=2, ROWS=rows,
                                               COMPRESSION=DEFLATE))
        self.reads(pgm(4, 3, GRAY), page(4, 3, [GRAY], ROWS=None))
        self.reads(pgm(4, 3, GRAY), page(4, 3, [GRAY + b"unused"]))

    def test_compression(self):
        self.reads(pgm(4, 3, GRAY), page(4, 3, [zlib.compress(GRAY)], COMPRESSION=DEFLATE))
        runs = b"".join(b"\3" + GRAY[i : i + 4] for i in (0, 4, 8))
        self.reads(pgm(4, 3, GRAY), page(4, 3, [runs], COMPRESSION=PACKBITS))
        # Eight white lines, a bit each, and the end of the block.
        white = page(9, 8, [b"\xff\x00\x10\x01"], WHITE_IS_ZERO, 1, COMPRESSION=GROUP4)
        self.reads(pgm(9, 8, b"\xff" * 72), white)

    @unittest.skipUnless(Image, "needs the Python Imaging Library")
    def test_encoders(self):
        noise = random.Random(1)
        width, height = 61, 47
        for compression, modes in {
            None: "1LPRGB", "tiff_lzw": "LPRGB", "tiff_adobe_deflate": "1LPRGB",
            "packbits": "1LPRGB", "group3": "1", "group4": "1", "tiff_ccitt": "1", "jpeg": "LRGB",
        }.items():
            for mode in ("1", "L", "P", "RGB"):
                if mode not in modes:
                    continue
                image = Image.new("RGB", (width, height))
                image.putdata([tuple(noise.choice((0, 99, 255)) for _ in range(3))
                               for _ in range(width * height)])
                image = image.convert(mode)
                encoded = io.BytesIO()
                image.save(encoded, "TIFF", compression=compression)
                with Image.open(io.BytesIO(encoded.getvalue())) as decoded:
                    decoded = decoded.convert("RGB" if mode in ("P", "RGB") else "L")
                expected = (ppm if mode in ("P", "RGB") else pgm)(width, height, decoded.tobytes())
                with self.subTest(compression=compression, mode=mode):
                    self.assert_same(self.samples_of(encoded.getvalue()), expected)

    @unittest.skipUnless(Image, "needs the Python Imaging Library")
    def test_ycbcr(self):
        width, height = 61, 47
        noise = [Image.effect_noise((width, height), deviation) for deviation in (30, 60, 90)]
        for subsampling, factors in ((0, [1, 1]), (1, [2, 1]), (2, [2, 2])):
            encoded = io.BytesIO()
            Image.merge("RGB", noise).save(encoded, "JPEG", subsampling=subsampling)
            strip = encoded.getvalue()
            with Image.open(encoded) as decoded:
                expected = ppm(width, height, decoded.tobytes())
            self.reads(expected, page(width, height, [strip], YCBCR, samples=3, COMPRESSION=JPEG,
                                      SUBSAMPLING=factors))
            for kept in (len(strip) // 2, len(strip) * 9 // 10):
                self.refuses(tiff(page(width, height, [strip[:kept]], YCBCR, samples=3,
                                       COMPRESSION=JPEG, SUBSAMPLING=factors)),
                             DAMAGED, "page 1, line ", "damaged TIFF: ")

    @unittest.skipUnless(Image, "needs the Python Imaging Library")
    def test_truncated_encodings(self):
        image = Image.effect_noise((61, 47), 90)
        for compression in (
            "tiff_lzw", "tiff_adobe_deflate", "packbits", "group3", "group4", "jpeg",
        ):
            encoded = io.BytesIO()
            mode = "1" if compression.startswith("group") else "L"
            image.convert(mode).save(encoded, "TIFF", compression=compression)
            content = encoded.getvalue()
            whole = self.samples_of(content)
            at = content.index(struct.pack("<HHI", COUNTS, 4, 1))
            size = struct.unpack_from("<I", content, at + 8)[0]
            for kept in (1, size // 3, size // 2, size * 9 // 10):
                # The strip as a whole ends early, which the decoder alone can notice.
                changed = bytearray(content)
                struct.pack_into("<I", changed, at + 8, kept)
                done = self.run_rast("colgamma", "--curve", self.curve, input=bytes(changed))
                with self.subTest(compression=compression, kept=kept):
                    self.assert_fails(done, DAMAGED, "page 1, line ", "damaged TIFF: ")
                self.assertNotEqual(done.stdout, whole)

    def test_info(self):
        path = self.file("in.tif", tiff(page(4, 3, [GRAY]), page(4, 3, [COLOR], RGB, samples=3)))
        for done in (self.run_rast("info", path), self.run_rast("info", input=path.read_bytes())):
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            lines = done.stdout.decode().splitlines()
            self.assertTrue(lines[0].startswith("page 1: TIFF, 4 x 3, gray"))
            self.assertTrue(lines[1].startswith("page 2: TIFF, 4 x 3, RGB"))
            self.assertEqual(lines[-1], "2 pages")

    def test_piped(self):
        content = tiff(page(4, 3, [GRAY]), page(4, 3, [GRAY]))
        with subprocess.Popen(["cat", self.file("in.tif", content)], stdout=subprocess.PIPE) as cat:
            done = self.run_rast("colgamma", "--curve", self.curve, stdin=cat.stdout)
        self.assertEqual((done.returncode, done.stdout), (DONE, pgm(4, 3, GRAY) * 2))


class Refusals(TiffTest):
    def test_unsupported(self):
        for refused, *words in (
            (page(4, 3, [GRAY * 2], bits=16), "16-bit"),
            (page(4, 3, [GRAY], bits=3), "3-bit"),
            (page(4, 3, [GRAY * 4], bits=32, FORMAT=3), "floating-point"),
            (page(4, 3, [GRAY], FORMAT=2), "signed"),
            (page(4, 3, [GRAY * 4], CMYK, samples=4), "CMYK", "RGB"),
            (page(4, 3, [COLOR], YCBCR, samples=3), "YCbCr"),
            (page(4, 3, [COLOR], LAB, samples=3), "Lab"),
            (page(4, 3, [GRAY * 2], samples=2, EXTRA=1), "alpha"),
            (page(4, 3, [GRAY * 4], RGB, samples=4, EXTRA=2), "alpha"),
            (page(4, 3, [COLOR], RGB, bits=4, samples=3), "4-bit"),
            (page(4, 3, [GRAY], ORIENTATION=6), "right-top"),
            (page(4, 3, [GRAY], ORIENTATION=3), "bottom-right"),
            (page(4, 3, [GRAY], KIND=1), "thumbnail"),
            (page(4, 3, [GRAY], KIND=4), "mask"),
            (page(4, 3, [GRAY], MASK, KIND=4), "mask"),
            (page(4, 3, [GRAY], 32803), "32803"),
            (page(4, 3, [GRAY], COMPRESSION=9999), "compression 9999"),
            (page(4, 3, [GRAY], COMPRESSION=OLD_JPEG), "compression 6"),
            (page(4, 3, [], ROWS=None, OFFSETS=None, COUNTS=None, TILE_WIDTH=16, TILE_HEIGHT=16,
                  TILE_OFFSETS=8, TILE_COUNTS=256), "tiled"),
        ):
            with self.subTest(words=words):
                self.refuses(tiff(refused), UNSUPPORTED, "page 1: ", "not supported; ", *words)
        self.refuses(tiff(page(4, 3, [GRAY]), page(4, 3, [GRAY], KIND=1)), UNSUPPORTED, "page 2: ")

    def test_truncated(self):
        for content in (
            tiff(page(4, 3, [GRAY]), page(4, 3, [GRAY], X_RESOLUTION=Ratio((300, 1)))),
            tiff(page(4, 3, [GRAY[:4], GRAY[4:8], GRAY[8:]], ROWS=1), order=">"),
            tiff(page(4, 3, [GRAY]), big=True),
            tiff(page(4, 3, [zlib.compress(GRAY)], COMPRESSION=DEFLATE)),
        ):
            self.samples_of(content)
            for kept in range(len(content)):
                # The last link holds zero, the end, and counts all the same.
                path = self.file("in", content[:kept])
                done = self.run_rast("colgamma", "--curve", self.curve, path, "-")
                with self.subTest(kept=kept):
                    self.assert_fails(done, DAMAGED)

    def test_directories(self):
        one = page(4, 3, [GRAY])
        start = struct.unpack_from("<I", tiff(one), 4)[0]
        for last in (start, 1, 8, 9999, 2**31, 2**32 - 1):
            self.refuses(tiff(one, last=last), DAMAGED, "page 2: ")
        second = tiff(one, one)
        self.refuses(tiff(one, one, last=start), DAMAGED, "page 3: ")
        for link in (0, 8, len(second), 2**32 - 1):
            content = bytearray(second)
            struct.pack_into("<I", content, 4, link)
            self.refuses(bytes(content), DAMAGED, "page 1: ")
        for content in (b"I", b"II", b"II*\0", b"MM*\0\0\0\0\0", b"II+\0\10\0\0\0", b"Invalid"):
            self.refuses(content, DAMAGED)

    def test_sizes(self):
        for width, height in ((0, 3), (4, 0), (2**31, 1), (1, 2**31), (2**32 - 1, 2**32 - 1)):
            self.refuses(tiff(page(width, height, [GRAY], ROWS=1)), DAMAGED)
        self.refuses(tiff(page(2**31 - 1, 1, [GRAY], COMPRESSION=DEFLATE)), MEMORY, "--memory")
        self.refuses(tiff(page(4, 2**31 - 1, [GRAY])), DAMAGED, "page 1: ", "strip sizes")

    def test_strips(self):
        for tags in (
            {"OFFSETS": None}, {"OFFSETS": 0}, {"OFFSETS": 2**32 - 1}, {"COUNTS": 11},
            {"COUNTS": 0, "COMPRESSION": DEFLATE}, {"ROWS": 0}, {"ROWS": 2}, {"ROWS": 1},
            {"COUNTS": 2**32 - 1, "COMPRESSION": DEFLATE}, {"COMPRESSION": DEFLATE},
            {"PHOTOMETRIC": None}, {"WIDTH": None}, {"HEIGHT": None}, {"SAMPLES": 0},
        ):
            with self.subTest(tags=tags):
                self.refuses(tiff(page(4, 3, [GRAY], **tags)), DAMAGED, "page 1")
        self.refuses(tiff(page(4, 3, [GRAY], PALETTE, 4)), DAMAGED)
        self.refuses(tiff(page(4, 3, [GRAY], RGB)), DAMAGED, "1 samples")
        # A fax that ends early: the decoder says so in a mere warning.
        short = page(9, 80, [b"\xff\x00\x10\x01"], WHITE_IS_ZERO, 1, COMPRESSION=GROUP4)
        self.refuses(tiff(short), DAMAGED, "page 1, line ")

    def test_huge_strips(self):
        # Plain strips are read by the line, however large; only packed ones are read as a whole.
        width, height = 1 << 15, 1 << 15
        head = tiff(page(width, height, [], OFFSETS=[4096], COUNTS=[width * height]))
        path = self.file("plain.tif", head)
        os.truncate(path, 4096 + width * height)
        self.assertIn(b"1 page", self.run_rast("info", path).stdout)
        head = tiff(page(width, height, [], OFFSETS=[4096], COUNTS=[1 << 29], COMPRESSION=DEFLATE))
        path = self.file("packed.tif", head)
        os.truncate(path, 4096 + (1 << 29))
        self.assert_fails(self.run_rast("info", path), MEMORY, "page 1, line 1: ")

        # The table of strips is read as a whole.
        head = bytearray(tiff(page(1, 1 << 26, [], ROWS=1, OFFSETS=[4096], COUNTS=[1])))
        for tag in (OFFSETS, COUNTS):
            at = head.index(struct.pack("<HHI", tag, 4, 1))
            struct.pack_into("<II", head, at + 4, 1 << 26, 4096)
        path = self.file("strips.tif", head)
        os.truncate(path, 4096 + (1 << 28))
        self.assert_fails(self.run_rast("info", path), MEMORY, "page 1: ", "needs too much")

    def test_changed_bytes(self):
        noise = random.Random(2)
        whole = tiff(page(4, 3, [GRAY]), page(4, 3, [zlib.compress(GRAY)], COMPRESSION=DEFLATE))
        for _ in range(200):
            content = bytearray(whole)
            for _ in range(noise.randint(1, 3)):
                content[noise.randrange(1, len(content))] = noise.choice((0, 1, 127, 128, 255))
            done = self.run_rast("info", input=bytes(content))
            self.assertIn(done.returncode, (DONE, DAMAGED, UNSUPPORTED, MEMORY), done.stderr)
            if done.returncode != DONE:
                self.assertRegex(done.stderr.decode(), r"\Arast: [^\n]+\n\Z")


class Ends(TiffTest):
    """Where a file ends, whatever the order of what is in it."""

    def refuses_rest(self, content, number, rest=None):
        size = r"\d+" if rest is None else len(rest)
        for command in (("info",), ("colgamma", "--curve", self.curve, "-", self.folder / "new")):
            done = self.run_rast(*command, input=content + (rest or b""))
            self.assert_fails(done, DAMAGED, f"page {number}: followed by ", "; expected the end")
            self.assertRegex(done.stderr.decode(), rf"by {size} bytes that nothing in the TIFF")
        self.assertFalse((self.folder / "new").exists())

    def test_data_behind_the_last_page(self):
        two = tiff(page(4, 3, [GRAY]), page(4, 3, [COLOR], RGB, samples=3))
        for content in (tiff(page(4, 3, [GRAY])), two, tiff(page(4, 3, [GRAY]), big=True),
                        tiff(page(4, 3, [GRAY], X_RESOLUTION=Ratio((300, 1))), order=">"),
                        tiff(page(4, 3, [GRAY[:4], GRAY[4:8], GRAY[8:]], ROWS=1)),
                        tiff(page(4, 3, [zlib.compress(GRAY)], COMPRESSION=DEFLATE))):
            pages = 2 if content is two else 1
            whole = self.samples_of(content)
            for rest in (content, pgm(4, 3, GRAY), b"x" * 8, bytes(4096) + b"x", b"\0" * 7 + b"x"):
                self.refuses_rest(content, pages, rest)
            for padding in (b"", b"\0", b"\n", b"x" * 7, bytes(8), bytes(5000)):
                self.assert_same(self.samples_of(content + padding), whole)

    def test_data_that_is_referred_to(self):
        """Holes are no matter, and nothing that any directory names is left over."""
        def file(entries, rest, order="<"):
            """Samples at 8, then the directory, then whatever entries refer to."""
            tags = {WIDTH: (4, 1, 4), HEIGHT: (4, 1, 3), BITS: (3, 1, 8), COMPRESSION: (3, 1, 1),
                    PHOTOMETRIC: (3, 1, 1), OFFSETS: (4, 1, 8), SAMPLES: (3, 1, 1),
                    ROWS: (4, 1, 3), COUNTS: (4, 1, 12), **entries}
            directory = struct.pack(order + "H", len(tags))
            for tag, (kind, count, value) in sorted(tags.items()):
                code = "HH" if kind == 3 and count == 1 else "I"
                values = (value, 0) if code == "HH" else (value,)
                directory += struct.pack(order + "HHI" + code, tag, kind, count, *values)
            directory += bytes(4)
            content = {"<": b"II*\0", ">": b"MM\0*"}[order] + struct.pack(order + "I", 20) + GRAY
            content += directory
            content += b"hole" * ((400 - len(content)) // 4)
            return content.ljust(400, b"h") + rest

        for order in "<>":
            empty = struct.pack(order + "H", 0) + bytes(4)
            text = b"x" * 40
            exif = struct.pack(order + "HHHII", 1, 37510, 7, 40, 418) + bytes(4) + text
            thumbnail = struct.pack(order + "H", 2)
            for tag, value in ((OFFSETS, 430), (COUNTS, 40)):
                thumbnail += struct.pack(order + "HHII", tag, 4, 1, value)
            thumbnail += bytes(4) + text
            old_jpeg = thumbnail.replace(
                struct.pack(order + "H", OFFSETS), struct.pack(order + "H", 513)
            ).replace(struct.pack(order + "H", COUNTS), struct.pack(order + "H", 514))
            chained = struct.pack(order + "HI", 0, 406) + thumbnail.replace(
                struct.pack(order + "I", 430), struct.pack(order + "I", 436))
            for entries, rest in (
                ({34675: (7, 40, 400)}, text), ({700: (1, 40, 400)}, text),
                ({270: (2, 40, 400)}, text), ({34665: (4, 1, 400)}, exif),
                ({330: (4, 1, 400)}, thumbnail), ({330: (13, 1, 400)}, thumbnail),
                ({330: (4, 1, 400)}, old_jpeg), ({65000: (13, 1, 400)}, thumbnail),
                ({330: (4, 1, 400)}, chained),
                ({330: (4, 2, 400)}, struct.pack(order + "II", 408, 408) + empty),
            ):
                with self.subTest(order=order, entries=entries):
                    content = file(entries, rest, order)
                    self.assertEqual(self.samples_of(content), pgm(4, 3, GRAY))
                    self.refuses_rest(content, 1, b"x" * 8)
            # The same bytes, with nothing that names them.
            self.refuses_rest(file({}, b"", order), 1)

    def test_circles(self):
        """Directories of metadata that lead back, or to nowhere, are nobody's concern."""
        for value in (8, 20, 21, 100, 2**32 - 1):
            content = tiff(page(4, 3, [GRAY], SUB=value))
            self.assertEqual(self.samples_of(content), pgm(4, 3, GRAY))

    @unittest.skipUnless(Image, "needs the Python Imaging Library")
    def test_files_of_the_imaging_library(self):
        image = Image.effect_noise((61, 47), 90)
        exif = Image.Exif()
        exif[0x010E] = "a description that is longer than four bytes"
        exif.get_ifd(0x8769)[0x9286] = b"a comment that is longer than four bytes"
        exif.get_ifd(0x8825)[0x001D] = "2020:01:01"
        profile = random.Random(1).randbytes(3001)
        for mode, more in itertools.product(("1", "L", "P", "RGB"), (
            {}, {"exif": exif}, {"icc_profile": profile}, {"dpi": (300, 300)},
            {"exif": exif, "icc_profile": profile, "compression": "tiff_lzw"},
            {"save_all": True, "append_images": [image, image.convert("RGB")]},
            {"description": "x" * 99, "software": "y" * 99},
        )):
            encoded = io.BytesIO()
            image.convert(mode).save(encoded, "TIFF", **more)
            with self.subTest(mode=mode, more=list(more)):
                whole = self.samples_of(encoded.getvalue())
                self.refuses_rest(encoded.getvalue() * 2, whole.count(b"\n255\n"))

    @unittest.skipUnless(shutil.which("tiffcp"), "needs the tools of libtiff")
    def test_files_of_libtiff(self):
        source = self.file("in.tif", tiff(page(40, 30, [ramp(1200)]), page(4, 3, [GRAY])))
        expected = pgm(40, 30, ramp(1200)) + pgm(4, 3, GRAY)
        for options in ([], ["-c", "lzw"], ["-c", "packbits"], ["-c", "zip"], ["-8"], ["-B"],
                        ["-r", "1"], ["-8", "-B", "-r", "7"]):
            with self.subTest(options):
                target = self.folder / "out.tif"
                subprocess.run(["tiffcp", *options, source, target], check=True)
                self.assert_same(self.samples_of(target.read_bytes()), expected)
                # A directory that is made longer is written anew, and leaves a hole.
                subprocess.run(["tiffset", "-s", "270", "x" * 99, target], check=True)
                self.assert_same(self.samples_of(target.read_bytes()), expected)
                subprocess.run(["tiffcp", "-a", source, target], check=True)
                self.assert_same(self.samples_of(target.read_bytes()), expected * 2)
                self.refuses_rest(target.read_bytes(), 4, source.read_bytes())

    @unittest.skipUnless(shutil.which("pamtotiff"), "needs netpbm")
    def test_files_of_netpbm(self):
        for options in ([], ["-lzw"], ["-packbits"], ["-flate"], ["-rowsperstrip=1"],
                        ["-xresolution=300", "-yresolution=300", "-resolutionunit=inch"]):
            for source in (pgm(40, 30, ramp(1200)), ppm(40, 30, ramp(3600))):
                # Its own standard output has to be a file that it can go back in.
                with self.subTest(options), open(self.folder / "out.tif", "w+b") as target:
                    subprocess.run(["pamtotiff", "-truecolor", *options], input=source,
                                   stdout=target, stderr=subprocess.DEVNULL, check=True)
                    target.seek(0)
                    content = target.read()
                    self.assertEqual(len(self.samples_of(content)), len(source))
                    self.refuses_rest(content, 1, content)


class Writing(TiffTest):
    def test_pages(self):
        source = pgm(4, 3, GRAY) + ppm(4, 3, COLOR) + pgm(4, 3, GRAY)
        encoded = self.samples_of(source, "--format", "tiff")
        pages = decode(encoded)
        self.assertEqual([samples for _, samples in pages], [GRAY, COLOR, GRAY])
        for tags, _ in pages:
            self.assertEqual((tags[WIDTH], tags[HEIGHT]), ((4,), (3,)))
            self.assertEqual((tags[COMPRESSION], tags[KIND], set(tags[BITS])), ((1,), (2,), {8}))
            # Neither date nor software nor a resolution that is not known.
            self.assertLessEqual(set(tags), {
                KIND, WIDTH, HEIGHT, BITS, COMPRESSION, PHOTOMETRIC, OFFSETS, SAMPLES, ROWS, COUNTS,
                PLANAR, ORIENTATION})
        self.assert_same(self.samples_of(encoded), source)
        self.assertEqual(encoded, self.samples_of(source, "--format", "tiff"))

    def test_files_and_devices(self):
        source = self.file("in.pgm", pgm(4, 3, GRAY))
        for name in ("out.tif", "out.TIFF"):
            target = self.folder / name
            done = self.run_rast("colgamma", "--curve", self.curve, source, target)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            self.assertEqual(decode(target.read_bytes())[0][1], GRAY)
        with subprocess.Popen([RAST, "colgamma", "--curve", self.curve, "--format", "tiff", source],
                              stdout=subprocess.PIPE) as piped:
            self.assertEqual(piped.stdout.read(), target.read_bytes())
        with open("/dev/full", "wb") as full:
            done = self.run_rast("colgamma", "--curve", self.curve, "--format", "tiff", source,
                                 stdout=full)
        self.assert_fails(done, OUTPUT, "standard output: cannot be written: No space left")

    def test_strips(self):
        samples = ramp(1000 * 300)
        encoded = self.samples_of(pgm(1000, 300, samples), "--format", "tiff")
        tags, stored = decode(encoded)[0]
        self.assertEqual(tags[ROWS], (65,))
        self.assertEqual(len(tags[OFFSETS]), 5)
        self.assert_same(stored, samples)
        long = ramp(100000)
        tags, stored = decode(self.samples_of(pgm(100000, 1, long), "--format", "tiff"))[0]
        self.assertEqual((tags[ROWS], stored), ((1,), long))

    def test_resolution(self):
        for unit, ratio, expected in (
            (2, (300, 1), 300), (2, (1200, 2), 600), (3, (100, 1), 254), (1, (300, 1), 0),
            (2, (0, 1), 0), (2, (1, 0), 0), (None, (72, 1), 72),
        ):
            content = tiff(page(4, 3, [GRAY], X_RESOLUTION=Ratio(ratio), Y_RESOLUTION=Ratio(ratio),
                                UNIT=unit))
            tags, _ = decode(self.samples_of(content, "--format", "tiff"))[0]
            with self.subTest(unit=unit, ratio=ratio):
                self.assertEqual(X_RESOLUTION in tags, expected != 0)
                if expected != 0:
                    value = tags[X_RESOLUTION][0]
                    self.assertAlmostEqual((value & 0xFFFFFFFF) / (value >> 32), expected, 4)

    def test_resolution_of_other_formats(self):
        """From TIFF to PNG and back, and as the option names it."""
        content = tiff(
            page(4, 3, [GRAY], X_RESOLUTION=Ratio((600, 1)), Y_RESOLUTION=Ratio((300, 1)))
        )
        self.assertIn(b", 600 x 300 dpi\n", self.run_rast("info", input=content).stdout)
        between = self.samples_of(content, "-f", "png")
        for given, more, expected in (
            (content, (), (600, 300)), (between, (), (600, 300)),
            (content, ("-r", "1200"), (1200, 1200)),
            (pgm(4, 3, GRAY), ("-r", "203.2x72"), (203.2, 72)), (pgm(4, 3, GRAY), (), None),
        ):
            tags, _ = decode(self.samples_of(given, *more, "-f", "tiff"))[0]
            with self.subTest(more=more):
                self.assertEqual(tags.get(UNIT), expected and (2,))
                for tag, dpi in zip((X_RESOLUTION, Y_RESOLUTION), expected or ()):
                    value = tags[tag][0]
                    self.assertAlmostEqual((value & 0xFFFFFFFF) / (value >> 32), dpi, 4)

    def test_bigtiff(self):
        source = pgm(4, 3, GRAY) + ppm(4, 3, COLOR) + pgm(1000, 300, ramp(300000))
        path = self.file("in.pnm", source)
        for name, more in (("out.btf", ()), ("out.TF8", ()), ("out", ("-f", "bigtiff"))):
            target = self.folder / name
            done = self.run_rast("colgamma", "--curve", self.curve, *more, path, target)
            self.assertEqual((done.returncode, done.stderr), (DONE, b""))
            content = target.read_bytes()
            self.assertTrue(is_big(content))
            pages = decode(content)
            self.assertEqual([tags[WIDTH] for tags, _ in pages], [(4,), (4,), (1000,)])
            self.assertEqual([samples for _, samples in pages], [GRAY, COLOR, ramp(300000)])
            self.assert_same(self.samples_of(content), source)
        if Image:
            with Image.open(target) as image:
                self.assertEqual((image.n_frames, image.mode, image.tobytes()), (3, "L", GRAY))
        if shutil.which("tiffcp"):
            subprocess.run(["tiffcp", target, self.folder / "plain.tif"], check=True)
            content = (self.folder / "plain.tif").read_bytes()
            self.assert_same(self.samples_of(content), source)

    def test_bigtiff_where_it_may_be_needed(self):
        """By the number of pages, as far as anything tells, and the size of the first."""
        gray = pgm(4, 3, GRAY)
        raw = stream((raster_page(4, 3), GRAY), (raster_page(4, 3), GRAY))
        packed = stream((raster_page(4, 3), GRAY), version="2")
        two = tiff(page(4, 3, [zlib.compress(GRAY)], COMPRESSION=DEFLATE), page(4, 3, [GRAY]))
        cases = [(gray, (), False), (gray * 3, (), False), (two, (), False),
                 (gray_png(4, 3, GRAY), (), False), (gray * 3, ("--pages", "2-"), False)]
        if "cups" in LIBRARIES:
            cases += [(raw, (), False), (packed, (), True), (packed, ("-P", "1"), False)]
        for content, more, big in cases:
            with self.subTest(content=content[:9], more=more):
                path, target = self.file("in", content), self.folder / "out.tif"
                done = self.run_rast("colgamma", "--curve", self.curve, *more, path, target)
                self.assertEqual((done.returncode, done.stderr), (DONE, b""))
                self.assertEqual(is_big(target.read_bytes()), big)
        for content, more, big in (
            (gray, (), True), (gray * 3, ("-P", "2-"), True), (gray, ("-P", "1"), False),
            (gray * 3, ("-P", "1,3"), False), (two, (), False),
        ):
            with self.subTest(content=content[:9], more=more, piped=True):
                out = self.samples_of(content, *more, "-f", "tiff")
                self.assertEqual(is_big(out), big)
        a, b = self.file("a", gray), self.file("b", pgm(4, 3, GRAY[::-1]))
        self.assertEqual(self.run_rast("compare", a, b, target).returncode, 1)
        self.assertFalse(is_big(target.read_bytes()))

    def first_bytes(self, path, *more):
        """Of what a job writes, which is not let come to its end."""
        target = self.folder / "out.tif"
        command = [RAST, "colgamma", "--curve", self.curve, *more, path, target]
        with subprocess.Popen(command, stderr=subprocess.PIPE) as process:
            self.wait_for(lambda: any(size >= 8 for size in self.temporaries(process).values()))
            process.send_signal(signal.SIGSTOP)
            (link,) = self.temporaries(process)
            with link.open("rb") as file:
                content = file.read(4)
            process.kill()
        return content

    def test_pages_that_may_exceed_the_limit(self):
        """Before the first byte is written."""
        head = b"P5\n70000 700\n255\n"
        size = len(head) + 70000 * 700
        path = self.file("in.pgm", head)
        for pages, big in ((3, False), (87, False), (88, True), (300, True)):
            with path.open("r+b") as file:
                file.truncate(pages * size)
                for number in range(pages):
                    file.seek(number * size)
                    file.write(head)
            with self.subTest(pages=pages):
                self.assertEqual(is_big(self.first_bytes(path)), big)
        self.assertTrue(is_big(self.first_bytes(path)))
        self.assertFalse(is_big(self.first_bytes(path, "-P", "1-87")))
        # By far more than a number of 64 bits counts.
        self.assertTrue(is_big(self.first_bytes(path, "-P", f"1-{2**63 - 1}")))

    def test_too_much(self):
        """Pages that are more than could be known."""
        path = self.file("in.pnm", gray_png(4, 3, GRAY) + b"P5\n70000 70000\n255\n")
        os.truncate(path, 70000 * 70000 + 1000)
        target = self.folder / "out.tif"
        done = self.run_rast("colgamma", "--curve", self.curve, path, target)
        self.assert_fails(done, UNSUPPORTED, str(target), "4 GiB", "--format bigtiff")
        self.assertFalse(target.exists())

    @unittest.skipUnless(Image, "needs the Python Imaging Library")
    def test_other_decoder(self):
        encoded = self.samples_of(ppm(4, 3, COLOR) + pgm(4, 3, GRAY), "--format", "tiff")
        with Image.open(io.BytesIO(encoded)) as image:
            self.assertEqual((image.n_frames, image.mode, image.tobytes()), (2, "RGB", COLOR))
            image.seek(1)
            self.assertEqual((image.mode, image.tobytes()), ("L", GRAY))


if __name__ == "__main__":
    unittest.main()
