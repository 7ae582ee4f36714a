#include "importers/importer_corrections.h"

#include <gtest/gtest.h>

#include <string>

namespace ulvek {
namespace {

constexpr const char* kText = "kMDItemTextContent";
constexpr const char* kNotes = "com_literatureandlatte_scapple_noteText";

TEST(ImporterCorrections, EachKindByItsSuffix) {
  struct Row {
    const char* name;
    std::string path;
    PropertyDictionary answer;
    PropertyDictionary corrected;
  };
  const PropertyDictionary placeholders = {{"kMDItemTitle", u"<title>"},
                                           {"kMDItemAuthors", PropertyArray{u"<author>"}},
                                           {"kMDItemKeywords", PropertyArray{u"<a>", u"<b>"}},
                                           {"kMDItemComment", u"<not one word>"},
                                           {kText, u"Real text"}};
  const Row rows[] = {
      {"Mellel placeholders go",
       "/d/Story.MELLEL",
       placeholders,
       {{"kMDItemKeywords", PropertyArray{u"<a>", u"<b>"}},
        {"kMDItemComment", u"<not one word>"},
        {kText, u"Real text"}}},
      {"other kinds keep them", "/d/Story.txt", placeholders, placeholders},
      {"web archive HTML becomes text",
       "/d/page.mht",
       {{kText, u"<p>One &amp; two</p>"}},
       {{kText, u"One & two\n\n"}}},
      {"Scapple notes become the text",
       "/d/board.scap",
       {{kNotes, PropertyArray{u"first", u"second"}}},
       {{kNotes, PropertyArray{u"first", u"second"}}, {kText, u"first\nsecond"}}},
      {"a Scapple text wins over notes",
       "/d/board.scap",
       {{kNotes, PropertyArray{u"first"}}, {kText, u"own"}},
       {{kNotes, PropertyArray{u"first"}}, {kText, u"own"}}},
      {"Scapple notes that are not all text are left",
       "/d/board.scap",
       {{kNotes, PropertyArray{u"first", PropertyValue(std::int64_t{2})}}},
       {{kNotes, PropertyArray{u"first", PropertyValue(std::int64_t{2})}}}},
  };
  for (const Row& row : rows) {
    PropertyDictionary answer = row.answer;
    correctImporterAnswer(answer, row.path);
    EXPECT_EQ(answer, row.corrected) << row.name;
  }
}

}  // namespace
}  // namespace ulvek
