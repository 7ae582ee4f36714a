#include "text/encodings.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

constexpr CFStringEncoding kBad = kCFEncodingInvalid, kUtf8 = kCFEncodingUTF8;

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string repeated(std::string_view piece, std::size_t times) {
  std::string text;
  while (times-- > 0) text += piece;
  return text;
}

// The digits that start at the first digit are matched before any name rule; numbers that match
// nothing go on to the name rules. After "xmac" no other rule is tried, after "mac" they are.
TEST(CFEncodingFromName, NumberRulesThenNameRules) {
  const std::vector<std::pair<CFStringEncoding, std::vector<const char16_t*>>> rows = {
      {0x0201, {u"ISO_8859-1", u"iso-8851-1", u"csISO885391", u"8859", u"Latin", u"ISO"}},
      {0x020F, {u"ISO-8859-15", u"latin9"}},
      {0x0210, {u"iso-8859-16", u"latin10"}},
      {0x0501, {u"cp1250"}},
      {0x0502, {u"Windows-1251"}},
      {0x0500, {u"windows-31j"}},
      {0x041D, {u"windows-874"}},
      {0x0920, {u"iso-ir-646", u"euc-jp"}},
      {0x0820, {u"iso-2022-jp", u"iso-2022-kr"}},
      {0x0822, {u"ISO-2022-JP-1"}},
      {0x0821, {u"iso-2022-jp-2"}},
      {0x0631, {u"GBK"}},
      {kCFEncodingMacRoman, {u"macintosh", u"mac"}},
      {kCFEncodingMacCyrillic, {u"x-mac-cyrillic"}},
      {0x0202, {u"mac-latin2"}},
      {kCFEncodingKamenicky, {u"x-kam-cs"}},
      {kCFEncodingKOI8CS2, {u"CSN_369103"}},
      {kCFEncodingASCII, {u"us-ascii", u"utf-7", u"none"}},
      {kUtf8, {u"utf-8", u"utf", u"uft-8", u"unicode", u"en-US"}},
      {kCFEncodingUnicode, {u"utf-16", u"UTF-16BE"}},
      {kCFEncodingShiftJIS, {u"Shift_JIS"}},
      {kBad,
       {u"iso-8859-111", u"ISO_8859-1:1987", u"tis-620", u"x-mac-latin2", u"x-mac-foo", u"en", u"",
        u"-- --", u"foo"}},
  };
  for (const auto& [expected, names] : rows)
    for (const char16_t* name : names)
      EXPECT_EQ(CFEncodingFromName(name), expected) << toUtf8(name);
}

TEST(NSEncodingFromName, NumbersAndTheUnknownEncodingLine) {
  const std::vector<std::pair<const char16_t*, StringEncoding>> found = {
      {u"ISO-8859-15", 0x8000020F}, {u"Windows-1251", 11},    {u"x-mac-cyrillic", 0x80000007},
      {u"macintosh", 30},           {u"Shift_JIS", 8},        {u"big5", 0x80000A03},
      {u"x-kam-cs", 0xFFFFFFF0},    {u"koi8-cs2", 0xFFFFFFF1}};
  for (const auto& [name, expected] : found) {
    testing::CapturedLog log;
    EXPECT_EQ(NSEncodingFromName(name), expected) << toUtf8(name);
    EXPECT_TRUE(log.lines().empty()) << toUtf8(name);
  }
  // Names that declare nothing are not worth a line; unknown names and encodings without a
  // converter are.
  const std::vector<std::pair<const char16_t*, bool>> notFound = {
      {u"AUTO", false}, {u"", false},   {u"/", false},
      {u">", false},    {u"foo", true}, {u"x-mac-devanagari", true},
      {u"au", true}};
  for (const auto& [name, logged] : notFound) {
    testing::CapturedLog log;
    EXPECT_EQ(NSEncodingFromName(name), kEncodingNotFound) << toUtf8(name);
    EXPECT_EQ(log.lines(), logged ? std::vector{"Unknown/Unsupported encoding: " + toUtf8(name)}
                                  : std::vector<std::string>{});
  }
}

TEST(EncodingNumbers, PairBothWaysAndEveryConverterOpens) {
  const std::vector<std::pair<CFStringEncoding, StringEncoding>> pairs = {
      {0x0000, 30}, {0x0420, 8}, {0x08000100, 4}, {0x10000100, 0x90000100}, {0x0A03, 0x80000A03}};
  for (auto [cf, ns] : pairs) {
    EXPECT_EQ(stringEncodingFromCFEncoding(cf), ns) << std::hex << cf;
    EXPECT_EQ(cfEncodingFromStringEncoding(ns), cf) << std::hex << ns;
  }
  // Numbers without a converter have no string-encoding number, and the reverse.
  for (CFStringEncoding cf : {0x0009u, 0x0027u, 0x12345u})
    EXPECT_EQ(stringEncodingFromCFEncoding(cf), kEncodingNotFound) << std::hex << cf;
  for (StringEncoding ns : {0ul, 2ul, 0x80000009ul, 0xFFFFFFFFul, 0x1'0000'0000ul})
    EXPECT_EQ(cfEncodingFromStringEncoding(ns), kCFEncodingInvalid) << std::hex << ns;
  std::string missing;
  for (CFStringEncoding encoding : knownCFEncodings()) {
    const char* name = icuConverterName(encoding);
    UErrorCode status = U_ZERO_ERROR;
    if (name) ucnv_close(ucnv_open(name, &status));
    EXPECT_TRUE(U_SUCCESS(status)) << name;
    if (name) {
      EXPECT_TRUE(isCFEncodingAvailable(encoding)) << std::hex << encoding;
    }
    if (!isCFEncodingAvailable(encoding)) missing += " " + std::to_string(encoding);
  }
  std::printf("CF numbers without a converter:%s\n", missing.c_str());
}

// The markup converter marks every bad sequence with U+FFFD; strict decoding gives the same text,
// or nothing where the converter marked a fault.
TEST(Converters, MarkedOrStrict) {
  const std::vector<std::tuple<const char*, std::string, CFStringEncoding, std::u16string>> rows = {
      {"utf-8 surrogate, stray byte, NUL, truncated", std::string("\xED\xA0\x80-\x80-\0-\xC3", 9),
       kUtf8, std::u16string(u"\uFFFD\uFFFD\uFFFD-\uFFFD-\0-\uFFFD", 9)},
      {"utf-8 byte-order mark dropped", "\xEF\xBB\xBFx\xF0\x9F\x98\x80", kUtf8, u"x😀"},
      {"utf-16le truncated", std::string("a\0b", 3), kCFEncodingUTF16LE, u"a\uFFFD"},
      {"utf-16le lone surrogate", std::string("\x00\xD8z\0", 4), kCFEncodingUTF16LE, u"\uFFFDz"},
      {"utf-16 marked big-endian", std::string("\xFE\xFF\0x", 4), kCFEncodingUnicode, u"x"},
      {"windows-1252 hole as its C1 control", "\x80\x81", 0x0500, u"€\u0081"},
      {"shift jis truncated", "\x82\xA0\x82", kCFEncodingShiftJIS, u"あ\uFFFD"},
      {"euc-kr read as UHC", "\x81\x41", kCFEncodingEUCKR, u"갂"},
      {"gb2312 read as GBK", "\x81\x40", kCFEncodingEUCCN, u"丂"},
      {"kamenicky", "\x80\x87\xA9\x9E\x9F", kCFEncodingKamenicky, u"ČčřŘť"},
      {"koi8-cs2 undefined byte", "\xE3\xC3\xA1", kCFEncodingKOI8CS2, u"Čč\uFFFD"},
      {"iso-8859-16 through iconv", "\xAA\xBA", 0x0210, u"Șș"},
      {"viscii through iconv", "\x02\xD5", 0x0A07, u"Ẳạ"},
      {"johab through iconv, truncated", "\x88\x61\x88", 0x0510, u"가\uFFFD"},
      {"johab bad byte, then on", "\xFF\x88\x61", 0x0641, u"\uFFFD가"},
      {"iso-2022-jp-3 through iconv", "\x1B$(Q\x24\x22\x1B(B.", 0x0823, u"あ."},
      {"mac croatian table", "\xA9\xB9", 0x0024, u"Šš"},
      {"mac icelandic is apple's table", "\xDC\xDD\xA0", 0x0025, u"ÐðÝ"},
      {"mac romanian table", "\xAF\xBF", 0x0026, u"Șș"},
      {"mac arabic table", "\xC8", 0x0004, u"ب"},
      {"mac hebrew, a byte for two characters", "\xE0\x81\xC0", 0x0005,
       u"א\u05F2\u05B7\u05DC\u05B9"},
      {"mac hebrew variant tag dropped", "\xDE\xCB", 0x0005, u"\u05B8\u05B8"},
      {"mac hebrew private-use kept", "\xC2", 0x0005, u"\uF89B"},
      {"mac thai, variant tone mark", "\xA1\x83\xE8", 0x0015, u"\u0E01\u0E48\u0E48"},
      {"mac thai undefined byte", "\x90\xA1\xFF", 0x0015, u"\uFFFD\u0E01\uFFFD"},
      {"mac japanese", "\x82\xA0\xB1\x5C\x80", 0x0001, u"あ\uFF71¥\\"},
      {"mac japanese extension and hint", "\x85\x40\x85\xAB\xFF", 0x0001, u"①XIII…"},
      {"mac japanese controls not rotated", "\x1A\x1C\x7F", 0x0001, u"\x1A\x1C\x7F"},
      {"mac japanese truncated", "\x82\xA0\x82", 0x0001, u"あ\uFFFD"},
      {"mac japanese ascii after a lead", "\x82 \xF0\xA0", 0x0001, u"\uFFFD \uFFFD"},
      {"mac japanese vendor code not apple's", "\xFA\x40", 0x0001, u"\uFFFD@"},
      {"mac chinese traditional", "\xA4\x40\xA1\x4D\x80\x81", 0x0002, u"一，\\\uF880"},
      {"mac chinese traditional truncated", "a\xA4", 0x0002, u"a\uFFFD"},
      {"mac korean", "\xB0\xA1\x81\xA1\x41", 0x0003, u"가₩「"},
      {"mac korean several characters", "\xA2\xEF\xA6\x60", 0x0003, u"[10]\uF806\u20DF"},
      {"mac korean undefined pair, then a lead before a single byte", "\xA5\xAB\xB0\xFF", 0x0003,
       u"\uFFFD\uFFFD…"},
      {"mac chinese simplified", "\xB0\xA1\x80\xA1\xAB", 0x0019, u"啊ü〜"},
      {"mac chinese simplified, no gbk", "\x81\x40\x90\x40", 0x0019, u"\uF880@\uFFFD@"},
      {"no converter", "abc", 0x0009, u""},
  };
  for (const auto& [label, bytes, encoding, marked] : rows) {
    std::size_t replacements = 99;
    EXPECT_EQ(convertBytes(bytesOf(bytes), encoding, &replacements), marked) << label;
    // Counted as written, with no pass of its own.
    EXPECT_EQ(replacements, countReplacementCharacters(marked)) << label;
    bool clean = marked.find(u'\uFFFD') == std::u16string::npos && !marked.empty();
    EXPECT_EQ(decodeBytes(bytesOf(bytes), stringEncodingFromCFEncoding(encoding)),
              clean ? std::optional(marked) : std::nullopt)
        << label;
  }
  EXPECT_EQ(decodeBytes(bytesOf(std::string("h\0i", 3)), 0x94000100), std::nullopt);
  EXPECT_EQ(decodeBytes(bytesOf(""), kUTF8StringEncoding), u"");
  EXPECT_EQ(decodeBytes(bytesOf("abc"), 0), std::nullopt);
}

// Bytes that stand for several characters never take the markup converter past its capacity of
// max(byte count, 32) units; strict decoding has no such limit.
TEST(Converters, CapacityHoldsForBytesOfSeveralCharacters) {
  const std::vector<std::tuple<const char*, std::string, CFStringEncoding, std::size_t>> rows = {
      {"mac hebrew pairs", std::string(40, '\xC0'), 0x0005, 80},
      {"mac hebrew, under 32", std::string(10, '\xC0'), 0x0005, 20},
      {"mac korean [10]", repeated("\xA2\xEF", 16), 0x0003, 64},
      {"mac japanese XIII, under 32", repeated("\x85\xAB", 4), 0x0001, 16},
  };
  for (const auto& [label, bytes, encoding, strictSize] : rows) {
    std::size_t replacements = 99;
    TextString marked = convertBytes(bytesOf(bytes), encoding, &replacements);
    EXPECT_EQ(marked.size(), std::min(strictSize, std::max<std::size_t>(bytes.size(), 32)))
        << label;
    EXPECT_EQ(replacements, 0u) << label;
    std::optional<TextString> strict =
        decodeBytes(bytesOf(bytes), stringEncodingFromCFEncoding(encoding));
    ASSERT_TRUE(strict) << label;
    EXPECT_EQ(strict->size(), strictSize) << label;
    EXPECT_TRUE(strict->starts_with(marked)) << label;
  }
}

// UTF-8 is decoded in ASCII runs and the spans between them: the answer must be ICU's for the
// whole input, replacement marks and their count included, at every alignment.
TEST(Converters, UTF8InRunsIsICUsWholeDecoding) {
  const std::vector<std::string> pieces = {"a",
                                           "plain ascii text ",
                                           "\xC3\xA9",
                                           "\xE2\x82\xAC",
                                           "\xF0\x9F\x98\x80",
                                           "\x80",
                                           "\xED\xA0\x80",
                                           "\xC3",
                                           "\xF4\x90\x80\x80",
                                           "\xE2\x82",
                                           "\xEF\xBB\xBF",
                                           std::string(1, '\0')};
  std::uint32_t seed = 12345;
  auto next = [&seed] { return seed = seed * 1103515245 + 12345, (seed >> 16) & 0x7FFF; };
  for (int round = 0; round < 2000; ++round) {
    std::string bytes;
    for (int count = next() % 12; count >= 0; --count) bytes += pieces[next() % pieces.size()];
    std::u16string expected(bytes.size() + 1, u'\0');
    int32_t length = 0, substitutions = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(reinterpret_cast<UChar*>(expected.data()),
                         static_cast<int32_t>(expected.size()), &length, bytes.data(),
                         static_cast<int32_t>(bytes.size()), 0xFFFD, &substitutions, &status);
    ASSERT_TRUE(U_SUCCESS(status));
    expected.resize(length);
    if (!expected.empty() && expected[0] == 0xFEFF) expected.erase(0, 1);
    std::size_t replacements = 0;
    EXPECT_EQ(convertBytes(bytesOf(bytes), kUtf8, &replacements), expected) << round;
    EXPECT_EQ(replacements, static_cast<std::size_t>(substitutions)) << round;
    std::optional<TextString> strict = decodeBytes(bytesOf(bytes), kUTF8StringEncoding);
    EXPECT_EQ(strict.has_value(), substitutions == 0) << round;
    if (strict) {
      EXPECT_EQ(*strict, expected) << round;
    }
  }
}

TEST(PlatformEncoding, RefusesCharactersWithoutRepresentation) {
  const std::vector<std::tuple<std::u16string, StringEncoding, std::optional<std::string>>> rows = {
      {u"€", 12, "\x80"},
      {u"a", 0x90000100, std::string("\0a", 2)},
      {u"Žž$", kKOI8CS2StringEncoding, "\xFA\xDA$"},
      {u"€", kKOI8CS2StringEncoding, std::nullopt},
      {u"\xD800", 4, std::nullopt},
      {u"Șș", 0x80000210, "\xAA\xBA"},
      {u"あ.", 0x80000823, "\x1B$B$\"\x1B(B."},  // JIS X 0208 where it has the character
      {u"€", 0x80000A07, std::nullopt},
      {u"Šš", 0x80000024, "\xA9\xB9"},
      // Apple's Mac scripts: a variant byte is never chosen, a pair only a variant byte has is.
      {u"\u05F2\u05B7\u05DC\u05B9\u05B8", 0x80000005, "\x81\xEC\xDD\xCB"},
      {u"\u05F2", 0x80000005, std::nullopt},
      {u"\u0E48\uF89B", 0x80000015, std::nullopt},
      {u"\u0E01\u0E48", 0x80000015, "\xA1\xE8"},
      {u"あ\\¥①\x7F", 0x80000001, "\x82\xA0\x80\x5C\x85\x40\x7F"},
      {u"\uF806\u20DF가", 0x80000003, "\xA6\x60\xB0\xA1"},
      {u"一\uF880", 0x80000002, "\xA4\x40\x81"},
      {u"啊", 0x80000019, "\xB0\xA1"},
      {u"丂", 0x80000019, std::nullopt},  // GBK only
      {u"\U0001F600", 0x80000001, std::nullopt}};
  for (const auto& [text, encoding, expected] : rows)
    EXPECT_EQ(encodeText(text, encoding), expected) << toUtf8(text) << " " << encoding;
  // Host-order UTF-16 carries a byte-order mark, so it reads back alone.
  std::optional<std::string> marked = encodeText(u"a", kUnicodeStringEncoding);
  EXPECT_EQ(decodeBytes(bytesOf(marked.value_or("")), kUnicodeStringEncoding), u"a");
}

// Every defined byte of the Mac script tables decodes alone, and its text encodes back to the
// byte itself, except where the byte is a variant of a character that has a byte of its own (a
// right-to-left copy of ASCII punctuation, a tone mark placed lower, a tagged vowel point) or a
// pair whose characters have bytes of their own.
TEST(MacScriptTables, EveryByteDecodesAndEncodesBack) {
  struct Row {
    const char* label;
    CFStringEncoding encoding;
    std::size_t undefined, rewritten;
  };
  const std::vector<Row> rows = {{"arabic", 0x0004, 0, 26},   {"hebrew", 0x0005, 0, 38},
                                 {"thai", 0x0015, 6, 22},     {"croatian", 0x0024, 0, 0},
                                 {"icelandic", 0x0025, 0, 0}, {"romanian", 0x0026, 0, 0},
                                 {"farsi", 0x008C, 0, 26}};
  for (const Row& row : rows) {
    const StringEncoding encoding = stringEncodingFromCFEncoding(row.encoding);
    std::size_t undefined = 0, rewritten = 0;
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
      const std::string bytes(1, static_cast<char>(byte));
      std::optional<TextString> text = decodeBytes(bytesOf(bytes), encoding);
      if (!text) {
        ++undefined;
        EXPECT_EQ(convertBytes(bytesOf(bytes), row.encoding), u"\uFFFD") << row.label << byte;
        continue;
      }
      std::optional<std::string> encoded = encodeText(*text, encoding);
      ASSERT_TRUE(encoded) << row.label << " " << byte;
      if (*encoded != bytes) ++rewritten;
      EXPECT_EQ(decodeBytes(bytesOf(*encoded), encoding), text) << row.label << " " << byte;
    }
    EXPECT_EQ(undefined, row.undefined) << row.label;
    EXPECT_EQ(rewritten, row.rewritten) << row.label;
  }
}

TEST(CzechTables, PublishedLettersEachOnceAndRoundTrips) {
  std::string upper, all;
  for (int byte = 0x20; byte <= 0xFF; ++byte) all.push_back(static_cast<char>(byte));
  // Kamenický keeps the upper half of code page 437 from 0xAE on.
  upper = all.substr(0xAE - 0x20);
  EXPECT_EQ(decodeCzech(bytesOf(upper), kKamenickyStringEncoding),
            convertBytes(bytesOf(upper), 0x0400));
  const auto &kam = kamenickyTable(), &koi = koi8cs2Table();
  EXPECT_EQ(std::u16string({kam[0x00], kam[0x1B], kam[0x20], kam[0x26], kam[0x2D]}), u"ČŠáŮ§");
  EXPECT_EQ(std::u16string({koi[0x43], koi[0x73], koi[0x7A], koi[0x39], koi[0x47]}), u"čŠŽ§\uFFFD");
  for (const auto* table : {&kam, &koi}) {
    std::set<char16_t> seen;
    for (char16_t c : *table) {
      // Each character once, and none from the ASCII half but KOI8-CS2's spacing tilde.
      EXPECT_TRUE(c == 0xFFFD || seen.insert(c).second) << std::hex << int(c);
      EXPECT_TRUE(c >= 0x80 || c == u'~') << std::hex << int(c);
    }
  }
  // The KOI8 design: a letter's lowercase and uppercase sit 0x20 apart.
  for (int byte = 0x40; byte < 0x5F; ++byte)
    EXPECT_TRUE(koi[byte] == 0xFFFD || u_toupper(koi[byte]) == koi[byte + 0x20]) << byte;
  EXPECT_EQ(
      encodeText(decodeCzech(bytesOf(all), kKamenickyStringEncoding), kKamenickyStringEncoding),
      all);
}

}  // namespace
}  // namespace ulvek

namespace ulvek {
namespace {

// convertBytes' text and count, from a decoder fed `piece` bytes at a time.
std::pair<TextString, std::size_t> decodeInPieces(std::span<const std::uint8_t> bytes,
                                                  CFStringEncoding encoding, std::size_t piece) {
  std::unique_ptr<PiecewiseDecoder> decoder = PiecewiseDecoder::open(bytes, encoding);
  if (!decoder) return {};
  TextString text;
  while (decoder->decodeMore(text, piece)) {
  }
  return {text, decoder->replacements()};
}

TEST(PiecewiseDecoder, PiecesJoinedAreTheWholeConversion) {
  const std::vector<std::pair<CFStringEncoding, std::string>> rows = {
      {kUtf8, "plain ASCII text"},
      {kUtf8,
       "\xEF\xBB\xBF"
       "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},  // leading mark dropped
      {kUtf8,
       "a\xEF\xBB\xBF"
       "b"},  // a mark inside stays
      {kUtf8, "\xE2\x80\x80\x80 \xF0\x9F \xC0\xAF \xED\xA0\x80 \x80\x80\x80\x80\x80 \xF4\x90"},
      {kUtf8, "\xE2\x82"},  // cut off at the end
      {kCFEncodingUTF16LE, std::string("\xFF\xFE"
                                       "a\0\x3D\xD8\x00\xDE"
                                       "b\0c",
                                       11)},  // odd end
      {kCFEncodingUTF16BE, std::string("\xFE\xFF\0a\xD8\x3D\xDE\x00\0b", 10)},
      {kCFEncodingISO2022JP, "a\x1B$B$3$s\x1B(Bb\x1B$B%F%9%H\x1B(B"},  // stateful escapes
      {kCFEncodingGB18030, "a\x81\x30\x81\x30\xB0\xA1\x95\x32\x82\x36z"},
      {kCFEncodingShiftJIS, "\x82\xA0\x82\xA2 \x81"},           // a lead byte at the end
      {kCFEncodingBig5HKSCS1999, "\x88\x62\x88\x64 \xA4\x40"},  // one code, two characters
      {kCFEncodingISOLatin1, "\xE9t\xE9 \xFF"},
      {kCFEncodingKamenicky, "\x80\x87 \xFF"},                // our table
      {kCFEncodingISOLatin10, "\xA1\xA5\xAA"},                // glibc's converter
      {kCFEncodingMacJapanese, "\x82\xA0\x85\xAB\x80 \x82"},  // Apple's codes over ICU's
      {0x0005, "\x81\xC0 \xFF"},  // Mac Hebrew: bytes that stand for two characters
  };
  for (const auto& [encoding, input] : rows) {
    std::size_t count = 0;
    const TextString whole = convertBytes(bytesOf(input), encoding, &count);
    for (std::size_t piece : {1, 2, 3, 7, 4096}) {
      auto [text, replacements] = decodeInPieces(bytesOf(input), encoding, piece);
      EXPECT_EQ(toUtf8(text), toUtf8(whole)) << std::hex << encoding << " in pieces of " << piece;
      EXPECT_EQ(replacements, count) << std::hex << encoding << " in pieces of " << piece;
    }
  }
  EXPECT_EQ(PiecewiseDecoder::open({}, kUtf8), nullptr);
  EXPECT_EQ(PiecewiseDecoder::open(bytesOf("x"), kBad), nullptr);
}

// Every file of a charset folder in pieces gives its whole conversion in encodings it is and is
// not in (so with replacement marks and characters cut at piece ends); answers the file count.
std::size_t expectFilesDecodeAsAWhole(const std::filesystem::path& root,
                                      std::initializer_list<std::size_t> pieces) {
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    const std::string data = testing::readFile(entry.path());
    if (data.empty()) continue;
    ++files;
    const std::string name = entry.path().lexically_relative(root).string();
    for (CFStringEncoding encoding :
         {kUtf8, kCFEncodingISOLatin1, kCFEncodingShiftJIS, kCFEncodingUTF16LE, kCFEncodingEUCKR,
          kCFEncodingISO2022JP, kCFEncodingGB18030, kCFEncodingBig5, kCFEncodingEUCJP,
          kCFEncodingUTF16BE, kCFEncodingWindowsCyrillic}) {
      std::size_t count = 0;
      const TextString whole = convertBytes(bytesOf(data), encoding, &count);
      for (std::size_t piece : pieces) {
        auto [text, replacements] = decodeInPieces(bytesOf(data), encoding, piece);
        EXPECT_TRUE(text == whole)
            << name << " as " << std::hex << encoding << std::dec << " in pieces of " << piece;
        EXPECT_EQ(replacements, count) << name << " as " << std::hex << encoding;
      }
    }
  }
  return files;
}

TEST(PiecewiseDecoder, FixtureFilesDecodeAsAWhole) {
  EXPECT_GE(expectFilesDecodeAsAWhole(testing::dataPath() / "charsets", {1, 5, 97}), 70u);
}

TEST(PiecewiseDecoder, CorpusFilesDecodeAsAWhole) {
  ULVEK_REQUIRE_CORPUS();
  EXPECT_GT(expectFilesDecodeAsAWhole(testing::corpusPath() / "charsets", {97}), 100u);
}

}  // namespace
}  // namespace ulvek

namespace ulvek {
namespace {

// ICU's IBM tables read bytes 0x1A, 0x1C and 0x7F as other controls; ours read them as
// themselves, both ways, whole and in pieces.
TEST(Converters, ControlBytesReadAsThemselves) {
  const std::string controls = std::string(
      "a\x1A"
      "b\x1C"
      "c\x7F"
      "d");
  const TextString expected = u"a\u001Ab\u001Cc\u007Fd";
  const std::vector<std::pair<CFStringEncoding, StringEncoding>> rows = {
      {kCFEncodingShiftJIS, kShiftJISStringEncoding},
      {kCFEncodingDOSJapanese, stringEncodingFromCFEncoding(kCFEncodingDOSJapanese)},
      {0x0400, stringEncodingFromCFEncoding(0x0400)},  // DOS Latin US, code page 437
      {0x0410, stringEncodingFromCFEncoding(0x0410)},  // DOS Latin 1, code page 850
      {kCFEncodingISOLatin1, kISOLatin1StringEncoding},
  };
  for (const auto& [cf, encoding] : rows) {
    EXPECT_TRUE(convertBytes(bytesOf(controls), cf) == expected) << std::hex << cf;
    EXPECT_TRUE(decodeBytes(bytesOf(controls), encoding) == expected) << std::hex << cf;
    EXPECT_EQ(encodeText(expected, encoding), controls) << std::hex << cf;
    auto [pieces, replacements] = decodeInPieces(bytesOf(controls), cf, 2);
    EXPECT_TRUE(pieces == expected) << std::hex << cf;
  }
}

}  // namespace
}  // namespace ulvek

namespace ulvek {
namespace {

TEST(Converters, NonAsciiUTF8IsValidUTF8WithAMultiByteCharacter) {
  const std::string ascii(40, 'a');
  const std::vector<std::pair<std::string, bool>> rows = {
      {"plain ASCII", false},
      {"", false},
      {"caf\xC3\xA9", true},
      {ascii + "\xE2\x82\xAC" + ascii, true},        // past the sixteen-byte steps
      {ascii + "\xC3\xA9" + ascii + "\xE9", false},  // a Latin 1 byte later on
      {"\xC0\xAF", false},                           // overlong
      {"\xED\xA0\x80", false},                       // a surrogate
      {"\xF4\x90\x80\x80", false},                   // past U+10FFFF
      {"\xE2\x82", false},                           // cut off
      {"\xE2\x82"
       "a",
       false},  // cut off before ASCII
  };
  for (const auto& [bytes, expected] : rows)
    EXPECT_EQ(isNonAsciiUTF8(bytesOf(bytes)), expected) << bytes;
}

}  // namespace
}  // namespace ulvek
