// The PDF importer through the SDK: pages shared out to threads give the text one thread gives,
// a host's time limit ends the reading with the pages read so far, right-to-left text and
// ligatures come out as written, and OCR is loaded only for pages to read.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "bundle_harness.h"
#include "pdf_test_files.h"
#include "test_support.h"

namespace ulvek {
namespace {

// A document of `pages` pages, each with one line of its own, as a PDF writer would make it.
std::string pdfWithPages(int pages) {
  std::vector<std::string> contents;
  for (int i = 0; i < pages; ++i)
    contents.push_back("BT /F1 12 Tf 72 720 Td (Ledger page " + std::to_string(i + 1) +
                       " of tides) Tj ET");
  return testing::pdfOfPages(contents);
}

std::string expectedText(int pages) {
  std::string text;
  for (int i = 0; i < pages; ++i) text += "Ledger page " + std::to_string(i + 1) + " of tides\n";
  return text;
}

TEST(PDFImporter, PagesOnManyThreadsGiveTheTextOfOne) {
  testing::TemporaryFolder folder;
  const std::string path = folder.write("ledger.pdf", pdfWithPages(300));
  testing::Bundle pdf("PDF", "UlvekPDFImporterFactory");
  for (const char* threads : {"1", "2", "3", "7"}) {
    ::setenv("ULVEKBOT_PDF_THREADS", threads, 1);
    testing::BundleAttributes values = pdf.import(path);
    EXPECT_EQ(testing::stringOf(values, "kMDItemTextContent"), expectedText(300)) << threads;
    EXPECT_EQ(testing::numberOf(values, "kMDItemNumberOfPages"), 300) << threads;
  }
  ::unsetenv("ULVEKBOT_PDF_THREADS");
}

TEST(PDFImporter, TheHostsTimeLimitEndsReadingWithWhatWasRead) {
  testing::TemporaryFolder folder;
  const std::string path = folder.write("long.pdf", pdfWithPages(4000));
  testing::Bundle pdf("PDF", "UlvekPDFImporterFactory");
  struct Row {
    double secondsLeft;
    bool complete;
  };
  for (const Row& row : {Row{-1, true}, Row{60, true}, Row{0.06, false}, Row{0, false}}) {
    pdf.setSecondsLeft(row.secondsLeft);
    std::string log;
    testing::BundleAttributes values = pdf.import(path, "com.adobe.pdf", &log);
    std::string text = testing::stringOf(values, "kMDItemTextContent");
    if (text == "(none)") text.clear();
    // Whatever was read is whole pages, in order, and the document's attributes stay.
    EXPECT_EQ(expectedText(4000).compare(0, text.size(), text), 0) << row.secondsLeft;
    EXPECT_EQ(testing::numberOf(values, "kMDItemNumberOfPages"), 4000) << row.secondsLeft;
    EXPECT_EQ(text == expectedText(4000), row.complete) << row.secondsLeft;
    EXPECT_EQ(log.find("time limit reached after") != std::string::npos, !row.complete)
        << row.secondsLeft << ": " << log;
  }
}

// Text comes out in the order it is read, whole: a glyph that stands for several letters (a
// lam-alef ligature) keeps them in their order, and so does a span's ActualText; a mark drawn
// before its letter on a baseline of its own joins it; presentation forms ("ﻻ", "ﬂ") become
// the letters they show; the runs of a right-to-left paragraph read right to left even on a
// page of Latin text; the direction marks poppler adds for display are left out, a space
// parting the words they parted; and a Chinese or Japanese paragraph is not cut at its lines.
// Glyphs are drawn left to right, as writers place them; each row is one page.
TEST(PDFImporter, TextComesOutInReadingOrderAsLetters) {
  const std::vector<std::string> toUnicode = {
      "<61> <0627>",
      "<6C> <0644>",
      "<6D> <0645>",
      "<73> <0633>",
      "<45> <0625>",
      "<51> <06440649>",
      "<4C> <06440627>",
      "<70> <FEFB>",
      "<71> <FE8E>",
      "<31> <05DD>",
      "<32> <05D5>",
      "<33> <05DC>",
      "<34> <05E9>",
      "<78> <00660069>",
      "<79> <FB02>",
      "<6F> <006F>",
      "<72> <0072>",
      "<6E> <006E>",
      "<64> <0064>",
      "<50> <0050>",
      "<44> <0044>",
      "<46> <0046>",
      "<20> <0020>",
      "<4E> <0644064E>",
      "<53> <0651>",
      "<6B> <0643>",
      "<77> <0648>",
      "<68> <6F22>",
      "<7A> <5B57>",
      "<4B> <D55C>",
      "<65> <202A202A202A202A202A202A202A202A>",
  };
  auto line = [](const std::string& codes) { return "72 700 Td (" + codes + ") Tj"; };
  struct Row {
    std::string drawn;  // the text object's operators
    const char* text;
  };
  const Row rows[] = {
      {line("mLs"), "سلام"},                   // the ligature inside a word
      {line("QE"), "إلى"},                     // lam with alef maksura
      {line("ap"), "لاا"},                     // a presentation-form ligature
      {line("q"), "ا"},                        // a letter's final form
      {line("1234"), "שלום"},                  // Hebrew, one glyph a letter
      {line("xnd"), "find"},                   // a left-to-right ligature stays as it is
      {line("yoor"), "floor"},                 // a Latin ligature's presentation form
      {line("PDF mLs"), "سلام PDF"},           // an Arabic line with a Latin word at its left end
      {line("PDF xnd mLs"), "PDF find سلام"},  // a Latin line ending in an Arabic word
      {line("PDFw"), "PDF و"},                 // a change of direction without a space
      // an Arabic paragraph below a Latin one: its runs read right to left
      {line("PDF xnd PDF xnd PDF") + " ET BT /F1 24 Tf 72 500 Td (xnd mLs PDF mLs) Tj",
       "PDF find PDF find PDF\n\nسلام PDF سلام find"},
      {line("aN"), "لَا"},  // a ligature with its vowel mark
      // shadda raised above the lam it is drawn before ("كلّ")
      {"1 0 0 1 74 704 Tm (S) Tj 1 0 0 1 72 700 Tm (lk) Tj", "كلّ"},
      {"72 700 Td /Span << /ActualText <FEFF0644064B0627> >> BDC (L) Tj EMC", "لًا"},
      // Chinese and Japanese lines that run to the full width go on to the next line; Korean,
      // which has spaces, keeps its lines
      {"72 700 Td (hzhzhzhz) Tj 0 -28 Td (hzhz) Tj 0 -28 Td (zhzhzhzh) Tj 0 -28 Td (zh) Tj",
       "漢字漢字漢字漢字漢字漢字\n字漢字漢字漢字漢字漢"},
      {"72 700 Td (KKKK KKKK) Tj 0 -28 Td (KKKK KKKK) Tj", "한한한한 한한한한\n한한한한 한한한한"},
      // a document's own embeddings, nested 96,000 deep on one line, are read flat
      {"/F1 0.1 Tf 10 700 Td (b" + std::string(12000, 'e') + ") Tj", "b"},
  };
  std::vector<std::string> contents;
  for (const Row& row : rows) contents.push_back("BT /F1 24 Tf " + row.drawn + " ET");
  testing::TemporaryFolder folder;
  const std::string path = folder.write("arabic.pdf", testing::pdfOfPages(contents, toUnicode));
  ::setenv("ULVEKBOT_PDF_THREADS", "1", 1);
  testing::Bundle pdf("PDF", "UlvekPDFImporterFactory");
  pdf.setSetting("DisableOCR", "1");  // pages of a word or two would be taken for scans
  std::string expected;
  for (const Row& row : rows) expected += std::string(row.text) + "\n";
  EXPECT_EQ(testing::stringOf(pdf.import(path), "kMDItemTextContent"), expected);
  ::unsetenv("ULVEKBOT_PDF_THREADS");
}

// PostScript gives the date its header comments name, in the forms writers use, and never the
// time Ghostscript converted it.
TEST(PDFImporter, PostScriptDatesAreTheDocumentsOwn) {
  testing::TemporaryFolder folder;
  testing::Bundle pdf("PDF", "UlvekPDFImporterFactory");
  const double kApril12 = 1555061400;  // 2019-04-12 09:30:00 UTC
  struct Row {
    const char* name;
    std::string header;  // comment lines after the first
    double creation;     // -1e300: none
  };
  const Row rows[] = {
      {"ctime", "%%CreationDate: Fri Apr 12 09:30:00 2019\n", kApril12},
      {"in parentheses", "%%CreationDate: (Fri Apr 12 09:30:00 2019)\n", kApril12},
      {"PDF date", "%%CreationDate: D:20190412113000+02'00'\n", kApril12},
      {"ISO 8601", "%%CreationDate: 2019-04-12T09:30:00Z\n", kApril12},
      {"Windows driver", "%%CreationDate: 4/12/2019 9:30:00\n", kApril12},
      {"no date", "%%Title: Undated\n", -1e300},
      {"words", "%%CreationDate: yesterday afternoon\n", -1e300},
      {"after the header comments", "%%EndComments\n%%CreationDate: Fri Apr 12 09:30:00 2019\n",
       -1e300},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string path = folder.write(std::string(row.name) + ".ps",
                                    "%!PS-Adobe-3.0\n" + row.header +
                                        "%%EndComments\n/Helvetica findfont 12 scalefont setfont\n"
                                        "72 700 moveto (Dated in its header) show showpage\n");
    testing::BundleAttributes values = pdf.import(path, "com.adobe.postscript");
    // Enough letters that the page is no scan for OCR to read.
    EXPECT_EQ(testing::stringOf(values, "kMDItemTextContent"), "Dated in its header\n");
    EXPECT_EQ(testing::numberOf(values, "kMDItemContentCreationDate"), row.creation);
    EXPECT_EQ(testing::numberOf(values, "kMDItemContentModificationDate"), -1e300);
  }
}

// Tesseract and the libraries below it load with OCR.so, only when a page is to be read: a
// document of text and a blank page cost none of it. One process, so the rows run in order.
TEST(OCR, TheModuleWaitsForAPageToRead) {
  auto tesseractLoaded = [] {
    void* handle = dlopen("libtesseract.so.5", RTLD_LAZY | RTLD_NOLOAD);
    if (handle) dlclose(handle);
    return handle != nullptr;
  };
  struct Row {
    const char* fixture;
    bool loaded;
    const char* text;  // begins the text
  };
  const Row rows[] = {
      {"pdf/survey.pdf", false, ""},
      {"pdf/logbook.pdf", false, "Logbook entry one"},  // its second page is blank
      {"ocr/mixed.pdf", true, "Ferry timetable notice"},
  };
  ASSERT_FALSE(tesseractLoaded());
  testing::Bundle pdf("PDF", "UlvekPDFImporterFactory");
  for (const Row& row : rows) {
    testing::BundleAttributes values = pdf.import((testing::dataPath() / row.fixture).string());
    EXPECT_EQ(tesseractLoaded(), row.loaded) << row.fixture;
    EXPECT_TRUE(testing::stringOf(values, "kMDItemTextContent").starts_with(row.text))
        << row.fixture;
  }
}

}  // namespace
}  // namespace ulvek
