// A PDF document as the bundled importers open it: the information dictionary in UTF-8 whatever
// encoding its writer chose, page boxes, pages rendered for OCR, and documents that are locked
// or are no PDF at all.

#include "pdf_document.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "pdf_test_files.h"
#include "test_support.h"

namespace ulvek {
namespace {

using plugin::PdfDocument;

// A one-page PDF whose information dictionary is `info` ("/Title (...)"), its page `page`'s
// further entries ("/CropBox [...]") and `content` its content stream.
std::string pdfWithInfo(const std::string& info, const std::string& page = "",
                        const std::string& content = "") {
  testing::PdfWriter pdf;
  pdf.add("<< /Type /Catalog /Pages 2 0 R >>");
  pdf.add("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  pdf.add("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] " + page + " /Contents 4 0 R >>");
  pdf.add(testing::PdfWriter::stream(content));
  pdf.add("<< " + info + " >>");
  return pdf.finish("/Info 5 0 R");
}

std::unique_ptr<PdfDocument> open(const std::string& bytes) {
  return PdfDocument::fromBytes(bytes.data(), bytes.size());
}

TEST(PdfDocument, InformationComesOutInUTF8) {
  struct Row {
    const char* name;
    std::string written;  // the title as the PDF writes it
    std::string title;
  };
  const std::vector<Row> rows = {
      {"ASCII", "(Harbour Survey)", "Harbour Survey"},
      {"PDFDocEncoding, Latin-1 letters", "(L\xF8v\xE5s)", "Løvås"},
      // Where PDFDocEncoding differs from Latin-1: dashes, quotes, ligatures and the euro.
      {"PDFDocEncoding, its own signs",
       "(Spring \x84 \x8D"
       "fine\x8E \x93 \xA0 12)",
       "Spring — “fine” ﬁ € 12"},
      {"UTF-16BE", "<FEFF0048006100720062006F00750072>", "Harbour"},
      {"UTF-16BE beyond the first plane", "<FEFF0053D83DDEA2>", "S🚢"},
      {"UTF-16LE", "<FFFE480061006C00>", "Hal"},
      {"UTF-16 ending in a NUL", "<FEFF004800610000>", "Ha"},
      {"a lone surrogate", "<FEFF0041D83D0042>", "A\uFFFDB"},
      {"escapes of a literal", "(Tide \\(ebb\\) \\101)", "Tide (ebb) A"},
      {"empty", "()", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string bytes = pdfWithInfo("/Title " + row.written + " /Author (Per)");
    auto document = open(bytes);
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(document->info().title, row.title);
    EXPECT_EQ(document->info().author, "Per");
  }
}

TEST(PdfDocument, DatesAreSecondsSince1970) {
  struct Row {
    const char* written;
    std::time_t seconds;
  };
  const std::vector<Row> rows = {
      {"D:19990101000000Z", 915148800},
      {"D:20190412093000+02'00'", 1555054200},
      {"D:20190412093000-05'30'", 1555081200},
      {"D:2019", 1546300800},
      {"yesterday", 0},
      {"", 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.written);
    EXPECT_EQ(plugin::pdfDate(row.written), row.seconds);
    std::string bytes =
        pdfWithInfo("/CreationDate (" + std::string(row.written) + ") /ModDate (D:2020)");
    auto document = open(bytes);
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(document->info().created, row.seconds);
    EXPECT_EQ(document->info().modified, 1577836800);
  }
  // No information dictionary at all.
  auto bare = open(testing::pdfOfPages({""}));
  ASSERT_NE(bare, nullptr);
  EXPECT_EQ(bare->info().created, 0);
  EXPECT_EQ(bare->info().title, "");
}

TEST(PdfDocument, PageBoxesAndRenderings) {
  // A black square at (100, 100) to (200, 200), seen through a crop box that starts at (50, 50).
  std::string bytes = pdfWithInfo("", "/CropBox [50 50 350 450]", "0 0 0 rg 100 100 100 100 re f");
  auto document = open(bytes);
  ASSERT_NE(document, nullptr);
  ASSERT_EQ(document->pages(), 1);
  ASSERT_TRUE(document->mediaBox(0));
  EXPECT_DOUBLE_EQ(document->mediaBox(0)->width, 612);
  EXPECT_DOUBLE_EQ(document->mediaBox(0)->height, 792);
  ASSERT_TRUE(document->cropBox(0));
  EXPECT_DOUBLE_EQ(document->cropBox(0)->width, 300);
  EXPECT_DOUBLE_EQ(document->cropBox(0)->height, 400);
  for (int missing : {-1, 1, 1000}) {
    EXPECT_FALSE(document->mediaBox(missing));
    EXPECT_FALSE(document->grey(missing, 72));
  }

  // At 144 dpi the crop box is 600 by 800 pixels, the square 200 by 200 from (100, 500) down.
  std::optional<plugin::GreyPage> page = document->grey(0, 144);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->width, 600);
  EXPECT_EQ(page->height, 800);
  EXPECT_GE(page->rowBytes, page->width);
  ASSERT_EQ(page->pixels.size(), std::size_t(page->rowBytes) * page->height);
  auto pixel = [&](int x, int y) { return page->pixels[std::size_t(y) * page->rowBytes + x]; };
  EXPECT_EQ(pixel(200, 600), 0);    // inside the square
  EXPECT_EQ(pixel(50, 50), 255);    // paper
  EXPECT_EQ(pixel(350, 600), 255);  // right of the square
  EXPECT_EQ(pixel(200, 400), 255);  // above it
}

TEST(PdfDocument, LockedAndUnreadableDocumentsAreToldApart) {
  struct Row {
    const char* name;
    std::string bytes;
    PdfDocument::Opening opening;
    bool encrypted;
  };
  const std::vector<Row> rows = {
      {"plain", testing::pdfOfPages({""}), PdfDocument::Opening::opened, false},
      {"owner password only", testing::readFile(testing::dataPath() / "pdf/owner-password.pdf"),
       PdfDocument::Opening::opened, true},
      {"user password", testing::readFile(testing::dataPath() / "pdf/user-password.pdf"),
       PdfDocument::Opening::locked, true},
      {"no PDF", "%PDF-1.4\nnothing here at all\n", PdfDocument::Opening::unreadable, false},
      {"empty", "", PdfDocument::Opening::unreadable, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    PdfDocument::Opening opening = PdfDocument::Opening::opened;
    auto document = PdfDocument::fromBytes(row.bytes.data(), row.bytes.size(), &opening);
    EXPECT_EQ(opening, row.opening);
    EXPECT_EQ(document != nullptr, row.opening == PdfDocument::Opening::opened);
    if (document) {
      EXPECT_EQ(document->encrypted(), row.encrypted);
    }
  }
  PdfDocument::Opening opening = PdfDocument::Opening::opened;
  EXPECT_EQ(PdfDocument::fromFile("/nonexistent/ledger.pdf", &opening), nullptr);
  EXPECT_EQ(opening, PdfDocument::Opening::unreadable);
}

}  // namespace
}  // namespace ulvek
