// Real text in 30 languages, each file in the charset its name gives: every file goes through
// plain-text decoding with detection and through markup-data decoding with its charset named,
// and both must give the text that ICU gives when told the charset.

#include <gtest/gtest.h>
#include <uchardet/uchardet.h>
#include <unicode/ucnv.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "test_support.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Names that ICU spells differently from the corpus, and the two ICU has no converter for.
const std::map<std::string, std::string, std::less<>> kIcuNames = {
    {"uhc", "windows-949"}, {"mac-centraleurope", "x-mac-ce"},
    {"ascii", "US-ASCII"},  {"iso-8859-16", ""},
    {"viscii", ""},
};

// Files that markup-data decoding with their charset named cannot give the text of, and why.
const std::map<std::string, std::string, std::less<>> kUnnamedCharsets = {
    {"cs/mac-centraleurope.txt", "the Mac script names know only \"ce\" and \"centraleur\""},
    {"hr/mac-centraleurope.txt", "the Mac script names know only \"ce\" and \"centraleur\""},
    {"pl/mac-centraleurope.txt", "the Mac script names know only \"ce\" and \"centraleur\""},
    {"sk/mac-centraleurope.txt", "the Mac script names know only \"ce\" and \"centraleur\""},
    {"sl/mac-centraleurope.txt", "the Mac script names know only \"ce\" and \"centraleur\""},
    {"ko/uhc.smi", "not a name the charset table knows"},
    {"th/tis-620.txt", "not a name the charset table knows"},
    {"vi/viscii.txt", "not a name the charset table knows, and ICU has no converter"},
    {"hr/iso-8859-16.txt", "ICU has no converter"},
    {"pl/iso-8859-16.txt", "ICU has no converter"},
    {"ro/iso-8859-16.txt", "ICU has no converter"},
    {"sl/iso-8859-16.txt", "ICU has no converter"},
    {"fr/utf-32.le", "no charset name rule for UTF-32"},
    {"ko/utf-32.be", "no charset name rule for UTF-32"},
    {"ja/utf-16be.txt", "utf-16 names mean host order, and this file has no byte-order mark"},
    {"ko/iso-2022-kr.txt", "every ISO-2022 name is read as ISO-2022-JP"},
};

struct CorpusFile {
  fs::path path;
  std::string language;
  std::string charset;  // from the file name: "windows-1252", "utf-16be", "uhc"
  std::string bytes;
};

std::vector<CorpusFile> corpusFiles() {
  std::vector<CorpusFile> files;
  for (const auto& language : fs::directory_iterator(testing::corpusPath() / "charsets")) {
    if (!language.is_directory()) continue;
    for (const auto& file : fs::directory_iterator(language.path())) {
      std::string name = file.path().filename().string();
      // "utf-16.be" is UTF-16BE; ".txt" and ".smi" are only file kinds.
      std::string charset = name;
      for (std::string_view kind : {".txt", ".smi"})
        if (charset.ends_with(kind)) charset.resize(charset.size() - kind.size());
      charset.erase(std::remove(charset.begin(), charset.end(), '.'), charset.end());
      std::transform(charset.begin(), charset.end(), charset.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      files.push_back({file.path(), language.path().filename().string(), charset,
                       testing::readFile(file.path())});
    }
  }
  std::sort(files.begin(), files.end(),
            [](const CorpusFile& a, const CorpusFile& b) { return a.path < b.path; });
  return files;
}

// ICU's strict decoding under an explicit converter name, without a leading byte-order mark.
std::optional<TextString> icuDecode(const std::string& bytes, const std::string& icuName) {
  if (icuName.empty()) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(icuName.c_str(), &status);
  if (U_FAILURE(status)) return std::nullopt;
  ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  TextString text(bytes.size() + 16, u'\0');
  int32_t length = ucnv_toUChars(converter, reinterpret_cast<UChar*>(text.data()),
                                 static_cast<int32_t>(text.size()), bytes.data(),
                                 static_cast<int32_t>(bytes.size()), &status);
  ucnv_close(converter);
  if (U_FAILURE(status)) return std::nullopt;
  text.resize(static_cast<std::size_t>(length));
  if (!text.empty() && text[0] == 0xFEFF) text.erase(0, 1);
  return text;
}

std::string icuNameFor(std::string charset) {
  std::transform(charset.begin(), charset.end(), charset.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  auto found = kIcuNames.find(charset);
  return found != kIcuNames.end() ? found->second : charset;
}

std::string uchardetAnswer(const std::string& bytes) {
  uchardet_t detector = uchardet_new();
  uchardet_handle_data(detector, bytes.data(), bytes.size());
  uchardet_data_end(detector);
  std::string answer = uchardet_get_charset(detector);
  uchardet_delete(detector);
  return answer;
}

std::string alphanumericLower(std::string_view name) {
  std::string out;
  for (unsigned char c : name)
    if (std::isalnum(c)) out.push_back(static_cast<char>(std::tolower(c)));
  return out;
}

TEST(CharsetCorpus, DetectionAndNamedDecodingGiveTheText) {
  std::vector<CorpusFile> files = corpusFiles();
  ASSERT_GE(files.size(), 100u) << "corpus missing at " << testing::corpusPath();

  // Ground truth: ICU told the charset; for the charsets ICU lacks, the language's UTF-8 file,
  // which holds the same text for every such file.
  std::map<std::string, TextString> utf8Texts;
  for (const CorpusFile& file : files)
    if (file.charset == "utf-8") utf8Texts[file.language] = *icuDecode(file.bytes, "UTF-8");

  std::size_t detectedRight = 0, uchardetRight = 0, namedRight = 0, sameAsUtf8 = 0;
  std::vector<std::string> detectionMisses, uchardetMisses;
  for (const CorpusFile& file : files) {
    const std::string label = file.language + "/" + file.path.filename().string();
    std::optional<TextString> truth = icuDecode(file.bytes, icuNameFor(file.charset));
    if (!truth && utf8Texts.count(file.language)) truth = utf8Texts[file.language];
    ASSERT_TRUE(truth) << label << ": no ground truth";
    if (utf8Texts.count(file.language) && utf8Texts[file.language] == *truth) ++sameAsUtf8;

    // What uchardet alone recognises: its answer decodes to the text (or, for the charsets ICU
    // lacks, names the same charset).
    std::string answer = uchardetAnswer(file.bytes);
    std::optional<TextString> byAnswer = icuDecode(file.bytes, icuNameFor(answer));
    bool uchardetKnows = byAnswer ? *byAnswer == *truth
                                  : alphanumericLower(answer) == alphanumericLower(file.charset);
    uchardetRight += uchardetKnows;
    if (!uchardetKnows) uchardetMisses.push_back(label + " (" + answer + ")");

    StringEncoding used = 0;
    std::optional<TextString> detected =
        stringWithContentsOfFile(file.path.string(), kDetectEncoding, &used);
    bool right = detected && *detected == *truth;
    detectedRight += right;
    if (!right) detectionMisses.push_back(label);
    // Every file uchardet recognises is right here too, unless ICU cannot convert its charset.
    if (uchardetKnows && !icuNameFor(file.charset).empty()) {
      EXPECT_TRUE(right) << label << " detected as " << std::hex << used;
    }

    testing::CapturedLog log;
    std::optional<TextString> named =
        stringWithMarkupData(bytesOf(file.bytes), fromAscii(file.charset), kUTF8StringEncoding);
    bool namedOk = named && *named == *truth;
    namedRight += namedOk;
    EXPECT_EQ(namedOk, !kUnnamedCharsets.count(label))
        << label << ": markup data named " << file.charset;
  }

  std::printf("charset detection: %zu of %zu files right (uchardet itself recognises %zu)\n",
              detectedRight, files.size(), uchardetRight);
  std::printf("markup data with the charset named: %zu of %zu files right\n", namedRight,
              files.size());
  std::printf("files holding the same text as their language's utf-8.txt: %zu\n", sameAsUtf8);
  std::string misses;
  for (const std::string& miss : detectionMisses) misses += " " + miss;
  std::printf("detection misses:%s\n", misses.c_str());
  misses.clear();
  for (const std::string& miss : uchardetMisses) misses += " " + miss;
  std::printf("uchardet misses:%s\n", misses.c_str());
}

}  // namespace
}  // namespace ulvek
