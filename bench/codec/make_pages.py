#!/usr/bin/env python3
"""Makes the pages that the codec is measured with: raw PBM files, 1728 pixels a line.

usage: make_pages.py FOLDER

Ghostscript draws them; what a scanner and a fax machine would add (a slightly turned sheet, ragged edges,
specks, error diffusion) and a printer's screen are added here. The same call makes the same pages.
"""
import functools
import math
import pathlib
import random
import subprocess
import sys

WIDTH, LINES = 1728, {98: 1143, 196: 2286}
DRAWINGS = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "sample_pages.ps"

# Name, what sample_pages.ps calls it, lines an inch, what is done to it.
PAGES = [
    ("text-98", "dense", 98, None),
    ("text-196", "dense", 196, None),
    ("scanned-98", "dense", 98, "scan"),
    ("scanned-196", "dense", 196, "scan"),
    ("form-98", "form", 98, None),
    ("form-196", "form", 196, None),
    ("letter-98", "letter", 98, None),
    ("letter-196", "letter", 196, None),
    ("photograph-196", "photograph", 196, "diffuse"),
    ("noise-196", "white", 196, "noise"),
    ("white-196", "white", 196, None),
] + [(f"screen-{ruling}-{angle}", "photograph", 196, (ruling, angle))
     for ruling in (65, 85, 133) for angle in (0, 15, 45)]


@functools.cache
def draw(kind, per_inch, device, turned):
    """The pixels of one page, without the head of the file."""
    turn = "1.2 rotate 8 -10 translate" if turned else ""
    command = ["gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", f"-r204x{per_inch}",
               f"-g{WIDTH}x{LINES[per_inch]}", f"-sDEVICE={device}", "-sOutputFile=-", f"-skind={kind}",
               "-dpages=1", "-c", turn, "-f", DRAWINGS]
    image = subprocess.run(command, check=True, capture_output=True).stdout
    return image[-LINES[per_inch] * (WIDTH // 8 if device == "pbmraw" else WIDTH):]


def rare(bits, halvings):
    """A random number with one bit in 2 ** halvings set."""
    number = random.getrandbits(bits)
    for _ in range(halvings - 1):
        number &= random.getrandbits(bits)
    return number


def scan(bitmap):
    """Every eighth pixel on an edge falls to the other side; one pixel in 16,384 is a speck."""
    image, bits = int.from_bytes(bitmap, "big"), len(bitmap) * 8
    image ^= (image ^ image >> 1) & rare(bits, 3) ^ rare(bits, 14)
    return image.to_bytes(len(bitmap), "big")


def diffuse(grey):
    """Floyd and Steinberg's error diffusion."""
    out, below = bytearray(), [0.0] * (WIDTH + 2)
    for start in range(0, len(grey), WIDTH):
        here, below, right, byte = below, [0.0] * (WIDTH + 2), 0.0, 0
        for x in range(WIDTH):
            value = grey[start + x] + here[x + 1] + right
            black = value < 128
            error = (value if black else value - 255) / 16
            right = error * 7
            below[x] += error * 3
            below[x + 1] += error * 5
            below[x + 2] += error
            byte = byte << 1 | black
            if x % 8 == 7:
                out.append(byte & 255)
    return bytes(out)


def screen(grey, ruling, angle):
    """A clustered-dot screen of that many lines an inch, turned by `angle` degrees."""
    # One cell of the screen, as the darkness at which each of its points turns black: dots grow from the corners.
    side, full = 64, 1 << 16
    wave = [math.cos(2 * math.pi * i / side) for i in range(side)]
    points = sorted(range(side * side), key=lambda i: wave[i // side] + wave[i % side])
    cell = [0] * len(points)
    for rank, point in enumerate(points):
        cell[point] = 256 * rank // len(points)
    # Where a pixel lies in its cell, in cells / 65,536: (x, y) turned, for 204 x 196 dots an inch.
    turn = math.radians(angle)
    across, down = round(full * ruling * math.cos(turn) / 204), round(full * ruling * math.sin(turn) / 196)
    across2, down2 = round(-full * ruling * math.sin(turn) / 204), round(full * ruling * math.cos(turn) / 196)
    out = bytearray()
    for y in range(len(grey) // WIDTH):
        black = ("01"[grey[y * WIDTH + x] < cell[(x * across + y * down >> 10 & 63) << 6
                                                 | x * across2 + y * down2 >> 10 & 63]] for x in range(WIDTH))
        out += int("".join(black), 2).to_bytes(WIDTH // 8, "big")
    return bytes(out)


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    random.seed(1999)
    for name, kind, per_inch, treatment in PAGES:
        screened = isinstance(treatment, tuple)
        device = "pgmraw" if screened or treatment == "diffuse" else "pbmraw"
        pixels = draw(kind, per_inch, device, treatment == "scan")
        if treatment == "scan":
            pixels = scan(pixels)
        elif treatment == "diffuse":
            pixels = diffuse(pixels)
        elif treatment == "noise":
            pixels = random.randbytes(len(pixels))
        elif screened:
            pixels = screen(pixels, *treatment)
        (folder / f"{name}.pbm").write_bytes(b"P4\n%d %d\n" % (WIDTH, LINES[per_inch]) + pixels)


main()
