#!/usr/bin/env python3
# Writes the Word 1, 2, 6 and 95 documents that tests/bundles/word_importer_test.cpp reads, and
# the seeds of tests/fuzz/word_importer_fuzz.cpp: python3 make_fixtures.py
# No program on a Debian machine writes these versions any more, so the files are put together
# here: an OLE2 compound file (for Word 6 and 95) around a WordDocument stream that holds the
# File Information Block, the text and the tables that locate its parts, plus a summary
# information property set. The expected answers are the rows of that test.
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
SEEDS = os.path.join(HERE, "..", "..", "fuzz", "word_importer_fuzz_seeds")

# ---- OLE2 compound file (version 3: 512-byte sectors, 64-byte mini sectors) ----------------

SECTOR, MINI, CUTOFF = 512, 64, 4096
FREE, END, FAT_SECTOR = 0xFFFFFFFF, 0xFFFFFFFE, 0xFFFFFFFD
NONE = 0xFFFFFFFF


def pad(data, size):
    return data + b"\0" * (-len(data) % size)


def directory_entry(name, kind, start, size, child=NONE, right=NONE):
    encoded = (name + "\0").encode("utf-16-le") if name else b""
    entry = encoded.ljust(64, b"\0")
    entry += struct.pack("<HBB", len(encoded), kind, 1)  # black
    entry += struct.pack("<III", NONE, right, child)  # left, right, child
    entry += b"\0" * 16 + b"\0" * 4 + b"\0" * 16  # class, state, times
    entry += struct.pack("<IQ", start, size)
    return entry


def compound_file(streams):
    """streams: (name, bytes) pairs; small ones go into the mini stream, as readers expect."""
    sectors = []  # bytes of each regular sector
    fat = []

    def chain(data):
        """Appends data's sectors, chained in the FAT; the first sector or END."""
        if not data:
            return END
        first = len(sectors)
        blocks = [data[i:i + SECTOR] for i in range(0, len(data), SECTOR)]
        for i, block in enumerate(blocks):
            sectors.append(pad(block, SECTOR))
            fat.append(first + i + 1 if i + 1 < len(blocks) else END)
        return first

    mini_stream, mini_fat, placed = b"", [], []
    for name, data in streams:
        if len(data) >= CUTOFF:
            placed.append((name, chain(data), len(data)))
            continue
        first = len(mini_stream) // MINI
        count = max(1, -(-len(data) // MINI))
        for i in range(count):
            mini_fat.append(first + i + 1 if i + 1 < count else END)
        mini_stream += pad(data, MINI) if data else b"\0" * MINI
        placed.append((name, first if data else END, len(data)))
    mini_start = chain(mini_stream)
    mini_fat_start = chain(b"".join(struct.pack("<I", n) for n in mini_fat))
    mini_fat_sectors = -(-len(mini_fat) * 4 // SECTOR)

    # The root's children in a chain of right siblings, in the order readers compare names.
    ordered = sorted(placed, key=lambda p: (len(p[0]), p[0].upper()))
    entries = [directory_entry("Root Entry", 5, mini_start, len(mini_stream),
                               child=1 if ordered else NONE)]
    for i, (name, start, size) in enumerate(ordered):
        right = i + 2 if i + 1 < len(ordered) else NONE
        entries.append(directory_entry(name, 2, start, size, right=right))
    directory_start = chain(pad(b"".join(entries), SECTOR))

    # FAT sectors last: they describe themselves too.
    fat_count = 1
    while (len(fat) + fat_count) > fat_count * (SECTOR // 4):
        fat_count += 1
    fat_start = len(sectors)
    fat += [FAT_SECTOR] * fat_count
    fat += [FREE] * (fat_count * (SECTOR // 4) - len(fat))
    fat_bytes = b"".join(struct.pack("<I", n) for n in fat)
    for i in range(fat_count):
        sectors.append(fat_bytes[i * SECTOR:(i + 1) * SECTOR])
    assert fat_count <= 109

    header = bytes.fromhex("D0CF11E0A1B11AE1") + b"\0" * 16
    header += struct.pack("<HHHHH", 0x3E, 3, 0xFFFE, 9, 6) + b"\0" * 6
    header += struct.pack("<IIIIIIIII", 0, fat_count, directory_start, 0, CUTOFF,
                          mini_fat_start if mini_fat else END, mini_fat_sectors, END, 0)
    difat = [fat_start + i for i in range(fat_count)] + [FREE] * (109 - fat_count)
    header += b"".join(struct.pack("<I", n) for n in difat)
    assert len(header) == SECTOR
    return header + b"".join(sectors)


# ---- Summary information property set ----------------------------------------------------------

SUMMARY_FORMAT = bytes.fromhex("E0859FF2F94F6810AB9108002B27B3D9")
TITLE, SUBJECT, AUTHOR, KEYWORDS, COMMENTS, CREATED, SAVED = 2, 3, 4, 5, 6, 12, 13


def filetime(year, month, day, hour, minute):
    import calendar
    seconds = calendar.timegm((year, month, day, hour, minute, 0, 0, 0, 0))
    return (seconds + 11644473600) * 10000000


def summary_information(properties, code_page=1252):
    """properties: (id, value) pairs; strings in `code_page`, dates as FILETIME numbers."""
    values = [(1, struct.pack("<IhH", 2, code_page, 0))]  # the code page, a 16-bit integer
    for pid, value in properties:
        if isinstance(value, str):
            text = value.encode("cp%d" % code_page) + b"\0"
            values.append((pid, pad(struct.pack("<II", 30, len(text)) + text, 4)))
        else:
            values.append((pid, struct.pack("<IQ", 64, value)))
    offset = 8 + 8 * len(values)
    table, body = b"", b""
    for pid, value in values:
        table += struct.pack("<II", pid, offset + len(body))
        body += value
    section = struct.pack("<II", 8 + len(table) + len(body), len(values)) + table + body
    head = struct.pack("<HHI", 0xFFFE, 0, 0x00020004) + b"\0" * 16 + struct.pack("<I", 1)
    return head + SUMMARY_FORMAT + struct.pack("<I", 48) + section


# ---- The WordDocument stream ---------------------------------------------------------------------

WORD6, WORD2, WORD1 = 0xA5DC, 0xA5DB, 0xA59B
COMPLEX, ENCRYPTED = 0x0004, 0x0100
# Offset-size pairs by index: footnote marks, paragraph pages, associated strings, piece table.
FOOTNOTE_MARKS, PARAGRAPH_PAGES, ASSOCIATED, PIECES = 2, 13, 32, 33


class Stream:
    """A WordDocument stream under construction: the block, then text and tables."""

    def __init__(self, identifier, version, text_start, language=0x0409, charset=0, flags=0):
        self.identifier, self.pair_size = identifier, 8 if identifier == WORD6 else 6
        self.missing = 2 if identifier == WORD1 else 0
        self.data = bytearray(text_start)
        struct.pack_into("<HHHH", self.data, 0, identifier, version, 0xC02D, language)
        struct.pack_into("<H", self.data, 0x0A, flags)
        struct.pack_into("<H", self.data, 0x14, charset)
        struct.pack_into("<I", self.data, 0x18, text_start)

    def append(self, data, align=1):
        while len(self.data) % align:
            self.data.append(0)
        at = len(self.data)
        self.data += data
        return at

    def pair(self, index, offset, size):
        if index >= ASSOCIATED:
            index -= self.missing
        at = 0x58 + index * self.pair_size
        struct.pack_into("<I", self.data, at, offset)
        struct.pack_into("<I" if self.pair_size == 8 else "<H", self.data, at + 4, size)

    def counts(self, main, footnotes=0, headers=0):
        struct.pack_into("<III", self.data, 0x34, main, footnotes, headers)

    def text_end(self, end):
        struct.pack_into("<I", self.data, 0x1C, end)

    def finish(self, minimum=CUTOFF):
        """The stream, long enough for the regular sectors as Word's own streams are."""
        data = bytearray(self.data).ljust(minimum, b"\0")
        struct.pack_into("<I", data, 0x20, len(data))  # cbMac
        return bytes(data)


def associated_strings(title, author, encoding="cp1252"):
    """Next file, template, title, subject, keywords, comments, author, last revised by."""
    strings = [b"", b"", title.encode(encoding), b"", b"", b"", author.encode(encoding), b""]
    body = b"".join(bytes([len(s)]) + s for s in strings)
    return struct.pack("<H", 2 + len(body)) + body


def paragraph_pages(stream, runs):
    """One page of paragraph properties: runs of (start, end, properties or None)."""
    page = bytearray(512)
    count = len(runs)
    for i, (start, end, _) in enumerate(runs):
        struct.pack_into("<I", page, i * 4, start)
    struct.pack_into("<I", page, count * 4, runs[-1][1])
    top = 511
    for i, (_, _, grpprl) in enumerate(runs):
        if grpprl is None:
            continue
        papx = struct.pack("<H", 0) + grpprl  # style 0, then the properties
        papx = pad(papx, 2)
        top = (top - 1 - len(papx)) & ~1
        page[top] = len(papx) // 2
        page[top + 1:top + 1 + len(papx)] = papx
        page[(count + 1) * 4 + i * 7] = top // 2
    page[511] = count
    at = stream.append(bytes(page), align=512)
    plc = struct.pack("<II", runs[0][0], runs[-1][1]) + struct.pack("<H", at // 512)
    stream.pair(PARAGRAPH_PAGES, stream.append(plc), len(plc))


def simple_stream(text, footnote_text=b"", marks=(), flags=0, language=0x0409, charset=0,
                  version=101, identifier=WORD6, text_start=0x300):
    stream = Stream(identifier, version, text_start, language, charset, flags)
    stream.append(text + footnote_text)
    stream.text_end(len(stream.data))
    stream.counts(len(text), len(footnote_text))
    if marks:
        plc = b"".join(struct.pack("<I", cp) for cp in list(marks) + [len(text)])
        plc += b"".join(struct.pack("<H", 1) for _ in marks)
        stream.pair(FOOTNOTE_MARKS, stream.append(plc), len(plc))
    return stream


def word6(name, stream, summary=None, extra=()):
    streams = [("WordDocument", stream if isinstance(stream, bytes) else stream.finish())]
    if summary is not None:
        streams.append(("\x05SummaryInformation", summary))
    streams += list(extra)
    write(name, compound_file(streams))


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as file:
        file.write(data)


def seed(name, data):
    os.makedirs(SEEDS, exist_ok=True)
    with open(os.path.join(SEEDS, name), "wb") as file:
        file.write(data)


# A Word 6 letter: paragraphs, a field shown by its result, a footnote, summary information.
main = b"Dear reader,\rPage \x13 PAGE \x14" b"3\x15 of the report\x02.\rBye\r"
letter = simple_stream(main, footnote_text=b"\x02 A note.\r", marks=[main.index(b"\x02")])
word6("letter.doc", letter, summary_information([
    (TITLE, "Quarterly letter"), (SUBJECT, "Sales"), (AUTHOR, "Åsa Berg"),
    (KEYWORDS, "sales north"), (COMMENTS, "Draft"),
    (CREATED, filetime(1996, 3, 4, 5, 6)), (SAVED, filetime(1997, 8, 9, 10, 11))]))
seed("stream-letter", bytes([1]) + letter.finish(0))

# A Word 95 table: the row ends are marked in the paragraph properties, so an empty cell in
# the middle of a row stays a cell.
rows = [[b"Name", b"Value"], [b"A", b"", b"C"]]
table = Stream(WORD6, 104, 0x300)
start = len(table.data)
runs, cells = [], b""
for row in rows:
    for cell in row:
        cells += cell + b"\x07"
        runs.append((start + len(cells) - len(cell) - 1, start + len(cells), bytes([24, 1])))
    cells += b"\x07"
    runs.append((start + len(cells) - 1, start + len(cells), bytes([24, 1, 25, 1])))
cells += b"After\r"
runs.append((runs[-1][1], start + len(cells), None))
table.append(cells)
table.text_end(len(table.data))
table.counts(len(cells))
paragraph_pages(table, runs)
word6("table95.doc", table, summary_information([(AUTHOR, "Bo")]))
seed("stream-table", bytes([1]) + table.finish(0))

# A fast-saved Word 95 document: its text in two pieces stored the wrong way round, and a
# property list before the piece list.
fast = Stream(WORD6, 104, 0x300, flags=COMPLEX)
second = fast.append(b"second half.\r")
first = fast.append(b"First half, ")
clx = b"\x01" + struct.pack("<H", 3) + b"\x05\x01\x00"
plc = struct.pack("<III", 0, 12, 25)
plc += struct.pack("<HIH", 0, first, 0) + struct.pack("<HIH", 0, second, 0)
clx += b"\x02" + struct.pack("<I", len(plc)) + plc
fast.pair(PIECES, fast.append(clx), len(clx))
fast.counts(25)
fast.text_end(len(fast.data))
word6("fastsaved95.doc", fast, summary_information([(TITLE, "Pieces")]))
seed("stream-fastsaved", bytes([1]) + fast.finish(0))

# Russian Word 95: the text in code page 1251, known from the language; summary in 1251 too.
russian = simple_stream("Привет, мир\r".encode("cp1251"), language=0x0419, version=104)
word6("russian95.doc", russian,
      summary_information([(TITLE, "Заголовок"), (AUTHOR, "Иван")], code_page=1251))

# Greek Word 6 on an English Word: the block names the character set (161, Greek).
greek = simple_stream("Καλημέρα σας\r".encode("cp1253"), charset=161)
word6("greek6.doc", greek, summary_information([]))

# A Word 6 document written on a Macintosh: Mac Roman text.
mac = simple_stream("Café crème\r".encode("mac_roman"), charset=256, version=103)
word6("mac6.doc", mac, summary_information([]))

# No summary information: the title and author come from the document's own strings.
unnamed = simple_stream(b"Only text\r")
strings = associated_strings("Own title", "Own author")
unnamed.pair(ASSOCIATED, unnamed.append(strings), len(strings))
word6("own-strings6.doc", unnamed)

# Encrypted: the summary information is readable, the text is not.
locked = simple_stream(b"\x9a\x13\xff\x00garbled\r", flags=ENCRYPTED)
word6("encrypted6.doc", locked, summary_information([(TITLE, "Locked"), (AUTHOR, "Cy")]))

# Word for Windows 2 and 1: no container, six-byte pairs, title and author in the file.
for name, identifier, version in (("word2.doc", WORD2, 45), ("word1.doc", WORD1, 33)):
    text = "Résumé of version %d\rSecond line\r" % (2 if identifier == WORD2 else 1)
    flat = simple_stream(text.encode("cp1252"), identifier=identifier, version=version,
                         text_start=0x180)
    strings = associated_strings("Version title", "Dana")
    flat.pair(ASSOCIATED, flat.append(strings), len(strings))
    data = bytes(flat.data)
    write(name, data)
    seed("file-" + name.replace(".doc", ""), bytes([0]) + data)

# Hostile documents: each must give little or nothing, quickly, and never crash.
short = Stream(WORD6, 101, 0x300).finish(0)[:0x40]
word6("damaged-short-block.doc", short)
far = simple_stream(b"Text\r")
struct.pack_into("<II", far.data, 0x18, 0x7FFFFFF0, 0x7FFFFFFF)  # text far past the end
word6("damaged-far-text.doc", far)
huge = simple_stream(b"Text\r")
struct.pack_into("<IIIIIII", huge.data, 0x34, *[0xFFFFFFFF] * 7)  # counts of 4 G characters
word6("damaged-huge-counts.doc", huge)
pieces = Stream(WORD6, 104, 0x300, flags=COMPLEX)
at = pieces.append(b"Text\r")
plc = struct.pack("<II", 0, 0xFFFFFFF0) + struct.pack("<HIH", 0, at, 0)
clx = b"\x02" + struct.pack("<I", 0x7FFFFFFF) + plc  # a piece list longer than the stream
pieces.pair(PIECES, pieces.append(clx), len(clx))
pieces.counts(0xFFFFFFF0)
word6("damaged-pieces.doc", pieces)
outside = Stream(WORD6, 104, 0x300, flags=COMPLEX)
outside.counts(10)
outside.pair(PIECES, 0xFFFFFF00, 0xFFFF)  # the piece table outside the stream
word6("damaged-piece-table.doc", outside)
for name in ("letter", "table95", "damaged-huge-counts", "damaged-pieces"):
    with open(os.path.join(HERE, name + ".doc"), "rb") as file:
        seed("file-" + name, bytes([0]) + file.read())
