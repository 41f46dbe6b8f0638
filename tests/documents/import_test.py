# faxtray-import reads what others write: documents made here in many layouts, and the faxes read here, without our
# code.
#
# usage: import_test.py PROGRAMS    the directory of the programs
import random
import struct
import zlib

from harness import darkness, main, run
from t4 import (HIGH_FIRST, LOW_FIRST, MH, MMR, MR, WIDTH, bits_of, code_page, end_of_page, pack, random_page, read_fax,
                row_of)

CODINGS = {"mh": MH, "mr": MR, "mmr": MMR}


# Imports a document. Returns the fax's attributes and pages, or None and the reason if the document was refused.
def imported(directory, file, *options):
    document, fax = directory / "document", directory / "fax"
    document.write_bytes(file)
    fax.unlink(missing_ok=True)
    status, output = run("faxtray-import", "-o", fax, *options, document)
    if status == 0:
        return read_fax(fax.read_bytes())
    left = {path.name for path in directory.iterdir()} - {"document"}
    assert str(document).encode() in output and not left, f"refused with {output}, leaving {left}"
    return None, output


# How a page lies on a fax page, if nothing is scaled: in the middle, to the byte.
def centred(rows, width):
    left = (WIDTH - width) // 2 // 8 * 8
    return [row_of("0" * left + bits_of(row, width) + "0" * (WIDTH - left - width)) for row in rows]


# Compares a fax page with the page of a document: its pixels where nothing is scaled, else its size and darkness.
def check_page(got, rows, width, x=1.0, y=1.0):
    smaller = min(1, WIDTH / (width * x))
    x, y = x * smaller, y * smaller
    if x == y == 1:
        assert got == centred(rows, width), "the fax has other pixels than the document"
        return
    lines = max(1, round(len(rows) * y))
    assert abs(len(got) - lines) <= 1, f"{len(got)} lines in place of {lines}"
    share = round(width * x) / WIDTH
    want = darkness(rows, width) * share
    assert abs(darkness(got) - want) < 0.03 * share + 1 / lines, f"darkness {darkness(got)} in place of {want}"


# What scaling keeps: a few black rectangles.
def blocks(rng, lines, width):
    rows = []
    while len(rows) < lines:
        edges = rng.sample(range(0, width, max(1, width // 8)), min(width, 4))
        rows += [tuple(sorted(edges))] * max(1, lines // 4)
    return rows[:lines]


# Writing TIFF

class TiffWriter:
    def __init__(self, order, big):
        self.order, self.big = {"II": "<", "MM": ">"}[order], big
        self.file = bytearray(order.encode() + self.pack("HHHQ" if big else "HI", *((43, 8, 0, 0) if big else (42, 0))))
        self.link = len(self.file) - (8 if big else 4)  # to the next directory

    def pack(self, form, *values):
        return struct.pack(self.order + form, *values)

    def append(self, data):
        self.file += bytes(len(self.file) % 2) + data
        return len(self.file) - len(data)

    # A page of strips of coded data, and of fields: tag, type, values.
    def page(self, strips, fields):
        offsets = [self.append(strip) for strip in strips]
        kind = 16 if self.big else 4
        fields = sorted(fields + [(273, kind, offsets), (279, 4, [len(strip) for strip in strips])])
        room = 8 if self.big else 4
        entries = []
        for tag, kind, values in fields:
            form = {2: "B", 3: "H", 4: "I", 5: "I", 16: "Q"}[kind]
            data = self.pack(form * len(values), *values)
            count = len(values) // (2 if kind == 5 else 1)
            value = data.ljust(room, b"\0") if len(data) <= room else self.offset(self.append(data))
            entries.append(self.pack("HHQ" if self.big else "HHI", tag, kind, count) + value)
        directory = self.pack("Q" if self.big else "H", len(entries)) + b"".join(entries)
        at = self.append(directory + self.offset(0))
        self.file[self.link:self.link + room] = self.offset(at)
        self.link = len(self.file) - room

    def offset(self, at):
        return self.pack("Q" if self.big else "I", at)


PACK_BITS = 32773  # of Compression


# PackBits: literal bytes and repeated ones, as they come.
def packed_bits(rng, data):
    out, at = b"", 0
    while at < len(data):
        same = 1
        while same < 128 and data[at:at + same + 1] == data[at:at + 1] * (same + 1):
            same += 1
        if same > 1:
            out, at = out + bytes([257 - same]) + data[at:at + 1], at + same
        else:
            n = rng.randrange(1, 20)
            part = data[at:at + n]
            out, at = out + bytes([len(part) - 1]) + part, at + len(part)
    return out


# One strip of a page. `inverted`: of bits that are not coded as a fax, 0 is black.
def strip_of(rng, rows, width, compression, options, order, inverted):
    if compression in (3, 4):
        df = MMR if compression == 4 else MR if options & 1 else MH
        bits = code_page(rows, df, width, rng=rng, aligned=bool(options & 4))
        return pack(bits + rng.choice(("", end_of_page(df))), order)
    padding = "0" * (-width % 8)
    bits = "".join(bits_of(row, width) + padding for row in rows)
    data = bytes(byte ^ 255 * inverted for byte in pack(bits, HIGH_FIRST))
    size = (width + 7) // 8
    if compression == PACK_BITS:
        return b"".join(packed_bits(rng, data[at:at + size]) for at in range(0, len(data), size))
    return data if order == HIGH_FIRST else bytes(int(f"{byte:08b}"[::-1], 2) for byte in data)


# Resolutions that count as 204 x 196 or 204 x 98: the field's unit, its values in hundredths, the character of
# RESOLUTION and whether the page is then scaled.
RESOLUTIONS = [(None, 0, 0, 1), (2, 20400, 19600, 1), (2, 20000, 20000, 1), (2, 20400, 20400, 1), (2, 20400, 9800, 0),
               (2, 20000, 10000, 0), (3, 8031, 7717, 1), (3, 8031, 3858, 0), (1, 100, 100, 1)]


# `unseen` rows are coded after those that each page counts.
def write_tiff(rng, pages, width, resolution, unseen=()):
    writer = TiffWriter(rng.choice(("II", "MM")), rng.random() < 0.3)
    compression = rng.choice((3, 4) if unseen else (1, 3, 3, 4, 4, PACK_BITS))
    options = rng.choice((0, 1, 4, 5)) if compression == 3 else 0
    order = rng.choice((HIGH_FIRST, LOW_FIRST)) if compression != PACK_BITS else HIGH_FIRST
    # Coded data say what is white; of bits, the field says it.
    inverted = compression in (1, PACK_BITS) and rng.random() < 0.5
    for n, rows in enumerate(pages):
        together = len(rows) if unseen else rng.choice((len(rows), len(rows), 1, 7))
        strips = [strip_of(rng, [*rows[y:y + together], *unseen], width, compression, options, order, inverted)
                  for y in range(0, len(rows), together)]
        unit, x, y, _ = resolution
        fields = [(256, rng.choice((3, 4)), [width]), (257, 4, [len(rows)]), (258, 3, [1]), (259, 3, [compression]),
                  (262, 3, [int(inverted)]), (277, 3, [1]), (278, 4, [together])]
        fields += [(266, 3, [2])] if order == LOW_FIRST else []
        fields += [(292, 4, [options])] if compression == 3 else []
        fields += [(282, 5, [x, 100]), (283, 5, [y, 100]), (296, 3, [unit])] if unit else []
        writer.page(strips, fields + ([(254, 4, [2]), (297, 3, [n, len(pages)])] if rng.random() < 0.5 else []))
    return bytes(writer.file)


def test_tiff_of_many_layouts(rng, directory):
    width = rng.choice((WIDTH, WIDTH, WIDTH, 1, 7, 8, 1000, 1727, rng.randrange(1, 1729)))
    pages = [random_page(rng, rng.choice((1, 9, 20)), width) for _ in range(rng.randrange(1, 4))]
    resolution = rng.choice(RESOLUTIONS)
    options = ("--coding", rng.choice(list(CODINGS))) if rng.random() < 0.5 else ()
    attributes, got = imported(directory, write_tiff(rng, pages, width, resolution), *options)
    assert attributes, got
    assert attributes[b"RESOLUTION"] == b"%d" % resolution[3], f"RESOLUTION is {attributes[b'RESOLUTION']}"
    assert not options or attributes[b"COMPRESSION"] == b"%d" % CODINGS[options[1]], "another coding"
    assert len(got) == len(pages), f"{len(got)} pages"
    for page, rows in zip(got, pages):
        check_page(page, rows, width)


def test_tiff_that_is_scaled(rng, directory):
    width, lines = rng.randrange(100, 3000), rng.randrange(40, 300)
    x_dpi, y_dpi = rng.choice(((100, 100), (300, 300), (600, 600), (204, 391), (72, 72), (None, None)))
    rows = blocks(rng, lines, width)
    resolution = (2, 100 * x_dpi, 100 * y_dpi, 1) if x_dpi else (None, 0, 0, 1)
    attributes, got = imported(directory, write_tiff(rng, [rows], width, resolution))
    assert attributes, got
    x, y = (204 / x_dpi if x_dpi != 204 else 1, 196 / y_dpi) if x_dpi else (1, 1)
    check_page(got[0], rows, width, x, y)


# A page has the rows that its fields count, whatever its data hold.
def test_tiff_with_rows_too_many(rng, directory):
    pages = [random_page(rng, rng.randrange(1, 9)) for _ in range(2)]
    _, got = imported(directory, write_tiff(rng, pages, WIDTH, RESOLUTIONS[1], random_page(rng, 3)))
    assert got == pages, f"{len(got[0])} rows in place of {len(pages[0])}"


def test_damaged_tiff(rng, directory):
    rows = random_page(rng, 12)
    file = bytearray(write_tiff(rng, [rows, rows], WIDTH, RESOLUTIONS[1]))
    if rng.random() < 0.5:
        del file[rng.randrange(len(file)):]
    for _ in range(rng.randrange(1, 4) if file else 0):
        file[rng.choice((rng.randrange(len(file)), rng.randrange(min(200, len(file)))))] ^= 1 << rng.randrange(8)
    attributes, got = imported(directory, bytes(file))
    assert attributes is None or got, "a fax without pages"


# Portable bitmaps

def write_pbm(rng, rows, width):
    bits = [bits_of(row, width) for row in rows]
    if rng.random() < 0.5:
        raw = b"".join(pack(row + "".join(rng.choices("01", k=-width % 8)), HIGH_FIRST) for row in bits)
        return b"P4\n# by hand\n%d %d\n" % (width, len(rows)) + raw
    between = rng.choice((" ", "", "\n", "\t"))
    text = rng.choice(("\n", "\n# a comment 1 0\n", "")).join(between.join(row) for row in bits)
    return f"P1 {width}\n# 7 8\n{len(rows)}\n{text}\n".encode()


def test_bitmaps(rng, directory):
    pages = [(width, random_page(rng, rng.randrange(1, 12), width))
             for width in rng.sample((1, 3, 8, 9, 100, 1721, 1727, WIDTH), rng.randrange(1, 4))]
    file = b"".join(write_pbm(rng, rows, width) for width, rows in pages)
    attributes, got = imported(directory, file)
    assert attributes, got
    assert len(got) == len(pages), f"{len(got)} pages"
    for page, (width, rows) in zip(got, pages):
        check_page(page, rows, width)
    cut = imported(directory, file[:-1].rstrip(b"\n")[:-1])
    assert cut[0] is None, "a truncated bitmap became a fax"


# PNG

SAMPLES = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}  # a pixel, by colour type
DEPTHS = {0: (1, 2, 4, 8, 16), 2: (8, 16), 3: (1, 2, 4, 8), 4: (8, 16), 6: (8, 16)}
ADAM7 = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)]


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def filtered(method, row, above, step):
    out = bytearray([method])
    for i, byte in enumerate(row):
        left, up = row[i - step] if i >= step else 0, above[i]
        corner = above[i - step] if i >= step else 0
        paeth = min((left, up, corner), key=lambda near: abs(left + up - corner - near))
        out.append(byte - (0, left, up, (left + up) // 2, paeth)[method] & 255)
    return bytes(out)


# The samples of a pixel of that grey, 0 to 255, in bits. White may be transparent black.
def pixel(rng, grey, colour, depth):
    sample = f"{grey * ((1 << depth) - 1) // 255:0{depth}b}"
    if colour == 3:
        return f"{1 - grey // 255:0{depth}b}"  # the palette: white, black
    if colour in (4, 6) and grey == 255 and rng.random() < 0.5:
        return "0" * (SAMPLES[colour] * depth)
    return sample * (3 if colour & 2 else 1) + "1" * (depth if colour & 4 else 0)


def write_png(rng, greys, colour, depth, interlaced, size=b""):
    width, height = len(greys[0]), len(greys)
    step = max(1, SAMPLES[colour] * depth // 8)
    data = b""
    for x, y, dx, dy in ADAM7 if interlaced else [(0, 0, 1, 1)]:
        above = None
        for line in greys[y::dy] if x < width else []:
            row = pack("".join(pixel(rng, grey, colour, depth) for grey in line[x::dx]), HIGH_FIRST)
            data += filtered(rng.randrange(5), row, above or bytes(len(row)), step)
            above = row
    data = zlib.compress(data, 1)
    cut = rng.randrange(len(data))
    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, interlaced)
    palette = chunk(b"PLTE", b"\xff\xff\xff\0\0\0") if colour == 3 else b""
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + size + palette +
            chunk(b"IDAT", data[:cut]) + chunk(b"IDAT", data[cut:]) + chunk(b"IEND", b""))


# Black and white, in every colour type and depth, keep their pixels.
def test_png_of_all_types(rng, directory):
    for colour, depths in DEPTHS.items():
        for depth in depths:
            width, interlaced = rng.randrange(1, 90), rng.randrange(2)
            rows = random_page(rng, rng.randrange(1, 12), width)
            greys = [[255 * (bit == "0") for bit in bits_of(row, width)] for row in rows]
            size = rng.choice((b"", chunk(b"pHYs", struct.pack(">IIB", 8031, 7717, 1))))
            file = write_png(rng, greys, colour, depth, interlaced, size)
            attributes, got = imported(directory, file)
            assert attributes, f"colour type {colour}, depth {depth}: {got}"
            check_page(got[0], rows, width)
            assert imported(directory, file[:len(file) - rng.randrange(13, 24)])[0] is None, "a truncated PNG"


# Grey becomes dots that are as dark.
def test_grey_png(rng, directory):
    width, height = 160, 90
    greys = [[40 + (x + y) * 175 // (width + height) for x in range(width)] for y in range(height)]
    _, (page,) = imported(directory, write_png(rng, greys, 0, 8, 0))
    want = sum(255 - grey for row in greys for grey in row) / 255 / (WIDTH * height)
    assert len(page) == height and abs(darkness(page) - want) < 0.02 * want, f"{darkness(page)} in place of {want}"


if __name__ == "__main__":
    main({test_tiff_of_many_layouts: 30, test_tiff_that_is_scaled: 6, test_tiff_with_rows_too_many: 6,
          test_damaged_tiff: 25, test_bitmaps: 8, test_png_of_all_types: 1, test_grey_png: 1})
