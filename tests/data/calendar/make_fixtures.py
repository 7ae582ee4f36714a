#!/usr/bin/env python3
# Writes the calendar fixtures beside this script: python3 tests/data/calendar/make_fixtures.py
#
# Each NAME.ics has NAME.ics.expect.json beside it: the attributes the Calendar importer writes,
# by their kMDItem names (lists as arrays, dates in seconds since 1970, null for an attribute that
# must be absent; the text is compared word by word). The files are written byte by byte, with
# the CRLF line ends, escapes and folded lines calendar programs write.

import datetime
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
from fixture_tools import write_json  # noqa: E402


def write(name, lines, expected):
    (HERE / name).write_bytes(("\r\n".join(lines) + "\r\n").encode("utf-8"))
    write_json(HERE / (name + ".expect.json"), expected)


def seconds(text):
    return int(datetime.datetime.strptime(text, "%Y%m%dT%H%M%SZ")
               .replace(tzinfo=datetime.timezone.utc).timestamp())


# 1: an invitation: one event, its organiser and attendees (one without a name), an escaped
# summary, a description folded over two lines with an escaped line break, and categories.
write("invitation.ics", [
    "BEGIN:VCALENDAR", "VERSION:2.0", "PRODID:-//Allotment//Invitations//EN", "METHOD:REQUEST",
    "BEGIN:VEVENT",
    "UID:swap-2021@allotment.example",
    "DTSTAMP:20210301T090000Z",
    "CREATED:20210228T170000Z",
    "LAST-MODIFIED:20210302T080000Z",
    "DTSTART:20210320T100000Z",
    "DTEND:20210320T120000Z",
    "SUMMARY:Seed swap\\, spring edition",
    "LOCATION:Shed 2\\; Allotment Lane",
    "DESCRIPTION:Bring labelled envelopes.\\nTea and cake by the compost heap\\, as",
    "  every year.",
    "CATEGORIES:Garden,Seeds",
    "ORGANIZER;CN=\"Marta Kowalczyk\":mailto:marta@allotment.example",
    "ATTENDEE;CN=Jonas Berg;PARTSTAT=NEEDS-ACTION:mailto:jonas@allotment.example",
    "ATTENDEE;PARTSTAT=ACCEPTED:mailto:tools@allotment.example",
    "END:VEVENT",
    "END:VCALENDAR",
], {
    "kMDItemTitle": "Seed swap, spring edition",
    "kMDItemAuthors": ["Marta Kowalczyk"],
    "kMDItemAuthorEmailAddresses": ["marta@allotment.example"],
    "kMDItemRecipients": ["Jonas Berg", "tools@allotment.example"],
    "kMDItemRecipientEmailAddresses": ["jonas@allotment.example", "tools@allotment.example"],
    "kMDItemKeywords": ["Garden", "Seeds"],
    "kMDItemContentCreationDate": seconds("20210228T170000Z"),
    "kMDItemContentModificationDate": seconds("20210302T080000Z"),
    "kMDItemTextContent": "Seed swap, spring edition\nShed 2; Allotment Lane\nBring labelled "
                          "envelopes.\nTea and cake by the compost heap, as every year.\nGarden\n"
                          "Seeds\n",
})

# 2: a calendar exported whole: its name is the title; two events and a to-do in the file's
# order, a time zone that is no entry, people met twice (an address in other capitals, and a
# named organiser met again without a name) once each, and the earliest creation (DTSTAMP where
# CREATED is missing) and the latest change.
write("season.ics", [
    "BEGIN:VCALENDAR", "VERSION:2.0", "PRODID:-//Allotment//Season//EN",
    "X-WR-CALNAME:Allotment season",
    "BEGIN:VTIMEZONE", "TZID:Europe/Oslo",
    "BEGIN:STANDARD", "DTSTART:19701025T030000", "TZOFFSETFROM:+0200", "TZOFFSETTO:+0100",
    "END:STANDARD", "END:VTIMEZONE",
    "BEGIN:VEVENT", "UID:1@allotment.example", "DTSTAMP:20210110T100000Z",
    "DTSTART;TZID=Europe/Oslo:20210410T090000",
    "SUMMARY:Potatoes in", "DESCRIPTION:Early varieties first.",
    "ORGANIZER;CN=Ruth O'Neill:mailto:ruth@allotment.example",
    "ATTENDEE;CN=Marta Kowalczyk:mailto:marta@allotment.example",
    "LAST-MODIFIED:20210201T120000Z",
    "END:VEVENT",
    "BEGIN:VEVENT", "UID:2@allotment.example", "CREATED:20210105T080000Z",
    "DTSTAMP:20210301T100000Z", "DTSTART:20210918T100000Z",
    "SUMMARY:Harvest fair", "LOCATION:Village hall", "CATEGORIES:Fair",
    "ORGANIZER:mailto:ruth@allotment.example",
    "ATTENDEE:mailto:MARTA@allotment.example",
    "LAST-MODIFIED:20210715T070000Z",
    "END:VEVENT",
    "BEGIN:VTODO", "UID:3@allotment.example", "DTSTAMP:20210112T100000Z",
    "SUMMARY:Mend the water butt", "CATEGORIES:fair",
    "END:VTODO",
    "END:VCALENDAR",
], {
    "kMDItemTitle": "Allotment season",
    "kMDItemAuthors": ["Ruth O'Neill"],
    "kMDItemAuthorEmailAddresses": ["ruth@allotment.example"],
    "kMDItemRecipients": ["Marta Kowalczyk"],
    "kMDItemRecipientEmailAddresses": ["marta@allotment.example"],
    "kMDItemKeywords": ["Fair"],
    "kMDItemContentCreationDate": seconds("20210105T080000Z"),
    "kMDItemContentModificationDate": seconds("20210715T070000Z"),
    "kMDItemTextContent": "Potatoes in\nEarly varieties first.\n\nHarvest fair\nVillage hall\n"
                          "Fair\n\nMend the water butt\nfair\n",
})
