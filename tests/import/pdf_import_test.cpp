// PDF and PostScript through the built PDF importer in its worker: the project's own PDF and
// PostScript files against the text and attributes written beside them, PDF data sent as
// openData does, and the PDF corpus against pdftotext's text and pdfinfo's attributes.

#include <gtest/gtest.h>
#include <unicode/normalizer2.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "fixture_files.h"
#include "import/mime_type_helper.h"
#include "test_support.h"
#include "word_bag.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// Whether some process has `text` on its command line.
bool processMentioning(const std::string& text) {
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::string commandLine = testing::readFile(entry.path() / "cmdline");
    if (commandLine.find(text) != std::string::npos) return true;
  }
  return false;
}

// pdftotext's text with its presentation forms ("ﬁ", "ﻻ") as the letters they show, as ours is.
TextString plainLetters(const std::string& utf8) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfkc = icu::Normalizer2::getNFKCInstance(status);
  icu::UnicodeString text = icu::UnicodeString::fromUTF8(utf8);
  icu::UnicodeString plain;
  for (int32_t at = 0; at < text.length();) {
    UChar32 c = text.char32At(at);
    at += U16_LENGTH(c);
    bool form = (c >= 0xFB00 && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFF);
    plain += form ? nfkc->normalize(icu::UnicodeString(c), status) : icu::UnicodeString(c);
  }
  return TextString(reinterpret_cast<const char16_t*>(plain.getBuffer()),
                    static_cast<std::size_t>(plain.length()));
}

bool hasRightToLeftOrHanScript(const std::string& utf8) {
  icu::UnicodeString text = icu::UnicodeString::fromUTF8(utf8);
  for (int32_t at = 0; at < text.length(); at += U16_LENGTH(text.char32At(at))) {
    UErrorCode status = U_ZERO_ERROR;
    UScriptCode script = uscript_getScript(text.char32At(at), &status);
    if (script == USCRIPT_ARABIC || script == USCRIPT_HEBREW || script == USCRIPT_HAN ||
        script == USCRIPT_HIRAGANA || script == USCRIPT_KATAKANA)
      return true;
  }
  return false;
}

class PDFImportTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ::setenv("ULVEKBOT_IMPORTER_PATH", (std::string(ULVEK_BINARY_DIR) + "/src/Importers").c_str(),
             1);
    ::setenv("ULVEKBOT_IMPORTER_WORKER",
             (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
  }
};

TEST_F(PDFImportTest, CorpusTextAndAttributes) {
  ULVEK_REQUIRE_CORPUS();
  MIMETypeHelper helper;
  int compared = 0;
  double sum = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "docs/pdf")) {
    std::string name = entry.path().filename().string();
    if (!name.ends_with(".pdf") || name.find("10000-pages") != std::string::npos) continue;
    SCOPED_TRACE(name);
    ImportResult result = helper.openFile(entry.path().string());
    if (name.starts_with("damaged-")) continue;  // answering at all is the test
    auto meta = nlohmann::json::parse(testing::readFile(entry.path().string() + ".meta.json"));
    std::string expected = testing::readFile(entry.path().string() + ".txt");
    bool locked = meta.value("encrypted", false) && !result.contains(ImportKey::Text);
    if (locked || expected.find_first_not_of(" \n\f") == std::string::npos) continue;
    const TextString* text = result.string(ImportKey::Text);
    ASSERT_TRUE(text);
    double f1 = testing::wordBagF1(*text, plainLetters(expected));
    sum += f1;
    ++compared;
    // Right-to-left and CJK lines split into words differently from pdftotext's, whose Arabic
    // ligatures also come out backwards; the mean holds.
    EXPECT_GE(f1, hasRightToLeftOrHanScript(expected) ? 0.7 : 0.9);
    if (meta.contains("title") && meta["title"].is_string() &&
        !meta["title"].get<std::string>().empty()) {
      EXPECT_EQ(toUtf8(*result.string(ImportKey::Title)), meta["title"].get<std::string>());
    }
  }
  std::printf("pdf: %d files, mean word-bag F1 against pdftotext %.4f\n", compared, sum / compared);
  EXPECT_GT(compared, 20);
  EXPECT_GE(sum / compared, 0.97);
}

// Arabic and Hebrew that pdftotext gives with ligatures backwards ("اإلنتاجية"), in presentation
// forms ("اﳋﻄﻮط"), parted from their marks ("الح ّية"), or with the runs of a line in the
// wrong order ("1256-ويندوز"), and Japanese it cuts at the end of each line ("住みにく" / "い"),
// come out as they are written.
TEST_F(PDFImportTest, CorpusWordsComeOutWhole) {
  ULVEK_REQUIRE_CORPUS();
  struct Row {
    const char* file;
    std::vector<std::string> words;
  };
  const Row rows[] = {
      {"made-rtl.pdf",
       {"إلى", "لاختبار", "الآن", "للأغذية", "احتمالات", "الحيّة", "أوّلًا، لنتخيّل",
        "(المني، السداة"}},
      {"docling-right_to_left_01.pdf", {"الإنتاجية", "المشكلات", "خلال", "الأدوات", "R و Python"}},
      // An Arabic and a Hebrew paragraph on a page of mostly Latin, Greek and Cyrillic text.
      {"made-multilingual.pdf",
       {"عموماً", "ويندوز-1256 هي صفحة كود", "(ראשי תיבות של 8-bit Unicode",
        "ה-IETF מעדיף בבירור את UTF-8"}},
      {"pdfjs-ArabicCIDTrueType.pdf", {"انواع", "الخطوط", "العربية"}},
      {"made-cjk.pdf", {"とかくに人の世は住みにくい。", "詩が生れて、画が出来る。"}},
  };
  MIMETypeHelper helper;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    ImportResult result = helper.openFile((testing::corpusPath() / "docs/pdf" / row.file).string());
    const TextString* text = result.string(ImportKey::Text);
    ASSERT_TRUE(text);
    const std::string utf8 = toUtf8(*text);
    for (const std::string& word : row.words) EXPECT_NE(utf8.find(word), std::string::npos) << word;
    // Direction marks are for display; the text is in the order it is read.
    EXPECT_EQ(utf8.find("\u202B"), std::string::npos);
  }
}

// The fixtures of tests/data/pdf, each against NAME.txt (its text) and NAME.expect.json (its
// attributes; null for one that must be absent, dates in seconds since 1970).
TEST_F(PDFImportTest, FixturesGiveTheirTextAndAttributes) {
  MIMETypeHelper helper;
  const std::vector<fs::path> files =
      testing::filesOf(testing::dataPath() / "pdf", {".pdf", ".ps", ".eps"});
  ASSERT_GE(files.size(), 6u);
  for (const fs::path& file : files) {
    SCOPED_TRACE(file.filename().string());
    ImportResult result = helper.openFile(file.string());
    auto expected = nlohmann::json::parse(testing::readFile(file.string() + ".expect.json"));
    std::string text = testing::readFile(file.string() + ".txt");
    const TextString* found = result.string(ImportKey::Text);
    EXPECT_EQ(found ? toUtf8(*found) : "", text);
    for (const auto& [key, value] : expected.items()) {
      SCOPED_TRACE(key);
      if (value.is_null()) {
        EXPECT_FALSE(result.contains(key));
      } else if (value.is_number()) {
        const PropertyValue* date = result.get(key);
        EXPECT_EQ(date && date->date() ? date->date()->microseconds : -1,
                  value.get<std::int64_t>() * 1000000);
      } else {
        const TextString* string = result.string(key);
        EXPECT_EQ(string ? toUtf8(*string) : "(none)", value.get<std::string>());
      }
    }
  }
}

TEST_F(PDFImportTest, DataAndPostScript) {
  MIMETypeHelper helper;
  std::string bytes = testing::readFile(testing::dataPath() / "pdf/survey.pdf");
  ImportResult fromData = helper.openData(Data(bytes.begin(), bytes.end()),
                                          u"https://example.com/x", u"application/pdf");
  ASSERT_TRUE(fromData.string(ImportKey::Title));
  EXPECT_EQ(toUtf8(*fromData.string(ImportKey::Title)), "Harbour Survey – Spring Round");
  EXPECT_EQ(toUtf8(*fromData.string(ImportKey::Author)), "Ingrid Løvås");
  ASSERT_TRUE(fromData.string(ImportKey::Text));
  EXPECT_EQ(toUtf8(*fromData.string(ImportKey::Text)),
            testing::readFile(testing::dataPath() / "pdf/survey.pdf.txt"));
  EXPECT_TRUE(helper.openData(Data{'x'}, u"https://example.com/a.pdf", std::nullopt).empty());

  testing::TemporaryFolder folder;
  const std::string ps = (testing::dataPath() / "pdf/ferry.ps").string();
  // PostScript that never ends is stopped by the time limit, and serving goes on.
  std::string loop = folder.write("loop.eps", "%!PS-Adobe-3.0 EPSF-3.0\n{} loop\n");
  EXPECT_FALSE(helper.openFile(loop).contains(ImportKey::Text));
  // Ghostscript went with the worker that started it.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_FALSE(processMentioning(loop));
  EXPECT_TRUE(helper.openFile(ps).contains(ImportKey::Text));
  EXPECT_TRUE(helper.supportsFile(ps));
}

// Damaged files give no text, and the worker goes on serving.
TEST_F(PDFImportTest, DamagedFilesGiveNoText) {
  MIMETypeHelper helper;
  testing::TemporaryFolder folder;
  const std::string survey = testing::readFile(testing::dataPath() / "pdf/survey.pdf");
  const std::pair<std::string, std::string> rows[] = {
      {"empty.pdf", ""},
      {"header-only.pdf", "%PDF-1.4\n"},
      {"cut-before-trailer.pdf", survey.substr(0, survey.find("xref"))},
      {"png-named.pdf", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16)},
  };
  for (const auto& [name, bytes] : rows) {
    EXPECT_FALSE(helper.openFile(folder.write(name, bytes)).contains(ImportKey::Text)) << name;
  }
  EXPECT_TRUE(
      helper.openFile((testing::dataPath() / "pdf/survey.pdf").string()).contains(ImportKey::Text));
}

// A PDF bundle's document is read where it lies in the bundle; a link to a document elsewhere,
// or a linked folder holding one, is not followed.
TEST_F(PDFImportTest, BundleLinksLeadNowhere) {
  MIMETypeHelper helper;
  testing::TemporaryFolder folder;
  const std::string survey = testing::readFile(testing::dataPath() / "pdf/survey.pdf");
  const std::string outside = folder.write("outside/survey.pdf", survey);
  folder.write("own.pdfd/survey.pdf", survey);
  fs::create_directories(folder.path() / "linked.pdfd");
  fs::create_symlink(outside, folder.path() / "linked.pdfd/survey.pdf");
  fs::create_directories(folder.path() / "folder.pdfd");
  fs::create_directory_symlink(folder.path() / "outside", folder.path() / "folder.pdfd/Contents");
  const std::pair<std::string, bool> rows[] = {
      {"own.pdfd", true}, {"linked.pdfd", false}, {"folder.pdfd", false}};
  for (const auto& [bundle, read] : rows) {
    ImportResult result = helper.openFile((folder.path() / bundle).string());
    EXPECT_EQ(result.contains(ImportKey::Text), read) << bundle;
  }
}

// The corpus's Tika document, as data: its title and author come through.
TEST_F(PDFImportTest, CorpusDataFromTika) {
  ULVEK_REQUIRE_CORPUS();
  MIMETypeHelper helper;
  std::string bytes = testing::readFile(testing::corpusPath() / "docs/pdf/tika-testPDF.pdf");
  ImportResult fromData = helper.openData(Data(bytes.begin(), bytes.end()),
                                          u"https://example.com/x", u"application/pdf");
  EXPECT_EQ(toUtf8(*fromData.string(ImportKey::Title)), "Apache Tika - Apache Tika");
  EXPECT_EQ(toUtf8(*fromData.string(ImportKey::Author)), "Bertrand Delacrétaz");
  ASSERT_TRUE(fromData.string(ImportKey::Text));
  EXPECT_NE(fromData.string(ImportKey::Text)->find(u"Apache Tika"), TextString::npos);
}

}  // namespace
}  // namespace ulvek
