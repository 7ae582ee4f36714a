// What the importer host tells the importers of scans about OCR, from the user defaults.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "base/property_list.h"
#include "importers/metadata_importer.h"
#include "test_support.h"

namespace ulvek {
namespace {

std::string settingOf(const PropertyDictionary& settings, std::string_view key) {
  const PropertyValue* value = find(settings, key);
  return value && value->string() ? toUtf8(*value->string()) : "(none)";
}

TEST(OCRSettings, FromTheUserDefaults) {
  testing::TemporaryFolder folder;
  ::setenv("XDG_CONFIG_HOME", (folder.path() / "config").c_str(), 1);
  struct Row {
    const char* name;
    std::optional<PropertyDictionary> defaults;  // none: no defaults file
    OCRSettings expected;
  };
  const std::vector<Row> rows = {
      {"no defaults", std::nullopt, {}},
      {"all four",
       PropertyDictionary{{"DisableOCR", PropertyValue(true)},
                          {"OCRLanguages", PropertyValue(u"deu+eng")},
                          {"OCRResolution", PropertyValue(std::int64_t{200})},
                          {"OCRTimeLimit", PropertyValue(2.5)}},
       {false, "deu+eng", 200, std::chrono::duration<double>(2.5)}},
      {"whole seconds",
       PropertyDictionary{{"OCRTimeLimit", PropertyValue(std::int64_t{90})}},
       {true, "", 300, std::chrono::duration<double>(90)}},
      {"out of range and of the wrong kind",
       PropertyDictionary{{"OCRResolution", PropertyValue(std::int64_t{5})},
                          {"OCRTimeLimit", PropertyValue(-1.0)},
                          {"OCRLanguages", PropertyValue(std::int64_t{3})}},
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove_all(folder.path() / "config");
    if (row.defaults)
      folder.write("config/ulvekbot/defaults.plist",
                   *xmlPropertyList(PropertyValue(*row.defaults)));
    EXPECT_EQ(OCRSettings::fromUserDefaults(), row.expected);
  }
  ::unsetenv("XDG_CONFIG_HOME");
}

TEST(OCRSettings, AsTheImportersGetThem) {
  OCRSettings settings{false, "fra+eng", 150, std::chrono::duration<double>(1.5)};
  PropertyDictionary given = settings.asSettings();
  EXPECT_EQ(settingOf(given, "DisableOCR"), "1");
  EXPECT_EQ(settingOf(given, "OCRLanguages"), "fra+eng");
  EXPECT_EQ(settingOf(given, "OCRResolution"), "150");
  EXPECT_EQ(std::stod(settingOf(given, "OCRTimeLimit")), 1.5);
  // No languages: the importer chooses.
  EXPECT_EQ(settingOf(OCRSettings{}.asSettings(), "OCRLanguages"), "(none)");
  EXPECT_EQ(settingOf(OCRSettings{}.asSettings(), "DisableOCR"), "0");
}

// Calls in flight share the cores: the first ones get them all, up to twice the cores in all,
// and the rest one each; what a finished call held is free again.
TEST(ThreadGrantTest, CallsInFlightShareTheCores) {
  struct Row {
    const char* name;
    std::size_t cores;
    std::vector<int> steps;  // > 0: a call starts and is granted that many; 0: the oldest ends
  };
  const std::vector<Row> rows = {
      {"one core", 1, {1, 1, 1, 0, 1}},
      {"two cores", 2, {2, 2, 1, 0, 1, 0, 0, 2, 1}},
      {"four cores, a long call beside short ones", 4, {4, 4, 1, 0, 1, 0, 4}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    ScopedCores cores(row.cores);
    std::deque<std::unique_ptr<ThreadGrant>> inFlight;
    for (std::size_t step = 0; step < row.steps.size(); ++step) {
      SCOPED_TRACE(step);
      if (row.steps[step] == 0) {
        inFlight.pop_front();
        continue;
      }
      inFlight.push_back(std::make_unique<ThreadGrant>());
      EXPECT_EQ(inFlight.back()->threads(), std::size_t(row.steps[step]));
    }
  }
}

TEST(OCRSettings, FilesThatMayHoldScans) {
  struct Row {
    const char* type;
    bool scans;
  };
  for (const Row& row :
       {Row{"com.adobe.pdf", true}, Row{"public.png", true}, Row{"public.tiff", true},
        Row{"com.adobe.postscript", true}, Row{"public.plain-text", false},
        Row{"public.mp3", false}, Row{"org.openxmlformats.wordprocessingml.document", false}}) {
    SCOPED_TRACE(row.type);
    EXPECT_EQ(mayHoldScans(row.type), row.scans);
  }
}

}  // namespace
}  // namespace ulvek
