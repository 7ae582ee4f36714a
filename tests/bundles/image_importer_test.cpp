// Image.mdimporter over the project's own pictures (tests/data/image), their metadata written by
// exiftool, against the answers written beside them; and over the image corpus against the
// values exiftool reports.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "base/property_list.h"
#include "bundle_harness.h"
#include "fixture_files.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
namespace fs = std::filesystem;

// XMP over IPTC over EXIF, and each alone; dates with and without offsets; places north-east and
// south-west, above and below the sea; camera settings and pixel sizes; in JPEG, PNG, TIFF and
// HEIF.
TEST(ImageImporter, FixturesGiveTheirAttributes) {
  Bundle bundle("Image", "UlvekImageImporterFactory");
  testing::expectFixtures(bundle, "image", {".jpg", ".png", ".tif", ".heic", ".avif"}, 8, 1e-6);
}

TEST(ImageImporter, CorpusSizesDatesAndPlaces) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Image", "UlvekImageImporterFactory");
  int compared = 0;
  for (const char* format : {"jpeg", "png", "tiff", "heic"}) {
    fs::path folder = testing::corpusPath() / "docs" / format;
    if (!fs::exists(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder)) {
      std::string name = entry.path().filename().string();
      if (name.ends_with(".json") || name.starts_with("._")) continue;
      SCOPED_TRACE(name);
      std::string expect = testing::readFile(entry.path().string() + ".expect.json");
      std::size_t expected = expect.find("\"expected\"");
      if (expected == std::string::npos) continue;
      // Only the answer, not exiftool's full tag list.
      std::string answer =
          expect.substr(expected, expect.find("\"exiftool\"", expected) - expected);
      BundleAttributes values = bundle.import(entry.path().string());
      if (name.starts_with("damaged-")) continue;  // answering at all is the test
      // Exiv2 gives a HEIF file's largest image size, exiftool its primary item's (often cropped).
      bool heif = std::string(format) == "heic";
      if (std::string width = testing::expectedField(answer, "width");
          !width.empty() && !heif && values.contains("kMDItemPixelWidth")) {
        EXPECT_EQ(testing::numberOf(values, "kMDItemPixelWidth"), std::stod(width));
        EXPECT_EQ(testing::numberOf(values, "kMDItemPixelHeight"),
                  std::stod(testing::expectedField(answer, "height")));
        ++compared;
      }
      if (std::string latitude = testing::expectedField(answer, "gps_latitude");
          !latitude.empty()) {
        EXPECT_NEAR(testing::numberOf(values, "kMDItemLatitude"), std::stod(latitude), 1e-3);
      }
      // Exiv2 does not join extended XMP split over several JPEG segments.
      bool extendedXMP = name.find("ExtendedXMP") != std::string::npos;
      if (std::string title = testing::expectedField(answer, "title");
          !title.empty() && !extendedXMP && title.find('\\') == std::string::npos) {
        EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), title);
      }
    }
  }
  EXPECT_GT(compared, 30);
}

TEST(ImageImporter, CorpusValuesWrittenByHand) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Image", "UlvekImageImporterFactory");
  fs::path jpeg = testing::corpusPath() / "docs/jpeg/made-exiftool-written.jpg";
  BundleAttributes values = bundle.import(jpeg.string());
  EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), "Möwe am Strand");
  EXPECT_EQ(testing::stringOf(values, "kMDItemDescription"), "Eine Möwe auf dem Sand.");
  EXPECT_EQ(testing::stringOf(values, "kMDItemAuthors"), "Åsa Öberg");
  EXPECT_EQ(testing::stringOf(values, "kMDItemKeywords"), "Möwe|Strand|Nordsee");
  EXPECT_EQ(testing::stringOf(values, "kMDItemCopyright"), "© 2021 Åsa Öberg");
  // 2021-07-14 16:32:05, no offset recorded: read as UTC.
  EXPECT_EQ(testing::numberOf(values, "kMDItemContentCreationDate"), 1626280325.0);
  EXPECT_NEAR(testing::numberOf(values, "kMDItemLongitude"), 8.6417, 1e-3);
}

TEST(ImageImporter, BrokenFilesAnswerLittle) {
  Bundle bundle("Image", "UlvekImageImporterFactory");
  testing::TemporaryFolder folder;
  const std::pair<std::string, std::string> rows[] = {
      {"empty.jpg", ""},
      {"text.jpg", "not an image at all"},
      {"header.jpg", std::string("\xFF\xD8\xFF\xE1\xFF\xFF"
                                 "Exif\0\0II*\0\x08\0\0\0\xFF\xFF",
                                 22)},
      {"loop.tif", std::string("II*\0\x08\0\0\0\x01\0\x0F\x01\x02\0\x04\0\0\0abc\0\x08\0\0\0", 26)},
  };
  for (const auto& [name, bytes] : rows) {
    BundleAttributes values = bundle.import(folder.write(name, bytes));
    EXPECT_FALSE(values.contains("kMDItemTitle")) << name;
  }
}

}  // namespace
}  // namespace ulvek
