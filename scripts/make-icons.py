#!/usr/bin/env python3
"""Draws the program's small tool-bar and status icons as PNG files (run once; the PNGs are committed)."""
import math, os, struct, zlib

def png(path, size, pixel):
    rows = b''
    for y in range(size):
        rows += b'\x00' + b''.join(bytes(pixel(x + 0.5, y + 0.5, size)) for x in range(size))
    def chunk(kind, data):
        return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data) & 0xffffffff)
    with open(path, 'wb') as f:
        f.write(b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', size, size, 8, 6, 0, 0, 0))
                + chunk(b'IDAT', zlib.compress(rows, 9)) + chunk(b'IEND', b''))

def shape(inside, colour):
    def pixel(x, y, s):
        u, v = x / s, y / s
        return colour + (255,) if inside(u, v) else (0, 0, 0, 0)
    return pixel

triangle = lambda u, v: 0.28 < u < 0.8 and abs(v - 0.5) < (0.8 - u) * 0.75
square = lambda u, v: 0.25 < u < 0.75 and 0.25 < v < 0.75
bars = lambda u, v: 0.22 < v < 0.78 and (0.25 < u < 0.43 or 0.57 < u < 0.75)
dot = lambda u, v: (u - 0.5) ** 2 + (v - 0.5) ** 2 < 0.09
ring = lambda u, v: 0.05 < (u - 0.5) ** 2 + (v - 0.5) ** 2 < 0.16
cross = lambda u, v: (abs(u - v) < 0.09 or abs(u + v - 1) < 0.09) and 0.2 < u < 0.8
warn = lambda u, v: v > 0.15 and v < 0.85 and abs(u - 0.5) < (v - 0.1) * 0.55
qmark = lambda u, v: ring(u, v)

icons = {
    'play_rec32x32.png': (32, lambda u, v: dot(u, v), (200, 30, 30)),
    'pause32x32.png': (32, bars, (60, 60, 60)),
    'stop32x32.png': (32, square, (60, 60, 60)),
    'play.png': (24, triangle, (30, 140, 60)),
    'pause.png': (24, bars, (60, 60, 60)),
    'stop.png': (24, square, (60, 60, 60)),
    'nm_adhoc.png': (16, dot, (30, 160, 60)),
    'nm_no_connection.png': (16, cross, (180, 40, 40)),
    'alert32x32.png': (32, warn, (230, 150, 0)),
    'help32x32.png': (32, qmark, (40, 100, 200)),
}
here = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'resources', 'icons')
for name, (size, inside, colour) in icons.items():
    png(os.path.join(here, name), size, shape(inside, colour))
