#!/usr/bin/env python3
# Writes the image fixtures beside this script: python3 tests/data/image/make_fixtures.py
#
# The pictures are drawn and encoded here (a baseline JPEG, a PNG, a TIFF); their metadata is
# then written with exiftool (Debian's libimage-exiftool-perl; the XMP names the exiftool version,
# 12.57 for the committed files). Each NAME has NAME.expect.json beside it: the attributes the
# Image importer writes, by their kMDItem names (dates in seconds since 1970, null for absent).

import pathlib
import struct
import subprocess
import sys
import zlib

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import box, full_box, png, png_chunk, write_json  # noqa: E402


# --- JPEG: 8-bit greyscale, baseline, every 8x8 block one flat grey so only DC values are coded.

# The luminance DC table of the JPEG standard (Annex K); for AC one code, end-of-block.
DC_BITS = [0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0]
DC_VALUES = list(range(12))
AC_BITS = [1] + [0] * 15
AC_VALUES = [0x00]


def huffman_codes(bits, values):
    codes, code, index = {}, 0, 0
    for length, count in enumerate(bits, 1):
        for _ in range(count):
            codes[values[index]] = (code, length)
            code += 1
            index += 1
        code <<= 1
    return codes


def segment(marker, payload):
    return struct.pack(">BBH", 0xFF, marker, len(payload) + 2) + payload


def jpeg(width, height, grey):
    """grey(block_x, block_y) gives each block's grey level."""
    dc_codes = huffman_codes(DC_BITS, DC_VALUES)
    end_of_block = huffman_codes(AC_BITS, AC_VALUES)[0x00]
    bits = []

    def put(value, length):
        bits.extend((value >> (length - 1 - i)) & 1 for i in range(length))

    previous = 0
    for block_y in range(height // 8):
        for block_x in range(width // 8):
            # With every quantiser 8 the DC coefficient of a flat block is its level minus 128.
            dc = grey(block_x, block_y) - 128
            diff, previous = dc - previous, dc
            size = abs(diff).bit_length()
            put(*dc_codes[size])
            if size:
                put(diff if diff > 0 else diff + (1 << size) - 1, size)
            put(*end_of_block)
    bits.extend([1] * (-len(bits) % 8))
    scan = bytearray()
    for i in range(0, len(bits), 8):
        byte = int("".join(map(str, bits[i:i + 8])), 2)
        scan.append(byte)
        if byte == 0xFF:
            scan.append(0x00)
    return (b"\xff\xd8"
            + segment(0xE0, b"JFIF\0\x01\x01\x00\x00\x48\x00\x48\x00\x00")
            + segment(0xDB, b"\x00" + bytes([8] * 64))
            + segment(0xC0, struct.pack(">BHHBBBB", 8, height, width, 1, 1, 0x11, 0))
            + segment(0xC4, b"\x00" + bytes(DC_BITS) + bytes(DC_VALUES))
            + segment(0xC4, b"\x10" + bytes(AC_BITS) + bytes(AC_VALUES))
            + segment(0xDA, b"\x01\x01\x00\x00\x3f\x00") + bytes(scan) + b"\xff\xd9")


# --- PNG (fixture_tools.png), with text chunks as image editors write them: tEXt in ISO Latin 1, zTXt compressed, iTXt in UTF-8.
def png_text(keyword, text, kind=b"tEXt"):
    key = keyword.encode("latin-1") + b"\0"
    if kind == b"tEXt":
        return png_chunk(kind, key + text.encode("latin-1"))
    if kind == b"zTXt":
        return png_chunk(kind, key + b"\0" + zlib.compress(text.encode("latin-1"), 9))
    return png_chunk(kind, key + b"\0\0\0\0" + text.encode("utf-8"))


# --- TIFF: 8-bit greyscale, uncompressed, one strip, little-endian.

def tiff(width, height, grey):
    pixels = bytes(grey(x, y) for y in range(height) for x in range(width))
    entries = [  # tag, type (3 short, 4 long, 5 rational), value
        (256, 3, width), (257, 3, height), (258, 3, 8), (259, 3, 1), (262, 3, 1),
        (273, 4, None), (277, 3, 1), (278, 3, height), (279, 4, len(pixels)),
        (282, 5, None), (283, 5, None), (296, 3, 2),
    ]
    ifd_offset = 8
    ifd_size = 2 + 12 * len(entries) + 4
    resolution_offset = ifd_offset + ifd_size
    pixels_offset = resolution_offset + 8
    ifd = struct.pack("<H", len(entries))
    for tag, kind, value in entries:
        if tag == 273:
            value = pixels_offset
        if kind == 5:
            ifd += struct.pack("<HHII", tag, kind, 1, resolution_offset)
        elif kind == 3:
            ifd += struct.pack("<HHIHH", tag, kind, 1, value, 0)
        else:
            ifd += struct.pack("<HHII", tag, kind, 1, value)
    ifd += struct.pack("<I", 0)
    return (b"II*\0" + struct.pack("<I", ifd_offset) + ifd + struct.pack("<II", 72, 1)
            + pixels)


# --- HEIF: the boxes that describe one HEVC image item and an Exif item. The image item holds no
# coded picture (HEVC cannot be written here), so this is a file for reading metadata only.

def heif(width, height, avif=False):
    picture = bytes(16)
    exif = b"\0\0\0\0II*\0" + struct.pack("<IHI", 8, 0, 0)  # an empty IFD0 for exiftool to fill

    def layout(picture_offset):
        item_info = full_box(b"iinf", 0, struct.pack(">H", 2),
                             full_box(b"infe", 2 << 24, struct.pack(">HH", 1, 0),
                                      b"av01\0" if avif else b"hvc1\0"),
                             full_box(b"infe", 2 << 24, struct.pack(">HH", 2, 0), b"Exif\0"))
        locations = full_box(b"iloc", 0, b"\x44\x00", struct.pack(">H", 2),
                             struct.pack(">HHHII", 1, 0, 1, picture_offset, len(picture)),
                             struct.pack(">HHHII", 2, 0, 1, picture_offset + len(picture),
                                         len(exif)))
        # HEVC Main, level 3, 4:2:0, 8 bits, no parameter sets.
        hevc = box(b"hvcC", bytes([1, 1, 0x60, 0, 0, 0, 0x90, 0, 0, 0, 0, 0, 90, 0xF0, 0, 0xFC,
                                   0xFD, 0xF8, 0xF8, 0, 0, 0x0F, 0]))
        # AV1 Main profile, level 2.0, 8 bits, 4:2:0, no configuration OBUs.
        av1 = box(b"av1C", bytes([0x81, 0x00, 0x0C, 0x00]))
        properties = box(b"iprp",
                         box(b"ipco", av1 if avif else hevc,
                             full_box(b"ispe", 0, struct.pack(">II", width, height))),
                         full_box(b"ipma", 0, struct.pack(">IHB", 1, 1, 2), b"\x81\x02"))
        meta = full_box(b"meta", 0, full_box(b"hdlr", 0, bytes(4), b"pict", bytes(12), b"\0"),
                        full_box(b"pitm", 0, struct.pack(">H", 1)), item_info,
                        full_box(b"iref", 0, box(b"cdsc", struct.pack(">HHH", 2, 1, 1))),
                        locations, properties)
        brand = b"avif" if avif else b"heic"
        return box(b"ftyp", brand, struct.pack(">I", 0), b"mif1" + brand) + meta

    head = layout(0)
    head = layout(len(head) + 8)
    return head + box(b"mdat", picture, exif)


def exiftool(name, arguments):
    subprocess.run(["exiftool", "-q", "-overwrite_original", "-charset", "iptc=UTF8",
                    *arguments, str(HERE / name)], check=True)


def write(name, data, arguments, expected):
    (HERE / name).write_bytes(data)
    if arguments:
        exiftool(name, arguments)
    write_json(HERE / (name + ".expect.json"), expected)


# A JPEG with the same fields in XMP, IPTC and EXIF, each with its own value and no IPTC digest
# (so the XMP speaks for the IPTC): EXIF wins for the fields it has (description, artists as
# "A; B", copyright), XMP for the others; and the camera's values, a place north and east, above
# the sea.
write("harbour.jpg", jpeg(48, 32, lambda x, y: 40 + 25 * x + 20 * y), [
    "-XMP-dc:Title=Fishing boats at dawn",
    "-IPTC:ObjectName=Boats (IPTC)",
    "-EXIF:XPTitle=Boats (EXIF)",
    "-XMP-dc:Description=Three boats tied up at the old quay.",
    "-IPTC:Caption-Abstract=Caption (IPTC)",
    "-EXIF:ImageDescription=Description (EXIF)",
    "-XMP-dc:Subject=Hafen", "-XMP-dc:Subject=Boote", "-XMP-dc:Subject=Morgenröte",
    "-IPTC:Keywords=IPTC keyword",
    "-XMP-dc:Creator=Jørgen Ødegård", "-XMP-dc:Creator=Ana Núñez",
    "-IPTC:By-line=By-line (IPTC)", "-EXIF:Artist=Artist One; Artist Two",
    "-XMP-dc:Rights=© 2022 Jørgen Ødegård", "-EXIF:Copyright=Copyright (EXIF)",
    "-EXIF:DateTimeOriginal=2022:04:09 06:12:30", "-EXIF:OffsetTimeOriginal=+02:00",
    "-EXIF:ModifyDate=2022:04:10 10:00:00", "-EXIF:OffsetTime=-03:30",
    "-XMP-photoshop:DateCreated=1999-01-01T00:00:00Z",
    "-EXIF:Make=Ulvek Optics", "-EXIF:Model=Test Lens 1", "-EXIF:Orientation#=6",
    "-EXIF:ExposureTime=1/250", "-EXIF:FNumber=5.6", "-EXIF:ISO=200",
    "-EXIF:FocalLength=35",
    "-GPSLatitude=60.3913", "-GPSLatitudeRef=N", "-GPSLongitude=5.3221", "-GPSLongitudeRef=E",
    "-GPSAltitude=12.5", "-GPSAltitudeRef#=0",
], {
    "kMDItemTitle": "Fishing boats at dawn",
    "kMDItemDescription": "Description (EXIF)",
    "kMDItemKeywords": ["Hafen", "Boote", "Morgenröte"],
    "kMDItemAuthors": ["Artist One", "Artist Two"],
    "kMDItemCopyright": "Copyright (EXIF)",
    "kMDItemContentCreationDate": 1649477550,
    "kMDItemContentModificationDate": 1649597400,
    "kMDItemPixelWidth": 48,
    "kMDItemPixelHeight": 32,
    "kMDItemOrientation": 6,
    "kMDItemAcquisitionMake": "Ulvek Optics",
    "kMDItemAcquisitionModel": "Test Lens 1",
    "kMDItemExposureTimeSeconds": 0.004,
    "kMDItemFNumber": 5.6,
    "kMDItemISOSpeed": 200,
    "kMDItemFocalLength": 35,
    "kMDItemLatitude": 60.3913,
    "kMDItemLongitude": 5.3221,
    "kMDItemAltitude": 12.5,
})

# XMP and IPTC that disagree, without EXIF: a digest of the IPTC as it is says the XMP was
# written with it and speaks for both; a stale digest says a program that knows only IPTC changed
# it since, and then the IPTC is the newer word.
QUAY = [
    "-XMP-dc:Title=Quay in the rain", "-IPTC:ObjectName=Quay (IPTC)",
    "-XMP-dc:Description=Rain on the cobbles of the quay.",
    "-IPTC:Caption-Abstract=Caption (IPTC)",
    "-XMP-dc:Subject=rain", "-XMP-dc:Subject=quay", "-IPTC:Keywords=IPTC keyword",
    "-XMP-dc:Creator=Lena Berg", "-IPTC:By-line=By-line (IPTC)",
    "-XMP-photoshop:DateCreated=2020-11-02T14:00:00Z",
    "-IPTC:DateCreated=2021:01:05", "-IPTC:TimeCreated=09:30:00+00:00",
]
write("quay.jpg", jpeg(16, 16, lambda x, y: 90 + 4 * x + 2 * y),
      QUAY + ["-Photoshop:IPTCDigest=new"], {
    "kMDItemTitle": "Quay in the rain",
    "kMDItemDescription": "Rain on the cobbles of the quay.",
    "kMDItemKeywords": ["rain", "quay"],
    "kMDItemAuthors": ["Lena Berg"],
    "kMDItemContentCreationDate": 1604325600,
})
write("quay-edited.jpg", jpeg(16, 16, lambda x, y: 90 + 4 * x + 2 * y),
      QUAY + ["-Photoshop:IPTCDigest=0123456789abcdef0123456789abcdef"], {
    "kMDItemTitle": "Quay (IPTC)",
    "kMDItemDescription": "Caption (IPTC)",
    "kMDItemKeywords": ["IPTC keyword"],
    "kMDItemAuthors": ["By-line (IPTC)"],
    "kMDItemContentCreationDate": 1609839000,
})

# The same in a TIFF, whose IPTC has a tag of its own and whose digest is a Photoshop resource.
write("quay-edited.tif", tiff(16, 8, lambda x, y: (x * 16 + y * 8) % 256),
      QUAY + ["-Photoshop:IPTCDigest=0123456789abcdef0123456789abcdef"], {
    "kMDItemTitle": "Quay (IPTC)",
    "kMDItemDescription": "Caption (IPTC)",
    "kMDItemAuthors": ["By-line (IPTC)"],
})
write("quay.tif", tiff(16, 8, lambda x, y: (x * 16 + y * 8) % 256),
      QUAY + ["-Photoshop:IPTCDigest=new"], {
    "kMDItemTitle": "Quay in the rain",
    "kMDItemDescription": "Rain on the cobbles of the quay.",
    "kMDItemAuthors": ["Lena Berg"],
})

# IPTC without XMP (UTF-8 by its coded character set), EXIF's date without an offset (read as
# UTC), and a place south and west, below the sea.
write("market.jpg", jpeg(24, 16, lambda x, y: 200 - 60 * x - 50 * y), [
    "-IPTC:CodedCharacterSet=UTF8", "-IPTC:ObjectName=Market stalls in Łódź",
    "-IPTC:Caption-Abstract=Vegetables sold from wooden crates.",
    "-IPTC:Keywords=Markt", "-IPTC:Keywords=Łódź", "-IPTC:Keywords=Gemüse",
    "-IPTC:By-line=Zofia Wąs", "-IPTC:CopyrightNotice=Zofia Wąs, 2019",
    "-EXIF:DateTimeOriginal=2019:08:23 11:05:00",
    "-GPSLatitude=22.9519", "-GPSLatitudeRef=S", "-GPSLongitude=43.2105",
    "-GPSLongitudeRef=W", "-GPSAltitude=3.2", "-GPSAltitudeRef#=1",
], {
    "kMDItemTitle": "Market stalls in Łódź",
    "kMDItemDescription": "Vegetables sold from wooden crates.",
    "kMDItemKeywords": ["Markt", "Łódź", "Gemüse"],
    "kMDItemAuthors": ["Zofia Wąs"],
    "kMDItemCopyright": "Zofia Wąs, 2019",
    "kMDItemContentCreationDate": 1566558300,
    "kMDItemContentModificationDate": None,
    "kMDItemPixelWidth": 24,
    "kMDItemPixelHeight": 16,
    "kMDItemLatitude": -22.9519,
    "kMDItemLongitude": -43.2105,
    "kMDItemAltitude": -3.2,
})

# EXIF alone, in a TIFF: each field from its EXIF tag. (Not XPTitle: Exiv2 0.27 gives its UCS-2
# bytes as numbers, which the importer does not yet turn into text.)
write("lighthouse.tif", tiff(32, 16, lambda x, y: (x * 8 + y * 4) % 256), [
    "-EXIF:ImageDescription=The lamp room in snow.",
    "-EXIF:Artist=Håkon Li", "-EXIF:Copyright=Håkon Li 2018",
    "-EXIF:ModifyDate=2018:02:11 15:30:00",
], {
    "kMDItemTitle": None,
    "kMDItemDescription": "The lamp room in snow.",
    "kMDItemAuthors": ["Håkon Li"],
    "kMDItemCopyright": "Håkon Li 2018",
    "kMDItemContentModificationDate": 1518363000,
    "kMDItemContentCreationDate": None,
    "kMDItemKeywords": None,
    "kMDItemPixelWidth": 32,
    "kMDItemPixelHeight": 16,
    "kMDItemLatitude": None,
})

# XMP alone, in a PNG: the default language of a title given in two, and XMP's own date with
# its offset.
write("dusk.png", png(40, 24, lambda x, y: (6 * x, 10 * y, 120)), [
    "-XMP-dc:Title-x-default=Lighthouse at dusk", "-XMP-dc:Title-de=Leuchtturm in der Dämmerung",
    "-XMP-dc:Description=Orange sky over the point.",
    "-XMP-dc:Subject=Leuchtturm", "-XMP-dc:Subject=Dämmerung",
    "-XMP-dc:Creator=Mia Sørensen",
    "-XMP-photoshop:DateCreated=2020-11-02T17:45:00+01:00",
], {
    "kMDItemTitle": "Lighthouse at dusk",
    "kMDItemDescription": "Orange sky over the point.",
    "kMDItemKeywords": ["Leuchtturm", "Dämmerung"],
    "kMDItemAuthors": ["Mia Sørensen"],
    "kMDItemContentCreationDate": 1604335500,
    "kMDItemPixelWidth": 40,
    "kMDItemPixelHeight": 24,
    "kMDItemCopyright": None,
})

# A PNG's own text chunks, where no EXIF, IPTC or XMP says otherwise.
write("tide.png", png(16, 8, lambda x, y: (10 * x, 20 * y, 90), b"".join([
    png_text("Title", "Tide tables"),
    png_text("Author", "Zoë Brandt", b"iTXt"),
    png_text("Description", "High water at 14:02, low water at 20:15.", b"zTXt"),
    png_text("Comment", "Scanned from the harbour office's board."),
    png_text("Copyright", "© 2019 Hafenamt"),
    png_text("Creation Time", "2019-08-30T09:15:00Z"),
])), [], {
    "kMDItemTitle": "Tide tables",
    "kMDItemDescription": "High water at 14:02, low water at 20:15.",
    "kMDItemComment": "Scanned from the harbour office's board.",
    "kMDItemAuthors": ["Zoë Brandt"],
    "kMDItemCopyright": "© 2019 Hafenamt",
    "kMDItemContentCreationDate": 1567156500,
    "kMDItemPixelWidth": 16,
    "kMDItemPixelHeight": 8,
})

# Windows' title tag and EXIF's user comment as the only title and description.
write("pier.jpg", jpeg(24, 16, lambda x, y: 60 + 5 * x + 3 * y), [
    "-EXIF:XPTitle=Pier in fog", "-EXIF:UserComment=Taken from the ferry.",
], {
    "kMDItemTitle": "Pier in fog",
    "kMDItemDescription": "Taken from the ferry.",
    "kMDItemPixelWidth": 24,
    "kMDItemPixelHeight": 16,
})

# HEIF, read only where asked for: EXIF and XMP items of a picture in the ISO media file format.
write("sandbar.heic", heif(64, 48), [
    "-XMP-dc:Title=Sandbar at low water", "-XMP-dc:Creator=Ivo Lindqvist",
    "-EXIF:DateTimeOriginal=2023:06:21 21:40:00", "-EXIF:OffsetTimeOriginal=+01:00",
    "-GPSLatitude=53.5547", "-GPSLatitudeRef=N", "-GPSLongitude=9.2901", "-GPSLongitudeRef=W",
], {
    "kMDItemTitle": "Sandbar at low water",
    "kMDItemAuthors": ["Ivo Lindqvist"],
    "kMDItemContentCreationDate": 1687380000,
    "kMDItemPixelWidth": 64,
    "kMDItemPixelHeight": 48,
    "kMDItemLatitude": 53.5547,
    "kMDItemLongitude": -9.2901,
})

# AVIF, the same container with an AV1 item: a description, keywords and a place south and west.
write("coast.avif", heif(32, 24, avif=True), [
    "-XMP-dc:Title=Coast road", "-XMP-dc:Description=Fog over the coast road at noon",
    "-XMP-dc:Creator=Rosa Ibarra", "-XMP-dc:Subject=fog", "-XMP-dc:Subject=road",
    "-EXIF:DateTimeOriginal=2024:02:03 12:05:00", "-EXIF:OffsetTimeOriginal=-03:00",
    "-GPSLatitude=34.6037", "-GPSLatitudeRef=S", "-GPSLongitude=58.3816", "-GPSLongitudeRef=W",
], {
    "kMDItemTitle": "Coast road",
    "kMDItemDescription": "Fog over the coast road at noon",
    "kMDItemAuthors": ["Rosa Ibarra"],
    "kMDItemKeywords": ["fog", "road"],
    "kMDItemContentCreationDate": 1706972700,
    "kMDItemPixelWidth": 32,
    "kMDItemPixelHeight": 24,
    "kMDItemLatitude": -34.6037,
    "kMDItemLongitude": -58.3816,
})
