# Every document that we make of a fax shows the fax: faxes made here, documents read here, without our code.
#
# usage: export_test.py PROGRAMS    the directory of the programs
import os

from harness import darkness, main, run
from readers import read_pbm, read_pdf, read_png, read_png_page, read_postscript, read_tiff
from t4 import LOW_FIRST, MH, MMR, MR, code_page, end_of_page, fax_file, pack, random_page

RECEIVED, PDF_TIME = 1795347000, "D:20261122113000Z"  # the same moment
LINES = {0: 98, 1: 196}  # an inch, by the character of RESOLUTION

# Senders as they come from headers, and the text that readers of a PDF should see.
SENDERS = [
    (b"+99 555 0143", "+99 555 0143"),
    (b"(((", "((("),
    (b")\\(\\\\)", ")\\(\\\\)"),
    (b"\\101\\n<41>/Name 1 0 R", "\\101\\n<41>/Name 1 0 R"),
    ("Zoë, 東京, €".encode(), "Zoë, 東京, €"),
    (b"Zo\xeb", "Zoë"),
    (b"\xfe\xff12", "þÿ12"),
    ("þÿ".encode(), "þÿ"),
    (b"x:y" + b"z" * 1021, "x:y" + "z" * 1021),
    (b"", None),
]


# Makes all documents of a fax. None if each program refuses it, with a reason and without leaving a file; otherwise the
# pages, which all of them must show alike, and what the PDF says about them.
def documents(file, y_dpi, directory, preview_width=216):
    for old in directory.iterdir():
        old.unlink()
    fax = directory / "fax"
    fax.write_bytes(file)
    os.utime(fax, (RECEIVED, RECEIVED))
    ended = {
        "tif": run("tiffconv", "-m", fax, directory / "tif"),
        "ps": run("rasterps2", "-f", directory / "ps", fax),
        "pbm": run("faxconv", "--pbm", directory / "pbm", fax),
        "pdf": run("write_documents", fax, directory / "1", preview_width)
    }
    statuses = {status for status, _ in ended.values()}
    assert len(statuses) == 1, f"some succeed and some do not: {ended}"
    if statuses == {1}:
        assert all(output.strip() for _, output in ended.values()), f"no reason: {ended}"
        left = {path.name for path in directory.iterdir()} & {"tif", "ps"}
        assert not left and not list(directory.glob(".*")), f"left behind: {left}"
        return None

    pages, df, tiff_dpi = read_tiff((directory / "tif").read_bytes())
    assert tiff_dpi == y_dpi, f"the TIFF has {tiff_dpi} lines an inch"
    shown, information = read_pdf((directory / "1.pdf").read_bytes(), y_dpi)
    assert shown == pages, "the PDF shows other pixels than the TIFF"
    assert read_postscript((directory / "ps").read_bytes(), y_dpi) == pages, "PostScript shows other pixels"
    for n, page in enumerate(pages, 1):
        assert read_png_page((directory / f"1-{n}.png").read_bytes(), y_dpi) == page, f"PNG {n} shows other pixels"
        assert read_pbm((directory / f"pbm-{n:03}.pbm").read_bytes()) == page, f"PBM {n} shows other pixels"
        check_preview((directory / f"1-{n}.preview.png").read_bytes(), preview_width, page, y_dpi)
    return pages, df, information


# A preview has square pixels and is as dark as its page.
def check_preview(file, width, page, y_dpi):
    rows, got_width, depth, _ = read_png(file)
    height = len(page) * 204 / y_dpi * width / 1728
    assert (got_width, depth) == (width, 8) and abs(len(rows) - max(1, height)) <= 1, f"{got_width} x {len(rows)}"
    ink = sum(255 - grey for row in rows for grey in row) / (255 * width * len(rows))
    assert abs(ink - darkness(page)) < 0.02 + 1 / len(rows), f"darkness {ink} in place of {darkness(page)}"


def coded(rng, rows, df):
    bits = code_page(rows, df, k=rng.choice((1, 2, 4, 400)), rng=rng)
    return pack(bits + end_of_page(df), LOW_FIRST)


def test_random_faxes(rng, directory):
    for df, vr in ((MH, 0), (MR, 0), (MR, 1), (MMR, 0), (MMR, 1)):
        pages = [random_page(rng, rng.choice((1, 2, 40))) for _ in range(rng.randrange(1, 6))]
        sender, _ = rng.choice(SENDERS)
        file = fax_file([coded(rng, page, df) for page in pages], df, vr, b"SENDER_FAX#:" + sender + b"\n")
        shown, shown_df, _ = documents(file, LINES[vr], directory)
        assert shown == pages, "the documents show other pixels than were sent"
        assert shown_df == df, f"the TIFF is coded as {shown_df} in place of {df}"


def test_information_of_a_pdf(rng, directory):
    page = coded(rng, [()], MMR)
    for sender, text in SENDERS:
        file = fax_file([page] * 2, MMR, 1, b"SENDER_FAX#:" + sender + b"\n")
        _, _, information = documents(file, 196, directory)
        producer = information.pop("Producer")
        want = {"Title": f"Fax from {text}" if text else "Fax", "Subject": "2 pages", "CreationDate": PDF_TIME}
        want |= {"Author": text} if text else {}
        assert information == want and producer.startswith("faxtray "), f"{sender}: {information}"
        first = (directory / "1.pdf").read_bytes()
        run("write_documents", directory / "fax", directory / "2", 10)
        assert (directory / "2.pdf").read_bytes() == first, f"{sender}: the same fax makes another PDF"


# Damages the pages of a fax: bits, bytes that are lost or put in, the end cut off.
def damaged(rng, file, start):
    data = bytearray(file)
    for _ in range(rng.randrange(1, 5)):
        at, kind = rng.randrange(start, len(data)), rng.choice("bit byte lose insert cut".split())
        if kind == "bit":
            data[at] ^= 1 << rng.randrange(8)
        elif kind == "byte":
            data[at] = rng.choice((0, 255, rng.randrange(256)))
        elif kind == "lose":
            del data[at:at + rng.randrange(1, 9)]
        elif kind == "insert":
            data[at:at] = bytes(rng.randrange(256) for _ in range(rng.randrange(1, 9)))
        elif rng.random() < 0.3:
            del data[at:]
        if len(data) <= start:
            break
    return bytes(data)


def test_damaged_faxes(rng, directory):
    for df in (MH, MR, MMR):
        for _ in range(5):
            pages = [coded(rng, random_page(rng, 12), df) for _ in range(2)]
            # Either the pages' data alone, or their lengths too.
            if rng.random() < 0.6:
                pages = [damaged(rng, page, 0) for page in pages]
            file = fax_file(pages, df, 0)
            if rng.random() < 0.4:
                file = damaged(rng, file, file.index(b"\x1d") + 1)
            documents(file, 98, directory)


# A file that ends early is refused wherever it ends.
def test_faxes_cut_off(rng, directory):
    file = fax_file([coded(rng, random_page(rng, 3), MMR) for _ in range(2)], MMR, 1, b"SENDER_FAX#:1\n")
    for length in sorted(rng.sample(range(len(file)), 10)) + [len(file) - 1]:
        assert documents(file[:length], 196, directory) is None, f"{length} of {len(file)} bytes make documents"


if __name__ == "__main__":
    main({test_random_faxes: 2, test_information_of_a_pdf: 1, test_damaged_faxes: 2, test_faxes_cut_off: 1})
