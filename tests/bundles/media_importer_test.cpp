// Media.mdimporter over the project's own audio files (tests/data/media) against the tags and
// durations written beside them, and over the audio corpus against mutagen's and exiftool's.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "bundle_harness.h"
#include "fixture_files.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
namespace fs = std::filesystem;

// ID3v2.4, ID3v2.3 and ID3v1 over silent MPEG frames, FLAC, WAV with RIFF INFO or ID3v2, Ogg
// Vorbis and Opus, and MP4: tags, lyrics, and durations known to the sample.
TEST(MediaImporter, FixturesGiveTheirTagsAndDurations) {
  Bundle bundle("Media", "UlvekMediaImporterFactory");
  testing::expectFixtures(bundle, "media", {".flac", ".m4a", ".mp3", ".ogg", ".opus", ".wav"}, 9,
                          1e-3);
}

TEST(MediaImporter, CorpusTagsAndDurations) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Media", "UlvekMediaImporterFactory");
  int titles = 0, durations = 0;
  for (const char* format : {"mp3", "flac", "ogg", "m4a"}) {
    fs::path folder = testing::corpusPath() / "docs" / format;
    if (!fs::exists(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder)) {
      std::string name = entry.path().filename().string();
      if (name.ends_with(".json") || name.starts_with("._")) continue;
      SCOPED_TRACE(name);
      std::string expect = testing::readFile(entry.path().string() + ".expect.json");
      std::string answer = expect.substr(0, expect.find("\"mutagen\""));
      BundleAttributes values = bundle.import(entry.path().string());
      if (name.starts_with("damaged-")) continue;  // answering at all is the test
      std::string title = testing::expectedField(answer, "title");
      // TagLib drops the whole ID3v2 tag when one frame is malformed; mutagen skips the frame.
      bool badFrame = name.find("bad-") != std::string::npos;
      if (!title.empty() && !badFrame && title.find('\\') == std::string::npos) {
        EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), title);
        ++titles;
      }
      std::string duration = testing::expectedField(answer, "duration_s");
      // TagLib measures Ogg from the first audio page's granule position, mutagen from zero;
      // for these short test files the two differ by most of the file.
      bool ogg = std::string(format) == "ogg";
      if (!duration.empty() && !ogg && values.contains("kMDItemDurationSeconds")) {
        // TagLib counts whole milliseconds and estimates VBR files from their headers.
        EXPECT_NEAR(testing::numberOf(values, "kMDItemDurationSeconds"), std::stod(duration),
                    std::max(0.05, std::stod(duration) * 0.05));
        ++durations;
      }
    }
  }
  EXPECT_GT(titles, 15);
  EXPECT_GT(durations, 15);
}

TEST(MediaImporter, BrokenFilesAnswerLittle) {
  Bundle bundle("Media", "UlvekMediaImporterFactory");
  testing::TemporaryFolder folder;
  const std::pair<std::string, std::string> rows[] = {
      {"empty.mp3", ""},
      {"text.flac", "not audio"},
      // An ID3v2 header that claims a 256 MB tag.
      {"huge-id3.mp3", std::string("ID3\x04\x00\x00\x7F\x7F\x7F\x7F"
                                   "TIT2",
                                   14)},
      {"truncated.ogg", "OggS\0\x02"},
  };
  for (const auto& [name, bytes] : rows) {
    BundleAttributes values = bundle.import(folder.write(name, bytes));
    EXPECT_FALSE(values.contains("kMDItemTitle")) << name;
  }
}

}  // namespace
}  // namespace ulvek
