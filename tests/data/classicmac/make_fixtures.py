#!/usr/bin/env python3
# Writes the classic Macintosh fixtures of this folder and their expected answers: run it from
# anywhere, `python3 tests/data/classicmac/make_fixtures.py`. The text documents are a data fork
# with a Finder type and a resource fork, written the two ways they travel on other systems: the
# data fork with an AppleDouble "._NAME" beside it, and one BinHex 4.0 file holding all three.
# The Multiplan sheet is a data fork alone, which libmwaw knows by its first bytes. Everything
# else in this folder is written anew.

import json
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import apple_double, finder_info, resource_fork  # noqa: E402


def styl(runs):
    """A TextEdit style table: (offset, font id, face bits, size, (r, g, b)) a run."""
    out = struct.pack(">H", len(runs))
    for offset, font, face, size, (r, g, b) in runs:
        out += struct.pack(">IhhHBBHHHH", offset, 16, 12, font, face, 0, size, r, g, b)
    return out


def crc16(data):
    """BinHex's CRC: CCITT polynomial, starting from 0."""
    crc = 0
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = ((crc << 1) ^ 0x1021 if crc & 0x8000 else crc << 1) & 0xFFFF
    return crc


def with_crc(data):
    return data + struct.pack(">H", crc16(data))


def run_length(data):
    """BinHex's run-length step: 0x90 escapes, 0x90 0x00 is a literal 0x90."""
    out, i = bytearray(), 0
    while i < len(data):
        byte, count = data[i], 1
        while i + count < len(data) and data[i + count] == byte and count < 255:
            count += 1
        out += b"\x90\x00" if byte == 0x90 else bytes([byte])
        if count >= 3:
            out += bytes([0x90, count])
        else:
            count = 1
        i += count
    return bytes(out)


BINHEX_ALPHABET = b"!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr"


def binhex(name, kind, creator, data, resources):
    header = bytes([len(name)]) + name.encode("mac_roman") + b"\0" + (kind + creator).encode()
    header += struct.pack(">HII", 0, len(data), len(resources))
    stream = run_length(with_crc(header) + with_crc(data) + with_crc(resources))
    bits, count, letters = 0, 0, bytearray()
    for byte in stream:
        bits, count = (bits << 8) | byte, count + 8
        while count >= 6:
            count -= 6
            letters.append(BINHEX_ALPHABET[(bits >> count) & 0x3F])
    if count:
        letters.append(BINHEX_ALPHABET[(bits << (6 - count)) & 0x3F])
    encoded = b":" + bytes(letters) + b":"
    lines = [encoded[i:i + 64] for i in range(0, len(encoded), 64)]
    return b"(This file must be converted with BinHex 4.0)\n" + b"\n".join(lines) + b"\n"


def multiplan_number(value):
    """Multiplan's decimal number: an exponent byte (bias 0x40, sign 0x80), then 14 digits
    d1 d2 ... meaning 0.d1d2... times ten to the exponent."""
    if value == 0:
        return bytes(8)
    mantissa, exponent = f"{abs(value):.13e}".split("e")
    digits = mantissa.replace(".", "")
    out = bytes([(int(exponent) + 1 + 0x40) | (0x80 if value < 0 else 0)])
    return out + bytes(int(digits[i]) << 4 | int(digits[i + 1]) for i in range(0, 14, 2))


def multiplan(rows):
    """A Multiplan 1 sheet: fixed zones up to the zone list at 0x746, whose zones follow from
    0x75a: the cell offsets (a 16-bit offset a cell, row by row, 0 for none) and the cells (format
    bytes, then text or a number)."""
    cells, offsets = b"\0\0", b""
    for row in rows:
        for value in row:
            offsets += struct.pack(">H", len(cells))
            if isinstance(value, str):
                text = value.encode("mac_roman")
                cell = bytes([0, 0x40, 0x21, len(text)]) + text
            else:
                cell = bytes([0, 0x40, 0x20, 8]) + multiplan_number(value)
            cells += cell + bytes(len(cell) % 2)
    out = bytearray(0x75a)
    out[0:8] = struct.pack(">HHHH", 0x11AB, 0, 0x13E8, 0)
    out[0x372:0x384] = struct.pack(">HH7h", len(rows), len(rows[0]), 0, 0, 0x7FFF, 0x47, 0xC,
                                   0x1E7, 0x10A)
    out[0x3A2] = 1
    out[0x3F4:0x474] = struct.pack(">64H", *(72 * i for i in range(64)))  # column edges
    out[0x474:0x476] = struct.pack(">H", 0x7FFF)
    out[0x51E:0x530] = struct.pack(">7HHH", 0x48, 0x48, 0x36, 0x36, 1, 1, 0, 3, 10)
    out[0x73C:0x746] = struct.pack(">5h", 0, 0, 0, 2, 1)
    # Zone ends: none before the offsets, the cells given by their length, then no shared data;
    # libmwaw wants the last end at 0x3c or more.
    end = len(offsets) + len(cells)
    out[0x746:0x75A] = struct.pack(">10H", 0, 0, 0, len(offsets), len(offsets), len(offsets),
                                   len(cells), end, end, max(end, 0x3C))
    out += offsets + cells
    return bytes(out + bytes(0x75A + max(end, 0x3C) - len(out)))


def main():
    for path in HERE.iterdir():
        if path.name != pathlib.Path(__file__).name:
            path.unlink()

    # TeachText: the text in the data fork, its styles in 'styl' 128; libmwaw takes a file for
    # TeachText only from its Finder creator, and turns a tab into two spaces.
    lantern = ("Lantern log, third week\r"
               "The keeper lit the lamp at dusk and wrote the weather down.\r"
               "Wind:\tnorth-east, then calm before midnight.\r"
               "A coaster passed at two without signalling.\r").encode("mac_roman")
    bold = lantern.index(b"wrote")
    fork = resource_fork([("styl", 128, styl([(0, 3, 1, 14, (0, 0, 0)),
                                               (24, 3, 0, 12, (0, 0, 0)),
                                               (bold, 22, 2, 12, (0xFFFF, 0, 0))]))])
    write_document("lantern-log", "Lantern log", "TEXT", "ttxt", lantern, fork,
                   lantern.decode("mac_roman").replace("\r", "\n").replace("\t", "  "))

    # Tex-Edit (creator TBB5) keeps tabs, and its form feed starts a new page.
    tide = ("High water at Kestrel Point\r"
            "Monday\t04:12\t16:40\r"
            "Tuesday\t05:01\t17:26\r\f"
            "Low water follows six hours later.\r").encode("mac_roman")
    fork = resource_fork([("styl", 128, styl([(0, 4, 0, 12, (0, 0, 0))]))])
    write_document("tide-table", "Tide table", "TEXT", "TBB5", tide, fork,
                   tide.decode("mac_roman").replace("\r", "\n").replace("\f", ""))

    # A spreadsheet: cells a tab apart, a text cell followed by a space, one row a line.
    rows = [["Crop", "Rows", "Yield"], ["Barley", 12, 3.5], ["Oats", 8, 2.25], ["Rye", 20, -1]]
    (HERE / "crop-yields").write_bytes(multiplan(rows))
    text = "".join("\t".join(v + " " if isinstance(v, str) else f"{v:g}" for v in row) + "\n"
                   for row in rows)
    (HERE / "crop-yields.expect.json").write_text(
        json.dumps({"kMDItemTextContent": text}, indent=1) + "\n")


def write_document(name, mac_name, kind, creator, data, fork, text):
    (HERE / name).write_bytes(data)
    (HERE / f"._{name}").write_bytes(apple_double([(9, finder_info(kind, creator)), (2, fork)]))
    (HERE / f"{name}.hqx").write_bytes(binhex(mac_name, kind, creator, data, fork))
    (HERE / f"{name}.expect.json").write_text(
        json.dumps({"kMDItemTextContent": text}, indent=1) + "\n")


if __name__ == "__main__":
    main()
