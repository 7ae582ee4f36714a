#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/temporary_items.h"
#include "readers/textbundle/text_bundle.h"
#include "readers/textbundle/text_bundle_reader.h"
#include "test_support.h"
#include "zip_test_files.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;
namespace fs = std::filesystem;

std::string text(const std::optional<TextString>& value) {
  return value ? toUtf8(*value) : "(nothing)";
}

const bool kPrivateCache = testing::usePrivateCacheFolder();

std::size_t temporaryEntries() {
  Result<std::string> folder = temporaryItemsFolder();
  if (!folder) return 0;
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(*folder)) ++count;
  return count;
}

TEST(MarkDown, Extensions) {
  const std::vector<std::pair<std::u16string, bool>> rows = {
      {u"md", true},         {u"MD", true},      {u"Md", true},       {u"mmd", true},
      {u"mdwn", true},       {u"mark", true},    {u"mdown", true},    {u"mdtext", true},
      {u"mkdown", true},     {u"textile", true}, {u"markdown", true}, {u"mdx", false},
      {u"markdowns", false}, {u"m", false},      {u"txt", false},     {u"", false},
  };
  for (const auto& [extension, expected] : rows)
    EXPECT_EQ(isMarkDownExtension(TextView(extension), std::nullopt), expected)
        << toUtf8(extension);
  EXPECT_FALSE(isMarkDownExtension(std::nullopt, std::nullopt));
  EXPECT_TRUE(isMarkDownFile("/a/b.Markdown"));
  EXPECT_EQ(markDownFileTypes().size(), 18u);
  EXPECT_TRUE(isTextBundleFile("x.TextPack"));
  EXPECT_FALSE(isTextBundleFile("x.textbundles"));
}

TEST(TextBundle, FolderBundles) {
  struct Row {
    std::string name;
    std::vector<std::pair<std::string, std::string>> files;  // a name ending in "/" is a folder
    std::string expected;
    std::string logFragment;
    std::vector<std::pair<std::string, std::string>> links;  // name in the bundle, target
  };
  TemporaryFolder outside;
  const std::string secret = outside.write("secret.txt", "root:x:0:0");
  const std::vector<Row> rows = {
      {"markdown beside assets",
       {{"text.md", "# Title\n*x*"}, {"assets/a.png", "png"}},
       "# Title\n*x*"},
      {"upper-case name", {{"TEXT.MARKDOWN", "upper"}}, "upper"},
      {"sorted choice", {{"text.txt", "second"}, {"text.md", "first"}}, "first"},
      {"latin-1 text",
       {{"text.txt",
         "Gr\xFC\xDF"
         "e aus M\xFCnchen, sch\xF6n"}},
       "Grüße aus München, schön"},
      {"no text file", {{"info.json", "{}"}}, "(nothing)", "No text file"},
      {"text is a folder", {{"text.md/inner", "x"}}, "(nothing)", "is not a file"},
      // A link could show any file of the user's as the bundle's text.
      {"text is a link out", {}, "(nothing)", "is not a file in it", {{"text.md", secret}}},
      {"text is a link in",
       {{"other.md", "x"}},
       "(nothing)",
       "is not a file",
       {{"text.md", "other.md"}}},
  };
  for (const Row& row : rows) {
    TemporaryFolder folder;
    std::string bundle = (folder.path() / "a.textbundle").string();
    fs::create_directories(bundle);
    for (const auto& [name, bytes] : row.files) folder.write("a.textbundle/" + name, bytes);
    for (const auto& [name, target] : row.links)
      fs::create_symlink(target, fs::path(bundle) / name);
    CapturedLog log;
    EXPECT_EQ(text(stringWithContentsOfTextBundleFile(bundle, kDetectEncoding)), row.expected)
        << row.name;
    if (!row.logFragment.empty()) {
      EXPECT_TRUE(log.contains(row.logFragment)) << row.name;
    }
  }
  EXPECT_EQ(text(stringWithContentsOfTextBundleFile("/nonexistent.textbundle", kDetectEncoding)),
            "(nothing)");
  EXPECT_EQ(text(stringWithContentsOfTextBundleFile("/etc/hostname", kDetectEncoding)),
            "(nothing)");
}

TEST(TextBundle, TextPacks) {
  struct Row {
    std::string name;
    std::vector<testing::ZipEntry> entries;
    std::string expected;
  };
  const std::vector<Row> rows = {
      {"one bundle",
       {{"A.textbundle/text.md", "packed"}, {"A.textbundle/info.json", "{}"}},
       "packed"},
      {"last bundle wins", {{"a.textbundle/text.md", "a"}, {"b.textbundle/text.md", "b"}}, "b"},
      {"no bundle folder", {{"text.md", "loose"}}, "(nothing)"},
      {"climbing names", {{"../evil.textbundle/text.md", "x"}}, "(nothing)"},
      {"zip bomb", {{"A.textbundle/text.md", std::string(60 * 1024 * 1024, 'a')}}, "(nothing)"},
  };
  std::size_t before = temporaryEntries();
  for (const Row& row : rows) {
    TemporaryFolder folder;
    std::string pack = (folder.path() / "a.textpack").string();
    ASSERT_TRUE(testing::writeZip(pack, row.entries)) << row.name;
    CapturedLog log;
    EXPECT_EQ(text(stringWithContentsOfTextBundleFile(pack, kDetectEncoding)), row.expected)
        << row.name;
    if (row.expected == "(nothing)") {
      EXPECT_FALSE(log.lines().empty()) << row.name;
    }
    EXPECT_FALSE(fs::exists(folder.path() / "evil.textbundle")) << row.name;
    EXPECT_EQ(temporaryEntries(), before) << row.name;
  }
  TemporaryFolder folder;
  CapturedLog log;
  EXPECT_EQ(text(stringWithContentsOfTextBundleFile(folder.write("b.textpack", "no zip"),
                                                    kDetectEncoding)),
            "(nothing)");
  EXPECT_EQ(temporaryEntries(), before);
}

TEST(TextBundle, DecompressTextBundleFile) {
  TemporaryFolder folder;
  std::string pack = (folder.path() / "in/a.textpack").string();
  fs::create_directories(folder.path() / "in");
  ASSERT_TRUE(testing::writeZip(pack, {{"Packed.textbundle/text.md", "x"}}));
  std::string target = (folder.path() / "out/New.textbundle").string();
  fs::create_directories(folder.path() / "out");
  EXPECT_TRUE(decompressTextBundleFile(pack, target));
  EXPECT_EQ(testing::readFile(fs::path(target) / "text.md"), "x");

  std::string copy = (folder.path() / "copy.textbundle").string();
  EXPECT_TRUE(decompressTextBundleFile(target, copy));
  EXPECT_EQ(testing::readFile(fs::path(copy) / "text.md"), "x");

  EXPECT_FALSE(decompressTextBundleFile("", copy));
  EXPECT_FALSE(decompressTextBundleFile(pack, ""));
  EXPECT_FALSE(decompressTextBundleFile(folder.write("x.txt", "x"), target + "2"));
}

// The bundles and packs of tests/data/textbundle (made by make_fixtures.py there), each against
// its .expect.json.
TEST(TextBundleReader, ReadsBundles) {
  std::vector<fs::path> bundles;
  for (const auto& entry : fs::directory_iterator(testing::dataPath() / "textbundle"))
    if (isTextBundleFile(entry.path().string())) bundles.push_back(entry.path());
  std::sort(bundles.begin(), bundles.end());
  ASSERT_GE(bundles.size(), 7u);
  std::size_t before = temporaryEntries();
  for (const fs::path& path : bundles) {
    SCOPED_TRACE(path.filename().string());
    auto expect = nlohmann::json::parse(testing::readFile(path.string() + ".expect.json"));
    CapturedLog log;
    EXPECT_TRUE(textBundleReader().supportsFile(path.string()));
    std::optional<ReaderOutput> output = textBundleReader().read(ReaderSource::file(path.string()));
    if (expect["text"].is_null()) {
      EXPECT_FALSE(output);
      EXPECT_FALSE(log.lines().empty());
    } else {
      ASSERT_TRUE(output && output->text);
      EXPECT_EQ(toUtf8(*output->text), expect["text"].get<std::string>());
    }
  }
  // Packs are unpacked into the temporary folder and cleared away again.
  EXPECT_EQ(temporaryEntries(), before);
}

TEST(TextBundleReader, ReadsCorpusBundles) {
  ULVEK_REQUIRE_CORPUS();
  struct Row {
    std::string file;
    std::string prefix;
  };
  const std::vector<Row> rows = {
      {"tbio-example.textpack", "# Textbundle Example"},
      {"tbio-example-v2.textbundle", "# Textbundle Example"},
      {"shinyfrog-invalid-no-text.textbundle", "(nothing)"},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    auto output = textBundleReader().read(
        ReaderSource::file((testing::corpusPath() / "docs/textbundle" / row.file).string()));
    EXPECT_EQ(text(output ? output->text : std::nullopt).substr(0, row.prefix.size()), row.prefix)
        << row.file;
  }
}

}  // namespace
}  // namespace ulvek
