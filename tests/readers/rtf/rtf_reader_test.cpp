// RTF: the tokenizer's rules on small documents, documents as Word and TextEdit write them, and
// hostile input.

#include "readers/rtf/rtf_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "reader_output_printer.h"
#include "test_support.h"

namespace ulvek {
namespace {

std::optional<ReaderOutput> read(const std::string& rtf) {
  return readRTFBytes(Bytes(reinterpret_cast<const std::uint8_t*>(rtf.data()), rtf.size()));
}

TEST(RTFReader, TextRules) {
  struct Row {
    const char* name;
    std::string rtf;
    std::u16string text;
  };
  const Row rows[] = {
      {"paragraphs and tabs", "{\\rtf1 One\\par Two\\tab Three\\line Four}",
       u"One\nTwo\tThree\nFour"},
      {"escaped symbols", "{\\rtf1 a\\{b\\}c\\\\d}", u"a{b}c\\d"},
      {"unicode with fallback", "{\\rtf1\\uc1 caf\\u233?s \\uc2\\u8364xx!}", u"caf\u00e9s \u20ac!"},
      {"negative unicode", "{\\rtf1 \\u-3913?}", u"\uf0b7"},
      {"code page bytes", "{\\rtf1\\ansi\\ansicpg1251 \\'cf\\'f0\\'e8}", u"\u041f\u0440\u0438"},
      {"font charset", "{\\rtf1{\\fonttbl{\\f1\\fcharset238 X;}}\\f1 \\'9a}", u"\u0161"},
      {"shift-jis pair with an ASCII trail", "{\\rtf1\\ansicpg932 \\'83\\'5e\\'83X}",
       u"\u30bf\u30b9"},
      {"fields keep results",
       "{\\rtf1 {\\field{\\*\\fldinst HYPERLINK \"x\"}{\\fldrslt link}} end}", u"link end"},
      {"tables", "{\\rtf1 a\\cell b\\cell\\row c\\cell d\\cell\\row}", u"a\tb\nc\td"},
      {"skipped destinations",
       "{\\rtf1{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red0;}{\\*\\unknown junk}{\\pict 0102}"
       "{\\header head}text}",
       u"text"},
      {"specials", "{\\rtf1 \\lquote a\\rquote  \\emdash \\bullet\\~b}",
       u"\u2018a\u2019 \u2014\u2022\u00a0b"},
      {"binary data", "{\\rtf1 a{\\bin3 xyz}b}", u"ab"},
      {"unterminated", "{\\rtf1 {\\b bold", u"bold"},
      // A byte escape without two hex digits names no byte; the text after it stays.
      {"byte escape without hex digits", "{\\rtf1 a\\'zzb\\'4gc\\'e9}", u"azzb4gc\u00e9"},
  };
  for (const Row& row : rows) {
    std::optional<ReaderOutput> output = read(row.rtf);
    ASSERT_TRUE(output && output->text) << row.name;
    EXPECT_EQ(*output->text, row.text) << row.name;
  }
}

TEST(RTFReader, InfoGroup) {
  std::optional<ReaderOutput> output = read(
      "{\\rtf1{\\info{\\title The \\u8212? Title}{\\author Ann}{\\keywords one, two}{\\doccomm "
      "note}"
      "{\\creatim\\yr2002\\mo12\\dy9\\hr14\\min26}{\\revtim\\yr2021\\mo2\\dy3}"
      "{\\upr{\\subject ???}{\\*\\ud{\\subject \\u26085?}}}}Body}");
  ASSERT_TRUE(output);
  // The template date the dispatcher drops is read like any other.
  EXPECT_EQ(*output, (ReaderOutput{.convention = Convention::AttributedDocument,
                                   .text = u"Body",
                                   .title = u"The \u2014 Title",
                                   .subject = u"\u65e5",
                                   .comment = u"note",
                                   .authors = TextList{u"Ann"},
                                   .keywords = TextList{u"one", u"two"},
                                   .creation = Date{1039443960000000},
                                   .modification = Date{1612310400000000},
                                   .documentType = kRTFTextDocumentType}));
}

// The ledger as Word writes it (font character sets, \info, page header and footer, notes where
// they are called, list labels, a table, an annotation, pictures) and as TextEdit writes it in an
// RTFD; the text beside each, read from the file and from memory.
TEST(RTFReader, DocumentsAsWordAndTextEditWriteThem) {
  std::filesystem::path folder = testing::dataPath() / "wordprocessor/rtf";
  auto expectedText = [&](const char* name) {
    auto json =
        nlohmann::json::parse(testing::readFile(folder / (std::string(name) + ".expect.json")));
    return fromUtf8(json["text"].get<std::string>());
  };
  std::string rtf = testing::readFile(folder / "ledger.rtf");
  struct Row {
    const char* name;
    std::optional<ReaderOutput> output;
    const char* document;
    std::u16string_view type;
  };
  const Row rows[] = {
      {"RTF file", readRTF(ReaderSource::file((folder / "ledger.rtf").string())), "ledger.rtf",
       kRTFTextDocumentType},
      {"RTF bytes", read(rtf), "ledger.rtf", kRTFTextDocumentType},
      {"RTFD folder", readRTFD(ReaderSource::file((folder / "ledger.rtfd").string())),
       "ledger.rtfd", kRTFDTextDocumentType},
      {"RTF as an RTFD", readRTFD(ReaderSource::file((folder / "ledger.rtf").string())), nullptr},
  };
  for (const Row& row : rows) {
    if (!row.document) {
      EXPECT_FALSE(row.output) << row.name;
      continue;
    }
    ASSERT_TRUE(row.output && row.output->text) << row.name;
    EXPECT_EQ(toUtf8(*row.output->text), toUtf8(expectedText(row.document))) << row.name;
    const ReaderOutput& output = *row.output;
    EXPECT_EQ(output.documentType, row.type) << row.name;
    EXPECT_EQ(output.title, u"Seed Exchange Ledger \u2014 Spring") << row.name;
    EXPECT_EQ(output.authors, TextList{u"Ingrid \u00d8deg\u00e5rd"}) << row.name;
    EXPECT_EQ(output.keywords, (TextList{u"seeds", u"library", u"ledger"})) << row.name;
    EXPECT_EQ(output.creation, Date{1678786013000000}) << row.name;
  }
  // Word's document also says when it was last saved; printing leaves no date behind.
  ReaderOutput word = *rows[0].output;
  word.text.reset();
  EXPECT_EQ(word, (ReaderOutput{.convention = Convention::AttributedDocument,
                                .title = u"Seed Exchange Ledger \u2014 Spring",
                                .subject = u"Seeds swapped at the village library",
                                .comment = u"A small ledger written for the reader tests.",
                                .authors = TextList{u"Ingrid \u00d8deg\u00e5rd"},
                                .keywords = TextList{u"seeds", u"library", u"ledger"},
                                .creation = Date{1678786013000000},
                                .modification = Date{1704164645000000},
                                .documentType = kRTFTextDocumentType}));
}

TEST(RTFReader, HostileInput) {
  std::string nested = "{\\rtf1 ";
  for (int i = 0; i < 100000; ++i) nested += "{";
  nested += "deep";
  const std::string rows[] = {
      nested,
      "{\\rtf1 \\bin999999999999 x}",
      "{\\rtf1 \\uc999999999 \\u1234 abc}",
      "{\\rtf1 \\'",
      "{\\rtf1 \\",
      "{\\rtf1 " + std::string(100000, '}') + "tail",
      "{\\rtf1 \\u99999999999999999999?}",
  };
  for (const std::string& rtf : rows) {
    std::optional<ReaderOutput> output = read(rtf);
    EXPECT_TRUE(output) << rtf.substr(0, 40);
  }
  EXPECT_FALSE(read("not rtf"));
  EXPECT_FALSE(read(""));
}

// Font changes inside deep nesting once searched every open group: 2 MB took minutes.
TEST(RTFReader, FontChangesStayLinearInNesting) {
  auto repeated = [](std::string_view piece, std::size_t times) {
    std::string out;
    out.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i) out += piece;
    return out;
  };
  struct Row {
    std::string name;
    std::string rtf;
    std::string text;
  };
  const Row rows[] = {
      {"flat groups", "{\\rtf1 " + repeated("{\\f1 x}", 250000) + "}", repeated("x", 250000)},
      {"deep groups", "{\\rtf1 " + repeated("{", 300000) + repeated("\\f1 y", 340000),
       repeated("y", 340000)},
      // Past the deepest level kept, groups share the deepest one's state and cost nothing.
      {"a million levels, and text after them",
       "{\\rtf1 " + repeated("{", 1000000) + "{\\*\\gen hidden}in" + repeated("}", 1000000) +
           " out}",
       "in out"},
      {"inside the font table",
       "{\\rtf1 {\\fonttbl " + repeated("{", 300000) + repeated("\\f1 z", 340000) +
           repeated("}", 300000) + "}ok}",
       "ok"},
  };
  for (const Row& row : rows) {
    const auto start = std::chrono::steady_clock::now();
    std::optional<ReaderOutput> output = read(row.rtf);
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start);
    ASSERT_TRUE(output && output->text) << row.name;
    EXPECT_EQ(toUtf8(*output->text), row.text) << row.name;
    EXPECT_LT(seconds.count(), 5.0) << row.name;
  }
}

// An RTFD's TXT.rtf is read only where it lies in the package: a link to a document elsewhere,
// or a package whose TXT.rtf lies in a linked folder, reads as nothing.
TEST(RTFReader, RTFDLinksLeadNowhere) {
  testing::TemporaryFolder folder;
  const std::string outside = folder.write("outside/TXT.rtf", "{\\rtf1 secret}");
  folder.write("own.rtfd/TXT.rtf", "{\\rtf1 own}");
  std::filesystem::create_directories(folder.path() / "linked.rtfd");
  std::filesystem::create_symlink(outside, folder.path() / "linked.rtfd/TXT.rtf");
  struct Row {
    std::string package;
    std::string text;
  };
  const Row rows[] = {{"own.rtfd", "own"}, {"linked.rtfd", "(nothing)"}};
  for (const Row& row : rows) {
    std::optional<ReaderOutput> output =
        readRTFD(ReaderSource::file((folder.path() / row.package).string()));
    EXPECT_EQ(output && output->text ? toUtf8(*output->text) : "(nothing)", row.text)
        << row.package;
  }
}

}  // namespace
}  // namespace ulvek
