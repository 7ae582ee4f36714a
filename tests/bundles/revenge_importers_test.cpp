// iWork.mdimporter and ClassicMac.mdimporter, both reading through librevenge. The documents in
// data/iwork and data/classicmac are made by the make_fixtures.py beside them, each with the
// answer the importer must give in NAME.expect.json. The shared corpus, compared with the text
// the librevenge tools (pages2text, key2text, numbers2text, mwaw2text) give, is the extra suite.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bundle_harness.h"
#include "fork_test_files.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
namespace fs = std::filesystem;

const char kResourceForkAttribute[] = "user.com.apple.ResourceFork";
const char kFinderInfoAttribute[] = "user.com.apple.FinderInfo";

Bundle& iWork() {
  static Bundle bundle("iWork", "UlvekIWorkImporterFactory");
  return bundle;
}

Bundle& classicMac() {
  static Bundle bundle("ClassicMac", "UlvekClassicMacImporterFactory");
  return bundle;
}

// Each key of the expectation is an attribute: a string or a list of strings it must equal, or
// null for an attribute the importer must leave out.
void expectAnswer(const BundleAttributes& values, const fs::path& expectation) {
  nlohmann::json expected = nlohmann::json::parse(testing::readFile(expectation), nullptr, false);
  ASSERT_TRUE(expected.is_object()) << expectation;
  for (const auto& [key, value] : expected.items()) {
    if (value.is_null()) {
      EXPECT_FALSE(values.contains(key)) << key << ": " << testing::stringOf(values, key);
    } else if (value.is_array()) {
      auto found = values.find(key);
      ASSERT_TRUE(found != values.end()) << key << " is missing";
      const auto* list = std::get_if<std::vector<std::string>>(&found->second);
      ASSERT_TRUE(list) << key << " is not a list: " << testing::stringOf(values, key);
      EXPECT_EQ(*list, value.get<std::vector<std::string>>()) << key;
    } else {
      EXPECT_EQ(testing::stringOf(values, key), value.get<std::string>()) << key;
    }
  }
}

TEST(IWorkImporter, PackagesAndZippedFilesGiveTheirTextAndMetadata) {
  const fs::path folder = testing::dataPath() / "iwork";
  struct Row {
    std::string name, path, answer;  // the answer is NAME.expect.json beside the fixtures
  };
  const std::vector<Row> rows = {
      {"Pages '09 package folder", "harbour.pages", "harbour.pages"},
      {"its index.xml stands for the package", "harbour.pages/index.xml", "harbour.pages"},
      {"zipped Pages '09 file", "allotment.pages", "allotment.pages"},
      {"Keynote 5 package with a gzipped index", "orchard.key", "orchard.key"},
      {"its index.apxl.gz stands for the package", "orchard.key/index.apxl.gz", "orchard.key"},
      {"zipped Keynote 5 file", "lecture.key", "lecture.key"},
      {"Numbers '09 package with two sheets", "seeds.numbers", "seeds.numbers"},
      {"zipped Numbers '09 file", "tides.numbers", "tides.numbers"},
      {"zipped Pages file of IWA objects", "almanac.pages", "almanac.pages"},
      {"Pages package keeping its IWA objects in Index.zip", "rota.pages", "rota.pages"},
      {"its Index.zip stands for the package", "rota.pages/Index.zip", "rota.pages"},
      {"zipped Keynote file of IWA objects", "hives.key", "hives.key"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    expectAnswer(iWork().import((folder / row.path).string()),
                 folder / (row.answer + ".expect.json"));
  }
}

// The entry `id` of an AppleDouble file, empty when it has none.
std::string appleDoubleEntry(const std::string& file, std::uint32_t id) {
  auto be = [&file](std::size_t at, int size) {
    std::uint32_t value = 0;
    for (int i = 0; i < size; ++i) value = value << 8 | std::uint8_t(file.at(at + i));
    return value;
  };
  for (std::size_t i = 0, count = be(24, 2); i < count; ++i)
    if (be(26 + 12 * i, 4) == id) return file.substr(be(30 + 12 * i, 4), be(34 + 12 * i, 4));
  return "";
}

TEST(ClassicMacImporter, ForksBesideInEveryWayTheyTravel) {
  const fs::path folder = testing::dataPath() / "classicmac";
  testing::TemporaryFolder copies;
  // The data fork alone, and with the forks of its AppleDouble file in extended attributes.
  auto bare = [&](const std::string& name) {
    return copies.write("bare/" + name, testing::readFile(folder / name));
  };
  auto inAttributes = [&](const std::string& name) {
    std::string path = copies.write("attributes/" + name, testing::readFile(folder / name));
    std::string companion = testing::readFile(folder / ("._" + name));
    EXPECT_TRUE(testing::setAttribute(path, kFinderInfoAttribute, appleDoubleEntry(companion, 9)));
    EXPECT_TRUE(
        testing::setAttribute(path, kResourceForkAttribute, appleDoubleEntry(companion, 2)));
    return path;
  };
  struct Row {
    std::string name, path, answer;  // no answer: libmwaw cannot tell what the file is
  };
  const std::vector<Row> rows = {
      {"TeachText, AppleDouble beside", (folder / "lantern-log").string(), "lantern-log"},
      {"TeachText, BinHex", (folder / "lantern-log.hqx").string(), "lantern-log"},
      {"TeachText, extended attributes", inAttributes("lantern-log"), "lantern-log"},
      {"TeachText, data fork alone", bare("lantern-log"), ""},
      {"Tex-Edit, AppleDouble beside", (folder / "tide-table").string(), "tide-table"},
      {"Tex-Edit, BinHex", (folder / "tide-table.hqx").string(), "tide-table"},
      {"Tex-Edit, extended attributes", inAttributes("tide-table"), "tide-table"},
      {"Tex-Edit, data fork alone", bare("tide-table"), ""},
      {"Multiplan sheet, known by its data fork", (folder / "crop-yields").string(), "crop-yields"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BundleAttributes values = classicMac().import(row.path);
    if (row.answer.empty()) {
      EXPECT_FALSE(values.contains("kMDItemTextContent"));
    } else {
      expectAnswer(values, folder / (row.answer + ".expect.json"));
    }
  }
}

TEST(ClassicMacImporter, OnlyTheFilesOwnAppleDoubleCompanionIsTaken) {
  const fs::path folder = testing::dataPath() / "classicmac";
  testing::TemporaryFolder copies;
  std::string companion = testing::readFile(folder / "._lantern-log");
  struct Row {
    std::string name, companionName, companion;
  };
  const std::vector<Row> rows = {
      {"AppleSingle magic", "._doc", testing::be32(0x00051600) + companion.substr(4)},
      {"companion of another file", "._doc.txt", companion},
      {"its own", "._doc", companion},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    copies.write(row.name + "/" + row.companionName, row.companion);
    std::string path = copies.write(row.name + "/doc", testing::readFile(folder / "lantern-log"));
    EXPECT_EQ(classicMac().import(path).contains("kMDItemTextContent"), row.name == "its own");
  }
}

TEST(RevengeImporters, BrokenFilesAnswerLittle) {
  testing::TemporaryFolder folder;
  for (const auto& [name, bytes] : std::vector<std::pair<std::string, std::string>>{
           {"empty.pages", ""}, {"zip.key", "PK\x03\x04"}, {"text.cwk", "BOBO not really"}}) {
    std::string path = folder.write(name, bytes);
    EXPECT_FALSE(iWork().import(path).contains("kMDItemTextContent")) << name;
    EXPECT_FALSE(classicMac().import(path).contains("kMDItemTextContent")) << name;
  }
}

TEST(RevengeImporters, CutShortCopiesOfTheFixturesAreSurvived) {
  testing::TemporaryFolder folder;
  struct Row {
    std::string family, name;
    Bundle& bundle;
    bool textLost;  // a zip cut short loses its directory, and so everything
  };
  const std::vector<Row> rows = {
      {"iwork", "allotment.pages", iWork(), true},
      {"iwork", "lecture.key", iWork(), true},
      {"iwork", "tides.numbers", iWork(), true},
      {"iwork", "almanac.pages", iWork(), true},
      {"iwork", "hives.key", iWork(), true},
      {"classicmac", "lantern-log.hqx", classicMac(), false},
      {"classicmac", "crop-yields", classicMac(), false},
  };
  for (const Row& row : rows) {
    std::string bytes = testing::readFile(testing::dataPath() / row.family / row.name);
    ASSERT_FALSE(bytes.empty()) << row.name;
    for (std::size_t kept : {bytes.size() / 3, bytes.size() * 2 / 3}) {
      SCOPED_TRACE(row.name + " cut to " + std::to_string(kept) + " bytes");
      std::string path = folder.write(std::to_string(kept) + "-" + row.name, bytes.substr(0, kept));
      BundleAttributes values = row.bundle.import(path);
      if (row.textLost) {
        EXPECT_FALSE(values.contains("kMDItemTextContent"));
      }
    }
  }
}

// The shared corpus.

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
  ULVEK_REQUIRE_CORPUS();
  compareFolder(iWork(), "pages", "pages2text_exit", 2);
  compareFolder(iWork(), "key", "key2text_exit", 3);
  compareFolder(iWork(), "numbers", "numbers2text_exit", 1);
}

TEST(ClassicMacImporter, CorpusTextWithForksBeside) {
  ULVEK_REQUIRE_CORPUS();
  compareFolder(classicMac(), "mac-legacy", "mwaw2text_exit", 3);
}

}  // namespace
}  // namespace ulvek
