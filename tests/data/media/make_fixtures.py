#!/usr/bin/env python3
# Writes the audio fixtures beside this script: python3 tests/data/media/make_fixtures.py
#
# Every byte is written here: tags frame by frame, and silence whose length is known exactly
# (silent MPEG frames, FLAC frames of one constant, PCM samples, Vorbis packets with the floor
# unused). Each NAME has NAME.expect.json beside it: the attributes the Media importer writes, by
# their kMDItem names (durations in seconds, null for an attribute that must be absent).

import hashlib
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import box, full_box, write_json  # noqa: E402


def write(name, data, expected):
    (HERE / name).write_bytes(data)
    write_json(HERE / (name + ".expect.json"), expected)


# --- MPEG audio: Layer III frames with zero side information, which decode to silence.

def mpeg_frames(count, rate, kbps, stereo):
    rate_index = {44100: 0, 48000: 1, 32000: 2}[rate]
    bitrate_index = [0, 32, 40, 48, 56, 64, 80, 96, 112, 128].index(kbps)
    header = bytes([0xFF, 0xFB, bitrate_index << 4 | rate_index << 2, 0x00 if stereo else 0xC0])
    size = 144 * kbps * 1000 // rate  # no padding needed: the rates divide evenly
    assert 144 * kbps * 1000 % rate == 0
    return (header + bytes(size - 4)) * count


def syncsafe(n):
    return bytes([(n >> 21) & 0x7F, (n >> 14) & 0x7F, (n >> 7) & 0x7F, n & 0x7F])


def id3v24(frames, padding=64):
    body = b""
    for frame_id, data in frames:
        body += frame_id.encode() + syncsafe(len(data)) + b"\0\0" + data
    body += bytes(padding)
    return b"ID3\x04\x00\x00" + syncsafe(len(body)) + body


def id3v23(frames):
    body = b""
    for frame_id, data in frames:
        body += frame_id.encode() + struct.pack(">I", len(data)) + b"\0\0" + data
    return b"ID3\x03\x00\x00" + syncsafe(len(body)) + body


def utf8_text(*values):
    return b"\x03" + "\0".join(values).encode("utf-8")


def utf8_described(text, language=b"eng"):
    """COMM and USLT: language, an empty description, the text."""
    return b"\x03" + language + b"\0" + text.encode("utf-8")


def utf16_text(value):
    return b"\x01" + value.encode("utf-16")  # with its byte order mark


def utf16_described(text, language=b"eng"):
    return b"\x01" + language + "".encode("utf-16") + b"\0\0" + text.encode("utf-16")


def id3v1(title, artist, album, year, comment, track, genre):
    def field(text, size):
        data = text.encode("latin-1")
        assert len(data) <= size
        return data + bytes(size - len(data))
    return (b"TAG" + field(title, 30) + field(artist, 30) + field(album, 30) + field(year, 4)
            + field(comment, 28) + b"\0" + bytes([track, genre]))


LYRICS = "Out with the ebb and home with the flood,\nthe gulls know the way."

# ID3v2.4 in UTF-8 with two artists, over 50 frames of 1152 samples at 32 kHz: 1.8 s.
write("tide-song.mp3", id3v24([
    ("TIT2", utf8_text("Tide Song")),
    ("TPE1", utf8_text("Kari Nøstvik", "The Pier Band")),
    ("TALB", utf8_text("Harbour Recordings")),
    ("TCOM", utf8_text("Einar Vik")),
    ("TCON", utf8_text("Folk")),
    ("TDRC", utf8_text("2019")),
    ("TRCK", utf8_text("4/9")),
    ("TCOP", utf8_text("2019 Harbour Recordings")),
    ("COMM", utf8_described("Recorded in one take on the quay.")),
    ("USLT", utf8_described(LYRICS)),
]) + mpeg_frames(50, 32000, 32, False), {
    "kMDItemTitle": "Tide Song",
    "kMDItemAuthors": ["Kari Nøstvik", "The Pier Band"],
    "kMDItemAlbum": "Harbour Recordings",
    "kMDItemComposer": "Einar Vik",
    "kMDItemMusicalGenre": "Folk",
    "kMDItemComment": "Recorded in one take on the quay.",
    "kMDItemCopyright": "2019 Harbour Recordings",
    "kMDItemRecordingYear": 2019,
    "kMDItemAudioTrackNumber": 4,
    "kMDItemTextContent": LYRICS,
    "kMDItemDurationSeconds": 1.8,
    "kMDItemAudioBitRate": 32000,
    "kMDItemAudioSampleRate": 32000,
    "kMDItemAudioChannelCount": 1,
})

# ID3v2.3 in UTF-16, and an ID3v1 tag at the end that loses to it and is not audio: 1.2 s of
# stereo at 48 kHz.
write("ferry-horn.mp3", id3v23([
    ("TIT2", utf16_text("Færgehorn")),
    ("TPE1", utf16_text("Åse Lund")),
    ("TALB", utf16_text("Sounds of the Fjord")),
    ("TYER", utf16_text("2005")),
    ("TRCK", utf16_text("11")),
    ("COMM", utf16_described("Two blasts: leaving the berth.")),
]) + mpeg_frames(50, 48000, 64, True) + id3v1(
    "Old v1 title", "Old v1 artist", "Old v1 album", "1990", "v1 comment", 1, 255), {
    "kMDItemTitle": "Færgehorn",
    "kMDItemAuthors": ["Åse Lund"],
    "kMDItemAlbum": "Sounds of the Fjord",
    "kMDItemComment": "Two blasts: leaving the berth.",
    "kMDItemRecordingYear": 2005,
    "kMDItemAudioTrackNumber": 11,
    "kMDItemTextContent": None,
    "kMDItemDurationSeconds": 1.2,
    "kMDItemAudioSampleRate": 48000,
    "kMDItemAudioChannelCount": 2,
})

# ID3v1 alone (Latin-1; genre 80 is Folk): 0.9 s.
write("old-tape.mp3", mpeg_frames(25, 32000, 32, False) + id3v1(
    "Old Tape", "Jens Møller", "Cellar Finds", "1987", "Found in a box", 7, 80), {
    "kMDItemTitle": "Old Tape",
    "kMDItemAuthors": ["Jens Møller"],
    "kMDItemAlbum": "Cellar Finds",
    "kMDItemMusicalGenre": "Folk",
    "kMDItemComment": "Found in a box",
    "kMDItemRecordingYear": 1987,
    "kMDItemAudioTrackNumber": 7,
    "kMDItemDurationSeconds": 0.9,
})


# --- FLAC: STREAMINFO, Vorbis comments, padding, then frames whose one subframe is a constant.

def crc8(data):
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = ((crc << 1) ^ 0x07) & 0xFF if crc & 0x80 else (crc << 1) & 0xFF
    return crc


def crc16(data):
    crc = 0
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = ((crc << 1) ^ 0x8005) & 0xFFFF if crc & 0x8000 else (crc << 1) & 0xFFFF
    return crc


def vorbis_comments(vendor, comments):
    data = struct.pack("<I", len(vendor)) + vendor.encode() + struct.pack("<I", len(comments))
    for key, value in comments:
        entry = (key + "=" + value).encode("utf-8")
        data += struct.pack("<I", len(entry)) + entry
    return data


def flac(comments, rate, block, blocks):
    # 48 kHz mono 16-bit, fixed block size given after the header.
    assert rate == 48000
    frames = b""
    for number in range(blocks):
        assert number < 128  # the frame number's UTF-8 form is then one byte
        header = bytes([0xFF, 0xF8, 0x7A, 0x08, number]) + struct.pack(">H", block - 1)
        frame = header + bytes([crc8(header)]) + b"\x00" + b"\x00\x00"
        frames += frame + struct.pack(">H", crc16(frame))
    samples = block * blocks
    frame_size = len(frames) // blocks
    info = struct.pack(">HH", block, block) + frame_size.to_bytes(3, "big") * 2
    info += ((rate << 44) | (0 << 41) | (15 << 36) | samples).to_bytes(8, "big")
    info += hashlib.md5(bytes(2 * samples)).digest()
    tags = vorbis_comments("ulvekbot fixtures", comments)
    return (b"fLaC" + b"\x00" + len(info).to_bytes(3, "big") + info
            + b"\x04" + len(tags).to_bytes(3, "big") + tags
            + b"\x81" + (32).to_bytes(3, "big") + bytes(32) + frames)


GULL_LYRICS = "One gull, then two,\nthen the whole grey sky."
write("gull.flac", flac([
    ("TITLE", "Gull Call"), ("ARTIST", "Liv Ørn"), ("ARTIST", "Nils Ørn"),
    ("ALBUM", "Shore Birds"), ("COMPOSER", "Liv Ørn"), ("GENRE", "Field Recording"),
    ("DATE", "2020"), ("TRACKNUMBER", "2"), ("COMMENT", "Taken at low tide."),
    ("COPYRIGHT", "2020 Liv Ørn"), ("LYRICS", GULL_LYRICS),
], 48000, 4800, 25), {
    "kMDItemTitle": "Gull Call",
    "kMDItemAuthors": ["Liv Ørn", "Nils Ørn"],
    "kMDItemAlbum": "Shore Birds",
    "kMDItemComposer": "Liv Ørn",
    "kMDItemMusicalGenre": "Field Recording",
    "kMDItemComment": "Taken at low tide.",
    "kMDItemCopyright": "2020 Liv Ørn",
    "kMDItemRecordingYear": 2020,
    "kMDItemAudioTrackNumber": 2,
    "kMDItemTextContent": GULL_LYRICS,
    "kMDItemDurationSeconds": 2.5,
    "kMDItemAudioSampleRate": 48000,
    "kMDItemAudioChannelCount": 1,
})


# --- WAV: 8-bit PCM silence with a LIST/INFO chunk, or an ID3v2 tag in an "id3 " chunk.

def riff_chunk(kind, data):
    return kind + struct.pack("<I", len(data)) + data + (b"\0" if len(data) % 2 else b"")


def wav(rate, seconds, info=(), id3=b""):
    fmt = struct.pack("<HHIIHH", 1, 1, rate, rate, 1, 8)
    body = b"WAVE" + riff_chunk(b"fmt ", fmt)
    if info:
        entries = b"".join(riff_chunk(key.encode(), value.encode("latin-1") + b"\0")
                           for key, value in info)
        body += riff_chunk(b"LIST", b"INFO" + entries)
    body += riff_chunk(b"data", b"\x80" * int(rate * seconds))
    if id3:
        body += riff_chunk(b"id3 ", id3)
    return b"RIFF" + struct.pack("<I", len(body)) + body


# TagLib 1.13 answers a WAV file's ID3v2 tag as its tag, so of the INFO fields only those the
# importer takes from the property map (the artist) come through yet; title, album, comment,
# genre, year and track are left out here until it reads them.
write("bell.wav", wav(8000, 1.25, info=[
    ("INAM", "Harbour Bell"), ("IART", "Tor Sande"), ("IPRD", "Quay Sounds"),
    ("ICMT", "Struck three times."), ("IGNR", "Ambient"), ("ICRD", "2017"), ("IPRT", "5"),
]), {
    "kMDItemAuthors": ["Tor Sande"],
    "kMDItemDurationSeconds": 1.25,
    "kMDItemAudioBitRate": 64000,
    "kMDItemAudioSampleRate": 8000,
    "kMDItemAudioChannelCount": 1,
})

write("foghorn.wav", wav(4000, 0.5, id3=id3v24([
    ("TIT2", utf8_text("Foghorn, Two Tones")), ("TPE1", utf8_text("Tor Sande")),
    ("TALB", utf8_text("Quay Sounds")), ("TDRC", utf8_text("2017")),
    ("COMM", utf8_described("Low, then lower.")),
], padding=0)), {
    "kMDItemTitle": "Foghorn, Two Tones",
    "kMDItemAuthors": ["Tor Sande"],
    "kMDItemAlbum": "Quay Sounds",
    "kMDItemComment": "Low, then lower.",
    "kMDItemRecordingYear": 2017,
    "kMDItemDurationSeconds": 0.5,
    "kMDItemAudioBitRate": 32000,
    "kMDItemAudioSampleRate": 4000,
})


# --- Ogg Vorbis: the three headers and silent packets, in pages with their checksums.
# The setup header is the smallest complete one: one two-entry codebook, a floor 1 without
# partitions, an empty residue, one mapping and one short-block mode. Every audio packet is one
# byte: an audio packet whose channel's floor is unused, so it decodes to 128 silent samples.

def ogg_crc(data):
    crc = 0
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = ((crc << 1) ^ 0x04C11DB7) & 0xFFFFFFFF if crc & 0x80000000 else (
                crc << 1) & 0xFFFFFFFF
    return crc


def ogg_page(packets, granule, sequence, flags):
    lacing = b""
    for packet in packets:
        lacing += b"\xff" * (len(packet) // 255) + bytes([len(packet) % 255])
    header = (b"OggS\x00" + bytes([flags]) + struct.pack("<qII", granule, 0x554C5645, sequence)
              + b"\0\0\0\0" + bytes([len(lacing)]) + lacing)
    page = header + b"".join(packets)
    return page[:22] + struct.pack("<I", ogg_crc(page)) + page[26:]


class Bits:
    """Vorbis packs bits from the least significant end of each byte."""

    def __init__(self):
        self.bits = []

    def put(self, value, count):
        self.bits.extend((value >> i) & 1 for i in range(count))

    def bytes(self):
        bits = self.bits + [0] * (-len(self.bits) % 8)
        return bytes(sum(bit << i for i, bit in enumerate(bits[n:n + 8]))
                     for n in range(0, len(bits), 8))


def vorbis_setup():
    bits = Bits()
    bits.put(0, 8)  # one codebook
    bits.put(0x564342, 24), bits.put(1, 16), bits.put(2, 24)  # sync, dimensions, entries
    bits.put(0, 1), bits.put(0, 1), bits.put(0, 5), bits.put(0, 5)  # two codewords of length 1
    bits.put(0, 4)  # no lookup
    bits.put(0, 6), bits.put(0, 16)  # one time-domain placeholder
    bits.put(0, 6), bits.put(1, 16)  # one floor, type 1
    bits.put(0, 5), bits.put(1, 2), bits.put(7, 4)  # no partitions, multiplier 2, range 128
    bits.put(0, 6), bits.put(0, 16)  # one residue, type 0
    bits.put(0, 24), bits.put(0, 24), bits.put(0, 24), bits.put(0, 6), bits.put(0, 8)
    bits.put(0, 3), bits.put(0, 1)  # its one classification has no books
    bits.put(0, 6), bits.put(0, 16)  # one mapping, type 0
    bits.put(0, 1), bits.put(0, 1), bits.put(0, 2)  # one submap, no coupling
    bits.put(0, 8), bits.put(0, 8), bits.put(0, 8)  # submap: floor 0, residue 0
    bits.put(0, 6), bits.put(0, 1), bits.put(0, 16), bits.put(0, 16), bits.put(0, 8)  # mode
    bits.put(1, 1)  # framing
    return b"\x05vorbis" + bits.bytes()


def ogg_vorbis(comments, rate, samples):
    identification = (b"\x01vorbis" + struct.pack("<IBIiii", 0, 1, rate, 0, 0, 0)
                      + bytes([0xB8, 0x01]))  # blocks of 256 and 2048 samples
    comment = b"\x03vorbis" + vorbis_comments("ulvekbot fixtures", comments) + b"\x01"
    packets = -(-samples // 128) + 1  # the first packet only primes the overlap
    half = packets // 2
    return (ogg_page([identification], 0, 0, 0x02)
            + ogg_page([comment, vorbis_setup()], 0, 1, 0x00)
            + ogg_page([b"\x00"] * half, (half - 1) * 128, 2, 0x00)
            # The last page's position ends the stream short of its last block's samples.
            + ogg_page([b"\x00"] * (packets - half), samples, 3, 0x04))


write("wind.ogg", ogg_vorbis([
    ("TITLE", "Wind in the Rigging"), ("ARTIST", "Sunniva Berg"), ("ALBUM", "Quay Sounds"),
    ("DATE", "2018"), ("TRACKNUMBER", "3"), ("GENRE", "Ambient"),
    ("DESCRIPTION", "A north-westerly, recorded from the deck."),
], 8000, 8000), {
    "kMDItemTitle": "Wind in the Rigging",
    "kMDItemAuthors": ["Sunniva Berg"],
    "kMDItemAlbum": "Quay Sounds",
    "kMDItemComment": "A north-westerly, recorded from the deck.",
    "kMDItemRecordingYear": 2018,
    "kMDItemAudioTrackNumber": 3,
    "kMDItemDurationSeconds": 1.0,
    "kMDItemAudioSampleRate": 8000,
    "kMDItemAudioChannelCount": 1,
})


# --- Ogg Opus: its two headers, then one-byte packets (a SILK frame of 20 ms with no data, which
# a decoder fills with silence). The position counts 48 kHz samples from before the pre-skip.

def ogg_opus(comments, seconds, pre_skip=312):
    head = b"OpusHead" + struct.pack("<BBHIhB", 1, 1, pre_skip, 44100, 0, 0)
    tags = b"OpusTags" + vorbis_comments("ulvekbot fixtures", comments)
    end = pre_skip + int(seconds * 48000)
    packets = -(-end // 960)
    half = packets // 2
    return (ogg_page([head], 0, 0, 0x02) + ogg_page([tags], 0, 1, 0x00)
            + ogg_page([b"\x08"] * half, half * 960, 2, 0x00)
            + ogg_page([b"\x08"] * (packets - half), end, 3, 0x04))


write("echo.opus", ogg_opus([
    ("TITLE", "Echo under the Bridge"), ("ARTIST", "Sunniva Berg"), ("ALBUM", "Quay Sounds"),
    ("DATE", "2021"), ("TRACKNUMBER", "8"), ("COMMENT", "Clapped once."),
], 1.5), {
    "kMDItemTitle": "Echo under the Bridge",
    "kMDItemAuthors": ["Sunniva Berg"],
    "kMDItemAlbum": "Quay Sounds",
    "kMDItemComment": "Clapped once.",
    "kMDItemRecordingYear": 2021,
    "kMDItemAudioTrackNumber": 8,
    "kMDItemDurationSeconds": 1.5,
    "kMDItemAudioChannelCount": 1,
})


# --- MP4 audio (.m4a): the boxes a tag reader walks, with iTunes-style items. It declares AAC
# audio of 2.75 s in its media header but holds no samples (its sample tables are empty).

MATRIX = struct.pack(">9I", 0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000)


def item(kind, value, data_type=1):
    data = value.encode("utf-8") if isinstance(value, str) else value
    return box(kind, box(b"data", struct.pack(">II", data_type, 0), data))


def m4a(items, rate, samples, kbps):
    esds = full_box(b"esds", 0,
                    b"\x03\x19\x00\x01\x00",  # elementary stream descriptor, id 1
                    b"\x04\x11\x40\x15" + struct.pack(">BHII", 0, 0, kbps * 1000, kbps * 1000),
                    b"\x05\x02\x12\x10",  # AAC-LC, 44.1 kHz, two channels
                    b"\x06\x01\x02")
    mp4a = box(b"mp4a", bytes(6), struct.pack(">H", 1), bytes(8),
               struct.pack(">HHHHI", 2, 16, 0, 0, rate << 16), esds)
    stbl = box(b"stbl", full_box(b"stsd", 0, struct.pack(">I", 1), mp4a),
               full_box(b"stts", 0, struct.pack(">I", 0)),
               full_box(b"stsc", 0, struct.pack(">I", 0)),
               full_box(b"stsz", 0, struct.pack(">II", 0, 0)),
               full_box(b"stco", 0, struct.pack(">I", 0)))
    minf = box(b"minf", full_box(b"smhd", 0, bytes(4)),
               box(b"dinf", full_box(b"dref", 0, struct.pack(">I", 1),
                                     full_box(b"url ", 1))), stbl)
    milliseconds = samples * 1000 // rate
    mdia = box(b"mdia",
               full_box(b"mdhd", 0, struct.pack(">IIIIHH", 0, 0, rate, samples, 0x55C4, 0)),
               full_box(b"hdlr", 0, bytes(4), b"soun", bytes(12), b"SoundHandler\0"), minf)
    tkhd = full_box(b"tkhd", 7, struct.pack(">IIIII", 0, 0, 1, 0, milliseconds), bytes(8),
                    struct.pack(">HHHH", 0, 0, 0x0100, 0), MATRIX, struct.pack(">II", 0, 0))
    mvhd = full_box(b"mvhd", 0, struct.pack(">IIII", 0, 0, 1000, milliseconds),
                    struct.pack(">IH", 0x10000, 0x0100), bytes(10), MATRIX, bytes(24),
                    struct.pack(">I", 2))
    meta = full_box(b"meta", 0, full_box(b"hdlr", 0, bytes(4), b"mdirappl", bytes(9)),
                    box(b"ilst", *items))
    return (box(b"ftyp", b"M4A ", struct.pack(">I", 0), b"M4A isommp42")
            + box(b"moov", mvhd, box(b"trak", tkhd, mdia), box(b"udta", meta)))


PIER_LYRICS = "Rope on the bollard,\nsalt on the hand."
write("pier.m4a", m4a([
    item(b"\xa9nam", "Pier at Night"), item(b"\xa9ART", "Eirik Haugen"),
    item(b"\xa9alb", "Quay Sounds"), item(b"\xa9wrt", "Eirik Haugen"),
    item(b"\xa9gen", "Ambient"), item(b"\xa9day", "2016"),
    item(b"trkn", struct.pack(">HHHH", 0, 6, 12, 0), 0),
    item(b"\xa9cmt", "Hydrophone under the pier."), item(b"cprt", "2016 Eirik Haugen"),
    item(b"\xa9lyr", PIER_LYRICS),
], 44100, 121275, 96), {
    "kMDItemTitle": "Pier at Night",
    "kMDItemAuthors": ["Eirik Haugen"],
    "kMDItemAlbum": "Quay Sounds",
    "kMDItemComposer": "Eirik Haugen",
    "kMDItemMusicalGenre": "Ambient",
    "kMDItemComment": "Hydrophone under the pier.",
    "kMDItemCopyright": "2016 Eirik Haugen",
    "kMDItemRecordingYear": 2016,
    "kMDItemAudioTrackNumber": 6,
    "kMDItemTextContent": PIER_LYRICS,
    "kMDItemDurationSeconds": 2.75,
    "kMDItemAudioSampleRate": 44100,
    "kMDItemAudioChannelCount": 2,
})
