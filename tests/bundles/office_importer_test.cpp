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

std::string relationships(const std::vector<std::pair<std::string, std::string>>& targets) {
  std::string xml = "<Relationships>";
  for (const auto& [id, target] : targets)
    xml += "<Relationship Id=\"" + id + "\" Target=\"" + target + "\"/>";
  return xml + "</Relationships>";
}

TEST(OfficeImporter, SheetsAndPresentations) {
  testing::TemporaryFolder folder;
  std::string pptx = (folder.path() / "talk.pptx").string();
  ASSERT_TRUE(testing::writeZip(
      pptx,
      {{"ppt/presentation.xml",
        "<p:presentation><p:sldIdLst><p:sldId r:id=\"rId9\"/><p:sldId r:id=\"rId2\"/>"
        "</p:sldIdLst></p:presentation>"},
       {"ppt/_rels/presentation.xml.rels",
        relationships({{"rId2", "slides/slide2.xml"}, {"rId9", "slides/slide1.xml"}})},
       {"ppt/slides/slide1.xml",
        "<p:sld><a:p><a:r><a:t>First</a:t></a:r><a:r><a:t> slide"
        "</a:t></a:r></a:p><a:p><a:t>Point</a:t></a:p></p:sld>"},
       {"ppt/slides/slide2.xml", "<p:sld><a:p><a:t>Second</a:t></a:p></p:sld>"},
       {"ppt/slides/_rels/slide2.xml.rels", relationships({{"rId1", "../notesSlides/n2.xml"}})},
       {"ppt/notesSlides/n2.xml", "<p:notes><a:p><a:t>Say hello</a:t></a:p></p:notes>"},
       {"docProps/core.xml",
        "<cp:coreProperties><dc:title>Talk</dc:title><dc:creator>Bo</dc:creator>"
        "<dcterms:modified>2021-03-04T05:06:07Z</dcterms:modified></cp:coreProperties>"}}));
  std::string ods = (folder.path() / "sheet.ods").string();
  ASSERT_TRUE(testing::writeZip(
      ods, {{"mimetype", "application/vnd.oasis.opendocument.spreadsheet", false, true},
            {"content.xml",
             "<office:document-content><table:table table:name=\"Tab\"><table:table-row>"
             "<table:table-cell><text:p>a<text:s text:c=\"2\"/>b</text:p></table:table-cell>"
             "<table:table-cell><text:p>c</text:p></table:table-cell></table:table-row>"
             "</table:table></office:document-content>"},
            {"meta.xml",
             "<office:meta><meta:keyword>x</meta:keyword><meta:keyword>y"
             "</meta:keyword><meta:initial-creator>Cy</meta:initial-creator>"
             "</office:meta>"}}));
  std::string odp = (folder.path() / "deck.odp").string();
  ASSERT_TRUE(testing::writeZip(
      odp, {{"mimetype", "application/vnd.oasis.opendocument.presentation", false, true},
            {"content.xml",
             "<o><draw:page><text:p>One</text:p></draw:page><draw:page>"
             "<text:h>Two</text:h><text:p>Three<text:tab/>four</text:p>"
             "</draw:page></o>"}}));
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
