#!/usr/bin/env python3
# Writes the OCR fixtures beside this script: python3 tests/data/ocr/make_fixtures.py
#
# Pages of our own text are written as PostScript and rendered by Ghostscript (Debian's
# ghostscript) into what a scanner or a phone gives: image-only PDF files at 300, 200 and
# 150 dpi, PNG files at 200 and 600 dpi, a JPEG, a two-page TIFF, pages turned by 90, 180 and
# 270 degrees and one skewed by two, and a label of four words. A PDF with a page of real text and
# a page of scan, scans under a text layer (an invisible one of a failed OCR, an invisible one of
# good text, a visible one), a picture without text and two hostile images are written byte by
# byte here. A phone's HEIC and AVIF pictures of a page, a HEIC photo without text and two hostile
# HEIC files are encoded by heif-enc (Debian's libheif-examples); a third hostile one, a grid whose
# canvas is far larger than its item declares, is written byte by byte (our fuzzer found it). NAME.txt beside each holds the
# words it shows, pages in order (empty for the pictures without text). Every run writes the same
# bytes.

import hashlib
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import zlib

HERE = pathlib.Path(__file__).resolve().parent

# Each page is a list of lines, set in Times-Roman 12 on a page of 6 by 5 inches.
PAGES = [
    [
        "Harbour Office, Quay Street 14",
        "Invoice 2041 for the winter mooring of the ketch Marigold.",
        "Berth rent from November to March, five months at the",
        "seasonal rate, with electricity and fresh water included.",
        "The slipway was booked twice for hull cleaning and paint.",
        "Please pay the total of 1,240 crowns within thirty days",
        "to the account of the harbour office named below.",
        "Questions about this invoice go to the harbour master,",
        "who answers letters on Mondays and Thursdays.",
    ],
    [
        "Minutes of the lighthouse committee, spring meeting",
        "Present were the keeper, the treasurer and four members.",
        "The lamp was overhauled in February and the lens polished.",
        "A new fog signal will be ordered once the grant arrives.",
        "The treasurer reported that the roof repairs cost less",
        "than expected, leaving money for the garden and the path.",
        "Visitors may climb the tower on Sundays from May onward.",
        "The next meeting is planned for the first week of June.",
    ],
    [
        "Ferry timetable notice for the northern islands",
        "From the first of April the morning crossing leaves at",
        "seven fifteen instead of seven, to meet the early train.",
        "Bicycles travel free of charge on every crossing, while",
        "cars must be booked at least one day before departure.",
        "In stormy weather the captain may cancel any crossing;",
        "notices are posted at the pier and on the radio.",
        "Tickets are sold aboard and at the kiosk by the quay.",
    ],
]

WIDTH, HEIGHT = 432, 360  # points
MARGIN, LEADING, SIZE = 36, 16, 12


def ps_string(text):
    return "(" + text.replace("\\", "\\\\").replace("(", "\\(").replace(")", "\\)") + ")"


def page_body(lines):
    body = [f"/Times-Roman findfont {SIZE} scalefont setfont", "0 setgray"]
    y = HEIGHT - MARGIN - SIZE
    for line in lines:
        body.append(f"{MARGIN} {y} moveto {ps_string(line)} show")
        y -= LEADING
    return "\n".join(body)


def postscript(pages, turn=0):
    """A document of `pages` (lists of lines), each turned by `turn` degrees on its sheet."""
    out = ["%!PS-Adobe-3.0"]
    for lines in pages:
        if turn == 90:
            sheet, place = (HEIGHT, WIDTH), f"{HEIGHT} 0 translate 90 rotate"
        elif turn == 270:
            sheet, place = (HEIGHT, WIDTH), f"0 {WIDTH} translate 270 rotate"
        elif turn == 180:
            sheet, place = (WIDTH, HEIGHT), f"{WIDTH} {HEIGHT} translate 180 rotate"
        elif turn:
            sheet = (WIDTH, HEIGHT)
            place = (f"{WIDTH / 2} {HEIGHT / 2} translate {turn} rotate "
                     f"{-WIDTH / 2} {-HEIGHT / 2} translate")
        else:
            sheet, place = (WIDTH, HEIGHT), ""
        out.append(f"<< /PageSize [{sheet[0]} {sheet[1]}] >> setpagedevice")
        out.append("gsave 1 setgray clippath fill grestore")
        out.append(f"gsave {place}\n{page_body(lines)}\ngrestore showpage")
    return "\n".join(out) + "\n"


def ghostscript(source, device, dpi, output, *options):
    with tempfile.NamedTemporaryFile("w", suffix=".ps") as ps:
        ps.write(source)
        ps.flush()
        subprocess.run(["gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", f"-sDEVICE={device}",
                        f"-r{dpi}", *options, f"-sOutputFile={output}", ps.name], check=True)


def settle(path):
    """Ghostscript stamps the time into what it writes: a fixed one of the same length keeps the
    byte offsets and makes every run write the same file."""
    data = path.read_bytes()
    data = re.sub(rb"\(D:\d{14}", b"(D:20240101000000", data)
    identifier = hashlib.md5(path.name.encode()).hexdigest().upper().encode()
    data = re.sub(rb"/ID ?\[<[0-9A-F]{32}> ?<[0-9A-F]{32}>\]",
                  lambda m: m[0][:m[0].index(b"<")] + b"<" + identifier + b">" +
                  m[0][m[0].index(b">") + 1:m[0].rindex(b"<")] + b"<" + identifier + b">]", data)
    data = re.sub(rb"\d{4}:\d\d:\d\d \d\d:\d\d:\d\d", b"2024:01:01 00:00:00", data)
    path.write_bytes(data)


def words_file(name, pages):
    (HERE / (name + ".txt")).write_text("\f".join("\n".join(lines) + "\n" for lines in pages))


# --- PDF written object by object, for the page of text beside a page of scan.

def pdf(objects):
    """A PDF of `objects` (bodies of objects 1..n, object 1 the catalog)."""
    out = bytearray(b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n")
    offsets = []
    for number, body in enumerate(objects, 1):
        offsets.append(len(out))
        out += f"{number} 0 obj\n".encode() + body + b"\nendobj\n"
    start = len(out)
    out += f"xref\n0 {len(objects) + 1}\n0000000000 65535 f \n".encode()
    for offset in offsets:
        out += f"{offset:010d} 00000 n \n".encode()
    out += (f"trailer\n<< /Size {len(objects) + 1} /Root 1 0 R >>\nstartxref\n{start}\n%%EOF\n"
            .encode())
    return bytes(out)


def stream(dictionary, data):
    return (b"<< " + dictionary + f" /Length {len(data)} >>\nstream\n".encode() + data +
            b"\nendstream")


def read_pgm(path):
    data = path.read_bytes()
    fields, position = [], 0
    while len(fields) < 4:
        while data[position:position + 1].isspace() or data[position:position + 1] == b"#":
            if data[position:position + 1] == b"#":
                position = data.index(b"\n", position)
            position += 1
        end = position
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(data[position:end])
        position = end
    width, height = int(fields[1]), int(fields[2])
    return width, height, data[position + 1:position + 1 + width * height]


def mixed_pdf(text_lines, scanned_lines, dpi):
    """Page 1 has a text layer, page 2 is a greyscale picture of a page."""
    with tempfile.TemporaryDirectory() as folder:
        raster = pathlib.Path(folder) / "page.pgm"
        ghostscript(postscript([scanned_lines]), "pgmraw", dpi, raster)
        width, height, pixels = read_pgm(raster)
    text = [b"BT /F1 12 Tf 16 TL", f"{MARGIN} {HEIGHT - MARGIN - SIZE} Td".encode()]
    for line in text_lines:
        text.append(ps_string(line).encode() + b" Tj T*")
    text.append(b"ET")
    picture = f"q {WIDTH} 0 0 {HEIGHT} 0 0 cm /Im1 Do Q".encode()
    box = f"/MediaBox [0 0 {WIDTH} {HEIGHT}]".encode()
    return pdf([
        b"<< /Type /Catalog /Pages 2 0 R >>",
        b"<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>",
        b"<< /Type /Page /Parent 2 0 R " + box +
        b" /Resources << /Font << /F1 5 0 R >> >> /Contents 6 0 R >>",
        b"<< /Type /Page /Parent 2 0 R " + box +
        b" /Resources << /XObject << /Im1 7 0 R >> >> /Contents 8 0 R >>",
        b"<< /Type /Font /Subtype /Type1 /BaseFont /Times-Roman /Encoding /WinAnsiEncoding >>",
        stream(b"", b"\n".join(text)),
        stream(f"/Type /XObject /Subtype /Image /Width {width} /Height {height} "
               "/ColorSpace /DeviceGray /BitsPerComponent 8 /Filter /FlateDecode".encode(),
               zlib.compress(pixels, 9)),
        stream(b"", picture),
    ])


# --- Scans with a text layer drawn over the picture, as OCR software and copiers leave them.

# What a failed OCR leaves: punctuation and marks, and letters that are not words.
JUNK_MARKS = [
    "l1 !| ~~ ;: ,,' .- ~ |' :. ;; ,",
    "i' ~- ;. ,| ::: 1i ~ .. ' -- ;",
    "'~ ,. |! ;' ~: .,, -' ||",
]
JUNK_LETTERS = [
    "i   l   r   t   I   ,   e   a   n   o   .   i",
    "l   I   t   r   .   j   i   e   ,   l   a",
    "r   n   i   t   l   o   I   e   s",
]
# Text a reader would accept, visibly drawn yet mostly signs: a table of figures and symbols.
SIGNS = [
    "Ax + By = C  ( 1 )",
    "< 2 > ; +/- 3 ; = 4 ; ~ 5 ; # 6 ; % 7",
    "| | | + + + = = = -- -- --",
]


def layered_pdf(pages, dpi):
    """A page per (scanned lines, layer lines, render mode): a greyscale picture of the scanned
    lines, with the layer's text drawn over it (render mode 3: invisible, 0: visible)."""
    objects = [b"<< /Type /Catalog /Pages 2 0 R >>", None,
               b"<< /Type /Font /Subtype /Type1 /BaseFont /Times-Roman "
               b"/Encoding /WinAnsiEncoding >>"]
    kids = []
    box = f"/MediaBox [0 0 {WIDTH} {HEIGHT}]".encode()
    for scanned_lines, layer_lines, mode in pages:
        with tempfile.TemporaryDirectory() as folder:
            raster = pathlib.Path(folder) / "page.pgm"
            ghostscript(postscript([scanned_lines]), "pgmraw", dpi, raster)
            width, height, pixels = read_pgm(raster)
        content = [f"q {WIDTH} 0 0 {HEIGHT} 0 0 cm /Im1 Do Q".encode(),
                   f"BT {mode} Tr /F1 12 Tf 16 TL {MARGIN} {HEIGHT - MARGIN - SIZE} Td".encode()]
        for line in layer_lines:
            content.append(ps_string(line).encode() + b" Tj T*")
        content.append(b"ET")
        page, image, contents = len(objects) + 1, len(objects) + 2, len(objects) + 3
        kids.append(f"{page} 0 R".encode())
        objects += [
            b"<< /Type /Page /Parent 2 0 R " + box +
            f" /Resources << /Font << /F1 3 0 R >> /XObject << /Im1 {image} 0 R >> >>"
            f" /Contents {contents} 0 R >>".encode(),
            stream(f"/Type /XObject /Subtype /Image /Width {width} /Height {height} "
                   "/ColorSpace /DeviceGray /BitsPerComponent 8 /Filter /FlateDecode".encode(),
                   zlib.compress(pixels, 9)),
            stream(b"", b"\n".join(content)),
        ]
    objects[1] = (b"<< /Type /Pages /Kids [" + b" ".join(kids) +
                  f"] /Count {len(kids)} >>".encode())
    return pdf(objects)


# --- PNG written here: the picture without text and a hostile one.

def png(width, height, rows, colour_type=0):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    header = struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
            chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


def photo(width=480, height=320):
    """A sky, a hill and grain: a picture with no text in it."""
    seed = 12345
    rows = bytearray()
    for y in range(height):
        rows.append(0)
        for x in range(width):
            seed = (seed * 1103515245 + 12345) & 0x7FFFFFFF
            grain = (seed >> 16) % 41 - 20
            hill = height * 0.6 + 40 * ((x - width / 2) / width) ** 2 * 4
            base = 200 - y // 3 if y < hill else 90 + (x * 7 + y * 3) % 23
            rows.append(max(0, min(255, base + grain)))
    return png(width, height, bytes(rows))


# --- HEIF and AVIF, encoded by libheif from a PNG.

# A HEIC grid item of one 64 x 48 tile (its ispe says 64 x 48) whose grid descriptor asks for a
# canvas of 28009 x 28005 pixels, which libheif makes before anything is read.
GRID_CANVAS = bytes.fromhex(
    "0000001c6674797068656963000000006d696631686569636d696166000001ae6d6574610000000000000021"
    "68646c72000000000000000070696374000000000000000000000000000000000e7069746d00000000000200"
    "00001069646174000000006d696d6500000038696c6f630100000044400002000100000000000001d2000100"
    "0000000000006a00020001000000000000000100000000000000080000003869696e66000000000002000000"
    "15696e66650200000100010000687663310000000015696e666502000000000200006772696400000000d969"
    "707270000000b76970636f0000007768766343010408000000000000000000fff000fcfff8f800000f032000"
    "01001740010c01ffff0408000003009e380000030000ffba0240210001002a4201010408000003009e380000"
    "030000ff90041020b2dd5c94d73702020604000003000400000300042022000100084401c170306091200000"
    "0014697370650000000000000040000000400000001469737065000000000000004000000030000000107069"
    "786900000000030808080000001a69706d610000000000000002000102810200020203840000001a69726566"
    "000000000000000e64696d67000200010001000000726d646174000000662801af05b81f6c61fa01c2ac51e4"
    "5d75d75daf7df7df7dee37ffff2276bffffacdf58414938cc691a4691a474fd3f4fd3f4fd3f4fafcfff641cf"
    "fffe9bfd2ff43f99f89f89f89f89f8af8af8af8af8af8af8af8abc0998ad89621650e5fa714d4c08e559c510")


def heif(png_bytes, output, *options):
    """`output` (.heic or .avif, by its suffix) of a PNG's picture."""
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "picture.png"
        source.write_bytes(png_bytes)
        subprocess.run(["heif-enc", *options, "-o", str(output), str(source)], check=True,
                       stdout=subprocess.DEVNULL)


def heif_page(pages, output, quality, turn=0, device="pnggray"):
    """A page in grey (coded as such) or in colour (coded in YCbCr, as a phone's camera does)."""
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder) / "page.png"
        ghostscript(postscript(pages, turn), device, 200, page)
        heif(page.read_bytes(), output, "-q", str(quality))


def children(data, start, end):
    """(type, start, size) of the boxes in data[start:end]."""
    found, at = [], start
    while at < end:
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        found.append((kind, at, size))
        at += size
    return found


def box(kind, body):
    return struct.pack(">I", len(body) + 8) + kind + body


def find(data, start, end, kind):
    return next(box for box in children(data, start, end) if box[0] == kind)


def rotated(data, quarter_turns):
    """The HEIF file `data` with an irot property on its image item 1: shown turned
    anticlockwise by `quarter_turns` quarter turns. The boxes that hold it grow and the
    picture's data, after them, moves on by as much."""
    _, meta, meta_size = find(data, 0, len(data), b"meta")
    _, iprp, iprp_size = find(data, meta + 12, meta + meta_size, b"iprp")
    _, ipco, ipco_size = find(data, iprp + 8, iprp + iprp_size, b"ipco")
    _, ipma, ipma_size = find(data, iprp + 8, iprp + iprp_size, b"ipma")
    _, iloc, _ = find(data, meta + 12, meta + meta_size, b"iloc")
    properties = len(children(data, ipco + 8, ipco + ipco_size))
    irot = struct.pack(">I4sB", 9, b"irot", quarter_turns & 3)
    # ipma, version 0 and small indices: item 1 is the first entry, one byte an association.
    assert data[ipma + 8:ipma + 12] == b"\0\0\0\0" and data[ipma + 16:ipma + 18] == b"\0\1"
    count = data[ipma + 18]
    association = bytes([0x80 | (properties + 1)])
    ipma_body = (data[ipma + 8:ipma + 18] + bytes([count + 1]) +
                 data[ipma + 19:ipma + 19 + count] + association +
                 data[ipma + 19 + count:ipma + ipma_size])
    grown = len(irot) + len(association)
    # iloc, version 0 with 4-byte offsets and lengths; the base offsets, when there are any
    # (libheif writes them), say where each item's data begins.
    assert data[iloc + 8:iloc + 13] == b"\0\0\0\0\x44" and data[iloc + 13] in (0x00, 0x40)
    base = data[iloc + 13] == 0x40
    items = struct.unpack(">H", data[iloc + 14:iloc + 16])[0]
    iloc_body, at = bytearray(data[iloc + 8:iloc + 16]), iloc + 16
    for _ in range(items):
        iloc_body += data[at:at + 4]
        at += 4
        if base:
            iloc_body += struct.pack(">I", struct.unpack(">I", data[at:at + 4])[0] + grown)
            at += 4
        extents = struct.unpack(">H", data[at:at + 2])[0]
        iloc_body += data[at:at + 2]
        at += 2
        for _ in range(extents):
            offset, length = struct.unpack(">II", data[at:at + 8])
            iloc_body += struct.pack(">II", offset if base else offset + grown, length)
            at += 8
    new_ipco = box(b"ipco", data[ipco + 8:ipco + ipco_size] + irot)
    new_ipma = box(b"ipma", ipma_body)
    iprp_body = b"".join(new_ipco if kind == b"ipco" else new_ipma if kind == b"ipma" else
                         data[start:start + size]
                         for kind, start, size in children(data, iprp + 8, iprp + iprp_size))
    meta_body = data[meta + 8:meta + 12] + b"".join(
        box(b"iprp", iprp_body) if kind == b"iprp" else
        box(b"iloc", bytes(iloc_body)) if kind == b"iloc" else data[start:start + size]
        for kind, start, size in children(data, meta + 12, meta + meta_size))
    out = data[:meta] + box(b"meta", meta_body) + data[meta + meta_size:]
    assert len(out) == len(data) + grown
    return out


def declaring(data, width, height):
    """A HEIF file whose image spatial extents box declares `width` by `height` pixels."""
    at = data.index(b"ispe") + 8  # past the type, version and flags
    return data[:at] + struct.pack(">II", width, height) + data[at + 8:]


def main():
    if len(sys.argv) > 1:
        sys.exit("usage: make_fixtures.py")
    one, two, three = PAGES
    scans = [
        # name, pages, device, dpi, turn
        ("scan-300dpi.pdf", [one], "pdfimage8", 300, 0),
        ("scan-200dpi.pdf", [one, two], "pdfimage8", 200, 0),
        ("scan-150dpi.pdf", [two], "pdfimage8", 150, 0),
        ("turned-90.pdf", [three], "pdfimage8", 200, 90),
        ("turned-180.pdf", [one], "pdfimage8", 200, 180),
        ("turned-270.pdf", [two], "pdfimage8", 200, 270),
        ("page-600dpi.png", [one], "pnggray", 600, 0),
        # A label: too few letters to tell which way it lies.
        ("label.png", [["Notice to all mariners"]], "pnggray", 200, 0),
        ("skewed.png", [two], "pnggray", 200, 2),
        ("page.png", [three], "pnggray", 200, 0),
        ("page.jpg", [one], "jpeggray", 200, 0),
        ("two-pages.tif", [two, three], "tiffgray", 200, 0),
    ]
    for name, pages, device, dpi, turn in scans:
        options = ["-sCompression=lzw"] if device == "tiffgray" else []
        ghostscript(postscript(pages, turn), device, dpi, HERE / name, *options)
        settle(HERE / name)
        words_file(name, pages)
    # A document with real text: it must never be read by OCR.
    ghostscript(postscript([one, two]), "pdfwrite", 72, HERE / "text-layer.pdf",
                "-dOmitInfoDate", "-dOmitID", "-dOmitXMP")
    settle(HERE / "text-layer.pdf")
    words_file("text-layer.pdf", [one, two])
    (HERE / "mixed.pdf").write_bytes(mixed_pdf(three, one, 200))
    words_file("mixed.pdf", [three, one])
    # Invisible layers of a failed OCR, read again; NAME.txt: the words the pictures show.
    (HERE / "junk-layer.pdf").write_bytes(
        layered_pdf([(one, JUNK_MARKS, 3), (two, JUNK_LETTERS, 3)], 200))
    words_file("junk-layer.pdf", [one, two])
    # Layers that are kept, so NAME.txt holds the layer: one of good text (with a word the
    # picture does not show, "schooner", which OCR would not read) and one of visible signs.
    good = [line.replace("ketch", "schooner") for line in one]
    (HERE / "good-layer.pdf").write_bytes(layered_pdf([(one, good, 3)], 200))
    words_file("good-layer.pdf", [good])
    (HERE / "visible-signs.pdf").write_bytes(layered_pdf([(three, SIGNS, 0)], 200))
    words_file("visible-signs.pdf", [SIGNS])
    (HERE / "photo.png").write_bytes(photo())
    words_file("photo.png", [])
    # Hostile: a PNG that declares 100000 by 100000 pixels, and a TIFF cut in half.
    (HERE / "hostile-huge.png").write_bytes(png(100000, 100000, b"\0" * 64))
    tiff = (HERE / "two-pages.tif").read_bytes()
    (HERE / "hostile-truncated.tif").write_bytes(tiff[:len(tiff) // 2])
    # A phone's pictures: HEIC and AVIF pages, a page taken sideways whose file says to turn it
    # (as phones write them), a HEIC photo; hostile, a HEIC that declares 20000 by 20000 pixels
    # (within libheif's own limit, over ours) and one cut in half.
    heif_page([two], HERE / "page.heic", 30, device="png16m")
    words_file("page.heic", [two])
    heif_page([one], HERE / "page.avif", 40)
    words_file("page.avif", [one])
    heif_page([three], HERE / "turned.heic", 30, turn=90)
    (HERE / "turned.heic").write_bytes(rotated((HERE / "turned.heic").read_bytes(), 3))
    words_file("turned.heic", [three])
    heif(photo(), HERE / "photo.heic", "-q", "30")
    words_file("photo.heic", [])
    (HERE / "hostile-huge.heic").write_bytes(
        declaring((HERE / "photo.heic").read_bytes(), 20000, 20000))
    page = (HERE / "page.heic").read_bytes()
    (HERE / "hostile-truncated.heic").write_bytes(page[:len(page) // 2])
    (HERE / "hostile-grid.heic").write_bytes(GRID_CANVAS)
    # A blank sheet of 30 megapixels, which is read scaled down; a green patch coded losslessly
    # in RGB.
    heif(png(6400, 4800, (b"\0" + b"\xf0" * 6400) * 4800), HERE / "blank-big.heic", "-q", "30")
    heif(png(64, 48, (b"\0" + b"\0\xff\0" * 64) * 48, colour_type=2), HERE / "green.heic", "-L",
         "-p", "chroma=444", "--matrix_coefficients=0")


if __name__ == "__main__":
    main()
