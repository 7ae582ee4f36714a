#include "base/property_value.h"

#include <gtest/gtest.h>

#include "base/text_string.h"

namespace ulvek {
namespace {

TEST(TextString, Utf8RoundTrips) {
  struct Row {
    const char* name;
    std::string utf8;
    TextString utf16;
  };
  const Row rows[] = {
      {"empty", "", u""},
      {"ascii", "Title", u"Title"},
      {"umlaut",
       "Gr\xC3\xBC\xC3\x9F"
       "e",
       u"Grüße"},
      {"astral", "\xF0\x9F\x98\x80", u"\U0001F600"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(fromUtf8(row.utf8), row.utf16) << row.name;
    EXPECT_EQ(toUtf8(row.utf16), row.utf8) << row.name;
  }
}

TEST(TextString, IllFormedInputIsReplacedOrRefused) {
  TextString out;
  EXPECT_FALSE(fromUtf8Strict("a\xFF", out));
  EXPECT_EQ(fromUtf8("a\xFF"), u"a\uFFFD");
  std::string utf8;
  EXPECT_FALSE(toUtf8Strict(TextString(1, char16_t(0xD800)), utf8));
  EXPECT_EQ(toUtf8(TextString(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace ulvek
