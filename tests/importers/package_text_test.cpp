#include "importers/package_text.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <optional>
#include <string>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

constexpr std::string_view kOutline =
    "<?xml version=\"1.0\"?><outline><style-attribute>bold</style-attribute>"
    "<editor>x</editor><item><values><text><p>Buy &amp; sow</p></text></values></item>"
    "<item><values><text><p>Water   daily</p></text></values></item></outline>";

std::string gzipped(std::string_view text) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

TEST(PackageText, OutlinesPlainCompressedAndBroken) {
  TemporaryFolder folder;
  folder.write("Plain.oo3/contents.xml", kOutline);
  folder.write("Packed.oo3/contents.xml", gzipped(kOutline));
  folder.write("Cut.oo3/contents.xml", gzipped(kOutline).substr(0, 20));
  folder.write("Empty.oo3/contents.xml", "");
  std::filesystem::create_directories(folder.path() / "Bare.oo3");
  struct Row {
    const char* package;
    std::optional<std::u16string> text;
  };
  const Row rows[] = {
      {"Plain.oo3", u"Buy & sow Water daily"},
      {"Packed.oo3", u"Buy & sow Water daily"},
      {"Cut.oo3", std::nullopt},
      {"Empty.oo3", std::nullopt},
      {"Bare.oo3", std::nullopt},
  };
  for (const Row& row : rows) {
    std::optional<TextString> text = outlinePackageText((folder.path() / row.package).string());
    EXPECT_EQ(text, row.text) << row.package;
  }
}

TEST(PackageText, ChatLogsOfOneTranscript) {
  TemporaryFolder folder;
  folder.write("One.chatlog/log.xml", "<chat><message>Hi &lt;there&gt;</message></chat>");
  folder.write("Two.chatlog/a.xml", "<chat/>");
  folder.write("Two.chatlog/b.xml", "<chat/>");
  std::filesystem::create_directories(folder.path() / "None.chatlog");
  EXPECT_EQ(chatLogPackageText((folder.path() / "One.chatlog").string()), u"Hi <there>");
  EXPECT_EQ(chatLogPackageText((folder.path() / "Two.chatlog").string()), std::nullopt);
  EXPECT_EQ(chatLogPackageText((folder.path() / "None.chatlog").string()), std::nullopt);
}

}  // namespace
}  // namespace ulvek
