#!/usr/bin/env python3
# Writes the word-processor fixtures and their expected answers; run from anywhere:
#   python3 tests/data/wordprocessor/make_fixtures.py
# The output is byte-for-byte the same on every run: fixed zip timestamps, stored zip members,
# no clock read.
"""One small document, the seed-exchange ledger, written in every word-processor format the
readers take (DOCX, DOTX, ODT, OTT, FODT, Word 2003 XML, RTF, RTFD, Word 97 .doc, WordPerfect
4.2/5.x/6.x and Mac WordPerfect), each with NAME.expect.json beside it: the text a reader must
give and the attributes it must find. Beside them a password-encrypted DOCX, which no reader
can take."""

import datetime
import json
import math
import struct
import sys
from pathlib import Path
from xml.sax.saxutils import escape

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import png, write_zip as write_any_zip  # noqa: E402

# ---- What the documents say ------------------------------------------------------------------

TITLE = "Seed Exchange Ledger \u2014 Spring"
SUBJECT = "Seeds swapped at the village library"
AUTHOR = "Ingrid \u00d8deg\u00e5rd"
EDITOR = "Tom\u00e1s Ruiz"
KEYWORDS = ["seeds", "library", "ledger"]
COMMENT = "A small ledger written for the reader tests."
CREATED = datetime.datetime(2023, 3, 14, 9, 26, 53, tzinfo=datetime.timezone.utc)
MODIFIED = datetime.datetime(2024, 1, 2, 3, 4, 5, tzinfo=datetime.timezone.utc)
PRINTED = datetime.datetime(2024, 1, 3, 8, 0, 0, tzinfo=datetime.timezone.utc)

HEADING = "Seed Exchange Ledger"
SHELF = "The library keeps a shelf of paper envelopes where neighbours leave seeds for one another."
# Latin letters, Windows-1252 punctuation, letters outside Windows-1252 and CJK.
SWAP = ("Cr\u00e8me br\u00fbl\u00e9e tomatoes, \u00c6r\u00f8 kale and "
        "\u201c\u0141\u00f3d\u017a\u201d beans \u2014 all swapped in April for \u20ac0\u2026 and "
        "\u671d\u9854 seeds too.")
COUNTS = "Counts were checked twice"
LINK = ("See the ", "seed library", " page for the full list.")
# (list, level, text): list 1 counts 1) a) i), list 2 is bullets, list 3 counts I. (1) I.1.1
LIST_ITEMS = [
    (1, 0, "Sort the envelopes by season"),
    (1, 1, "early sowing"),
    (1, 1, "late sowing"),
    (1, 2, "under glass"),
    (1, 0, "Write the keeper\u2019s name on each"),
    (2, 0, "Never trade treated seed"),
    (3, 0, "Autumn"),
    (3, 1, "garlic"),
    (3, 2, "hardneck"),
]
LIST_LABELS = ["1)", "a)", "b)", "i)", "2)", "\u2022", "I.", "(1)", "I.1.1"]
# As LibreOffice's text export writes them: four spaces a level, the label and a space.
LABELLED_ITEMS = ["    " * (level + 1) + f"{label} {text}"
                  for label, (_, level, text) in zip(LIST_LABELS, LIST_ITEMS)]
TABLE = [["Variety", "Packets", "Keeper"], ["Runner bean", "12", "Tom\u00e1s"],
         ["Borage", "", "Anneli"]]
NEXT = ("Next swap:", "the first Saturday in October.")
HYPHENS = ("Label the re", "sealable envelopes in non", "fading ink.")  # soft, then hard
FOOTNOTES = ["Envelopes are reused until they tear.", "Bring a pencil."]
ENDNOTE = "Counted again in May by the Tuesday volunteers."
PAGE_HEADER = "Ledger \u2014 page header"
PAGE_FOOTER = "Page footer"

# The table as a reader shows it: cells a tab apart, an empty cell leaving no second tab.
TABLE_LINES = ["\t".join(cell for cell in row if cell) for row in TABLE]
HYPHENATED = HYPHENS[0] + "\u00ad" + HYPHENS[1] + "\u2011" + HYPHENS[2]


def iso(moment):
    return moment.strftime("%Y-%m-%dT%H:%M:%SZ")


def full_attributes(type_name, author=AUTHOR):
    return {"DocumentType": type_name, "Title": TITLE, "Subject": SUBJECT, "Author": author,
            "Keywords": KEYWORDS, "Comment": COMMENT, "CreationTime": iso(CREATED),
            "ModificationTime": iso(MODIFIED)}


def write_expectation(path, text, attributes):
    answer = {"text": text, "attributes": attributes}
    written = json.dumps(answer, ensure_ascii=False, indent=1) + "\n"
    # Characters that do not show stay escaped, so that the file reads as what it holds.
    for invisible in "\u00a0\u00ad\u2011":
        written = written.replace(invisible, f"\\u{ord(invisible):04x}")
    Path(str(path) + ".expect.json").write_text(written, encoding="utf-8")


def write_zip(path, members):
    """members: (name, bytes or str). Members are stored, not deflated, so that the bytes do not
    depend on the zlib at hand."""
    write_any_zip(path, members, (2024, 1, 2, 3, 4, 4))


# ---- Office Open XML -------------------------------------------------------------------------

W = ('xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main" '
     'xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships"')
XML_DECLARATION = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'


def w_run(text):
    return f'<w:r><w:t xml:space="preserve">{escape(text)}</w:t></w:r>'


def w_para(*runs, style=None, numbering=None):
    properties = ""
    if style or numbering:
        properties = "<w:pPr>"
        if style:
            properties += f'<w:pStyle w:val="{style}"/>'
        if numbering:
            properties += (f'<w:numPr><w:ilvl w:val="{numbering[1]}"/>'
                           f'<w:numId w:val="{numbering[0]}"/></w:numPr>')
        properties += "</w:pPr>"
    return f"<w:p>{properties}{''.join(runs)}</w:p>"


def w_note_reference(kind, number):
    return (f'<w:r><w:rPr><w:rStyle w:val="{kind.capitalize()}Reference"/></w:rPr>'
            f'<w:{kind}Reference w:id="{number}"/></w:r>')


def w_table(rows):
    grid = "".join('<w:gridCol w:w="3000"/>' for _ in rows[0])
    xml = ('<w:tbl><w:tblPr><w:tblW w:w="9000" w:type="dxa"/></w:tblPr>'
           f"<w:tblGrid>{grid}</w:tblGrid>")
    for row in rows:
        xml += "<w:tr>"
        for cell in row:
            xml += ('<w:tc><w:tcPr><w:tcW w:w="3000" w:type="dxa"/></w:tcPr>'
                    f"{w_para(w_run(cell)) if cell else '<w:p/>'}</w:tc>")
        xml += "</w:tr>"
    return xml + "</w:tbl>"


def docx_body():
    items = [w_para(w_run(text), numbering=(number, level)) for number, level, text in LIST_ITEMS]
    return "".join([
        w_para(w_run(HEADING), style="Heading1"),
        w_para(w_run(SHELF), w_note_reference("footnote", 1)),
        w_para(w_run(SWAP)),
        w_para(w_run("Counts were checked "),
               '<w:del w:id="7" w:author="Tom\u00e1s Ruiz" w:date="2024-01-02T03:00:00Z"><w:r>'
               "<w:delText>three times</w:delText></w:r></w:del>"
               '<w:ins w:id="8" w:author="Tom\u00e1s Ruiz" w:date="2024-01-02T03:00:00Z">'
               f"{w_run('twice')}</w:ins>",
               w_note_reference("endnote", 1), w_run(".")),
        w_para(w_run(LINK[0]), f'<w:hyperlink r:id="rId9">{w_run(LINK[1])}</w:hyperlink>',
               w_run(LINK[2])),
        *items,
        w_table(TABLE),
        w_para(w_run(NEXT[0]), "<w:r><w:tab/></w:r>", w_run(NEXT[1]),
               w_note_reference("footnote", 2)),
        w_para(w_run(HYPHENS[0]), "<w:r><w:softHyphen/></w:r>", w_run(HYPHENS[1]),
               "<w:r><w:noBreakHyphen/></w:r>", w_run(HYPHENS[2])),
        # A page number field: the instruction is no text, the result is.
        w_para('<w:r><w:fldChar w:fldCharType="begin"/></w:r>'
               '<w:r><w:instrText xml:space="preserve"> NUMPAGES </w:instrText></w:r>'
               '<w:r><w:fldChar w:fldCharType="separate"/></w:r>', w_run("1"),
               '<w:r><w:fldChar w:fldCharType="end"/></w:r>', w_run(" page in all.")),
        '<w:sectPr><w:headerReference w:type="default" r:id="rId7"/>'
        '<w:footerReference w:type="default" r:id="rId8"/>'
        '<w:pgSz w:w="11906" w:h="16838"/></w:sectPr>',
    ])


def w_notes(kind, texts):
    xml = (f"{XML_DECLARATION}<w:{kind}s {W}>"
           f'<w:{kind} w:type="separator" w:id="-1"><w:p><w:r><w:separator/></w:r></w:p></w:{kind}>'
           f'<w:{kind} w:type="continuationSeparator" w:id="0"><w:p><w:r>'
           f"<w:continuationSeparator/></w:r></w:p></w:{kind}>")
    for number, text in enumerate(texts, 1):
        xml += (f'<w:{kind} w:id="{number}"><w:p><w:pPr><w:pStyle w:val="{kind.capitalize()}Text"/>'
                f'</w:pPr><w:r><w:rPr><w:rStyle w:val="{kind.capitalize()}Reference"/></w:rPr>'
                f"<w:{kind}Ref/></w:r>{w_run(' ' + text)}</w:p></w:{kind}>")
    return xml + f"</w:{kind}s>"


def w_numbering():
    def level(index, kind, text):
        return (f'<w:lvl w:ilvl="{index}"><w:start w:val="1"/><w:numFmt w:val="{kind}"/>'
                f'<w:lvlText w:val="{text}"/><w:lvlJc w:val="left"/></w:lvl>')

    lists = {
        1: [("decimal", "%1)"), ("lowerLetter", "%2)"), ("lowerRoman", "%3)")],
        2: [("bullet", "\u2022")],
        3: [("upperRoman", "%1."), ("decimal", "(%2)"), ("decimal", "%1.%2.%3")],
    }
    xml = f"{XML_DECLARATION}<w:numbering {W}>"
    for number, levels in lists.items():
        xml += f'<w:abstractNum w:abstractNumId="{number + 10}">'
        xml += "".join(level(i, kind, text) for i, (kind, text) in enumerate(levels))
        xml += "</w:abstractNum>"
    for number in lists:
        xml += f'<w:num w:numId="{number}"><w:abstractNumId w:val="{number + 10}"/></w:num>'
    return xml + "</w:numbering>"


def core_properties(title, author, keywords, created, modified=None, subject=None,
                    comment=None):
    xml = (f"{XML_DECLARATION}<cp:coreProperties "
           'xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties" '
           'xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:dcterms="http://purl.org/dc/terms/" '
           'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">'
           f"<dc:title>{escape(title)}</dc:title>")
    if subject:
        xml += f"<dc:subject>{escape(subject)}</dc:subject>"
    xml += f"<dc:creator>{escape(author)}</dc:creator><cp:keywords>{escape(keywords)}</cp:keywords>"
    if comment:
        xml += f"<dc:description>{escape(comment)}</dc:description>"
    xml += (f"<cp:lastModifiedBy>{escape(EDITOR)}</cp:lastModifiedBy><cp:revision>3</cp:revision>"
            f'<dcterms:created xsi:type="dcterms:W3CDTF">{iso(created)}</dcterms:created>')
    if modified:
        xml += f'<dcterms:modified xsi:type="dcterms:W3CDTF">{iso(modified)}</dcterms:modified>'
    return xml + "</cp:coreProperties>"


PACKAGE = "http://schemas.openxmlformats.org/package/2006/"
OFFICE = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/"
WORDPROCESSING = "application/vnd.openxmlformats-officedocument.wordprocessingml."


def relationships_part(relationships):
    """(id, type, target): a relationship to a part of the package, or to a web page."""
    xml = f'{XML_DECLARATION}<Relationships xmlns="{PACKAGE}relationships">'
    for identifier, kind, target in relationships:
        mode = ' TargetMode="External"' if target.startswith("https:") else ""
        xml += f'<Relationship Id="{identifier}" Type="{kind}" Target="{target}"{mode}/>'
    return xml + "</Relationships>"


def docx_package(main_type, body, core, notes=True, numbering=True):
    parts = [("word/document.xml",
              f"{XML_DECLARATION}<w:document {W}><w:body>{body}</w:body></w:document>"),
             ("word/header1.xml",
              f"{XML_DECLARATION}<w:hdr {W}>{w_para(w_run(PAGE_HEADER))}</w:hdr>"),
             ("word/footer1.xml",
              f"{XML_DECLARATION}<w:ftr {W}>{w_para(w_run(PAGE_FOOTER))}</w:ftr>")]
    relationships = [("rId7", OFFICE + "header", "header1.xml"),
                     ("rId8", OFFICE + "footer", "footer1.xml"),
                     ("rId9", OFFICE + "hyperlink", "https://example.org/seeds")]
    if notes:
        parts += [("word/footnotes.xml", w_notes("footnote", FOOTNOTES)),
                  ("word/endnotes.xml", w_notes("endnote", [ENDNOTE]))]
        relationships += [("rId3", OFFICE + "footnotes", "footnotes.xml"),
                          ("rId4", OFFICE + "endnotes", "endnotes.xml")]
    if numbering:
        parts.append(("word/numbering.xml", w_numbering()))
        relationships.append(("rId2", OFFICE + "numbering", "numbering.xml"))
    overrides = [("/word/document.xml", main_type),
                 ("/docProps/core.xml",
                  "application/vnd.openxmlformats-package.core-properties+xml")]
    for name, _ in parts[1:]:
        overrides.append(("/" + name, f"{WORDPROCESSING}{Path(name).stem.rstrip('1')}+xml"))
    types = (f'{XML_DECLARATION}<Types xmlns="{PACKAGE}content-types">'
             '<Default Extension="rels" '
             'ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
             '<Default Extension="xml" ContentType="application/xml"/>'
             + "".join(f'<Override PartName="{n}" ContentType="{t}"/>' for n, t in overrides)
             + "</Types>")
    package = relationships_part([
        ("rId1", OFFICE + "officeDocument", "word/document.xml"),
        ("rId2", PACKAGE + "relationships/metadata/core-properties", "docProps/core.xml")])
    members = [("[Content_Types].xml", types), ("_rels/.rels", package),
               ("word/_rels/document.xml.rels", relationships_part(relationships)),
               *parts, ("docProps/core.xml", core)]
    return members


def write_docx(folder):
    path = folder / "ledger.docx"
    core = core_properties(TITLE, AUTHOR, ", ".join(KEYWORDS), CREATED, MODIFIED, SUBJECT, COMMENT)
    write_zip(path, docx_package(WORDPROCESSING + "document.main+xml", docx_body(), core))
    lines = [HEADING, SHELF + "1", SWAP, COUNTS + ".", "".join(LINK), *LABELLED_ITEMS, *TABLE_LINES,
             NEXT[0] + "\t" + NEXT[1] + "2", HYPHENATED, "1 page in all.",
             *[" " + note for note in FOOTNOTES], " " + ENDNOTE]
    write_expectation(path, "\n".join(lines), full_attributes("NSOfficeOpenXML"))

    # A template: its own main content type, keywords split at semicolons, no notes or lists.
    path = folder / "minutes.dotx"
    body = "".join([
        w_para(w_run("Seed Committee Minutes"), style="Title"),
        w_para(w_run("Date:"), "<w:r><w:tab/></w:r>", w_run("Place: reading room")),
        w_table([["Item", "Owner", "Due"], ["Seed count", "Anneli", "Friday"]]),
        w_para(w_run("Na\u00efve questions are welcome.")),
        '<w:sectPr><w:headerReference w:type="default" r:id="rId7"/></w:sectPr>',
    ])
    core = core_properties("Minutes of the seed committee", EDITOR, "minutes; committee; template",
                           CREATED)
    write_zip(path, docx_package(WORDPROCESSING + "template.main+xml", body, core, notes=False,
                                 numbering=False))
    write_expectation(path, "Seed Committee Minutes\nDate:\tPlace: reading room\nItem\tOwner\tDue\n"
                      "Seed count\tAnneli\tFriday\nNa\u00efve questions are welcome.",
                      {"DocumentType": "NSOfficeOpenXML", "Title": "Minutes of the seed committee",
                       "Author": EDITOR, "Keywords": ["minutes", "committee", "template"],
                       "CreationTime": iso(CREATED)})


# ---- Lists, as LibreOffice's text export labels them -----------------------------------------


def lo_label(level, label):
    """A list item's label as LibreOffice's text export writes it: four spaces a level, the
    label and a space."""
    return "    " * (level + 1) + label + " " if label else ""


# (numId, level, text, label); numId None: a paragraph of no list.
DOCX_LIST_PARAGRAPHS = [
    (1, 0, "Sow the beans", "1."),
    (1, 1, "indoors", "a)"),
    (1, 0, "Water the rows", "2."),
    (1, 2, "every morning", "i."),  # level 1 skipped: it counts as one item
    (1, 1, "and at dusk", "b)"),
    (2, 0, "Tools", "\u2022"),  # LibreOffice's own bullet of each level
    (2, 1, "trowel", "\u25e6"),
    (2, 2, "small", "\u25aa"),
    (None, 0, "Later in the year:", ""),
    (1, 0, "Harvest", "3."),  # the list goes on after other paragraphs
    (3, 0, "Store the seed", "5."),  # a list of the same definition restarting at 5
    (3, 0, "Share the rest", "6."),
    (4, 0, "Spring", "I."),
    (4, 1, "peas", "1.1."),  # legal numbering: every level in decimal
    (6, 0, "A level without numbers", ""),
]


def w_numbering_lists():
    def level(index, kind, text, extra=""):
        return (f'<w:lvl w:ilvl="{index}"><w:start w:val="1"/><w:numFmt w:val="{kind}"/>{extra}'
                f'<w:lvlText w:val="{text}"/><w:lvlJc w:val="left"/></w:lvl>')

    abstracts = {
        20: [level(0, "decimal", "%1."), level(1, "lowerLetter", "%2)"),
             level(2, "lowerRoman", "%3.")],
        21: [level(0, "bullet", "\uf0b7"), level(1, "bullet", "o"), level(2, "bullet", "\uf0a7")],
        22: [level(0, "upperRoman", "%1."), level(1, "decimal", "%1.%2.", "<w:isLgl/>")],
        23: [level(0, "decimal", "Step %1:", '<w:pStyle w:val="ListNumber"/>')],
        24: [level(0, "none", "")],
    }
    xml = f"{XML_DECLARATION}<w:numbering {W}>"
    for number, levels in abstracts.items():
        xml += f'<w:abstractNum w:abstractNumId="{number}">{"".join(levels)}</w:abstractNum>'
    nums = {1: (20, ""), 2: (21, ""),
            3: (20, '<w:lvlOverride w:ilvl="0"><w:startOverride w:val="5"/></w:lvlOverride>'),
            4: (22, ""), 5: (23, ""), 6: (24, "")}
    for number, (abstract, override) in nums.items():
        xml += (f'<w:num w:numId="{number}"><w:abstractNumId w:val="{abstract}"/>{override}'
                "</w:num>")
    return xml + "</w:numbering>"


def w_styles_lists():
    return (f"{XML_DECLARATION}<w:styles {W}>"
            '<w:style w:type="paragraph" w:default="1" w:styleId="Normal"><w:name w:val="Normal"/>'
            "</w:style>"
            '<w:style w:type="paragraph" w:styleId="ListNumber"><w:name w:val="List Number"/>'
            '<w:basedOn w:val="Normal"/><w:pPr><w:numPr><w:numId w:val="5"/></w:numPr></w:pPr>'
            "</w:style>"
            '<w:style w:type="paragraph" w:styleId="Steps"><w:name w:val="Steps"/>'
            '<w:basedOn w:val="ListNumber"/></w:style></w:styles>')


def write_docx_lists(folder):
    paragraphs, lines = [], []
    for number, level, text, label in DOCX_LIST_PARAGRAPHS:
        if text == "Harvest":
            # Tab stops and the properties before a tracked change are no text and no list.
            paragraphs.append(
                '<w:p><w:pPr><w:numPr><w:ilvl w:val="0"/><w:numId w:val="1"/></w:numPr><w:tabs>'
                '<w:tab w:val="left" w:pos="720"/></w:tabs><w:pPrChange w:id="1" w:author="A">'
                '<w:pPr><w:numPr><w:ilvl w:val="0"/><w:numId w:val="2"/></w:numPr></w:pPr>'
                f"</w:pPrChange></w:pPr>{w_run(text)}</w:p>")
        else:
            paragraphs.append(w_para(w_run(text), numbering=number and (number, level)))
        lines.append(lo_label(level, label) + text)
    # Paragraph styles that carry a list, directly and through the style they are based on; a
    # paragraph's own list number 0 takes it out of its style's list.
    for style, text, label in [("ListNumber", "Dig", "Step 1:"), ("Steps", "Rake", "Step 2:"),
                               ("ListNumber", "Rest", "")]:
        paragraphs.append(w_para(w_run(text), style=style, numbering=(0, 0) if not label else None))
        lines.append(lo_label(0, label) + text)
    path = folder / "lists.docx"
    write_zip(path, [("[Content_Types].xml",
                      f'{XML_DECLARATION}<Types xmlns="{PACKAGE}content-types">'
                      '<Default Extension="xml" ContentType="application/xml"/></Types>'),
                     ("word/document.xml", f"{XML_DECLARATION}<w:document {W}><w:body>"
                      f"{''.join(paragraphs)}</w:body></w:document>"),
                     ("word/numbering.xml", w_numbering_lists()),
                     ("word/styles.xml", w_styles_lists())])
    write_expectation(path, "\n".join(lines), {"DocumentType": "NSOfficeOpenXML"})


def write_encrypted_docx(folder):
    """A package encrypted with a password, as Word saves it: a compound file holding how it was
    encrypted and the encrypted package, under the package's name. No reader can take it."""
    description = (struct.pack("<HHI", 4, 4, 0x40)
                   + b'<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\r\n'
                   b'<encryption xmlns="http://schemas.microsoft.com/office/2006/encryption">'
                   b'<keyData saltSize="16" blockSize="16" keyBits="256" hashSize="64" '
                   b'cipherAlgorithm="AES" cipherChaining="ChainingModeCBC" hashAlgorithm="SHA512" '
                   b'saltValue="c2VlZHMgc2VlZHMgc2VlZHM="/></encryption>')
    seed, encrypted = 1, bytearray()
    while len(encrypted) < 1024:
        seed = (seed * 1103515245 + 12345) & 0xFFFFFFFF
        encrypted.append(seed >> 24)
    package = struct.pack("<Q", len(encrypted)) + bytes(encrypted)
    (folder / "encrypted.docx").write_bytes(compound_file(
        [("EncryptionInfo", description), ("EncryptedPackage", package)], root_clsid=bytes(16)))


def write_wordml(folder):
    path = folder / "ledger.xml"
    body = "".join([
        w_para(w_run(HEADING)),
        w_para(w_run(SHELF)),
        w_para(w_run(SWAP)),
        w_table(TABLE),
        w_para(w_run(NEXT[0]), "<w:r><w:tab/></w:r>", w_run(NEXT[1])),
    ])
    xml = (f'{XML_DECLARATION}<?mso-application progid="Word.Document"?>\n'
           '<w:wordDocument xmlns:w="http://schemas.microsoft.com/office/word/2003/wordml" '
           'xmlns:o="urn:schemas-microsoft-com:office:office" '
           'xmlns:wx="http://schemas.microsoft.com/office/word/2003/auxHint">'
           f"<o:DocumentProperties><o:Title>{escape(TITLE)}</o:Title>"
           f"<o:Subject>{escape(SUBJECT)}</o:Subject><o:Author>{escape(AUTHOR)}</o:Author>"
           f"<o:Keywords>{', '.join(KEYWORDS)}</o:Keywords>"
           f"<o:Description>{escape(COMMENT)}</o:Description>"
           f"<o:LastAuthor>{escape(EDITOR)}</o:LastAuthor><o:Revision>3</o:Revision>"
           f"<o:Created>{iso(CREATED)}</o:Created><o:LastSaved>{iso(MODIFIED)}</o:LastSaved>"
           "</o:DocumentProperties>"
           f"<w:body><wx:sect>{body}<w:sectPr><w:hdr w:type=\"odd\">{w_para(w_run(PAGE_HEADER))}"
           "</w:hdr></w:sectPr></wx:sect></w:body></w:wordDocument>")
    path.write_text(xml, encoding="utf-8")
    lines = [HEADING, SHELF, SWAP, *TABLE_LINES, NEXT[0] + "\t" + NEXT[1]]
    write_expectation(path, "\n".join(lines), full_attributes("NSWordML"))


# ---- OpenDocument ----------------------------------------------------------------------------

ODF_NAMESPACES = (
    'xmlns:office="urn:oasis:names:tc:opendocument:xmlns:office:1.0" '
    'xmlns:style="urn:oasis:names:tc:opendocument:xmlns:style:1.0" '
    'xmlns:text="urn:oasis:names:tc:opendocument:xmlns:text:1.0" '
    'xmlns:table="urn:oasis:names:tc:opendocument:xmlns:table:1.0" '
    'xmlns:fo="urn:oasis:names:tc:opendocument:xmlns:xsl-fo-compatible:1.0" '
    'xmlns:xlink="http://www.w3.org/1999/xlink" xmlns:dc="http://purl.org/dc/elements/1.1/" '
    'xmlns:meta="urn:oasis:names:tc:opendocument:xmlns:meta:1.0" '
    'xmlns:manifest="urn:oasis:names:tc:opendocument:xmlns:manifest:1.0" office:version="1.3"')
ODT_TYPE = "application/vnd.oasis.opendocument.text"
ODT_DATE_FORMAT = "%Y-%m-%dT%H:%M:%S"


def odf_paragraph(content, style="Text_20_body"):
    return f'<text:p text:style-name="{style}">{content}</text:p>'


def odf_note(kind, number, citation, text):
    return (f'<text:note text:id="{kind}{number}" text:note-class="{kind}">'
            f"<text:note-citation>{citation}</text:note-citation><text:note-body>"
            f'{odf_paragraph(escape(text), kind.capitalize())}</text:note-body></text:note>')


def odf_list(style, items):
    """items: (level, text) in order; deeper levels nest in the item before them."""
    def build(index, level):
        xml = f'<text:list text:style-name="{style}">' if level == 0 else "<text:list>"
        while index < len(items) and items[index][0] == level:
            xml += "<text:list-item>" + odf_paragraph(escape(items[index][1]), "List_20_Item")
            index += 1
            if index < len(items) and items[index][0] > level:
                inner, index = build(index, level + 1)
                xml += inner
            xml += "</text:list-item>"
        return xml + "</text:list>", index
    return build(0, 0)[0]


def odf_table(rows):
    xml = ('<table:table table:name="Ledger" table:style-name="Ledger">'
           f'<table:table-column table:number-columns-repeated="{len(rows[0])}"/>')
    for row in rows:
        xml += "<table:table-row>"
        for cell in row:
            paragraph = odf_paragraph(escape(cell), "Table_20_Contents") if cell else "<text:p/>"
            xml += f'<table:table-cell office:value-type="string">{paragraph}</table:table-cell>'
        xml += "</table:table-row>"
    return xml + "</table:table>"


def odf_text():
    lists = {number: [(level, text) for n, level, text in LIST_ITEMS if n == number]
             for number in (1, 2, 3)}
    return "".join([
        '<text:sequence-decls><text:sequence-decl text:display-outline-level="0" '
        'text:name="Table"/></text:sequence-decls>',
        '<text:tracked-changes><text:changed-region text:id="ct1"><text:deletion>'
        "<office:change-info><dc:creator>Tom\u00e1s Ruiz</dc:creator></office:change-info>"
        "<text:p>three times</text:p></text:deletion></text:changed-region></text:tracked-changes>",
        f'<text:h text:style-name="Heading_20_1" text:outline-level="1">{HEADING}</text:h>',
        odf_paragraph(escape(SHELF) + odf_note("footnote", 1, "1", FOOTNOTES[0])),
        odf_paragraph(escape(SWAP)),
        odf_paragraph("Counts were checked "
                      '<text:change text:change-id="ct1"/>twice'
                      + odf_note("endnote", 1, "i", ENDNOTE) + "."),
        odf_paragraph(f'{LINK[0]}<text:a xlink:type="simple" '
                      f'xlink:href="https://example.org/seeds">{LINK[1]}</text:a>{LINK[2]}'
                      "<office:annotation><dc:creator>Anneli</dc:creator>"
                      "<text:p>Check the link before printing.</text:p></office:annotation>"),
        odf_list("L1", lists[1]), odf_list("L2", lists[2]), odf_list("L3", lists[3]),
        odf_table(TABLE),
        odf_paragraph(escape(NEXT[0]) + "<text:tab/>" + escape(NEXT[1])
                      + odf_note("footnote", 2, "2", FOOTNOTES[1])),
        odf_paragraph(HYPHENS[0] + "\u00ad" + HYPHENS[1] + "\u2011" + HYPHENS[2]),
        odf_paragraph('Keeper:<text:s text:c="3"/>Anneli<text:line-break/>'
                      "Reserve:<text:s/> Tom\u00e1s"),
    ])


# The OpenDocument reader gives each cell's paragraph a line of its own (the other readers put a
# row on one line, its cells a tab apart).
ODF_TABLE_LINES = [cell for row in TABLE for cell in row if cell]
ODF_TEXT_LINES = [HEADING, SHELF, SWAP, COUNTS + ".", "".join(LINK),
                  *LABELLED_ITEMS, *ODF_TABLE_LINES,
                  NEXT[0] + "\t" + NEXT[1], HYPHENATED, "Keeper:   Anneli\nReserve:  Tom\u00e1s",
                  FOOTNOTES[0], ENDNOTE, FOOTNOTES[1]]


def odf_number_level(level, num_format, prefix="", suffix="", display=1):
    return (f'<text:list-level-style-number text:level="{level}" style:num-prefix="{prefix}" '
            f'style:num-suffix="{suffix}" style:num-format="{num_format}" '
            f'text:display-levels="{display}"/>')


# The ledger's lists: 1) a) i), bullets, and I. (1) I.1.1
ODF_LIST_STYLES = (
    '<text:list-style style:name="L1">' + odf_number_level(1, "1", suffix=")")
    + odf_number_level(2, "a", suffix=")") + odf_number_level(3, "i", suffix=")")
    + '</text:list-style><text:list-style style:name="L2"><text:list-level-style-bullet '
    'text:level="1" text:bullet-char="\u2013"/></text:list-style>'
    '<text:list-style style:name="L3">' + odf_number_level(1, "I", suffix=".")
    + odf_number_level(2, "1", prefix="(", suffix=")") + odf_number_level(3, "1", display=3)
    + "</text:list-style>")


def odf_styles():
    return (f"<office:styles>{ODF_LIST_STYLES}</office:styles>"
            '<office:automatic-styles><style:style style:name="Ledger" style:family="table"/>'
            "</office:automatic-styles>"
            '<office:master-styles><style:master-page style:name="Standard" '
            'style:page-layout-name="pm1"><style:header>'
            f'{odf_paragraph(escape(PAGE_HEADER), "Header")}</style:header><style:footer>'
            f'{odf_paragraph(escape(PAGE_FOOTER), "Footer")}</style:footer></style:master-page>'
            "</office:master-styles>")


def odf_meta(title, keywords, subject=None, comment=None, modified=None):
    xml = "<office:meta><meta:generator>ulvekbot make_fixtures.py</meta:generator>"
    xml += f"<dc:title>{escape(title)}</dc:title>"
    if subject:
        xml += f"<dc:subject>{escape(subject)}</dc:subject>"
    if comment:
        xml += f"<dc:description>{escape(comment)}</dc:description>"
    xml += (f"<meta:initial-creator>{escape(AUTHOR)}</meta:initial-creator>"
            f"<dc:creator>{escape(EDITOR)}</dc:creator>"
            f"<meta:creation-date>{CREATED.strftime(ODT_DATE_FORMAT)}</meta:creation-date>")
    if modified:
        xml += f"<dc:date>{modified.strftime(ODT_DATE_FORMAT)}.120000000</dc:date>"
    xml += "".join(f"<meta:keyword>{escape(word)}</meta:keyword>" for word in keywords)
    xml += ("<meta:editing-cycles>3</meta:editing-cycles>"
            '<meta:document-statistic meta:table-count="1"/>')
    return xml + "</office:meta>"


def write_odf_package(path, media_type, text, meta):
    content = (f"{XML_DECLARATION}<office:document-content {ODF_NAMESPACES}>"
               '<office:font-face-decls><style:font-face style:name="Liberation Serif"/>'
               "</office:font-face-decls><office:automatic-styles>"
               '<style:style style:name="P1" style:family="paragraph"/></office:automatic-styles>'
               f"<office:body><office:text>{text}</office:text></office:body>"
               "</office:document-content>")
    styles = (f"{XML_DECLARATION}<office:document-styles {ODF_NAMESPACES}>{odf_styles()}"
              "</office:document-styles>")
    meta = f"{XML_DECLARATION}<office:document-meta {ODF_NAMESPACES}>{meta}</office:document-meta>"
    manifest = (f'{XML_DECLARATION}<manifest:manifest {ODF_NAMESPACES}>'
                f'<manifest:file-entry manifest:full-path="/" manifest:media-type="{media_type}"/>'
                + "".join(f'<manifest:file-entry manifest:full-path="{name}" '
                          'manifest:media-type="text/xml"/>'
                          for name in ("content.xml", "styles.xml", "meta.xml"))
                + "</manifest:manifest>")
    write_zip(path, [("mimetype", media_type), ("content.xml", content), ("styles.xml", styles),
                     ("meta.xml", meta), ("META-INF/manifest.xml", manifest)])


MATHML = '<math xmlns="http://www.w3.org/1998/Math/MathML" display="block">'


def write_odf_lists(folder):
    """Lists that go on, restart and skip a level, numbered headings, cross-references with and
    without a result of their own, and formulas and a chart in objects of their own."""
    def item(text, start=None, inner=""):
        value = f' text:start-value="{start}"' if start else ""
        return f"<text:list-item{value}>{odf_paragraph(escape(text))}{inner}</text:list-item>"

    outline = ('<text:outline-style style:name="Outline">'
               '<text:outline-level-style text:level="1" style:num-format="1" '
               'style:num-suffix="."/><text:outline-level-style text:level="2" '
               'style:num-format="1" style:num-suffix="." text:display-levels="2"/>'
               "</text:outline-style>")
    styles = ('<text:list-style style:name="Steps">' + odf_number_level(1, "1", suffix=".")
              + odf_number_level(2, "a", suffix=")") + odf_number_level(3, "i", suffix=".")
              + '</text:list-style><text:list-style style:name="Dots">'
              + "".join(f'<text:list-level-style-bullet text:level="{n}" '
                        'text:bullet-char="-"/>' for n in (1, 2, 3)) + "</text:list-style>")
    body = "".join([
        '<text:h text:outline-level="1">Sowing</text:h>',
        '<text:list xml:id="list1" text:style-name="Steps">',
        '<text:list-header><text:p>What to do:</text:p></text:list-header>',
        item("Soak the seed", inner="<text:list>" + item("overnight") + "</text:list>"),
        # An item holding only a list counts for nothing: the label is the inner item's.
        '<text:list-item><text:list><text:list-item><text:list>', item("in rain water"),
        "</text:list></text:list-item></text:list></text:list-item>",
        "</text:list>",
        odf_paragraph('See <text:bookmark-ref text:reference-format="text" '
                      'text:ref-name="tray"/> and <text:sequence-ref '
                      'text:reference-format="category-and-value" text:ref-name="refTable0"/>'
                      ' (<text:bookmark-ref text:reference-format="text" text:ref-name="tray">'
                      "kept result</text:bookmark-ref>)."),
        '<text:list text:continue-numbering="true" text:style-name="Steps">',
        item("Sow in trays"), "</text:list>",
        '<text:list text:style-name="Steps">', item("A new list"), "</text:list>",
        '<text:list text:continue-list="list1" text:style-name="Steps">',
        item("Water"), item("Label", start=7), "</text:list>",
        '<text:list text:style-name="Dots">',
        item("trowel", inner="<text:list>" + item("small") + "</text:list>"), "</text:list>",
        '<text:h text:outline-level="2">Trays</text:h>',
        odf_paragraph('Keep the <text:bookmark-start text:name="tray"/>seed tray'
                      '<text:bookmark-end text:name="tray"/> warm.'),
        odf_paragraph('Table <text:sequence text:ref-name="refTable0" text:name="Table" '
                      'text:formula="ooow:Table+1" style:num-format="1">1</text:sequence>'
                      ": Trays per week"),
        odf_paragraph('Pythagoras: <draw:frame draw:name="Object1"><draw:object '
                      'xlink:href="./Object 1" xlink:type="simple"/><draw:image '
                      'xlink:href="./ObjectReplacements/Object 1"/></draw:frame>'),
        odf_paragraph('Area: <draw:frame draw:name="Object2"><draw:object '
                      'xlink:href="./Object 2" xlink:type="simple"/></draw:frame>'),
        odf_paragraph('<draw:frame draw:name="Object3"><draw:object xlink:href="./Object 3" '
                      'xlink:type="simple"/></draw:frame>'),
    ])
    # A chart: its titles, not the numbers of its table.
    chart = (f"{XML_DECLARATION}<office:document-content {ODF_NAMESPACES} "
             'xmlns:chart="urn:oasis:names:tc:opendocument:xmlns:chart:1.0"><office:body>'
             '<office:chart><chart:chart chart:class="chart:bar"><chart:title><text:p>Seeds '
             "per month</text:p></chart:title><chart:plot-area><chart:axis chart:dimension=\"x\">"
             "<chart:title><text:p>Month</text:p></chart:title></chart:axis></chart:plot-area>"
             '<table:table table:name="local-table"><table:table-rows><table:table-row>'
             "<table:table-cell><text:p>412</text:p></table:table-cell></table:table-row>"
             "</table:table-rows></table:table></chart:chart></office:chart></office:body>"
             "</office:document-content>")
    pythagoras = (f"{XML_DECLARATION}{MATHML}<semantics><mrow><msup><mi>a</mi><mn>2</mn></msup>"
                  "<mo>+</mo><msup><mi>b</mi><mn>2</mn></msup><mo>=</mo><msup><mi>c</mi>"
                  '<mn>2</mn></msup></mrow><annotation encoding="StarMath 5.0">'
                  "a^2 + b^2 = c^2</annotation></semantics></math>")
    # No StarMath source: the symbols, operators a space apart.
    area = (f"{XML_DECLARATION}{MATHML}<mrow><mi>A</mi><mo>=</mo><mi>\u03c0</mi>"
            "<mo>\u2062</mo><msup><mi>r</mi><mn>2</mn></msup></mrow></math>")
    content = (f"{XML_DECLARATION}<office:document-content {ODF_NAMESPACES}>"
               f"<office:automatic-styles>{styles}</office:automatic-styles>"
               f"<office:body><office:text>{body}</office:text></office:body>"
               "</office:document-content>")
    document_styles = (f"{XML_DECLARATION}<office:document-styles {ODF_NAMESPACES}>"
                       f"<office:styles>{outline}</office:styles></office:document-styles>")
    path = folder / "lists.odt"
    write_zip(path, [("mimetype", ODT_TYPE), ("content.xml", content),
                     ("styles.xml", document_styles), ("Object 1/content.xml", pythagoras),
                     ("Object 2/content.xml", area), ("Object 3/content.xml", chart)])
    lines = ["    1. Sowing", "What to do:", "    1. Soak the seed", "        a) overnight",
             "            i. in rain water", "See seed tray and Table 1 (kept result).",
             "    2. Sow in trays", "    1. A new list", "    3. Water", "    7. Label",
             "    \u2022 trowel", "        \u25e6 small", "        1.1. Trays",
             "Keep the seed tray warm.", "Table 1: Trays per week",
             "Pythagoras: a^2 + b^2 = c^2", "Area: A = \u03c0r2", "Seeds per month Month"]
    write_expectation(path, "\n".join(lines), {"DocumentType": "NSOpenDocument"})

    # A flat document keeps its formulas inside the frame; the replacement picture is no text.
    path = folder / "formula.fodt"
    formula = ('<draw:frame><draw:object><math:math xmlns:math="http://www.w3.org/1998/Math/MathML">'
               "<math:semantics><math:mrow><math:mi>E</math:mi><math:mo>=</math:mo><math:mi>m"
               "</math:mi><math:msup><math:mi>c</math:mi><math:mn>2</math:mn></math:msup>"
               '</math:mrow><math:annotation encoding="StarMath 5.0">E = m c^2</math:annotation>'
               "</math:semantics></math:math></draw:object><draw:image><office:binary-data>"
               "iVBORw0KGgo=</office:binary-data></draw:image></draw:frame>")
    path.write_text(f'{XML_DECLARATION}<office:document {ODF_NAMESPACES} '
                    f'office:mimetype="{ODT_TYPE}"><office:body><office:text>'
                    f"{odf_paragraph('Einstein: ' + formula + ' in short.')}</office:text>"
                    "</office:body></office:document>", encoding="utf-8")
    write_expectation(path, "Einstein: E = m c^2 in short.", {"DocumentType": "NSOpenDocument"})


def odf_attributes():
    # The creator who started the document is its author; the date carries nanoseconds.
    attributes = full_attributes("NSOpenDocument")
    attributes["ModificationTime"] = MODIFIED.strftime(ODT_DATE_FORMAT) + ".12Z"
    return attributes


def write_odf(folder):
    path = folder / "ledger.odt"
    meta = odf_meta(TITLE, KEYWORDS, SUBJECT, COMMENT, MODIFIED)
    write_odf_package(path, ODT_TYPE, odf_text(), meta)
    write_expectation(path, "\n".join(ODF_TEXT_LINES), odf_attributes())

    # The same document as one flat XML file.
    path = folder / "ledger.fodt"
    xml = (f'{XML_DECLARATION}<office:document {ODF_NAMESPACES} office:mimetype="{ODT_TYPE}">'
           f"{meta}{odf_styles()}<office:body><office:text>{odf_text()}</office:text>"
           "</office:body></office:document>")
    path.write_text(xml, encoding="utf-8")
    write_expectation(path, "\n".join(ODF_TEXT_LINES), odf_attributes())

    # A template, keywords in one element separated by commas.
    path = folder / "minutes.ott"
    text = (f'<text:h text:outline-level="1">Seed Committee Minutes</text:h>'
            + odf_paragraph("Date:<text:tab/>Place: reading room")
            + odf_table([["Item", "Owner", "Due"], ["Seed count", "Anneli", "Friday"]])
            + odf_paragraph("Na\u00efve questions are welcome."))
    write_odf_package(path, ODT_TYPE + "-template", text,
                      odf_meta("Minutes of the seed committee", ["minutes, committee"]))
    write_expectation(path, "Seed Committee Minutes\nDate:\tPlace: reading room\nItem\nOwner\nDue\n"
                      "Seed count\nAnneli\nFriday\nNa\u00efve questions are welcome.",
                      {"DocumentType": "NSOpenDocument", "Title": "Minutes of the seed committee",
                       "Author": AUTHOR, "Keywords": ["minutes", "committee"],
                       "CreationTime": iso(CREATED)})


# ---- RTF and RTFD ----------------------------------------------------------------------------

# Written as Word writes it: a font table with character sets, \info, a header and footer, notes
# where they are called, list labels in \listtext, and a table by rows of cells.
LEDGER_RTF = r"""{\rtf1\ansi\ansicpg1252\deff0\deflang2057
{\fonttbl{\f0\froman\fcharset0\fprq2 Times New Roman;}{\f1\fswiss\fcharset238\fprq2 Arial CE;}
{\f2\fswiss\fcharset204\fprq2 Arial Cyr;}{\f3\fmodern\fcharset128\fprq1 MS Mincho{\*\falt MS Mincho};}
{\f4\fnil\fcharset2\fprq2 Symbol;}}
{\colortbl;\red0\green0\blue0;\red31\green73\blue125;}
{\stylesheet{\ql \f0\fs24 \snext0 Normal;}{\s1\ql \b\f0\fs32 \sbasedon0 \snext0 heading 1;}
{\*\cs10 \additive Default Paragraph Font;}{\*\cs15 \additive \super \sbasedon10 footnote reference;}}
{\*\listtable{\list\listtemplateid1\listhybrid{\listlevel\levelnfc0\levelstartat1{\leveltext\'02\'00);}
{\levelnumbers\'01;}\fi-360\li720}{\listname ;}\listid101}{\list\listtemplateid2\listsimple
{\listlevel\levelnfc23\levelstartat1{\leveltext\'01\u-3913 ?;}{\levelnumbers;}\f4\fi-360\li720}
{\listname ;}\listid102}}
{\*\listoverridetable{\listoverride\listid101\listoverridecount0\ls1}
{\listoverride\listid102\listoverridecount0\ls2}}
{\info{\title Seed Exchange Ledger \u8212\'97 Spring}{\subject Seeds swapped at the village library}
{\author Ingrid \'d8deg\'e5rd}{\operator Tom\'e1s Ruiz}{\keywords seeds, library, ledger}
{\doccomm A small ledger written for the reader tests.}
{\creatim\yr2023\mo3\dy14\hr9\min26\sec53}{\revtim\yr2024\mo1\dy2\hr3\min4\sec5}
{\printim\yr2024\mo1\dy3\hr8\min0}{\version3}{\edmins12}{\nofpages1}{\nofwords180}}
{\*\generator ulvekbot make_fixtures.py;}
\paperw11906\paperh16838\margl1440\margr1440\ftnbj\aenddoc\ftnnar\aftnnrlc
\sectd\sbknone\linex0\headery708\footery708
{\header\pard\plain\s16\qc\f0\fs20 Ledger \emdash  page header\par}
{\footer\pard\plain\s17\qc\f0\fs20 Page footer\par}
\pard\plain\s1\sb240\sa120\b\f0\fs32 Seed Exchange Ledger\par
\pard\plain\f0\fs24 The library keeps a shelf of paper envelopes where neighbours leave seeds for one another.{\cs15\super \chftn}{\footnote\pard\plain\s18\f0\fs20 {\cs15\super \chftn} Envelopes are reused until they tear.}\par
\pard Cr\'e8me br\'fbl\'e9e tomatoes, \'c6r\'f8 kale and \ldblquote {\f1 \'a3\'f3d\'9f}\rdblquote  beans \emdash  all swapped in April for \'800\'85 and {\f3 \'92\'a9\'8a\'e7} seeds too.\par
\pard Counts were checked twice{\cs15\super \chftn}{\footnote\ftnalt\pard\plain\s18\f0\fs20 {\cs15\super \chftn} Counted again in May by the Tuesday volunteers.}.\par
\pard See the {\field{\*\fldinst {HYPERLINK "https://example.org/seeds"}}{\fldrslt {\ul\cf2 seed library}}} page for the full list.{\*\atnid AN}{\*\atnauthor Anneli}\chatn{\*\annotation\pard\plain Check the link before printing.}\par
{\listtext\pard\plain 1)\tab}\pard\plain\fi-360\li720\ls1\ilvl0 Sort the envelopes by season\par
{\pntext\f0 2)\tab}\pard{\*\pn\pnlvlbody\pndec\pnstart2{\pntxta )}}Write the keeper\rquote s name on each\par
{\listtext\pard\plain\f4 \'b7\tab}\pard\ls2 Never trade treated seed (\u1089?{\f2 \'e5\'ec\'e5\'ed\'e0})\par
\pard\plain\f0\fs24
\trowd\trgaph108\trleft-108\cellx3000\cellx6000\cellx9000
\pard\intbl Variety\cell Packets\cell Keeper\cell\row
\trowd\trgaph108\trleft-108\cellx3000\cellx6000\cellx9000
\pard\intbl Runner bean\cell 12\cell Tom\'e1s\cell\row
\trowd\trgaph108\trleft-108\cellx3000\cellx6000\cellx9000
\pard\intbl Borage\cell\cell Anneli\cell\row
\pard Next swap:\tab the first Saturday in October.\par
\pard Label the re\-sealable envelopes in non\_fading ink.\line Keeper:\~Anneli\par
{\*\shppict{\pict\pngblip\picw1\pich1 89504e470d0a1a0a}}{\nonshppict{\pict\wmetafile8 0100}}
\pard {\*\bkmkstart end}Last line{\*\bkmkend end}.\par
}"""

RTF_TEXT_LINES = [
    HEADING, SHELF + " " + FOOTNOTES[0], SWAP,
    COUNTS + " " + ENDNOTE + ".", "".join(LINK),
    # Labels from the list table and from old-style paragraph numbering, not from \listtext.
    "    1) Sort the envelopes by season", "    2) Write the keeper\u2019s name on each",
    "    \u2022 Never trade treated seed (\u0441\u0435\u043c\u0435\u043d\u0430)", *TABLE_LINES,
    NEXT[0] + "\t" + NEXT[1], HYPHENS[0] + "\u00ad" + HYPHENS[1] + "\u2011" + HYPHENS[2]
    + "\nKeeper:\u00a0Anneli", "Last line."]

# Lists as Word, LibreOffice and Cocoa write them: levels of one list with a skipped level, a
# list starting at 5, LibreOffice's \ls0, a simple list used at a deeper level, and old-style
# paragraph numbering inside groups, which ends with them. \listtext and \pntext are what the
# writer showed; the labels come from the definitions.
LISTS_RTF = r"""{\rtf1\ansi\ansicpg1252\deff0
{\fonttbl{\f0\froman Times New Roman;}{\f1\fnil\fcharset2 Symbol;}}
{\*\listtable
{\list\listtemplateid1{\listlevel\levelnfc0\levelstartat1{\leveltext\'02\'00.;}{\levelnumbers\'01;}}
{\listlevel\levelnfc4\levelstartat1{\leveltext\'02\'01);}{\levelnumbers\'01;}}
{\listlevel\levelnfc2\levelstartat1{\leveltext\'04\'00.\'02.;}{\levelnumbers\'01\'03;}}{\listname ;}\listid7}
{\list\listtemplateid2{\listlevel\levelnfc3\levelstartat5{\leveltext\'03(\'00);}{\levelnumbers\'02;}}
{\listname ;}\listid8}
{\list\listtemplateid3\listsimple{\listlevel\levelnfc23{\leveltext\'01\u8226 ?;}{\levelnumbers;}}
{\listname ;}\listid9}}
{\*\listoverridetable{\listoverride\listid8\listoverridecount0\ls0}
{\listoverride\listid7\listoverridecount0\ls1}{\listoverride\listid9\listoverridecount0\ls2}}
\pard Sowing\par
{\listtext 1.\tab}\pard\ls1\ilvl0 Soak the seed\par
{\listtext a)\tab}\pard\ls1\ilvl1 overnight\par
{\listtext 2.\tab}\pard\ls1\ilvl0 Sow\par
{\listtext 2.i.\tab}\pard\ls1\ilvl2 in trays\par
{\listtext b)\tab}\pard\ls1\ilvl1 then outside\par
{\listtext (E)\tab}\pard\ls0 Water\par
{\listtext (F)\tab}\pard\ls0 Label\par
{\listtext \'b7\tab}\pard\ls2 pencil\par
\pard Tools:\par
{{\pntext \'B7\tab}{\*\pn\pnlvlblt\pnstart1{\pntxtb\'B7}}trowel\par}
{{\pntext 3.\tab}{\*\pn\pnlvlbody\pndec\pnstart3{\pntxta .}}sieve\par}
{{\pntext 4.\tab}{\*\pn\pnlvlbody\pndec\pnstart3{\pntxta .}}rake\par}
Done.\par
}"""

# As TextEdit writes it: lines ended by a backslash, an attachment by its file name.
LEDGER_TXT_RTF = r"""{\rtf1\ansi\ansicpg1252\cocoartf2761
\cocoatextscaling0\cocoaplatform0{\fonttbl\f0\fswiss\fcharset0 Helvetica;\f1\fnil\fcharset134 PingFangSC-Regular;}
{\colortbl;\red255\green255\blue255;}
{\*\expandedcolortbl;;}
{\info
{\title Seed Exchange Ledger \'97 Spring}
{\author Ingrid \'d8deg\'e5rd}
{\keywords seeds, library, ledger}
{\creatim\yr2023\mo3\dy14\hr9\min26\sec53}}
\paperw11900\paperh16840\margl1440\margr1440\vieww11520\viewh8400\viewkind0
\pard\tx566\tx1133\tx1700\pardirnatural\partightenfactor0

\f0\fs24 \cf0 Seed Exchange Ledger\
Envelopes for \'93runner\'94 beans cost \'800.\
\itap1\trowd \taflags1 \trgaph108\trleft-108 \clvertalc \clwWidth2400\clftsWidth3 \gaph\cellx2880
\clvertalc \clwWidth2400\clftsWidth3 \gaph\cellx5760
\pard\intbl\itap1\pardeftab720\partightenfactor0
\cf0 Variety\cell 
\pard\intbl\itap1\pardeftab720\partightenfactor0
\cf0 Keeper\cell \row

\itap1\trowd \taflags1 \trgaph108\trleft-108 \clvertalc \clwWidth2400\clftsWidth3 \gaph\cellx2880
\clvertalc \clwWidth2400\clftsWidth3 \gaph\cellx5760
\pard\intbl\itap1\pardeftab720\partightenfactor0
\cf0 Borage\cell 
\pard\intbl\itap1\pardeftab720\partightenfactor0
\cf0 Anneli\cell \lastrow\row
\pard\tx566\tx1133\pardirnatural\partightenfactor0
\cf0 Seeds from {\f1 \'b3\'af\'ee\'86} too.\
}"""

RTFD_TEXT = ("Seed Exchange Ledger\nEnvelopes for \u201crunner\u201d beans cost \u20ac0.\n"
             "Variety\tKeeper\nBorage\tAnneli\nSeeds from \u671d\u9854 too.\n")


def tiny_png():
    """A one-pixel PNG, the attachment an RTFD carries beside its text."""
    return png(1, 1, (0x80,), colour_type=0)


def write_rtf(folder):
    path = folder / "ledger.rtf"
    path.write_bytes(LEDGER_RTF.replace("\n", "\r\n").encode("ascii"))
    write_expectation(path, "\n".join(RTF_TEXT_LINES), full_attributes("NSRTF"))
    path = folder / "lists.rtf"
    path.write_text(LISTS_RTF, encoding="ascii")
    write_expectation(path, "\n".join([
        "Sowing", "    1. Soak the seed", "        a) overnight", "    2. Sow",
        "            2.i. in trays", "        b) then outside", "    (E) Water", "    (F) Label",
        "    \u2022 pencil", "Tools:", "    \u2022 trowel", "    3. sieve", "    4. rake",
        "Done."]), {"DocumentType": "NSRTF"})

    path = folder / "ledger.rtfd"
    path.mkdir(exist_ok=True)
    (path / "TXT.rtf").write_bytes(LEDGER_TXT_RTF.encode("ascii"))
    (path / "seeds.png").write_bytes(tiny_png())
    write_expectation(path, RTFD_TEXT,
                      {"DocumentType": "NSRTFD", "Title": TITLE, "Author": AUTHOR,
                       "Keywords": KEYWORDS, "CreationTime": iso(CREATED)})


# ---- OLE2 compound files ---------------------------------------------------------------------

END_OF_CHAIN, FREE_SECTOR, FAT_SECTOR, NO_STREAM = 0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFD, 0xFFFFFFFF
WORD_CLSID = bytes.fromhex("0609020000000000c000000000000046")


def compound_file(streams, root_clsid=WORD_CLSID):
    """A version 3 compound file (512-byte sectors) holding `streams` [(name, bytes)] in its root;
    streams under 4096 bytes go to the mini stream, as every writer puts them."""
    sectors, fat = [], []

    def chain(data):
        if not data:
            return END_OF_CHAIN
        count = math.ceil(len(data) / 512)
        first = len(sectors)
        data = data.ljust(count * 512, b"\0")
        for i in range(count):
            sectors.append(data[i * 512:(i + 1) * 512])
            fat.append(first + i + 1 if i < count - 1 else END_OF_CHAIN)
        return first

    mini, mini_fat, placed = bytearray(), [], []
    for name, data in streams:
        if len(data) >= 4096:
            placed.append((name, data, chain(data)))
            continue
        count = math.ceil(len(data) / 64)
        first = len(mini) // 64
        mini += data.ljust(count * 64, b"\0")
        mini_fat += [first + i + 1 if i < count - 1 else END_OF_CHAIN for i in range(count)]
        placed.append((name, data, first if count else END_OF_CHAIN))
    mini_start = chain(bytes(mini))
    mini_fat += [FREE_SECTOR] * (-len(mini_fat) % 128)
    mini_fat_start = chain(struct.pack(f"<{len(mini_fat)}I", *mini_fat))

    # The directory: the root, then the streams as a binary tree ordered by length, then name.
    order = sorted(range(len(placed)),
                   key=lambda i: (len(placed[i][0]), placed[i][0].upper()))
    links = {}

    def tree(indexes):
        if not indexes:
            return NO_STREAM
        middle = len(indexes) // 2
        links[indexes[middle]] = (tree(indexes[:middle]), tree(indexes[middle + 1:]))
        return indexes[middle] + 1

    child = tree(order)

    def entry(name, kind, left, right, down, clsid, start, size):
        encoded = name.encode("utf-16-le") + b"\0\0"
        return (encoded.ljust(64, b"\0") + struct.pack("<HBB", len(encoded), kind, 1)
                + struct.pack("<III", left, right, down) + clsid + b"\0" * 4 + b"\0" * 16
                + struct.pack("<IQ", start, size))

    directory = entry("Root Entry", 5, NO_STREAM, NO_STREAM, child, root_clsid, mini_start,
                      len(mini))
    for i, (name, data, start) in enumerate(placed):
        left, right = links[i]
        directory += entry(name, 2, left, right, NO_STREAM, b"\0" * 16, start, len(data))
    while len(directory) % 512:
        directory += entry("", 0, NO_STREAM, NO_STREAM, NO_STREAM, b"\0" * 16, 0, 0)
    directory_start = chain(directory)

    fat_count = 1
    while len(sectors) + fat_count > fat_count * 128:
        fat_count += 1
    fat_start = len(sectors)
    fat += [FAT_SECTOR] * fat_count
    fat += [FREE_SECTOR] * (fat_count * 128 - len(fat))
    table = struct.pack(f"<{len(fat)}I", *fat)
    sectors += [table[i * 512:(i + 1) * 512] for i in range(fat_count)]

    header = (bytes.fromhex("d0cf11e0a1b11ae1") + b"\0" * 16
              + struct.pack("<HHHHH", 0x3E, 3, 0xFFFE, 9, 6) + b"\0" * 6
              + struct.pack("<IIIIIIIIII", 0, fat_count, directory_start, 0, 4096,
                            mini_fat_start, len(mini_fat) // 128 if mini else 0, END_OF_CHAIN, 0,
                            fat_start))
    header += struct.pack("<I", FREE_SECTOR) * 108
    for i in range(1, fat_count):
        header = header[:0x4C + i * 4] + struct.pack("<I", fat_start + i) + header[0x50 + i * 4:]
    return header + b"".join(sectors)


def filetime(moment):
    return (int(moment.timestamp()) + 11644473600) * 10_000_000


def summary_information(strings, dates, code_page=1252):
    """The \x05SummaryInformation property set: strings {id: text} in the code page, dates
    {id: moment} as FILETIMEs."""
    properties = [(1, struct.pack("<HH", 2, 0) + struct.pack("<hH", code_page, 0))]
    for identifier, text in strings.items():
        encoded = text.encode(f"cp{code_page}") + b"\0"
        encoded = struct.pack("<II", 30, len(encoded)) + encoded
        properties.append((identifier, encoded.ljust(math.ceil(len(encoded) / 4) * 4, b"\0")))
    for identifier, moment in dates.items():
        properties.append((identifier, struct.pack("<IQ", 64, filetime(moment))))
    properties.append((19, struct.pack("<Ii", 3, 0)))  # security: none
    offset = 8 + 8 * len(properties)
    index, values = b"", b""
    for identifier, value in properties:
        index += struct.pack("<II", identifier, offset + len(values))
        values += value
    section = struct.pack("<II", 8 + len(index) + len(values), len(properties)) + index + values
    format_id = bytes.fromhex("e0859ff2f94f6810ab9108002b27b3d9")
    return (struct.pack("<HHI", 0xFFFE, 0, 0x00020006) + b"\0" * 16 + struct.pack("<I", 1)
            + format_id + struct.pack("<I", 48) + section)


# ---- Word 97 ---------------------------------------------------------------------------------

def sprm(code, operand):
    return struct.pack("<H", code) + operand


def in_table(row_end=False, columns=3):
    properties = sprm(0x2416, b"\x01") + sprm(0x6649, struct.pack("<i", 1))
    if row_end:
        # The row's end mark says so and carries the row's cell layout.
        centres = struct.pack(f"<{columns + 1}h", *[-108 + 3000 * i for i in range(columns + 1)])
        layout = bytes([columns]) + centres + b"\0" * 20 * columns
        properties += (sprm(0x2417, b"\x01") + struct.pack("<HH", 0xD608, len(layout) + 1)
                       + layout)
    return properties


def list_item(override, level):
    return sprm(0x460B, struct.pack("<H", override)) + sprm(0x260A, bytes([level]))


class WordText:
    """The characters of a Word document in paragraphs, each with its style and properties."""

    def __init__(self, notes=(), lists=False):
        self.paragraphs = []  # (text, style, properties)
        self.notes = notes  # the kind of each note mark (\x02) in order
        self.lists = lists

    def add(self, text, style=0, properties=b""):
        self.paragraphs.append((text, style, properties))

    def text(self):
        return "".join(text for text, _, _ in self.paragraphs)


def word_lists():
    """PlfLst with its levels after it, and PlfLfo: three lists as LIST_ITEMS uses them."""
    def level(start, nfc, text, placeholders, flags=0):
        numbers = bytes(placeholders + [0] * (9 - len(placeholders)))
        fixed = (struct.pack("<iBB", start, nfc, flags) + numbers + bytes([1])
                 + struct.pack("<ii", 360, 0) + bytes([0, 0, 0, 0]))
        return fixed + struct.pack("<H", len(text)) + text.encode("utf-16-le")

    lists = [
        (0x1A2B0001, [level(1, 0, "\x00)", [1]), level(1, 4, "\x01)", [1]),
                      level(1, 2, "\x02)", [1])] + [level(1, 0, "", [])] * 6),
        (0x1A2B0002, [level(1, 23, "\uf0b7", [])]),
        (0x1A2B0003, [level(1, 1, "\x00.", [1]), level(1, 0, "(\x01)", [2]),
                      level(1, 0, "\x00.\x01.\x02", [1, 3, 5])] + [level(1, 0, "", [])] * 6),
        # Legal numbering on the second level (fLegal): "1.1." under "I.".
        (0x1A2B0004, [level(1, 1, "\x00.", [1]), level(1, 4, "\x00.\x01.", [1, 3], flags=0x04)]
         + [level(1, 0, "", [])] * 7),
    ]
    definitions = struct.pack("<H", len(lists))
    levels = b""
    for identifier, list_levels in lists:
        simple = len(list_levels) == 1
        definitions += (struct.pack("<II", identifier, identifier + 0x100)
                        + struct.pack("<9H", *[0x0FFF] * 9) + bytes([1 if simple else 0, 0]))
        levels += b"".join(list_levels)
    # One override of each list, and a fifth of the first list that starts it again at 5.
    override_lists = [identifier for identifier, _ in lists] + [lists[0][0]]
    overrides = struct.pack("<I", len(override_lists))
    for number, identifier in enumerate(override_lists):
        count = 1 if number == len(lists) else 0
        overrides += struct.pack("<III", identifier, 0, 0) + bytes([count, 0, 0, 0])
    overrides += struct.pack("<I", 0xFFFFFFFF) * len(lists)  # LFOData: no overridden levels
    overrides += struct.pack("<I", 0xFFFFFFFF) + struct.pack("<iI", 5, 0x10)  # level 0 at 5
    return definitions, levels, overrides


def word_styles():
    """The style sheet: Normal, Heading 1, the default paragraph font, and the styles of notes,
    headers and footers at the numbers after the fixed ones."""
    # istd: (sti, kind (1 paragraph, 2 character), name, based on)
    styles = {0: (0, 1, "Normal", 0x0FFF), 1: (1, 1, "heading 1", 0),
              10: (65, 2, "Default Paragraph Font", 0x0FFF), 15: (29, 1, "footnote text", 0),
              16: (31, 1, "header", 0), 17: (32, 1, "footer", 0), 18: (43, 1, "endnote text", 0)}
    count = 19
    sheet = struct.pack("<H", 18) + struct.pack("<9H", count, 10, 1, 156, 15, 0, 0, 0, 0)
    for istd in range(count):
        if istd not in styles:
            sheet += struct.pack("<H", 0)
            continue
        sti, kind, name, base = styles[istd]
        upxs = [struct.pack("<H", istd), b""] if kind == 1 else [b""]
        # Each style is followed by Normal; a paragraph style's properties are a paragraph and a
        # character part, a character style's one character part.
        std = struct.pack("<HHHHH", sti, kind | (base << 4), len(upxs), 0, 0)
        std += struct.pack("<H", len(name)) + name.encode("utf-16-le") + b"\0\0"
        for upx in upxs:
            std += struct.pack("<H", len(upx)) + upx + b"\0" * (len(upx) % 2)
        sheet += struct.pack("<H", len(std)) + std
    return sheet


def word_fonts():
    """The font table: each font's family, character set and name."""
    fonts = [(0x16, 0, "Times New Roman"), (0x02, 2, "Symbol"), (0x26, 0, "Arial"),
             (0x31, 128, "MS Mincho")]
    table = struct.pack("<HH", len(fonts), 0)
    for family, charset, name in fonts:
        ffn = (bytes([family]) + struct.pack("<HBB", 400, charset, 0) + b"\0" * 10 + b"\0" * 24
               + name.encode("utf-16-le") + b"\0\0")
        table += bytes([len(ffn)]) + ffn
    return table


def ledger_word_text():
    main = WordText(notes=("footnote", "endnote", "footnote"), lists=True)
    footnotes, headers, endnotes = WordText(), WordText(), WordText()
    main.add(HEADING + "\r", style=1)
    main.add(SHELF + "\x02\r")
    main.add(SWAP + "\r")
    main.add(COUNTS + "\x02.\r")
    main.add(f'{LINK[0]}\x13 HYPERLINK "https://example.org/seeds" \x14{LINK[1]}\x15{LINK[2]}\r')
    for number, level, text in LIST_ITEMS:
        main.add(text + "\r", properties=list_item(number, level))
    for row in TABLE:
        for cell in row:
            main.add(cell + "\x07", properties=in_table())
        main.add("\x07", properties=in_table(row_end=True))
    main.add(NEXT[0] + "\t" + NEXT[1] + "\x02\r")
    main.add(HYPHENS[0] + "\x1f" + HYPHENS[1] + "\x1e" + HYPHENS[2] + "\r")
    main.add("\x13 NUMPAGES \x141\x15 page in all.\r")
    for note in FOOTNOTES:
        footnotes.add("\x02 " + note + "\r", style=15)
    footnotes.add("\r")
    headers.add(PAGE_HEADER + "\r", style=16)
    headers.add(PAGE_FOOTER + "\r", style=17)
    headers.add("\r")
    endnotes.add("\x02 " + ENDNOTE + "\r", style=18)
    endnotes.add("\r")
    return main, footnotes, headers, endnotes


def word_document(parts, wide, text_start=0x600):
    """WordDocument and 1Table streams for the parts (main, footnotes, headers, endnotes), the
    text in one piece: UTF-16 when `wide`, else one byte a character in Windows-1252."""
    main, footnotes, headers, endnotes = parts
    paragraphs = [p for part in parts for p in part.paragraphs]
    paragraphs.append(("\r", 0, b""))  # the mark that ends the last part
    stream = bytearray(text_start)
    runs = []  # (paragraph, offset, end offset)
    for index, (text, _, _) in enumerate(paragraphs):
        start = len(stream)
        stream += text.encode("utf-16-le" if wide else "cp1252")
        runs.append((index, start, len(stream)))
    text_end = len(stream)
    characters = sum(len(text) for text, _, _ in paragraphs)

    # Character properties: one run, no properties.
    stream += bytes(-len(stream) % 512)
    chpx_page = len(stream) // 512
    page = bytearray(512)
    struct.pack_into("<II", page, 0, text_start, text_end)
    page[511] = 1
    stream += page

    # Paragraph properties: pages of runs, each run pointing at its paragraph's PAPX.
    papx_pages, first_fcs = [], []
    pending = list(runs)
    while pending:
        count, papxs = 0, {}
        while count < len(pending):
            _, style, properties = paragraphs[pending[count][0]]
            papx = struct.pack("<H", style) + properties
            trial = dict(papxs)
            trial.setdefault(papx, None)
            size = 4 * (count + 2) + 13 * (count + 1) + sum(len(p) + 3 for p in trial)
            if size > 500:
                break
            papxs, count = trial, count + 1
        page, end = bytearray(512), 511
        offsets = {}
        for papx in papxs:
            stored = (bytes([0, len(papx) // 2]) if len(papx) % 2 == 0
                      else bytes([(len(papx) + 1) // 2])) + papx
            end = (end - len(stored)) & ~1
            page[end:end + len(stored)] = stored
            offsets[papx] = end // 2
        chosen = pending[:count]
        for i, (index, fc_start, fc_end) in enumerate(chosen):
            _, style, properties = paragraphs[index]
            struct.pack_into("<I", page, 4 * i, fc_start)
            page[4 * (count + 1) + 13 * i] = offsets[struct.pack("<H", style) + properties]
        struct.pack_into("<I", page, 4 * count, chosen[-1][2])
        page[511] = count
        stream += bytes(-len(stream) % 512)
        papx_pages.append(len(stream) // 512)
        first_fcs.append(chosen[0][1])
        stream += page
        pending = pending[count:]

    # Word never writes a document stream small enough for the mini stream.
    stream += bytes(max(0, 4096 - len(stream)))
    table = bytearray()
    entries = {}

    def put(index, data):
        entries[index] = (len(table), len(data))
        table.extend(data)

    def plc(cps, data=b""):
        return struct.pack(f"<{len(cps)}I", *cps) + data

    put(1, word_styles())  # STSH
    ccp_text, ccp_ftn = len(main.text()), len(footnotes.text())
    ccp_hdd, ccp_edn = len(headers.text()), len(endnotes.text())
    marks = [i for i, c in enumerate(main.text()) if c == "\x02"]
    footnote_marks = [cp for cp, kind in zip(marks, main.notes) if kind == "footnote"]
    endnote_marks = [cp for cp, kind in zip(marks, main.notes) if kind == "endnote"]
    if footnote_marks:
        numbers = struct.pack(f"<{len(footnote_marks)}H", *range(1, len(footnote_marks) + 1))
        put(2, plc(footnote_marks + [ccp_text + 1], numbers))  # PlcffndRef
        starts = [i for i, c in enumerate(footnotes.text()) if c == "\x02"]
        put(3, plc(starts + [ccp_ftn - 1, ccp_ftn]))  # PlcffndTxt
    put(6, plc([0, ccp_text], struct.pack("<HIHI", 0, 0xFFFFFFFF, 0, 0xFFFFFFFF)))  # PlcfSed
    if ccp_hdd:
        # Six separator stories, then a section's even and odd header and footer and first-page
        # header and footer, of which the odd header and footer have text.
        header, footer = (len(text) for text, _, _ in headers.paragraphs[:2])
        put(11, plc([0] * 8 + [header] * 2 + [header + footer] * 3 + [ccp_hdd]))  # PlcfHdd
    put(12, plc([text_start, text_end], struct.pack("<I", chpx_page)))  # PlcBteChpx
    put(13, plc(first_fcs + [runs[-1][2]], struct.pack(f"<{len(papx_pages)}I", *papx_pages)))
    clx = plc([0, characters], struct.pack(
        "<HIH", 0, text_start if wide else (text_start * 2) | 0x40000000, 0))
    put(15, word_fonts())  # SttbfFfn
    dop = bytearray(500)
    struct.pack_into("<H", dop, 10, 720)  # default tab stops every half inch
    put(31, bytes(dop))  # Dop
    put(33, b"\x02" + struct.pack("<I", len(clx)) + clx)  # Clx
    if endnote_marks:
        numbers = struct.pack(f"<{len(endnote_marks)}H", *range(1, len(endnote_marks) + 1))
        put(46, plc(endnote_marks + [ccp_text + 1], numbers))  # PlcfendRef
        put(47, plc([0, ccp_edn - 1, ccp_edn]))  # PlcfendTxt
    if main.lists:
        definitions, levels, overrides = word_lists()
        put(73, definitions)  # PlfLst, its levels right after it
        table.extend(levels)
        put(74, overrides)  # PlfLfo

    # The File Information Block: base, 16-bit values, 32-bit values, then offset-size pairs.
    fib = bytearray(0x22)
    struct.pack_into("<HHHHHH", fib, 0, 0xA5EC, 0xC1, 0x6A62, 0x0809, 0, 0x1200)
    struct.pack_into("<HIBBHHII", fib, 0x0C, 0xBF, 0, 0, 0, 0, 0, text_start, text_end)
    struct.pack_into("<H", fib, 0x20, 14)
    fib += bytes(28)
    longs = [0] * 22
    longs[0] = len(stream)
    longs[3:10] = [ccp_text, ccp_ftn, ccp_hdd, 0, 0, ccp_edn, 0]
    fib += struct.pack("<H22I", 22, *longs)
    pairs = [0] * (93 * 2)
    for index, (offset, size) in entries.items():
        pairs[index * 2:index * 2 + 2] = [offset, size]
    fib += struct.pack("<H186I", 93, *pairs) + struct.pack("<H", 0)
    stream[:len(fib)] = fib
    return bytes(stream), bytes(table)


def write_doc_lists(folder):
    """A Word 97 document of lists: a skipped level, a bullet, a list started again at 5 by an
    override, and legal numbering."""
    main = WordText(lists=True)
    paragraphs = [(1, 0, "Soak", "1)"), (1, 2, "in rain water", "i)"), (1, 1, "overnight", "b)"),
                  (2, 0, "trowel", "\u2022"), (None, 0, "Later:", ""), (5, 0, "Water", "5)"),
                  (5, 0, "Label", "6)"), (4, 0, "Spring", "I."), (4, 1, "peas", "1.1.")]
    for override, level, text, _ in paragraphs:
        main.add(text + "\r", properties=list_item(override, level) if override else b"")
    empty, headers = WordText(), WordText()
    empty.add("\r")
    for _ in range(3):
        headers.add("\r")
    word, table = word_document((main, empty, headers, empty), wide=True)
    path = folder / "lists.doc"
    path.write_bytes(compound_file([("WordDocument", word), ("1Table", table)]))
    lines = [lo_label(level, label) + text for _, level, text, label in paragraphs]
    write_expectation(path, "\n".join(lines), {"DocumentType": "NSDocFormat"})


def write_doc(folder):
    path = folder / "ledger.doc"
    word, table = word_document(ledger_word_text(), wide=True)
    summary = summary_information(
        {2: TITLE, 3: SUBJECT, 4: AUTHOR, 5: ", ".join(KEYWORDS), 6: COMMENT, 7: "Normal.dot",
         8: EDITOR, 9: "3", 18: "ulvekbot make_fixtures.py"},
        {11: PRINTED, 12: CREATED, 13: MODIFIED})
    path.write_bytes(compound_file([("WordDocument", word), ("1Table", table),
                                    ("\x05SummaryInformation", summary)]))
    lines = [HEADING, SHELF + "1", SWAP, COUNTS + ".", "".join(LINK), *LABELLED_ITEMS, *TABLE_LINES,
             NEXT[0] + "\t" + NEXT[1] + "2", HYPHENATED, "1 page in all.",
             *[" " + note for note in FOOTNOTES], " " + ENDNOTE]
    write_expectation(path, "\n".join(lines), full_attributes("NSDocFormat"))

    # Text one byte a character: Windows-1252, whose quotes, euro and dashes Latin-1 lacks.
    path = folder / "compressed.doc"
    main = WordText()
    main.add("\u201cQuoted\u201d seed packets cost \u20ac5 \u2014 or less\u2026\r")
    main.add("Keep the re\x1fsealable bags dry.\r")
    empty = WordText()
    word, table = word_document((main, empty, empty, empty), wide=False)
    summary = summary_information({2: "Packet prices", 4: EDITOR}, {12: CREATED})
    path.write_bytes(compound_file([("WordDocument", word), ("1Table", table),
                                    ("\x05SummaryInformation", summary)]))
    write_expectation(path, "\u201cQuoted\u201d seed packets cost \u20ac5 \u2014 or less\u2026\n"
                      "Keep the re\u00adsealable bags dry.",
                      {"DocumentType": "NSDocFormat", "Title": "Packet prices", "Author": EDITOR,
                       "CreationTime": iso(CREATED)})


# ---- WordPerfect -----------------------------------------------------------------------------

# WordPerfect character numbers (set, number): multinational 1, typographic 4, Cyrillic 10.
WP_CHARACTERS = {
    "\u00e8": (1, 47), "\u00fb": (1, 69), "\u00e9": (1, 41), "\u00c6": (1, 36),
    "\u00f8": (1, 81), "\u00e5": (1, 35), "\u00d8": (1, 80), "\u00e1": (1, 27),
    "\u201c": (4, 32), "\u201d": (4, 31), "\u2014": (4, 34), "\u20ac": (4, 72),
    "\u2026": (4, 56), "\u2019": (4, 28),
    "\u0441": (10, 37), "\u0435": (10, 11), "\u043c": (10, 27), "\u043d": (10, 29),
    "\u0430": (10, 1),
}
WP_SWAP_TEXT = ("Cr\u00e8me br\u00fbl\u00e9e tomatoes, \u00c6r\u00f8 kale and "
                "\u201c\u0441\u0435\u043c\u0435\u043d\u0430\u201d beans \u2014 all swapped "
                "in April for \u20ac0\u2026")


def wp_prefix(major, minor, packets, document):
    """The prefix, then the index area, then the document area. From 6.0 on the prefix also
    says where the index area starts and how long the file is."""
    prefix = b"\xffWPC" + bytes(4) + bytes([1, 10, major, minor]) + struct.pack("<H", 0)
    if major < 2:
        prefix += bytes(2)
    else:
        prefix += struct.pack("<H", 32) + bytes(4)
        prefix += struct.pack("<I", 32 + len(packets) + len(document)) + bytes(8)
    start = len(prefix) + len(packets)
    return prefix[:4] + struct.pack("<I", start) + prefix[8:] + packets + document


def wp5_function(code, subcode, data):
    """A 5.x variable-length function: the length counts what follows it."""
    length = len(data) + 4
    return (bytes([code, subcode]) + struct.pack("<H", length) + data + struct.pack("<H", length)
            + bytes([subcode, code]))


def wp5_text(text):
    out = b""
    for character in text:
        if character in WP_CHARACTERS:
            number_set, number = WP_CHARACTERS[character]
            out += bytes([0xC0, number, number_set, 0xC0])
        else:
            out += character.encode("ascii")
    return out


def wp6_group(code, subcode, data):
    """A 6.x variable-length group: the size counts the whole group."""
    size = len(data) + 7
    return (bytes([code, subcode]) + struct.pack("<H", size) + data + struct.pack("<H", size)
            + bytes([code]))


def wp6_text(text):
    # Letters of the soft-mapped range that WordPerfect 6 keeps in one byte.
    soft = {"\u00e9": 0x0F, "\u00e8": 0x11, "\u00f8": 0x16, "\u00c6": 0x04, "\u00e5": 0x01}
    out = b""
    for character in text:
        if character == " ":
            out += b"\x80"
        elif character in soft:
            out += bytes([soft[character]])
        elif character in WP_CHARACTERS:
            number_set, number = WP_CHARACTERS[character]
            out += bytes([0xF0, number, number_set, 0xF0])
        else:
            out += character.encode("ascii")
    return out


def write_wordperfect(folder):
    # 5.1: a document summary in the index area, margins and a page header as functions, bold
    # by attribute codes, words wrapped by soft returns, a tab and hyphens.
    summary = b"Seed ledger\0Report\0" + SUBJECT.encode("ascii") + b"\0Ingrid Odegard\0"
    packets = (struct.pack("<HHHI", 0xFFFB, 2, 20, 0)
               + struct.pack("<HII", 1, len(summary), 16 + 20 + 14) + b"\0" * 4 + summary)
    header = b"\x00\x00\x02" + wp5_text(PAGE_HEADER) + b"\x0a"
    document = (wp5_function(0xD0, 0x01, struct.pack("<4H", 1200, 1200, 1000, 1100))
                + wp5_function(0xD6, 0x00, header)
                + b"\xc3\x0c\xc3" + wp5_text(HEADING) + b"\xc4\x0c\xc4\x0a"
                + b"The library keeps a shelf of paper envelopes where\x0dneighbours leave seeds "
                b"for one another.\x0a"
                + wp5_text(WP_SWAP_TEXT) + b"\x0a"
                + wp5_text(NEXT[0]) + b"\xc1\x00\x08\x07\x00\x00\x00\xc1" + wp5_text(NEXT[1])
                + b"\x0a" + b"Label the re\xacsealable envelopes in non\xa9fading ink.\x8c"
                + b"Keeper:\xa0Anneli\x0cLast line.")
    path = folder / "ledger51.wpd"
    path.write_bytes(wp_prefix(0, 1, packets, document))
    write_expectation(path, "\n".join([
        HEADING, SHELF, WP_SWAP_TEXT, NEXT[0] + "\t" + NEXT[1],
        "Label the resealable envelopes in non-fading ink.", "Keeper:\u00a0Anneli",
        "Last line."]), {})

    # 6.x: spaces as 0x80, letters soft-mapped or by set and number, hard returns as codes and
    # groups, a tab group, deleted text between undo marks, soft line ends.
    packets = struct.pack("<BBH", 2, 0, 2) + bytes(10) + struct.pack("<BBHHII", 0, 0x7F, 1, 0, 0, 0)
    document = (wp6_group(0xD4, 0x01, b"\0" * 4)
                + wp6_text(HEADING) + b"\xcc"
                + wp6_text("The library keeps a shelf of paper envelopes where neighbours leave "
                           "seeds for one") + b"\xcf" + wp6_text("another.") + b"\xcc"
                + wp6_text(WP_SWAP_TEXT) + wp6_group(0xD0, 0x04, bytes(6))
                + wp6_text("Counts were checked ")
                + b"\xf1\x00\x01\x00\xf1" + wp6_text("three times ") + b"\xf1\x01\x01\x00\xf1"
                + wp6_text("twice.") + b"\xcc"
                + wp6_text(NEXT[0]) + wp6_group(0xE0, 0x11, bytes(6)) + wp6_text(NEXT[1]) + b"\xcc"
                + wp6_text("Label the re") + b"\x82"
                + wp6_text("sealable envelopes in non-fading ink.") + b"\xcc"
                + wp6_text("Keeper:") + b"\x81" + wp6_text("Anneli"))
    path = folder / "ledger6.wpd"
    path.write_bytes(wp_prefix(2, 1, packets, document))
    write_expectation(path, "\n".join([
        HEADING, SHELF, WP_SWAP_TEXT, COUNTS + ".", NEXT[0] + "\t" + NEXT[1],
        "Label the re\u00adsealable envelopes in non-fading ink.", "Keeper:\u00a0Anneli"]), {})

    # 4.2: no prefix; functions open and close with the same code, other codes are one byte.
    document = (b"\xc0\x0a\x4a\x0c\x48\xc0" + b"\xd1" + bytes(4)
                + PAGE_HEADER.replace("\u2014", "-").encode("ascii") + b"\xff\x00\x01\xd1"
                + b"\x9d" + HEADING.encode("ascii") + b"\x9c\x0a"
                + b"The library keeps a shelf of paper envelopes where\x0dneighbours leave seeds "
                b"for one another.\x0a"
                + b"Next swap:\x09the first Saturday in October.\x0a"
                + b"Label the envelopes in non\xa9fading ink.\x0a"
                + b"Keeper:\xa0Anneli\x0a")
    path = folder / "ledger42.wpd"
    path.write_bytes(document)
    write_expectation(path, "\n".join([
        HEADING, SHELF, NEXT[0] + "\t" + NEXT[1], "Label the envelopes in non-fading ink.",
        "Keeper:\u00a0Anneli", ""]), {})

    # WordPerfect for the Mac: the text after the last {WP} mark, in Mac OS Roman, with its own
    # codes for line breaks, tabs and hyphens and a switch to take them literally.
    document = (b"\x00\x01\x00\x00WPC2{WP}\x00\x00"
                + b"Seed Exchange Ledger\x80Cr\x8fme br\x9el\x8ee tomatoes\x80"
                + b"Next swap:\x82Saturday\x80non\x96fading ink\x80"
                + b"Literal \xc0\x80\xc0 stays")
    path = folder / "mac.wpd"
    path.write_bytes(document)
    write_expectation(path, "Seed Exchange Ledger\nCr\u00e8me br\u00fbl\u00e9e tomatoes\n"
                      "Next swap:\tSaturday\nnon-fading ink\nLiteral \u00c4 stays", {})


def main():
    for family in ["docx", "odt", "rtf", "doc", "wpd"]:
        (HERE / family).mkdir(exist_ok=True)
    write_docx(HERE / "docx")
    write_docx_lists(HERE / "docx")
    write_wordml(HERE / "docx")
    write_encrypted_docx(HERE / "docx")
    write_odf(HERE / "odt")
    write_odf_lists(HERE / "odt")
    write_rtf(HERE / "rtf")
    write_doc(HERE / "doc")
    write_doc_lists(HERE / "doc")
    write_wordperfect(HERE / "wpd")


if __name__ == "__main__":
    main()
