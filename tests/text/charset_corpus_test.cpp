// Text in many languages, each file in one charset: every file goes through plain-text decoding
// with detection and through markup-data decoding with its charset named, and both must give the
// file's text. Our own files (tests/data/charsets, listed in its manifest.tsv) come first; the
// shared corpus of real text in 30 languages is the extra suite.

#include <gtest/gtest.h>
#include <strings.h>
#include <uchardet/uchardet.h>
#include <unicode/ucnv.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

// ICU's spelling of the corpus's charset names; empty where ICU has no converter.
std::string icuName(std::string charset) {
  static const std::map<std::string, std::string> kSpelling = {{"uhc", "windows-949"},
                                                               {"mac-centraleurope", "x-mac-ce"},
                                                               {"ascii", "US-ASCII"},
                                                               {"iso-8859-16", ""},
                                                               {"viscii", ""}};
  std::transform(charset.begin(), charset.end(), charset.begin(), ::tolower);
  auto found = kSpelling.find(charset);
  return found != kSpelling.end() ? found->second : charset;
}

// Files that named markup decoding cannot give the text of: the Mac script names know only "ce"
// and "centraleur"; "uhc", "tis-620", "viscii" and UTF-32 have no name rule; utf-16 names mean
// host order and this file has no mark; every ISO-2022 name is read as ISO-2022-JP.
const std::string kNamedMisses =
    " cs/mac-centraleurope.txt hr/mac-centraleurope.txt pl/mac-centraleurope.txt"
    " sk/mac-centraleurope.txt sl/mac-centraleurope.txt ko/uhc.smi th/tis-620.txt vi/viscii.txt"
    " fr/utf-32.le ko/utf-32.be ja/utf-16be.txt ko/iso-2022-kr.txt ";

// ICU's strict decoding under an explicit converter name, without a leading byte-order mark.
std::optional<TextString> icuDecode(const std::string& bytes, const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = name.empty() ? nullptr : ucnv_open(name.c_str(), &status);
  if (!converter) return std::nullopt;
  ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  TextString text(bytes.size() + 16, u'\0');
  text.resize(ucnv_toUChars(converter, reinterpret_cast<UChar*>(text.data()), text.size(),
                            bytes.data(), bytes.size(), &status));
  ucnv_close(converter);
  if (U_FAILURE(status)) return std::nullopt;
  if (text.starts_with(u'\uFEFF')) text.erase(0, 1);
  return text;
}

std::string uchardetAnswer(const std::string& bytes) {
  uchardet_t detector = uchardet_new();
  uchardet_handle_data(detector, bytes.data(), bytes.size());
  uchardet_data_end(detector);
  std::string answer = uchardet_get_charset(detector);
  uchardet_delete(detector);
  return answer;
}

// ---- Our own files ----------------------------------------------------------------------------

// One line of tests/data/charsets/manifest.tsv.
struct CharsetFixture {
  std::string file;      // relative to tests/data/charsets
  std::string textFile;  // the same text in UTF-8
  std::vector<std::string> decodingNames;
  std::vector<std::string> missingNames;
  bool detected = false;
};

std::vector<std::string> words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> list;
  for (std::string word; in >> word;) list.push_back(word);
  return list;
}

std::vector<CharsetFixture> charsetFixtures() {
  std::vector<CharsetFixture> rows;
  std::istringstream manifest(testing::readFile(testing::dataPath() / "charsets/manifest.tsv"));
  for (std::string line; std::getline(manifest, line);) {
    if (line.empty() || line.starts_with('#')) continue;
    std::vector<std::string> fields;
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, '\t');) fields.push_back(cell);
    fields.resize(5);
    rows.push_back({fields[0], fields[1], words(fields[2]), words(fields[3]), fields[4] == "yes"});
  }
  return rows;
}

std::span<const std::uint8_t> bytesOf(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

// Detection finds the text of every file the manifest says it does, and of every file whose
// charset uchardet itself names rightly (a better uchardet may find more).
TEST(CharsetFixtures, DetectionGivesTheText) {
  const std::filesystem::path root = testing::dataPath() / "charsets";
  const std::vector<CharsetFixture> rows = charsetFixtures();
  std::size_t uchardetRight = 0, detectedRight = 0;
  for (const CharsetFixture& row : rows) {
    const std::string bytes = testing::readFile(root / row.file);
    const std::string truth = testing::readFile(root / row.textFile);
    ASSERT_FALSE(bytes.empty() || truth.empty()) << row.file;

    StringEncoding used = 0;
    std::optional<TextString> detected =
        stringWithContentsOfFile((root / row.file).string(), kDetectEncoding, &used);
    const bool right = detected && toUtf8(*detected) == truth;
    detectedRight += right;
    if (row.detected) {
      EXPECT_TRUE(right) << row.file << " detected as " << std::hex << used;
    }

    std::optional<TextString> byAnswer = icuDecode(bytes, icuName(uchardetAnswer(bytes)));
    const bool uchardetKnows = byAnswer && toUtf8(*byAnswer) == truth;
    uchardetRight += uchardetKnows;
    EXPECT_TRUE(right || !uchardetKnows) << row.file << " detected as " << std::hex << used;
  }
  EXPECT_GE(rows.size(), 70u) << "manifest missing at " << root;
  EXPECT_GE(detectedRight, uchardetRight);
}

// Markup data with its charset named decodes to the text under every spelling of the name the
// manifest lists, and the names known to mean something else do not.
TEST(CharsetFixtures, NamedMarkupDecodingGivesTheText) {
  const std::filesystem::path root = testing::dataPath() / "charsets";
  std::size_t names = 0;
  for (const CharsetFixture& row : charsetFixtures()) {
    const std::string bytes = testing::readFile(root / row.file);
    const std::string truth = testing::readFile(root / row.textFile);
    testing::CapturedLog log;
    for (const auto& [list, decodes] :
         {std::pair{&row.decodingNames, true}, std::pair{&row.missingNames, false}}) {
      for (const std::string& name : *list) {
        ++names;
        std::optional<TextString> named =
            stringWithMarkupData(bytesOf(bytes), fromAscii(name), kUTF8StringEncoding);
        EXPECT_EQ(named && toUtf8(*named) == truth, decodes) << row.file << " named " << name;
      }
    }
  }
  EXPECT_GE(names, 120u);
}

// ---- The shared corpus ------------------------------------------------------------------------

TEST(CharsetCorpus, DetectionAndNamedDecodingGiveTheText) {
  ULVEK_REQUIRE_CORPUS();
  std::size_t files = 0, detectedRight = 0, uchardetRight = 0;
  std::string misses;
  const std::filesystem::path root = testing::corpusPath() / "charsets";
  for (const auto& file : std::filesystem::recursive_directory_iterator(root)) {
    if (!file.is_regular_file()) continue;
    ++files;
    const std::string path = file.path().string(), bytes = testing::readFile(path);
    const std::string label = file.path().lexically_relative(root).string();
    // "ja/utf-16.be" is UTF-16BE; ".txt" and ".smi" are only file kinds.
    std::string charset = file.path().filename().string();
    for (std::string_view kind : {".txt", ".smi"})
      if (charset.ends_with(kind)) charset.resize(charset.size() - kind.size());
    std::erase(charset, '.');
    // Ground truth: ICU told the charset, or, where ICU lacks it, the language's UTF-8 file,
    // which holds the same text.
    std::optional<TextString> truth = icuDecode(bytes, icuName(charset));
    if (!truth)
      truth = icuDecode(testing::readFile(file.path().parent_path() / "utf-8.txt"), "UTF-8");
    ASSERT_TRUE(truth) << label << ": no ground truth";

    // What uchardet alone recognises: its answer decodes to the text (or, for the charsets ICU
    // lacks, names the same charset).
    std::string answer = uchardetAnswer(bytes);
    std::optional<TextString> byAnswer = icuDecode(bytes, icuName(answer));
    bool uchardetKnows =
        byAnswer ? *byAnswer == *truth : strcasecmp(answer.c_str(), charset.c_str()) == 0;
    uchardetRight += uchardetKnows;

    StringEncoding used = 0;
    std::optional<TextString> detected = stringWithContentsOfFile(path, kDetectEncoding, &used);
    bool right = detected && *detected == *truth;
    detectedRight += right;
    if (!right) misses += " " + label;
    // Every file uchardet recognises is right here too, the charsets ICU lacks included.
    EXPECT_TRUE(right || !uchardetKnows) << label << " detected as " << std::hex << used;

    testing::CapturedLog log;
    std::optional<TextString> named =
        stringWithMarkupData({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
                             fromAscii(charset), kUTF8StringEncoding);
    bool miss = kNamedMisses.find(" " + label + " ") != std::string::npos;
    EXPECT_EQ(named == truth, !miss) << label << ": named " << charset;
  }
  EXPECT_GE(files, 100u) << "corpus missing at " << root;
  EXPECT_GE(detectedRight, uchardetRight);
  std::printf("charset detection: %zu of %zu files right (uchardet itself recognises %zu)\n",
              detectedRight, files, uchardetRight);
  std::printf("detection misses:%s\n", misses.c_str());
}

}  // namespace
}  // namespace ulvek
