#!/usr/bin/env python3
# Writes the EPUB fixtures: python3 make_fixtures.py
# Books of both generations (EPUB 2 with an NCX, EPUB 3 with a nav document), a nested table of
# contents, covers, a book under rights management and one without its package document. Each
# NAME.epub gets NAME.epub.expect.json: the metadata and text the reader gives (text null for an
# encrypted book).

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
from fixture_tools import png, write_json, write_zip  # noqa: E402

STAMP = (2024, 5, 1, 12, 0, 0)


def write_book(name, members):
    """The mimetype member first and stored, as readers expect; fixed times everywhere."""
    write_zip(os.path.join(HERE, name), members, STAMP, deflate=True, mode=0o100644)


def expect(name, answer):
    write_json(os.path.join(HERE, name + ".expect.json"), answer, sort_keys=True)


def container(opf):
    return ('<?xml version="1.0"?>\n<container version="1.0" '
            'xmlns="urn:oasis:names:tc:opendocument:xmlns:container">\n  <rootfiles>\n'
            f'    <rootfile full-path="{opf}" media-type="application/oebps-package+xml"/>\n'
            '  </rootfiles>\n</container>\n')


def xhtml(title, body, head="", doctype="<!DOCTYPE html>"):
    return ('<?xml version="1.0" encoding="UTF-8"?>\n' + doctype + '\n'
            '<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">\n'
            f'<head>\n  <title>{title}</title>\n{head}</head>\n<body>\n{body}\n</body>\n</html>\n')


def nav_points(entries, depth=1):
    """NCX navPoints from (label, src, children) tuples."""
    text = ""
    for index, (label, src, children) in enumerate(entries):
        pad = "  " * (depth + 1)
        text += (f'{pad}<navPoint id="np-{depth}-{index}">\n'
                 f'{pad}  <navLabel><text>{label}</text></navLabel>\n'
                 f'{pad}  <content src="{src}"/>\n' + nav_points(children, depth + 1)
                 + f'{pad}</navPoint>\n')
    return text


def ncx(title, entries):
    return ('<?xml version="1.0" encoding="UTF-8"?>\n'
            '<ncx version="2005-1" xmlns="http://www.daisy.org/z3986/2005/ncx/">\n'
            '  <head><meta name="dtb:depth" content="4"/></head>\n'
            f'  <docTitle><text>{title}</text></docTitle>\n  <navMap>\n'
            + nav_points(entries) + '  </navMap>\n</ncx>\n')


# ---- An EPUB 2 report: NCX only, chapters in a folder below the package document ----

REPORT_TITLE = "Field Notes — Rivers, Weirs and Locks"
STYLE = "body { font-family: serif; }\nh1 { font-size: 1.4em; }\n"


def chapter(title, body):
    return xhtml(title, body, '  <link rel="stylesheet" type="text/css" href="../styles/notes.css"/>\n',
                 '<!DOCTYPE html PUBLIC "-//W3C//DTD XHTML 1.1//EN" '
                 '"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd">')


REPORT_CHAPTERS = [
    ("title_page", REPORT_TITLE,
     f'<h1 class="title">{REPORT_TITLE}</h1>\n<p class="author">Åsa Lindqvist</p>\n'
     '<p class="author">Tomás Ó Briain</p>\n<p class="date">14 September 2023</p>'),
    ("ch001", "ch001.xhtml",
     f'<div id="field-notes" class="section">\n<h1>{REPORT_TITLE}</h1>\n'
     '<p>These notes were written on a <em>slow</em> boat over three summers. They cover '
     '<strong>rivers</strong>, the weirs that tame them and the locks that let boats past the '
     'weirs, with fees in € and depths in metres.<a href="ch004.xhtml#note-1" id="ref-1">'
     '<sup>1</sup></a></p>\n</div>'),
    ("ch002", "ch002.xhtml",
     '<div id="rivers" class="section">\n<h1>1. Rivers</h1>\n'
     '<p>Three rivers, measured at their lowest in August:</p>\n'
     '<table>\n<thead><tr><th>River</th><th>Length (km)</th><th>Depth (m)</th></tr></thead>\n'
     '<tbody>\n<tr><td>Klarälven</td><td>460</td><td>2.1</td></tr>\n'
     '<tr><td>Shannon</td><td>360</td><td>3.4</td></tr>\n'
     '<tr><td>Göta älv</td><td>93</td><td>6.0</td></tr>\n</tbody>\n</table>\n</div>'),
    ("ch003", "ch003.xhtml",
     '<div id="weirs" class="section">\n<h1>2. Weirs</h1>\n<ul>\n'
     '<li>Fixed weirs\n<ul>\n<li>Broad-crested, for gauging</li>\n'
     '<li>Sharp-crested, for small streams</li>\n</ul>\n</li>\n'
     '<li>Movable weirs, opened in flood</li>\n</ul>\n</div>'),
    ("ch004", "ch004.xhtml",
     '<div id="locks" class="section">\n<h1>3. Locks</h1>\n<dl>\n'
     '<dt>Chamber</dt><dd>The basin between the two gates.</dd>\n'
     '<dt>Sill</dt><dd>The step a boat must clear at the upper gate.</dd>\n</dl>\n'
     '<p id="note-1">1. Fees were paid in cash at every lock; none took cards.</p>\n</div>'),
]


def report_book():
    manifest = ('    <item id="ncx" href="toc.ncx" media-type="application/x-dtbncx+xml"/>\n'
                '    <item id="nav" href="nav.xhtml" media-type="application/xhtml+xml"/>\n'
                '    <item id="style" href="styles/notes.css" media-type="text/css"/>\n')
    spine = ""
    for stem, _, _ in REPORT_CHAPTERS:
        manifest += (f'    <item id="{stem}_xhtml" href="text/{stem}.xhtml" '
                     'media-type="application/xhtml+xml"/>\n')
        spine += f'    <itemref idref="{stem}_xhtml"/>\n'
    opf = ('<?xml version="1.0" encoding="UTF-8"?>\n'
           '<package version="2.0" xmlns="http://www.idpf.org/2007/opf" unique-identifier="id">\n'
           '  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/" '
           'xmlns:opf="http://www.idpf.org/2007/opf">\n'
           '    <dc:identifier id="id">urn:uuid:6b1f3c2e-4d5a-4e8f-9a0b-1c2d3e4f5a6b</dc:identifier>\n'
           f'    <dc:title>{REPORT_TITLE}</dc:title>\n'
           '    <dc:language>en-GB</dc:language>\n'
           '    <dc:creator opf:role="aut">Åsa Lindqvist</dc:creator>\n'
           '    <dc:creator opf:role="aut" opf:file-as="Ó Briain, Tomás">Tomás Ó Briain</dc:creator>\n'
           '    <dc:contributor opf:role="edt">Nina Kowalczyk</dc:contributor>\n'
           '    <dc:publisher>Towpath Press</dc:publisher>\n'
           '    <dc:subject>Waterways</dc:subject>\n    <dc:subject>Navigation</dc:subject>\n'
           '    <dc:description>Notes from three summers on rivers, weirs and locks.</dc:description>\n'
           '    <dc:rights>Written for the ulvekbot tests.</dc:rights>\n'
           '    <dc:date>2023-09-14</dc:date>\n'
           '  </metadata>\n  <manifest>\n' + manifest + '  </manifest>\n'
           '  <spine toc="ncx">\n' + spine + '  </spine>\n'
           '  <guide><reference type="toc" title="Contents" href="nav.xhtml"/></guide>\n'
           '</package>\n')
    toc = ncx(REPORT_TITLE, [
        (REPORT_TITLE, "text/title_page.xhtml", []),
        (REPORT_TITLE, "text/ch001.xhtml#field-notes", []),
        ("1. Rivers", "text/ch002.xhtml#rivers", []),
        ("2. Weirs", "text/ch003.xhtml#weirs", []),
        ("3. Locks", "text/ch004.xhtml#locks", []),
    ])
    # An EPUB 3 style nav document the manifest does not mark as one: the NCX is what counts.
    nav = xhtml("Contents", '<nav epub:type="toc"><ol><li><a href="text/ch002.xhtml">Rivers only'
                            '</a></li></ol></nav>')
    members = [("mimetype", "application/epub+zip"),
               ("META-INF/container.xml", container("EPUB/content.opf")),
               ("EPUB/content.opf", opf), ("EPUB/toc.ncx", toc), ("EPUB/nav.xhtml", nav),
               ("EPUB/styles/notes.css", STYLE)]
    members += [(f"EPUB/text/{stem}.xhtml", chapter(title, body))
                for stem, title, body in REPORT_CHAPTERS]
    write_book("field-notes-epub2.epub", members)
    expect("field-notes-epub2.epub", {
        "title": REPORT_TITLE,
        "authors": ["Åsa Lindqvist", "Ó Briain, Tomás"],
        "editors": ["Nina Kowalczyk"],
        "publishers": ["Towpath Press"],
        "keywords": ["Waterways", "Navigation"],
        "description": "Notes from three summers on rivers, weirs and locks.",
        "copyright": "Written for the ulvekbot tests.",
        # Each page's text then a line break; headings and paragraphs end in a blank line, list
        # items and table rows (cells joined by spaces) in one line break.
        "text": "Field Notes — Rivers, Weirs and Locks\n\nÅsa Lindqvist\n\nTomás Ó Briain\n\n"
                "14 September 2023\n\n\n"
                "Field Notes — Rivers, Weirs and Locks\n\nThese notes were written on a slow boat "
                "over three summers. They cover rivers, the weirs that tame them and the locks that "
                "let boats past the weirs, with fees in € and depths in metres. 1\n\n\n"
                "1. Rivers\n\nThree rivers, measured at their lowest in August:\n\n"
                "River Length (km) Depth (m) \nKlarälven 460 2.1 \nShannon 360 3.4 \n"
                "Göta älv 93 6.0 \n\n\n"
                "2. Weirs\n\nFixed weirs\nBroad-crested, for gauging\n"
                "Sharp-crested, for small streams\nMovable weirs, opened in flood\n\n"
                "3. Locks\n\nChamber\nThe basin between the two gates.\nSill\n"
                "The step a boat must clear at the upper gate.\n"
                "1. Fees were paid in cash at every lock; none took cards.\n\n\n",
    })


# ---- A minimal EPUB 3: one page and a nav document ----

def minimal_book():
    opf = ('<?xml version="1.0" encoding="UTF-8"?>\n'
           '<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="q">\n'
           '<metadata xmlns:dc="http://purl.org/dc/elements/1.1/">\n'
           '  <dc:title id="title">Harbour Lights</dc:title>\n  <dc:language>en</dc:language>\n'
           '  <dc:identifier id="q">harbour-lights-1</dc:identifier>\n'
           '  <meta property="dcterms:modified">2024-05-01T12:00:00Z</meta>\n'
           '</metadata>\n<manifest>\n'
           '  <item id="content_001" href="content_001.xhtml" media-type="application/xhtml+xml"/>\n'
           '  <item id="nav" href="nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>\n'
           '</manifest>\n<spine>\n  <itemref idref="content_001"/>\n</spine>\n</package>\n')
    nav = xhtml("Contents", '<nav epub:type="toc">\n  <ol>\n    <li><a href="content_001.xhtml">'
                            'The Last Boat</a></li>\n  </ol>\n</nav>')
    page = xhtml("Harbour Lights", '<h1>Harbour Lights</h1>\n<p>The last boat came in after dark, '
                                   'steering between the two green lamps on the mole.</p>')
    write_book("harbour-lights-epub3.epub", [
        ("mimetype", "application/epub+zip"),
        ("META-INF/container.xml", container("EPUB/package.opf")),
        ("EPUB/package.opf", opf), ("EPUB/nav.xhtml", nav), ("EPUB/content_001.xhtml", page)])
    expect("harbour-lights-epub3.epub", {
        "title": "Harbour Lights",
        "text": "Harbour Lights\n\nThe last boat came in after dark, steering between the two "
                "green lamps on the mole.\n\n\n",
    })


# ---- An EPUB 3 anthology: a deep NCX, a nav document with headings, a cover image ----

# (label, anchor, children); an anchor of None is an author heading without a link of its own.
ANTHOLOGY = [
    ("PART ONE — TALES OF THE NORTHERN COAST", "part1", [
        ("SOURCES", "sources", []),
        ("A WORD BEFORE", "word", []),
        ("Marit Solberg", None, [
            ("12 THE LANTERN KEEPER", "t12", [
                ("I. The Storm", "t12-1", []),
                ("II. The Lamp", "t12-2", []),
                ("III. The Rescue", "t12-3", []),
                ("IV. Morning", "t12-4", []),
            ]),
            ("13 THE SALT MILL", "t13", []),
        ]),
        ("Jón Ásgeirsson", None, [
            ("14 THE SEAL WIFE", "t14", [
                ("I. The Skin on the Rock", "t14-1", []),
                ("II. Seven Winters", "t14-2", []),
                ("III. The Return", "t14-3", []),
            ]),
            ("15 THE GLASS FLOAT", "t15", []),
            ("16 THE FOG BELL", "t16", []),
        ]),
    ]),
    ("PART TWO — SONGS OF THE FJORD", "part2", [
        ("17 ROWING SONG", "t17", []),
        ("18 THE HERRING YEAR", "t18", []),
        ("19 LULLABY FOR A NET MENDER", "t19", [
            ("First verse", "t19-1", []),
            ("Second verse", "t19-2", []),
        ]),
    ]),
    ("NOTES", "notes", []),
]

ANTHOLOGY_TEXT = {
    "part1": "Stories told along the coast, written down as they were heard.",
    "sources": "Collected in fishing villages between 1921 and 1934.",
    "word": "Each tale is short enough to read aloud before the lamp is put out.",
    "t12": "The keeper climbed the tower every evening at six.",
    "t12-1": "That night the wind tore the shutters from the windows.",
    "t12-2": "He trimmed the wick twice, and twice the flame came back.",
    "t12-3": "At dawn a rowing boat found the lee of the island.",
    "t12-4": "The sea lay flat and grey, as if nothing had happened.",
    "t13": "A mill at the bottom of the sea grinds salt without end.",
    "t14": "A fisherman hid a seal skin under a stone.",
    "t14-1": "The skin was warm, as if the sun had been on it all day.",
    "t14-2": "She stayed seven winters and never once went down to the water.",
    "t14-3": "On the eighth spring the stone was moved, and the skin was gone.",
    "t15": "A green glass float drifted in from a country no one had seen.",
    "t16": "When the fog came in, the bell on the point rang by itself.",
    "part2": "Songs for rowing, for mending and for the cradle.",
    "t17": "Pull, and the oars bite; pull, and the shore goes by.",
    "t18": "The year the herring came, every barrel in the village was full.",
    "t19": "Sung by a woman mending nets on the quay.",
    "t19-1": "Sleep now, the tide is turning.",
    "t19-2": "Sleep now, the boats are home.",
    "notes": "The songs are given without their tunes.",
}


def anthology_ncx(entries):
    # The NCX has no author headings: their stories stand directly under the part.
    flat = []
    for label, anchor, children in entries:
        if anchor is None:
            flat += anthology_ncx(children)
        else:
            flat.append((label, f"s01.xhtml#{anchor}", anthology_ncx(children)))
    return flat


def anthology_nav(entries, depth=0):
    pad = "  " * (depth + 2)
    hidden = ' hidden="hidden"' if depth >= 3 else ""
    text = f"{pad}<ol{hidden}>\n"
    for label, anchor, children in entries:
        if anchor is None:
            text += f'{pad}  <li><span class="author">{label}</span>\n'
        else:
            # Deep entries wrap their labels over lines, as editors do.
            shown = f"\n{pad}    {label}\n{pad}  " if depth >= 3 else label
            text += f'{pad}  <li><a href="s01.xhtml#{anchor}">{shown}</a>\n'
        if children:
            text += anthology_nav(children, depth + 1)
        text += f"{pad}  </li>\n"
    return text + f"{pad}</ol>\n"


def anthology_page(entries, level=1):
    text = ""
    for label, anchor, children in entries:
        if anchor is None:
            text += f'<p class="author">{label}</p>\n'
        else:
            tag = f"h{min(level, 4)}"
            text += (f'<{tag} id="{anchor}">{label}</{tag}>\n'
                     f"<p>{ANTHOLOGY_TEXT[anchor]}</p>\n")
        text += anthology_page(children, level + (anchor is not None))
    return text


def anthology_labels(entries):
    for label, _, children in entries:
        yield label
        yield from anthology_labels(children)


def anthology_body(entries):
    text = ""
    for label, anchor, children in entries:
        text += label + "\n\n" + (ANTHOLOGY_TEXT[anchor] + "\n\n" if anchor else "")
        text += anthology_body(children)
    return text


def anthology_text():
    """The cover's image title, the nav document's lines, then the tales; a line break after each
    page."""
    nav = "CONTENTS\n\n" + "".join(label + "\n" for label in anthology_labels(ANTHOLOGY))
    return "Cover\n" + nav + "Start reading\n\n" + anthology_body(ANTHOLOGY) + "\n"


def cover_pixel(x, y):
    # A dark sea under a pale sky, with a lighthouse.
    if 6 <= x <= 9 and 6 <= y <= 17:
        return (230, 60, 40) if y % 4 < 2 else (245, 245, 240)
    return (200, 220, 235) if y < 12 else (20, 50, 90)


COVER = png(16, 24, cover_pixel)


def anthology_book():
    title = "Tales of the Northern Coast"
    opf = ('<?xml version="1.0" encoding="UTF-8"?>\n'
           '<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">\n'
           '  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">\n'
           '    <dc:identifier id="id">urn:uuid:0f5e7d1c-2b3a-4c5d-8e9f-a0b1c2d3e4f5</dc:identifier>\n'
           f'    <dc:title id="t1">{title}</dc:title>\n'
           '    <dc:creator id="solberg">Marit Solberg</dc:creator>\n'
           '    <meta property="file-as" refines="#solberg">Solberg, Marit</meta>\n'
           '    <dc:creator id="asgeirsson">Jón Ásgeirsson</dc:creator>\n'
           '    <dc:language>en</dc:language>\n'
           '    <dc:subject>Folk tales</dc:subject>\n    <dc:subject>Songs</dc:subject>\n'
           '    <dc:rights>Written for the ulvekbot tests.</dc:rights>\n'
           '    <meta property="dcterms:modified">2024-05-01T12:00:00Z</meta>\n'
           '  </metadata>\n  <manifest>\n'
           '    <item href="images/cover.png" id="cover-img" media-type="image/png" '
           'properties="cover-image"/>\n'
           '    <item href="css/book.css" id="css" media-type="text/css"/>\n'
           '    <item href="cover.xhtml" id="cover" media-type="application/xhtml+xml"/>\n'
           '    <item href="s01.xhtml" id="s01" media-type="application/xhtml+xml"/>\n'
           '    <item href="nav.xhtml" id="nav" media-type="application/xhtml+xml" '
           'properties="nav scripted"/>\n'
           '    <item href="toc.ncx" id="ncx" media-type="application/x-dtbncx+xml"/>\n'
           '  </manifest>\n  <spine toc="ncx">\n    <itemref idref="cover"/>\n'
           '    <itemref idref="nav"/>\n    <itemref idref="s01"/>\n  </spine>\n</package>\n')
    nav = xhtml(title, '<nav epub:type="toc" id="toc">\n    <h2>CONTENTS</h2>\n'
                + anthology_nav(ANTHOLOGY) + '</nav>\n<nav epub:type="landmarks" hidden="">\n'
                '  <ol><li><a epub:type="bodymatter" href="s01.xhtml">Start reading</a></li></ol>\n'
                '</nav>',
                '  <link href="css/book.css" rel="stylesheet" type="text/css"/>\n')
    cover = xhtml(title, '<img src="images/cover.png" alt="Cover" title="Cover"/>',
                  '  <link href="css/book.css" rel="stylesheet" type="text/css"/>\n')
    page = xhtml(title, anthology_page(ANTHOLOGY),
                 '  <link href="css/book.css" rel="stylesheet" type="text/css"/>\n')
    write_book("northern-coast-epub3.epub", [
        ("mimetype", "application/epub+zip"),
        ("META-INF/container.xml", container("EPUB/package.opf")),
        ("EPUB/package.opf", opf), ("EPUB/toc.ncx", ncx(title, anthology_ncx(ANTHOLOGY))),
        ("EPUB/nav.xhtml", nav), ("EPUB/cover.xhtml", cover), ("EPUB/s01.xhtml", page),
        ("EPUB/css/book.css", "h1, h2 { text-align: center; }\n"),
        ("EPUB/images/cover.png", COVER)])
    expect("northern-coast-epub3.epub", {
        "title": title,
        "contributors": ["Marit Solberg", "Jón Ásgeirsson"],
        "keywords": ["Folk tales", "Songs"],
        "copyright": "Written for the ulvekbot tests.",
        "text": anthology_text(),
    })


# ---- An EPUB 2 book whose cover a meta element names, with .html pages in folders ----

NET_LOFT = png(12, 16, lambda x, y: (120 + 8 * x, 80 + 6 * y, 60))


def net_loft_book():
    title = "The Net Loft"
    opf = ('<?xml version="1.0" encoding="UTF-8"?>\n'
           '<package xmlns="http://www.idpf.org/2007/opf" unique-identifier="BookId" version="2.0">\n'
           '  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/" '
           'xmlns:opf="http://www.idpf.org/2007/opf">\n'
           f'    <dc:title>The  Net\n      Loft</dc:title>\n'
           '    <dc:creator>Ingrid Halvorsen</dc:creator>\n'
           '    <dc:contributor>Pål Nygård</dc:contributor>\n'
           '    <dc:language>nb</dc:language>\n'
           '    <dc:identifier id="BookId">net-loft-2024</dc:identifier>\n'
           '    <dc:subject>Fishing</dc:subject>\n'
           '    <dc:description>Two chapters about mending nets.</dc:description>\n'
           '    <dc:publisher>Kystlaget</dc:publisher>\n'
           '    <meta name="cover" content="CoverDesign"/>\n'
           '  </metadata>\n  <manifest>\n'
           '    <item id="toc" href="toc.ncx" media-type="application/x-dtbncx+xml"/>\n'
           '    <item id="CoverDesign" href="CoverDesign.png" media-type="image/png"/>\n'
           '    <item id="CoverPage" href="CoverPage.html" media-type="application/xhtml+xml"/>\n'
           '    <item id="TableOfContents" href="TableOfContents.html" '
           'media-type="application/xhtml+xml"/>\n'
           '    <item id="style" href="style.css" media-type="text/css"/>\n'
           '    <item id="chapter1" href="chapters/chapter1.html" media-type="application/xhtml+xml"/>\n'
           '    <item id="chapter2" href="chapters/chapter2.html" media-type="application/xhtml+xml"/>\n'
           '  </manifest>\n  <spine toc="toc">\n'
           '    <itemref idref="CoverPage" linear="no"/>\n'
           '    <itemref idref="TableOfContents"/>\n    <itemref idref="chapter1"/>\n'
           '    <itemref idref="chapter2"/>\n  </spine>\n'
           '  <guide><reference type="cover" title="Cover" href="CoverPage.html"/></guide>\n'
           '</package>\n')
    toc = ncx(title, [("Cover", "CoverPage.html", []), ("Contents", "TableOfContents.html", []),
                      ("Chapter 1: Knots", "chapters/chapter1.html", []),
                      ("Chapter 2: Floats and Sinkers", "chapters/chapter2.html", [])])
    head = '  <link rel="stylesheet" type="text/css" href="../style.css"/>\n'
    chapter1 = xhtml("Chapter 1", '<h1>Chapter 1: Knots</h1>\n'
                     '<p>Every mesh of the net is closed with the same sheet bend.</p>\n'
                     '<ul>\n<li>Hold the loop in the left hand</li>\n'
                     '<li>Pass the needle behind it</li>\n</ul>\n',
                     head + '  <style>/*<![CDATA[*/ p { text-align: justify; } /*]]>*/'
                     ' hidden styles</style>\n  <script>var hidden = "script";</script>\n')
    chapter2 = xhtml("Chapter 2", '<h1>Chapter 2: Floats and Sinkers</h1>\n'
                     '<p>Cork floats hold the head rope up; lead sinkers keep the foot rope down.'
                     '</p>\n<p>The <a href="../TableOfContents.html">contents</a> name both chapters.</p>',
                     head)
    contents = xhtml("Contents", '<h3>Contents</h3>\n'
                     '<p><a href="chapters/chapter1.html">Knots</a></p>\n'
                     '<p><a href="chapters/chapter2.html">Floats and Sinkers</a></p>',
                     '  <link rel="stylesheet" type="text/css" href="style.css"/>\n')
    cover = xhtml("Cover", '<div><img src="CoverDesign.png" alt="The Net Loft"/></div>')
    write_book("net-loft-epub2.epub", [
        ("mimetype", "application/epub+zip"),
        ("META-INF/container.xml", container("OPS/content.opf")),
        ("OPS/content.opf", opf), ("OPS/toc.ncx", toc), ("OPS/CoverPage.html", cover),
        ("OPS/TableOfContents.html", contents), ("OPS/chapters/chapter1.html", chapter1),
        ("OPS/chapters/chapter2.html", chapter2), ("OPS/style.css", "p { margin: 0; }\n"),
        ("OPS/CoverDesign.png", NET_LOFT)])
    expect("net-loft-epub2.epub", {
        "title": title,
        "contributors": ["Ingrid Halvorsen", "Pål Nygård"],
        "publishers": ["Kystlaget"],
        "keywords": ["Fishing"],
        "description": "Two chapters about mending nets.",
        # The cover page is out of the reading order (linear="no"); style and script give no text.
        "text": "Contents\n\nKnots\n\nFloats and Sinkers\n\n\n"
                "Chapter 1: Knots\n\nEvery mesh of the net is closed with the same sheet bend.\n\n"
                "Hold the loop in the left hand\nPass the needle behind it\n\n"
                "Chapter 2: Floats and Sinkers\n\nCork floats hold the head rope up; lead sinkers "
                "keep the foot rope down.\n\nThe contents name both chapters.\n\n\n",
    })


# ---- A book under rights management, and one whose package document is missing ----

def locked_and_damaged_books():
    opf = ('<?xml version="1.0"?>\n<package xmlns="http://www.idpf.org/2007/opf" version="2.0">'
           '<metadata xmlns:dc="http://purl.org/dc/elements/1.1/"><dc:title>Locked Ledger</dc:title>'
           '</metadata><manifest><item id="a" href="a.xhtml" media-type="application/xhtml+xml"/>'
           '<item id="ncx" href="toc.ncx" media-type="application/x-dtbncx+xml"/>'
           '</manifest><spine><itemref idref="a"/></spine></package>\n')
    write_book("drm-adobe.epub", [
        ("mimetype", "application/epub+zip"),
        ("META-INF/container.xml", container("content.opf")),
        ("META-INF/rights.xml", '<?xml version="1.0"?>\n<adept:rights '
                                'xmlns:adept="http://ns.adobe.com/adept"><adept:licenseToken>'
                                '<adept:operatorURL>https://acs.example/fulfillment'
                                '</adept:operatorURL></adept:licenseToken></adept:rights>\n'),
        ("META-INF/encryption.xml", "<encryption/>\n"),
        ("content.opf", opf),
        ("toc.ncx", ncx("Locked Ledger", [("Accounts", "a.xhtml", [])])),
        # What an encrypted page looks like: bytes without structure.
        ("a.xhtml", bytes((i * 151 + 89) % 256 for i in range(512)))])
    expect("drm-adobe.epub", {"title": "Locked Ledger", "drm": "Adobe", "text": None})
    write_book("damaged-missing-opf.epub", [
        ("mimetype", "application/epub+zip"),
        ("META-INF/container.xml", container("OEBPS/content.opf")),
        ("OEBPS/a.xhtml", xhtml("A", "<p>A page no package document lists.</p>"))])
    expect("damaged-missing-opf.epub", {"text": ""})


def main():
    report_book()
    minimal_book()
    anthology_book()
    net_loft_book()
    locked_and_damaged_books()


if __name__ == "__main__":
    main()
