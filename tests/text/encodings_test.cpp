#include "text/encodings.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>

#include <set>
#include <string>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

struct NameRow {
  const char16_t* name;
  CFStringEncoding expected;
};

TEST(CFEncodingFromName, NamesFromDocumentsAndHeaders) {
  const std::vector<NameRow> rows = {
      // The number rule.
      {u"ISO-8859-15", 0x020F},
      {u"iso-8859-1", 0x0201},
      {u"ISO_8859-1", 0x0201},
      {u"iso8859-5", 0x0205},
      {u"iso-8859-2", 0x0202},
      {u"ISO-8859-9", 0x0209},
      {u"iso-8859-11", 0x020B},
      {u"iso-8859-16", 0x0210},
      {u"iso-8851-1 (a typing slip)", 0x0201},
      {u"csISO885391", 0x0201},
      {u"iso-8859-111", kCFEncodingInvalid},
      {u"8859", 0x0201},
      {u"Windows-1251", 0x0502},
      {u"windows-1252", 0x0500},
      {u"cp1250", 0x0501},
      {u"windows-1258", 0x0508},
      {u"cp437", 0x0400},
      {u"ibm852", 0x0412},
      {u"cp866", 0x041B},
      {u"windows-874", 0x041D},
      {u"cp932", 0x0420},
      {u"cp-1361", 0x0510},
      {u"iso-ir-646", 0x0920},
      {u"asmo-708", 0x0206},
      {u"iso-2022-jp", 0x0820},
      {u"ISO-2022-JP-1", 0x0822},
      {u"iso-2022-jp-2", 0x0821},
      {u"iso-2022-jp-3", 0x0823},
      {u"iso-2022-kr", 0x0820},
      // Numbers that match nothing fall through to the name rules.
      {u"utf-8", kCFEncodingUTF8},
      {u"gb2312", 0x0930},
      {u"gb18030", 0x0632},
      {u"big5", 0x0A03},
      {u"koi8-r", 0x0A02},
      {u"latin1", 0x0201},
      {u"windows-31j", 0x0500},
      {u"KSC5601-92", 0x0641},
      {u"ISO_8859-1:1987", kCFEncodingInvalid},
      {u"tis-620", kCFEncodingInvalid},
      // Name rules.
      {u"macintosh", kCFEncodingMacRoman},
      {u"mac", kCFEncodingMacRoman},
      {u"x-mac-roman", kCFEncodingMacRoman},
      {u"x-mac-cyrillic", 7},
      {u"x-mac-ce", 29},
      {u"MacCentralEur", 29},
      {u"x-mac-ukrainian", 152},
      {u"x-mac-romanlatin1", 0x0A04},
      {u"x-mac", kCFEncodingMacRoman},
      {u"x-mac-foo", kCFEncodingInvalid},
      {u"x-mac-latin2", kCFEncodingInvalid},  // nothing else is tried after "xmac"
      {u"mac-latin2", 0x0202},                // but after "mac" the other rules go on
      {u"latin10", 0x0210},
      {u"Latin", 0x0201},
      {u"iso-latin-2", 0x0202},
      {u"latin9", 0x020F},
      {u"ISO", 0x0201},
      {u"visual", 0x0208},
      {u"x-kam-cs", kCFEncodingKamenicky},
      {u"kbkam", kCFEncodingKamenicky},
      {u"KOI8-CS2", kCFEncodingKOI8CS2},
      {u"CSN_369103", kCFEncodingKOI8CS2},
      {u"us-ascii", kCFEncodingASCII},
      {u"utf-7", kCFEncodingASCII},
      {u"GBK", 0x0631},
      {u"utf", kCFEncodingUTF8},
      {u"UTF8", kCFEncodingUTF8},
      {u"utf-08", kCFEncodingUTF8},
      {u"uft-8", kCFEncodingUTF8},
      {u"unicode", kCFEncodingUTF8},
      {u"utf-16", kCFEncodingUnicode},
      {u"UTF-16BE", kCFEncodingUnicode},
      {u"Shift_JIS", kCFEncodingShiftJIS},
      {u"x-sjis", kCFEncodingShiftJIS},
      {u"Big5-HKSCS", 0x0A03},
      {u"euc-kr", kCFEncodingEUCKR},
      {u"euc-jp", kCFEncodingEUCJP},
      {u"EUC-CN", kCFEncodingEUCCN},
      {u"euc-tw", kCFEncodingEUCTW},
      {u"ks_c_5601-1987", 0x0640},
      {u"en-US", kCFEncodingUTF8},
      {u"none", kCFEncodingASCII},
      // Too short or unknown.
      {u"en", kCFEncodingInvalid},
      {u"", kCFEncodingInvalid},
      {u"-- --", kCFEncodingInvalid},
      {u"foo", kCFEncodingInvalid},
      {u"x-user-defined", kCFEncodingInvalid},
  };
  for (const NameRow& row : rows)
    EXPECT_EQ(CFEncodingFromName(row.name), row.expected) << toUtf8(row.name);
}

struct NSNameRow {
  const char16_t* name;
  StringEncoding expected;
  bool logged;
};

TEST(NSEncodingFromName, NumbersAndTheUnknownEncodingLine) {
  const std::vector<NSNameRow> rows = {
      {u"ISO-8859-15", 0x8000020F, false},
      {u"Windows-1251", kWindowsCP1251StringEncoding, false},
      {u"x-mac-cyrillic", 0x80000007, false},
      {u"macintosh", kMacOSRomanStringEncoding, false},
      {u"Shift_JIS", kShiftJISStringEncoding, false},
      {u"utf-8", kUTF8StringEncoding, false},
      {u"iso-8859-1", kISOLatin1StringEncoding, false},
      {u"iso-8859-2", kISOLatin2StringEncoding, false},
      {u"windows-1252", kWindowsCP1252StringEncoding, false},
      {u"windows-1250", kWindowsCP1250StringEncoding, false},
      {u"euc-jp", kJapaneseEUCStringEncoding, false},
      {u"iso-2022-jp", kISO2022JPStringEncoding, false},
      {u"us-ascii", kASCIIStringEncoding, false},
      {u"utf-16", kUnicodeStringEncoding, false},
      {u"big5", 0x80000A03, false},
      {u"gb2312", 0x80000930, false},
      {u"x-kam-cs", kKamenickyStringEncoding, false},
      {u"koi8-cs2", kKOI8CS2StringEncoding, false},
      // Nothing declared: not found, and nothing worth a line.
      {u"auto", kEncodingNotFound, false},
      {u"AUTO", kEncodingNotFound, false},
      {u"", kEncodingNotFound, false},
      {u"/", kEncodingNotFound, false},
      {u"0", kEncodingNotFound, false},
      {u"<", kEncodingNotFound, false},
      {u">", kEncodingNotFound, false},
      // Unknown names and encodings without a converter are logged.
      {u"foo", kEncodingNotFound, true},
      {u"x-mac-japanese", kEncodingNotFound, true},
      {u"iso-8859-16", kEncodingNotFound, true},
      {u"au", kEncodingNotFound, true},
  };
  for (const NSNameRow& row : rows) {
    testing::CapturedLog log;
    EXPECT_EQ(NSEncodingFromName(row.name), row.expected) << toUtf8(row.name);
    if (row.logged) {
      ASSERT_EQ(log.lines().size(), 1u) << toUtf8(row.name);
      EXPECT_EQ(log.lines()[0], "Unknown/Unsupported encoding: " + toUtf8(row.name));
    } else {
      EXPECT_TRUE(log.lines().empty()) << toUtf8(row.name);
    }
  }
}

TEST(EncodingNumbers, CFAndStringEncodingNumbersPairBothWays) {
  const std::vector<std::pair<CFStringEncoding, StringEncoding>> pairs = {
      {0x0000, 30},
      {0x0201, 5},
      {0x0202, 9},
      {0x0420, 8},
      {0x0500, 12},
      {0x0501, 15},
      {0x0502, 11},
      {0x0503, 13},
      {0x0504, 14},
      {0x0600, 1},
      {0x0100, 10},
      {0x08000100, 4},
      {0x0920, 3},
      {0x0820, 21},
      {0x10000100, 0x90000100},
      {0x14000100, 0x94000100},
      {0x0A03, 0x80000A03},
      {0x0930, 0x80000930},
      {0x0A01, 0x80000A01},
      {0x0C000100, 0x8C000100},
      {kCFEncodingKamenicky, kKamenickyStringEncoding},
      {kCFEncodingKOI8CS2, kKOI8CS2StringEncoding},
  };
  for (auto [cf, ns] : pairs) {
    EXPECT_EQ(stringEncodingFromCFEncoding(cf), ns) << std::hex << cf;
    EXPECT_EQ(cfEncodingFromStringEncoding(ns), cf) << std::hex << ns;
  }
  // Numbers without a converter have no string-encoding number, and the reverse.
  for (CFStringEncoding cf : {0x0210u, 0x0001u, 0x0A07u, 0x12345u})
    EXPECT_EQ(stringEncodingFromCFEncoding(cf), kEncodingNotFound) << std::hex << cf;
  for (StringEncoding ns : {StringEncoding{0}, StringEncoding{2}, StringEncoding{0x80000210},
                            kEncodingNotFound, StringEncoding{0x1'0000'0000}})
    EXPECT_EQ(cfEncodingFromStringEncoding(ns), kCFEncodingInvalid) << std::hex << ns;
}

TEST(Converters, EveryNamedConverterOpensAndTheMissingOnesAreListed) {
  std::string missing;
  for (CFStringEncoding encoding : knownCFEncodings()) {
    const char* name = icuConverterName(encoding);
    if (!name) {
      char number[16];
      std::snprintf(number, sizeof number, " 0x%04X", encoding);
      missing += number;
      EXPECT_FALSE(isCFEncodingAvailable(encoding));
      continue;
    }
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(name, &status);
    EXPECT_TRUE(U_SUCCESS(status)) << name;
    ucnv_close(converter);
    EXPECT_TRUE(isCFEncodingAvailable(encoding)) << name;
  }
  std::printf("CF numbers without an ICU converter:%s\n", missing.c_str());
  // Every number the name rules can answer is one this system knows.
  const std::set<CFStringEncoding> known(knownCFEncodings().begin(), knownCFEncodings().end());
  for (const char16_t* name : {u"x-mac-inuit", u"x-mac-farsi", u"iso-8859-16", u"cp-1361",
                               u"ksc5601-92", u"iso-2022-jp-3", u"x-mac-romanlatin1"})
    EXPECT_TRUE(known.count(CFEncodingFromName(name))) << toUtf8(name);
}

struct ConvertRow {
  const char* label;
  std::string bytes;
  CFStringEncoding encoding;
  std::u16string expected;
};

TEST(Converters, MarkupConverterMarksEveryBadSequence) {
  const std::vector<ConvertRow> rows = {
      {"utf-8", "caf\xC3\xA9", kCFEncodingUTF8, u"café"},
      {"utf-8 truncated", "caf\xC3", kCFEncodingUTF8, u"caf\uFFFD"},
      {"utf-8 encoded surrogate", "a\xED\xA0\x80z", kCFEncodingUTF8, u"a\uFFFD\uFFFD\uFFFDz"},
      {"utf-8 stray continuation", "a\x80z", kCFEncodingUTF8, u"a\uFFFDz"},
      {"utf-8 byte-order mark dropped", "\xEF\xBB\xBFx", kCFEncodingUTF8, u"x"},
      {"utf-8 NUL kept", std::string("a\0b", 3), kCFEncodingUTF8, std::u16string(u"a\0b", 3)},
      {"utf-16le truncated", std::string("a\0b", 3), kCFEncodingUTF16LE, u"a\uFFFD"},
      {"utf-16le lone surrogate",
       std::string("\x00\xD8"
                   "a\0",
                   4),
       kCFEncodingUTF16LE, u"\uFFFDa"},
      {"utf-16be byte-order mark dropped", std::string("\xFE\xFF\0x", 4), kCFEncodingUTF16BE, u"x"},
      {"utf-16 host order", std::string("x\0", 2), kCFEncodingUnicode, u"x"},
      {"utf-16 marked big-endian", std::string("\xFE\xFF\0x", 4), kCFEncodingUnicode, u"x"},
      {"windows-1252 euro", "\x80", 0x0500, u"€"},
      {"windows-1252 hole as its C1 control", "\x81", 0x0500, u"\u0081"},
      {"iso-8859-1 C1", "\x81", 0x0201, u"\u0081"},
      {"iso-8859-3 unassigned", "\xA5", 0x0203, u"\uFFFD"},
      {"mac roman", "\x80\x8E", kCFEncodingMacRoman, u"Äé"},
      {"shift jis", "\x82\xA0", kCFEncodingShiftJIS, u"あ"},
      {"shift jis truncated", "\x82", kCFEncodingShiftJIS, u"\uFFFD"},
      {"euc-kr read as UHC", "\x81\x41", kCFEncodingEUCKR, u"갂"},
      {"gb2312 read as GBK", "\x81\x40", kCFEncodingEUCCN, u"丂"},
      {"koi8-r", "\xC1", kCFEncodingKOI8R, u"а"},
      {"kamenicky", "\x80\x87\xA9", kCFEncodingKamenicky, u"Ččř"},
      {"koi8-cs2", "\xE3\xC3\xA1", kCFEncodingKOI8CS2, u"Čč\uFFFD"},
      {"no converter", "abc", 0x0210, u""},
      {"unknown number", "abc", 0x12345, u""},
      {"empty", "", kCFEncodingUTF8, u""},
  };
  for (const ConvertRow& row : rows)
    EXPECT_EQ(convertBytes(bytesOf(row.bytes), row.encoding), row.expected) << row.label;
}

TEST(Converters, LongAndWideInputsConvertWhole) {
  std::string bytes(100000, 'a');
  EXPECT_EQ(convertBytes(bytesOf(bytes), kCFEncodingUTF8).size(), bytes.size());
  EXPECT_EQ(convertBytes(bytesOf("\xF0\x9F\x98\x80"), kCFEncodingUTF8), u"😀");
  EXPECT_EQ(convertBytes(bytesOf("+AGEAYgBj-"), 0x04000100), u"abc");
}

TEST(Converters, ReplacementCountIsOnePassOverTheUnits) {
  EXPECT_EQ(countReplacementCharacters(u""), 0u);
  EXPECT_EQ(countReplacementCharacters(u"a\uFFFDb\uFFFD"), 2u);
}

struct StrictRow {
  const char* label;
  std::string bytes;
  StringEncoding encoding;
  std::optional<std::u16string> expected;
};

TEST(PlatformDecoding, StrictDecodingRefusesMalformedBytes) {
  const std::vector<StrictRow> rows = {
      {"utf-8", "caf\xC3\xA9", kUTF8StringEncoding, u"café"},
      {"utf-8 invalid", "caf\xE9", kUTF8StringEncoding, std::nullopt},
      {"utf-8 truncated", "caf\xC3", kUTF8StringEncoding, std::nullopt},
      {"utf-8 byte-order mark", "\xEF\xBB\xBFok", kUTF8StringEncoding, u"ok"},
      {"ascii", "plain", kASCIIStringEncoding, u"plain"},
      {"ascii with NUL", std::string("a\0b", 3), kASCIIStringEncoding, std::u16string(u"a\0b", 3)},
      {"ascii high byte", "caf\xE9", kASCIIStringEncoding, std::nullopt},
      {"latin 1", "caf\xE9", kISOLatin1StringEncoding, u"café"},
      {"mac roman", "\x80", kMacOSRomanStringEncoding, u"Ä"},
      {"windows-1251", "\xC0", kWindowsCP1251StringEncoding, u"А"},
      {"shift jis", "\x82\xA0", kShiftJISStringEncoding, u"あ"},
      {"utf-16le lone surrogate", std::string("\x00\xD8", 2), kUTF16LittleEndianStringEncoding,
       std::nullopt},
      {"utf-16be", std::string("\0h\0i", 4), kUTF16BigEndianStringEncoding, u"hi"},
      {"utf-16le odd length", std::string("h\0i", 3), kUTF16LittleEndianStringEncoding,
       std::nullopt},
      {"kamenicky", "\x9E\x9F", kKamenickyStringEncoding, u"Řť"},
      {"koi8-cs2 undefined byte", "\xA1", kKOI8CS2StringEncoding, std::nullopt},
      {"empty", "", kUTF8StringEncoding, u""},
      {"no converter", "abc", 0x80000210, std::nullopt},
      {"not an encoding", "abc", 0, std::nullopt},
  };
  for (const StrictRow& row : rows)
    EXPECT_EQ(decodeBytes(bytesOf(row.bytes), row.encoding), row.expected) << row.label;
}

struct EncodeRow {
  const char* label;
  std::u16string text;
  StringEncoding encoding;
  std::optional<std::string> expected;
};

TEST(PlatformDecoding, EncodingRefusesCharactersWithoutRepresentation) {
  const std::vector<EncodeRow> rows = {
      {"utf-8", u"é", kUTF8StringEncoding, "\xC3\xA9"},
      {"ascii", u"é", kASCIIStringEncoding, std::nullopt},
      {"windows-1252 euro", u"€", kWindowsCP1252StringEncoding, "\x80"},
      {"latin 1 euro", u"€", kISOLatin1StringEncoding, std::nullopt},
      {"utf-16 carries a byte-order mark", u"a", kUnicodeStringEncoding, std::nullopt},
      {"utf-16be", u"a", kUTF16BigEndianStringEncoding, std::string("\0a", 2)},
      {"kamenicky", u"Čč", kKamenickyStringEncoding, "\x80\x87"},
      {"koi8-cs2", u"Žž$", kKOI8CS2StringEncoding, "\xFA\xDA$"},
      {"koi8-cs2 unmapped", u"€", kKOI8CS2StringEncoding, std::nullopt},
      {"lone surrogate", u"\xD800", kUTF8StringEncoding, std::nullopt},
      {"empty", u"", kUTF8StringEncoding, ""},
  };
  for (const EncodeRow& row : rows) {
    std::optional<std::string> bytes = encodeText(row.text, row.encoding);
    if (row.encoding == kUnicodeStringEncoding) {
      ASSERT_TRUE(bytes) << row.label;
      EXPECT_EQ(decodeBytes(bytesOf(*bytes), row.encoding), row.text) << row.label;
      continue;
    }
    EXPECT_EQ(bytes, row.expected) << row.label;
  }
}

TEST(CzechTables, KamenickyKeepsTheUpperHalfOfCodePage437) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* cp437 = ucnv_open("ibm-437", &status);
  ASSERT_TRUE(U_SUCCESS(status));
  for (int byte = 0xAE; byte <= 0xFF; ++byte) {
    char in = static_cast<char>(byte);
    UChar out[2] = {};
    status = U_ZERO_ERROR;
    ucnv_toUChars(cp437, out, 2, &in, 1, &status);
    EXPECT_EQ(kamenickyTable()[byte - 0x80], out[0]) << std::hex << byte;
  }
  ucnv_close(cp437);
}

TEST(CzechTables, PublishedLettersSitWhereTheStandardsPutThem) {
  struct Row {
    const std::array<char16_t, 128>* table;
    std::uint8_t byte;
    char16_t character;
  };
  const std::vector<Row> rows = {
      {&kamenickyTable(), 0x80, u'Č'}, {&kamenickyTable(), 0x8B, u'Í'},
      {&kamenickyTable(), 0x9B, u'Š'}, {&kamenickyTable(), 0xA0, u'á'},
      {&kamenickyTable(), 0xA6, u'Ů'}, {&kamenickyTable(), 0xAB, u'Ŕ'},
      {&kamenickyTable(), 0xAD, u'§'}, {&koi8cs2Table(), 0xC1, u'á'},
      {&koi8cs2Table(), 0xC3, u'č'},   {&koi8cs2Table(), 0xCA, u'ů'},
      {&koi8cs2Table(), 0xD2, u'ř'},   {&koi8cs2Table(), 0xE1, u'Á'},
      {&koi8cs2Table(), 0xF3, u'Š'},   {&koi8cs2Table(), 0xFA, u'Ž'},
      {&koi8cs2Table(), 0xB9, u'§'},   {&koi8cs2Table(), 0xC7, u'\uFFFD'},
  };
  for (const Row& row : rows)
    EXPECT_EQ((*row.table)[row.byte - 0x80], row.character) << std::hex << int(row.byte);
}

TEST(CzechTables, EveryDefinedCharacterOccursOnceSoWritingRoundTrips) {
  for (const auto* table : {&kamenickyTable(), &koi8cs2Table()}) {
    std::set<char16_t> seen;
    for (char16_t c : *table) {
      if (c == 0xFFFD) continue;
      EXPECT_TRUE(seen.insert(c).second) << std::hex << int(c);
      // KOI8-CS2's spacing tilde is the one character the ASCII half also has.
      EXPECT_TRUE(c >= 0x80 || c == u'~') << std::hex << int(c);
    }
  }
  // The KOI8 design: a letter's lowercase and uppercase sit 0x20 apart.
  const auto& koi = koi8cs2Table();
  for (int byte = 0xC0; byte < 0xE0; ++byte) {
    char16_t lower = koi[byte - 0x80], upper = koi[byte + 0x20 - 0x80];
    if (lower == 0xFFFD || byte == 0xDF) continue;
    EXPECT_EQ(u_toupper(lower), upper) << std::hex << byte;
  }
  std::string all;
  for (int byte = 0x20; byte <= 0xFF; ++byte) all.push_back(static_cast<char>(byte));
  TextString text = decodeCzech(bytesOf(all), kKamenickyStringEncoding);
  EXPECT_EQ(encodeText(text, kKamenickyStringEncoding), all);
}

}  // namespace
}  // namespace ulvek
