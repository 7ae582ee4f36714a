// Paths inside a book: links resolved against their document, and never out of the book.

#include "readers/epub/epub_paths.h"

#include <gtest/gtest.h>

namespace ulvek {
namespace {

const char* const kNone = "(none)";

std::string shown(const std::optional<std::string>& value) { return value ? *value : kNone; }

TEST(EPUBPaths, ResolvedMemberPaths) {
  struct Row {
    const char* base;
    const char* link;
    const char* expected;
  };
  const Row rows[] = {
      {"OEBPS/Text/ch1.xhtml", "ch2.xhtml", "OEBPS/Text/ch2.xhtml"},
      {"OEBPS/Text/ch1.xhtml", "../Images/a.png", "OEBPS/Images/a.png"},
      {"OEBPS/Text/ch1.xhtml", "./sub/../b.png", "OEBPS/Text/b.png"},
      {"OEBPS/Text/ch1.xhtml", "ch2.xhtml#note?x", "OEBPS/Text/ch2.xhtml"},
      {"OEBPS/Text/ch1.xhtml", "#note", "OEBPS/Text/ch1.xhtml"},
      {"OEBPS/Text/ch1.xhtml", "  ch%202.xhtml ", "OEBPS/Text/ch 2.xhtml"},
      {"ch1.xhtml", "img/a.png", "img/a.png"},
      {"OEBPS/Text/ch1.xhtml", "../../../etc/passwd", kNone},
      {"ch1.xhtml", "../x", kNone},
      {"OEBPS/ch1.xhtml", "/etc/passwd", kNone},
      {"OEBPS/ch1.xhtml", "http://example.com/a.png", kNone},
      {"OEBPS/ch1.xhtml", "data:image/png;base64,AAAA", kNone},
      {"OEBPS/ch1.xhtml", "mailto:a@b.c", kNone},
      {"OEBPS/ch1.xhtml", "a%zz.png", kNone},
      {"OEBPS/ch1.xhtml", "a%FF.png", kNone},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.base) + " + " + row.link);
    EXPECT_EQ(shown(resolvedMemberPath(row.base, row.link)), row.expected);
  }
}

TEST(EPUBPaths, NormalizedAndRelativePaths) {
  struct Row {
    const char* path;
    const char* folder;
    const char* normalized;
    const char* relative;  // of the normalized path to the folder
  };
  const Row rows[] = {
      {"a/b/c.xhtml", "a", "a/b/c.xhtml", "b/c.xhtml"},
      {"a//./b/../c.xhtml", "", "a/c.xhtml", "a/c.xhtml"},
      {"EPUB/text/ch.xhtml", "EPUB/nav", "EPUB/text/ch.xhtml", "../text/ch.xhtml"},
      {"x.xhtml", "a/b", "x.xhtml", "../../x.xhtml"},
      {"a/..", "", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    std::optional<std::string> normalized = normalizedMemberPath(row.path);
    ASSERT_TRUE(normalized);
    EXPECT_EQ(*normalized, row.normalized);
    EXPECT_EQ(relativeMemberPath(*normalized, row.folder), row.relative);
  }
  EXPECT_FALSE(normalizedMemberPath("a/../../b"));
}

TEST(EPUBPaths, FragmentsSchemesAndNames) {
  EXPECT_EQ(withoutFragment("a.xhtml#x"), "a.xhtml");
  EXPECT_EQ(withoutFragment("a.xhtml#!/4"), "a.xhtml#!/4");
  EXPECT_EQ(withoutFragment("a.xhtml#/"), "a.xhtml");
  EXPECT_TRUE(hasURLScheme("HTTP://x"));
  EXPECT_TRUE(hasURLScheme("x-y.z+w:rest"));
  EXPECT_FALSE(hasURLScheme("a/b:c"));
  EXPECT_FALSE(hasURLScheme(":x"));
  EXPECT_FALSE(hasURLScheme("1a:x"));
  EXPECT_EQ(memberName("a/b/c.xhtml"), "c.xhtml");
  EXPECT_EQ(memberFolder("a/b/c.xhtml"), "a/b");
  EXPECT_EQ(memberFolder("c.xhtml"), "");
}

}  // namespace
}  // namespace ulvek
