// The PDF importer's text layers: what a failed OCR leaves is told from text, and a page whose
// text is all invisible from one with text people see.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "pdf_document.h"
#include "pdf_test_files.h"
#include "test_support.h"
#include "text_layer.h"

namespace ulvek {
namespace {

using plugin::pdf::isFailedReading;
using plugin::pdf::onlyInvisibleText;

TEST(PDFTextLayer, FailedReadingsAreToldFromText) {
  struct Row {
    const char* name;
    std::string text;
    bool failed;
  };
  const std::vector<Row> rows = {
      {"prose", "Invoice 2041 for the winter mooring of the ketch Marigold.", false},
      {"prose misread by a working OCR", "Tlie qnick brovvn fox jurnps ovcr the lazv dog", false},
      {"figures of a table", "2041 1,240 12.50 300 17 2024 88.1 46", false},
      {"German", "Grüße aus München, schöne Straße am Fluss", false},
      {"Greek", "Καλημέρα κόσμε, τι κάνετε σήμερα", false},
      {"Hindi, with its combining marks", "नमस्ते दुनिया आप कैसे हैं", false},
      {"Chinese, without spaces", "港口办公室发票冬季停泊费用", false},
      {"punctuation and marks", "l1 !| ~~ ;: ,,' .- ~ |' :. ;; , il 1i ~' ,. Il |1 r. ;", true},
      {"long runs of signs between words", "ab cd ef gh ~~~~~~~~~~~~~~~~~~~~ ;;;;;;;;;;;;", true},
      {"letters that are no words", "i l r t I , e a n o . i l I t r j", true},
      {"typographic junk", "— ‘ » · ¢ § ~ ‚ „ ¦ ° a b ¬ ± ii ll ’ “ r i Il t", true},
      // Never an OCR layer: a font's glyph codes, drawn for people to see.
      {"control and private-use codes of a font without a Unicode map",
       "\x12\u0098\u0087\u0094 \u0098\u008b\x03 \ue001\ue002 \u0098\u0087 Overview \x10\x03\x1c "
       "\u0094",
       false},
      {"too few letters", "p. 1 of 4", true},
      {"empty", "", true},
      {"bytes that are no UTF-8", std::string("\xff\xfe\xfd\xfc\xfb\xfa\xf9\xf8 ab"), true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(isFailedReading(row.text), row.failed);
  }
}

TEST(PDFTextLayer, InvisibleTextIsToldByItsRenderMode) {
  struct Row {
    const char* name;
    std::string content;
    bool onlyInvisible;
  };
  const std::string line = " /F1 12 Tf 72 720 Td (Ledger of tides) Tj";
  const std::vector<Row> rows = {
      {"filled", "BT 0 Tr" + line + " ET", false},
      {"stroked", "BT 1 Tr" + line + " ET", false},
      {"filled and clipped", "BT 4 Tr" + line + " ET", false},
      {"invisible", "BT 3 Tr" + line + " ET", true},
      {"clipped only", "BT 7 Tr" + line + " ET", true},
      {"invisible in a saved state", "q BT 3 Tr" + line + " ET Q", true},
      {"invisible, then visible", "BT 3 Tr" + line + " 0 Tr (Ebb) Tj ET", false},
      {"visible, then invisible", "BT" + line + " ET BT 3 Tr" + line + " ET", false},
      {"the mode outlives its text object", "BT 3 Tr ET BT" + line + " ET", true},
      {"the mode ends with its saved state", "q 3 Tr Q BT" + line + " ET", false},
      {"no text at all", "0 0 m 100 100 l S", false},
      {"damaged", "BT 3 Tr /F1 12 Tf (Ledger Tj ET", false},
  };
  std::vector<std::string> contents;
  std::vector<std::size_t> pages;
  for (const Row& row : rows) {
    pages.push_back(contents.size());
    contents.push_back(row.content);
  }
  testing::TemporaryFolder folder;
  std::string path = folder.write("layers.pdf", testing::pdfOfPages(contents));
  // One page asked about twice and one beyond the end.
  pages.push_back(3);
  pages.push_back(rows.size());
  std::unique_ptr<plugin::PdfDocument> document = plugin::PdfDocument::fromFile(path);
  ASSERT_TRUE(document);
  std::vector<bool> answers = onlyInvisibleText(*document, pages);
  ASSERT_EQ(answers.size(), pages.size());
  for (std::size_t at = 0; at < rows.size(); ++at) {
    SCOPED_TRACE(rows[at].name);
    EXPECT_EQ(answers[at], rows[at].onlyInvisible);
  }
  EXPECT_TRUE(answers[rows.size()]);
  EXPECT_FALSE(answers[rows.size() + 1]);
  // Past the deadline, a page is not looked at.
  EXPECT_EQ(onlyInvisibleText(*document, {3}, std::chrono::steady_clock::now()),
            std::vector<bool>{false});
}

}  // namespace
}  // namespace ulvek
