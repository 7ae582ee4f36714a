// Text clippings over the clipping corpus: forks beside the files (AppleDouble companions) and
// property lists in the data fork.

#include "readers/textclipping/text_clipping_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "test_support.h"
#include "word_bag.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

TEST(TextClippingReader, CorpusClippings) {
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

TEST(TextClippingReader, ResourceOrderAndDocumentTypes) {
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
    EXPECT_EQ(*find(output->attributes, DocumentAttribute::DocumentType), PropertyValue(row.type))
        << row.file;
  }
  testing::TemporaryFolder folder;
  EXPECT_FALSE(
      textClippingReader().read(ReaderSource::file(folder.write("empty.textClipping", ""))));
  EXPECT_FALSE(textClippingReader().read(
      ReaderSource::file(folder.write("junk.textClipping", "bplist00junk"))));
}

}  // namespace
}  // namespace ulvek
