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

TEST(PropertyValue, KindsAndAccessors) {
  EXPECT_TRUE(PropertyValue(u"x").isString());
  EXPECT_EQ(PropertyValue(true).kind(), PropertyValue::Kind::Boolean);
  EXPECT_EQ(PropertyValue(std::uint64_t{1} << 63).unsignedInteger()[0], std::uint64_t{1} << 63);
  EXPECT_EQ(PropertyValue(3).integer()[0], 3);
  EXPECT_EQ(PropertyValue(PropertyArray{}).className(), "Array");
  EXPECT_EQ(PropertyValue(u"x").array(), nullptr);
  PropertyDictionary nested{{"a", PropertyValue(PropertyArray{PropertyValue(u"b")})}};
  EXPECT_EQ(PropertyValue(nested), PropertyValue(nested));
}

}  // namespace
}  // namespace ulvek
