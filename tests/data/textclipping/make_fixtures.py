#!/usr/bin/env python3
# Writes the text clipping fixtures and their expected answers: python3 make_fixtures.py
# Newer clippings keep a property list in the data fork (UTI-Data); older ones keep an empty data
# fork and their text in resources, which a foreign volume stores in an AppleDouble companion
# "._NAME". Each NAME gets NAME.expect.json: the text and the document type the reader gives, or
# "readable": false.

import os
import sys
import plistlib
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
from fixture_tools import apple_double, png, resource_fork, write_fixtures  # noqa: E402


def companion(fork):
    """Finder info and resource fork, as macOS writes them beside a clipping."""
    return apple_double([(9, b"clptMACS" + bytes(24)), (2, fork)])


def styl(runs):
    """A TEXT resource's style runs: start, line height, ascent, font, face, size, colour."""
    body = struct.pack(">H", len(runs))
    for start, face in runs:
        body += struct.pack(">IhhhBxh3H", start, 16, 12, 21, face, 12, 0, 0, 0)
    return body


def rtf(body):
    return ("{\\rtf1\\ansi\\ansicpg1252\\cocoartf2580\n{\\fonttbl\\f0\\fswiss\\fcharset0 Helvetica;}\n"
            "{\\colortbl;\\red255\\green255\\blue255;}\n\\pard\\f0\\fs24 " + body + "}").encode("ascii")


def flat_rtfd(rtf_bytes, attachments):
    """A flattened RTFD: "rtfd", the files' names and sizes, then the files, TXT.rtf first."""
    files = [(b"TXT.rtf", rtf_bytes)] + attachments
    head = b"rtfd" + struct.pack("<II", 0, len(files))
    head += b"".join(struct.pack("<I", len(name)) + name for name, _ in files)
    head += b"".join(struct.pack("<I", len(body)) for _, body in files)
    return head + b"".join(body for _, body in files)


def utf16le(text):
    return text.encode("utf-16-le")


FIXTURES = []


def data_fork(name, types, expected, fmt=plistlib.FMT_BINARY):
    FIXTURES.append((name, plistlib.dumps({"UTI-Data": types}, fmt=fmt, sort_keys=True), None,
                     expected))


def resources(name, forks, expected):
    FIXTURES.append((name, b"", companion(resource_fork(forks)), expected))


# Property lists in the data fork, richest kind first: flat RTFD, RTF, UTF-16, UTF-8, Mac Roman.
data_fork("plist-flat-rtfd.textClipping", {
    "com.apple.flat-rtfd": flat_rtfd(rtf("The heron waited at the edge of the reeds.\\par\n"
                                         "Nobody moved for a quarter of an hour."),
                                     [(b"heron.png", png(2, 2, (90, 110, 120)))]),
    "public.utf8-plain-text": "plain text that loses to the RTFD",
}, {"text": "The heron waited at the edge of the reeds.\nNobody moved for a quarter of an hour.",
    "documentType": "NSRTFD"})
data_fork("plist-rtf-and-plain.textClipping", {
    "public.rtf": rtf("The ferry leaves at {\\b noon}; the caf\\'e9 on the pier closes at six."),
    "public.utf16-plain-text": utf16le("plain UTF-16 that loses to the RTF"),
    "public.utf8-plain-text": "plain UTF-8 that loses to the RTF",
}, {"text": "The ferry leaves at noon; the café on the pier closes at six.",
    "documentType": "NSRTF"})
data_fork("plist-utf16.textClipping", {
    "public.utf16-plain-text": utf16le("Ceci n’est pas une pipe — c’est un presse-papiers."),
    "public.utf8-plain-text": "plain UTF-8 that loses to UTF-16",
    "com.apple.traditional-mac-plain-text": b"Mac Roman that loses to UTF-16",
}, {"text": "Ceci n’est pas une pipe — c’est un presse-papiers.", "documentType": "NSPlainText"})
data_fork("plist-utf8.textClipping", {
    "public.utf8-plain-text": "Smørrebrød på rugbrød, med æg og rejer.",
    "com.apple.traditional-mac-plain-text": b"Mac Roman that loses to UTF-8",
}, {"text": "Smørrebrød på rugbrød, med æg og rejer.", "documentType": "NSPlainText"})
data_fork("plist-macroman.textClipping", {
    "com.apple.traditional-mac-plain-text": "Crème fraîche, naïve café — Mac Roman.".encode("mac-roman"),
}, {"text": "Crème fraîche, naïve café — Mac Roman.", "documentType": "NSPlainText"},
    fmt=plistlib.FMT_XML)

# Resource forks in AppleDouble companions. The map's order is not the reader's order: RTF is
# preferred to utxt, and utxt to TEXT, wherever they stand.
TEXT_ROMAN = "Tea at four, scones à la crème.".encode("mac-roman")
resources("rsrc-rtf-utxt-text.textClipping", [
    (b"utxt", 256, "plain utxt that loses to the RTF".encode("utf-16-be")),
    (b"RTF ", 256, rtf("Low tide at {\\i seven}: the sandbar to the island is dry for an hour.")),
    (b"TEXT", 256, b"plain TEXT"),
    (b"styl", 256, styl([(0, 0)])),
], {"text": "Low tide at seven: the sandbar to the island is dry for an hour.",
    "documentType": "NSRTF"})
resources("rsrc-utxt.textClipping", [
    (b"TEXT", 256, b"plain TEXT that loses to utxt"),
    (b"styl", 256, styl([(0, 0), (6, 1)])),
    (b"utxt", 256, "Straße nach Ålesund, 42 km → gesperrt".encode("utf-16-be")),
], {"text": "Straße nach Ålesund, 42 km → gesperrt", "documentType": "NSPlainText"})
resources("rsrc-utxt-marked.textClipping", [
    (b"utxt", 256, "\ufeffA mark at the start says the order.".encode("utf-16-le")),
], {"text": "A mark at the start says the order.", "documentType": "NSPlainText"})
resources("rsrc-text-macroman.textClipping", [
    (b"TEXT", 256, TEXT_ROMAN),
    (b"styl", 256, styl([(0, 0), (4, 2)])),
], {"text": "Tea at four, scones à la crème.", "documentType": "NSPlainText"})
resources("rsrc-rtfd.textClipping", [
    (b"utxt", 256, "plain utxt that loses to the RTFD".encode("utf-16-be")),
    (b"RTFD", 256, flat_rtfd(rtf("Attached: the map of the marsh."), [])),
], {"text": "Attached: the map of the marsh.", "documentType": "NSRTFD"})

resources("rsrc-lower-rtfd.textClipping", [
    (b"RTF ", 256, rtf("plain RTF that loses to the rtfd")),
    (b"rtfd", 256, flat_rtfd(rtf("Lower-case type, the same flattened RTFD."), [])),
], {"text": "Lower-case type, the same flattened RTFD.", "documentType": "NSRTFD"})
# What an RTF says of the document it was cut from is not the clipping's: text and type only.
resources("rsrc-rtf-info.textClipping", [
    (b"RTF ", 256, rtf("{\\info{\\title Minutes}{\\author Ann}{\\keywords a b}}Only this.")),
], {"text": "Only this.", "documentType": "NSRTF"})
# Only the first text type present is read: a broken RTF answers nothing, neither the TEXT
# beside it nor the property list in the data fork.
FIXTURES.append(("damaged-rtf-then-text.textClipping",
                  plistlib.dumps({"UTI-Data": {"public.utf8-plain-text": "data fork loses"}},
                                 fmt=plistlib.FMT_BINARY),
                  companion(resource_fork([(b"RTF ", 256, b"no RTF at all"),
                                              (b"TEXT", 256, b"TEXT that must not be used")])),
                  {"readable": False}))
# A fork without text resources leaves the data fork to answer.
FIXTURES.append(("plist-beside-drag-fork.textClipping",
                 plistlib.dumps({"UTI-Data": {"public.utf8-plain-text": "From the data fork."}},
                                fmt=plistlib.FMT_BINARY),
                 companion(resource_fork([(b"drag", 128, bytes(16))])),
                 {"text": "From the data fork.", "documentType": "NSPlainText"}))

# A companion whose map points past its end, a data fork that is no property list, and an empty
# clipping with no companion.
broken = bytearray(resource_fork([(b"TEXT", 256, b"lost")]))
struct.pack_into(">I", broken, 4, 0x7FFFFF00)
FIXTURES.append(("damaged-bad-map.textClipping", b"", companion(bytes(broken)),
                 {"readable": False}))
FIXTURES.append(("damaged-junk.textClipping", b"bplist00junk", None, {"readable": False}))
FIXTURES.append(("damaged-empty-no-fork.textClipping", b"", None, {"readable": False}))


if __name__ == "__main__":
    write_fixtures(HERE, FIXTURES)
