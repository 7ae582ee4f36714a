#include <gtest/gtest.h>

#include <string>

#include "readers/wordperfect/wordperfect.h"
#include "readers/wordperfect/wordperfect_document.h"
#include "readers/wordperfect/wordperfect_reader.h"
#include "test_support.h"
#include "word_bag.h"

namespace ulvek {
namespace {

using testing::CapturedLog;

Bytes bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string text(const std::optional<TextString>& value) {
  return value ? toUtf8(*value) : "(nothing)";
}

TEST(WordPerfect, MarkedText) {
  struct Row {
    std::string name;
    std::string bytes;
    std::string expected;
  };
  const std::string mark = "junk{WP}..";
  const std::vector<Row> rows = {
      {"plain", mark + "Hello", "Hello"},
      {"literal between switches",
       mark + "A\xC0\x80\xC0"
              "B",
       "A\xC3\x84"
       "B"},
      {"lone line break",
       mark + "a\x80"
              "b",
       "a\nb"},
      {"break after NUL dropped",
       mark + std::string("a\0\x80"
                          "b",
                          4),
       "ab"},
      {"break after 0x01 dropped",
       mark + "a\x01\x80"
              "b",
       "ab"},
      {"two roots make a break",
       mark + "a\xC3\xC3"
              "b",
       "a\nb"},
      {"one root dropped",
       mark + "a\xC3"
              "b",
       "ab"},
      {"literal root", mark + "\xC0\xC3\xC0", "\xE2\x88\x9A"},
      {"tab",
       mark + "a\x82"
              "b",
       "a\tb"},
      {"hyphen",
       mark + "a\x96"
              "b",
       "a-b"},
      {"dropped characters",
       mark + "a\xAB\xD0\xD1\xDB\xAA"
              "b",
       "ab"},
      {"control characters dropped", mark + "a\r\n\tb", "ab"},
      {"Mac Roman", mark + "\x8A", "\xC3\xA4"},
      {"last mark wins", "{WP}..first{WP}..second", "second"},
      {"nothing after the mark", "abc{WP}..", "(nothing)"},
      {"mark at the end", "abc{WP}", "(nothing)"},
      {"only dropped characters", mark + "\x01\x02", "(nothing)"},
      {"no mark", "Hello", "(nothing)"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(text(wordPerfectMarkedText(bytesOf(row.bytes))), row.expected) << row.name;
}

TEST(WordPerfect, FileTest) {
  testing::TemporaryFolder folder;
  std::string content = "{WP}..text";
  EXPECT_EQ(text(stringWithContentsOfWordPerfectFile(folder.write("a.WPD", content))), "text");
  EXPECT_EQ(text(stringWithContentsOfWordPerfectFile(folder.write("a.txt", content))), "(nothing)");
  EXPECT_EQ(text(stringWithContentsOfWordPerfectFile("/nonexistent.wpd")), "(nothing)");
  EXPECT_TRUE(isWordPerfectFile("x.wpd"));
  EXPECT_FALSE(isWordPerfectFile("x.wp5"));
}

// A prefix of the given major version whose document area starts right after it.
std::string prefix(std::uint8_t major, std::uint32_t start = 16) {
  std::string bytes = "\xFFWPC";
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>((start >> (8 * i)) & 0xFF));
  bytes += std::string{'\x01', '\x0A', static_cast<char>(major), '\x00'};
  bytes += std::string(4, '\0');
  return bytes;
}

std::string group(char code, char subcode, std::string data) {
  std::string bytes{code, subcode};
  std::uint16_t total = static_cast<std::uint16_t>(data.size() + 5);
  bytes.push_back(static_cast<char>(total & 0xFF));
  bytes.push_back(static_cast<char>(total >> 8));
  return bytes + data + code;
}

TEST(WordPerfect, DocumentText) {
  struct Row {
    std::string name;
    std::string bytes;
    std::string expected;
    std::string logFragment;
  };
  std::string wp5Group = std::string("\xD0\x05\x02\x00", 4) + "\x05\xD0";
  const std::vector<Row> rows = {
      {"5.x text",
       prefix(0) + "Hello\x0Aworld\x0D"
                   "again",
       "Hello\nworld again"},
      {"5.x extended and tab",
       prefix(0) + "Caf\xC0\x29\x01\xC0" + "\xC1" + std::string(7, '\x01') + "\xC1" + "x",
       "Caf\xC3\xA9\tx"},
      {"5.x variable function", prefix(0) + "a" + wp5Group + "b", "ab"},
      {"5.x attributes",
       prefix(0) + "a\xC3\x0C\xC3"
                   "b\xC4\x0C\xC4",
       "ab"},
      {"5.x lying length", prefix(0) + "kept" + std::string("\xD1\x01\xFF\x7F", 4) + "lost", "kept",
       "function length"},
      {"5.x truncated function", prefix(0) + "kept\xD1\x01", "kept", "truncated function"},
      {"6.x text",
       prefix(2) + "Hi\x80there\xCC"
                   "next",
       "Hi there\nnext"},
      {"6.x soft-mapped",
       prefix(2) + "reli\x0E"
                   "f",
       "reli\xC3\xAB"
       "f"},
      {"6.x extended", prefix(2) + "\xF0\x03\x08\xF0", "\xCE\xB2"},
      {"6.x tab and hard return groups",
       prefix(2) + "7" + group('\xE0', '\x30', "....") + "Title" + group('\xD0', '\x04', "..") +
           "x",
       "7\tTitle\nx"},
      {"6.x deleted text", prefix(2) + std::string("\xF1\x00..\xF1#\xF1\x01..\xF1", 11) + "7", "7"},
      {"6.x soft line end", prefix(2) + "one\xBCtwo", "one two"},
      {"6.x hyphenated word", prefix(2) + "door\x85\xBCgaans", "doorgaans"},
      {"6.x lying length", prefix(2) + "kept" + std::string("\xD4\x01\x00\x10", 4) + "lost", "kept",
       "function length"},
      {"4.2 text", std::string("\xC3\x00\xC3", 3) + "Sluwe\x0DSjaantje\x0A", "Sluwe Sjaantje\n"},
      {"huge index count is not followed",
       prefix(2, 26) + std::string("\x02\x00\xFF\xFF", 4) + std::string(6, '\xFF') + "text",
       "text"},
      {"truncated prefix", prefix(0, 5000) + "text", "(nothing)", "prefix area is truncated"},
      {"start below the prefix", prefix(2, 4) + "text", "(nothing)", "prefix area is truncated"},
      {"short prefix", "\xFFWPC\x10", "(nothing)", "Not a WordPerfect document"},
      {"unknown version", prefix(9) + "text", "(nothing)", "Not a WordPerfect document"},
      {"random bytes", "\x9B\xD1\xC5VB\xCF&]", "(nothing)", "Not a WordPerfect document"},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    EXPECT_EQ(text(wordPerfectDocumentText(bytesOf(row.bytes), "test")), row.expected) << row.name;
    if (!row.logFragment.empty()) EXPECT_TRUE(log.contains(row.logFragment)) << row.name;
  }
}

// The "text" member of an expect.json file.
std::u16string expectedText(const std::filesystem::path& path) {
  std::string json = testing::readFile(path);
  std::size_t at = json.find("\"text\": \"");
  if (at == std::string::npos) return {};
  std::u16string text;
  for (std::size_t i = at + 9; i < json.size() && json[i] != '"'; ++i) {
    if (json[i] != '\\') {
      std::size_t end = i;
      while (end < json.size() && json[end] != '\\' && json[end] != '"') ++end;
      text += fromUtf8(std::string_view(json).substr(i, end - i));
      i = end - 1;
      continue;
    }
    char escaped = json[++i];
    if (escaped == 'u') {
      text.push_back(static_cast<char16_t>(std::stoi(json.substr(i + 1, 4), nullptr, 16)));
      i += 4;
    } else {
      text.push_back(escaped == 'n' ? u'\n' : escaped == 't' ? u'\t' : escaped);
    }
  }
  return text;
}

std::filesystem::path fixture(std::string_view name) {
  return testing::dataPath() / "wordprocessor/wpd" / name;
}

// Documents of each version as WordPerfect writes them: 4.2 with functions that open and close
// with one code, 5.1 and 6.x behind their prefix and index area, and a Mac file with its mark;
// each with formatting codes, a page header, tabs, hard and soft returns, hyphens, hard spaces,
// and in 5.1 and 6.x letters from the multinational, typographic and Cyrillic sets.
TEST(WordPerfectReader, EachVersionWordForWord) {
  CapturedLog log;
  for (const char* name : {"ledger42.wpd", "ledger51.wpd", "ledger6.wpd", "mac.wpd"}) {
    std::filesystem::path path = fixture(name);
    auto output = wordPerfectReader().read(ReaderSource::file(path.string()));
    ASSERT_TRUE(output && output->text) << name;
    std::u16string expected = expectedText(path.string() + ".expect.json");
    ASSERT_FALSE(expected.empty()) << name;
    EXPECT_EQ(toUtf8(*output->text), toUtf8(expected)) << name;
    EXPECT_EQ(*output, ReaderOutput{.text = output->text}) << name;  // text alone
  }
  EXPECT_TRUE(log.lines().empty()) << log.lines()[0];
}

// Damaged copies of the documents: nothing, or the text before the damage, and a line that says
// what was wrong.
TEST(WordPerfectReader, DamagedDocumentsSayWhy) {
  std::string wp42 = testing::readFile(fixture("ledger42.wpd"));
  std::string wp5 = testing::readFile(fixture("ledger51.wpd"));
  std::string wp6 = testing::readFile(fixture("ledger6.wpd"));
  // Cut in the function that follows `text`: the tab of 5.1 and the tab group of 6.x.
  auto cutAfter = [](const std::string& bytes, const std::string& text) {
    return bytes.substr(0, bytes.find(text) + text.size() + 3);
  };
  std::string overwritten = std::string(64, '\xFF') + wp6.substr(64);
  std::string encrypted = wp6;
  encrypted[12] = '\x01';
  std::string random;
  for (std::uint32_t seed = 7; random.size() < 300;) {
    seed = seed * 1103515245 + 12345;
    random.push_back(static_cast<char>(seed >> 24));
  }
  const std::string before = "Seed Exchange Ledger\nThe library keeps a shelf of paper envelopes";
  struct Row {
    const char* name;
    std::string bytes;
    std::string text;  // what the answer starts with; "(nothing)" when nothing is read
    std::string log;
  };
  const Row rows[] = {
      {"prefix overwritten", overwritten, "(nothing)", "Not a WordPerfect document"},
      {"random bytes", random, "(nothing)", "Not a WordPerfect document"},
      {"5.1 cut before its document area", wp5.substr(0, 40), "(nothing)",
       "WordPerfect prefix area is truncated"},
      {"6.x encrypted", encrypted, "(nothing)", "WordPerfect document is encrypted"},
      {"5.1 cut in a tab", cutAfter(wp5, "Next swap:"), before,
       "WordPerfect document damaged (unclosed function"},
      {"6.x cut in a group", cutAfter(wp6, "swap:"), before,
       "WordPerfect document damaged (truncated function"},
      {"4.2 cut in its page header", wp42.substr(0, 20), "(nothing)", "Not a WordPerfect document"},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    auto output = wordPerfectReader().read(ReaderSource::data(bytesOf(row.bytes), row.name));
    std::string text = output && output->text ? toUtf8(*output->text) : "(nothing)";
    EXPECT_TRUE(text.starts_with(row.text)) << row.name << ": " << text;
    EXPECT_TRUE(log.contains(row.log)) << row.name;
  }
}

TEST(WordPerfectReader, AgreesWithTheCorpusWordForWord) {
  ULVEK_REQUIRE_CORPUS();
  const std::vector<std::string> files = {"TOPOPREC.WPD", "opf-WordPerfect50.wp5",
                                          "testWordPerfect_42.wpd", "testWordPerfect_5_0.wp5",
                                          "testWordPerfect_5_1.wp5"};
  for (const std::string& file : files) {
    std::filesystem::path path = testing::corpusPath() / "docs/wpd" / file;
    auto output = wordPerfectReader().read(ReaderSource::file(path.string()));
    ASSERT_TRUE(output && output->text) << file;
    std::u16string expected = expectedText(path.string() + ".expect.json");
    ASSERT_FALSE(expected.empty()) << file;
    EXPECT_GE(testing::wordBagF1(*output->text, expected), 0.97) << file;
  }
  for (const std::string& file :
       {"damaged-header.wpd", "damaged-random.wpd", "damaged-truncated.wpd"}) {
    CapturedLog log;
    (void)wordPerfectReader().read(
        ReaderSource::file((testing::corpusPath() / "docs/wpd" / file).string()));
    EXPECT_FALSE(log.lines().empty()) << file;
  }
}

}  // namespace
}  // namespace ulvek
