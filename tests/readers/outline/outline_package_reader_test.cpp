#include "readers/outline/outline_package_reader.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <optional>
#include <string>

#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;

constexpr std::string_view kOutline =
    "<?xml version=\"1.0\"?><outline><style-attribute>bold</style-attribute>"
    "<editor>x</editor><item><values><text><p>Buy &amp; sow</p></text></values></item>"
    "<item><values><text><p>Water   daily</p></text></values></item></outline>";

std::string deflated(std::string_view text, int windowBits) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
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

TEST(OutlinePackageReader, PlainCompressedAndBroken) {
  TemporaryFolder folder;
  std::filesystem::create_directories(folder.path() / "Bare.oo3");
  struct Row {
    const char* package;
    std::string contents;  // of contents.xml; none for "Bare.oo3"
    std::optional<std::u16string> text;
    const char* log;  // a fragment of the one log line; null: none
  };
  const std::u16string kText = u"Buy & sow Water daily";
  const Row rows[] = {
      {"Plain.oo3", std::string(kOutline), kText},
      {"Gzip.oo3", deflated(kOutline, 15 + 16), kText},
      {"Zlib.oo3", deflated(kOutline, 15), kText},
      {"Cut.oo3", deflated(kOutline, 15 + 16).substr(0, 20), std::nullopt,
       "(contents.xml is neither XML nor compressed)"},
      {"Empty.oo3", "", std::nullopt},
      {"Bare.oo3", "", std::nullopt, "No contents.xml in outline package: "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.package);
    std::string path = (folder.path() / row.package).string();
    if (std::string(row.package) != "Bare.oo3")
      folder.write(std::string(row.package) + "/contents.xml", row.contents);
    CapturedLog log;
    std::optional<ReaderOutput> output = outlinePackageReader().read(ReaderSource::file(path));
    EXPECT_EQ(output ? output->text : std::nullopt, row.text);
    if (row.log) {
      ASSERT_EQ(log.lines().size(), 1u);
      EXPECT_TRUE(log.contains(row.log)) << log.lines().front();
      EXPECT_TRUE(log.contains(path)) << log.lines().front();
    } else {
      EXPECT_TRUE(log.lines().empty()) << log.lines().front();
    }
  }
  // A contents.xml that links out of the package is not followed.
  folder.write("outside.xml", std::string(kOutline));
  std::filesystem::create_directories(folder.path() / "Linked.oo3");
  std::filesystem::create_symlink("../outside.xml", folder.path() / "Linked.oo3/contents.xml");
  {
    CapturedLog log;
    std::string linked = (folder.path() / "Linked.oo3").string();
    EXPECT_FALSE(outlinePackageReader().read(ReaderSource::file(linked)));
    EXPECT_TRUE(log.contains("No contents.xml in outline package: " + linked));
  }
  // Only packages on disk are outlines.
  EXPECT_FALSE(outlinePackageReader().read(ReaderSource::data(Bytes(), "x.oo3")));
}

}  // namespace
}  // namespace ulvek
