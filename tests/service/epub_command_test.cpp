// `ulvekbot epub`, run as a real program on books of the corpus.
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
  void SetUp() override {
    for (const char* book : {"made-report-pandoc-epub2.epub", "epubcheck-epub3-minimal.epub",
                             "idpf-childrens-literature.epub", "tika-testEPUB.epub"})
      fs::copy_file(fs::path(ULVEK_TEST_DATA_DIR "/epub") / book, folder_.path() / book);
    folder_.write("notes.txt", "no book");
  }

  testing::ProgramOutput run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {testing::builtProgram("ulvekbot"), "epub"});
    return testing::runProgram(arguments, folder_.path());
  }

  testing::TemporaryFolder folder_;
};

TEST_F(EPUBCommandTest, Commands) {
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
      {{"cover", "tika-testEPUB.epub"}, 2, "", "cover needs -o FILE"},
      {{"cover", "-o", "none.jpg", "made-report-pandoc-epub2.epub"}, 1, "", "no cover"},
      {{}, 2, "", "no command given"},
      {{"pages", "tika-testEPUB.epub"}, 2, "", "unknown command \"pages\""},
      {{"toc"}, 2, "", "give one book"},
      {{"toc", "tika-testEPUB.epub", "made-report-pandoc-epub2.epub"}, 2, "", "give one book"},
      {{"toc", "missing.epub"}, 1, "", "no such file: missing.epub"},
      {{"toc", "notes.txt"}, 1, "", "not an EPUB book: notes.txt"},
      {{"cover", "-o"}, 2, "", "-o needs a file"},
  };
  for (const Row& row : rows) {
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
  EXPECT_EQ(fs::file_size(folder_.path() / "cover.jpg"), 40437u);
  EXPECT_FALSE(fs::exists(folder_.path() / "none.jpg"));
}

TEST_F(EPUBCommandTest, UsageNamesTheCommand) {
  testing::ProgramOutput output =
      testing::runProgram({testing::builtProgram("ulvekbot"), "--help"}, folder_.path());
  EXPECT_EQ(output.status, 0);
  EXPECT_NE(output.out.find("  epub info|toc|text|html|rtf|first-page|cover|files"),
            std::string::npos)
      << output.out;
}

}  // namespace
}  // namespace ulvek
