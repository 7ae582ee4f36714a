#include "base/ascii.h"

#include <gtest/gtest.h>

#include <vector>

namespace ulvek {
namespace {

// Only the 52 ASCII letters fold: neighbours of the letter ranges and UTF-8 bytes stay apart.
TEST(Ascii, ComparisonsFoldOnlyAsciiLetters) {
  struct Row {
    const char* name;
    std::string_view text, other;
    bool equal, prefix, suffix;  // other against text as a whole, at its start, at its end
  };
  const std::vector<Row> rows = {
      {"same", "abc", "abc", true, true, true},
      {"case differs", "TextBundle", "textbundle", true, true, true},
      {"empty other", "abc", "", false, true, true},
      {"both empty", "", "", true, true, true},
      {"other longer", "ab", "abc", false, false, false},
      {"prefix only", "BEGIN:VCARD\r", "begin:vcard", false, true, false},
      {"suffix only", "notes.TEXTPACK", ".textpack", false, false, true},
      {"@ is not `", "@", "`", false, false, false},
      {"[ is not {", "a[", "A{", false, false, false},
      {"UTF-8 letters keep case", "\xC3\xA9", "\xC3\x89", false, false, false},
      {"UTF-8 bytes equal", "\xC3\xA9t\xC3\xA9", "\xC3\xA9T\xC3\xA9", true, true, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(equalsIgnoringASCIICase(row.text, row.other), row.equal);
    EXPECT_EQ(startsWithIgnoringASCIICase(row.text, row.other), row.prefix);
    EXPECT_EQ(endsWithIgnoringASCIICase(row.text, row.other), row.suffix);
  }
}

TEST(Ascii, CaseMappingLeavesAllButLettersAlone) {
  struct Row {
    std::string_view text, lower, upper;
  };
  const std::vector<Row> rows = {
      {"", "", ""},
      {"MiXeD 09", "mixed 09", "MIXED 09"},
      {"@[`{", "@[`{", "@[`{"},
      {"\xC3\xA9\xC3\x89", "\xC3\xA9\xC3\x89", "\xC3\xA9\xC3\x89"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(asciiLowercase(row.text), row.lower);
    EXPECT_EQ(asciiUppercase(row.text), row.upper);
  }
  // Wider units: letters fold, the fullwidth and Latin-1 letters do not.
  EXPECT_EQ(asciiLower(u'Q'), u'q');
  EXPECT_EQ(asciiUpper(u'\u00E9'), u'\u00E9');
  EXPECT_EQ(asciiLower(u'\uFF21'), u'\uFF21');
}

TEST(Ascii, HexDigitValues) {
  const std::vector<std::pair<char32_t, int>> rows = {
      {'0', 0}, {'9', 9}, {'a', 10}, {'F', 15}, {'g', -1}, {'/', -1}, {U'\uFF10', -1}};
  for (const auto& [c, value] : rows) EXPECT_EQ(hexDigitValue(c), value) << int(c);
}

}  // namespace
}  // namespace ulvek

namespace ulvek {
namespace {

TEST(Ascii, NonEmptyPartsBetweenSeparators) {
  const std::vector<std::pair<std::string_view, std::vector<std::string_view>>> rows = {
      {"a/b/c", {"a", "b", "c"}}, {"//a//b/", {"a", "b"}}, {"", {}}, {"/", {}},
      {"one", {"one"}},           {"../x", {"..", "x"}},
  };
  for (const auto& [text, parts] : rows) EXPECT_EQ(nonEmptyParts(text, '/'), parts) << text;
  EXPECT_EQ(nonEmptyParts("/a::/b:", ':'), (std::vector<std::string_view>{"/a", "/b"}));
}

}  // namespace
}  // namespace ulvek
