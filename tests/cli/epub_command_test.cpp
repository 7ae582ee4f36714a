// `ulvekbot epub`, run as a real program on the project's own books and, where present, books of
// the shared corpus.
#include <gtest/gtest.h>

#include <filesystem>

#include "service_fixture.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

struct Row {
  std::vector<std::string> arguments;
  int status;
  std::string out;        // the start of standard output ("" with status > 0: must be empty)
  const char* errorPart;  // fragment of standard error; null: must be empty
};

class EPUBCommandTest : public ::testing::Test {
 protected:
  // The project's own books (tests/data/epub, made by make_fixtures.py there) beside a file that
  // is no book, in the folder the program runs in.
  void SetUp() override {
    for (const auto& entry : fs::directory_iterator(testing::dataPath() / "epub"))
      if (entry.path().extension() == ".epub")
        fs::copy_file(entry.path(), folder_.path() / entry.path().filename());
    folder_.write("notes.txt", "no book");
  }

  void copyCorpusBooks() {
    for (const char* book : {"made-report-pandoc-epub2.epub", "epubcheck-epub3-minimal.epub",
                             "idpf-childrens-literature.epub", "tika-testEPUB.epub"})
      fs::copy_file(testing::corpusPath() / "docs/epub" / book, folder_.path() / book);
  }

  testing::ProgramOutput run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {testing::builtProgram("ulvekbot"), "epub"});
    return testing::runProgram(arguments, folder_.path());
  }

  void check(const Row& row) {
    std::string line;
    for (const std::string& argument : row.arguments) line += argument + " ";
    SCOPED_TRACE(line);
    testing::ProgramOutput output = run(row.arguments);
    EXPECT_EQ(output.status, row.status) << output.err;
    if (row.status == 0)
      EXPECT_EQ(output.out.substr(0, row.out.size()), row.out);
    else
      EXPECT_EQ(output.out, "");
    if (row.errorPart)
      EXPECT_NE(output.err.find(row.errorPart), std::string::npos) << output.err;
    else
      EXPECT_EQ(output.err, "");
  }

  testing::TemporaryFolder folder_;
};

TEST_F(EPUBCommandTest, Commands) {
  const Row rows[] = {
      {{"toc", "field-notes-epub2.epub"},
       0,
       "Field Notes \u2014 Rivers, Weirs and Locks\ttext/title_page.xhtml\n"
       "Field Notes \u2014 Rivers, Weirs and Locks\ttext/ch001.xhtml\n"
       "1. Rivers\ttext/ch002.xhtml\n2. Weirs\ttext/ch003.xhtml\n3. Locks\ttext/ch004.xhtml\n"},
      {{"toc", "northern-coast-epub3.epub"},
       0,
       "PART ONE \u2014 TALES OF THE NORTHERN COAST\ts01.xhtml\n"
       "  SOURCES\ts01.xhtml\n  A WORD BEFORE\ts01.xhtml\n"
       "  12 THE LANTERN KEEPER\ts01.xhtml\n    I. The Storm\ts01.xhtml\n"},
      {{"toc", "--json", "harbour-lights-epub3.epub"},
       0,
       R"({"path":"harbour-lights-epub3.epub","toc":[{"content":"content_001.xhtml",)"
       R"("label":"The Last Boat"}]})"
       "\n"},
      {{"info", "net-loft-epub2.epub"},
       0,
       R"({"path":"net-loft-epub2.epub","DRM":"","coverPath":"CoverDesign.png","hasDRM":false,)"
       R"("metadata":{"kMDItemContributors":["Ingrid Halvorsen","Pål Nygård"],)"},
      {{"info", "drm-adobe.epub"},
       0,
       R"({"path":"drm-adobe.epub","DRM":"Adobe","coverPath":"","hasDRM":true,)"
       R"("metadata":{"kMDItemTitle":"Locked Ledger"},"ncxFile":"toc.ncx","opfFile":"content.opf",)"
       R"("spine":["a"],"tocFile":""})"
       "\n"},
      {{"first-page", "field-notes-epub2.epub"}, 0, "EPUB/text/title_page.xhtml\n"},
      {{"first-page", "drm-adobe.epub"}, 1, "", "no first page: drm-adobe.epub"},
      {{"files", "net-loft-epub2.epub"},
       0,
       "OPS/CoverPage.html\tCover\nOPS/TableOfContents.html\tContents\n"
       "OPS/chapters/chapter1.html\tChapter 1: Knots\n"
       "OPS/chapters/chapter2.html\tChapter 2: Floats and Sinkers\n"},
      {{"text", "harbour-lights-epub3.epub"},
       0,
       "Harbour Lights\n\nThe last boat came in after dark, steering between the two green lamps "
       "on the mole.\n"},
      {{"text", "drm-adobe.epub"}, 1, "", "the book is encrypted (Adobe): drm-adobe.epub"},
      {{"html", "harbour-lights-epub3.epub"},
       0,
       "<html>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=UTF-8\"/>\n"},
      {{"rtf", "field-notes-epub2.epub"}, 0, "{\\rtf1"},
      {{"cover", "-o", "cover.png", "net-loft-epub2.epub"},
       0,
       R"({"path":"net-loft-epub2.epub","cover":"OPS/CoverDesign.png","MIMEType":"image/png",)"
       R"("size":407,"file":"cover.png"})"
       "\n"},
      {{"cover", "net-loft-epub2.epub"}, 2, "", "--output is required"},
      {{"cover", "-o", "none.png", "field-notes-epub2.epub"}, 1, "", "no cover"},
      // A book whose package document is missing shows nothing and says why.
      {{"toc", "damaged-missing-opf.epub"}, 0, "", "no OEBPS/content.opf"},
      {{}, 2, "", "expects a command (info, toc, text, html, rtf, first-page, cover, files)"},
      {{"pages", "net-loft-epub2.epub"}, 2, "", "unknown command \"pages\""},
      {{"toc"}, 2, "", "BOOK is required"},
      {{"toc", "net-loft-epub2.epub", "field-notes-epub2.epub"}, 2, "", "not expected: "},
      {{"toc", "missing.epub"}, 1, "", "no such file: missing.epub"},
      {{"toc", "notes.txt"}, 1, "", "not an EPUB book: notes.txt"},
      {{"cover", "-o"}, 2, "", "--output: 1 required FILE missing"},
      // --json belongs to toc alone.
      {{"info", "--json", "net-loft-epub2.epub"}, 2, "", "not expected: --json"},
      // -o takes the answer of every command that prints one; nothing is written without one.
      {{"text", "-o", "harbour.txt", "harbour-lights-epub3.epub"}, 0, "", nullptr},
      {{"toc", "--json", "--output=toc.json", "harbour-lights-epub3.epub"}, 0, "", nullptr},
      {{"text", "-o", "locked.txt", "drm-adobe.epub"}, 1, "", "the book is encrypted"},
  };
  for (const Row& row : rows) check(row);
  EXPECT_TRUE(testing::readFile(folder_.path() / "harbour.txt").starts_with("Harbour Lights\n\n"));
  EXPECT_TRUE(testing::readFile(folder_.path() / "toc.json")
                  .starts_with(R"({"path":"harbour-lights-epub3.epub","toc":[)"));
  EXPECT_FALSE(fs::exists(folder_.path() / "locked.txt"));
  std::string cover = testing::readFile(folder_.path() / "cover.png");
  EXPECT_EQ(cover.size(), 407u);
  EXPECT_TRUE(cover.starts_with("\x89PNG\r\n\x1A\n"));
  EXPECT_FALSE(fs::exists(folder_.path() / "none.png"));
}

TEST_F(EPUBCommandTest, CorpusCommands) {
  ULVEK_REQUIRE_CORPUS();
  copyCorpusBooks();
  const Row rows[] = {
      {{"toc", "made-report-pandoc-epub2.epub"},
       0,
       "Quarterly Import Report \u2014 Tables, Lists and Notes\ttext/title_page.xhtml\n"
       "Quarterly Import Report \u2014 Tables, Lists and Notes\ttext/ch001.xhtml\n"
       "1. Figures\ttext/ch002.xhtml\n2. Plan\ttext/ch003.xhtml\n"
       "3. Responsibilities\ttext/ch004.xhtml\n4. Definitions\ttext/ch005.xhtml\n"
       "5. Terms\ttext/ch006.xhtml\n"},
      {{"toc", "idpf-childrens-literature.epub"},
       0,
       "SECTION IV FAIRY STORIES\u2014MODERN FANTASTIC TALES\ts04.xhtml\n"
       "  BIBLIOGRAPHY\ts04.xhtml\n  INTRODUCTORY\ts04.xhtml\n"
       "  190 A FOUR-LEAVED CLOVER\ts04.xhtml\n    I. The Rabbi and the Diadem\ts04.xhtml\n"},
      {{"toc", "--json", "epubcheck-epub3-minimal.epub"},
       0,
       R"({"path":"epubcheck-epub3-minimal.epub","toc":[{"content":"content_001.xhtml",)"
       R"("label":"content 001"}]})"
       "\n"},
      {{"info", "tika-testEPUB.epub"},
       0,
       R"({"path":"tika-testEPUB.epub","DRM":"","coverPath":"CoverDesign.jpg","hasDRM":false,)"
       R"("metadata":{"kMDItemContributors":["Bart Hanssens","no-one"],)"},
      {{"first-page", "made-report-pandoc-epub2.epub"}, 0, "EPUB/text/title_page.xhtml\n"},
      {{"files", "tika-testEPUB.epub"},
       0,
       "OPS/CoverPage.html\tCover Page\nOPS/TableOfContents.html\tTable of Contents\n"
       "OPS/chapters/chapter1.html\tChapter 1\nOPS/chapters/chapter2.html\tChapter 2\n"},
      {{"text", "epubcheck-epub3-minimal.epub"}, 0, "Loomings\n"},
      {{"html", "epubcheck-epub3-minimal.epub"},
       0,
       "<html>\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=UTF-8\"/>\n"},
      {{"rtf", "made-report-pandoc-epub2.epub"}, 0, "{\\rtf1"},
      {{"cover", "-o", "cover.jpg", "tika-testEPUB.epub"},
       0,
       R"({"path":"tika-testEPUB.epub","cover":"OPS/CoverDesign.jpg","MIMEType":"image/jpeg",)"
       R"("size":40437,"file":"cover.jpg"})"
       "\n"},
      {{"cover", "tika-testEPUB.epub"}, 2, "", "--output is required"},
      {{"cover", "-o", "none.jpg", "made-report-pandoc-epub2.epub"}, 1, "", "no cover"},
      {{}, 2, "", "expects a command (info, toc, text, html, rtf, first-page, cover, files)"},
      {{"pages", "tika-testEPUB.epub"}, 2, "", "unknown command \"pages\""},
      {{"toc"}, 2, "", "BOOK is required"},
      {{"toc", "tika-testEPUB.epub", "made-report-pandoc-epub2.epub"}, 2, "", "not expected: "},
      {{"toc", "missing.epub"}, 1, "", "no such file: missing.epub"},
      {{"toc", "notes.txt"}, 1, "", "not an EPUB book: notes.txt"},
      {{"cover", "-o"}, 2, "", "--output: 1 required FILE missing"},
  };
  for (const Row& row : rows) check(row);
  EXPECT_EQ(fs::file_size(folder_.path() / "cover.jpg"), 40437u);
  EXPECT_FALSE(fs::exists(folder_.path() / "none.jpg"));
}

TEST_F(EPUBCommandTest, UsageNamesTheCommand) {
  testing::ProgramOutput output =
      testing::runProgram({testing::builtProgram("ulvekbot"), "--help"}, folder_.path());
  EXPECT_EQ(output.status, 0);
  EXPECT_NE(output.out.find("\n  epub "), std::string::npos) << output.out;
  output =
      testing::runProgram({testing::builtProgram("ulvekbot"), "epub", "--help"}, folder_.path());
  EXPECT_EQ(output.status, 0);
  for (const char* command : {"info", "toc", "text", "html", "rtf", "first-page", "cover", "files"})
    EXPECT_NE(output.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
}

}  // namespace
}  // namespace ulvek
