#!/usr/bin/env python3
"""Makes the pages that the codec is measured with: raw PBM files, 1728 pixels a line.

usage: make_pages.py FOLDER

Ghostscript draws them; what a scanner and a fax machine would add (a slightly turned sheet, ragged edges,
specks, error diffusion) is added here. The same call makes the same pages.
"""
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
]


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


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    random.seed(1999)
    for name, kind, per_inch, treatment in PAGES:
        pixels = draw(kind, per_inch, "pgmraw" if treatment == "diffuse" else "pbmraw", treatment == "scan")
        if treatment == "scan":
            pixels = scan(pixels)
        elif treatment == "diffuse":
            pixels = diffuse(pixels)
        elif treatment == "noise":
            pixels = random.randbytes(len(pixels))
        (folder / f"{name}.pbm").write_bytes(b"P4\n%d %d\n" % (WIDTH, LINES[per_inch]) + pixels)


main()
