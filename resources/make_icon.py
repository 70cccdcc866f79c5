#!/usr/bin/env python3
"""Draws velmora.ico, one image of 32x32 pixels at 32 bits, and the PNG files of the Linux desktop. Run it in this
folder after a change.

A V, the game's initial, with its point in a tray, as a sign for a download, on a rounded tile.
"""
import math
import struct
import zlib

SIZE = 32  # of the drawing, in whose units all places are
SAMPLES = 8  # of a pixel, in each direction

TOP = (58, 123, 213)
BOTTOM = (22, 38, 104)
RIM = (150, 196, 255)
WHITE = (255, 255, 255)
GOLD = (255, 200, 72)

LEFT_ARM = [(5.5, 5.5), (11.6, 5.5), (16.0, 15.4), (16.0, 23.6)]
RIGHT_ARM = [(32 - x, y) for x, y in LEFT_ARM]
TRAY = [(6.5, 19.5), (9.3, 19.5), (9.3, 24.6), (22.7, 24.6), (22.7, 19.5), (25.5, 19.5),
        (25.5, 27.4), (6.5, 27.4)]


def in_rounded_square(x, y, inset, radius):
    dx = max(inset + radius - x, x - (SIZE - inset - radius), 0)
    dy = max(inset + radius - y, y - (SIZE - inset - radius), 0)
    return math.hypot(dx, dy) <= radius


def in_polygon(x, y, corners):
    inside = False
    for (ax, ay), (bx, by) in zip(corners, corners[1:] + corners[:1]):
        if (ay > y) != (by > y) and x < ax + (y - ay) * (bx - ax) / (by - ay):
            inside = not inside
    return inside


def color_at(x, y):
    """The colour of a point, or None outside the tile."""
    if not in_rounded_square(x, y, 0.5, 6.5):
        return None
    if in_polygon(x, y, LEFT_ARM):
        return WHITE
    if in_polygon(x, y, RIGHT_ARM):
        return tuple(channel * 0.86 for channel in WHITE)
    if in_polygon(x, y, TRAY):
        return GOLD
    if not in_rounded_square(x, y, 1.5, 5.5):
        return RIM
    depth = y / SIZE
    return tuple(top + (bottom - top) * depth for top, bottom in zip(TOP, BOTTOM))


def pixel(column, row, size=SIZE):
    """A pixel of an image of this size as red, green, blue, alpha."""
    steps = [(step + 0.5) / SAMPLES for step in range(SAMPLES)]
    scale = SIZE / size
    colors = [color_at((column + dx) * scale, (row + dy) * scale) for dy in steps for dx in steps]
    hits = [color for color in colors if color]
    if not hits:
        return bytes(4)
    rgb = (round(sum(color[i] for color in hits) / len(hits)) for i in range(3))
    return bytes((*rgb, round(255 * len(hits) / len(colors))))


def in_windows_order(rgba):
    return bytes((rgba[2], rgba[1], rgba[0], rgba[3]))


def mask_row(row):
    """One bit for each pixel, set where nothing is drawn."""
    return int("".join("0" if dot[3] else "1" for dot in row), 2).to_bytes(SIZE // 8, "big")


def icon():
    rows = [[in_windows_order(pixel(column, row)) for column in range(SIZE)] for row in range(SIZE)]
    colors = b"".join(b"".join(row) for row in reversed(rows))
    mask = b"".join(mask_row(row) for row in reversed(rows))
    header = struct.pack("<IiiHHIIiiII", 40, SIZE, 2 * SIZE, 1, 32, 0, len(colors + mask),
                         0, 0, 0, 0)
    image = header + colors + mask
    directory = struct.pack("<HHH", 0, 1, 1)
    entry = struct.pack("<BBBBHHII", SIZE, SIZE, 0, 0, 1, 32, len(image), 22)
    return directory + entry + image


def png(size):
    def chunk(kind, content):
        checked = kind + content
        return struct.pack(">I", len(content)) + checked + struct.pack(">I", zlib.crc32(checked))

    lines = (b"\0" + b"".join(pixel(column, row, size) for column in range(size)) for row in range(size))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(b"".join(lines), 9)) + chunk(b"IEND", b""))


if __name__ == "__main__":
    with open("velmora.ico", "wb") as file:
        file.write(icon())
    for side in (48, 128):
        with open(f"velmora-update-{side}.png", "wb") as file:
            file.write(png(side))
