#include "platform/property_list.h"

#include <gtest/gtest.h>

#include <string>

namespace ulvek {
namespace {

std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(PropertyList, BinaryRoundTripKeepsEveryKind) {
  PropertyDictionary dictionary{
      {"string", PropertyValue(u"Grüße \U0001F600")},
      {"negative", PropertyValue(std::int64_t{-5})},
      {"real", PropertyValue(2.5)},
      {"flag", PropertyValue(true)},
      {"date", PropertyValue(Date{1700000000123456})},
      {"data", PropertyValue(Data{0, 1, 2, 255})},
      {"array", PropertyValue(PropertyArray{u"a", u"b"})},
  };
  PropertyValue value(dictionary);
  auto bytes = binaryPropertyList(value);
  ASSERT_TRUE(bytes);
  ASSERT_GE(bytes->size(), 6u);
  EXPECT_EQ(std::string(bytes->begin(), bytes->begin() + 6), "bplist");
  auto back = propertyListFromBytes(*bytes);
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, value);
}

TEST(PropertyList, MalformedAndHostileInputAnswersNothing) {
  struct Row {
    const char* name;
    std::string bytes;
  };
  std::string deep;
  for (int i = 0; i < 10000; ++i) deep += "<array>";
  for (int i = 0; i < 10000; ++i) deep += "</array>";
  const Row rows[] = {
      {"empty", ""},
      {"bplist prefix only", "bplist"},
      {"truncated header", "bplist00\x01\x02"},
      {"garbage", "not a property list at all"},
      {"nested 10000 deep", "<plist version=\"1.0\">" + deep + "</plist>"},
      {"dictionary key with a NUL unit",
       std::string(
           "\x62\x70\x6c\x69\x73\x74\x30\x30\xd2\x01\x02\x03\x04\x54\x4c\x61\x55\x65\x6d\x53\x72"
           "\x4e"
           "\x51\x3d\x23\x5f\x10\x15\x68\x74\x74\x70\x73\x3a\x2f\x2f\x65\x78\x01\x00\x00\x00\x00"
           "\x00"
           "\x00\x00\x67\x2f\x62\x08\x0d\x12\x16\x18\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00"
           "\x00"
           "\x00\x00\x00\x05\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x31",
           86)},
  };
  for (const Row& row : rows) EXPECT_FALSE(propertyListFromBytes(bytesOf(row.bytes))) << row.name;
}

TEST(PropertyList, XmlIsRead) {
  std::string xml =
      "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>URL</key>"
      "<string>https://example.org/</string></dict></plist>";
  auto value = propertyListFromBytes(bytesOf(xml));
  ASSERT_TRUE(value && value->dictionary());
  EXPECT_EQ(*find(*value->dictionary(), "URL")->string(), u"https://example.org/");
}

TEST(PropertyList, LoneSurrogateCannotBeSerialized) {
  std::string message;
  EXPECT_FALSE(binaryPropertyList(PropertyValue(TextString(1, char16_t(0xDC00))), &message));
  EXPECT_FALSE(message.empty());
}

}  // namespace
}  // namespace ulvek
