#!/usr/bin/env python3
# Writes the PDF and PostScript fixtures beside this script: python3 tests/data/pdf/make_fixtures.py
#
# The PDF files are written object by object with their cross-reference table, so every byte is
# ours and the same on every run. Each NAME has NAME.expect.json (the attributes an import gives)
# and NAME.txt (its text, pages in order, each ending in a line feed) beside it.

import hashlib
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import write_json  # noqa: E402

# Standard security handler padding.
PADDING = bytes.fromhex(
    "28BF4E5E4E758A4164004E56FFFA0108" "2E2E00B6D0683E802F0CA9FE6453697A"
)


def rc4(key, data):
    state = list(range(256))
    j = 0
    for i in range(256):
        j = (j + state[i] + key[i % len(key)]) % 256
        state[i], state[j] = state[j], state[i]
    out = bytearray()
    i = j = 0
    for byte in data:
        i = (i + 1) % 256
        j = (j + state[i]) % 256
        state[i], state[j] = state[j], state[i]
        out.append(byte ^ state[(state[i] + state[j]) % 256])
    return bytes(out)


class Security:
    """40-bit RC4, revision 2: the oldest handler, which every reader knows."""

    def __init__(self, user, owner, permissions, file_id):
        padded_owner = (owner + PADDING)[:32]
        owner_key = hashlib.md5(padded_owner).digest()[:5]
        self.o = rc4(owner_key, (user + PADDING)[:32])
        self.p = permissions
        digest = hashlib.md5(
            (user + PADDING)[:32] + self.o + struct.pack("<i", permissions) + file_id
        ).digest()
        self.key = digest[:5]
        self.u = rc4(self.key, PADDING)

    def encrypt(self, number, data):
        object_key = hashlib.md5(self.key + struct.pack("<I", number)[:3] + b"\0\0").digest()
        return rc4(object_key[:10], data)

    def dictionary(self):
        return (
            b"<< /Filter /Standard /V 1 /R 2 /O <" + self.o.hex().encode() + b"> /U <"
            + self.u.hex().encode() + b"> /P " + str(self.p).encode() + b" >>"
        )


def text_string(text):
    """A PDF text string: PDFDocEncoding where Latin-1 is enough, else UTF-16BE with its mark."""
    try:
        return text.encode("latin-1")
    except UnicodeEncodeError:
        return b"\xfe\xff" + text.encode("utf-16-be")


def literal(data):
    escaped = data.replace(b"\\", b"\\\\").replace(b"(", b"\\(").replace(b")", b"\\)")
    return b"(" + escaped + b")"


# WinAnsiEncoding: Latin-1 plus a few typographic marks in 0x80-0x9F.
WIN_ANSI_EXTRA = {"\u2013": 0x96, "\u2014": 0x97, "\u2019": 0x92, "\u20ac": 0x80}


def win_ansi(text):
    return bytes(WIN_ANSI_EXTRA.get(c) or c.encode("latin-1")[0] for c in text)


def page_content(lines):
    """Lines of (size, text) set from the top of an A5 page down, one line each."""
    out = [b"BT"]
    y = 560
    for size, text in lines:
        out.append(b"/F1 %d Tf 1 0 0 1 50 %d Tm" % (size, y))
        out.append(literal(win_ansi(text)) + b" Tj")
        y -= size + 10
    out.append(b"ET")
    return b"\n".join(out) + b"\n"


def write_pdf(name, pages, info, security=None):
    """pages: a list of line lists (an empty list is a blank page); info: Info dictionary."""
    file_id = hashlib.md5(name.encode()).digest()
    security = security(file_id) if security else None
    objects = {}
    page_numbers = []
    next_number = 5
    for lines in pages:
        page_numbers.append((next_number, next_number + 1))
        next_number += 2
    info_number = next_number

    def string(number, text):
        data = text_string(text)
        if security:
            return b"<" + security.encrypt(number, data).hex().encode() + b">"
        return literal(data)

    objects[1] = b"<< /Type /Catalog /Pages 2 0 R >>"
    kids = b" ".join(b"%d 0 R" % page for page, _ in page_numbers)
    objects[2] = b"<< /Type /Pages /Kids [%s] /Count %d >>" % (kids, len(pages))
    objects[3] = (
        b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"
    )
    objects[4] = b"<< /Font << /F1 3 0 R >> >>"
    for (page, content), lines in zip(page_numbers, pages):
        objects[page] = (
            b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 420 595] /Resources 4 0 R "
            b"/Contents %d 0 R >>" % content
        )
        stream = page_content(lines) if lines else b""
        if security:
            stream = security.encrypt(content, stream)
        objects[content] = b"<< /Length %d >>\nstream\n%s\nendstream" % (len(stream), stream)
    entries = []
    for key, value in info.items():
        entries.append(b"/" + key.encode() + b" " + string(info_number, value))
    objects[info_number] = b"<< " + b"\n   ".join(entries) + b" >>"
    count = info_number + 1
    if security:
        objects[count] = security.dictionary()
        count += 1

    out = bytearray(b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n")
    offsets = {}
    for number in sorted(objects):
        offsets[number] = len(out)
        out += b"%d 0 obj\n%s\nendobj\n" % (number, objects[number])
    start = len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % count
    for number in range(1, count):
        out += b"%010d 00000 n \n" % offsets[number]
    trailer = b"/Size %d /Root 1 0 R /Info %d 0 R /ID [<%s> <%s>]" % (
        count, info_number, file_id.hex().encode(), file_id.hex().encode())
    if security:
        trailer += b" /Encrypt %d 0 R" % (count - 1)
    out += b"trailer\n<< " + trailer + b" >>\nstartxref\n%d\n%%%%EOF\n" % start
    (HERE / name).write_bytes(bytes(out))


def expect(name, attributes, pages):
    write_json(HERE / (name + ".expect.json"), attributes)
    text = "".join("\n".join(t for _, t in lines) + "\n" for lines in pages if lines)
    (HERE / (name + ".txt")).write_text(text, encoding="utf-8")


# Our own text: a harbour master's notes.
SURVEY = [
    [
        (16, "Harbour survey, spring round"),
        (11, "The tide gauge at the north pier read 2.4 metres at noon."),
        (11, "Crews from Tromsø and Århus logged the café moorings."),
    ],
    [
        (16, "Second page: dredging plan"),
        (11, "Größere Schiffe wait outside the breakwater until Thursday."),
        (11, "Costs – estimated, not final."),
    ],
]
SURVEY_INFO = {
    "Title": "Harbour Survey – Spring Round",
    "Author": "Ingrid Løvås",
    "Subject": "Tide readings and a dredging plan",
    "Keywords": "harbour, tides; dredging",
    "Creator": "make_fixtures.py",
    "Producer": "ulvekbot test fixtures",
    "CreationDate": "D:20210314093000+01'00'",
    "ModDate": "D:20210402171500Z",
}
SURVEY_EXPECT = {
    "Title": "Harbour Survey – Spring Round",
    "Author": "Ingrid Løvås",
    "Description": "Tide readings and a dredging plan",
    "Keywords": "harbour tides dredging",
    "Creation": 1615710600,
    "Modification": 1617383700,
}

# A title framed in line ends, no author, and a blank page between two pages of text.
LOGBOOK = [
    [(11, "Logbook entry one: calm water, light westerly wind.")],
    [],
    [(11, "Logbook entry three: fog lifted by ten o'clock.")],
]
LOGBOOK_INFO = {"Title": "  Night Watch Logbook\r\n", "CreationDate": "D:19990101000000Z"}
LOGBOOK_EXPECT = {"Title": "Night Watch Logbook", "Author": None, "Creation": 915148800}

# Encrypted: with an owner password only anyone may read; with a user password nobody here can.
OWNER_ONLY = [[(11, "Anyone may read this page; only its owner may change it.")]]
OWNER_INFO = {"Title": "Open but Guarded", "Author": "Per Ås"}
USER_LOCKED = [[(11, "Nobody without the password reads this sentence.")]]
USER_INFO = {"Title": "Sealed Letter"}

write_pdf("survey.pdf", SURVEY, SURVEY_INFO)
expect("survey.pdf", SURVEY_EXPECT, SURVEY)
write_pdf("logbook.pdf", LOGBOOK, LOGBOOK_INFO)
expect("logbook.pdf", LOGBOOK_EXPECT, LOGBOOK)
write_pdf("owner-password.pdf", OWNER_ONLY, OWNER_INFO,
          lambda file_id: Security(b"", b"harbour", -44, file_id))
expect("owner-password.pdf", {"Title": "Open but Guarded", "Author": "Per Ås"}, OWNER_ONLY)
write_pdf("user-password.pdf", USER_LOCKED, USER_INFO,
          lambda file_id: Security(b"letter", b"harbour", -4, file_id))
# Locked: nothing of its own; the file's name stands in for the title.
expect("user-password.pdf", {"Title": "user-password.pdf", "Author": None, "Text": None}, [])

# PostScript of ours: Ghostscript turns it into PDF on import. The document information comes
# from the DSC comments and a DOCINFO pdfmark; the text is re-encoded to Latin-1.
FERRY = [
    [(12, "The morning ferry leaves the quay at seven sharp."),
     (12, "Passengers for Bodø change at the second pier.")],
    [(12, "Evening crossings stop in winter.")],
]
LATIN1_PROLOG = """%%BeginProlog
/latin1font { findfont dup length dict begin
  { 1 index /FID ne { def } { pop pop } ifelse } forall
  /Encoding ISOLatin1Encoding def currentdict end definefont pop } bind def
/Body /Helvetica latin1font
%%EndProlog
"""


def postscript_lines(lines):
    out = "/Body findfont 12 scalefont setfont\n"
    for index, (_, text) in enumerate(lines):
        escaped = "".join(c if c.isascii() else "\\%03o" % ord(c) for c in text)
        out += "72 %d moveto (%s) show\n" % (700 - 20 * index, escaped)
    return out


# The DSC creation date is the document's; Ghostscript's conversion dates are not.
ps = "%!PS-Adobe-3.0\n%%Title: Ferry Timetable Notes\n%%Creator: make_fixtures.py\n"
ps += "%%CreationDate: Fri Apr 12 09:30:00 2019\n"
ps += "%%Pages: 2\n%%EndComments\n" + LATIN1_PROLOG
ps += "[ /Author (Sigrid Bj\\370rnsen) /Subject (Crossings) /DOCINFO pdfmark\n"
for number, lines in enumerate(FERRY, 1):
    ps += "%%%%Page: %d %d\n" % (number, number) + postscript_lines(lines) + "showpage\n"
ps += "%%EOF\n"
(HERE / "ferry.ps").write_text(ps, encoding="ascii")
expect("ferry.ps",
       {"Title": "Ferry Timetable Notes", "Author": "Sigrid Bjørnsen", "Description": "Crossings",
        "Creation": 1555061400, "Modification": None},
       FERRY)

BUOY = [[(12, "Buoy 14 marks the shallow bank east of the lighthouse.")]]
eps = "%!PS-Adobe-3.0 EPSF-3.0\n%%BoundingBox: 60 650 420 720\n%%Title: Buoy Chart Label\n"
eps += "%%EndComments\n" + LATIN1_PROLOG + postscript_lines(BUOY[0]) + "showpage\n%%EOF\n"
(HERE / "buoy.eps").write_text(eps, encoding="ascii")
expect("buoy.eps", {"Title": "Buoy Chart Label", "Author": None, "Creation": None,
                    "Modification": None}, BUOY)
