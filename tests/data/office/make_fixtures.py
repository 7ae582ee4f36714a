#!/usr/bin/env python3
# Writes the office fixtures (a PowerPoint presentation, an OpenDocument spreadsheet and
# presentation) that tests/bundles/office_importer_test.cpp reads: python3 make_fixtures.py
# Their expected answers are the rows of that test.
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
from fixture_tools import write_zip as write_any_zip  # noqa: E402


def relationships(pairs):
    xml = "<Relationships>"
    for rid, target in pairs:
        xml += '<Relationship Id="%s" Target="%s"/>' % (rid, target)
    return xml + "</Relationships>"


def write_zip(name, members):
    """Members in order, fixed times; a "mimetype" member is stored, the rest deflated."""
    write_any_zip(os.path.join(HERE, name), members, (2024, 1, 2, 3, 4, 6), deflate=True, mode=0)


write_zip("talk.pptx", [
    ("ppt/presentation.xml",
     '<p:presentation><p:sldIdLst><p:sldId r:id="rId9"/><p:sldId r:id="rId2"/>'
     "</p:sldIdLst></p:presentation>"),
    ("ppt/_rels/presentation.xml.rels",
     relationships([("rId2", "slides/slide2.xml"), ("rId9", "slides/slide1.xml")])),
    ("ppt/slides/slide1.xml",
     "<p:sld><a:p><a:r><a:t>First</a:t></a:r><a:r><a:t> slide"
     "</a:t></a:r></a:p><a:p><a:t>Point</a:t></a:p></p:sld>"),
    ("ppt/slides/slide2.xml", "<p:sld><a:p><a:t>Second</a:t></a:p></p:sld>"),
    ("ppt/slides/_rels/slide2.xml.rels", relationships([("rId1", "../notesSlides/n2.xml")])),
    ("ppt/notesSlides/n2.xml", "<p:notes><a:p><a:t>Say hello</a:t></a:p></p:notes>"),
    ("docProps/core.xml",
     "<cp:coreProperties><dc:title>Talk</dc:title><dc:creator>Bo</dc:creator>"
     "<dcterms:modified>2021-03-04T05:06:07Z</dcterms:modified></cp:coreProperties>"),
])

write_zip("sheet.ods", [
    ("mimetype", "application/vnd.oasis.opendocument.spreadsheet"),
    ("content.xml",
     '<office:document-content><table:table table:name="Tab"><table:table-row>'
     '<table:table-cell><text:p>a<text:s text:c="2"/>b</text:p></table:table-cell>'
     "<table:table-cell><text:p>c</text:p></table:table-cell></table:table-row>"
     "</table:table></office:document-content>"),
    ("meta.xml",
     "<office:meta><meta:keyword>x</meta:keyword><meta:keyword>y"
     "</meta:keyword><meta:initial-creator>Cy</meta:initial-creator>"
     "</office:meta>"),
])

write_zip("deck.odp", [
    ("mimetype", "application/vnd.oasis.opendocument.presentation"),
    ("content.xml",
     "<o><draw:page><text:p>One</text:p></draw:page><draw:page>"
     "<text:h>Two</text:h><text:p>Three<text:tab/>four</text:p>"
     "</draw:page></o>"),
])
