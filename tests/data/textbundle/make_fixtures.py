#!/usr/bin/env python3
# Writes the text bundle fixtures and their expected answers: python3 make_fixtures.py
# Bundles are folders (NAME.textbundle) or zip archives of one (NAME.textpack); each gets
# NAME.expect.json holding the text the reader gives, or null for none.

import json
import os
import sys
import shutil
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
from fixture_tools import png, write_json  # noqa: E402


def info(version, kind="net.daringfireball.markdown"):
    return json.dumps({"version": version, "type": kind, "transient": False,
                       "creatorIdentifier": "org.ulvekbot.fixtures"}, indent=2).encode() + b"\n"


FIELD_GUIDE = """# Field Guide to the Marsh

The marsh floods twice a year, in March and again in late October. Walk the boardwalk, not the
reeds: the peat gives way without warning.

![Heron at dawn](assets/heron.png)

## Birds worth waiting for

- Grey heron, standing still for minutes at a time
- Bearded reedling, heard long before it is seen
- Marsh harrier, low over the water at dusk

*Bring boots.* The café at the gate sells tea until four, and the crème brûlée is worth the
detour.
"""

TASTING_NOTES = """Tasting Notes
=============

Three cheeses from the Jura, tasted side by side:

1. Comté, eighteen months: nutty, with crystals that crunch.
2. Morbier: soft, with a line of ash through the middle.
3. Bleu de Gex: sharp and creamy at once.

See [the map](assets/map.png) for the farms.
"""

LATIN1 = "Grüße aus dem Süden: die Straße am Fluss ist gesperrt, bitte über die Brücke fahren.\n"

# name -> (files, expected text); a file's bytes, or None for a folder of its own.
BUNDLES = {
    "field-guide.textbundle": ({
        "info.json": info(2),
        "text.md": FIELD_GUIDE.encode(),
        "assets/heron.png": png(3, 3, (90, 110, 120)),
    }, FIELD_GUIDE),
    "tasting-notes.textbundle": ({
        "info.json": info(1),
        "text.markdown": TASTING_NOTES.encode(),
        "assets/map.png": png(2, 2, (200, 180, 90)),
    }, TASTING_NOTES),
    # No byte-order mark and no UTF-8: the text is detected as Latin 1.
    "latin1-plain.textbundle": ({
        "info.json": info(2, "public.plain-text"),
        "text.txt": LATIN1.encode("latin-1"),
    }, LATIN1),
    "no-text.textbundle": ({
        "info.json": info(2),
        "assets/heron.png": png(1, 1, (0, 0, 0)),
    }, None),
}

# name -> (the bundle packed inside, expected text)
PACKS = {
    "field-guide.textpack": ("field-guide.textbundle", FIELD_GUIDE),
    "tasting-notes.textpack": ("tasting-notes.textbundle", TASTING_NOTES),
}


def write_bundle(path, files):
    shutil.rmtree(path, ignore_errors=True)
    for name, data in files.items():
        target = os.path.join(path, name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as file:
            file.write(data)


def pack(path, bundle, files):
    """A zip with folder entries first, fixed times and modes, so it comes out the same."""
    entries = {}
    for name in sorted(files):
        parts = name.split("/")
        for depth in range(len(parts)):
            folder = "/".join([bundle] + parts[:depth]) + "/"
            entries.setdefault(folder, None)
        entries[bundle + "/" + name] = files[name]
    with zipfile.ZipFile(path, "w") as archive:
        for name, data in entries.items():
            entry = zipfile.ZipInfo(name, date_time=(2024, 5, 1, 12, 0, 0))
            entry.create_system = 3
            if data is None:
                entry.external_attr = (0o40755 << 16) | 0x10
                archive.writestr(entry, b"")
            else:
                entry.external_attr = 0o100644 << 16
                entry.compress_type = zipfile.ZIP_DEFLATED
                archive.writestr(entry, data)


def expect(name, text):
    write_json(os.path.join(HERE, name + ".expect.json"), {"text": text})


def main():
    for name, (files, text) in BUNDLES.items():
        write_bundle(os.path.join(HERE, name), files)
        expect(name, text)
    for name, (bundle, text) in PACKS.items():
        pack(os.path.join(HERE, name), bundle, BUNDLES[bundle][0])
        expect(name, text)
    # A pack cut off in the middle of its first member: no bundle comes out of it.
    with open(os.path.join(HERE, "field-guide.textpack"), "rb") as file:
        whole = file.read()
    with open(os.path.join(HERE, "damaged-truncated.textpack"), "wb") as file:
        file.write(whole[:len(whole) // 3])
    expect("damaged-truncated.textpack", None)


if __name__ == "__main__":
    main()
