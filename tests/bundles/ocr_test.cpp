// Scans and pictures of text read by the PDF and Image importers with Tesseract, over the
// fixtures of tests/data/ocr (made by make_fixtures.py there) and, as a corpus test, real scans.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <leptonica/allheaders.h>

#include "bundle_harness.h"
#include "ocr.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::Bundle;
using testing::BundleAttributes;
using testing::stringOf;

std::string fileText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Lower-case words of letters and digits (UTF-8 bytes above ASCII count as letters).
std::map<std::string, int> wordBag(const std::string& text) {
  std::map<std::string, int> bag;
  std::string word;
  for (char c : text + " ") {
    auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || byte >= 0x80) {
      word += static_cast<char>(std::tolower(byte));
    } else if (!word.empty()) {
      ++bag[word];
      word.clear();
    }
  }
  return bag;
}

// Word-bag F1 of what was read against what the page shows.
double wordF1(const std::string& read, const std::string& expected) {
  std::map<std::string, int> got = wordBag(read), want = wordBag(expected);
  int common = 0, gotCount = 0, wantCount = 0;
  for (const auto& [word, count] : got) {
    gotCount += count;
    if (auto found = want.find(word); found != want.end()) common += std::min(count, found->second);
  }
  for (const auto& [word, count] : want) wantCount += count;
  if (gotCount == 0 || wantCount == 0) return gotCount == wantCount ? 1 : 0;
  double precision = double(common) / gotCount, recall = double(common) / wantCount;
  return common == 0 ? 0 : 2 * precision * recall / (precision + recall);
}

struct Importers {
  Bundle pdf{"PDF", "UlvekPDFImporterFactory"};
  Bundle image{"Image", "UlvekImageImporterFactory"};

  // The importer of `name`'s kind, with its content type.
  std::pair<Bundle*, std::string> of(const std::string& name) {
    std::string extension = fs::path(name).extension().string();
    if (extension == ".pdf") return {&pdf, "com.adobe.pdf"};
    if (extension == ".png") return {&image, "public.png"};
    if (extension == ".jpg") return {&image, "public.jpeg"};
    if (extension == ".heic") return {&image, "public.heic"};
    if (extension == ".avif") return {&image, "public.avif"};
    return {&image, "public.tiff"};
  }

  BundleAttributes import(const fs::path& path, std::string& log,
                          const std::map<std::string, std::string>& settings = {}) {
    auto [bundle, type] = of(path.filename().string());
    for (Bundle* each : {&pdf, &image}) {
      each->setSetting("OCRLanguages", "eng");
      each->setSetting("DisableOCR", "0");
      each->setSetting("OCRTimeLimit", "60");
      for (const auto& [key, value] : settings) each->setSetting(key, value);
    }
    return bundle->import(path.string(), type, &log);
  }
};

fs::path fixture(const std::string& name) { return testing::dataPath() / "ocr" / name; }

TEST(OCR, ReadsScansAndPicturesOfText) {
  struct Row {
    const char* name;
    double leastF1;
    const char* source;  // TextSource
    int pages;           // in the log line
  };
  const std::vector<Row> rows = {
      {"scan-300dpi.pdf", 0.97, "ocr", 1},
      {"scan-200dpi.pdf", 0.97, "ocr", 2},
      {"scan-150dpi.pdf", 0.9, "ocr", 1},
      {"turned-90.pdf", 0.97, "ocr", 1},
      {"turned-180.pdf", 0.97, "ocr", 1},
      {"turned-270.pdf", 0.97, "ocr", 1},
      // Page 1 keeps its text layer; page 2 is read.
      {"mixed.pdf", 0.97, "mixed", 1},
      // Both pages' invisible layers are what a failed OCR left: read again.
      {"junk-layer.pdf", 0.97, "ocr", 2},
      {"page.png", 0.97, "ocr", 1},
      {"page.jpg", 0.97, "ocr", 1},
      {"skewed.png", 0.97, "ocr", 1},
      {"label.png", 1, "ocr", 1},
      {"two-pages.tif", 0.97, "ocr", 2},
      {"page.heic", 0.97, "ocr", 1},
      {"page.avif", 0.97, "ocr", 1},
      // Stored sideways, with a rotation for showing it.
      {"turned.heic", 0.97, "ocr", 1},
  };
  Importers importers;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string log;
    BundleAttributes values = importers.import(fixture(row.name), log);
    std::string text = stringOf(values, "kMDItemTextContent");
    std::string expected = fileText(fixture(std::string(row.name) + ".txt"));
    EXPECT_GE(wordF1(text, expected), row.leastF1) << text;
    EXPECT_EQ(stringOf(values, "ulvekbot:TextSource"), row.source);
    std::string line = "OCR: " + fixture(row.name).string() + " (" + std::to_string(row.pages) +
                       (row.pages == 1 ? " page" : " pages") + ", language eng)";
    EXPECT_NE(log.find(line), std::string::npos) << log;
  }
}

TEST(OCR, GivesNoTextWhereThereIsNone) {
  struct Row {
    const char* name;
    std::map<std::string, std::string> settings;
    bool text;         // the file's own text, never recognised
    const char* says;  // in the log; null: no OCR at all
  };
  const std::vector<Row> rows = {
      // Tesseract's layout analysis finds no text in a photo, so it is never read.
      {"photo.png", {}, false, nullptr},
      {"text-layer.pdf", {}, true, nullptr},
      // A scan's invisible layer of good text, and visible text of signs on a scan, are kept.
      {"good-layer.pdf", {}, true, nullptr},
      {"visible-signs.pdf", {}, true, nullptr},
      {"scan-200dpi.pdf", {{"DisableOCR", "1"}}, false, nullptr},
      {"page.png", {{"DisableOCR", "1"}}, false, nullptr},
      {"hostile-huge.png", {}, false, "100000 x 100000 pixels is too big to read"},
      {"hostile-truncated.tif", {}, false, ""},
      {"photo.heic", {}, false, nullptr},
      {"hostile-huge.heic", {}, false, "20000 x 20000 pixels is too big to read"},
      {"hostile-grid.heic", {}, false, "28009 x 28005 pixels is too big to read"},
      // Exiv2 already gives up on its metadata.
      {"hostile-truncated.heic", {}, false, ""},
      {"scan-150dpi.pdf", {{"OCRLanguages", "xyz"}}, false, "OCR: no model for xyz"},
  };
  Importers importers;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string log;
    auto started = std::chrono::steady_clock::now();
    BundleAttributes values = importers.import(fixture(row.name), log, row.settings);
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(stringOf(values, "ulvekbot:TextSource"), "(none)");
    std::string text = stringOf(values, "kMDItemTextContent");
    if (row.text)
      EXPECT_EQ(wordF1(text, fileText(fixture(std::string(row.name) + ".txt"))), 1.0);
    else
      EXPECT_EQ(text, "(none)");
    if (row.says)
      EXPECT_NE(log.find(row.says), std::string::npos) << log;
    else
      EXPECT_EQ(log.find("OCR"), std::string::npos) << log;
    EXPECT_LT(seconds.count(), 10);
  }
}

// HEIF and AVIF pictures as they are shown, in grey: turned where the file says so, scaled down
// where big, refused by their declared size before decoding, and nothing from a damaged file.
TEST(OCR, DecodesHeifPicturesAsShown) {
  struct Row {
    const char* name;
    int width, height;  // 0: nothing decoded
    int corner;         // grey of the top left pixel; -1: any
    const char* says;   // in the log; null: nothing
  };
  const std::vector<Row> rows = {
      // In colour, coded in YCbCr as a camera's.
      {"page.heic", 1200, 1000, 255, nullptr},
      {"page.avif", 1200, 1000, 255, nullptr},
      // Grey, 1000 by 1200 pixels stored, turned a quarter clockwise.
      {"turned.heic", 1200, 1000, 255, nullptr},
      {"photo.heic", 480, 320, -1, nullptr},
      // Coded in RGB, whose planes are weighed.
      {"green.heic", 64, 48, 149, nullptr},
      // 6400 by 4800 pixels, over what is read.
      {"blank-big.heic", 5656, 4242, 240, nullptr},
      {"hostile-huge.heic", 0, 0, -1, "20000 x 20000 pixels is too big to read"},
      {"hostile-truncated.heic", 0, 0, -1, "damaged HEIF picture"},
      {"page.png", 0, 0, -1, "damaged HEIF picture"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ::testing::internal::CaptureStderr();
    auto started = std::chrono::steady_clock::now();
    plugin::ocr::OwnedPix pix = plugin::ocr::decodeHeif(fixture(row.name).string());
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    std::string log = ::testing::internal::GetCapturedStderr();
    if (row.width == 0) {
      EXPECT_EQ(pix, nullptr);
    } else {
      ASSERT_NE(pix, nullptr);
      EXPECT_NEAR(pixGetWidth(pix.get()), row.width, 1);
      EXPECT_NEAR(pixGetHeight(pix.get()), row.height, 1);
      ASSERT_EQ(pixGetDepth(pix.get()), 8);
      l_uint32 grey = 0;
      pixGetPixel(pix.get(), 0, 0, &grey);
      if (row.corner >= 0) EXPECT_NEAR(grey, row.corner, 3);
    }
    if (row.says) {
      EXPECT_NE(log.find(row.says), std::string::npos) << log;
      EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    } else {
      EXPECT_EQ(log, "");
    }
    EXPECT_LT(seconds.count(), 10);
  }
}

struct PixDestroy {
  void operator()(Pix* pix) const { pixDestroy(&pix); }
};
using PixPointer = std::unique_ptr<Pix, PixDestroy>;

// A fixture picture in grey, turned `quarters` quarter turns clockwise.
PixPointer turnedFixture(const std::string& name, int quarters) {
  PixPointer read(pixRead(fixture(name).string().c_str()));
  if (!read) return nullptr;
  PixPointer grey(pixConvertTo8(read.get(), 0));
  return PixPointer(pixRotateOrth(grey.get(), quarters));
}

// Which way a picture lies is seen only where its lines are plain: never a turn for a label, a
// photo or a blank page. Text is seen whichever way it lies, and never in a photo or a blank page.
TEST(OCR, SeesWhetherAndWhichWayPicturesShowText) {
  struct Row {
    const char* name;
    int quarters;  // turned clockwise
    int dpi;
    std::optional<int> seen;
    bool text;  // shows a block of text to Tesseract's layout analysis
  };
  const std::vector<Row> rows = {
      {"page.png", 0, 200, 0, true},
      {"page.png", 1, 200, 3, true},
      {"page.png", 2, 200, 2, true},
      {"page.png", 3, 200, 1, true},
      {"page.jpg", 1, 200, 3, true},
      {"skewed.png", 2, 200, 2, true},
      // Finer than the counts are made for: halved first.
      {"page-600dpi.png", 0, 600, 0, true},
      {"page-600dpi.png", 1, 600, 3, true},
      {"page-600dpi.png", 2, 600, 2, true},
      {"label.png", 0, 200, std::nullopt, true},
      {"label.png", 1, 200, std::nullopt, true},
      {"label.png", 2, 200, std::nullopt, true},
      {"photo.png", 0, 200, std::nullopt, false},
      {"blank", 0, 300, std::nullopt, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.name) + " turned " + std::to_string(row.quarters));
    PixPointer pix = row.name == std::string("blank") ? PixPointer(pixCreate(2550, 3300, 8))
                                                      : turnedFixture(row.name, row.quarters);
    ASSERT_NE(pix, nullptr);
    if (row.name == std::string("blank")) pixSetAll(pix.get());
    EXPECT_EQ(plugin::ocr::turnsBySight(pix.get(), row.dpi), row.seen);
    EXPECT_EQ(plugin::ocr::showsText(pix.get()), row.text);
  }
}

// A page on its side or upside down is turned before it is read, so Tesseract reads it once, and
// an upright page after a turned one is read as it stands. Rows are read in order by one engine.
TEST(OCR, ReadsTurnedPagesOnce) {
  struct Row {
    const char* name;
    int quarters;  // turned clockwise
    double leastF1;
    int passes;
  };
  const std::vector<Row> rows = {
      {"page.png", 1, 0.97, 1}, {"page.png", 0, 0.97, 1}, {"page.png", 2, 0.97, 1},
      {"page.png", 3, 0.97, 1}, {"label.png", 0, 1, 1},   {"photo.png", 0, 1, 1},
  };
  plugin::ocr::Engine* engine = plugin::ocr::Engine::forLanguages("eng");
  ASSERT_NE(engine, nullptr);
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.name) + " turned " + std::to_string(row.quarters));
    PixPointer pix = turnedFixture(row.name, row.quarters);
    ASSERT_NE(pix, nullptr);
    plugin::ocr::Reading reading = engine->read(pix.get(), std::nullopt);
    EXPECT_GE(wordF1(reading.text, fileText(fixture(std::string(row.name) + ".txt"))), row.leastF1)
        << reading.text;
    EXPECT_EQ(reading.passes, row.passes);
  }
}

TEST(OCR, StopsAtItsTimeLimit) {
  Importers importers;
  std::string log;
  auto started = std::chrono::steady_clock::now();
  BundleAttributes values =
      importers.import(fixture("scan-200dpi.pdf"), log, {{"OCRTimeLimit", "0.05"}});
  std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  EXPECT_EQ(stringOf(values, "kMDItemTextContent"), "(none)");
  EXPECT_NE(log.find("OCR: time limit reached after 0 pages of "), std::string::npos) << log;
  EXPECT_LT(seconds.count(), 2);
}

TEST(OCR, LanguagesOfTheLocaleWhereInstalledAndEnglish) {
  struct Row {
    const char* locale;
    std::vector<std::string> installed;
    const char* languages;
  };
  const std::vector<Row> rows = {
      {"de_DE.UTF-8", {"deu", "eng"}, "deu+eng"},
      {"de_AT", {"deu", "eng"}, "deu+eng"},
      {"fr_FR@euro", {"eng", "fra"}, "fra+eng"},
      {"pt_BR.UTF-8", {"eng", "por"}, "por+eng"},
      {"de_DE.UTF-8", {"eng"}, "eng"},
      {"en_GB.UTF-8", {"eng", "fra"}, "eng"},
      {"C.UTF-8", {"deu", "eng"}, "eng"},
      {"POSIX", {"eng"}, "eng"},
      {"", {"eng"}, "eng"},
      {"xx_YY", {"eng"}, "eng"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.locale);
    EXPECT_EQ(plugin::ocr::languagesForLocale(row.locale, row.installed), row.languages);
  }
}

TEST(OCR, InstalledLanguagesLeaveOutOrientation) {
  testing::TemporaryFolder folder;
  for (const char* name : {"osd.traineddata", "fra.traineddata", "eng.traineddata", "notes.txt"})
    folder.write(name, "x");
  EXPECT_EQ(plugin::ocr::installedLanguages(folder.path().string()),
            (std::vector<std::string>{"eng", "fra"}));
  EXPECT_TRUE(plugin::ocr::installedLanguages((folder.path() / "missing").string()).empty());
}

TEST(OCR, SettingsOfTheHost) {
  struct Row {
    const char* name;
    std::map<std::string, std::string> given;
    bool enabled;
    std::string languages;
    int resolution;
    double seconds;
  };
  const std::vector<Row> rows = {
      {"none: the defaults", {}, true, "", 300, 60},
      {"all",
       {{"DisableOCR", "1"},
        {"OCRLanguages", "deu+eng"},
        {"OCRResolution", "200"},
        {"OCRTimeLimit", "2.5"}},
       false,
       "deu+eng",
       200,
       2.5},
      {"OCR on", {{"DisableOCR", "0"}}, true, "", 300, 60},
      {"resolution out of range", {{"OCRResolution", "5000"}}, true, "", 300, 60},
      {"not numbers", {{"OCRResolution", "fine"}, {"OCRTimeLimit", "1m"}}, true, "", 300, 60},
      {"no time at all", {{"OCRTimeLimit", "0"}}, true, "", 300, 60},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    testing::CollectingAttributes collected{{&testing::kCollectingFunctions}, {}, -1, row.given};
    plugin::Attributes attributes(&collected.header);
    plugin::ocr::Settings settings = plugin::ocr::settingsOf(attributes);
    EXPECT_EQ(settings.enabled, row.enabled);
    EXPECT_EQ(settings.languages, row.languages);
    EXPECT_EQ(settings.resolution, row.resolution);
    EXPECT_DOUBLE_EQ(settings.timeLimit.count(), row.seconds);
  }
}

// Real scans: two columns, a typewriter page, French accents and a four-page PDF with pages
// turned sideways and upside down, each against its reference text.
TEST(OCR, CorpusScansMatchTheirReferences) {
  ULVEK_REQUIRE_CORPUS();
  fs::path folder = testing::corpusPath() / "docs" / "ocr";
  if (!fs::is_directory(folder)) GTEST_SKIP() << "no " << folder;
  Importers importers;
  int read = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".txt") continue;
    fs::path scan = entry.path().parent_path() / entry.path().stem();
    if (!fs::exists(scan)) continue;
    SCOPED_TRACE(scan.filename().string());
    std::string log;
    // Letter pages at 300 dpi take seconds each; a busy machine must not cut them short.
    BundleAttributes values = importers.import(scan, log, {{"OCRTimeLimit", "600"}});
    std::string text = stringOf(values, "kMDItemTextContent");
    double f1 = wordF1(text, fileText(entry.path()));
    EXPECT_GE(f1, 0.9) << text << log;
    std::printf("%s: word F1 %.3f\n", scan.filename().c_str(), f1);
    ++read;
  }
  EXPECT_GE(read, 4);
}

}  // namespace
}  // namespace ulvek
