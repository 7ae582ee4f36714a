#include "service/json.h"

#include <gtest/gtest.h>

#include <limits>

namespace ulvek {
namespace {

struct Row {
  const char* name;
  PropertyValue value;
  std::string json;
};

TEST(JsonTest, ValuesAsJson) {
  const std::vector<Row> rows = {
      {"plain string", u"Title", R"("Title")"},
      {"empty string", u"", R"("")"},
      {"quote and backslash", u"say \"hi\" \\o/", R"("say \"hi\" \\o/")"},
      {"common control characters", u"a\nb\tc\rd\be\ff", R"("a\nb\tc\rd\be\ff")"},
      {"other control characters", TextString(u"\0\u0001\u001F", 3), R"("\u0000\u0001\u001f")"},
      {"DEL stays", u"\u007F", "\"\x7F\""},
      {"non-ASCII as UTF-8", u"caf\u00E9 \u20AC", "\"caf\xC3\xA9 \xE2\x82\xAC\""},
      {"astral character", u"\U0001F600", "\"\xF0\x9F\x98\x80\""},
      {"lone high surrogate", TextString(u"a") + char16_t(0xD800) + u"b",
       "\"a\xEF\xBF\xBD"
       "b\""},
      {"lone low surrogate", TextString{char16_t(0xDC00)}, "\"\xEF\xBF\xBD\""},
      {"line and paragraph separators", u"a\u2028b\u2029", R"("a\u2028b\u2029")"},
      {"signed minimum", std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {"signed zero", 0, "0"},
      {"unsigned maximum", std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {"unsigned beyond double precision", std::uint64_t{9007199254740993}, "9007199254740993"},
      {"real", 0.5, "0.5"},
      {"real that is whole", 3.0, "3.0"},
      {"real shortest form", 0.1, "0.1"},
      {"real with exponent", 1e300, "1e+300"},
      {"real infinity", std::numeric_limits<double>::infinity(), "null"},
      {"real not a number", std::numeric_limits<double>::quiet_NaN(), "null"},
      {"true", true, "true"},
      {"false", false, "false"},
      {"data empty", Data{}, R"("")"},
      {"data one byte", Data{'f'}, R"("Zg==")"},
      {"data two bytes", Data{'f', 'o'}, R"("Zm8=")"},
      {"data three bytes", Data{'f', 'o', 'o'}, R"("Zm9v")"},
      {"data high bytes", Data{0xFF, 0xFE, 0x00, 0xFB}, R"("//4A+w==")"},
      {"array", PropertyArray{u"a", 1, true, PropertyArray{}}, R"(["a",1,true,[]])"},
      {"dictionary sorted", PropertyDictionary{{"b", 2}, {"a", 1}, {"B", 0}},
       R"({"B":0,"a":1,"b":2})"},
      {"dictionary key not UTF-8", PropertyDictionary{{std::string("k\xFF", 2), 1}},
       "{\"k\xEF\xBF\xBD\":1}"},
      {"dictionary key escaped", PropertyDictionary{{"a\"b\n", u"v"}}, R"({"a\"b\n":"v"})"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(toJson(row.value), row.json);
  }
}

TEST(JsonTest, DatesAsIsoUtcWithMicroseconds) {
  struct DateRow {
    const char* name;
    std::int64_t microseconds;
    const char* text;
  };
  const std::vector<DateRow> rows = {
      {"epoch", 0, "1970-01-01T00:00:00.000000Z"},
      {"with microseconds", 1'700'000'000'123'456, "2023-11-14T22:13:20.123456Z"},
      {"one microsecond before epoch", -1, "1969-12-31T23:59:59.999999Z"},
      {"one day before epoch", -86'400'000'000, "1969-12-31T00:00:00.000000Z"},
      {"leap day", 951'782'400'000'000, "2000-02-29T00:00:00.000000Z"},
      {"year one", -62'135'596'800'000'000, "0001-01-01T00:00:00.000000Z"},
      {"year zero", -62'167'219'200'000'000, "0000-01-01T00:00:00.000000Z"},
      {"before year zero", -62'167'219'200'000'001, "-0001-12-31T23:59:59.999999Z"},
      {"year ten thousand", 253'402'300'800'000'000, "+10000-01-01T00:00:00.000000Z"},
      {"largest", std::numeric_limits<std::int64_t>::max(), "+294247-01-10T04:00:54.775807Z"},
      {"smallest", std::numeric_limits<std::int64_t>::min(), "-290308-12-21T19:59:05.224192Z"},
  };
  for (const DateRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(isoDateString(Date{row.microseconds}), row.text);
    EXPECT_EQ(toJson(PropertyValue(Date{row.microseconds})), std::string("\"") + row.text + "\"");
  }
}

TEST(JsonTest, ResultKeysFollowTheFixedOrder) {
  ImportResult result;
  result.putOrRemove(ImportKey::Phone, PropertyValue(u"555"));
  result.putOrRemove(ImportKey::FileSize, PropertyValue(std::uint64_t{12}));
  result.putOrRemove(ImportKey::Text, PropertyValue(u"body"));
  result.putOrRemove(ImportKey::Title, PropertyValue(u"T"));
  result.putOrRemove(ImportKey::Creation, PropertyValue(Date{0}));
  EXPECT_EQ(toJson(result),
            R"({"Title":"T","Text":"body","FileSize":12,"Creation":"1970-01-01T00:00:00.000000Z",)"
            R"("Phone":"555"})");
  EXPECT_EQ(toJson(ImportResult()), "{}");
}

TEST(JsonTest, UnknownResultKeysComeLastInSortedOrder) {
  ImportResult result = ImportResult::fromValues(
      {{"Zeta", 1}, {"Alpha", 2}, {std::string(ImportKey::URL), PropertyValue(u"u")}});
  EXPECT_EQ(toJson(result), R"({"URL":"u","Alpha":2,"Zeta":1})");
}

}  // namespace
}  // namespace ulvek
