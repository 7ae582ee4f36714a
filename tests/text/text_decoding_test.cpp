#include "text/text_decoding.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;
using Text = std::optional<TextString>;

constexpr StringEncoding kU8 = kUTF8StringEncoding, kL1 = kISOLatin1StringEncoding,
                         kAscii = kASCIIStringEncoding, kUtf16 = kUnicodeStringEncoding,
                         kDetect = kDetectEncoding, kNoConverter = 0x80000009;  // Mac Devanagari

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string show(const Text& text) { return text ? toUtf8(*text) : "nil"; }

// Both nothing, or the text holds the part.
bool holds(const Text& text, const Text& part) {
  return text.has_value() == part.has_value() && (!part || text->find(*part) != TextString::npos);
}

TEST(PlainTextDecoding, GivenEncodingIsExactDetectionReportsItsChoice) {
  std::string czech;
  for (int i = 0; i < 20; ++i) czech += "Příliš žluťoučký kůň úpěl ďábelské ódy. ";
  const TextString cz = fromUtf8(czech);
  const std::u16string japanese = u"UTF-16 without a mark: 日本語のテキストです。";
  std::string bigEndian;
  for (char16_t unit : japanese) bigEndian += {char(unit >> 8), char(unit & 0xFF)};
  const std::vector<std::tuple<const char*, std::string, StringEncoding, Text, StringEncoding>>
      rows = {
          {"latin 1 given as utf-8: no fallback", "caf\xE9", kU8, std::nullopt, kU8},
          {"ascii given", "tide\x7F\x1A", kAscii, u"tide\x7F\x1A", kAscii},
          {"latin 1 given as ascii: no fallback", "caf\xE9", kAscii, std::nullopt, kAscii},
          {"utf-8 detected", czech, kDetect, cz, kU8},
          {"zero asks for detection", czech, 0, cz, kU8},
          {"0xFFFFFFF0 asks for detection", czech, kKamenickyStringEncoding, cz, kU8},
          {"utf-16 without a mark", bigEndian, kDetect, japanese, 0x90000100},
          {"NUL bytes", std::string("a\0b", 3), kDetect, std::u16string(u"a\0b", 3), kAscii},
          {"unclassifiable falls back to ascii", "", kDetect, u"", kAscii},
          {"binary: the ascii fallback fails", "\x01\x02\x03\xFF\xFE\x80\x90", kDetect, {}, kAscii},
          // Bad bytes in detected text are marked, not fatal.
          {"utf-8 truncated", czech + "\xC5", kDetect, cz + u"\uFFFD", kU8},
          {"utf-16 truncated", std::string("\xFF\xFEx\0y\0z", 7), kDetect, u"xy\uFFFD", kUtf16},
          {"lone surrogate", std::string("\xFF\xFEx\0\x00\xD8z\0", 8), kDetect, u"x\uFFFDz",
           kUtf16},
      };
  TemporaryFolder folder;
  for (const auto& [label, bytes, requested, expected, reported] : rows) {
    StringEncoding used = 12345;
    Text text = stringWithContentsOfFile(folder.write("t.txt", bytes), requested, &used);
    EXPECT_EQ(show(text), show(expected)) << label;
    EXPECT_EQ(used, reported) << label;
  }
  StringEncoding used = 0;
  const std::string missing = (folder.path() / "missing").string();
  EXPECT_FALSE(stringWithContentsOfFile(missing, kU8, &used));
  EXPECT_EQ(used, kU8);
  EXPECT_FALSE(stringWithContentsOfFile(missing, kDetect, &used));
  EXPECT_EQ(used, kAscii);
  EXPECT_FALSE(stringWithContentsOfFile(folder.path().string(), kDetect));
  // C strings stop at their length or at the first zero byte.
  const char bytes[] = "caf\xE9\0tail";
  EXPECT_EQ(stringWithCString(bytes, 9, kL1), std::u16string(u"café\0tail", 9));
  EXPECT_EQ(stringWithNullTerminatedCString(bytes, kL1), u"café");
  EXPECT_FALSE(stringWithNullTerminatedCString(nullptr, kU8));
}

// Only regular files are read: a named pipe without a writer would block the reader for ever.
TEST(PlainTextDecoding, NamedPipesAndFoldersAreNotRead) {
  TemporaryFolder folder;
  const std::string pipe = (folder.path() / "pipe.txt").string();
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(stringWithContentsOfFile(pipe, kUTF8StringEncoding), std::nullopt);
  EXPECT_EQ(stringWithContentsOfFile(pipe, kDetectEncoding), std::nullopt);
  EXPECT_EQ(stringWithMarkupContentsOfFile(pipe, kUTF8StringEncoding), std::nullopt);
  EXPECT_EQ(stringWithContentsOfFile(folder.path().string(), kUTF8StringEncoding), std::nullopt);
}

TEST(Writing, RoundTripsChoosesEncodingsAndFailuresLeaveNoFile) {
  TemporaryFolder folder;
  auto pathOf = [&](const std::string& name) { return (folder.path() / name).string(); };
  EXPECT_TRUE(writeToFile(u"Žluťoučký", pathOf("kam"), true, kKamenickyStringEncoding));
  EXPECT_EQ(testing::readFile(pathOf("kam")), "\x92lu\x9Fou\x87k\x98");
  EXPECT_FALSE(writeToFile(u"日本語", pathOf("latin"), true, kL1));
  EXPECT_FALSE(writeToFile(u"x", pathOf("none"), false, kNoConverter));
  EXPECT_FALSE(writeToFile(u"x", pathOf("no/such/folder"), true, kU8));
  // Only the written file is there: a failure leaves neither the file nor a temporary one.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);

  StringEncoding used = 0;
  EXPECT_EQ(defaultEncoding(), kU8);
  setDefaultEncoding(kL1);
  EXPECT_TRUE(writeToFileUsingDefaultEncoding(u"café", pathOf("default"), false, &used));
  setDefaultEncoding(kU8);
  EXPECT_EQ(used, kL1);
  // A euro sign rules out Latin 1: the smallest lossless encoding is then UTF-8.
  EXPECT_TRUE(writeToFileUsingSmallestEncoding(u"€uro", pathOf("small"), false, &used));
  EXPECT_EQ(used, kU8);
  EXPECT_EQ(stringWithContentsOfFile(pathOf("small"), used), u"€uro");
}

TEST(MarkupFileDecoding, PropertyListsDeclarationsAndTheReplacementCount) {
  const std::string latin1Meta = "<meta content='text/html; charset=iso-8859-1'><body>";
  // The binary list {a = b}: signature, a one-entry dictionary, two strings, offsets, trailer.
  const std::string binary = std::string("bplist00\xD1\x01\x02QaQb\x08\x0B\x0D", 18) +
                             std::string(6, 0) + "\x01\x01" + std::string(7, 0) + "\x03" +
                             std::string(15, 0) + "\x0F";
  const std::string plist = "<?xml version='1.0' encoding='UTF-8'?><plist><string>Grüße</string>";
  struct Row {
    const char* label;
    std::string bytes;
    StringEncoding defaultEncoding;
    Text part;
    StringEncoding used;
    const char* fileName = "a.html";
  };
  const std::vector<Row> rows = {
      {"mislabelled utf-8, default utf-8", latin1Meta + "caf\xC3\xA9 cr\xC3\xA8me", kU8,
       u"café crème", kU8},
      {"mislabelled utf-8, default latin 1", latin1Meta + "caf\xC3\xA9", kL1, u"café", kU8},
      {"undeclared utf-8, default latin 1", "<p>caf\xC3\xA9", kL1, u"café", kU8},
      {"utf-8 that declares a cjk charset", "<meta charset=gb2312>\xE4\xB8\xAD", kL1, u"中", kU8},
      {"utf-8 declared, invalid: default wins", "<meta charset=utf-8>caf\xE9", kL1, u"café", kL1},
      {"windows-1252 in content", "<meta content='text/html; charset=windows-1252'>\x80", kL1, u"€",
       kWindowsCP1252StringEncoding},
      {"meta after body is not seen", "<body><meta charset=windows-1251>\xC0", kL1, u"À", kL1},
      {"declared ascii keeps the default", "<meta charset=us-ascii>caf\xE9", kL1, u"café", kL1},
      {"unknown charset keeps the default", "<meta charset=foo>caf\xE9", kL1, u"café", kL1},
      {"kamenicky declared", "<meta charset=x-kam-cs>\x80\x87", kL1, u"Čč", 0xFFFFFFF0},
      {"no text at all", "", kL1, std::nullopt, kL1},
      {"NUL bytes", std::string("<p>a\0b</p>", 10), kU8, std::u16string(u"a\0b", 3), kU8},
      {"xml list by extension", plist, kL1, u"<string>Grüße</string>", kDetect, "x.PLIST"},
      {"binary list by signature", binary, kL1, u"<key>a</key>", kDetect, "a.b"},
      {"broken list is markup", "<plist><key>x", kL1, u"<plist><key>x", kL1, "b.plist"},
  };
  TemporaryFolder folder;
  for (const Row& row : rows) {
    CapturedLog log;
    StringEncoding used = 0;
    Text text = stringWithMarkupContentsOfFile(folder.write(row.fileName, row.bytes),
                                               row.defaultEncoding, &used);
    EXPECT_TRUE(holds(text, row.part)) << row.label << ": " << show(text);
    EXPECT_EQ(used, row.used) << row.label;
  }
  EXPECT_FALSE(stringWithMarkupContentsOfFile((folder.path() / "none").string(), kU8));
  EXPECT_FALSE(stringWithMarkupContentsOfFile(folder.path().string(), kU8));
}

// Large files are decoded window by window while they are scanned; the choice of decoding and
// the text must be those of the whole decoding, wherever the windows fall.
TEST(MarkupFileDecoding, WindowedDecodingChoosesAsTheWholeDecoding) {
  const std::string latin1Meta = "<meta content='text/html; charset=iso-8859-1'><body>";
  const std::vector<std::string> inputs = {
      latin1Meta + "caf\xC3\xA9 cr\xC3\xA8me",
      "<meta charset=utf-8>caf\xE9",
      "<meta charset=utf-8>caf\xC3\xA9",
      "<meta content='text/html; charset=windows-1252'>\x80",
      "<body><meta charset=windows-1251>\xC0",
      "<meta charset=us-ascii>caf\xE9",
      "<meta charset=x-kam-cs>\x80\x87",
      "<meta charset=shift_jis>\x82\xA0\x82",
      "<?xml version='1.0' encoding='euc-kr'?><a>\xB0\xA1</a>",
      "<script>'<meta charset=koi8-r>'</script><p>\xC1",  // inside a script: not a declaration
      "<script><meta charset=koi8-r>\xC1",                // a script without end: it is one
      "<!-- <meta charset=koi8-r> --><p>\xC1",
      "<!-- <meta charset=koi8-r> <p>\xC1",
      "\xEF\xBB\xBF<p>caf\xC3\xA9",
      "\xEF\xBB\xBF",
      std::string("\xFF\xFE<\0p\0>\0\xE9\0", 10),
      std::string("\xFE\xFF\0<\0p\0>\0\xE9\0", 11),
      "<p>no declaration \xE9",
      "",
  };
  for (const std::string& input : inputs) {
    const auto bytes = std::span(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    for (StringEncoding defaultEncoding : {kL1, kU8}) {
      StringEncoding wholeUsed = 0;
      std::unique_ptr<MarkupSource> whole =
          markupSourceOfBytes(bytes, defaultEncoding, &wholeUsed, SIZE_MAX, 0);
      for (std::size_t window : {1, 4, 64}) {
        StringEncoding used = 0;
        std::unique_ptr<MarkupSource> windowed =
            markupSourceOfBytes(bytes, defaultEncoding, &used, 0, window);
        const std::string label = input + " (default " + std::to_string(defaultEncoding) +
                                  ", windows of " + std::to_string(window) + ")";
        ASSERT_EQ(windowed == nullptr, whole == nullptr) << label;
        EXPECT_EQ(used, wholeUsed) << label;
        if (whole) {
          EXPECT_EQ(toUtf8(windowed->wholeText()), toUtf8(whole->wholeText())) << label;
        }
      }
    }
  }
}

TEST(MarkupDataDecoding, MarksNamesDeclarationsAndFallbacks) {
  const std::string meta1251 = "<meta charset=windows-1251>", metaUtf8 = "<meta charset=utf-8>";
  const std::vector<std::tuple<const char*, std::string, const char16_t*, StringEncoding, Text>>
      rows = {
          {"empty data", "", u"utf-8", kU8, u""},
          {"big-endian mark", std::string("\xFE\xFF\0<\0p\0>\0h\0i", 12), u"", kU8, u"<p>hi"},
          {"little-endian mark", std::string("\xFF\xFE<\0p\0>\0h\0i\0", 12), u"", kU8, u"<p>hi"},
          {"the name overrides the mark", "\xFF\xFEz", u"iso-8859-1", kU8, u"ÿþz"},
          {"unknown name keeps the default", "caf\xC3\xA9", u"foo", kU8, u"café"},
          {"named utf-8 over declared 1251", meta1251 + "\xD0\x9F\xD1\x80", u"utf-8", kL1, u">Пр"},
          {"declared 1251 without a name", meta1251 + "\xCF\xF0", u"", kL1, u">Пр"},
          {"named: fewer replacements win", metaUtf8 + "caf\xE9", u"iso-8859-1", kU8, u">café"},
          {"unnamed: the declaration wins", metaUtf8 + "caf\xE9", u"", kL1, u">caf\uFFFD"},
          {"declared big5 as Big5-HKSCS", "<meta charset=big5>\xA4\xA4", u"", kL1, u">中"},
          {"declared the default", metaUtf8 + "\xC3\xA9", u"", kU8, u">é"},
          {"declared mac japanese", "<meta charset=x-mac-japanese>\x82\xA0\x85\x40", u"", kL1,
           u">あ①"},
          {"named mac hebrew", "\xF9\xEC\xE5\xED", u"x-mac-hebrew", kU8, u"שלום"},
          {"no converter for the name", "abc", u"x-mac-devanagari", kU8, u"abc"},
          {"no converter for the default", "abc", u"", kNoConverter, std::nullopt},
      };
  for (const auto& [label, bytes, name, defaultEncoding, part] : rows) {
    CapturedLog log;
    Text text = stringWithMarkupData(bytesOf(bytes), name, defaultEncoding);
    EXPECT_TRUE(holds(text, part)) << label << ": " << show(text);
  }
  EXPECT_EQ(
      stringWithMarkupDataOfContentType(bytesOf("\x82\xA0"), u"text/html; charset=Shift_JIS", kU8),
      u"あ");
  CapturedLog log;
  stringWithMarkupData(bytesOf("x"), u"klingon", kU8, u"http://example.com/");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Unknown/Unsupported encoding: klingon"});
}

TEST(MarkupCharset, XmlDeclarationsAndMetaTagsBeforeTheBody) {
  const std::vector<std::tuple<std::u16string, std::u16string, std::size_t>> rows = {
      {u"<?xml version='1.0' encoding='ISO-8859-2'?><a/>", u"ISO-8859-2", 0},
      {u"<?xml version='1.0'?><html><meta charset='koi8-r'>", u"koi8-r", 27},
      {u"<head><meta http-equiv=Content-Type content='text/html; charset=windows-1252'>",
       u"windows-1252", 6},
      {u"<META CONTENT=\"text/html; CharSet = 'euc-jp' \">", u"euc-jp", 0},
      {u"<meta charset=\"utf&#45;8\">", u"utf-8", 0},
      {u"<meta name=\"author\" content=\"me\"><meta charset=gbk>", u"gbk", 33},
      {u"<html><body><meta charset=\"utf-8\">", u"", kNotFound},
      {u"</meta charset=\"utf-8\"><p>", u"", kNotFound},
      {u"<metadata charset=\"utf-8\">", u"", kNotFound},
      {u"<!-- <meta charset=\"utf-8\"> -->", u"", kNotFound},
  };
  for (const auto& [text, charset, location] : rows) {
    EXPECT_EQ(markupCharset(text), charset) << toUtf8(text);
    EXPECT_EQ(markupCharsetRange(text).location, location) << toUtf8(text);
  }
  EXPECT_EQ(markupEncoding(u"<meta charset=\"windows-1250\">"), kWindowsCP1250StringEncoding);
  EXPECT_EQ(defaultURLEncoding(u"<meta charset=\"iso-8859-1\">"), kL1);
  EXPECT_EQ(defaultURLEncoding(u"<meta charset=\"windows-1252\">"), kU8);
}

TEST(MarkupData, DeclaredCharsetOrAsciiWithReferences) {
  for (auto [text, bytes, encoding] : std::vector<std::tuple<TextString, std::string, int>>{
           {u"<meta charset=latin1>café", "<meta charset=latin1>caf\xE9", kL1},
           {u"<p>é€</p>", "<p>&eacute;&euro;</p>", kAscii},
           {u"<meta charset=latin1>中", "<meta charset=latin1>&#20013;", kAscii},
           {u"", "", kAscii}}) {
    StringEncoding used = 0;
    Data data = markupData(text, &used);
    EXPECT_EQ(std::string(data.begin(), data.end()), bytes) << toUtf8(text);
    EXPECT_EQ(used, StringEncoding(encoding)) << toUtf8(text);
  }
}

TEST(HeaderFields, NamedParametersInHeaderLikeText) {
  const std::vector<std::tuple<std::u16string, std::u16string, Text>> rows = {
      {u"a; charset='x y'; b", u"CHARSET", u"x y"},
      {u"0;URL=http://a/b;c", u"URL", u"http://a/b"},
      {u"xCharSet =1", u"CHARSET", u"1"},            // any case, no word boundary
      {u"charset= 'x'", u"CHARSET", u" 'x'"},        // white after "=" is part of the value
      {u"charset=''; charset=b", u"CHARSET", u"b"},  // an empty quoted value fails this match
      {u"charsetX=1; charset=2", u"CHARSET", u"2"},
      {u"charset='abc", u"CHARSET", std::nullopt},
      {u"charset=1", u"", std::nullopt},
  };
  for (const auto& [text, name, expected] : rows)
    EXPECT_EQ(show(headerFieldNamed(text, name)), show(expected)) << toUtf8(text);
  EXPECT_EQ(headerFieldNamed(u"a=1,2;3", u"A", u'\'', 0), u"1,2;3");
  EXPECT_EQ(HTTPHeaderFieldNamed(u"a=\"1,2\", b=3", u"A"), u"1,2");
  // The charset of a content type allows white and either quote, and stops at white or ">".
  EXPECT_EQ(headerCharset(u"text/html; charset = \"utf-8\""), u"utf-8");
  EXPECT_EQ(headerCharset(u"text/html; charset=utf-8>"), u"utf-8");
  EXPECT_EQ(headerEncoding(u"text/plain; charset=windows-1251"), kWindowsCP1251StringEncoding);
}

long peakResidentKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// A page too large to hold twice over is scanned without its whole decoding.
TEST(LargeInput, LargeMarkupFileIsScannedWithoutItsWholeDecoding) {
  // Written piece by piece, so that the test itself never holds the page.
  TemporaryFolder folder;
  const std::string path =
      folder.write("large.html", "<html><head><title>Large</title></head><body>");
  const std::string_view paragraph =
      "<p>Gr\xC3\xBC\xC3\x9F"
      "e aus <b>K\xC3\xB6ln</b>.</p>\n";
  std::size_t written = 0, expectedParagraphs = 0;
  {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    std::string block;
    for (int i = 0; i < 1000; ++i) block += paragraph;
    for (; written < (48u << 20); written += block.size()) out << block;
    expectedParagraphs = written / paragraph.size();
    out << "</body></html>";
  }
  const std::size_t bytes = std::filesystem::file_size(path);

  const long before = peakResidentKilobytes();
  StringEncoding used = 0;
  std::unique_ptr<MarkupSource> source = markupSourceOfFile(path, kL1, &used);
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(used, kU8);  // valid UTF-8 over the default
  std::size_t paragraphs = 0, text = 0;
  source->scan([&](const MarkupItem& item) {
    paragraphs += item.nameIs("p") && item.tag()[1] != u'/';
    text += item.textRun().size();
    return false;
  });
  EXPECT_EQ(paragraphs, expectedParagraphs);
  EXPECT_GT(text, 0u);
  const long grown = (peakResidentKilobytes() - before) * 1024;
  std::printf("%zu MiB page scanned: peak memory grew by %ld MiB\n", bytes >> 20, grown >> 20);
#if !defined(__SANITIZE_ADDRESS__)
  // The mapped bytes and a few windows; a whole decoding alone would be twice the bytes.
  EXPECT_LT(grown, static_cast<long>(bytes + (bytes >> 1))) << grown / (1 << 20) << " MiB";
#endif
}

TEST(LargeInput, HundredMebibyteSingleLineFileDecodesWithBoundedMemory) {
  const std::string_view unit = "Grüße aus Köln. ";  // 19 bytes, 16 units
  std::string line;
  line.reserve(100u << 20);
  while (line.size() + unit.size() <= (100u << 20)) line += unit;
  TemporaryFolder folder;
  const std::string path = folder.write("huge.html", line);
  const std::size_t bytes = line.size(), units = bytes / unit.size() * 16;
  std::string().swap(line);

  const long before = peakResidentKilobytes();
  StringEncoding used = 0;
  EXPECT_EQ(stringWithContentsOfFile(path, kDetect, &used).value_or(u"").size(), units);
  EXPECT_EQ(used, kU8);
  EXPECT_EQ(stringWithMarkupContentsOfFile(path, kU8).value_or(u"").size(), units);
  const long grown = (peakResidentKilobytes() - before) * 1024;
  std::printf("%zu MiB single-line file: peak memory grew by %ld MiB\n", bytes >> 20, grown >> 20);
  // The bytes, one UTF-16 copy and the converter's full-size buffer at most. AddressSanitizer
  // holds freed memory back for a while, so the bound means nothing there.
#if !defined(__SANITIZE_ADDRESS__)
  EXPECT_LT(grown, static_cast<long>(bytes * 4)) << grown / (1 << 20) << " MiB";
#endif
}

}  // namespace
}  // namespace ulvek

namespace ulvek {
namespace {

// Valid UTF-8 with non-ASCII characters, or a UTF-8 mark, is UTF-8 before any detector guesses:
// short texts such as "café" were read as Latin 2.
TEST(TextDecodingUtf8First, ValidOrMostlyValidUtf8AndMarksDecide) {
  struct Row {
    const char* name;
    std::string bytes;
    std::u16string text;
    StringEncoding encoding;
  };
  const Row rows[] = {
      {"short UTF-8", "caf\xC3\xA9", u"caf\u00e9", kUTF8StringEncoding},
      {"UTF-8 mark on ASCII, mark dropped", "\xEF\xBB\xBFplain", u"plain", kUTF8StringEncoding},
      {"four-byte character", "x \xF0\x9F\x98\x80", u"x \U0001F600", kUTF8StringEncoding},
      {"overlong form is no UTF-8", "caf\xC0\xA9 and more text here", u"", 0},
      {"surrogate is no UTF-8", "a\xED\xA0\x80 b", u"", 0},
      // Stray single-byte characters among real UTF-8 ones are read as Windows-1252.
      {"Latin-1 words in UTF-8", "Z\xFCrich gr\xC3\xBCn\tbl\xE5 caf\xC3\xA9",
       u"Z\u00fcrich gr\u00fcn\tbl\u00e5 caf\u00e9", kUTF8StringEncoding},
      {"Windows-1252 euro in UTF-8", "\x80 5 na\xC3\xAFve", u"\u20ac 5 na\u00efve",
       kUTF8StringEncoding},
      {"mostly Latin-1 stays 8-bit", "caf\xE9 cr\xE8me na\xC3\xAFve", u"", 0},
  };
  for (const Row& row : rows) {
    auto bytes =
        std::span(reinterpret_cast<const std::uint8_t*>(row.bytes.data()), row.bytes.size());
    std::optional<DetectedText> detected = decodeDetectingEncoding(bytes);
    if (row.encoding == 0) {
      EXPECT_TRUE(!detected || detected->encoding != kUTF8StringEncoding) << row.name;
      continue;
    }
    ASSERT_TRUE(detected) << row.name;
    EXPECT_EQ(detected->encoding, row.encoding) << row.name;
    EXPECT_EQ(detected->text, row.text) << row.name;
  }
}

}  // namespace
}  // namespace ulvek
