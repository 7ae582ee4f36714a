#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "base/deadline.h"
#include "metadata/metadata_store.h"
#include "readers/wordperfect/sheet.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using Rows = std::vector<std::vector<std::string>>;

Rows utf8Rows(const Sheet& sheet) {
  Rows rows;
  for (std::size_t row = 0; row < sheet.size(); ++row) {
    rows.emplace_back();
    for (const TextString& field : sheet.row(row)) rows.back().push_back(toUtf8(field));
  }
  return rows;
}

TEST(Sheet, DelimitedText) {
  struct Row {
    std::string name;
    std::u16string text;
    bool quoted;
    Rows expected;
    std::size_t columns;
    bool definition;
    std::size_t maxRows = kNoRowLimit;
  };
  const std::vector<Row> rows = {
      {"commas in a .tsv", u"a,b,c\n1,2,3\n", true, {{"a", "b", "c"}, {"1", "2", "3"}}, 3, false},
      {"semicolons and an empty line", u"a;b\n\nc;d", true, {{"a", "b"}, {"c", "d"}}, 2, false},
      {"empty fields before a line end", u"a,,\n,,\n", true, {{"a", ""}}, 2, false},
      {"quoted fields", u"\"x, y\",\"say \"\"hi\"\"\"", true, {{"x, y", "say \"hi\""}}, 2, false},
      {"no final line break", u"a,b", true, {{"a", "b"}}, 2, false},
      {"final separator", u"a,b,", true, {{"a", "b"}}, 2, false},
      {"tabs win", u"a\tb,c\td\n", true, {{"a", "b,c", "d"}}, 3, false},
      {"quoted line breaks", u"\"one\ntwo\",x\n", true, {{"one\ntwo", "x"}}, 2, false},
      {"CR LF", u"a,b\r\nc,d\r\n", true, {{"a", "b"}, {"c", "d"}}, 2, false},
      {"other terminators",
       u"a\u2028b\u2029c\x03"
       u"d",
       true,
       {{"a"}, {"b"}, {"c"}, {"d"}},
       1,
       false},
      {"quotes without quoting", u"\"a,b\"\n", false, {{"\"a", "b\""}}, 2, false},
      // Every double quote flips the state the separators are counted in.
      {"quote inside a field", u"a\"b,c\n", true, {{"a\"b,c"}}, 1, false},
      {"text after the closing quote", u"\"a\"b,c\n", true, {{"\"a\"b", "c"}}, 2, false},
      {"doubled quote before separator closes",
       u"1,\"{\"\"a\"\", \"\"b\"\"}\"\n",
       true,
       {{"1", "{\"a\"", " \"\"b\"\"}\""}},
       3,
       false},
      {"empty quoted field", u"\"\",x\n", true, {{"", "x"}}, 2, true},
      {"every first field empty", u",a\n,b\n", true, {{"", "a"}, {"", "b"}}, 2, true},
      {"empty text", u"", true, {}, 0, true},
      {"unbalanced quote runs to the end", u"\"open,a\nb,c", true, {{"\"open,a\nb,c"}}, 1, false},
      {"NUL units",
       std::u16string(u"a\0b,c\n", 6),
       true,
       {{std::string("a\0b", 3), "c"}},
       2,
       false},
      {"mixed line ends", u"a\rb\nc\r\nd", true, {{"a"}, {"b"}, {"c"}, {"d"}}, 1, false},
      {"row limit", u"a\nb\nc\n", true, {{"a"}, {"b"}}, 1, false, 2},
      {"row limit of zero keeps one row", u"a\nb\n", true, {{"a"}}, 1, false, 0},
  };
  for (const Row& row : rows) {
    std::size_t columns = 99;
    bool definition = !row.definition;
    Sheet sheet =
        valuesSeparatedByTab(row.text, false, row.quoted, row.maxRows, &columns, &definition);
    EXPECT_EQ(utf8Rows(sheet), row.expected) << row.name;
    EXPECT_EQ(columns, row.columns) << row.name;
    EXPECT_EQ(definition, row.definition) << row.name;
  }
}

TEST(Sheet, HugeInputStaysLinear) {
  std::u16string wide;
  for (int i = 0; i < 1000000; ++i) wide += u"x,";
  std::size_t columns = 0;
  Sheet sheet = valuesSeparatedByTab(wide, false, true, kNoRowLimit, &columns);
  EXPECT_EQ(columns, 1000000u);
  std::u16string quotes(2000000, u'"');
  (void)valuesSeparatedByTab(quotes, false, true, kNoRowLimit);
}

TEST(Sheet, APassedDeadlineKeepsTheRowsSoFar) {
  std::u16string text;
  for (int i = 0; i < 100000; ++i) text += u"a,b\n";
  for (const testing::DeadlineCase& row : testing::kDeadlineCases) {
    SCOPED_TRACE(row.name);
    testing::CapturedLog log;
    ReadingDeadline deadline(row.limit);
    Sheet sheet = valuesSeparatedByTab(text, false, true, kNoRowLimit);
    EXPECT_EQ(sheet.size() == 100000u, row.whole) << sheet.size();
    for (std::size_t i = 0; i < sheet.size(); ++i) {
      ASSERT_EQ(sheet.row(i), (SheetRow{u"a", u"b"})) << "row " << i << " whole";
    }
    EXPECT_EQ(log.contains("Time limit reached"), !row.whole);
  }
}

TEST(Sheet, Files) {
  testing::TemporaryFolder folder;
  struct Row {
    std::string name;
    std::string file;
    std::string bytes;
    Rows expected;
    bool definition;
    std::size_t columns;
  };
  const std::vector<Row> rows = {
      {"csv", "a.CSV", "a,b\n1,2\n", {{"a", "b"}, {"1", "2"}}, false, 2},
      {"id2xf keeps quotes", "a.id2xf", "\"a\"\tb\n", {{"\"a\"", "b"}}, true, 2},
      {"bibtex",
       "a.bib",
       "@book{k1, author = {A}} @misc{k2, year = 1}",
       {{"@", "author", "year"}, {"k1", "A", ""}, {"k2", "", "1"}},
       true,
       3},
  };
  for (const Row& row : rows) {
    bool definition = false;
    std::size_t columns = 0;
    std::optional<Sheet> sheet = sheetWithContentsOfFile(
        folder.write(row.file, row.bytes), kUTF8StringEncoding, kNoRowLimit, &definition, &columns);
    ASSERT_TRUE(sheet) << row.name;
    EXPECT_EQ(utf8Rows(*sheet), row.expected) << row.name;
    EXPECT_EQ(definition, row.definition) << row.name;
    EXPECT_EQ(columns, row.columns) << row.name;
  }
  EXPECT_FALSE(sheetWithContentsOfFile(folder.write("a.txt", "a,b"), kUTF8StringEncoding, 9));
  EXPECT_EQ(sheetFormatOfFile("x.Tab"), SheetFormat::TabSeparated);
  EXPECT_EQ(sheetFormatOfFile("x.BIB"), SheetFormat::BibTeX);
  EXPECT_EQ(sheetFormatOfFile("x.vcf"), SheetFormat::None);
  EXPECT_TRUE(isFormFile("x.VCF"));

  std::string marked = folder.write("marked.tsv", "a\tb\n");
  if (!OVMetaDataStore::setObject(PropertyValue(true), "com.ulvek-technologies.tsv-header", marked,
                                  true)
           .ok())
    GTEST_SKIP() << "no extended attributes here";
  bool definition = false;
  ASSERT_TRUE(sheetWithContentsOfFile(marked, kUTF8StringEncoding, 9, &definition));
  EXPECT_TRUE(definition);
}

TEST(BibTeX, Entries) {
  struct Row {
    std::string name;
    std::u16string text;
    std::vector<std::map<std::string, std::string>> expected;
    std::vector<std::string> keys;
    std::optional<std::u16string> type = std::nullopt;
  };
  const std::vector<Row> rows = {
      {"macro",
       u"@string{jr = \"Junior\"} @book{k1, author = {Smith jr}, year = 2001}",
       {{{"@", "k1"}, {"author", "Smith Junior"}, {"year", "2001"}}},
       {"@", "author", "year"}},
      {"cleaning",
       u"@a{k, t = {A {B}\\'e \\& $x^{2}$ ``q'' \n  z}}",
       {{{"@", "k"}, {"t", "A Be 2 \"q\" z"}}},
       {"@", "t"}},
      {"quote in braces", u"@a(k, t = \"x{\"}\"y\")", {{{"@", "k"}, {"t", "x\""}}}, {"@", "t"}},
      {"no key", u"@a{t = 1}", {{{"t", "1"}}}, {"t"}},
      {"type filter",
       u"@book{k1, a = 1} @Article{k2, b = 2}",
       {{{"@", "k2"}, {"b", "2"}}},
       {"@", "b"},
       u"article"},
      {"missing comma",
       u"@a{k, t = {x}\n y = 2}",
       {{{"@", "k"}, {"t", "x"}, {"y", "2"}}},
       {"@", "t", "y"}},
      {"unbalanced braces", u"@a{k, t = {x {y}", {{{"@", "k"}, {"t", "x y"}}}, {"@", "t"}},
      {"entry without bracket", u"@comment nothing here", {}, {}},
      {"keys in order first seen",
       u"@a{k, z = 1, a = 2} @b{j, a = 3, m = 4}",
       {{{"@", "k"}, {"z", "1"}, {"a", "2"}}, {{"@", "j"}, {"a", "3"}, {"m", "4"}}},
       {"@", "z", "a", "m"}},
  };
  for (const Row& row : rows) {
    std::vector<TextString> keys;
    std::optional<TextView> type;
    if (row.type) type = *row.type;
    std::vector<std::map<std::string, std::string>> entries;
    for (const BibTeXEntry& entry : BibTeXEntriesNamed(row.text, type, &keys)) {
      entries.emplace_back();
      for (const auto& [name, value] : entry) entries.back()[toUtf8(name)] = toUtf8(value);
    }
    EXPECT_EQ(entries, row.expected) << row.name;
    std::vector<std::string> keyNames;
    for (const TextString& key : keys) keyNames.push_back(toUtf8(key));
    EXPECT_EQ(keyNames, row.keys) << row.name;
  }
}

TEST(BibTeX, HostileInput) {
  // Macros that double at every step are cut with a log line instead of growing for ever.
  std::u16string doubling = u"@string{a = {aaaa}}";
  std::u16string name = u"a";
  for (int i = 0; i < 40; ++i) {
    std::u16string next = u"m" + std::u16string(1, static_cast<char16_t>(u'A' + i % 26)) +
                          std::u16string(1, static_cast<char16_t>(u'a' + i / 26));
    doubling += u"@string{" + next + u" = {" + name + u" " + name + u"}}";
    name = next;
  }
  doubling += u"@a{k, t = " + name + u"}";
  CapturedLog log;
  std::vector<BibTeXEntry> entries = BibTeXEntriesNamed(doubling, std::nullopt);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_LE(entries[0].at(u"t").size(), std::size_t{1} << 16);
  EXPECT_TRUE(log.contains("macros expand too far"));

  // A long macro named in every unit of a long value: cut as it grows, not after.
  std::u16string wide = u"@string{q = {" + std::u16string(60000, u'x') + u"}}@a{k, t = {" +
                        std::u16string(60000, u'q') + u"}}";
  entries = BibTeXEntriesNamed(wide, std::nullopt);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].at(u"t"), std::u16string(std::size_t{1} << 16, u'x'));

  // Many values under a growing macro stop being expanded once the expansion budget is spent.
  std::u16string many = u"@string{0 = {00}}@string{1 = {0 0 0 0}}";
  for (int i = 0; i < 5000; ++i) many += u"@a{k, t = {" + std::u16string(300, u'1') + u"}}";
  EXPECT_EQ(BibTeXEntriesNamed(many, std::nullopt).size(), 5000u);

  std::u16string recursive = u"@string{a = b}@string{b = a}@x{k, t = a b}";
  EXPECT_EQ(BibTeXEntriesNamed(recursive, std::nullopt).at(0).at(u"t"), u"b b");

  std::u16string nested = u"@a{k, t = " + std::u16string(500000, u'{') + u"x";
  EXPECT_EQ(BibTeXEntriesNamed(nested, std::nullopt).at(0).at(u"t"), u"x");
}

TEST(Exporter, AppendDoubleQuotedField) {
  struct Row {
    std::optional<std::u16string> field;
    bool separator;
    std::u16string expected;
  };
  const std::vector<Row> rows = {
      {std::nullopt, true, u"\"\";"},
      {u"", false, u"\"\"\n"},
      {u"a", true, u"\"a\";"},
      {u"say \"hi\"", false, u"\"say \"\"hi\"\"\"\n"},
  };
  for (const Row& row : rows) {
    TextString text = u"x";
    std::optional<TextView> field;
    if (row.field) field = *row.field;
    appendDoubleQuotedField(text, field, row.separator);
    EXPECT_EQ(text, u"x" + row.expected);
  }
}

}  // namespace
}  // namespace ulvek
