#!/usr/bin/env python3
# Writes the reStructuredText fixtures and their expected answers: python3 make_fixtures.py
import json
import pathlib

HERE = pathlib.Path(__file__).resolve().parent

FIELD_NOTES = """\
.. A comment before the title is not part of it.

=====================
 Field Notes on Moss
=====================

-------------------------
A Season Along the Stream
-------------------------

:Authors: Ada Quill; Ben Marsh
:Date: 2024-03-18
:Copyright: The authors, 2024.
:Abstract: Twelve weeks of counting moss cushions
   on the north bank.

.. meta::
   :keywords: moss, stream, survey
   :description: ignored, the abstract came first

The first cushion grew on a stone that the water covered each spring.

Counting
========

We counted *every* cushion wider than a thumb.
"""

LATIN1 = """\
Café Ledger
===========

---------------
Kept by the Day
---------------

:Author: Zoë Brandt

Receipts from the café on the corner, kept by hand.
"""

NO_TITLE = """\
This note starts with a paragraph, so it has no title.

.. meta::
   :description: A note without a header.

Later Section
-------------

:Author: nobody, since fields after body text are not the header
"""

FIXTURES = {
    "field-notes.rst": (FIELD_NOTES, "utf-8", {
        "title": "Field Notes on Moss",
        "authors": ["Ada Quill", "Ben Marsh"],
        "date": "2024-03-18",
        "copyright": "The authors, 2024.",
        "description": "Twelve weeks of counting moss cushions on the north bank.",
        "keywords": ["moss", "stream", "survey"],
        "words": ["cushion", "thumb", "spring"],
    }),
    "latin1-ledger.rst": (LATIN1, "latin-1", {
        "title": "Café Ledger",
        "description": "Kept by the Day",
        "authors": ["Zoë Brandt"],
        "words": ["Receipts", "café"],
    }),
    "no-title.rst": (NO_TITLE, "utf-8", {
        "description": "A note without a header.",
        "words": ["paragraph", "Later"],
    }),
}

for name, (text, encoding, expected) in FIXTURES.items():
    (HERE / name).write_bytes(text.encode(encoding))
    (HERE / (name + ".expect.json")).write_text(
        json.dumps(expected, ensure_ascii=False, indent=1, sort_keys=True) + "\n",
        encoding="utf-8")
