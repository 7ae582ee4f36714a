#!/usr/bin/env python3
"""Writes the Mac script tables of src/text from Apple's VENDORS/APPLE mapping tables, which
Perl's Encode ships compiled in (MacHebrew, MacJapanese, ...). Needs perl with Encode and ICU's
common library; the build needs neither, since the headers are checked in.

    src/tools/generate_mac_tables.py [OUTPUT_DIRECTORY]   (default: src/text beside this script)

Single-byte scripts become 128-entry tables. The multi-byte scripts are decoded by ICU's converter
for the base charset; the tables hold which codes Apple defines and the codes whose decoding
differs from ICU's.

Apple's mappings mark some characters with private-use transcoding hints and variant tags
(U+F860 to U+F88F). Extracted text keeps the characters and drops the tags; a private-use
character that stands alone (no Unicode equivalent) is kept as it is.
"""

import ctypes
import ctypes.util
import os
import re
import subprocess
import sys

HEADER_NOTE = ("// generated from Apple's VENDORS/APPLE tables as Perl's Encode ships them\n"
               "// (src/tools/generate_mac_tables.py); regenerate, do not edit.")

# (Perl's name, C++ name, CF number)
SINGLE_BYTE = [
    ("MacArabic", "kArabic", 0x0004),
    ("MacHebrew", "kHebrew", 0x0005),
    ("MacThai", "kThai", 0x0015),
    ("MacCroatian", "kCroatian", 0x0024),
    ("MacIcelandic", "kIcelandic", 0x0025),
    ("MacRomanian", "kRomanian", 0x0026),
    ("MacFarsi", "kFarsi", 0x008C),
]

# (Perl's name, C++ name, CF number, ICU converter of the base charset). The base converters are
# named exactly (not through aliases) so that ICU's alias table cannot move them.
MULTI_BYTE = [
    ("MacJapanese", "kJapanese", 0x0001, "ibm-943_P15A-2003"),
    ("MacChineseTrad", "kChineseTraditional", 0x0002, "windows-950-2000"),
    ("MacKorean", "kKorean", 0x0003, "ibm-970_P110_P110-2006_U2"),
    ("MacChineseSimp", "kChineseSimplified", 0x0019, "windows-936-2000"),
]

# Prints "CODE<TAB>UNITS" for every code that decodes completely on its own: all single bytes,
# then the two-byte codes whose first byte is not a character by itself.
PERL_DUMP = r'''
use strict; use Encode;
my $encoding = find_encoding($ARGV[0]) or die "no encoding $ARGV[0]\n";
sub decoded {
  my $bytes = shift;
  my $text = eval { $encoding->decode($bytes, Encode::FB_CROAK) };
  return (!$@ && $bytes eq '' && length $text) ? $text : undef;
}
sub show { my ($code, $text) = @_; print "$code\t", join(" ", map { sprintf "%04X", ord } split //, $text), "\n"; }
my %single;
for my $b (0 .. 255) {
  my $text = decoded(chr $b);
  next unless defined $text;
  $single{$b} = 1;
  show(sprintf("%02X", $b), $text);
}
exit if $ARGV[1] eq "single";
for my $lead (0x80 .. 0xFF) {
  next if $single{$lead};
  for my $trail (0 .. 255) {
    my $text = decoded(chr($lead) . chr($trail));
    show(sprintf("%02X%02X", $lead, $trail), $text) if defined $text;
  }
}
'''


def is_tag(unit):
    return 0xF860 <= unit <= 0xF88F


def searchable(units):
    """Drops hint and variant tags from a sequence; a lone character stays."""
    if len(units) == 1:
        return units
    kept = tuple(u for u in units if not is_tag(u))
    assert kept, units
    return kept


def apple_mapping(perl_name, single_only):
    """code -> units, code being a byte or (lead << 8 | trail)."""
    out = subprocess.run(["perl", "-e", PERL_DUMP, perl_name, "single" if single_only else "all"],
                         check=True, capture_output=True, text=True).stdout
    mapping = {}
    for line in out.splitlines():
        code, units = line.split("\t")
        mapping[int(code, 16)] = tuple(int(u, 16) for u in units.split())
    # Apple's tables leave out DEL; every Mac script has it.
    mapping.setdefault(0x7F, (0x7F,))
    return mapping


class ICU:
    def __init__(self):
        path = ctypes.util.find_library("icuuc")
        if not path:
            sys.exit("generate_mac_tables: ICU's common library not found")
        self.lib = ctypes.CDLL(path)
        version = re.search(r"\.so\.(\d+)", path)
        self.suffix = "_" + version.group(1) if version else ""
        self.open = self.function("ucnv_open", ctypes.c_void_p, [ctypes.c_char_p, ctypes.c_void_p])
        self.set_callback = self.function(
            "ucnv_setToUCallBack", None,
            [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p,
             ctypes.c_void_p])
        self.to_uchars = self.function(
            "ucnv_toUChars", ctypes.c_int32,
            [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_int32, ctypes.c_char_p, ctypes.c_int32,
             ctypes.c_void_p])
        self.set_from_callback = self.function(
            "ucnv_setFromUCallBack", None,
            [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p,
             ctypes.c_void_p])
        self.set_fallback = self.function("ucnv_setFallback", None, [ctypes.c_void_p, ctypes.c_int8])
        self.from_uchars = self.function(
            "ucnv_fromUChars", ctypes.c_int32,
            [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int32, ctypes.c_void_p, ctypes.c_int32,
             ctypes.c_void_p])
        self.stop = ctypes.cast(getattr(self.lib, "UCNV_TO_U_CALLBACK_STOP" + self.suffix),
                                ctypes.c_void_p)
        self.stop_from = ctypes.cast(
            getattr(self.lib, "UCNV_FROM_U_CALLBACK_STOP" + self.suffix), ctypes.c_void_p)

    def function(self, name, result, arguments):
        f = getattr(self.lib, name + self.suffix)
        f.restype, f.argtypes = result, arguments
        return f

    def converter(self, name):
        status = ctypes.c_int(0)
        handle = self.open(name.encode(), ctypes.byref(status))
        if status.value > 0 or not handle:
            sys.exit(f"generate_mac_tables: ICU has no converter {name}")
        self.set_callback(handle, self.stop, None, None, None, ctypes.byref(status))
        self.set_from_callback(handle, self.stop_from, None, None, None, ctypes.byref(status))
        self.set_fallback(handle, 0)
        return handle

    def encode(self, handle, units):
        """ICU's bytes for a text (round-trip mappings only), or None."""
        source = (ctypes.c_uint16 * len(units))(*units)
        buffer = ctypes.create_string_buffer(32)
        status = ctypes.c_int(0)
        length = self.from_uchars(handle, buffer, 32, source, len(units), ctypes.byref(status))
        if status.value > 0 or length <= 0:
            return None
        return buffer.raw[:length]

    def decode(self, handle, data):
        """The units of a code decoded alone, or None when ICU finds it malformed or unmapped."""
        buffer = (ctypes.c_uint16 * 16)()
        status = ctypes.c_int(0)
        length = self.to_uchars(handle, buffer, 16, data, len(data), ctypes.byref(status))
        if status.value > 0 or length <= 0:
            return None
        return tuple(buffer[:length])


def icu_mapping(icu, name):
    handle = icu.converter(name)
    mapping, single = {}, set()
    for b in range(256):
        units = icu.decode(handle, bytes([b]))
        if units:
            mapping[b] = units
            single.add(b)
    for lead in range(0x80, 0x100):
        if lead in single:
            continue
        for trail in range(256):
            units = icu.decode(handle, bytes([lead, trail]))
            if units:
                mapping[lead << 8 | trail] = units
    return mapping


def hex_units(units):
    return ", ".join(f"0x{u:04X}" for u in units)


def single_byte_table(perl_name, cpp_name, cf):
    apple = apple_mapping(perl_name, True)
    # The lower half is ASCII. Perl leaves out the ASCII punctuation that Apple's tables list twice
    # (left to right there, right to left in the upper half), which Unicode cannot tell apart.
    for b in range(0x80):
        assert apple.get(b, (b,)) == (b,), (perl_name, b, apple.get(b))
    table, expansions = [], []
    plain = {apple[b][0] for b in range(0x80, 0x100) if b in apple and len(apple[b]) == 1}
    for b in range(0x80, 0x100):
        units = apple.get(b)
        if units is None:
            table.append(0xFFFD)  # undefined
            continue
        kept = searchable(units)
        assert len(kept) <= 2, (perl_name, b, units)
        # A tagged variant of a character with a byte of its own must not be chosen when
        # encoding, so it sits beside the table with the bytes of two units.
        if len(kept) == 1 and (len(units) == 1 or kept[0] not in plain):
            table.append(kept[0])
        else:
            table.append(None)
            expansions.append((b, kept))
    lines = [f"// Mac {perl_name[3:]}, CF 0x{cf:04X}",
             f"inline constexpr std::array<char16_t, 128> {cpp_name} = {{"]
    for row in range(16):
        cells = ["kExpansion" if u is None else f"0x{u:04X}" for u in table[row * 8:row * 8 + 8]]
        lines.append("    " + ", ".join(cells) + f",  // 0x{0x80 + row * 8:02X}")
    lines.append("};")
    if expansions:
        lines.append(f"inline constexpr ByteExpansion {cpp_name}Expansions[] = {{")
        for b, kept in expansions:
            second = kept[1] if len(kept) == 2 else 0
            lines.append(f"    {{0x{b:02X}, 0x{kept[0]:04X}, 0x{second:04X}}},")
        lines.append("};")
    undefined = sum(1 for u in table if u == 0xFFFD)
    print(f"{perl_name}: {len(expansions)} expansions, {undefined} undefined bytes", file=sys.stderr)
    return "\n".join(lines)


BITMAP_WORDS = 4 + 128 * 4  # single bytes, then one 256-bit row per lead byte 0x80 to 0xFF


def bit_index(code):
    return code if code < 0x100 else 256 + ((code >> 8) - 0x80) * 256 + (code & 0xFF)


def bitmap(codes):
    words = [0] * BITMAP_WORDS
    for code in codes:
        i = bit_index(code)
        words[i // 64] |= 1 << (i % 64)
    return words


def byte_mask(values):
    words = [0] * 4
    for v in values:
        words[v // 64] |= 1 << (v % 64)
    return words


def words_text(words, per_line=4):
    lines = []
    for i in range(0, len(words), per_line):
        lines.append("    " + ", ".join(f"0x{w:016X}" for w in words[i:i + per_line]) + ",")
    return "\n".join(lines)


def text_checksum(mapping):
    """FNV-1a over the UTF-16 units of every code's text, codes in ascending order."""
    h = 0x811C9DC5
    for code in sorted(mapping):
        for unit in mapping[code]:
            h = ((h ^ unit) * 0x01000193) & 0xFFFFFFFF
    return h


def multi_byte_table(icu, perl_name, cpp_name, cf, icu_name):
    apple = {code: searchable(units) for code, units in apple_mapping(perl_name, False).items()}
    base = icu_mapping(icu, icu_name)
    singles = {c for c in apple if c < 0x100}
    for b in range(0x80):
        assert b in singles, (perl_name, b)
    differs = sorted(c for c in apple if base.get(c) != apple[c])
    # Bytes that start a two-byte code, in Apple's table or the base charset's, and bytes that
    # end one: what a bad sequence is made of.
    leads = {c >> 8 for c in list(apple) + list(base) if c >= 0x100} - singles
    assert min(leads) >= 0x80, perl_name
    trails = {c & 0xFF for c in list(apple) + list(base) if c >= 0x100}
    differing = set(differs)

    def agreed(data):
        if not data or len(data) > 2 or (len(data) == 2 and data[0] < 0x80):
            return False
        code = int.from_bytes(data, "big")
        return code in apple and code not in differing

    # The encoder writes a character as ICU does where Apple reads that code the same way; codes
    # it cannot reach so (ICU writes the character elsewhere, or the text is several characters)
    # are listed too, for encoding only.
    handle = icu.converter(icu_name)
    unreachable = [c for c in apple if c not in differing and
                   not (len(apple[c]) == 1 and apple[c][0] < 0x80 and agreed(bytes(apple[c]))) and
                   not agreed(icu.encode(handle, apple[c]))]
    units, codes = [], []
    for code in sorted(differing | set(unreachable)):
        codes.append((code, len(units), len(apple[code])))
        units.extend(apple[code])
    assert len(units) < 0x10000
    by_text = sorted(range(len(codes)), key=lambda i: (apple[codes[i][0]], codes[i][0]))
    print(f"{perl_name}: {len(apple)} codes, {len(differs)} decode unlike {icu_name} "
          f"({sum(1 for c in differs if c not in base)} unknown to it, "
          f"{sum(1 for c in differs if len(apple[c]) > 1)} of several characters), "
          f"{len(unreachable)} more for encoding, {len(units)} units", file=sys.stderr)
    out = [f"// Mac {perl_name[3:]}, CF 0x{cf:04X}, over {icu_name}",
           f"inline constexpr std::uint64_t {cpp_name}Defined[] = {{",
           words_text(bitmap(apple)), "};",
           f"inline constexpr std::uint64_t {cpp_name}Differs[] = {{",
           words_text(bitmap(differs)), "};",
           f"inline constexpr char16_t {cpp_name}Units[] = {{"]
    for i in range(0, len(units), 8):
        out.append("    " + hex_units(units[i:i + 8]) + ",")
    out.append("};")
    out.append(f"inline constexpr MultiByteCode {cpp_name}Codes[] = {{")
    for i in range(0, len(codes), 4):
        out.append("    " + " ".join(f"{{0x{c:04X}, {o}, {n}}}," for c, o, n in codes[i:i + 4]))
    out.append("};")
    out.append(f"inline constexpr std::uint16_t {cpp_name}ByText[] = {{")
    for i in range(0, len(by_text), 12):
        out.append("    " + ", ".join(str(x) for x in by_text[i:i + 12]) + ",")
    out.append("};")
    out.append(f"inline constexpr MultiByteScript {cpp_name} = {{")
    out.append(f'    "{icu_name}", {cpp_name}Defined, {cpp_name}Differs,')
    out.append(f"    {{{', '.join(f'0x{w:016X}' for w in byte_mask(leads))}}},")
    out.append(f"    {{{', '.join(f'0x{w:016X}' for w in byte_mask(trails))}}},")
    out.append(f"    {cpp_name}Codes, {cpp_name}Units, {cpp_name}ByText}};")
    out.append("// Apple's text of every code, in code order, hashed: what decoding must give.")
    out.append(f"inline constexpr std::uint32_t {cpp_name}Checksum = 0x{text_checksum(apple):08X};")
    return "\n".join(out)


SINGLE_PREAMBLE = f"""\
// Apple's mapping tables for the single-byte Mac scripts that neither ICU nor glibc converts
// (glibc's MAC-IS is an older Icelandic table with holes): bytes 0x80 to 0xFF, the lower half
// being ASCII. Undefined bytes are U+FFFD. Text is kept searchable: Apple's private-use hints and
// variant tags are dropped, so a byte can stand for two characters, or for a variant of a
// character that has a byte of its own (which encoding must not choose); such bytes are
// kExpansion in the table and listed beside it.
{HEADER_NOTE}
#pragma once

#include <array>
#include <cstdint>

namespace ulvek::mac_tables {{

inline constexpr char16_t kExpansion = 0xFFFF;

struct ByteExpansion {{
  std::uint8_t byte;
  char16_t first;
  char16_t second;  // 0 when the byte is one character
}};
"""

MULTI_PREAMBLE = f"""\
// Apple's multi-byte Mac scripts as differences from ICU's converter for the base charset. A
// code is a byte, or lead << 8 | trail. `defined` holds a bit for every code Apple defines;
// `differs` marks the codes whose text is in `codes` and `units` rather than ICU's (Apple's
// single bytes, its extensions, its multi-character mappings with the private-use hint and
// variant tags dropped). `codes` also holds, for encoding, the codes whose text ICU writes
// otherwise; `byText` orders it by text. Each bitmap is 256 bits for the single bytes, then 256 bits for each
// lead byte from 0x80 on. `leads` and `trails` are the bytes that begin and end two-byte codes in
// Apple's table or the base charset's.
{HEADER_NOTE}
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace ulvek::mac_tables {{

struct MultiByteCode {{
  std::uint16_t code;
  std::uint16_t offset;  // into the script's units
  std::uint8_t length;
}};

struct MultiByteScript {{
  const char* icuName;
  const std::uint64_t* defined;
  const std::uint64_t* differs;
  std::array<std::uint64_t, 4> leads;
  std::array<std::uint64_t, 4> trails;
  std::span<const MultiByteCode> codes;  // sorted by code
  std::span<const char16_t> units;
  std::span<const std::uint16_t> byText;  // indices into codes
}};

inline constexpr std::size_t kMultiByteBitmapWords = {BITMAP_WORDS};
"""


def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    # In the repository's layout, so that regenerating changes nothing.
    subprocess.run(["clang-format", "-i", path], check=True)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    directory = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "text")
    single = [SINGLE_PREAMBLE]
    for entry in SINGLE_BYTE:
        single.append(single_byte_table(*entry))
    single.append("}  // namespace ulvek::mac_tables\n")
    write(os.path.join(directory, "mac_script_tables.h"), "\n\n".join(single))

    icu = ICU()
    multi = [MULTI_PREAMBLE]
    for entry in MULTI_BYTE:
        multi.append(multi_byte_table(icu, *entry))
    multi.append("}  // namespace ulvek::mac_tables\n")
    write(os.path.join(directory, "mac_cjk_tables.h"), "\n\n".join(multi))


if __name__ == "__main__":
    main()
