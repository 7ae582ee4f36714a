// The service's reading time per request, from the user defaults.

#include "import/reader_time_limit.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <optional>
#include <vector>

#include "base/property_list.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;

TEST(ReaderTimeLimit, TheUserDefaultInSecondsElseThirty) {
  testing::TemporaryFolder folder;
  ::setenv("XDG_CONFIG_HOME", (folder.path() / "config").c_str(), 1);
  struct Row {
    const char* name;
    std::optional<PropertyValue> setting;  // none: no defaults file
    std::optional<ReadingDeadline::Clock::duration> limit;
  };
  const std::vector<Row> rows = {
      {"no defaults", std::nullopt, 30s},
      {"whole seconds", PropertyValue(std::int64_t{5}), 5s},
      {"a fraction", PropertyValue(0.5), 500ms},
      {"zero: no limit", PropertyValue(std::int64_t{0}), std::nullopt},
      {"below zero: no limit", PropertyValue(-1.0), std::nullopt},
      {"not a number: the default", PropertyValue(u"fast"), 30s},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove_all(folder.path() / "config");
    if (row.setting) {
      PropertyDictionary defaults{{"ReaderTimeLimit", *row.setting}};
      folder.write("config/ulvekbot/defaults.plist", *xmlPropertyList(PropertyValue(defaults)));
    }
    EXPECT_EQ(serviceReaderTimeLimit(), row.limit);
  }
  ::unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
}  // namespace ulvek
