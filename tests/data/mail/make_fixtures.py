#!/usr/bin/env python3
# Writes the mail fixtures beside this script: python3 tests/data/mail/make_fixtures.py
#
# Each NAME.eml or NAME.emlx has NAME.expect.json beside it: the attributes the Mail importer
# writes, by their kMDItem names (lists as arrays, dates in seconds since 1970, null for an
# attribute that must be absent; the text is compared word by word). The messages and their
# attachments are written here byte by byte; the attached PDF is the PDF fixture survey.pdf.

import base64
import io
import pathlib
import plistlib
import quopri
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import png, write_json, write_zip  # noqa: E402
SURVEY_PDF = HERE.parent / "pdf" / "survey.pdf"
SURVEY_TEXT = (HERE.parent / "pdf" / "survey.pdf.txt").read_text(encoding="utf-8")


def write(name, message, expected):
    (HERE / name).write_bytes(message)
    write_json(HERE / (name + ".expect.json"), expected)


def crlf(text):
    return text.replace("\n", "\r\n")


def b64_lines(data):
    encoded = base64.b64encode(data).decode("ascii")
    return "".join(encoded[i:i + 76] + "\n" for i in range(0, len(encoded), 76))


def encoded_word(charset, text, encoding="B"):
    data = text.encode(charset)
    if encoding == "B":
        return "=?%s?B?%s?=" % (charset, base64.b64encode(data).decode("ascii"))
    quoted = quopri.encodestring(data, header=True).decode("ascii")
    return "=?%s?Q?%s?=" % (charset, quoted)


def stored_zip(members):
    """A zip file with fixed dates and stored members, the same bytes on every run."""
    buffer = io.BytesIO()
    write_zip(buffer, members, (2021, 5, 1, 12, 0, 0), mode=0)
    return buffer.getvalue()


def png_1x1():
    return png(1, 1, (0x80,), colour_type=0)


# 1: a plain message, UTF-8 in 8 bits, recipients in To and Cc.
PLAIN_BODY = """Hello both,

the watering rota for July is below. Plot 7 needs extra care because the courgettes wilt by noon.

Monday and Thursday: Jonas
Tuesday and Friday: Ruth
Weekends: whoever reaches the shed first – thank you!

Marta
"""
write("plain.eml", crlf("""From: Marta Kowalczyk <marta@allotment.example>
To: Jonas Berg <jonas@allotment.example>, tools@allotment.example
Cc: "Ruth O'Neill" <ruth@allotment.example>
Subject: Watering rota for July
Date: Sat, 03 Jul 2021 08:15:00 +0200
Message-ID: <rota-1@allotment.example>
MIME-Version: 1.0
Content-Type: text/plain; charset=utf-8
Content-Transfer-Encoding: 8bit

""" + PLAIN_BODY).encode("utf-8"), {
    "kMDItemTitle": "Watering rota for July",
    "kMDItemAuthors": ["Marta Kowalczyk"],
    "kMDItemAuthorEmailAddresses": ["marta@allotment.example"],
    "kMDItemRecipients": ["Jonas Berg", "tools@allotment.example", "Ruth O'Neill"],
    "kMDItemRecipientEmailAddresses":
        ["jonas@allotment.example", "tools@allotment.example", "ruth@allotment.example"],
    "kMDItemContentCreationDate": 1625292900,
    "kMDItemTextContent": PLAIN_BODY,
})

# 2: the same words twice; the plain alternative is the text, the HTML one is not read.
ALTERNATIVE_PLAIN = ("The seed catalogue arrived. Order sweet peas before Friday, "
                     "please; the café next door keeps the form.\n")
write("alternative.eml", ("""From: seeds@allotment.example
To: Committee: anna@allotment.example, lee@allotment.example;
Subject: Seed catalogue
Date: Mon, 10 May 2021 19:00:00 -0000
MIME-Version: 1.0
Content-Type: multipart/alternative; boundary="alt-1"

This part is for mail programs without MIME.
--alt-1
Content-Type: text/plain; charset=utf-8
Content-Transfer-Encoding: quoted-printable

""" + quopri.encodestring(ALTERNATIVE_PLAIN.encode("utf-8")).decode("ascii") + """
--alt-1
Content-Type: text/html; charset=utf-8

<html><body><p>Rich version with a <b>bold</b> reminder.</p></body></html>
--alt-1--
""").encode("ascii"), {
    "kMDItemTitle": "Seed catalogue",
    "kMDItemAuthors": ["seeds@allotment.example"],
    "kMDItemAuthorEmailAddresses": ["seeds@allotment.example"],
    "kMDItemRecipients": ["anna@allotment.example", "lee@allotment.example"],
    "kMDItemRecipientEmailAddresses": ["anna@allotment.example", "lee@allotment.example"],
    "kMDItemContentCreationDate": 1620673200,
    "kMDItemTextContent": ALTERNATIVE_PLAIN,
})

# 3: HTML only, Latin-1 in quoted-printable: the text is the HTML's text.
HTML = ("<html><body><h1>Harvest fair</h1><p>Bring your largest marrow &amp; a jar of "
        "jam.<br>Prizes for the best pumpkin go to the Kr\u00e4mer family's stall.</p>"
        "</body></html>\n")
write("html-only.eml", crlf("""From: Fair Team <fair@allotment.example>
To: everyone@allotment.example
Subject: Harvest fair
Date: Sun, 12 Sep 2021 10:30:00 +0100
MIME-Version: 1.0
Content-Type: text/html; charset=iso-8859-1
Content-Transfer-Encoding: quoted-printable

""" + quopri.encodestring(HTML.encode("latin-1")).decode("ascii")).encode("ascii"), {
    "kMDItemTitle": "Harvest fair",
    "kMDItemAuthors": ["Fair Team"],
    "kMDItemRecipientEmailAddresses": ["everyone@allotment.example"],
    "kMDItemContentCreationDate": 1631439000,
    "kMDItemTextContent": "Harvest fair\n\nBring your largest marrow & a jar of jam.\n"
                          "Prizes for the best pumpkin go to the Kr\u00e4mer family's stall.",
})

# 4: encoded words in several charsets, a folded subject, a second Subject header that mail
# programs ignore, and a body in ISO-8859-15 (its euro sign is not Latin-1's).
SUBJECT = (encoded_word("ISO-8859-1", "K\u00fcrbis", "Q") + " " + encoded_word("UTF-8", "ernte")
           + "\n report for the " + encoded_word("UTF-8", "Gärtner") + " of row B")
ENCODED_BODY = "The pumpkins sold for 4 \u20ac each; Zo\u00eb counted 31 of them.\n"
write("encoded-headers.eml", ("From: " + encoded_word("UTF-8", "Zo\u00eb \u00c5ngstr\u00f6m")
                              + " <zoe@allotment.example>\nTo: "
                              + encoded_word("ISO-8859-2", "\u0141ukasz W\u00f3jcik", "Q")
                              + " <lukasz@allotment.example>\nSubject: " + SUBJECT + """
Subject: A second subject nobody shows
Date: Fri, 1 Oct 2021 18:45:30 +0200
MIME-Version: 1.0
Content-Type: text/plain; charset=iso-8859-15
Content-Transfer-Encoding: 8bit

""").encode("ascii") + ENCODED_BODY.encode("iso-8859-15"), {
    "kMDItemTitle": "K\u00fcrbisernte report for the G\u00e4rtner of row B",
    "kMDItemAuthors": ["Zo\u00eb \u00c5ngstr\u00f6m"],
    "kMDItemAuthorEmailAddresses": ["zoe@allotment.example"],
    "kMDItemRecipients": ["\u0141ukasz W\u00f3jcik"],
    "kMDItemRecipientEmailAddresses": ["lukasz@allotment.example"],
    "kMDItemContentCreationDate": 1633106730,
    "kMDItemTextContent": ENCODED_BODY,
})

# 5: Japanese in ISO-2022-JP, a stateful charset, in two encoded words and in the body.
JAPANESE_SUBJECT = ["\u7551\u306e", "\u6c34\u3084\u308a\u5f53\u756a"]  # the field's watering duty
JAPANESE_BODY = "\u660e\u65e5\u306f\u96e8\u306a\u306e\u3067\u3001\u6c34\u3084\u308a\u306f\u4e0d\u8981\u3067\u3059\u3002\n"
write("japanese.eml", ("From: " + encoded_word("ISO-2022-JP", "\u4f50\u85e4") +
                       " <sato@allotment.example>\nTo: kenji@allotment.example\nSubject: "
                       + " ".join(encoded_word("ISO-2022-JP", w) for w in JAPANESE_SUBJECT)
                       + """
Date: Tue, 15 Jun 2021 07:00:00 +0900
MIME-Version: 1.0
Content-Type: text/plain; charset=ISO-2022-JP
Content-Transfer-Encoding: 7bit

""").encode("ascii") + JAPANESE_BODY.encode("iso-2022-jp"), {
    "kMDItemTitle": "".join(JAPANESE_SUBJECT),
    "kMDItemAuthors": ["\u4f50\u85e4"],
    "kMDItemAuthorEmailAddresses": ["sato@allotment.example"],
    "kMDItemRecipientEmailAddresses": ["kenji@allotment.example"],
    "kMDItemContentCreationDate": 1623708000,
    "kMDItemTextContent": JAPANESE_BODY,
})

# 6: attachments: each readable one's text follows its name; a forwarded message's plain text
# joins the body; an image is named only.
DOCX = stored_zip([
    ("[Content_Types].xml",
     '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
     '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
     '<Default Extension="rels" '
     'ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
     '<Default Extension="xml" ContentType="application/xml"/>'
     '<Override PartName="/word/document.xml" ContentType="application/'
     'vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml"/></Types>'),
    ("_rels/.rels",
     '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
     '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
     '<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/'
     'relationships/officeDocument" Target="word/document.xml"/></Relationships>'),
    ("word/document.xml",
     '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
     '<w:document xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main">'
     '<w:body><w:p><w:r><w:t>Minutes of the spring meeting</w:t></w:r></w:p>'
     '<w:p><w:r><w:t xml:space="preserve">Twelve members voted for a </w:t></w:r>'
     '<w:r><w:t>second compost heap.</w:t></w:r></w:p></w:body></w:document>'),
])
ODT = stored_zip([
    ("mimetype", "application/vnd.oasis.opendocument.text"),
    ("META-INF/manifest.xml",
     '<?xml version="1.0" encoding="UTF-8"?>\n'
     '<manifest:manifest xmlns:manifest="urn:oasis:names:tc:opendocument:xmlns:manifest:1.0" '
     'manifest:version="1.2"><manifest:file-entry manifest:full-path="/" '
     'manifest:media-type="application/vnd.oasis.opendocument.text"/>'
     '<manifest:file-entry manifest:full-path="content.xml" manifest:media-type="text/xml"/>'
     '</manifest:manifest>'),
    ("content.xml",
     '<?xml version="1.0" encoding="UTF-8"?>\n'
     '<office:document-content '
     'xmlns:office="urn:oasis:names:tc:opendocument:xmlns:office:1.0" '
     'xmlns:text="urn:oasis:names:tc:opendocument:xmlns:text:1.0" office:version="1.2">'
     '<office:body><office:text><text:p>Agreed: new water butts for plots 3 and 4.</text:p>'
     '</office:text></office:body></office:document-content>'),
])
# "Plot number five has a new owner", in Polish, in Windows code page 1250.
RTF_TEXT = "Dzia\u0142ka numer pi\u0119\u0107 ma nowego w\u0142a\u015bciciela."
RTF = ("{\\rtf1\\ansi\\ansicpg1250\\deff0{\\fonttbl{\\f0 Arial;}}\\f0 "
       + "".join(c if c.isascii() else "\\'%02x" % c.encode("cp1250")[0] for c in RTF_TEXT)
       + "\\par}").encode("ascii")
NOTES = "Compost bins are emptied on the first Sunday of the month.\n"
FORWARDED = "The council collects green waste on Friday mornings.\n"
ATTACHMENTS_BODY = "The minutes, the plot map and last year's survey are attached.\n"


def attachment(name, content_type, data, encoding="base64"):
    body = b64_lines(data) if encoding == "base64" else data.decode("ascii") + "\n"
    return ("--mixed-1\nContent-Type: %s\nContent-Disposition: attachment; filename=\"%s\"\n"
            "Content-Transfer-Encoding: %s\n\n%s" % (content_type, name, encoding, body))


message = """From: Secretary <secretary@allotment.example>
To: members@allotment.example
Subject: Papers for the meeting
Date: Wed, 05 May 2021 21:00:00 +0000
MIME-Version: 1.0
Content-Type: multipart/mixed; boundary="mixed-1"

--mixed-1
Content-Type: text/plain; charset=us-ascii

""" + ATTACHMENTS_BODY
message += attachment("notes.txt", "text/plain; charset=us-ascii", NOTES.encode("ascii"), "7bit")
message += attachment("hours.html", "text/html; charset=us-ascii",
                      b"<p>Shed <b>opening</b> hours: nine to five</p>", "7bit")
message += attachment("survey.pdf", "application/pdf", SURVEY_PDF.read_bytes())
message += attachment("minutes.docx", "application/vnd.openxmlformats-officedocument."
                      "wordprocessingml.document", DOCX)
message += attachment("decisions.odt", "application/octet-stream", ODT)
message += attachment("letter.rtf", "application/rtf", RTF)
message += attachment("map.png", "image/png", png_1x1())
message += """--mixed-1
Content-Type: message/rfc822

From: Council <waste@council.example>
Subject: Green waste
Content-Type: text/plain

""" + FORWARDED + "--mixed-1--\n"
write("attachments.eml", crlf(message).encode("ascii"), {
    "kMDItemTitle": "Papers for the meeting",
    "kMDItemAuthors": ["Secretary"],
    "kMDItemRecipientEmailAddresses": ["members@allotment.example"],
    "kMDItemContentCreationDate": 1620248400,
    "kMDItemTextContent": "\n".join([
        ATTACHMENTS_BODY, FORWARDED, "notes.txt", NOTES, "hours.html",
        "Shed opening hours: nine to five", "survey.pdf", SURVEY_TEXT, "minutes.docx",
        "Minutes of the spring meeting\nTwelve members voted for a second compost heap.",
        "decisions.odt", "Agreed: new water butts for plots 3 and 4.", "letter.rtf", RTF_TEXT,
        "map.png"]),
})

# 8: the body only as HTML in a related part (with its picture) inside an alternative whose plain
# part is blank, and a plain footer a mailing list added beside it: both are the text.
RELATED_FOOTER = "You receive this because you rent a plot. Unsubscribe at the shed.\n"
message = """From: Newsletter <news@allotment.example>
To: members@allotment.example
Subject: Autumn newsletter
Date: Sat, 02 Oct 2021 08:00:00 +0000
MIME-Version: 1.0
Content-Type: multipart/mixed; boundary="mixed-2"

--mixed-2
Content-Type: multipart/alternative; boundary="alt-2"

--alt-2
Content-Type: text/plain; charset=us-ascii

\x20
--alt-2
Content-Type: multipart/related; boundary="rel-2"

--rel-2
Content-Type: text/html; charset=us-ascii

<html><body><h2>Autumn newsletter</h2><p>The apple press is free to borrow in October.</p>
<p><img src="cid:logo"> Leaf mould bags are by the gate.</p></body></html>
--rel-2
Content-Type: image/png
Content-ID: <logo>
Content-Transfer-Encoding: base64

""" + b64_lines(png_1x1()) + """--rel-2--
--alt-2--
--mixed-2
Content-Type: text/plain; charset=us-ascii
Content-Disposition: inline

""" + RELATED_FOOTER + "--mixed-2--\n"
write("related.eml", crlf(message).encode("ascii"), {
    "kMDItemTitle": "Autumn newsletter",
    "kMDItemAuthors": ["Newsletter"],
    "kMDItemRecipientEmailAddresses": ["members@allotment.example"],
    "kMDItemContentCreationDate": 1633161600,
    "kMDItemTextContent": "Autumn newsletter\nThe apple press is free to borrow in October.\n"
                          "Leaf mould bags are by the gate.\n" + RELATED_FOOTER,
})

# 7: Apple Mail's .emlx: the byte count, the message, then a property list that is not text.
EMLX_BODY = "Your order of 40 onion sets and 2 kg of seed potatoes is on its way.\n"
EMLX_MESSAGE = crlf("""From: Garden Supplies <orders@supplies.example>
To: Marta Kowalczyk <marta@allotment.example>
Subject: Seed order confirmed
Date: Thu, 18 Mar 2021 14:20:00 +0000
Content-Type: text/plain; charset=us-ascii

""" + EMLX_BODY).encode("ascii")
EMLX_PLIST = plistlib.dumps({"date-received": 1616077200, "flags": 8590195713,
                             "subject": "Plist subject, not the message's"}, sort_keys=True)
write("order.emlx", b"%d\n" % len(EMLX_MESSAGE) + EMLX_MESSAGE + EMLX_PLIST, {
    "kMDItemTitle": "Seed order confirmed",
    "kMDItemAuthors": ["Garden Supplies"],
    "kMDItemAuthorEmailAddresses": ["orders@supplies.example"],
    "kMDItemRecipients": ["Marta Kowalczyk"],
    "kMDItemRecipientEmailAddresses": ["marta@allotment.example"],
    "kMDItemContentCreationDate": 1616077200,
    "kMDItemTextContent": EMLX_BODY,
})

# 8: a mailbox: messages after "From " lines, one with a line that begins "From " escaped as
# ">From ". It answers each message's subject and text, everyone once in the order met, and the
# first and the last date; its title stays the file's name.
MAILBOX_MESSAGES = [
    ("Marta Kowalczyk <marta@allotment.example>", "Jonas Berg <jonas@allotment.example>",
     "Tue, 06 Jul 2021 09:00:00 +0000", "Shed key",
     "The shed key is under the third pot.\n>From now on please lock it.\n"),
    ("Jonas Berg <jonas@allotment.example>", "Marta Kowalczyk <marta@allotment.example>",
     "Mon, 05 Jul 2021 18:30:00 +0000", "Re: Shed key", "Found it, thank you.\n"),
    ("Ruth O'Neill <ruth@allotment.example>",
     "Marta Kowalczyk <MARTA@allotment.example>, tools@allotment.example",
     "Wed, 07 Jul 2021 07:45:00 +0000", encoded_word("UTF-8", "Gie\u00dfkanne repaired"),
     "The watering can no longer leaks.\n"),
]
mailbox = ""
for sender, recipients, date, subject, body in MAILBOX_MESSAGES:
    mailbox += ("From allotment Tue Jul  6 09:00:00 2021\nFrom: %s\nTo: %s\nSubject: %s\n"
                "Date: %s\nContent-Type: text/plain; charset=utf-8\n\n%s\n"
                % (sender, recipients, subject, date, body))
write("shed.mbox", mailbox.encode("utf-8"), {
    "kMDItemTitle": None,
    "kMDItemAuthors": ["Marta Kowalczyk", "Jonas Berg", "Ruth O'Neill"],
    "kMDItemAuthorEmailAddresses":
        ["marta@allotment.example", "jonas@allotment.example", "ruth@allotment.example"],
    "kMDItemRecipients": ["Jonas Berg", "Marta Kowalczyk", "tools@allotment.example"],
    "kMDItemRecipientEmailAddresses":
        ["jonas@allotment.example", "marta@allotment.example", "tools@allotment.example"],
    "kMDItemContentCreationDate": 1625509800,
    "kMDItemContentModificationDate": 1625643900,
    "kMDItemTextContent": "Shed key\nThe shed key is under the third pot.\n>From now on please "
                          "lock it.\n\nRe: Shed key\nFound it, thank you.\n\nGie\u00dfkanne "
                          "repaired\nThe watering can no longer leaks.\n",
})

# 9: a mailbox of one message (Eudora's .mbx) answers as that message.
sender, recipients, date, subject, body = MAILBOX_MESSAGES[1]
write("reply.mbx", ("From allotment Mon Jul  5 18:30:00 2021\nFrom: %s\nTo: %s\nSubject: %s\n"
                    "Date: %s\n\n%s" % (sender, recipients, subject, date, body)).encode("ascii"), {
    "kMDItemTitle": "Re: Shed key",
    "kMDItemAuthors": ["Jonas Berg"],
    "kMDItemAuthorEmailAddresses": ["jonas@allotment.example"],
    "kMDItemRecipients": ["Marta Kowalczyk"],
    "kMDItemRecipientEmailAddresses": ["marta@allotment.example"],
    "kMDItemContentCreationDate": 1625509800,
    "kMDItemContentModificationDate": None,
    "kMDItemTextContent": body,
})
