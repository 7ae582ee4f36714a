// The word-processor formats: the project's own documents in tests/data/wordprocessor against
// the text and attributes beside each, and the document corpus against LibreOffice's text export
// (word-bag F1) and the document properties beside each file.

#include "readers/attributed/attributed_reader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "reader_output_printer.h"
#include "test_support.h"
#include "text/string_utilities.h"
#include "word_bag.h"
#include "zip_test_files.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;

// Word's summary information may end its strings with a NUL, which the reader drops.
std::string withoutNul(const nlohmann::json& value) {
  std::string text = value.get<std::string>();
  std::erase(text, '\0');
  return text;
}

// ---- The project's documents ------------------------------------------------------------------

fs::path fixture(std::string_view name) { return testing::dataPath() / "wordprocessor" / name; }

// "2023-03-14T09:26:53Z" or "2024-01-02T03:04:05.12Z", as microseconds since 1970.
Date isoDate(const std::string& text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0;
  std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%lf", &year, &month, &day, &hour, &minute, &second);
  std::chrono::sys_days days{std::chrono::year(year) / month / day};
  long long seconds = days.time_since_epoch().count() * 86400LL + hour * 3600LL + minute * 60LL;
  return Date{seconds * 1000000 + std::llround(second * 1000000)};
}

// NAME.expect.json beside a document: its text and its properties under the names the
// script gives them, dates as ISO 8601 moments.
struct Expected {
  std::u16string text;
  std::u16string documentType;
  ReaderOutput properties{.convention = Convention::AttributedDocument};
};

Expected expected(const fs::path& document) {
  auto json = nlohmann::json::parse(testing::readFile(document.string() + ".expect.json"));
  Expected answer{fromUtf8(json["text"].get<std::string>())};
  ReaderOutput& properties = answer.properties;
  for (const auto& [key, value] : json["attributes"].items()) {
    if (value.is_array()) {
      TextList& words = properties.keywords.emplace();
      for (const auto& word : value) words.push_back(fromUtf8(word.get<std::string>()));
      continue;
    }
    std::string text = value.get<std::string>();
    if (key == "CreationTime") properties.creation = isoDate(text);
    if (key == "ModificationTime") properties.modification = isoDate(text);
    if (key == "Author") properties.authors = TextList{fromUtf8(text)};
    if (key == "DocumentType") answer.documentType = fromUtf8(text);
    for (auto [name, property] :
         {std::pair{"Title", &ReaderOutput::title}, std::pair{"Subject", &ReaderOutput::subject},
          std::pair{"Comment", &ReaderOutput::comment},
          std::pair{"Copyright", &ReaderOutput::copyright}})
      if (key == name) properties.*property = fromUtf8(text);
  }
  return answer;
}

// Every property read is expected and every expected one read.
void expectProperties(const ReaderOutput& read, const Expected& wanted, const std::string& name) {
  ReaderOutput properties = read;
  properties.text.reset();
  ReaderOutput expected = wanted.properties;
  expected.documentType = wanted.documentType;
  EXPECT_EQ(properties, expected) << name;
}

Bytes bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Each format as a word processor writes it: title, author, subject, keywords, comment and dates
// in the document properties; headings, notes, lists, tables, fields, tracked changes, page
// headers and footers, and letters from several scripts and code pages in the text.
TEST(AttributedReader, EachFormatTextAndAttributes) {
  const char* documents[] = {"docx/ledger.docx", "docx/minutes.dotx", "docx/ledger.xml",
                             "docx/lists.docx",  "odt/lists.odt",     "odt/formula.fodt",
                             "rtf/lists.rtf",    "doc/lists.doc",     "odt/ledger.odt",
                             "odt/ledger.fodt",  "odt/minutes.ott",   "rtf/ledger.rtf",
                             "rtf/ledger.rtfd",  "doc/ledger.doc",    "doc/compressed.doc"};
  testing::CapturedLog log;
  for (const char* name : documents) {
    fs::path path = fixture(name);
    Expected answer = expected(path);
    std::optional<ReaderOutput> output =
        attributedDocumentReader().read(ReaderSource::file(path.string()));
    ASSERT_TRUE(output && output->text) << name;
    EXPECT_EQ(toUtf8(*output->text), toUtf8(answer.text)) << name;
    expectProperties(*output, answer, name);
    if (fs::is_directory(path)) continue;
    // The same bytes from memory, under a name that says nothing: the content decides.
    std::string bytes = testing::readFile(path);
    output = attributedDocumentReader().read(ReaderSource::data(bytesOf(bytes), "attachment"));
    ASSERT_TRUE(output && output->text) << name << " in memory";
    EXPECT_EQ(toUtf8(*output->text), toUtf8(answer.text)) << name << " in memory";
    expectProperties(*output, answer, std::string(name) + " in memory");
  }
  EXPECT_TRUE(log.lines().empty()) << log.lines()[0];
}

// ---- The corpus ------------------------------------------------------------------------------

struct FormatScore {
  int documents = 0;
  int below = 0;
  double sum = 0;
};

// `documentTypes`: the format's own first, then others its folder holds under its extension.
FormatScore scoreFolder(const std::string& format,
                        const std::vector<std::u16string_view>& documentTypes) {
  FormatScore score;
  fs::path folder = testing::corpusPath() / "docs" / format;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::string name = entry.path().filename().string();
    if (name.ends_with(".json") || name.ends_with(".txt")) continue;
    SCOPED_TRACE(name);
    std::optional<ReaderOutput> output =
        attributedDocumentReader().read(ReaderSource::file(entry.path().string()));
    if (name.starts_with("damaged-")) continue;  // answering at all is the test
    // An encrypted package is no document we can read: nothing, and the importers are asked.
    if (!output || !output->text) continue;
    auto meta = nlohmann::json::parse(testing::readFile(entry.path().string() + ".meta.json"));
    std::string expected = testing::readFile(entry.path().string() + ".txt");
    double f1 = testing::wordBagF1(*output->text, fromUtf8(expected));
    ++score.documents;
    score.sum += f1;
    if (f1 < 0.97) ++score.below;
    // Files that are no documents of the format: a truncated zip, an encrypted package, a
    // file that is not the zip it claims to be. They take the plain-text fall-back.
    bool unreadable = output->documentType == kPlainTextDocumentType;
    if (unreadable) {
      --score.documents, score.sum -= f1;
      if (f1 < 0.97) --score.below;
      continue;
    }
    EXPECT_GE(f1, 0.75);
    std::u16string_view type = output->documentType;
    EXPECT_TRUE(std::any_of(documentTypes.begin(), documentTypes.end(),
                            [&](std::u16string_view known) { return type == known; }))
        << toUtf8(type);
    if (meta.contains("title") && meta["title"].is_string() &&
        !meta["title"].get<std::string>().empty())
      EXPECT_EQ(toUtf8(stringByTrimmingWhiteSpaces(output->title.value_or(TextString()))),
                toUtf8(stringByTrimmingWhiteSpaces(fromUtf8(withoutNul(meta["title"])))));
  }
  return score;
}

TEST(AttributedReader, CorpusTextAndAttributes) {
  ULVEK_REQUIRE_CORPUS();
  const std::pair<std::string, std::vector<std::u16string_view>> formats[] = {
      {"doc", {kDocFormatTextDocumentType, kWordMLTextDocumentType}},
      {"docx", {kOfficeOpenXMLTextDocumentType}},
      {"odt", {kOpenDocumentTextDocumentType}},
      {"rtf", {kRTFTextDocumentType}},
      {"rtfd", {kRTFDTextDocumentType}}};
  for (const auto& [format, type] : formats) {
    FormatScore score = scoreFolder(format, type);
    std::printf("%s: %d documents, mean word-bag F1 %.4f, %d below 0.97\n", format.c_str(),
                score.documents, score.documents ? score.sum / score.documents : 0.0, score.below);
    EXPECT_GT(score.documents, 3) << format;
    EXPECT_GE(score.sum / score.documents, 0.97) << format;
  }
}

TEST(AttributedReader, FormatsChosenByContent) {
  TemporaryFolder folder;
  std::string docx = (folder.path() / "named.txt").string();
  ASSERT_TRUE(testing::writeZip(
      docx, {{"word/document.xml",
              "<w:document><w:body><w:p><w:r><w:t>Hello</w:t></w:r><w:r><w:tab/><w:t>world</w:t>"
              "</w:r></w:p><w:p><w:del><w:r><w:delText>gone</w:delText></w:r></w:del><w:r>"
              "<w:instrText>PAGE</w:instrText><w:t>kept</w:t></w:r></w:p><w:tbl><w:tr><w:tc><w:p>"
              "<w:t>a</w:t></w:p></w:tc><w:tc><w:p><w:t>b</w:t></w:p></w:tc></w:tr></w:tbl>"
              "</w:body></w:document>"},
             {"word/footnotes.xml",
              "<w:footnotes><w:footnote w:type=\"separator\"><w:p><w:t>---</w:t></w:p></w:footnote>"
              "<w:footnote><w:p><w:t>A note.</w:t></w:p></w:footnote></w:footnotes>"},
             {"docProps/core.xml",
              "<cp:coreProperties><dc:title>T</dc:title><cp:keywords>x, y</cp:keywords>"
              "<dcterms:created>2020-01-02T03:04:05Z</dcterms:created></cp:coreProperties>"}}));
  std::string odt = (folder.path() / "odt.bin").string();
  ASSERT_TRUE(testing::writeZip(
      odt, {{"mimetype", "application/vnd.oasis.opendocument.text", false, true},
            {"content.xml",
             "<office:document-content><office:body><office:text><text:h>Head</text:h><text:p>a"
             "<text:s text:c=\"3\"/>b<text:note><text:note-citation>1</text:note-citation>"
             "<text:note-body><text:p>note</text:p></text:note-body></text:note> c</text:p>"
             "</office:text></office:body></office:document-content>"},
            {"meta.xml",
             "<office:meta><meta:keyword>k1</meta:keyword><meta:keyword>k2"
             "</meta:keyword><meta:initial-creator>Ann</meta:initial-creator>"
             "</office:meta>"}}));
  std::string wordml = folder.write(
      "old.xml",
      "<?xml version=\"1.0\"?><?mso-application progid=\"Word.Document\"?><w:wordDocument>"
      "<o:DocumentProperties><o:Author>Bo</o:Author></o:DocumentProperties><w:body><w:p><w:r>"
      "<w:t>Word 2003</w:t></w:r></w:p></w:body></w:wordDocument>");
  std::string plain = folder.write("plain.docx", "caf\xC3\xA9 is just text");
  struct Row {
    std::string path;
    std::u16string text;
    std::u16string_view type;
  };
  const Row rows[] = {
      {docx, u"Hello\tworld\nkept\na\tb\nA note.", kOfficeOpenXMLTextDocumentType},
      {odt, u"Head\na   b c\nnote", kOpenDocumentTextDocumentType},
      {wordml, u"Word 2003", kWordMLTextDocumentType},
      {plain, u"caf\u00e9 is just text", kPlainTextDocumentType},
  };
  for (const Row& row : rows) {
    std::optional<ReaderOutput> output =
        attributedDocumentReader().read(ReaderSource::file(row.path));
    ASSERT_TRUE(output && output->text) << row.path;
    EXPECT_EQ(*output->text, row.text) << row.path;
    EXPECT_EQ(output->documentType, row.type);
  }
  std::optional<ReaderOutput> docxOutput =
      attributedDocumentReader().read(ReaderSource::file(docx));
  EXPECT_EQ(docxOutput->keywords, (TextList{u"x", u"y"}));
  EXPECT_EQ(docxOutput->creation, Date{1577934245000000});
  std::optional<ReaderOutput> odtOutput = attributedDocumentReader().read(ReaderSource::file(odt));
  EXPECT_EQ(odtOutput->authors, TextList{u"Ann"});
  EXPECT_EQ(odtOutput->keywords, (TextList{u"k1", u"k2"}));
}

// ---- Documents the formats do not take --------------------------------------------------------

// Word files the Word reader does not take are plain text to the reader, so that the dispatcher
// hands them to the importers.
TEST(AttributedReader, UnreadWordFilesFallBackToPlainText) {
  fs::path path = fixture("doc/compressed.doc");
  std::string word97 = testing::readFile(path);
  // The file information block starts a sector of the container.
  std::size_t fib = 0;
  while ((fib = word97.find("\xEC\xA5\xC1", fib + 1)) != std::string::npos && fib % 512 != 0) {
  }
  ASSERT_NE(fib, std::string::npos);
  std::string word6 = word97, encrypted = word97;
  word6[fib] = '\xDC', word6[fib + 2] = 101;
  encrypted[fib + 0x0B] |= 0x01;
  struct Row {
    const char* name;
    ReaderSource source;
    std::u16string_view type;
  };
  const Row rows[] = {
      {"Word 6", ReaderSource::data(bytesOf(word6), "old.doc"), kPlainTextDocumentType},
      {"encrypted", ReaderSource::data(bytesOf(encrypted), "secret.doc"), kPlainTextDocumentType},
      {"Word 97", ReaderSource::file(path.string()), kDocFormatTextDocumentType},
      {"Word 97 in memory", ReaderSource::data(bytesOf(word97), "mail attachment"),
       kDocFormatTextDocumentType},
  };
  testing::CapturedLog log;
  for (const Row& row : rows) {
    std::optional<ReaderOutput> output = attributedDocumentReader().read(row.source);
    // Bytes that no text encoding takes are no plain text either: nothing, and the dispatcher
    // goes on to the file's content type.
    if (!output && row.type == kPlainTextDocumentType) continue;
    ASSERT_TRUE(output && output->text) << row.name;
    EXPECT_EQ(output->documentType, row.type) << row.name;
    if (row.type == kDocFormatTextDocumentType)
      EXPECT_EQ(*output->text, expected(path).text) << row.name;
  }
  // An older Word version is left to the Word importer without a word; a locked one is a failure.
  EXPECT_FALSE(log.contains("old.doc"));
  EXPECT_TRUE(log.contains("Encrypted document: secret.doc"));
}

// Damaged copies of the documents, and documents under another format's name: each answers by
// its content, a damaged container with nothing and one line saying so, and damaged text with
// the text before the damage.
TEST(AttributedReader, DamagedAndMisnamedDocuments) {
  TemporaryFolder folder;
  auto cut = [](const char* name) {
    std::string bytes = testing::readFile(fixture(name));
    return bytes.substr(0, bytes.size() / 2);
  };
  auto rtfd = [&](const char* name, const std::string& text) {
    folder.write(std::string(name) + "/TXT.rtf", text);
    return (folder.path() / name).string();
  };
  std::string rtf = testing::readFile(fixture("rtf/ledger.rtf"));
  struct Row {
    const char* name;
    std::string path;
    std::u16string_view type;  // empty: nothing is read
    const char* textOf;        // the document whose text the answer begins as
    bool whole;                // and is all of
    const char* log;
  };
  const Row rows[] = {
      {"RTF named .doc", folder.write("rtf.doc", rtf), kRTFTextDocumentType, "rtf/ledger.rtf",
       true},
      {"RTFD that is a file", folder.write("file.rtfd", rtf), kRTFTextDocumentType,
       "rtf/ledger.rtf", true},
      {"RTFD whose text is a picture",
       rtfd("png.rtfd", testing::readFile(fixture("rtf/ledger.rtfd/seeds.png"))), u""},
      {"RTFD with its text cut short", rtfd("short.rtfd", cut("rtf/ledger.rtfd/TXT.rtf")),
       kRTFDTextDocumentType, "rtf/ledger.rtfd"},
      {"RTF cut short", folder.write("short.rtf", cut("rtf/ledger.rtf")), kRTFTextDocumentType,
       "rtf/ledger.rtf"},
      {"FODT cut short", folder.write("short.fodt", cut("odt/ledger.fodt")),
       kOpenDocumentTextDocumentType, "odt/ledger.fodt", false, "Damaged document"},
      {"DOCX cut short", folder.write("short.docx", cut("docx/ledger.docx")), u"", nullptr, false,
       "Damaged document"},
      {"ODT cut short", folder.write("short.odt", cut("odt/ledger.odt")), u"", nullptr, false,
       "Damaged document"},
      // Word files the reader cannot take go on as plain text, for the importers to try.
      {"Word file cut short", folder.write("short.doc", cut("doc/ledger.doc")),
       kPlainTextDocumentType, nullptr, false, "Damaged document"},
      // A package encrypted with a password holds no Word document: no reader takes it.
      {"encrypted DOCX", fixture("docx/encrypted.docx").string(), kPlainTextDocumentType},
      {"empty DOCX", folder.write("empty.docx", ""), u""},
      {"empty RTF", folder.write("empty.rtf", ""), u""},
  };
  for (const Row& row : rows) {
    testing::CapturedLog log;
    std::optional<ReaderOutput> output =
        attributedDocumentReader().read(ReaderSource::file(row.path));
    if (row.log)
      EXPECT_TRUE(log.contains(row.log)) << row.name;
    else
      EXPECT_TRUE(log.lines().empty()) << row.name << ": " << log.lines()[0];
    if (row.type.empty()) {
      EXPECT_FALSE(output) << row.name;
      continue;
    }
    ASSERT_TRUE(output && output->text) << row.name;
    EXPECT_EQ(output->documentType, row.type) << row.name;
    if (!row.textOf) continue;
    std::u16string text = expected(fixture(row.textOf)).text;
    if (row.whole) {
      EXPECT_EQ(toUtf8(*output->text), toUtf8(text)) << row.name;
      continue;
    }
    // What was read before the damage: the first lines, and less than all.
    std::u16string firstLine = text.substr(0, text.find(u'\n') + 1);
    EXPECT_TRUE(output->text->starts_with(firstLine)) << row.name << ": " << toUtf8(*output->text);
    EXPECT_LT(output->text->size(), text.size()) << row.name;
  }
}

TEST(AttributedReader, HostileDocumentsAnswerLittle) {
  TemporaryFolder folder;
  std::string laughs =
      "<!DOCTYPE x [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;\">]>"
      "<w:document><w:p><w:t>&b;</w:t></w:p></w:document>";
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<w:p>";
  const std::pair<std::string, std::vector<testing::ZipEntry>> rows[] = {
      {"laughs.docx", {{"word/document.xml", laughs}}},
      {"deep.docx", {{"word/document.xml", deep}}},
      {"bomb.docx", {{"word/document.xml", std::string(300u << 20, ' ')}}},
      {"escape.docx", {{"../../escape.xml", "x"}, {"word/document.xml", "<w:t>ok</w:t>"}}},
  };
  for (const auto& [name, entries] : rows) {
    std::string path = (folder.path() / name).string();
    ASSERT_TRUE(testing::writeZip(path, entries));
    testing::CapturedLog log;
    std::optional<ReaderOutput> output = attributedDocumentReader().read(ReaderSource::file(path));
    if (output && output->text) EXPECT_LT(output->text->size(), 100u) << name;
  }
  EXPECT_FALSE(fs::exists(folder.path().parent_path() / "escape.xml"));

  // A package without the document of any format: nothing, and one line saying why.
  std::string headerOnly = (folder.path() / "header-only.docx").string();
  ASSERT_TRUE(testing::writeZip(headerOnly, {{"word/header1.xml", "<w:t>head</w:t>"}}));
  testing::CapturedLog log;
  EXPECT_FALSE(attributedDocumentReader().read(ReaderSource::file(headerOnly)));
  EXPECT_EQ(log.lines(), std::vector<std::string>{"Damaged document: " + headerOnly +
                                                  " (no document in the package)"});
}

}  // namespace
}  // namespace ulvek
