// Text clippings: forks beside the files (AppleDouble companions) and property lists in the data
// fork, over the project's own clippings and, where present, the shared corpus.

#include "readers/textclipping/text_clipping_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "fixture_files.h"
#include "fork_test_files.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"
#include "reader_output_printer.h"
#include "test_support.h"
#include "word_bag.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// The clippings of tests/data/textclipping (made by make_fixtures.py there), each against its
// .expect.json: text and document type and nothing else, or no answer.
TEST(TextClippingReader, ReadsClippings) {
  const std::vector<fs::path> clippings =
      testing::filesOf(testing::dataPath() / "textclipping", {".textClipping"});
  ASSERT_GE(clippings.size(), 17u);
  for (const fs::path& path : clippings) {
    SCOPED_TRACE(path.filename().string());
    auto expect = nlohmann::json::parse(testing::readFile(path.string() + ".expect.json"));
    testing::CapturedLog log;
    std::optional<ReaderOutput> output =
        textClippingReader().read(ReaderSource::file(path.string()));
    if (!expect.value("readable", true)) {
      EXPECT_FALSE(output);
      continue;
    }
    ASSERT_TRUE(output);
    EXPECT_EQ(*output,
              (ReaderOutput{.convention = Convention::AttributedDocument,
                            .text = fromUtf8(expect["text"].get<std::string>()),
                            .documentType = fromUtf8(expect["documentType"].get<std::string>())}));
  }
}

// Clippings whose forks this system wrote, in the attribute and in the companion.
TEST(TextClippingReader, ReadsForksWrittenHere) {
  for (ForkStorage storage : {ForkStorage::Attribute, ForkStorage::AppleDouble}) {
    testing::TemporaryFolder folder;
    std::string path = (folder.path() / "written.textClipping").string();
    std::optional<ResourceFork> fork = ResourceFork::openForWriting(path, storage);
    ASSERT_TRUE(fork);
    std::string utxt("\0W\0r\0i\0t\0t\0e\0n", 14);  // big-endian, as clippings hold it
    ASSERT_TRUE(fork->addData(testing::byteView(utxt), fourCharCode("utxt"), 256));
    ASSERT_TRUE(fork->addData(testing::byteView("plain"), fourCharCode("TEXT"), 256));
    fork.reset();
    std::optional<ReaderOutput> output = textClippingReader().read(ReaderSource::file(path));
    ASSERT_TRUE(output && output->text);
    EXPECT_EQ(*output->text, u"Written");
    EXPECT_EQ(output->documentType, kPlainTextDocumentType);
  }
}

TEST(TextClippingReader, CorpusClippings) {
  ULVEK_REQUIRE_CORPUS();
  int read = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "docs/textclipping")) {
    std::string name = entry.path().filename().string();
    if (name.ends_with(".json") || name.starts_with("._")) continue;
    SCOPED_TRACE(name);
    std::optional<ReaderOutput> output =
        textClippingReader().read(ReaderSource::file(entry.path().string()));
    if (name.starts_with("damaged-")) continue;
    auto expect = nlohmann::json::parse(testing::readFile(entry.path().string() + ".expect.json"));
    auto text = expect["expected"].find("text");
    if (text == expect["expected"].end() || !text->is_string()) continue;
    ASSERT_TRUE(output && output->text);
    EXPECT_GE(testing::wordBagF1(*output->text, fromUtf8(text->get<std::string>())), 0.85);
    ++read;
  }
  EXPECT_GE(read, 6);
}

TEST(TextClippingReader, CorpusResourceOrderAndDocumentTypes) {
  ULVEK_REQUIRE_CORPUS();
  fs::path corpus = testing::corpusPath() / "docs/textclipping";
  struct Row {
    std::string file;
    std::u16string type;
  };
  const Row rows[] = {
      {"made-rtf-and-utxt.textClipping", u"NSRTF"},  // RTF before utxt and TEXT
      {"rsrcfork-unicode.textClipping", u"NSPlainText"},
      {"ULI-OldStyle.textClipping", u"NSRTF"},
  };
  for (const Row& row : rows) {
    std::optional<ReaderOutput> output =
        textClippingReader().read(ReaderSource::file((corpus / row.file).string()));
    ASSERT_TRUE(output) << row.file;
    EXPECT_EQ(output->documentType, row.type) << row.file;
  }
}

}  // namespace
}  // namespace ulvek
