#!/usr/bin/env python3
# Writes the iWork fixtures of this folder and their expected answers: run it from anywhere,
# `python3 tests/data/iwork/make_fixtures.py`. Old XML-based iWork documents (Pages '09, Keynote
# 5, Numbers '09) as package folders and as zipped files; zips store their members and gzip
# uses stored blocks, so the bytes never depend on the zlib at hand. Everything else in this
# folder is written anew.

import json
import pathlib
import shutil
import struct
import zipfile
import zlib

HERE = pathlib.Path(__file__).resolve().parent
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
    with zipfile.ZipFile(path, "w", zipfile.ZIP_STORED) as archive:
        for name, data in members:
            info = zipfile.ZipInfo(name, date_time=(2009, 6, 1, 12, 0, 0))
            info.create_system = 3
            info.external_attr = 0o644 << 16
            archive.writestr(info, data)


def write_package(path, members):
    path.mkdir()
    for name, data in members:
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

    for name, expected in fixtures.items():
        (HERE / f"{name}.expect.json").write_text(json.dumps(expected, indent=1) + "\n")


PLIST = (b'<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n<array>\n'
         b"<string>ulvekbot test fixture</string>\n</array>\n</plist>\n")

if __name__ == "__main__":
    main()
