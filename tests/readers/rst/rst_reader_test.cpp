#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "readers/rst/restructured_text.h"
#include "readers/rst/rst_reader.h"
#include "test_support.h"

namespace ulvek {
namespace {

std::vector<std::string> utf8(const std::vector<TextString>& items) {
  std::vector<std::string> result;
  for (const TextString& item : items) result.push_back(toUtf8(item));
  return result;
}

std::string utf8(const std::optional<TextString>& text) { return text ? toUtf8(*text) : "-"; }

// The header rules, one source each.
TEST(ReStructuredText, HeaderRules) {
  struct Row {
    const char* name;
    const char16_t* source;
    std::string title = "-";
    std::vector<std::string> authors = {};
    std::string subtitle = "-";
  };
  const Row rows[] = {
      {"underlined title", u"Harbour Log\n===========\n\nText.", "Harbour Log"},
      {"overlined title", u"###########\nHarbour Log\n###########\n", "Harbour Log"},
      {"CRLF lines", u"Harbour Log\r\n-----------\r\n", "Harbour Log"},
      {"underline shorter than the title", u"Harbour Log\n=====\n\nText."},
      {"overline and underline differ", u"====\nLog\n----\n"},
      {"paragraph first", u"Some words.\n\nTitle\n=====\n"},
      {"indented text is a quote", u"  Quote\n  =====\n"},
      {"transition alone", u"------\n\nText."},
      {"comments before the title", u"..\n   a long\n   comment\n\n.. _target:\n\nLog\n===\n",
       "Log"},
      {"a directive before the title", u".. meta::\n   :keywords: a\n\nLog\n===\n", "Log"},
      {"subtitle of another style", u"===\nLog\n===\n\nSub\n---\n", "Log", {}, "Sub"},
      {"same style is a section, not a subtitle", u"Log\n===\n\nNext\n====\n", "Log"},
      {"author field", u"Log\n===\n\n:Author: Ada Quill\n", "Log", {"Ada Quill"}},
      {"authors split at semicolons",
       u"Log\n===\n:Authors: Quill, Ada; Marsh, Ben\n",
       "Log",
       {"Quill, Ada", "Marsh, Ben"}},
      {"authors split at commas", u"Log\n===\n:Authors: Ada, Ben\n", "Log", {"Ada", "Ben"}},
      {"fields separated by blank lines", u"Log\n===\n:Date: x\n\n:Author: Ada\n", "Log", {"Ada"}},
      {"fields after body text are not the header", u"Log\n===\n\nText.\n\n:Author: Ada\n", "Log"},
      {"docinfo without a title", u":Author: Ada\n\nText.\n", "-", {"Ada"}},
      {"empty source", u""},
      {"title on the last line", u"Log"},
  };
  for (const Row& row : rows) {
    RstDocumentInfo info = rstDocumentInfo(row.source);
    EXPECT_EQ(utf8(info.title), row.title) << row.name;
    EXPECT_EQ(utf8(info.authors), row.authors) << row.name;
    EXPECT_EQ(utf8(info.subtitle), row.subtitle) << row.name;
  }
}

TEST(ReStructuredText, DatesAndMeta) {
  RstDocumentInfo info = rstDocumentInfo(
      u"Log\n===\n:Date: 2024-02-29 at noon\n\nText.\n\n.. meta::\n"
      u"   :keywords lang=en: moss, stream\n   :description: A log.\n");
  ASSERT_TRUE(info.date);
  EXPECT_EQ(info.date->microseconds, 1709164800LL * 1000000);
  EXPECT_EQ(utf8(info.keywords), (std::vector<std::string>{"moss", "stream"}));
  EXPECT_EQ(utf8(info.description), "A log.");
  for (const char16_t* date : {u"2023-02-29", u"24-01-01", u"2024-1-01", u"2024"})
    EXPECT_FALSE(rstDocumentInfo(u":Date: " + TextString(date)).date) << toUtf8(date);
}

std::string string(const std::optional<TextString>& value) { return value ? toUtf8(*value) : "-"; }

std::vector<std::string> strings(const std::optional<TextList>& list) {
  std::vector<std::string> result;
  for (const TextString& item : list.value_or(TextList())) result.push_back(toUtf8(item));
  return result;
}

// The fixtures of tests/data/rst (made by make_fixtures.py there), each against its answer.
TEST(ReStructuredTextReader, ReadsTheFixtures) {
  int read = 0;
  for (const auto& entry : std::filesystem::directory_iterator(testing::dataPath() / "rst")) {
    if (entry.path().extension() != ".rst") continue;
    SCOPED_TRACE(entry.path().string());
    auto expect = nlohmann::json::parse(testing::readFile(entry.path().string() + ".expect.json"));
    std::optional<ReaderOutput> output =
        reStructuredTextReader().read(ReaderSource::file(entry.path().string()));
    ASSERT_TRUE(output && output->text);
    EXPECT_EQ(string(output->title), expect.value("title", "-"));
    EXPECT_EQ(string(output->description), expect.value("description", "-"));
    EXPECT_EQ(string(output->copyright), expect.value("copyright", "-"));
    EXPECT_EQ(strings(output->authors), expect.value("authors", std::vector<std::string>{}));
    EXPECT_EQ(strings(output->keywords), expect.value("keywords", std::vector<std::string>{}));
    EXPECT_EQ(output->creation.has_value(), expect.contains("date"));
    for (const std::string& word : expect["words"])
      EXPECT_NE(toUtf8(*output->text).find(word), std::string::npos) << word;
    ++read;
  }
  EXPECT_EQ(read, 3);
}

}  // namespace
}  // namespace ulvek
