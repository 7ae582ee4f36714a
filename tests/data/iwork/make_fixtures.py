#!/usr/bin/env python3
# Writes the iWork fixtures of this folder and their expected answers: run it from anywhere,
# `python3 tests/data/iwork/make_fixtures.py`. Old XML-based iWork documents (Pages '09, Keynote
# 5, Numbers '09) as package folders and as zipped files, and newer Pages and Keynote documents
# of IWA files (protobuf messages in snappy framing). Zips store their members, gzip uses stored
# blocks and snappy literals only, so the bytes never depend on the compressors at hand.
# Everything else in this folder is written anew.

import json
import pathlib
import shutil
import struct
import sys
import zlib

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import write_zip as write_any_zip  # noqa: E402
NAMESPACES = ('xmlns:sf="http://developer.apple.com/namespaces/sf" '
              'xmlns:sfa="http://developer.apple.com/namespaces/sfa"')
VERSION = "92008102400"  # the version string of the '09 applications


def escape(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace('"', "&quot;")


def gzipped(data):
    """A gzip member of stored deflate blocks, without name or time."""
    out = bytearray(b"\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\xff")
    blocks = [data[i:i + 65535] for i in range(0, len(data), 65535)] or [b""]
    for i, block in enumerate(blocks):
        out += bytes([1 if i == len(blocks) - 1 else 0])
        out += struct.pack("<HH", len(block), len(block) ^ 0xFFFF) + block
    return bytes(out + struct.pack("<II", zlib.crc32(data), len(data)))


def write_zip(path, members):
    write_any_zip(path, members, (2009, 6, 1, 12, 0, 0))


def write_package(path, members):
    for name, data in members:
        (path / name).parent.mkdir(parents=True, exist_ok=True)
        (path / name).write_bytes(data)


def sf_metadata(prefix, title=None, author=None, keywords=None):
    fields = [("title", title), ("authors", author), ("keywords", keywords)]
    inner = "".join(f'<{prefix}:{name}><{prefix}:string sfa:string="{escape(value)}"/>'
                    f"</{prefix}:{name}>" for name, value in fields if value)
    return f"<{prefix}:metadata>{inner}</{prefix}:metadata>" if inner else ""


def expected_metadata(title=None, author=None, keywords=None):
    # libetonyek hands the title on as the subject.
    return {"kMDItemSubject": title, "kMDItemAuthors": [author] if author else None,
            "kMDItemKeywords": [keywords] if keywords else None, "kMDItemTitle": None}


def storage(paragraphs):
    """A text storage; each paragraph is a list of runs: a string, ("span", text), "\\t" for a
    tab or "\\n" for a line break."""
    body = ""
    for runs in paragraphs:
        inner = ""
        for run in runs:
            if run == "\t":
                inner += "<sf:tab/>"
            elif run == "\n":
                inner += "<sf:lnbr/>"
            elif isinstance(run, tuple):
                inner += f"<sf:span>{escape(run[1])}</sf:span>"
            else:
                inner += escape(run)
        body += f"<sf:p>{inner}</sf:p>\n"
    return f"<sf:text-storage><sf:text-body>{body}</sf:text-body></sf:text-storage>"


def plain(paragraphs):
    return "".join("".join(r[1] if isinstance(r, tuple) else r for r in runs) + "\n"
                   for runs in paragraphs)


def pages(meta, paragraphs):
    body = storage(paragraphs).replace("<sf:text-storage>", '<sf:text-storage sf:kind="body">')
    xml = (f'<?xml version="1.0" encoding="UTF-8"?>\n<sl:document '
           f'xmlns:sl="http://developer.apple.com/namespaces/sl" {NAMESPACES} '
           f'sl:version="{VERSION}">\n{sf_metadata("sf", **meta)}\n{body}\n</sl:document>\n')
    return xml.encode(), {"kMDItemTextContent": plain(paragraphs), **expected_metadata(**meta)}


def shape(paragraphs):
    return ('<sf:shape><sf:geometry><sf:naturalSize sfa:w="600" sfa:h="80"/>'
            '<sf:position sfa:x="40" sfa:y="300"/></sf:geometry><sf:path><sf:bezier-path>'
            '<sf:bezier sfa:path="M 0 0 L 600 0 L 600 80 L 0 80 Z"/></sf:bezier-path></sf:path>'
            f"<sf:text>{storage(paragraphs)}</sf:text></sf:shape>")


def keynote(meta, slides):
    """Slides of {title, body, shape, notes}, each a list of paragraphs. The title and body sit in
    placeholders, which libetonyek draws only when they have a placeholder style."""
    xml = (f'<?xml version="1.0" encoding="UTF-8"?>\n<key:presentation '
           f'xmlns:key="http://developer.apple.com/namespaces/keynote2" {NAMESPACES} '
           f'key:version="{VERSION}">\n<key:size sfa:w="800" sfa:h="600"/>\n'
           f'{sf_metadata("key", **meta)}\n<key:slide-list>\n')
    text = ""
    for number, slide in enumerate(slides, 1):
        xml += (f'<key:slide sfa:ID="slide-{number}">\n<key:stylesheet sfa:ID="sheet-{number}">'
                f'<sf:styles><sf:placeholder-style sfa:ID="style-{number}"/></sf:styles>'
                "</key:stylesheet>\n")
        refs = ""
        for kind in ("title", "body"):
            if kind in slide:
                name = f"{kind}-{number}"
                xml += (f'<key:{kind}-placeholder sfa:ID="{name}"><sf:style>'
                        f'<sf:placeholder-style-ref sfa:IDREF="style-{number}"/></sf:style>'
                        f"<key:text>{storage(slide[kind])}</key:text></key:{kind}-placeholder>\n")
                refs += f'<sf:{kind}-placeholder-ref sfa:IDREF="{name}"/>'
        shapes = "".join(shape(s) for s in slide.get("shapes", []))
        xml += (f"<key:page><sf:layers><sf:layer><sf:drawables>{refs}{shapes}"
                "</sf:drawables></sf:layer></sf:layers></key:page>\n")
        if "notes" in slide:
            xml += f"<key:notes>{storage(slide['notes'])}</key:notes>\n"
        xml += "</key:slide>\n"
        # Every text box of a slide followed by an empty line, then its notes.
        boxes = [slide[k] for k in ("title", "body") if k in slide] + slide.get("shapes", [])
        text += "".join(plain(box) + "\n" for box in boxes) + plain(slide.get("notes", []))
    xml += "</key:slide-list>\n</key:presentation>\n"
    return xml.encode(), {"kMDItemTextContent": text, **expected_metadata(**meta)}


def cell(value, first):
    move = ' sf:ct="0"' if first else ""
    if isinstance(value, str):
        return f'<sf:t{move}><sf:ct sfa:s="{escape(value)}"/></sf:t>'
    return f'<sf:n{move} sf:v="{value}"/>'


def numbers(meta, sheets):
    """Sheets of named tables, each a list of rows. A table's first cell moves to column 0
    (sf:ct="0"); the others follow row by row."""
    xml = (f'<?xml version="1.0" encoding="UTF-8"?>\n<ls:document '
           f'xmlns:ls="http://developer.apple.com/namespaces/ls" {NAMESPACES} '
           f'ls:version="{VERSION}">\n{sf_metadata("sf", **meta)}\n<ls:workspace-array>\n')
    text = ""
    for number, (name, rows) in enumerate(sheets, 1):
        columns = len(rows[0])
        cells = "".join(cell(v, i == 0 and j == 0) for i, row in enumerate(rows)
                        for j, v in enumerate(row))
        xml += (f'<ls:workspace ls:workspace-name="{escape(name)}"><ls:page-info><sf:layers>'
                f'<sf:layer><sf:drawables><sf:tabular-info sfa:ID="info-{number}">'
                f'<sf:geometry><sf:naturalSize sfa:w="{100 * columns}" sfa:h="{20 * len(rows)}"/>'
                '<sf:position sfa:x="0" sfa:y="0"/></sf:geometry>'
                f'<sf:tabular-model sfa:ID="model-{number}" sf:name="{escape(name)}">'
                f'<sf:grid sf:numcols="{columns}" sf:numrows="{len(rows)}"><sf:columns>'
                + '<sf:grid-column sf:width="100"/>' * columns + "</sf:columns><sf:rows>"
                + '<sf:grid-row sf:height="20"/>' * len(rows)
                + f"</sf:rows><sf:datasource>{cells}</sf:datasource></sf:grid>"
                "</sf:tabular-model></sf:tabular-info></sf:drawables></sf:layer></sf:layers>"
                "</ls:page-info></ls:workspace>\n")
        # Cells separated by tabs, a text cell followed by a space, one row a line.
        text += "".join("\t".join(v + " " if isinstance(v, str) else f"{v:g}" for v in row) + "\n"
                        for row in rows)
    xml += "</ls:workspace-array>\n</ls:document>\n"
    return xml.encode(), {"kMDItemTextContent": text, **expected_metadata(**meta)}


def varint(number):
    out = bytearray()
    while True:
        out.append(number & 0x7F | (0x80 if number > 0x7F else 0))
        number >>= 7
        if not number:
            return bytes(out)


def field(number, value):
    """A protobuf field: a varint for an int, length-delimited for bytes."""
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    return varint(number << 3 | 2) + varint(len(value)) + value


def iwa(objects):
    """An IWA file of (identifier, message type, message) objects: each an ArchiveInfo header
    (identifier, MessageInfo with type, version and length) before its message, all in one
    snappy chunk of literals."""
    raw = b""
    for identifier, kind, message in objects:
        header = field(1, identifier) + field(2, field(1, kind) + field(2, varint(1)) +
                                              field(3, len(message)))
        raw += varint(len(header)) + header + message
    block = varint(len(raw)) + b"".join(bytes([(len(raw[i:i + 60]) - 1) << 2]) + raw[i:i + 60]
                                        for i in range(0, len(raw), 60))
    return b"\0" + struct.pack("<I", len(block))[:3] + block


def iwa_storage(paragraphs):
    """A text storage (type 2001): the paragraphs a line apart, with a table of where each
    starts."""
    text = "\n".join(paragraphs)
    starts = [sum(len(p) + 1 for p in paragraphs[:i]) for i in range(len(paragraphs))]
    table = b"".join(field(1, field(1, start)) for start in starts)
    return field(1, 0) + field(3, text.encode()) + field(5, table)


def iwa_members(objects):
    """Index/Document.iwa holding every object, and Index/Metadata.iwa whose package metadata
    (object 2) names that one component."""
    metadata = iwa([(2, 11006, field(3, field(1, 1) + field(2, b"Document")))])
    return [("Index/Document.iwa", iwa(objects)), ("Index/Metadata.iwa", metadata)]


def reference(number, identifier):
    return field(number, field(1, identifier))


def pages_iwa(paragraphs):
    """The document (object 1, type 10000) refers to its body storage."""
    members = iwa_members([(1, 10000, reference(4, 10)), (10, 2001, iwa_storage(paragraphs))])
    return members, {"kMDItemTextContent": plain([[p] for p in paragraphs]),
                     **expected_metadata()}


def keynote_iwa(slides):
    """Slides of {title, body, notes}: the document (type 1) refers to the show (2), its slide
    list (4) to the slides (5), a slide to its title and body placeholders (7, kinds 2 and 3,
    each a drawable with a storage) and its notes (15)."""
    objects, text, slide_refs = [], "", b""
    for number, slide in enumerate(slides):
        base = 100 * (number + 1)
        slide_refs += reference(2, base)
        message = b""
        for offset, (kind, code, slot) in enumerate([("title", 2, 5), ("body", 3, 6)]):
            if kind in slide:
                holder, storage = base + 10 + offset, base + 20 + offset
                objects += [(holder, 7, field(1, field(1, b"") + reference(2, storage)) +
                             field(2, code)), (storage, 2001, iwa_storage(slide[kind]))]
                message += reference(slot, holder)
                text += plain([[p] for p in slide[kind]]) + "\n"
        if "notes" in slide:
            objects += [(base + 30, 15, reference(1, base + 31)),
                        (base + 31, 2001, iwa_storage(slide["notes"]))]
            message += reference(27, base + 30)
            text += plain([[p] for p in slide["notes"]])
        objects.append((base, 5, message))
    objects = [(1, 1, reference(2, 20)), (20, 2, field(3, reference(1, 30))),
               (30, 4, slide_refs)] + objects
    return iwa_members(objects), {"kMDItemTextContent": text, **expected_metadata()}


def main():
    for path in HERE.iterdir():
        if path.name != pathlib.Path(__file__).name:
            shutil.rmtree(path) if path.is_dir() else path.unlink()
    fixtures = {}

    xml, fixtures["harbour.pages"] = pages(
        {"title": "Harbour notes", "author": "Ines Marlow", "keywords": "tides, ferries"},
        [["The morning ferry left the quay at seven."],
         ["Gulls ", ("span", "followed"), " it past the lighthouse,", "\n",
          "then turned back", "\t", "for the nets."],
         ["By noon the harbour was still."]])
    write_package(HERE / "harbour.pages", [("index.xml", xml)])

    xml, fixtures["allotment.pages"] = pages(
        {"author": "Ravi Okafor"},
        [["Plot twelve grows beans and rhubarb."], ["The shed key hangs under the water butt."]])
    write_zip(HERE / "allotment.pages", [("index.xml", xml),
                                         ("buildVersionHistory.plist", PLIST)])

    xml, fixtures["orchard.key"] = keynote(
        {"title": "Orchard survey", "author": "Tomas Reyes"},
        [{"title": [["Apple trees by the river"]],
          "body": [["Forty rows were counted in May."], ["Most of them blossomed."]],
          "shapes": [[["Pears grew ", ("span", "on the"), " south wall."]]],
          "notes": [["Mention the late frost."]]},
         {"shapes": [[["A second slide about plums."]]]}])
    write_package(HERE / "orchard.key", [("index.apxl.gz", gzipped(xml))])

    xml, fixtures["lecture.key"] = keynote(
        {"keywords": "owls, night"},
        [{"title": [["Barn owls hunt by ear"]], "body": [["They hear a vole under snow."]]}])
    write_zip(HERE / "lecture.key", [("index.apxl", xml), ("buildVersionHistory.plist", PLIST)])

    xml, fixtures["seeds.numbers"] = numbers(
        {"title": "Seed ledger", "author": "Mara Lind"},
        [("Spring", [["Seed", "Packets"], ["Marigold", 14], ["Borage", 3.5]]),
         ("Autumn", [["Bulb", "Crates", "Bed"], ["Crocus", 2, "North"]])])
    write_package(HERE / "seeds.numbers", [("index.xml.gz", gzipped(xml))])

    xml, fixtures["tides.numbers"] = numbers(
        {}, [("Week", [["Day", "High water"], ["Monday", 4.2], ["Tuesday", 4.6]])])
    write_zip(HERE / "tides.numbers", [("index.xml", xml)])

    # Newer documents of IWA files: Pages zipped and as a package folder keeping them in
    # Index.zip, Keynote zipped. Without Metadata/DocumentIdentifier libetonyek takes such a
    # document for a part of one only.
    identifier = [("Metadata/DocumentIdentifier", b"6F1C2A90-5E3B-4D7A-9C21-0B8E4F6A7D13")]
    members, fixtures["almanac.pages"] = pages_iwa(
        ["Frost came early to the upper fields this year.",
         "The almanac had promised a mild October.", "Nobody trusts it now."])
    write_zip(HERE / "almanac.pages", members + identifier)
    members, fixtures["rota.pages"] = pages_iwa(
        ["Milking: Ada on weekdays, Bram on Sundays.", "Fences get walked every Friday."])
    write_package(HERE / "rota.pages", identifier)
    write_zip(HERE / "rota.pages" / "Index.zip", members)

    members, fixtures["hives.key"] = keynote_iwa(
        [{"title": ["Beekeeping in winter"],
          "body": ["Keep the hive dry.", "Feed sugar fondant in February."],
          "notes": ["Bring the smoker to the meeting."]},
         {"title": ["Questions from the club"]}])
    write_zip(HERE / "hives.key", members + identifier)

    for name, expected in fixtures.items():
        (HERE / f"{name}.expect.json").write_text(json.dumps(expected, indent=1) + "\n")


PLIST = (b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n<array>\n'
         b"<string>ulvekbot test fixture</string>\n</array>\n</plist>\n")

if __name__ == "__main__":
    main()
