#!/usr/bin/env python3
"""Draws the 32x32 category icons of the demo database and prints them as
SQL hex literals, ready to paste into dbdemos.sql. Only needed when an icon
changes; the build uses the pasted literals."""
import math
import struct
import zlib

SIZE = 32


def png(pixels):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    raw = b"".join(b"\x00" + bytes(c for px in row for c in px) for row in pixels)
    header = struct.pack(">IIBBBBB", SIZE, SIZE, 8, 6, 0, 0, 0)  # 8-bit RGBA
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
            + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def draw(shade):
    """shade(x, y) returns an RGBA tuple, or None for a transparent pixel."""
    return [[shade(x + 0.5, y + 0.5) or (0, 0, 0, 0) for x in range(SIZE)] for y in range(SIZE)]


def tent(x, y):
    if 6 <= y <= 27 and abs(x - 16) <= (y - 5) * 0.62:
        return (40, 40, 40, 255) if abs(x - 16) <= (y - 5) * 0.12 and y > 15 else (46, 125, 50, 255)


def compass(x, y):
    r = math.hypot(x - 16, y - 16)
    if 12 <= r <= 14:
        return (25, 80, 160, 255)
    across = abs((x - 16) + (y - 16)) / math.sqrt(2)
    along = ((x - 16) - (y - 16)) / math.sqrt(2)
    if r < 11 and across < (11 - abs(along)) * 0.28:
        return (200, 30, 30, 255) if along > 0 else (220, 220, 220, 255)


def flame(x, y):
    d = math.hypot(x - 16, y - 21)
    if d < 8 or (y < 21 and abs(x - 16) < (y - 4) * 0.45):
        return (255, 200, 40, 255) if math.hypot(x - 16, y - 23) < 4.5 else (235, 90, 20, 255)


def mountain(x, y):
    if y <= 27 and abs(x - 12) <= (y - 5) * 0.7:
        return (250, 250, 250, 255) if y < 11 else (110, 110, 120, 255)
    if y <= 27 and abs(x - 22) <= (y - 11) * 0.75:
        return (250, 250, 250, 255) if y < 15 else (80, 85, 95, 255)


def drop(x, y):
    d = math.hypot(x - 16, y - 20)
    if d < 9 or (y < 20 and abs(x - 16) < (y - 3) * 0.55):
        return (180, 225, 255, 255) if math.hypot(x - 13, y - 19) < 2.5 else (30, 136, 229, 255)


for name, shade in [("tent", tent), ("compass", compass), ("flame", flame),
                    ("mountain", mountain), ("drop", drop)]:
    data = png(draw(shade))
    print(f"-- icon_{name}.png, {len(data)} bytes")
    print(f"X'{data.hex().upper()}'")
