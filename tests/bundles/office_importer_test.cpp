// Office.mdimporter: sheets and presentations. The XLS and XLSX files in data/ were written by
// python3-xlwt and python3-openpyxl; the others are made here as zips of hand-written XML.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "bundle_harness.h"
#include "test_support.h"
#include "zip_test_files.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
using testing::ZipEntry;

const std::string kData = std::string(ULVEK_SOURCE_DIR) + "/tests/bundles/data/";

TEST(OfficeImporter, SheetsAndPresentations) {
  // tests/data/office/make_fixtures.py writes these three.
  const std::string office = (testing::dataPath() / "office").string() + "/";
  const std::string pptx = office + "talk.pptx", ods = office + "sheet.ods",
                    odp = office + "deck.odp";
  struct Row {
    std::string path;
    std::string text;
    std::string title;
    std::string authors;
    std::string keywords;
  };
  const Row rows[] = {
      {kData + "made-budget.xlsx",
       "Budget\nMonth\tAmount\nJanuar\t1200\nFévrier\tTRUE\nPlan\ninline 文字", "Haushalt", "Åsa",
       "money|home"},
      {kData + "made-prices.xls", "Prices\nItem\tPreis €\nKäse\t4.5\nBrot\t3\nNotes\nsecond sheet",
       "(none)", "(none)", "(none)"},
      {pptx, "First slide\nPoint\nSecond\nSay hello", "Talk", "Bo", "(none)"},
      {ods, "Tab\na  b\tc", "(none)", "Cy", "x|y"},
      {odp, "One\nTwo\nThree\tfour", "(none)", "(none)", "(none)"},
  };
  Bundle bundle("Office", "UlvekOfficeImporterFactory");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    BundleAttributes values = bundle.import(row.path);
    EXPECT_EQ(testing::stringOf(values, "kMDItemTextContent"), row.text);
    EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), row.title);
    EXPECT_EQ(testing::stringOf(values, "kMDItemAuthors"), row.authors);
    EXPECT_EQ(testing::stringOf(values, "kMDItemKeywords"), row.keywords);
  }
  EXPECT_EQ(testing::numberOf(bundle.import(pptx), "kMDItemContentModificationDate"), 1614834367.0);
}

TEST(OfficeImporter, HostileArchivesAnswerLittle) {
  testing::TemporaryFolder folder;
  std::string bomb = (folder.path() / "bomb.xlsx").string();
  ASSERT_TRUE(testing::writeZip(bomb, {{"xl/workbook.xml", "<workbook/>"},
                                       {"xl/sharedStrings.xml", std::string(8 << 20, ' ')}}));
  std::string deep = (folder.path() / "deep.ods").string();
  std::string nested;
  for (int i = 0; i < 100000; ++i) nested += "<text:p>";
  ASSERT_TRUE(testing::writeZip(deep, {{"mimetype", "x", false, true}, {"content.xml", nested}}));
  std::string laughs = (folder.path() / "laughs.ods").string();
  // Each entity is ten of the one before: ten levels make 10^10 letters.
  std::string entities = "<!DOCTYPE x [<!ENTITY e0 \"aaaaaaaaaa\">";
  for (int level = 1; level < 10; ++level) {
    std::string previous = "&e" + std::to_string(level - 1) + ";";
    std::string tenfold;
    for (int k = 0; k < 10; ++k) tenfold += previous;
    entities += "<!ENTITY e" + std::to_string(level) + " \"" + tenfold + "\">";
  }
  entities += "]><text:p>&e9;</text:p>";
  ASSERT_TRUE(
      testing::writeZip(laughs, {{"mimetype", "x", false, true}, {"content.xml", entities}}));
  Bundle bundle("Office", "UlvekOfficeImporterFactory");
  for (const std::string& path : {bomb, deep, laughs, folder.write("empty.xls", ""),
                                  folder.write("text.xlsx", "not a zip")}) {
    BundleAttributes values = bundle.import(path);
    EXPECT_LT(testing::stringOf(values, "kMDItemTextContent").size(), 1000u) << path;
  }
}

}  // namespace
}  // namespace ulvek
