#!/usr/bin/env python3
"""Draws a test page (gray ramp, color patches, lines, shapes) as PNG, PGM or PPM."""
import argparse
import struct
import zlib

PATCHES = ((0, 255, 255), (255, 0, 255), (255, 255, 0), (255, 0, 0), (0, 255, 0), (0, 0, 255),
           (128, 128, 128), (224, 172, 140))


def draw(width, height):
    """RGB rows from top to bottom, each a list of (r, g, b)."""
    for y in range(height):
        v = y / height
        row = []
        for x in range(width):
            u = x / width
            color = (255, 255, 255)
            if 0.05 < v < 0.2 and 0.05 < u < 0.95:
                color = (int((u - 0.05) / 0.9 * 255),) * 3
            elif 0.25 < v < 0.4 and 0.05 < u < 0.95:
                color = PATCHES[int((u - 0.05) / 0.9 * len(PATCHES))]
                color = tuple(int(c + (255 - c) * (v - 0.25) / 0.15) for c in color)
            elif 0.45 < v < 0.65:
                color = (0, 0, 0) if (x * x // width + y // 8) % 12 == 0 else color
            elif 0.7 < v < 0.95:
                left = (u - 0.3) ** 2 + ((v - 0.825) * height / width) ** 2
                right = (u - 0.7) ** 2 + ((v - 0.825) * height / width) ** 2
                if left < 0.02:
                    color = (int(left / 0.02 * 255), 96, 160)
                elif 0.01 < right < 0.02:
                    color = (40, 40, 40)
            row.append(color)
        yield row


def png(width, height, samples, rows):
    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 0 if samples == 1 else 2, 0, 0, 0)
    data = zlib.compress(b"".join(b"\0" + row for row in rows))
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", data) + chunk(b"IEND", b"")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--width", type=int, default=1240)
    parser.add_argument("--height", type=int, default=1754)
    parser.add_argument("--gray", action="store_true")
    parser.add_argument("out", help="PNG by its ending, else PGM or PPM")
    options = parser.parse_args()
    size = (options.width, options.height)
    if options.gray:
        rows = (bytes((77 * r + 150 * g + 29 * b) >> 8 for r, g, b in row) for row in draw(*size))
    else:
        rows = (bytes(sample for color in row for sample in color) for row in draw(*size))
    with open(options.out, "wb") as out:
        if options.out.endswith(".png"):
            out.write(png(*size, 1 if options.gray else 3, rows))
        else:
            out.write(b"P%d\n%d %d\n255\n" % (5 if options.gray else 6, *size))
            out.writelines(rows)


if __name__ == "__main__":
    main()
