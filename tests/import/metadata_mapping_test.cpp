#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "import/mime_type_helper.h"
#include "protocol/import_result.h"
#include "readers/spotlight_attributes.h"

namespace ulvek {
namespace {

TEST(CopyHTMLMetaAttributes, PreferenceOrder) {
  struct Row {
    const char* name;
    HtmlMetaAttributes meta;
    PropertyDictionary expected;  // the whole result
  };
  const std::vector<Row> rows = {
      {"title beats og:title", {{u"og:title", u"OG"}, {u"title", u"Plain"}}, {{"Title", u"Plain"}}},
      {"dc.title beats title", {{u"title", u"Plain"}, {u"dc.title", u"DC"}}, {{"Title", u"DC"}}},
      {"dc.description, then dc.subject, description, og:description",
       {{u"description", u"D"}, {u"dc.subject", u"S"}, {u"dc.description", u"DD"}},
       {{"Description", u"DD"}}},
      {"dc.subject before description",
       {{u"description", u"D"}, {u"dc.subject", u"S"}, {u"og:description", u"O"}},
       {{"Description", u"S"}}},
      {"og:description last", {{u"og:description", u"O"}}, {{"Description", u"O"}}},
      {"dc.author beats author", {{u"author", u"A"}, {u"dc.author", u"B"}}, {{"Author", u"B"}}},
      {"keywords kept as one string, dc.keywords first",
       {{u"keywords", u"a, b c"}, {u"dc.keywords", u"d e"}},
       {{"Keywords", u"d e"}}},
      {"names are exact", {{u"Title", u"X"}, {u"dc.Title", u"Y"}}, {}},
      {"empty value is still stored", {{u"description", u""}}, {{"Description", u""}}},
  };
  for (const Row& row : rows) {
    ImportResult result;
    MIMETypeHelper::copyHTMLMetaAttributes(&row.meta, result);
    EXPECT_EQ(result.values(), row.expected) << row.name;
  }
}

// Put-if-present: a silent source keeps earlier values, a present one replaces them.
TEST(CopyHTMLMetaAttributes, KeepsOrReplacesEarlierValues) {
  ImportResult result;
  result.putIfPresent(ImportKey::Title, PropertyValue(u"From the title tag"));
  result.putIfPresent(ImportKey::Keywords, PropertyValue(u"old"));
  MIMETypeHelper::copyHTMLMetaAttributes(nullptr, result);
  HtmlMetaAttributes empty;
  MIMETypeHelper::copyHTMLMetaAttributes(&empty, result);
  HtmlMetaAttributes meta = {{u"keywords", u"new"}};
  MIMETypeHelper::copyHTMLMetaAttributes(&meta, result);
  EXPECT_EQ(result.values(),
            (PropertyDictionary{{"Title", u"From the title tag"}, {"Keywords", u"new"}}));
}

// Each convention's rules, over what the caller stored before (a title from the file's name).
TEST(CopyReaderOutput, FollowsTheReadersConvention) {
  constexpr Date kTemplateDate{1039443960LL * 1000000};
  constexpr Date kLater{kTemplateDate.microseconds + 1000000};
  struct Row {
    const char* name;
    ReaderOutput output;
    PropertyDictionary expected;  // the whole result
  };
  const std::vector<Row> rows = {
      {"importer's placeholder title gives way to the subject",
       {.title = u"<title>", .subject = u"S", .description = u"D"},
       {{"Title", u"S"}}},
      {"importer's headline stands in for a missing title",
       {.headline = u"H", .description = u"D"},
       {{"Title", u"H"}}},
      {"importer's real title makes the subject the description",
       {.title = u"T", .subject = u"S", .headline = u"H", .description = u"D"},
       {{"Title", u"T"}, {"Description", u"S"}}},
      {"importer's description alone",
       {.title = u"", .description = u"D"},
       {{"Title", u"file"}, {"Description", u"D"}}},
      {"importer's placeholder comment is dropped",
       {.comment = u"<comments>"},
       {{"Title", u"file"}}},
      {"importer's empty comment is kept",
       {.comment = u""},
       {{"Title", u"file"}, {"Comment", u""}}},
      {"importer's lists joined, an empty one too",
       {.url = u"u",
        .authors = TextList{u"A", u"B", u"C"},
        .keywords = TextList{u"x", u"y"},
        .phoneNumbers = TextList{}},
       {{"Title", u"file"},
        {"URL", u"u"},
        {"Author", u"A\nB\nC"},
        {"Keywords", u"x y"},
        {"Phone", u""}}},
      {"importer's template date is a date like any other",
       {.creation = kTemplateDate},
       {{"Title", u"file"}, {"Creation", kTemplateDate}}},
      {"word processor's comment describes when there is no subject",
       {.convention = Convention::AttributedDocument, .title = u"", .comment = u"C"},
       {{"Title", u""}, {"Description", u"C"}}},
      {"word processor's subject before its comment",
       {.convention = Convention::AttributedDocument, .subject = u"S", .comment = u"C"},
       {{"Title", u"file"}, {"Description", u"S"}}},
      {"word processor's template dates are dropped, a second later is kept",
       {.convention = Convention::AttributedDocument,
        .creation = kTemplateDate,
        .modification = kLater},
       {{"Title", u"file"}, {"Modification", kLater}}},
      {"PDF title as it is, comment unused",
       {.convention = Convention::PDFDocument, .title = u"<title>", .comment = u"C"},
       {{"Title", u"<title>"}}},
      {"PDF keeps the template date",
       {.convention = Convention::PDFDocument, .modification = kTemplateDate},
       {{"Title", u"file"}, {"Modification", kTemplateDate}}},
      {"page's meta title wins over its title; its base address is left to the caller",
       {.convention = Convention::HTMLPage,
        .title = u"Page",
        .url = u"https://base/",
        .htmlMeta = {{u"og:title", u"Meta"}, {u"keywords", u"a, b"}}},
       {{"Title", u"Meta"}, {"Keywords", u"a, b"}}},
      {"page's empty title keeps the caller's",
       {.convention = Convention::HTMLPage, .title = u""},
       {{"Title", u"file"}}},
  };
  for (Row row : rows) {
    ImportResult result;
    result.putIfPresent(ImportKey::Title, PropertyValue(u"file"));
    row.output.text = u"text";
    EXPECT_EQ(MIMETypeHelper::copyReaderOutput(row.output, result), u"text") << row.name;
    EXPECT_EQ(result.values(), row.expected) << row.name;
  }
}

// Each key an importer writes, from its attribute dictionary to the result, over a title the
// caller stored before; and what the PDF importer writes for PDF data: title, subject as the
// description, one author, keywords only as a list, dates as they are.
TEST(CopyReaderOutput, ImporterAttributesReachTheirKeys) {
  const Date created{86400LL * 1000000}, modified{2 * 86400LL * 1000000};
  constexpr Date kTemplateDate{1039443960LL * 1000000};
  const PropertyArray two{u"a", u"b"};
  struct Row {
    const char* name;
    PropertyDictionary attributes;
    PropertyDictionary expected;  // the whole result
    bool pdf = false;             // from the PDF importer
  };
  const std::vector<Row> rows = {
      {"subject before headline and description, as the title",
       {{"kMDItemSubject", u"S"}, {"kMDItemHeadline", u"H"}, {"kMDItemDescription", u"D"}},
       {{"Title", u"S"}}},
      {"headline before description, as the description under a title",
       {{"kMDItemTitle", u"T"}, {"kMDItemHeadline", u"H"}, {"kMDItemDescription", u"D"}},
       {{"Title", u"T"}, {"Description", u"H"}}},
      {"description under a real title",
       {{"kMDItemTitle", u"T"}, {"kMDItemDescription", u"D"}},
       {{"Title", u"T"}, {"Description", u"D"}}},
      {"description alone keeps the caller's title",
       {{"kMDItemDescription", u"D"}},
       {{"Title", u"file"}, {"Description", u"D"}}},
      {"an empty title is none",
       {{"kMDItemTitle", u""}, {"kMDItemHeadline", u"H"}},
       {{"Title", u"H"}}},
      {"placeholder comment dropped, placeholder title too",
       {{"kMDItemTitle", u"<title>"}, {"kMDItemComment", u"<comments>"}},
       {{"Title", u"file"}}},
      {"placeholders are exact",
       {{"kMDItemTitle", u"<Title>"}, {"kMDItemComment", u"<comments> "}},
       {{"Title", u"<Title>"}, {"Comment", u"<comments> "}}},
      {"an empty comment is stored",
       {{"kMDItemComment", u""}},
       {{"Title", u"file"}, {"Comment", u""}}},
      {"dates",
       {{"kMDItemContentCreationDate", created}, {"kMDItemContentModificationDate", modified}},
       {{"Title", u"file"}, {"Creation", created}, {"Modification", modified}}},
      {"strings as they are",
       {{"kMDItemFinderComment", u"F"},
        {"kMDItemCopyright", u"(c) C"},
        {"kMDItemAlbum", u"Al"},
        {"kMDItemComposer", u"Co"},
        {"kMDItemURL", u"https://u/"}},
       {{"Title", u"file"},
        {"SpotlightComment", u"F"},
        {"Copyright", u"(c) C"},
        {"Album", u"Al"},
        {"Composer", u"Co"},
        {"URL", u"https://u/"}}},
      {"lists joined with line feeds, keywords with spaces",
       {{"kMDItemAuthors", two},
        {"kMDItemAuthorEmailAddresses", two},
        {"kMDItemRecipients", two},
        {"kMDItemRecipientEmailAddresses", two},
        {"kMDItemEmailAddresses", two},
        {"kMDItemInstantMessageAddresses", two},
        {"kMDItemPhoneNumbers", two},
        {"kMDItemKeywords", two}},
       {{"Title", u"file"},
        {"Author", u"a\nb"},
        {"AuthorAddresses", u"a\nb"},
        {"Recipient", u"a\nb"},
        {"RecipientAddresses", u"a\nb"},
        {"Email", u"a\nb"},
        {"IM", u"a\nb"},
        {"Phone", u"a\nb"},
        {"Keywords", u"a b"}}},
      {"values of the wrong kind are left out",
       {{"kMDItemKeywords", u"one string"},
        {"kMDItemRecipients", PropertyArray{u"a", PropertyValue(std::int64_t{1})}},
        {"kMDItemCopyright", PropertyValue(std::int64_t{3})},
        {"kMDItemContentCreationDate", u"yesterday"}},
       {{"Title", u"file"}}},
      {"PDF: each key",
       {{"kMDItemTitle", u"T"},
        {"kMDItemDescription", u"About"},
        {"kMDItemAuthors", PropertyArray{u"Ann", u"Bo"}},
        {"kMDItemKeywords", PropertyArray{u"x", u"y", u"z"}},
        {"kMDItemContentCreationDate", kTemplateDate},
        {"kMDItemComment", u"C"}},
       {{"Title", u"T"},
        {"Description", u"About"},
        {"Author", u"Ann"},
        {"Keywords", u"x y z"},
        {"Creation", kTemplateDate}},
       true},
      {"PDF: keywords as one string are not stored",
       {{"kMDItemKeywords", u"x y z"}},
       {{"Title", u"file"}},
       true},
  };
  for (const Row& row : rows) {
    ImportResult result;
    result.putIfPresent(ImportKey::Title, PropertyValue(u"file"));
    PropertyDictionary attributes = row.attributes;
    attributes["kMDItemTextContent"] = PropertyValue(u"text");
    ReaderOutput output = row.pdf ? pdfDocumentOutput(attributes) : spotlightOutput(attributes);
    EXPECT_EQ(MIMETypeHelper::copyReaderOutput(output, result), u"text") << row.name;
    EXPECT_EQ(result.values(), row.expected) << row.name;
  }
}

}  // namespace
}  // namespace ulvek
