# Readers of the documents that our programs write, from the formats' definitions and bytes alone: TIFF of class F
# (RFC 2306), PDF, PostScript, PNG and PBM. Each checks all that it passes, raises Damaged, and returns pages as t4 has
# them.
import base64
import re
import struct
import zlib

from t4 import Damaged, HIGH_FIRST, LOW_FIRST, MH, MMR, MR, WIDTH, decode_page, require, row_of, unpack

TIFF_TYPES = {2: (1, "c"), 3: (2, "H"), 4: (4, "I"), 5: (8, "II")}  # ASCII, SHORT, LONG, RATIONAL
SHORT, LONG, SHORT_OR_LONG, RATIONAL, ASCII = {3}, {4}, {3, 4}, {5}, {2}

# The fields of class F that a page must have: tag, types, and what the value may be.
CLASS_F = {
    "NewSubfileType": (254, LONG, lambda v: v == 2),
    "ImageWidth": (256, SHORT_OR_LONG, lambda v: v == WIDTH),
    "ImageLength": (257, SHORT_OR_LONG, lambda v: v > 0),
    "BitsPerSample": (258, SHORT, lambda v: v == 1),
    "Compression": (259, SHORT, lambda v: v in (3, 4)),
    "Photometric": (262, SHORT, lambda v: v == 0),
    "FillOrder": (266, SHORT, lambda v: v in (1, 2)),
    "StripOffsets": (273, SHORT_OR_LONG, lambda v: v > 0),
    "Orientation": (274, SHORT, lambda v: v == 1),
    "SamplesPerPixel": (277, SHORT, lambda v: v == 1),
    "RowsPerStrip": (278, SHORT_OR_LONG, lambda v: v > 0),
    "StripByteCounts": (279, SHORT_OR_LONG, lambda v: v > 0),
    "XResolution": (282, RATIONAL, lambda v: v == 204),
    "YResolution": (283, RATIONAL, lambda v: v in (98, 196)),
    "ResolutionUnit": (296, SHORT, lambda v: v == 2),
    "PageNumber": (297, SHORT, lambda v: len(v) == 2),
    "Software": (305, ASCII, lambda v: v.startswith(b"faxtray ")),
    "DateTime": (306, ASCII, lambda v: re.fullmatch(rb"\d{4}:\d\d:\d\d \d\d:\d\d:\d\d\0", v)),
    "BadFaxLines": (326, SHORT_OR_LONG, lambda v: v >= 0),
    "CleanFaxData": (327, SHORT, lambda v: v in (0, 1, 2)),
}


class Tiff:
    def __init__(self, file):
        self.file, self.used = file, []
        self.order = {b"II*\0": "<", b"MM\0*": ">"}.get(file[:4])
        require(self.order, "not a TIFF")
        self.use(0, 8, "header")
        self.directories = []
        at, = self.get("I", 4)
        while at:
            at = self.read_directory(at)

    # Every byte belongs to one thing at most.
    def use(self, start, size, what):
        require(start + size <= len(self.file), f"{what} lies outside the file")
        for begin, end, other in self.used:
            require(start >= end or begin >= start + size, f"{what} and {other} overlap")
        self.used.append((start, start + size, what))

    def get(self, form, at):
        return struct.unpack_from(self.order + form, self.file, at)

    def read_directory(self, at):
        require(at % 2 == 0, "a directory at an odd offset")
        count, = self.get("H", at)
        self.use(at, 2 + 12 * count + 4, f"directory {len(self.directories)}")
        fields, last = {}, 0
        for entry in range(at + 2, at + 2 + 12 * count, 12):
            tag, kind, number = self.get("HHI", entry)
            require(tag > last, f"tag {tag} after tag {last}")
            require(kind in TIFF_TYPES and number > 0, f"tag {tag} of type {kind}")
            size, form = TIFF_TYPES[kind]
            place = entry + 8
            if size * number > 4:
                place, = self.get("I", place)
                require(place % 2 == 0, f"tag {tag}: a value at an odd offset")
                self.use(place, size * number, f"value of {tag}")
            values = self.get(form * number, place)
            value = b"".join(values) if kind == 2 else values[0] / values[1] if kind == 5 else values
            fields[tag] = (kind, value[0] if kind in (3, 4) and number == 1 else value)
            last = tag
        self.directories.append(fields)
        return self.get("I", at + 2 + 12 * count)[0]


def read_tiff(file):
    tiff = Tiff(file)
    pages, codings = [], set()
    for n, fields in enumerate(tiff.directories):
        got = {}
        for name, (tag, kinds, is_good) in CLASS_F.items():
            require(tag in fields, f"page {n}: no {name}")
            kind, got[name] = fields[tag]
            require(kind in kinds and is_good(got[name]), f"page {n}: {name} is {got[name]} of type {kind}")
        options = fields.get(292 if got["Compression"] == 3 else 293, (4, None))
        require(options[0] == 4 and options[1] in ((0, 1) if got["Compression"] == 3 else (0, None)),
                f"page {n}: options are {options}")
        require(got["PageNumber"] == (n, len(tiff.directories)), f"page {n}: PageNumber is {got['PageNumber']}")
        require(got["RowsPerStrip"] >= got["ImageLength"], f"page {n}: more than one strip")
        require((got["CleanFaxData"] == 0) == (got["BadFaxLines"] == 0), f"page {n}: damage in one field only")
        start, size = got["StripOffsets"], got["StripByteCounts"]
        tiff.use(start, size, f"strip {n}")
        df = MMR if got["Compression"] == 4 else MR if options[1] else MH
        bits = unpack(file[start:start + size], LOW_FIRST if got["FillOrder"] == 2 else HIGH_FIRST)
        pages.append(decode_page(bits, df, got["ImageLength"]))
        codings.add((df, got["YResolution"]))
    require(len(codings) == 1, f"codings and resolutions are {codings}")
    return pages, *codings.pop()


PDF_TOKEN = re.compile(rb"[\0\t\n\f\r ]*(?:(<<|>>|\[|\])|(\d+) (\d+) R\b|/([^\0\t\n\f\r ()<>\[\]{}/%]*)|"
                       rb"<([0-9A-Fa-f\s]*)>|([-+.\d]+)|(true|false|null)|(\())")
ESCAPES = {b"n": b"\n", b"r": b"\r", b"t": b"\t", b"b": b"\b", b"f": b"\f", b"\n": b""}


class Reference(int):
    pass


class Pdf:
    def __init__(self, file):
        self.file = file
        require(re.match(rb"%PDF-1\.[3-7]\n", file), "not a PDF")
        tail = re.search(rb"startxref\n(\d+)\n%%EOF\n\Z", file)
        require(tail, "no end")
        self.offsets, at = {}, int(tail[1])
        head = re.compile(rb"xref\n0 (\d+)\n").match(file, at)
        require(head, "no cross-reference table where startxref says")
        for n in range(int(head[1])):
            entry = re.compile(rb"(\d{10}) (\d{5}) ([nf])[ \r][\n\r]").match(file, head.end() + 20 * n)
            require(entry and (entry[3] == b"f") == (n == 0), f"entry {n} of the cross-reference table")
            if n:
                require(file.startswith(b"%d %d obj" % (n, int(entry[2])), int(entry[1])), f"object {n} is not there")
                self.offsets[n] = int(entry[1])
        trailer = re.compile(rb"trailer\s*").match(file, head.end() + 20 * int(head[1]))
        self.trailer, _ = self.parse(trailer.end())
        require(self.trailer["Size"] == int(head[1]), "the trailer's size")
        objects = [int(n) for n in re.findall(rb"(?m)^(\d+) 0 obj\n", file[:at])]
        require(set(self.offsets) <= set(objects), "objects that the table lacks")

    # The object at an offset, and the offset after it.
    def parse(self, at):
        token = PDF_TOKEN.match(self.file, at)
        require(token, f"no object at {at}")
        at, (bracket, number, _, name, digits, decimal, word, string) = token.end(), token.groups()
        if bracket in (b"<<", b"["):
            items = []
            while not (end := re.compile(rb"\s*(>>|\])").match(self.file, at)):
                item, at = self.parse(at)
                items.append(item)
            require(end[1] == (b">>" if bracket == b"<<" else b"]"), f"brackets at {at}")
            return (dict(zip(items[::2], items[1::2])) if bracket == b"<<" else items), end.end()
        if number:
            return Reference(number), at
        if name is not None:
            return name.decode(), at
        if digits is not None:
            return bytes.fromhex(digits.decode()), at
        if decimal:
            return float(decimal) if b"." in decimal else int(decimal), at
        return self.string(at) if string else ({b"true": True, b"false": False}.get(word), at)

    def string(self, at):
        text, depth = b"", 1
        for part in re.compile(rb"\\([0-7]{1,3}|.|\n)|[()]|[^\\()]+", re.DOTALL).finditer(self.file, at):
            depth += {b"(": 1, b")": -1}.get(part[0], 0)
            if depth == 0:
                return text, part.end()
            code = part[1]
            text += part[0] if code is None else bytes([int(code, 8)]) if code.isdigit() else ESCAPES.get(code, code)
        raise Damaged("a string without an end")

    def get(self, thing):
        while isinstance(thing, Reference):
            head = re.compile(rb"\d+ \d+ obj\s").match(self.file, self.offsets[int(thing)])
            thing, at = self.parse(head.end())
            if stream := re.compile(rb"\s*stream\r?\n").match(self.file, at):
                start, length = stream.end(), self.get(thing["Length"])
                require(re.compile(rb"\s*endstream\s+endobj").match(self.file, start + length), "a stream's length")
                return thing, self.file[start:start + length]
            require(re.compile(rb"\s*endobj").match(self.file, at), "an object without an end")
        return thing

    # The pages below a node of the page tree.
    def pages(self, reference, parent=None):
        node = self.get(reference)
        require(node.get("Parent") == parent, "a page with another parent")
        if node["Type"] == "Page":
            return [node]
        found = [page for kid in self.get(node["Kids"]) for page in self.pages(kid, reference)]
        require(node["Type"] == "Pages" and node["Count"] == len(found), "a count of pages")
        return found


# The text of a string: UTF-16, or what PDF says of single bytes, where that is Latin-1.
def pdf_text(string):
    return string[2:].decode("utf-16-be") if string.startswith(b"\xfe\xff") else string.decode("latin-1")


# The pages and the information of a document.
def read_pdf(file, y_dpi):
    pdf = Pdf(file)
    pages = []
    for page in pdf.pages(pdf.get(pdf.trailer["Root"])["Pages"]):
        (_, content), ((name, reference),) = pdf.get(page["Contents"]), pdf.get(page["Resources"])["XObject"].items()
        image, data = pdf.get(reference)
        lines = image["Height"]
        want = {"Type": "XObject", "Subtype": "Image", "ColorSpace": "DeviceGray", "BitsPerComponent": 1,
                "Width": WIDTH, "Height": lines, "Filter": "CCITTFaxDecode", "Length": image["Length"],
                "DecodeParms": {"K": -1, "Columns": WIDTH, "Rows": lines}}
        require(image == want, f"an image that is {image}")
        left, bottom, width, height = page["MediaBox"]
        require((left, bottom) == (0, 0) and 0 <= WIDTH * 72 / 204 - width < 0.011 and
                0 <= lines * 72 / y_dpi - height < 0.011, f"{lines} lines on a page of {page['MediaBox']}")
        drawn = re.fullmatch(rb"q ([\d.]+) 0 0 ([\d.]+) 0 0 cm /(\w+) Do Q\n", content)
        require(drawn and (float(drawn[1]), float(drawn[2]), drawn[3].decode()) == (width, height, name), content)
        pages.append(decode_page(unpack(data, HIGH_FIRST), MMR, lines))
    return pages, {name: pdf_text(text) for name, text in pdf.get(pdf.trailer["Info"]).items()}


def read_postscript(file, y_dpi):
    require(file.startswith(b"%!PS-Adobe-3.0\n") and file.endswith(b"\n%%EOF\n"), "not PostScript")
    require(re.fullmatch(rb"[\n -~]*", file) and max(map(len, file.split(b"\n"))) <= 255, "not plain lines of ASCII")
    pages = []
    for n, part in enumerate(file.split(b"\n%%Page: ")[1:], 1):
        head = re.match(rb"%d %d\n([\d.]+) ([\d.]+) (\d+) faxpage\n" % (n, n), part)
        lines = int(head[3])
        require(0 <= WIDTH * 72 / 204 - float(head[1]) < 0.011 and 0 <= lines * 72 / y_dpi - float(head[2]) < 0.011,
                f"{lines} lines on a page of {head[0]}")
        data = base64.a85decode(part[head.end():part.index(b"~>")])
        pages.append(decode_page(unpack(data, HIGH_FIRST), MMR, lines))
    require(b"\n%%%%Pages: %d\n" % len(pages) in file, "a false number of pages")
    return pages


# The rows of grey or bits of an image, as bytes, its width, its depth and its resolution, or None.
def read_png(file):
    require(file[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG")
    at, chunks = 8, []
    while at < len(file):
        length, kind = struct.unpack_from(">I4s", file, at)
        data, = struct.unpack_from(f">{length}s", file, at + 8)
        crc, = struct.unpack_from(">I", file, at + 8 + length)
        require(crc == zlib.crc32(kind + data), f"the checksum of {kind}")
        chunks.append((kind, data))
        at += 12 + length
    order = [kind for kind, _ in chunks]
    require(order[0] == b"IHDR" and order[-1] == b"IEND" and order.count(b"IEND") == 1, f"chunks {order}")
    width, height, depth, colour, *methods = struct.unpack(">IIBBBBB", chunks[0][1])
    require(colour == 0 and methods == [0, 0, 0] and depth in (1, 8), f"colour {colour}, depth {depth}, {methods}")
    size = (width * depth + 7) // 8
    unpacker = zlib.decompressobj()
    data = unpacker.decompress(b"".join(data for kind, data in chunks if kind == b"IDAT"))
    require(unpacker.eof and not unpacker.unused_data and len(data) == height * (size + 1), "the pixels' number")
    rows, above = [], bytes(size)
    for y in range(height):
        above = unfiltered(data[y * (size + 1)], data[y * (size + 1) + 1:(y + 1) * (size + 1)], above)
        rows.append(above)
    size = [struct.unpack(">IIB", data) for kind, data in chunks if kind == b"pHYs"]
    return rows, width, depth, size[0] if size else None


# A row of one byte a pixel, or less.
def unfiltered(method, row, above):
    out, left, corner = bytearray(), 0, 0
    for byte, up in zip(row, above):
        paeth = min((left, up, corner), key=lambda near: abs(left + up - corner - near))
        left = byte + (0, left, up, (left + up) // 2, paeth)[method] & 255
        out.append(left)
        corner = up
    return bytes(out)


# A page of one bit a pixel.
def read_png_page(file, y_dpi):
    rows, width, depth, size = read_png(file)
    require((width, depth) == (WIDTH, 1) and size == (round(204 / 0.0254), round(y_dpi / 0.0254), 1), f"size {size}")
    return [row_of(unpack(bytes(byte ^ 255 for byte in row), HIGH_FIRST)) for row in rows]


def read_pbm(file):
    head = re.match(rb"P4\n%d (\d+)\n" % WIDTH, file)
    require(head and len(file) == head.end() + WIDTH // 8 * int(head[1]), "not a bitmap")
    return [row_of(unpack(file[at:at + WIDTH // 8], HIGH_FIRST)) for at in range(head.end(), len(file), WIDTH // 8)]
