# A coder and a decoder for fax pages, written from the tables of ITU-T T.4 and T.6 alone, to hold our programs
# against. They are strict and slow. With them: fax files (faxfile(5)) and random pages.
#
# A row is a tuple of its changing elements: the columns, in rising order, where the colour changes, beginning from
# white. So () is a white row, (0,) a black one, and (3, 5) has two black pixels. A page is a list of rows. Coded data
# are strings of "0" and "1", the bit sent first at the left, until they are packed.
from bisect import bisect_right
import struct

MH, MR, MMR = 0, 1, 3  # as the header of a fax counts them
WIDTH = 1728
LOW_FIRST, HIGH_FIRST = "little", "big"  # where in its byte a bit goes that is sent first

WHITE = """00110101 000111 0111 1000 1011 1100 1110 1111 10011 10100 00111 01000 001000 000011 110100 110101 101010
    101011 0100111 0001100 0001000 0010111 0000011 0000100 0101000 0101011 0010011 0100100 0011000 00000010 00000011
    00011010 00011011 00010010 00010011 00010100 00010101 00010110 00010111 00101000 00101001 00101010 00101011
    00101100 00101101 00000100 00000101 00001010 00001011 01010010 01010011 01010100 01010101 00100100 00100101
    01011000 01011001 01011010 01011011 01001010 01001011 00110010 00110011 00110100"""
BLACK = """0000110111 010 11 10 011 0011 0010 00011 000101 000100 0000100 0000101 0000111 00000100 00000111 000011000
    0000010111 0000011000 0000001000 00001100111 00001101000 00001101100 00000110111 00000101000 00000010111
    00000011000 000011001010 000011001011 000011001100 000011001101 000001101000 000001101001 000001101010
    000001101011 000011010010 000011010011 000011010100 000011010101 000011010110 000011010111 000001101100
    000001101101 000011011010 000011011011 000001010100 000001010101 000001010110 000001010111 000001100100
    000001100101 000001010010 000001010011 000000100100 000000110111 000000111000 000000100111 000000101000
    000001011000 000001011001 000000101011 000000101100 000001011010 000001100110 000001100111"""
WHITE_64 = """11011 10010 010111 0110111 00110110 00110111 01100100 01100101 01101000 01100111 011001100 011001101
    011010010 011010011 011010100 011010101 011010110 011010111 011011000 011011001 011011010 011011011 010011000
    010011001 010011010 011000 010011011"""
BLACK_64 = """0000001111 000011001000 000011001001 000001011011 000000110011 000000110100 000000110101 0000001101100
    0000001101101 0000001001010 0000001001011 0000001001100 0000001001101 0000001110010 0000001110011 0000001110100
    0000001110101 0000001110110 0000001110111 0000001010010 0000001010011 0000001010100 0000001010101 0000001011010
    0000001011011 0000001100100 0000001100101"""
BOTH_1792 = """00000001000 00000001100 00000001101 000000010010 000000010011 000000010100 000000010101 000000010110
    000000010111 000000011100 000000011101 000000011110 000000011111"""
VERTICAL = {0: "1", 1: "011", 2: "000011", 3: "0000011", -1: "010", -2: "000010", -3: "0000010"}  # a1 right of b1: +
PASS, HORIZONTAL = "0001", "001"
EOL = "000000000001"


def run_codes(short, long):
    codes = dict(enumerate(short.split()))
    return codes | {64 * n: code for n, code in enumerate((long + " " + BOTH_1792).split(), 1)}


RUNS = [run_codes(WHITE, WHITE_64), run_codes(BLACK, BLACK_64)]
RUN_OF = [{code: run for run, code in codes.items()} for codes in RUNS]
MODE_OF = {code: shift for shift, code in VERTICAL.items()} | {PASS: "pass", HORIZONTAL: "horizontal"}


class Damaged(Exception):
    pass


def require(good, fault):
    if not good:
        raise Damaged(fault)


def pack(bits, order):
    bits += "0" * (-len(bits) % 8)
    return int("0" + (bits[::-1] if order == LOW_FIRST else bits), 2).to_bytes(len(bits) // 8, order)


def unpack(data, order):
    bits = format(int.from_bytes(data, order), f"0{8 * len(data)}b") if data else ""
    return bits[::-1] if order == LOW_FIRST else bits


def bits_of(row, width):
    value = 0
    for change in row:
        value ^= (1 << width - change) - 1
    return format(value, f"0{width}b")


# The bits of a row, 1 for black, as its changing elements.
def row_of(bits):
    return tuple(x for x, bit in enumerate(bits) if bit != (bits[x - 1] if x else "0"))


def coded_run(colour, run):
    code = ""
    while run > 2623:
        code, run = code + RUNS[colour][2560], run - 2560
    if run > 63:
        code, run = code + RUNS[colour][run // 64 * 64], run % 64
    return code + RUNS[colour][run]


def code_1d(row, width):
    ends = (0, *row, width)
    return "".join(coded_run(i % 2, ends[i + 1] - ends[i]) for i in range(len(ends) - 1))


# The first change right of a0 that `reference` makes to the other colour than `colour`, and the one after it.
def b1_b2(reference, a0, colour, width):
    i = bisect_right(reference, a0)
    i += i % 2 != colour
    return (*reference[i:i + 2], width, width)[:2]


# With `rng`, vertical and pass mode are left out now and then: decoders must not rely on the coder's choice.
def code_2d(row, reference, width, rng=None):
    out, a0, colour = [], -1, 0
    while a0 < width:
        i = bisect_right(row, a0)
        a1, a2 = (*row[i:i + 2], width, width)[:2]
        b1, b2 = b1_b2(reference, a0, colour, width)
        plain = not rng or rng.random() > 0.1
        if plain and b2 < a1:
            out.append(PASS)
            a0 = b2
        elif plain and abs(a1 - b1) <= 3:
            out.append(VERTICAL[a1 - b1])
            a0, colour = a1, 1 - colour
        else:
            out.append(HORIZONTAL + coded_run(colour, a1 - max(a0, 0)) + coded_run(1 - colour, a2 - a1))
            a0 = a2
    return "".join(out)


# The coded page, without the code that ends it. `k`: for MR, how many rows share one coded one-dimensionally.
# `aligned`: fill ends each EOL on a byte.
def code_page(rows, df, width=WIDTH, k=4, rng=None, aligned=False):
    out, at, above = [], 0, ()
    for y, row in enumerate(rows):
        one = df == MH or (df == MR and y % k == 0)
        start = "" if df == MMR else EOL if df == MH else EOL + "01"[one]
        if start and aligned:
            start = "0" * (-(at + len(EOL)) % 8) + start
        elif start and y and rng and rng.random() < 0.1:
            start = "0" * rng.randrange(1, 40) + start
        out.append(start + (code_1d(row, width) if one else code_2d(row, above, width, rng)))
        at, above = at + len(out[-1]), row
    return "".join(out)


def end_of_page(df):
    return {MH: EOL * 6, MR: (EOL + "1") * 6, MMR: EOL * 2}[df]


# Reads a page from its bits; whatever is not as T.4 or T.6 have it, is Damaged.
class Decoder:
    def __init__(self, bits, width):
        self.bits, self.width, self.at = bits, width, 0

    def code(self, table):
        for length in range(1, 14):
            code = self.bits[self.at:self.at + length]
            if code in table:
                self.at += len(code)
                return table[code]
        raise Damaged(f"no code at bit {self.at}: {self.bits[self.at:self.at + 20]}")

    def run(self, colour):
        total = run = self.code(RUN_OF[colour])
        while run > 63:
            run = self.code(RUN_OF[colour])
            total += run
        return total

    # Skips an EOL after any fill. False, and nothing is skipped, if there is none.
    def eol(self):
        one = self.bits.find("1", self.at)
        found = one - self.at >= 11
        self.at = one + 1 if found else self.at
        return found

    def row_1d(self):
        changes, at, colour = [], 0, 0
        while at < self.width or not changes:
            at += self.run(colour)
            changes.append(at)
            colour = 1 - colour
        require(at == self.width, f"a row of {at} pixels")
        return self.plain(changes)

    def row_2d(self, reference):
        changes, a0, colour = [], -1, 0
        while a0 < self.width:
            mode = self.code(MODE_OF)
            b1, b2 = b1_b2(reference, a0, colour, self.width)
            if mode == "pass":
                require(b2 > a0, "a pass that leads nowhere")
                a0 = b2
            elif mode == "horizontal":
                a1 = max(a0, 0) + self.run(colour)
                a0 = a1 + self.run(1 - colour)
                changes += [a1, a0]
            else:
                require(b1 + mode > a0 or (b1 + mode == a0 == 0), "a change that goes back")
                a0, colour = b1 + mode, 1 - colour
                changes.append(a0)
            require(a0 <= self.width, f"a row of {a0} pixels")
        return self.plain(changes)

    # The changes without those of empty runs and the end of the row.
    def plain(self, changes):
        row = []
        for change in changes:
            if row and row[-1] == change:
                row.pop()
            else:
                row.append(change)
        return tuple(change for change in row if change < self.width)

    # All rows, or `lines` of them; what follows them may only be the end of the page, and fill.
    def page(self, df, lines=None):
        rows = []
        while lines is None or len(rows) < lines:
            start = self.at
            if df == MMR:
                if self.bits.startswith(EOL, self.at):
                    break
                rows.append(self.row_2d(rows[-1] if rows else ()))
                continue
            require(self.eol(), f"row {len(rows)} begins without EOL, at bit {self.at}")
            one = df == MH or self.tag()
            if self.bits.find("1", self.at) < 0 or (df == MH and self.peek_eol()) or (one and self.peek_eol()):
                self.at = start
                break
            rows.append(self.row_1d() if one else self.row_2d(rows[-1] if rows else ()))
        require(lines in (None, len(rows)), f"{len(rows)} rows in place of {lines}")
        ends = 0
        while self.eol():
            require(df != MR or self.tag(), "the end of the page has the tag 0")
            ends += 1
        require("1" not in self.bits[self.at:], f"something after the page, at bit {self.at} of {len(self.bits)}")
        require(df != MMR or ends in (0, 2), f"{ends} EOLs after the page")
        return rows, ends

    def tag(self):
        self.at += 1
        return self.bits[self.at - 1:self.at] == "1"

    def peek_eol(self):
        return self.bits.find("1", self.at) - self.at >= 11


def decode_page(bits, df, lines=None, width=WIDTH):
    return Decoder(bits, width).page(df, lines)[0]


# A fax file. `attributes`: bytes of the header's lines before those about the coding.
def fax_file(pages, df, vr, attributes=b""):
    text = attributes + b"#PAGES:%d\nRESOLUTION:%d\nCOMPRESSION:%d\n\x1d" % (len(pages), vr, df)
    data = (struct.pack(">I", len(page)) + page for page in pages)
    return b"\xba\xdb\xad\x16" + struct.pack(">I", len(text)) + text + b"".join(data)


# Reads a fax file that one of our programs wrote: its attributes and its pages. Each page must have its end.
def read_fax(file):
    magic, length = struct.unpack_from(">4sI", file)
    require(magic == b"\xba\xdb\xad\x16" and file[7 + length:8 + length] == b"\x1d", "not a fax file")
    attributes = dict(line.split(b":", 1) for line in file[8:7 + length].split(b"\n")[:-1])
    df, at, pages = int(attributes[b"COMPRESSION"]), 8 + length, []
    while at < len(file):
        size, = struct.unpack_from(">I", file, at)
        require(at + 4 + size <= len(file), "a page beyond the end of the file")
        rows, ends = Decoder(unpack(file[at + 4:at + 4 + size], LOW_FIRST), WIDTH).page(df)
        require(ends > 0, "a page without an end")
        pages.append(rows)
        at += 4 + size
    require(len(pages) == int(attributes[b"#PAGES"]), f"{len(pages)} pages")
    return attributes, pages


# A row that differs a little from the one above it: changes moved, put in and left out.
def row_near(rng, above, width):
    moved = {min(max(x + rng.choice((-4, -3, -2, -1, 0, 0, 0, 1, 2, 3, 4)), 0), width - 1) for x in above}
    for _ in range(rng.randrange(3)):
        moved ^= {rng.randrange(width)}
    return tuple(sorted(moved))


def random_row(rng, above, width):
    kind = rng.choice(("near", "near", "near", "same", "noise", "runs", "white", "black", "edge"))
    if kind in ("near", "same"):
        return row_near(rng, above, width) if kind == "near" else above
    if kind == "edge":
        ends = {0, 1, 2, width - 3, width - 2, width - 1} & set(range(width))
        return tuple(x for x in sorted(ends) if rng.random() < 0.5)
    if kind == "noise":
        share = rng.choice((0.02, 0.5, 0.98))
        return tuple(x for x in range(width) if rng.random() < share)
    return {"white": (), "black": (0,)}.get(kind, tuple(sorted(rng.sample(range(width), min(width, 7)))))


def random_page(rng, lines, width=WIDTH):
    rows = [()]
    while len(rows) <= lines:
        rows.append(random_row(rng, rows[-1], width))
    return rows[1:]
