#!/usr/bin/env python3
# Writes the address card fixtures and their expected answers: python3 make_fixtures.py
# Each NAME.vcf gets NAME.vcf.expect.json: the text the reader gives (kMDItemTextContent), its
# e-mail, phone and URL attributes (absent when the card has none), the proposed name, or
# "readable": false for a file without a card.

import base64
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
from fixture_tools import png, write_fixtures  # noqa: E402


def folded(head, data, width=74, indent="  "):
    """A base64 property folded the way address books write photos."""
    text = base64.b64encode(data).decode()
    lines = [head + text[:width - len(head)]]
    text = text[width - len(head):]
    while text:
        lines.append(indent + text[:width])
        text = text[width:]
    return lines


def card(lines, newline="\r\n"):
    return newline.join(["BEGIN:VCARD"] + lines + ["END:VCARD"]) + newline


FIXTURES = []


def fixture(name, data, expected):
    FIXTURES.append((name, data, expected))


# 3.0 as address books on the desktop write it: grouped labels, several middle names, escapes,
# a folded note, a home page label and a photo that must not reach the text.
fixture("v30-grouped-labels.vcf", card([
    "VERSION:3.0",
    "N:Lindqvist;Maja;Elin,Sofia;Dr.;",
    "FN:Dr. Maja Elin Sofia Lindqvist",
    "NICKNAME:Majsan",
    "X-PHONETIC-LAST-NAME:Lindkvist",
    "ORG:Fjällräven Instruments;Calibration",
    "TITLE:Lead Metrologist",
    "EMAIL;type=INTERNET;type=HOME:maja@lindqvist.example",
    "EMAIL;type=INTERNET;type=WORK;type=pref:maja.lindqvist@fjallinstruments.example",
    "TEL;type=WORK;type=pref:+46 8 555 0101",
    "TEL;type=CELL:+46 70 555 0102",
    "TEL;type=HOME;type=FAX:+46 8 555 0103",
    "item1.TEL:+46 8 555 0104",
    "item1.X-ABLabel:Workshop",
    "item2.ADR;type=HOME;type=pref:;;Ringvägen 12\\, lägenhet 4;Stockholm;;118 60;Sverige",
    "item2.X-ABADR:se",
    "item3.ADR;type=WORK:;;Mätvägen 3\\nHus B;Uppsala;Uppsala län;752 28;Sweden",
    "item3.X-ABADR:se",
    "X-AIM;type=HOME;type=pref:majalq",
    "IMPP;X-SERVICE-TYPE=Jabber;type=HOME:xmpp:maja@chat.example",
    "NOTE:Prefers e-mail to calls.\\nMeets on Thursdays at the \\\"Kaffestugan\\\"\\, floor",
    "  two.",
    "item4.URL;type=pref:https\\://fjallinstruments.example/maja",
    "item4.X-ABLabel:_$!<HomePage>!$_",
    "item5.URL:https://lindqvist.example",
    "BDAY;value=date:1984-02-29",
] + folded("PHOTO;ENCODING=b;TYPE=PNG:", png(4, 4, (40, 90, 160)))).encode(), {
    "text": "Maja\nElin Sofia\nLindqvist\nMajsan\nFjällräven Instruments\n"
            "Ringvägen 12, lägenhet 4\n118 60 Stockholm\nSverige\n\n"
            "Mätvägen 3\nHus B\n752 28 Uppsala\nUppsala län\nSweden\n"
            "+46 8 555 0101\n+46 70 555 0102\n+46 8 555 0103\n+46 8 555 0104\n"
            "majalq\nmaja@chat.example\n"
            "Prefers e-mail to calls.\nMeets on Thursdays at the \"Kaffestugan\", floor two.\n",
    "emails": ["maja@lindqvist.example", "maja.lindqvist@fjallinstruments.example"],
    "phones": ["+46 8 555 0101", "+46 70 555 0102", "+46 8 555 0103", "+46 8 555 0104"],
    "url": "https://fjallinstruments.example/maja",
    "primaryEmail": "maja.lindqvist@fjallinstruments.example",
    "proposedName": "Maja Elin Sofia Lindqvist",
})

# 2.1 as a mail program writes it: bare types, quoted-printable with soft line breaks and CR LF
# inside the note, a Latin-1 address, a Windows code page name, a folded key and a blank line.
fixture("v21-quoted-printable.vcf", card([
    "VERSION:2.1",
    "N;CHARSET=Windows-1252:\xd8stergaard;Henrik;;Mr.;Jr.",
    "FN:Henrik \xd8stergaard",
    "NICKNAME:Henne",
    "ORG:Harbour Pilots, The;Night Shift",
    "TITLE:Senior Pilot",
    "NOTE;ENCODING=QUOTED-PRINTABLE:Boarding ladder on the port side.=0D=0AAsk for the =",
    "harbour master first.=0D=0A=0D=0ATide tables are in the blue folder.=0D=",
    "=0A",
    "TEL;WORK;VOICE:+45 33 55 01 10",
    "TEL;HOME;VOICE:+45 33 55 01 11",
    "TEL;CELL;VOICE:+45 20 55 01 12",
    "TEL;WORK;FAX:+45 33 55 01 13",
    "ADR;WORK;ENCODING=QUOTED-PRINTABLE;CHARSET=ISO-8859-1:;Pier 4;Havnegade 7=2C k=E6lder;"
    "K=F8benhavn;;1058;Denmark",
    "LABEL;WORK;ENCODING=QUOTED-PRINTABLE:Pier 4=0D=0AHavnegade 7=0D=0A1058 K=F8benhavn=0D=0ADenm=",
    "ark",
    "URL;WORK:http://harbourpilots.example",
    "EMAIL;PREF;INTERNET:henrik@harbourpilots.example",
    "KEY;X509;ENCODING=BASE64:",
    "    " + base64.b64encode(b"not a certificate, only bytes that stand in for one").decode(),
    "",
]).encode("latin-1"), {
    "text": "Henrik\n\u00d8stergaard\nHenne\nHarbour Pilots, The\n"
            "Pier 4\nHavnegade 7, k\u00e6lder\n1058 K\u00f8benhavn\nDenmark\n"
            "+45 33 55 01 10\n+45 33 55 01 11\n+45 20 55 01 12\n+45 33 55 01 13\n"
            "Boarding ladder on the port side.\nAsk for the harbour master first.\n\n"
            "Tide tables are in the blue folder.\n",
    "emails": ["henrik@harbourpilots.example"],
    "phones": ["+45 33 55 01 10", "+45 33 55 01 11", "+45 20 55 01 12", "+45 33 55 01 13"],
    "url": "http://harbourpilots.example",
    "primaryEmail": "henrik@harbourpilots.example",
    "proposedName": "Henrik \u00d8stergaard",
})

# UTF-16 (little-endian, with a byte-order mark) as an address book exports a group: only the
# first card is the person.
fixture("macab-utf16.vcf", "\ufeff".encode("utf-16-le") + (card([
    "VERSION:3.0",
    "N:Okafor;Chidi;;;",
    "FN:Chidi Okafor",
    "ORG:Lagoon Ferries;Økonomi",
    "EMAIL;type=INTERNET;type=WORK;type=pref:chidi@lagoonferries.example",
    "TEL;type=WORK;type=pref:(212) 555-0147",
    "item1.ADR;type=WORK;type=pref:;;Pier 17\\, Suite 5\\,;New York;New York;10038;"
    "United States of America",
    "item1.X-ABADR:us",
    "NOTE:Ferry timetable contact – summer season only.",
] + folded("PHOTO;ENCODING=b;TYPE=PNG:", png(3, 2, (200, 120, 30))) + [
    "X-ABUID:5C3E9A1B-0000-4000-8000-000000000001\\:ABPerson",
]) + card([
    "VERSION:3.0",
    "N:Abara;Ngozi;;;",
    "FN:Ngozi Abara",
    "NOTE:The second card of the group.",
])).encode("utf-16-le"), {
    "text": "Chidi\nOkafor\nLagoon Ferries\n"
            "Pier 17, Suite 5,\nNew York, New York 10038\nUnited States of America\n"
            "(212) 555-0147\nFerry timetable contact – summer season only.\n",
    "emails": ["chidi@lagoonferries.example"],
    "phones": ["(212) 555-0147"],
    "primaryEmail": "chidi@lagoonferries.example",
    "proposedName": "Chidi Okafor",
})

# 4.0 in UTF-8 with bare LF: three cards, a tel: URI, a quoted type list and a quoted label
# holding ";" and ":".
fixture("v40-three-cards.vcf", (card([
    "VERSION:4.0",
    "FN:陈静",
    "N:陈;静;;;",
    "ORG:杭州茶叶合作社",
    "EMAIL;TYPE=work:chen.jing@tea.example.cn",
    "TEL;VALUE=uri;TYPE=\"voice,cell\":tel:+86-571-5550-1234",
    "ADR;TYPE=work;LABEL=\"龙井路 18 号; 茶园: 北门\":;;龙井路 18 号;杭州市;浙江省;310013;中国",
    "URL:https://tea.example.cn/chen",
    "NOTE:春茶四月上市。",
], "\n") + card([
    "VERSION:4.0",
    "FN:Ελένη Μαυρίδου",
    "N:Μαυρίδου;Ελένη;;;",
    "EMAIL;PREF=1:eleni@olives.example.gr",
    "NOTE:Δεύτερη κάρτα.",
], "\n") + card([
    "VERSION:4.0",
    "KIND:org",
    "FN:Olive Press Cooperative",
    "ORG:Olive Press Cooperative",
], "\n")).encode(), {
    "text": "静\n陈\n杭州茶叶合作社\n龙井路 18 号\n310013 杭州市\n浙江省\n中国\n"
            "+86-571-5550-1234\n春茶四月上市。\n",
    "emails": ["chen.jing@tea.example.cn"],
    "phones": ["+86-571-5550-1234"],
    "url": "https://tea.example.cn/chen",
    "primaryEmail": "chen.jing@tea.example.cn",
    "proposedName": "静 陈",
})

# A company card: the formatted name is the organisation, so it is no first name.
fixture("v30-company-photo.vcf", card([
    "VERSION:3.0",
    "N:;;;;",
    "FN:Nordlicht Werkstatt GmbH",
    "ORG:Nordlicht Werkstatt GmbH;Einkauf",
    "X-ABShowAs:COMPANY",
    "EMAIL;type=INTERNET;type=WORK:einkauf@nordlicht.example",
    "TEL;type=MAIN:+49 40 5550 2200",
    "item1.ADR;type=WORK:;;Speicherstraße 8;Hamburg;;20457;Deutschland",
    "item1.X-ABADR:de",
    "item2.URL:https://nordlicht.example",
    "item2.X-ABLabel:_$!<HomePage>!$_",
] + folded("PHOTO;ENCODING=b;TYPE=PNG:", png(2, 2, (250, 250, 250)))).encode(), {
    "text": "Nordlicht Werkstatt GmbH\nSpeicherstraße 8\n20457 Hamburg\nDeutschland\n"
            "+49 40 5550 2200\n",
    "emails": ["einkauf@nordlicht.example"],
    "phones": ["+49 40 5550 2200"],
    "url": "https://nordlicht.example",
    "primaryEmail": "einkauf@nordlicht.example",
    "proposedName": "Nordlicht Werkstatt GmbH",
})

# Quoted-printable that breaks off inside a character: the bytes that remain are no UTF-8 and
# read as Windows Latin 1.
fixture("damaged-truncated-qp.vcf", (
    "BEGIN:VCARD\r\nVERSION:2.1\r\nN:Brandt;Ole\r\n"
    "NOTE;ENCODING=QUOTED-PRINTABLE:Half a note=0D=0Aand=E2=8").encode(), {
    "text": "Ole\nBrandt\nHalf a note\nand\u00e2=8\n",
    "proposedName": "Ole Brandt",
})

fixture("damaged-no-card.vcf", b"NAME: not a card at all\r\nEND:VCARD\r\n", {"readable": False})


if __name__ == "__main__":
    write_fixtures(HERE, FIXTURES)
