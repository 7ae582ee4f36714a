#include "service/json.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

namespace ulvek {
namespace {

TEST(JsonTest, ValuesAsJson) {
  struct Row {
    const char* name;
    PropertyValue value;
    std::string json;
  };
  const std::vector<Row> rows = {
      {"quote and backslash", u"say \"hi\" \\o/", R"("say \"hi\" \\o/")"},
      {"common control characters", u"a\nb\tc\rd\be\ff", R"("a\nb\tc\rd\be\ff")"},
      {"other control characters", TextString(u"\0\u0001\u001F", 3), R"("\u0000\u0001\u001f")"},
      {"non-ASCII as UTF-8", u"caf\u00E9 \U0001F600", "\"caf\xC3\xA9 \xF0\x9F\x98\x80\""},
      {"lone surrogate", TextString(u"a") + char16_t(0xD800), "\"a\xEF\xBF\xBD\""},
      {"line and paragraph separators", u"a\u2028b\u2029", R"("a\u2028b\u2029")"},
      {"signed minimum", std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {"unsigned maximum", std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {"unsigned beyond double precision", std::uint64_t{9007199254740993}, "9007199254740993"},
      {"real that is whole", 3.0, "3.0"},
      {"real with exponent", 1e300, "1e+300"},
      {"real infinity", std::numeric_limits<double>::infinity(), "null"},
      {"real not a number", std::numeric_limits<double>::quiet_NaN(), "null"},
      {"data padded twice", Data{'f'}, R"("Zg==")"},
      {"data high bytes", Data{0xFF, 0xFE, 0x00, 0xFB}, R"("//4A+w==")"},
      {"array", PropertyArray{u"", 1, true, false, Data{}, PropertyArray{}},
       R"(["",1,true,false,"",[]])"},
      {"dictionary sorted", PropertyDictionary{{"b", 2}, {"a", 1}, {"B", 0}},
       R"({"B":0,"a":1,"b":2})"},
      {"dictionary keys repaired and escaped",
       PropertyDictionary{{std::string("k\xFF", 2), 1}, {"a\"b\n", u"v"}},
       "{\"a\\\"b\\n\":\"v\",\"k\xEF\xBF\xBD\":1}"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(toJson(row.value), row.json) << row.name;
    std::ostringstream streamed;
    writeJson(streamed, row.value);
    EXPECT_EQ(streamed.str(), row.json) << row.name;
  }
}

// A text longer than one conversion slice, with a surrogate pair and an escape on the seam.
TEST(JsonTest, LongTextStreamsAsOneString) {
  TextString text(65535, u'a');
  text += u"\U0001F600\n";
  text += TextString(70000, u'b');
  std::string expected =
      "\"" + std::string(65535, 'a') + "\xF0\x9F\x98\x80\\n" + std::string(70000, 'b') + "\"";
  EXPECT_EQ(toJson(PropertyValue(text)), expected);
  std::ostringstream streamed;
  writeJson(streamed, PropertyValue(text));
  EXPECT_EQ(streamed.str(), expected);
}

TEST(JsonTest, DatesAsIsoUtcWithMicroseconds) {
  const std::pair<std::int64_t, const char*> rows[] = {
      {0, "1970-01-01T00:00:00.000000Z"},
      {1'700'000'000'123'456, "2023-11-14T22:13:20.123456Z"},
      {-1, "1969-12-31T23:59:59.999999Z"},
      {-62'167'219'200'000'001, "-0001-12-31T23:59:59.999999Z"},
      {253'402'300'800'000'000, "+10000-01-01T00:00:00.000000Z"},
      {std::numeric_limits<std::int64_t>::max(), "+294247-01-10T04:00:54.775807Z"},
      {std::numeric_limits<std::int64_t>::min(), "-290308-12-21T19:59:05.224192Z"},
  };
  for (const auto& [microseconds, text] : rows) {
    EXPECT_EQ(isoDateString(Date{microseconds}), text);
    EXPECT_EQ(toJson(PropertyValue(Date{microseconds})), std::string("\"") + text + "\"");
  }
}

// Result keys in the record's fixed order, then unknown keys sorted.
TEST(JsonTest, ResultKeyOrder) {
  ImportResult result = ImportResult::fromValues({{"Zeta", 1},
                                                  {"Alpha", 2},
                                                  {"Phone", u"555"},
                                                  {"FileSize", std::uint64_t{12}},
                                                  {"Text", u"body"},
                                                  {"Title", u"T"},
                                                  {"Creation", Date{0}}});
  EXPECT_EQ(toJson(result),
            R"({"Title":"T","Text":"body","FileSize":12,"Creation":"1970-01-01T00:00:00.000000Z",)"
            R"("Phone":"555","Alpha":2,"Zeta":1})");
  EXPECT_EQ(toJson(ImportResult()), "{}");
}

}  // namespace
}  // namespace ulvek
