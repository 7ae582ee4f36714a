// Word.mdimporter over the Word 1, 2, 6 and 95 documents that tests/data/word6/make_fixtures.py
// puts together, over damaged ones, and over the Word 97 documents of the corpus, of which it
// gives the summary information alone.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "bundle_harness.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
namespace fs = std::filesystem;

std::string fixture(const std::string& name) {
  return (testing::dataPath() / "word6" / name).string();
}

TEST(WordImporter, OldDocumentsGiveTextAndProperties) {
  struct Row {
    std::string file;
    std::string text;
    std::string title = "(none)";
    std::string authors = "(none)";
    std::string subject = "(none)";
    std::string keywords = "(none)";
    std::string comments = "(none)";  // kMDItemDescription
  };
  const Row rows[] = {
      // Paragraphs, a field by its result, a footnote mark by its number and the note after the
      // main text; every property of the summary information.
      {"letter.doc", "Dear reader,\nPage 3 of the report1.\nBye\n A note.", "Quarterly letter",
       "Åsa Berg", "Sales", "sales|north", "Draft"},
      // The row ends come from the paragraph properties: an empty cell between two full ones
      // does not end its row.
      {"table95.doc", "Name\tValue\nA\tC\nAfter", "(none)", "Bo"},
      // Fast-saved: two pieces, stored in the other order.
      {"fastsaved95.doc", "First half, second half.", "Pieces"},
      // Code page 1251 from the language Word was made for.
      {"russian95.doc", "Привет, мир", "Заголовок", "Иван"},
      // Code page 1253 from the character set the block names.
      {"greek6.doc", "Καλημέρα σας"},
      {"mac6.doc", "Café crème"},
      // No summary information: the document's own strings name it.
      {"own-strings6.doc", "Only text", "Own title", "Own author"},
      // No container: the file is the stream, with six-byte entries in its block.
      {"word2.doc", "Résumé of version 2\nSecond line", "Version title", "Dana"},
      {"word1.doc", "Résumé of version 1\nSecond line", "Version title", "Dana"},
  };
  Bundle bundle("Word", "UlvekWordImporterFactory");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    BundleAttributes values = bundle.import(fixture(row.file));
    EXPECT_EQ(testing::stringOf(values, "kMDItemTextContent"), row.text);
    EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), row.title);
    EXPECT_EQ(testing::stringOf(values, "kMDItemAuthors"), row.authors);
    EXPECT_EQ(testing::stringOf(values, "kMDItemSubject"), row.subject);
    EXPECT_EQ(testing::stringOf(values, "kMDItemKeywords"), row.keywords);
    EXPECT_EQ(testing::stringOf(values, "kMDItemDescription"), row.comments);
  }
  // 1996-03-04 05:06 and 1997-08-09 10:11 UTC.
  BundleAttributes letter = bundle.import(fixture("letter.doc"));
  EXPECT_EQ(testing::numberOf(letter, "kMDItemContentCreationDate"), 825915960.0);
  EXPECT_EQ(testing::numberOf(letter, "kMDItemContentModificationDate"), 871121460.0);
}

TEST(WordImporter, DamagedDocumentsAnswerLittleAndSayWhy) {
  testing::TemporaryFolder folder;
  std::string letter = testing::readFile(fixture("letter.doc"));
  struct Row {
    std::string path;
    std::string text;     // how the text starts; "(none)" for no text
    std::string logPart;  // what the log line says
    std::string title = "(none)";
  };
  const Row rows[] = {
      {fixture("damaged-short-block.doc"), "(none)", "no file information block"},
      {fixture("damaged-far-text.doc"), "(none)", "no text inside the stream"},
      // Counts of four billion characters: the text the stream holds, no more.
      {fixture("damaged-huge-counts.doc"), "Text", "text longer than the stream"},
      {fixture("damaged-piece-table.doc"), "(none)", "piece table outside the stream"},
      // What lies after the text in the stream may show, but no more than the stream holds.
      {fixture("damaged-pieces.doc"), "Text\n", "piece list longer than the piece table"},
      // Encrypted text stays unread; the summary information is not encrypted.
      {fixture("encrypted6.doc"), "(none)", "encrypted", "Locked"},
      {folder.write("cut.doc", letter.substr(0, 1536)), "(none)", "cannot read"},
      {folder.write("empty.doc", ""), "(none)", "not a Word document"},
      {folder.write("text.doc", "Just some text, not Word at all."), "(none)",
       "not a Word document"},
  };
  Bundle bundle("Word", "UlvekWordImporterFactory");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    std::string log;
    BundleAttributes values = bundle.import(row.path, "", &log);
    std::string text = testing::stringOf(values, "kMDItemTextContent");
    EXPECT_TRUE(text.starts_with(row.text)) << text;
    EXPECT_LT(text.size(), 64u);
    EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), row.title);
    EXPECT_NE(log.find(row.logPart), std::string::npos) << log;
  }
}

// Word 97 and later reach this importer only when the built-in reader declined them (encrypted,
// say): their title and author come from the summary information, their text never from here.
TEST(WordImporter, CorpusWord97DocumentsGiveTheirSummaryOnly) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Word", "UlvekWordImporterFactory");
  int compared = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "docs" / "doc")) {
    if (entry.path().extension() != ".doc") continue;
    SCOPED_TRACE(entry.path().filename().string());
    nlohmann::json meta =
        nlohmann::json::parse(testing::readFile(entry.path().string() + ".meta.json"));
    BundleAttributes values = bundle.import(entry.path().string());
    EXPECT_EQ(values.count("kMDItemTextContent"), 0u);
    if (meta.value("damaged", false) || !meta.value("has_WordDocument_stream", false)) continue;
    // The peer kept the strings' terminating NULs.
    auto expected = [&](const char* key) {
      std::string value = meta.value(key, "");
      value.erase(value.find_last_not_of('\0') + 1);
      return value.empty() ? std::string("(none)") : value;
    };
    EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), expected("title"));
    EXPECT_EQ(testing::stringOf(values, "kMDItemAuthors"), expected("author"));
    ++compared;
  }
  EXPECT_GE(compared, 20);
}

}  // namespace
}  // namespace ulvek
