#!/usr/bin/env python3
"""Draws the client's icon and writes it as a Windows .ico file.

    python3 make-icon.py OUT.ico

Two images, 16x16 and 32x32, 32-bit colour with alpha: a rounded dark-blue
tile with a white "V" (two strokes meeting at the bottom). Drawn from
coordinates scaled to the size, so both sizes share one design.
"""
import struct
import sys

TILE = (0x8C, 0x4A, 0x1F, 0xFF)  # BGRA: dark blue
MARK = (0xFF, 0xFF, 0xFF, 0xFF)  # white
CLEAR = (0, 0, 0, 0)


def distance_to_segment(px, py, ax, ay, bx, by):
    dx, dy = bx - ax, by - ay
    t = max(0.0, min(1.0, ((px - ax) * dx + (py - ay) * dy) / (dx * dx + dy * dy)))
    cx, cy = ax + t * dx, ay + t * dy
    return ((px - cx) ** 2 + (py - cy) ** 2) ** 0.5


def pixel(x, y, size):
    # Centre of the pixel in a 0..1 square, y down.
    u, v = (x + 0.5) / size, (y + 0.5) / size
    radius = 0.2
    cu, cv = min(max(u, radius), 1 - radius), min(max(v, radius), 1 - radius)
    if ((u - cu) ** 2 + (v - cv) ** 2) ** 0.5 > radius:
        return CLEAR
    stroke = 0.09
    left = distance_to_segment(u, v, 0.25, 0.22, 0.5, 0.8)
    right = distance_to_segment(u, v, 0.75, 0.22, 0.5, 0.8)
    return MARK if min(left, right) < stroke else TILE


def image(size):
    """One icon image: BITMAPINFOHEADER, pixels bottom-up, AND mask."""
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    rows = []
    for y in reversed(range(size)):
        rows.append(b"".join(bytes(pixel(x, y, size)) for x in range(size)))
    # The mask is unused with alpha but must be there: one bit per pixel,
    # rows padded to 4 bytes, all zero (opaque where alpha says so).
    mask_row = ((size + 31) // 32) * 4
    return header + b"".join(rows) + bytes(mask_row * size)


def main():
    sizes = [16, 32]
    images = [image(size) for size in sizes]
    out = struct.pack("<HHH", 0, 1, len(images))
    offset = 6 + 16 * len(images)
    for size, data in zip(sizes, images):
        out += struct.pack("<BBBBHHII", size, size, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    out += b"".join(images)
    with open(sys.argv[1], "wb") as f:
        f.write(out)


if __name__ == "__main__":
    main()
