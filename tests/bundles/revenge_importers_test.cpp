// iWork.mdimporter and ClassicMac.mdimporter over their corpus folders, against the text the
// librevenge tools (pages2text, key2text, numbers2text, mwaw2text) give.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "bundle_harness.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
namespace fs = std::filesystem;

std::map<std::string, int> wordBag(const std::string& text) {
  std::map<std::string, int> bag;
  std::string word;
  for (char c : text + " ") {
    if (std::isspace(static_cast<unsigned char>(c))) {
      if (!word.empty()) ++bag[word];
      word.clear();
    } else {
      word += c;
    }
  }
  return bag;
}

double f1(const std::string& got, const std::string& expected) {
  std::map<std::string, int> a = wordBag(got), b = wordBag(expected);
  int common = 0, na = 0, nb = 0;
  for (const auto& [word, count] : a) {
    na += count;
    if (auto found = b.find(word); found != b.end()) common += std::min(count, found->second);
  }
  for (const auto& [word, count] : b) nb += count;
  if (na + nb == 0) return 1;
  return 2.0 * common / (na + nb);
}

void compareFolder(Bundle& bundle, const char* format, const char* exitKey, int minimum) {
  int compared = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "docs" / format)) {
    std::string name = entry.path().filename().string();
    if (name.ends_with(".json") || name.starts_with("._") || name.ends_with(".hqx")) continue;
    SCOPED_TRACE(name);
    BundleAttributes values = bundle.import(entry.path().string());
    if (name.starts_with("damaged-")) continue;
    auto expect = nlohmann::json::parse(testing::readFile(entry.path().string() + ".expect.json"));
    const auto& expected = expect["expected"];
    if (!expected.contains(exitKey) || expected[exitKey] != 0) continue;
    auto found = expected.find("text");
    std::string text =
        found != expected.end() && found->is_string() ? found->get<std::string>() : "";
    if (text.empty()) continue;
    std::string got = values.contains("kMDItemTextContent")
                          ? testing::stringOf(values, "kMDItemTextContent")
                          : "";
    EXPECT_GE(f1(got, text), 0.97) << got.substr(0, 300);
    ++compared;
  }
  EXPECT_GE(compared, minimum) << format;
}

TEST(IWorkImporter, CorpusText) {
  Bundle bundle("iWork", "UlvekIWorkImporterFactory");
  compareFolder(bundle, "pages", "pages2text_exit", 2);
  compareFolder(bundle, "key", "key2text_exit", 3);
  compareFolder(bundle, "numbers", "numbers2text_exit", 1);
}

TEST(ClassicMacImporter, CorpusTextWithForksBeside) {
  Bundle bundle("ClassicMac", "UlvekClassicMacImporterFactory");
  compareFolder(bundle, "mac-legacy", "mwaw2text_exit", 3);
}

TEST(RevengeImporters, BrokenFilesAnswerLittle) {
  Bundle iwork("iWork", "UlvekIWorkImporterFactory");
  Bundle mac("ClassicMac", "UlvekClassicMacImporterFactory");
  testing::TemporaryFolder folder;
  for (const auto& [name, bytes] : std::vector<std::pair<std::string, std::string>>{
           {"empty.pages", ""}, {"zip.key", "PK\x03\x04"}, {"text.cwk", "BOBO not really"}}) {
    std::string path = folder.write(name, bytes);
    EXPECT_FALSE(iwork.import(path).contains("kMDItemTextContent")) << name;
    EXPECT_FALSE(mac.import(path).contains("kMDItemTextContent")) << name;
  }
}

}  // namespace
}  // namespace ulvek
