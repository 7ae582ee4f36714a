# Writers shared by the fixture scripts beside this file; each gives the same bytes on every run.
# A script imports them with
#   sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
import json
import struct
import zipfile
import zlib
from pathlib import Path


def write_json(path, answer, sort_keys=False):
    """An expectation as the scripts write it: one-space indent, characters as they are."""
    Path(path).write_text(json.dumps(answer, ensure_ascii=False, indent=1, sort_keys=sort_keys)
                          + "\n", encoding="utf-8")


def write_fixtures(folder, rows):
    """rows: (name, bytes, expected) or (name, bytes, AppleDouble companion or None, expected);
    each file gets NAME.expect.json, keys sorted."""
    for name, data, *companion, expected in rows:
        (Path(folder) / name).write_bytes(data)
        if companion and companion[0] is not None:
            (Path(folder) / ("._" + name)).write_bytes(companion[0])
        write_json(Path(folder) / (name + ".expect.json"), expected, sort_keys=True)


def write_zip(path, members, date_time, deflate=False, mode=0o644):
    """members: (name, bytes or str) in order, all at one time; stored, or with `deflate` every
    member but "mimetype" deflated. `path` may be a file object."""
    with zipfile.ZipFile(path, "w") as archive:
        for name, data in members:
            info = zipfile.ZipInfo(name, date_time)
            info.create_system = 3
            info.external_attr = mode << 16
            if deflate and name != "mimetype":
                info.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(info, data.encode() if isinstance(data, str) else data)


def png_chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(width, height, pixel, text=b"", colour_type=2):
    """An 8-bit PNG without filtering: `pixel` is one colour (a tuple of samples) or gives each
    point's, pixel(x, y); `text` chunks go before the pixels."""
    colour = pixel if callable(pixel) else (lambda x, y: pixel)
    rows = b"".join(b"\0" + b"".join(bytes(colour(x, y)) for x in range(width))
                    for y in range(height))
    header = struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + png_chunk(b"IHDR", header) + text
            + png_chunk(b"IDAT", zlib.compress(rows, 9)) + png_chunk(b"IEND", b""))


def box(kind, *parts):
    """An ISO base media box (MP4, HEIF)."""
    payload = b"".join(parts)
    return struct.pack(">I", 8 + len(payload)) + kind + payload


def full_box(kind, version_flags, *parts):
    return box(kind, struct.pack(">I", version_flags), *parts)


def resource_fork(resources):
    """A classic resource fork of (type, id, bytes): header, data at 256, then the map (28-byte
    header, type list, reference lists). Types keep the order in which they first appear."""
    types = []
    for kind, _, _ in resources:
        if kind not in types:
            types.append(kind)
    data, references = b"", b""
    type_list = struct.pack(">H", len(types) - 1)
    for kind in types:
        own = [(rid, body) for k, rid, body in resources if k == kind]
        code = kind.encode() if isinstance(kind, str) else kind
        type_list += code + struct.pack(">HH", len(own) - 1, 2 + 8 * len(types) + len(references))
        for rid, body in own:
            # No name; attributes 0 in the byte before the 24-bit data offset.
            references += struct.pack(">hHII", rid, 0xFFFF, len(data), 0)
            data += struct.pack(">I", len(body)) + body
    resource_map = (bytes(24) + struct.pack(">HH", 28, 28 + len(type_list) + len(references))
                    + type_list + references)
    header = struct.pack(">IIII", 256, 256 + len(data), len(data), len(resource_map))
    return header + bytes(240) + data + resource_map


def finder_info(kind, creator):
    return (kind + creator).encode() + bytes(24)


def apple_double(entries):
    """An AppleDouble companion of (entry id, bytes): 9 Finder info, 2 resource fork."""
    table = struct.pack(">II16sH", 0x00051607, 0x00020000, bytes(16), len(entries))
    offset, body = 26 + 12 * len(entries), b""
    for entry_id, data in entries:
        table += struct.pack(">III", entry_id, offset + len(body), len(data))
        body += data
    return table + body
