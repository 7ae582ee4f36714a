#include "base/property_list.h"

#include <gtest/gtest.h>

#include "base/log.h"

#include <limits>
#include <string>
#include <vector>

namespace ulvek {
namespace {

using namespace std::string_literals;

std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(PropertyList, BinaryRoundTripKeepsEveryKind) {
  const PropertyValue value(PropertyDictionary{{"string", u"Grüße \U0001F600"},
                                               {"negative", std::int64_t{-5}},
                                               {"real", 2.5},
                                               {"flag", true},
                                               {"date", Date{1700000000123456}},
                                               {"data", Data{0, 1, 2, 255}},
                                               {"array", PropertyArray{u"a", u"b"}}});
  std::optional<Data> bytes = binaryPropertyList(value);
  ASSERT_TRUE(bytes && bytes->size() > 8);
  EXPECT_EQ(std::string(bytes->begin(), bytes->begin() + 8), "bplist00");
  EXPECT_EQ(propertyListFromBytes(*bytes), value);
}

// A binary list of nested one-element arrays; `cycle` points the innermost back at the top.
std::string binaryArrayChain(std::uint32_t depth, bool cycle = false) {
  auto bigEndian = [](std::string& out, std::uint64_t value, int size) {
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) out += char((value >> shift) & 0xFF);
  };
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (std::uint32_t i = 0; i < depth; ++i) {
    offsets.push_back(out.size());
    out += '\xA1';
    bigEndian(out, i + 1 < depth ? i + 1 : (cycle ? 0 : depth), 4);
  }
  offsets.push_back(out.size());
  out += '\xA0';  // the innermost empty array
  const std::uint64_t table = out.size();
  for (std::uint64_t offset : offsets) bigEndian(out, offset, 4);
  out += std::string(6, '\0');
  out += '\x04';  // offset size
  out += '\x04';  // reference size
  bigEndian(out, offsets.size(), 8);
  bigEndian(out, 0, 8);
  bigEndian(out, table, 8);
  return out;
}

// Each array holds the next one twice: 2^depth values from a few hundred bytes.
std::string binaryDoublingChain(std::uint32_t depth) {
  std::string out = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (std::uint32_t i = 0; i < depth; ++i) {
    offsets.push_back(out.size());
    out += '\xA2';
    out += static_cast<char>(i + 1);
    out += static_cast<char>(i + 1);
  }
  offsets.push_back(out.size());
  out += '\xA0';
  const std::uint64_t table = out.size();
  for (std::uint64_t offset : offsets) out += static_cast<char>(offset);
  out += std::string(6, '\0');
  out += '\x01';
  out += '\x01';
  for (std::uint64_t value : {std::uint64_t{offsets.size()}, std::uint64_t{0}, table})
    for (int shift = 56; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xFF);
  return out;
}

TEST(PropertyList, BinaryKeepsNulUnitsAndTheWholeIntegerRange) {
  const PropertyValue value(
      PropertyDictionary{{"ascii", u"Before\0After"s},
                         {"wide", u"Gr\u00FC\0\u00DFe"s},
                         {std::string("key\0with NUL", 12), u"v"},
                         {"largest unsigned", std::uint64_t{18446744073709551615u}},
                         {"above the signed range", std::uint64_t{9223372036854775808u}},
                         {"smallest", std::numeric_limits<std::int64_t>::min()},
                         {"long string", PropertyValue(TextString(70000, u'x'))},
                         {"before 2001", Date{-1234567}}});
  std::optional<Data> bytes = binaryPropertyList(value);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(propertyListFromBytes(*bytes), value);

  // Written by another program (Python's plistlib): the same reading.
  const std::string python(
      "\x62\x70\x6c\x69\x73\x74\x30\x30\xd5\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x51"
      "\x64\x51\x6e\x51\x73\x51\x75\x51\x78\x33\x41\xc1\xde\xca\x92\x80\x00\x00\x13\xff"
      "\xff\xff\xff\xff\xff\xff\xfe\x5c\x42\x65\x66\x6f\x72\x65\x00\x41\x66\x74\x65\x72"
      "\x14\x00\x00\x00\x00\x00\x00\x00\x00\xff\xff\xff\xff\xff\xff\xff\xff\xa3\x0b\x0c"
      "\x0d\x23\x3f\xf8\x00\x00\x00\x00\x00\x00\x09\x42\x00\x01\x08\x13\x15\x17\x19\x1b"
      "\x1d\x26\x2f\x3c\x4d\x51\x5a\x5b\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00"
      "\x00\x00\x00\x0e\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x5e",
      140);
  std::optional<PropertyValue> read = propertyListFromBytes(bytesOf(python));
  ASSERT_TRUE(read && read->dictionary());
  const PropertyDictionary& entries = *read->dictionary();
  EXPECT_EQ(entries.at("s"), PropertyValue(u"Before\0After"s));
  EXPECT_EQ(entries.at("u"), PropertyValue(std::uint64_t{18446744073709551615u}));
  EXPECT_EQ(entries.at("n"), PropertyValue(std::int64_t{-2}));
  EXPECT_EQ(entries.at("d"), PropertyValue(Date{1577934245000000}));
  EXPECT_EQ(entries.at("x"), PropertyValue(PropertyArray{1.5, true, Data{0, 1}}));
}

TEST(PropertyList, NestingWithinTheLimitIsRead) {
  auto value = propertyListFromBytes(bytesOf(binaryArrayChain(100)));
  ASSERT_TRUE(value);
  EXPECT_TRUE(value->isArray());
  EXPECT_TRUE(
      propertyListFromBytes(bytesOf("<plist><array><array/><dict></dict></array></plist>")));
}

std::string repeated(std::string_view piece, int times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (int i = 0; i < times; ++i) out += piece;
  return out;
}

TEST(PropertyList, MalformedAndHostileInputAnswersNothing) {
  const std::string deep = repeated("<array>", 200000) + repeated("</array>", 200000);
  const std::string prologue = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>URL</key>";
  const std::string closing = repeated("</array>", 200000) + "</dict></plist>";
  const std::pair<const char*, std::string> rows[] = {
      {"empty", ""},
      {"bplist prefix only", "bplist"},
      {"truncated header", "bplist00\x01\x02"},
      {"garbage", "not a property list at all"},
      // libplist recurses once per level: such lists overflowed the stack.
      {"XML nested 200000 deep", "<plist version=\"1.0\">" + deep + "</plist>"},
      // A depth guard that scanned tags counted these closing tags and let the list through.
      {"closing tags in comments", prologue + repeated("<array><!--</array>-->", 200000) + closing},
      {"closing tags in CDATA",
       prologue + repeated("<array><![CDATA[</array>]]>", 200000) + closing},
      {"closing tags in instructions",
       prologue + repeated("<array><?x </array>?>", 200000) + closing},
      {"deep, then not well-formed", "<plist>" + repeated("<array>", 200000) + "&undefined;"},
      {"OpenStep nested 200000 deep", repeated("(", 200000) + repeated(")", 200000)},
      {"OpenStep dictionaries nested 200000 deep",
       repeated("{a=", 200000) + repeated(";}", 200000)},
      {"binary nested 200000 deep", binaryArrayChain(200000)},
      {"binary array holding itself", binaryArrayChain(3, true)},
      {"binary shared objects expanding to 2^60 values", binaryDoublingChain(60)},

  };
  for (const auto& [name, bytes] : rows)
    EXPECT_FALSE(propertyListFromBytes(bytesOf(bytes))) << name;

  // A fuzzing find that made libplist abort: a dictionary key holding a NUL unit is now read.
  const std::string nulKey(
      "\x62\x70\x6c\x69\x73\x74\x30\x30\xd2\x01\x02\x03\x04\x54\x4c\x61\x55\x65\x6d\x53"
      "\x72\x4e\x51\x3d\x23\x5f\x10\x15\x68\x74\x74\x70\x73\x3a\x2f\x2f\x65\x78\x01\x00"
      "\x00\x00\x00\x00\x00\x00\x67\x2f\x62\x08\x0d\x12\x16\x18\x00\x00\x00\x00\x00\x00"
      "\x01\x01\x00\x00\x00\x00\x00\x00\x00\x05\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x31",
      86);
  std::optional<PropertyValue> read = propertyListFromBytes(bytesOf(nulKey));
  ASSERT_TRUE(read && read->dictionary());
  EXPECT_EQ(read->dictionary()->size(), 2u);
}

TEST(PropertyList, MarkupInCommentsDoesNotCountAsNesting) {
  const std::string list =
      "<plist><array><!--" + repeated("<array>", 5000) + "--><string>kept</string></array></plist>";
  std::optional<PropertyValue> read = propertyListFromBytes(bytesOf(list));
  ASSERT_TRUE(read && read->array());
  EXPECT_EQ(*read, PropertyValue(PropertyArray{PropertyValue(u"kept")}));
}

TEST(PropertyList, ListsTooDeepAreLoggedWithTheirName) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  const std::string deep =
      "<plist>" + repeated("<array>", 1000) + repeated("</array>", 1000) + "</plist>";
  EXPECT_FALSE(propertyListFromBytes(bytesOf(deep), "/tmp/x.webloc"));
  EXPECT_FALSE(propertyListFromBytes(bytesOf(deep)));
  setLogSink({});
  EXPECT_EQ(lines, std::vector<std::string>{"Property list nested too deeply: /tmp/x.webloc"});
}

TEST(PropertyList, OpenStepListsAndStringsFiles) {
  const std::string utf16Strings =
      std::string("\xFF\xFE", 2) + std::string("\"\0a\0\"\0=\0\"\0\xFC\0\"\0;\0", 16);
  const std::vector<std::pair<std::string, PropertyValue>> rows = {
      {"{ CFBundleName = Viewer; CFBundleVersion = \"1.0\"; }",
       PropertyDictionary{{"CFBundleName", u"Viewer"}, {"CFBundleVersion", u"1.0"}}},
      {"// comment\n{ a = (1, \"two\", <0fbd 77>, {b = c;},); /* note */ }",
       PropertyDictionary{{"a", PropertyArray{u"1", u"two", Data{0x0F, 0xBD, 0x77},
                                              PropertyDictionary{{"b", u"c"}}}}}},
      {"\"Hello\" = \"Hallo \\\"Welt\\\"\\n\\U00e9\\101\";\n\"Same\";",
       PropertyDictionary{{"Hello", u"Hallo \"Welt\"\néA"}, {"Same", u"Same"}}},
      {"\xEF\xBB\xBF\"k\" = \"v\";", PropertyDictionary{{"k", u"v"}}},
      {utf16Strings, PropertyDictionary{{"a", u"ü"}}},
      {"(  )", PropertyArray{}},
      {"\"just a string\"", PropertyValue(u"just a string")},
      {"{}", PropertyDictionary{}},
  };
  for (const auto& [text, expected] : rows) {
    std::optional<PropertyValue> value = propertyListFromBytes(bytesOf(text));
    ASSERT_TRUE(value) << text;
    EXPECT_EQ(*value, expected) << text;
  }

  std::string deep(100000, '(');
  const std::pair<const char*, std::string> refused[] = {
      {"bare word", "hello"},
      {"sentence", "hello world"},
      {"missing semicolon", "{ a = b }"},
      {"unterminated string", "{ a = \"b; }"},
      {"odd hex digits", "<0fb>"},
      {"unclosed array", "(a, b"},
      {"nested 100000 deep", deep},
      {"XML-looking", "<?xml version=\"1.0\"?><plist><string>x</plist>"},
  };
  for (const auto& [name, bytes] : refused)
    EXPECT_FALSE(propertyListFromBytes(bytesOf(bytes))) << name;
}

TEST(PropertyList, XmlIsReadAndLoneSurrogatesAreNotWritten) {
  auto value = propertyListFromBytes(
      bytesOf("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>URL</key>"
              "<string>https://example.org/</string></dict></plist>"));
  EXPECT_EQ(value, PropertyValue(PropertyDictionary{{"URL", u"https://example.org/"}}));
  std::string message;
  EXPECT_FALSE(binaryPropertyList(PropertyValue(TextString(1, char16_t(0xDC00))), &message));
  EXPECT_FALSE(message.empty());
}

}  // namespace
}  // namespace ulvek
