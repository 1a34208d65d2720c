#!/usr/bin/python3
"""Draws docs/operations.png: operations before and after, on a page that is drawn here too."""
import argparse
import math
import tempfile
import textwrap
from pathlib import Path

from make import ROOT, rast_in_path, run
from PIL import Image, ImageDraw, ImageFont

FONTS = Path("/usr/share/fonts/truetype/dejavu")
WIDTH, HEIGHT = 800, 600  # of the page
CELL, GAP = 340, 20  # width of a picture in the sheet, space around it
LABEL = 50  # height of what stands below a picture
PAPER, INK, MAT = "#f5f3ee", "#1e2328", "#d9d5cb"

PATCHES = (
    "#00aeef", "#ec008c", "#fff200", "#231f20", "#808080",
    "#c68863", "#e0ac8c", "#e53935", "#43a047", "#1e56c8",
)
SCAN = "rast expgamma --gray --offset 75 --gain 120 page.png scan.png"
# Label, chain of operations, page before.
SHOWN = (
    ("expgamma: a scan on clean paper", "expgamma threshold=70 gain=520", "scan.png"),
    ("colgamma: lighter mid-tones", "colgamma gamma=1.8", "page.png"),
    ("binconv: color becomes an ink", "binconv color=3 : colgamma invert", "page.png"),
    ("satadjust: less color, twice", "satadjust lower : satadjust lower", "page.png"),
    ("hueadjust: red and blue exchanged", "hueadjust swap-rb", "page.png"),
    ("colbalance: red up, blue down", "colbalance level=10,5,0,5", "page.png"),
    (
        "overlay: a stamp in red ink",
        "colgamma invert : overlay with=stamp.png at=545,446 mode=max density=80 : colgamma invert",
        "page.png",
    ),
    ("rotate: a quarter turn", "rotate cw", "page.png"),
    ("zoom: a smaller page", "zoom percent=40", "page.png"),
)

LEFT_TEXT = """Pages come from files and from queues. Lines pass from step to step, and every sample
of a page becomes what its operation says."""
RIGHT_TEXT = """What is white is paper, what is dark is ink, and the result is the same on every
machine, down to the last bit."""


def font(name, size):
    return ImageFont.truetype(str(FONTS / f"DejaVu{name}.ttf"), size)


def blend(one, other, share):
    return tuple(round(a + (b - a) * share) for a, b in zip(one, other))


def between(stops, place):
    """The color at a place of a gradient, whose stops are (place, color)."""
    for (low, one), (high, other) in zip(stops, stops[1:]):
        if place <= high:
            return blend(one, other, (place - low) / (high - low))
    return stops[-1][1]


def ridge(width, height, level, rough, phase):
    """The outline of mountains, lowest in the middle."""
    for x in range(width + 1):
        place = x / width
        waves = ((9, 1), (23, 0.5), (61, 0.2))
        swing = sum(size * math.sin(place * pace + phase / size) for pace, size in waves)
        yield x, height * (level - rough * swing * abs(place - 0.5) ** 0.5 * 1.6)


def sail(draw, x, y, tall, color):
    """A boat whose mast stands at (x, y)."""

    def shape(fill, *points):
        draw.polygon([(x + a * tall, y + b * tall) for a, b in points], fill)

    shape(color, (0.02, 0), (0.02, -1), (0.5, 0))
    shape("#faf6ec", (-0.02, 0), (-0.02, -0.85), (-0.35, 0))
    shape("#3c2828", (-0.4, 0.04), (0.55, 0.04), (0.4, 0.16), (-0.28, 0.16))


def scene(width, height):
    """A lake in the evening."""
    picture = Image.new("RGB", (width, height))
    draw = ImageDraw.Draw(picture)
    shore = round(height * 0.68)
    sky = ((0, (38, 52, 120)), (0.45, (196, 84, 120)), (0.75, (250, 160, 80)), (1, (255, 222, 140)))
    for y in range(shore):
        draw.line((0, y, width, y), between(sky, y / shore))
    x, y, radius = width * 0.5, height * 0.5, height * 0.13
    draw.ellipse((x - radius, y - radius, x + radius, y + radius), "#fff4c8")
    for level, rough, phase, color in (
        (0.50, 0.10, 0.4, "#965a82"), (0.58, 0.07, 2.1, "#604274"), (0.64, 0.05, 4.0, "#2e3054")
    ):
        outline = ridge(width, height, level, rough, phase)
        draw.polygon([(0, shore), *outline, (width, shore)], color)
    # The lake is what stands above it, upside down, in waves and a little darker.
    for y in range(shore, height):
        depth = (y - shore) / (height - shore)
        source = max(0, round(shore - 1 - (y - shore) * 1.9 - 6 * math.sin(y * 0.9) * depth))
        line = picture.crop((0, source, width, source + 1))
        water = Image.new("RGB", line.size, (20, 40, 90))
        picture.paste(Image.blend(line, water, 0.25 + 0.2 * depth), (0, y))
    sail(draw, width * 0.25, height * 0.87, height * 0.22, "#188c78")
    sail(draw, width * 0.72, height * 0.89, height * 0.30, "#ce242c")
    return picture


def text(draw, left, top, words):
    lines = textwrap.fill(" ".join(words.split()), 26)
    draw.multiline_text((left, top), lines, INK, font("Serif", 32), spacing=10)


def patches(draw, left, top, right, bottom):
    step = (right - left) / (len(PATCHES) - 0.1)
    for i, color in enumerate(PATCHES):
        draw.rectangle((left + i * step, top, left + (i + 0.9) * step, bottom), color)


def chart(draw, left, top, right, bottom):
    bars = (0.35, 0.6, 0.5, 0.85, 1.0, 0.7, 0.9)
    step = (right - left) / len(bars)
    for i, size in enumerate(bars):
        color = blend((0, 120, 200), (240, 90, 40), i / (len(bars) - 1))
        x, high = left + i * step, bottom - (bottom - top) * size
        draw.rectangle((x + step * 0.15, high, x + step * 0.85, bottom), color)
    draw.line((left, bottom, right, bottom), INK, 4)


def draw_page():
    """A title, a picture, patches, and a chart between columns of text."""
    width, height = WIDTH * 2, HEIGHT * 2  # twice as large, for smooth edges
    page = Image.new("RGB", (width, height), "white")
    draw = ImageDraw.Draw(page)
    left, right = 72, width - 72
    draw.text((width // 2, 88), "Light, Ink and Paper", INK, font("Serif-Bold", 92), "mm")
    draw.line((left, 160, right, 160), INK, 4)
    page.paste(scene(right - left, 580), (left, 188))
    patches(draw, left, 796, right, 868)
    column = 472
    text(draw, left, 892, LEFT_TEXT)
    text(draw, right - column, 892, RIGHT_TEXT)
    chart(draw, left + column + 48, 916, right - column - 48, 1132)
    return page.resize((WIDTH, HEIGHT), Image.Resampling.LANCZOS)


def draw_stamp():
    """Red ink, in planes where 0 is no ink."""
    stamp, red = Image.new("RGB", (200, 100)), (0, 255, 220)
    draw = ImageDraw.Draw(stamp)
    draw.rounded_rectangle((3, 3, 196, 96), 14, None, red, 7)
    draw.text((100, 51), "PAID", red, font("Sans-Bold", 58), "mm")
    return stamp.rotate(12, Image.Resampling.BICUBIC, expand=True)


def split(before, after):
    """The left half before, the right half after."""
    size = (CELL, CELL * before.height // before.width)
    left, right = (picture.resize(size, Image.Resampling.HAMMING) for picture in (before, after))
    middle = CELL // 2
    left.paste(right.crop((middle, 0, *size)), (middle, 0))
    ImageDraw.Draw(left).line((middle, 0, middle, size[1]), INK, 2)
    return left


def pair(before, after):
    """Both side by side, in their proportion."""
    cell = Image.new("RGB", (CELL, CELL * HEIGHT // WIDTH), MAT)
    share = (CELL - 3 * 10) / (before.width + after.width)
    left = 10
    for picture in (before, after):
        size = (round(picture.width * share), round(picture.height * share))
        small = picture.resize(size, Image.Resampling.HAMMING)
        cell.paste(small, (left, (cell.height - small.height) // 2))
        left += small.width + 10
    return cell


def draw_sheet(folder, environment):
    columns, height = 3, CELL * HEIGHT // WIDTH
    rows = math.ceil(len(SHOWN) / columns)
    size = (columns * (CELL + GAP) + GAP, rows * (height + LABEL) + GAP)
    sheet = Image.new("RGB", size, PAPER)
    draw = ImageDraw.Draw(sheet)
    run(SCAN, folder, environment)
    for i, (label, chain, source) in enumerate(SHOWN):
        run(f"rast chain '{chain}' {source} after.png", folder, environment)
        before, after = (Image.open(folder / name).convert("RGB") for name in (source, "after.png"))
        left, top = GAP + i % columns * (CELL + GAP), GAP + i // columns * (height + LABEL)
        cell = split(before, after) if before.size == after.size else pair(before, after)
        sheet.paste(cell, (left, top))
        draw.text((left, top + height + 8), label, INK, font("Sans", 17))
    return sheet


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rast", type=Path, default=ROOT / "build/demo/tool/rast")
    parser.add_argument("out", type=Path, nargs="?", default=ROOT / "docs/operations.png")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as temporary, rast_in_path(options.rast) as environment:
        folder = Path(temporary)
        draw_page().save(folder / "page.png")
        draw_stamp().save(folder / "stamp.png")
        draw_sheet(folder, environment).save(options.out, optimize=True)


if __name__ == "__main__":
    main()
