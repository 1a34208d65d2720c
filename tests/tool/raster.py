"""CUPS and PWG raster streams, written and read by the layout of their bytes alone."""

import struct

STRINGS = ("MediaClass", "MediaColor", "MediaType", "OutputType")
NUMBERS = (
    "AdvanceDistance AdvanceMedia Collate CutMedia Duplex HWResolution:2 ImagingBoundingBox:4 "
    "InsertSheet Jog LeadingEdge Margins:2 ManualFeed MediaPosition MediaWeight MirrorPrint "
    "NegativePrint NumCopies Orientation OutputFaceUp PageSize:2 Separations TraySwitch Tumble "
    "cupsWidth cupsHeight cupsMediaType cupsBitsPerColor cupsBitsPerPixel cupsBytesPerLine "
    "cupsColorOrder cupsColorSpace cupsCompression cupsRowCount cupsRowFeed cupsRowStep"
).split()
LAYOUT = [(name, "64s", 1) for name in STRINGS]
for number in NUMBERS:
    name, _, count = number.partition(":")
    LAYOUT.append((name, "I", int(count or 1)))
LAYOUT += [
    ("cupsNumColors", "I", 1), ("cupsBorderlessScalingFactor", "f", 1), ("cupsPageSize", "f", 2),
    ("cupsImagingBBox", "f", 4), ("cupsInteger", "I", 16), ("cupsReal", "f", 16),
    ("cupsString", "64s", 16), ("cupsMarkerType", "64s", 1), ("cupsRenderingIntent", "64s", 1),
    ("cupsPageSizeName", "64s", 1),
]
FORMAT = "".join("64s" * count if kind == "64s" else f"{count}{kind}" for _, kind, count in LAYOUT)
HEADER, HEADER_1 = 1796, 420
assert struct.calcsize(">" + FORMAT) == HEADER

W, RGB, RGBA, K, CMYK, KCMY, RGBW, SW, SRGB, ADOBERGB = 0, 1, 2, 3, 6, 8, 17, 18, 19, 20
GRAY_SPACES, RGB_SPACES = (W, K, SW), (RGB, SRGB, ADOBERGB)


def offset(name):
    """Where a field begins in the header."""
    at = 0
    for field, kind, count in LAYOUT:
        if field == name:
            return at
        at += count * (64 if kind == "64s" else 4)
    raise KeyError(name)


def page(width, height, space=SW, **changes):
    """The fields of a sound page; one that is left out is zero."""
    colors = 3 if space in RGB_SPACES else 1
    fields = {
        "HWResolution": (300, 300), "cupsWidth": width, "cupsHeight": height, "NumCopies": 1,
        "cupsBitsPerColor": 8, "cupsBitsPerPixel": 8 * colors, "cupsColorSpace": space,
        "cupsBytesPerLine": width * colors, "cupsNumColors": colors,
    }
    return {**fields, **changes}


def header(fields, order=">"):
    values = []
    for name, kind, count in LAYOUT:
        value = fields.get(name, b"" if kind == "64s" else 0)
        values += value if isinstance(value, tuple) else [value] + [type(value)()] * (count - 1)
    return struct.pack(order + FORMAT, *values)


def fields_of(data, order=">"):
    values = list(struct.unpack(order + FORMAT, data))
    fields = {}
    for name, _, count in LAYOUT:
        fields[name] = values[0] if count == 1 else tuple(values[:count])
        del values[:count]
    return fields


def packed(samples, line_bytes, size):
    """Lines as run lengths, of pixels of a size."""
    lines = [samples[i : i + line_bytes] for i in range(0, len(samples), line_bytes)]
    out, y = b"", 0
    while y < len(lines):
        repeats = 1
        while repeats < 256 and lines[y + repeats : y + repeats + 1] == [lines[y]]:
            repeats += 1
        out += bytes([repeats - 1])
        pixels = [lines[y][i : i + size] for i in range(0, line_bytes, size)]
        while pixels:
            run = 1
            while run < min(128, len(pixels)) and pixels[run] == pixels[0]:
                run += 1
            if run == 1:
                while run < min(128, len(pixels)) and pixels[run] != pixels[run - 1]:
                    run += 1
                literal = b"".join(pixels[:run])
                out += (bytes([257 - run]) if run > 1 else b"\0") + literal
            else:
                out += bytes([run - 1]) + pixels[0]
            del pixels[:run]
        y += repeats
    return out


def unpacked(data, height, line_bytes, size):
    """The samples, and what is left of the data."""
    out = b""
    while len(out) < height * line_bytes:
        repeats, data, line = data[0] + 1, data[1:], b""
        while len(line) < line_bytes:
            code = data[0]
            assert code != 128
            taken = size if code < 128 else (257 - code) * size
            line += data[1 : 1 + taken] * (code + 1 if code < 128 else 1)
            data = data[1 + taken :]
        assert len(line) == line_bytes
        out += line * repeats
    assert len(out) == height * line_bytes
    return out, data


def stream(*pages, version="3", order=">"):
    """Pages are fields and samples as stored. Version 2 is compressed."""
    out = b"RaS" + version.encode()
    if order == "<":
        out = out[::-1]
    for fields, samples in pages:
        out += header(fields, order)[: HEADER_1 if version == "t" else HEADER]
        if version == "2" and samples:
            size = fields["cupsBitsPerPixel"] // 8
            samples = packed(samples, fields["cupsBytesPerLine"], size)
        out += samples
    return out


def pages_of(data):
    """The fields and samples of each page of a stream of version 2 or 3."""
    order = ">" if data[:3] == b"RaS" else "<"
    sync, data = data[:4] if order == ">" else data[3::-1], data[4:]
    assert sync in (b"RaS2", b"RaS3"), sync
    pages = []
    while data:
        fields, data = fields_of(data[:HEADER], order), data[HEADER:]
        size = fields["cupsHeight"] * fields["cupsBytesPerLine"]
        if sync == b"RaS3":
            samples, data = data[:size], data[size:]
            assert len(samples) == size
        else:
            samples, data = unpacked(
                data, fields["cupsHeight"], fields["cupsBytesPerLine"],
                max(fields["cupsBitsPerPixel"] // 8, 1),
            )
        pages.append((fields, samples))
    return pages
