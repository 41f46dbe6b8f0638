#!/usr/bin/env python3
"""Puts the coded pages page-NNN.fax of a folder into one fax file (make-faxes.sh calls it).

usage: wrap_fax.py DEVICE LINES FOLDER OUTPUT NAME:VALUE...

Each page gets the end that T.4 and T.6 prescribe, and the bits of each byte are reversed: Ghostscript puts the
bit sent first into the most significant place of a byte, a fax file into the least. Then libtiff decodes
every page as it is in the fax file, and the bitmap must equal page-NNN.pbm.
"""
import pathlib
import struct
import subprocess
import sys

WIDTH = 1728
TURNED = bytes(int(f"{byte:08b}"[::-1], 2) for byte in range(256))

# Device: TIFF compression, T4Options, the end of a page (return to control, or end of facsimile block).
DEVICES = {
    "faxg3": (3, 0, "000000000001" * 6),
    "faxg32d": (3, 1, "0000000000011" * 6),
    "faxg4": (4, None, "000000000001" * 2),
}


def end_page(data, end):
    """The page with `end` after its last code. The last line is white, so its last code ends in a 1."""
    bits = "".join(f"{byte:08b}" for byte in data).rstrip("0") + end
    bits += "0" * (-len(bits) % 8)
    return int(bits, 2).to_bytes(len(bits) // 8, "big")


def tiff(data, lines, compression, options):
    """A TIFF file of one strip whose bytes hold the bit sent first in the least significant place."""
    tags = [(256, WIDTH), (257, lines), (258, 1), (259, compression), (262, 0), (266, 2), (273, 0), (277, 1),
            (278, lines), (279, len(data))]
    if options is not None:
        tags.append((292, options))
    start = 8 + 2 + 12 * len(tags) + 4
    entries = b"".join(struct.pack("<HHII", tag, 4, 1, start if tag == 273 else value) for tag, value in tags)
    return b"II*\0" + struct.pack("<IH", 8, len(tags)) + entries + bytes(4) + data


def decode(folder, data, lines, compression, options):
    """The page's bitmap as libtiff reads it, 1 for black."""
    coded, plain = folder / "check.tif", folder / "plain.tif"
    coded.write_bytes(tiff(data, lines, compression, options))
    subprocess.run(["tiffcp", "-c", "none", "-f", "msb2lsb", "-r", str(lines), coded, plain], check=True)
    content = plain.read_bytes()
    at, = struct.unpack_from("<I", content, 4)
    count, = struct.unpack_from("<H", content, at)
    tags = {}
    for i in range(count):
        tag, kind, _, value = struct.unpack_from("<HHII", content, at + 2 + 12 * i)
        tags[tag] = value & 0xFFFF if kind == 3 else value
    return content[tags[273]:tags[273] + tags[279]]


def drawn(path, lines):
    """The bitmap of a raw PBM file of that many lines."""
    size = lines * WIDTH // 8
    content = path.read_bytes()
    head = content[:-size].split()
    if head[0] != b"P4" or head[-2:] != [b"%d" % WIDTH, b"%d" % lines]:
        sys.exit(f"wrap_fax.py: {path}: not the page expected")
    return content[-size:]


def main():
    device, lines, folder, output, attributes = (sys.argv[1], int(sys.argv[2]), pathlib.Path(sys.argv[3]),
                                                 pathlib.Path(sys.argv[4]), sys.argv[5:])
    compression, options, end = DEVICES[device]
    text = "".join(pair + "\n" for pair in attributes).encode() + b"\x1d"
    fax = b"\xba\xdb\xad\x16" + struct.pack(">I", len(text)) + text
    for page in sorted(folder.glob("page-*.fax")):
        data = end_page(page.read_bytes(), end).translate(TURNED)
        if decode(folder, data, lines, compression, options) != drawn(page.with_suffix(".pbm"), lines):
            sys.exit(f"wrap_fax.py: {page.name}: libtiff reads another page than was drawn")
        fax += struct.pack(">I", len(data)) + data
    output.write_bytes(fax)


main()
