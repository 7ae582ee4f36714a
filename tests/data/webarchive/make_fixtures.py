#!/usr/bin/env python3
# Writes the web archive fixtures and their expected answers: python3 make_fixtures.py
# Each NAME.webarchive (a property list: main resource, subframe archives, subresources) gets
# NAME.webarchive.expect.json: the searchable text, the page's title, base URL and description
# (absent when the main resource is no page), or "readable": false.

import os
import sys
import plistlib

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
from fixture_tools import png, write_fixtures  # noqa: E402


def resource(data, mime, url, encoding="UTF-8"):
    fields = {"WebResourceData": data, "WebResourceMIMEType": mime, "WebResourceURL": url}
    if encoding:
        fields["WebResourceTextEncodingName"] = encoding
    return fields


def archive(main, frames=(), subresources=()):
    root = {"WebMainResource": main}
    if frames:
        root["WebSubframeArchives"] = list(frames)
    if subresources:
        root["WebSubresources"] = list(subresources)
    return root


def page(title, body, head=""):
    return ("<!DOCTYPE html>\n<html><head><title>" + title + "</title>" + head + "</head>\n<body>"
            + body + "</body></html>\n")


def pages(*texts):
    """The searchable text: each page's text after a blank line; a closing paragraph leaves one."""
    return "".join("\n\n" + text + "\n\n" for text in texts)


FIXTURES = []


def fixture(name, root, expected, fmt=plistlib.FMT_BINARY):
    FIXTURES.append((name, plistlib.dumps(root, fmt=fmt, sort_keys=True), expected))


SITE = "https://ferries.example/"

# A page of frames, one holding a frame of its own: frames are read depth first after the page;
# style sheets and images are subresources and give no text.
fixture("frames.webarchive", archive(
    resource(page("Fähren am Fluss",
                  "<h1>Fahrplan</h1><p>Die erste Fähre fährt um 6:40.</p>"
                  "<iframe src=\"left.html\"></iframe><iframe src=\"right.html\"></iframe>",
                  "<meta name=\"description\" content=\"Fahrpläne &amp; Preise\">"
                  "<link rel=\"stylesheet\" href=\"site.css\">").encode(), "text/html", SITE),
    frames=[
        archive(resource(page("Links", "<p>Erster Rahmen: Anleger Nord.</p>"
                              "<iframe src=\"inner.html\"></iframe>").encode(),
                         "text/html", SITE + "left.html"),
                frames=[archive(resource(page("Innen", "<p>Innerer Rahmen: Kiosk.</p>").encode(),
                                         "text/html", SITE + "inner.html"))],
                subresources=[resource(png(2, 2, (0, 90, 200)), "image/png",
                                       SITE + "pier.png", None)]),
        archive(resource(page("Rechts", "<p>Zweiter Rahmen: Grüße vom Südufer.</p>").encode(),
                         "text/html", SITE + "right.html")),
    ],
    subresources=[
        resource(b"body { font-family: serif }", "text/css", SITE + "site.css"),
        resource(png(3, 1, (250, 200, 0)), "image/png", SITE + "logo.png", None),
    ]), {
    "text": pages("Fahrplan\n\nDie erste Fähre fährt um 6:40.", "Erster Rahmen: Anleger Nord.",
                  "Innerer Rahmen: Kiosk.", "Zweiter Rahmen: Grüße vom Südufer."),
    "title": "Fähren am Fluss",
    "baseURL": SITE,
    "description": "Fahrpläne & Preise",
})

# Latin 1 bytes, the encoding named by the archive.
fixture("latin1-named.webarchive", archive(resource(
    page("Météo de la côte",
         "<p>Vent d'ouest, mer agitée ; éclaircies l'après-midi.</p>").encode("latin-1"),
    "text/html", "https://meteo.example/cote", "ISO-8859-1")), {
    "text": pages("Vent d'ouest, mer agitée ; éclaircies l'après-midi."),
    "title": "Météo de la côte",
    "baseURL": "https://meteo.example/cote",
})

# Central European bytes: only the archive's encoding name tells them from Latin 1.
fixture("cp1250-named.webarchive", archive(resource(
    page("Počasí na pobřeží",
         "<p>Silný vítr od moře, přeháňky; odpoledne se vyjasní. Łódź: słońce.</p>"
         ).encode("cp1250"),
    "text/html", "https://pocasi.example/pobrezi", "windows-1250")), {
    "text": pages("Silný vítr od moře, přeháňky; odpoledne se vyjasní. Łódź: słońce."),
    "title": "Počasí na pobřeží",
    "baseURL": "https://pocasi.example/pobrezi",
})

# No encoding name: the page's own charset (Windows Latin 1, whose 0x80 is the euro sign) wins
# over the Latin 1 fallback.
fixture("meta-charset.webarchive", archive(resource(
    page("Prix du passage",
         "<p>Aller simple : 4 \u20ac, aller-retour : 7 \u20ac — enfants gratuits.</p>",
         "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=windows-1252\">"
         ).encode("cp1252"),
    "text/html", "https://ferries.example/prix", None)), {
    "text": pages("Aller simple : 4 \u20ac, aller-retour : 7 \u20ac — enfants gratuits."),
    "title": "Prix du passage",
    "baseURL": "https://ferries.example/prix",
})

# An image saved as an archive, with a caption frame: the text comes from the frame alone and
# there is no page to give a title.
fixture("image-main.webarchive", archive(
    resource(png(4, 4, (30, 30, 30)), "image/png", "https://photos.example/heron.png", None),
    frames=[archive(resource(page("Caption", "<p>A heron on the weir at dawn.</p>").encode(),
                             "text/html", "https://photos.example/caption.html"))]), {
    "text": pages("A heron on the weir at dawn."),
    "baseURL": "https://photos.example/heron.png",
})

# The same layout written as an XML property list, with an XHTML page.
fixture("xml-list.webarchive", archive(resource(
    ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<html xmlns=\"http://www.w3.org/1999/xhtml\">"
     "<head><title>Tide table</title></head><body><p>High water 07:12 and 19:40.</p>"
     "</body></html>").encode(), "application/xhtml+xml", "https://tides.example/today")),
    {
        "text": pages("High water 07:12 and 19:40."),
        "title": "Tide table",
        "baseURL": "https://tides.example/today",
    }, fmt=plistlib.FMT_XML)

# Damaged: a list whose root is an array, and a list cut off halfway.
FIXTURES.append(("damaged-root-array.webarchive",
                 plistlib.dumps([archive(resource(b"<p>x</p>", "text/html", SITE))],
                                fmt=plistlib.FMT_BINARY), {"readable": False}))
whole = plistlib.dumps(archive(resource(page("Cut", "<p>cut off</p>").encode(), "text/html", SITE)),
                       fmt=plistlib.FMT_BINARY, sort_keys=True)
FIXTURES.append(("damaged-truncated.webarchive", whole[:len(whole) // 2], {"readable": False}))


if __name__ == "__main__":
    write_fixtures(HERE, FIXTURES)
