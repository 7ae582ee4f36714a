#!/usr/bin/env python3
"""Writes the hostile inputs of the audit into a folder (default: ./hostile-repros), for timing
`ulvekbot import` on each. Nothing here is committed output: the inputs are large, and the tests
build small versions of them themselves. Deterministic."""

import os
import random
import sys
import zipfile

out = sys.argv[1] if len(sys.argv) > 1 else "hostile-repros"
os.makedirs(out, exist_ok=True)


def path(name):
    return os.path.join(out, name)


def write(name, data):
    with open(path(name), "wb") as f:
        f.write(data)


# Nesting that a tag count took for shallow: every closing tag inside a comment.
hidden = (b'<?xml version="1.0"?><plist version="1.0"><dict><key>URL</key>' +
          b"<array><!--</array>-->" * 200000 + b"</array>" * 200000 + b"</dict></plist>")
write("deep.webloc", hidden)
write("deep.plist", hidden.replace(b"<key>URL</key>", b"<key>CFBundleName</key>"))
write("deep.textClipping", hidden.replace(b"<key>URL</key>", b"<key>UTI-Data</key>"))

# A book whose one large chapter the spine lists 50 times.
words = random.Random(1)
chapter = "<html><body>" + "".join(
    "<p>" + " ".join("w%d" % words.randrange(100000) for _ in range(40)) + "</p>\n"
    for _ in range(30000)) + "</body></html>"
opf = ('<package><metadata><dc:title>Spine</dc:title></metadata><manifest>'
       '<item id="c" href="c.xhtml" media-type="application/xhtml+xml"/></manifest><spine>' +
       '<itemref idref="c"/>' * 50 + "</spine></package>")
with zipfile.ZipFile(path("spine.epub"), "w", zipfile.ZIP_DEFLATED) as book:
    book.writestr(zipfile.ZipInfo("mimetype"), "application/epub+zip")
    book.writestr("META-INF/container.xml",
                  '<container><rootfile full-path="OEBPS/p.opf"/></container>')
    book.writestr("OEBPS/p.opf", opf)
    book.writestr("OEBPS/c.xhtml", chapter)

# 90 MB of separators in one address.
write("separators.vcf", b"BEGIN:VCARD\r\nVERSION:3.0\r\nFN:A\r\nADR:" + b";" * (90 << 20) +
      b"\r\nEND:VCARD\r\n")

# Font changes inside deep nesting.
for name, size in (("fonts-1.2MB.rtf", 1200000), ("fonts-2.4MB.rtf", 2400000)):
    groups = size // 3
    write(name, b"{\\rtf1 " + b"{" * groups + b"\\f1 x" * ((size - groups) // 5) + b"}")

# Case variants of a 200 MB member, and incompressible padding that lifts the budget.
padding = random.Random(2).randbytes(1200000)
with zipfile.ZipFile(path("variants.textpack"), "w", zipfile.ZIP_DEFLATED) as pack:
    pack.writestr("A.textbundle/text.md", "packed")
    pack.writestr("A.textbundle/abcde.bin", b"\0" * (200 << 20))
    pack.writestr(zipfile.ZipInfo("A.textbundle/padding"), padding)
    cases = random.Random(3)
    seen = {"abcde"}
    while len(seen) < 21:
        variant = "".join(c.upper() if cases.random() < 0.5 else c for c in "abcde")
        if variant in seen:
            continue
        seen.add(variant)
        pack.writestr("A.textbundle/%s.bin" % variant, b"")

# Packages with links to files outside them.
def package(name, files, links):
    for member, data in files.items():
        os.makedirs(os.path.dirname(path(os.path.join(name, member))), exist_ok=True)
        write(os.path.join(name, member), data)
    os.makedirs(path(name), exist_ok=True)
    for member, target in links.items():
        link = path(os.path.join(name, member))
        os.makedirs(os.path.dirname(link), exist_ok=True)
        if os.path.lexists(link):
            os.remove(link)
        os.symlink(target, link)


here = os.path.dirname(os.path.abspath(__file__))
write("outside.rtf", b"{\\rtf1 secret words outside the package}")
package("link.textbundle", {"info.json": b"{}"}, {"text.md": "/etc/passwd"})
package("link.rtfd", {}, {"TXT.rtf": os.path.abspath(path("outside.rtf"))})
package("link.pdfd", {}, {"doc.pdf": os.path.join(here, "..", "pdf", "survey.pdf")})
package("link.epub", {
    "META-INF/container.xml": b'<container><rootfile full-path="OEBPS/p.opf"/></container>',
    "OEBPS/p.opf": b'<package><metadata><dc:title>Links</dc:title></metadata><manifest>'
                   b'<item id="a" href="etc/passwd" media-type="application/xhtml+xml"/>'
                   b'</manifest><spine><itemref idref="a"/></spine></package>'},
        {"OEBPS/etc": "/etc"})

# Metadata past what a bus message holds.
write("title.html", b"<html><head><title>" + b"t" * (100 << 20) + b"</title></head></html>")
write("meta.html", b"<html><head>" + b"".join(
    b'<meta name="%s" content="%s">' % (name, b"m" * (50 << 20))
    for name in (b"author", b"description", b"keywords")) + b"</head><body>x</body></html>")
