#include <array>
#include <string_view>
#include <utility>

#include "import/mime_type_helper.h"
#include "protocol/import_result.h"
#include "readers/reader.h"

namespace ulvek {

namespace {

// Result key and the meta names that can fill it, most preferred first.
struct MetaRow {
  std::string_view resultKey;
  std::array<std::u16string_view, 4> metaNames;
};

constexpr std::array<MetaRow, 4> kHTMLMetaRows = {{
    {ImportKey::Title, {u"dc.title", u"title", u"og:title"}},
    {ImportKey::Description, {u"dc.description", u"dc.subject", u"description", u"og:description"}},
    {ImportKey::Author, {u"dc.author", u"author"}},
    {ImportKey::Keywords, {u"dc.keywords", u"keywords"}},
}};

// What importers write when a template's field was never filled in.
constexpr std::u16string_view kPlaceholderTitle = u"<title>";
constexpr std::u16string_view kPlaceholderComment = u"<comments>";

// Word processors stamp documents they create from a template with this date (2002-12-09
// 14:26:00 UTC); it says nothing about the document.
constexpr Date kTemplateDate{1039443960LL * 1000000};

void put(ImportResult& result, std::string_view key, const std::optional<TextString>& value) {
  if (value) result.putIfPresent(key, PropertyValue(*value));
}

void put(ImportResult& result, std::string_view key, std::optional<Date> date) {
  if (date) result.putIfPresent(key, PropertyValue(*date));
}

void putJoined(ImportResult& result, std::string_view key, const std::optional<TextList>& list,
               TextView separator) {
  if (!list) return;
  TextString joined;
  for (const TextString& item : *list) {
    if (&item != &list->front()) joined.append(separator);
    joined.append(item);
  }
  result.putIfPresent(key, PropertyValue(std::move(joined)));
}

}  // namespace

std::optional<TextString> MIMETypeHelper::copyReaderOutput(ReaderOutput& output,
                                                           ImportResult& result) {
  const Convention convention = output.convention;
  const bool importer = convention == Convention::Spotlight;

  // An importer's empty or placeholder title, and a page's empty one, are no title.
  bool tookTitle = false;
  if (output.title) {
    bool skipped = (importer && *output.title == kPlaceholderTitle) ||
                   ((importer || convention == Convention::HTMLPage) && output.title->empty());
    if (!skipped) {
      put(result, ImportKey::Title, output.title);
      tookTitle = true;
    }
  }
  if (importer) {
    // The first of subject, headline and description; the first two stand in for a missing
    // title.
    if (output.subject || output.headline) {
      put(result, tookTitle ? ImportKey::Description : ImportKey::Title,
          output.subject ? output.subject : output.headline);
    } else {
      put(result, ImportKey::Description, output.description);
    }
  } else if (output.subject) {
    put(result, ImportKey::Description, output.subject);
  } else if (convention == Convention::AttributedDocument) {
    put(result, ImportKey::Description, output.comment);
  }
  // A page's meta tags come after its title, so a meta title wins.
  copyHTMLMetaAttributes(&output.htmlMeta, result);

  putJoined(result, ImportKey::Keywords, output.keywords, u" ");
  if (importer && output.comment && *output.comment != kPlaceholderComment)
    put(result, ImportKey::Comment, output.comment);
  for (auto [date, key] : {std::pair{output.creation, ImportKey::Creation},
                           std::pair{output.modification, ImportKey::Modification}}) {
    if (convention == Convention::AttributedDocument && date == kTemplateDate) continue;
    put(result, key, date);
  }
  put(result, ImportKey::SpotlightComment, output.finderComment);
  put(result, ImportKey::Copyright, output.copyright);
  put(result, ImportKey::Album, output.album);
  put(result, ImportKey::Composer, output.composer);
  // A page's base address is the item's own address, which the dispatcher stores last.
  if (convention != Convention::HTMLPage) put(result, ImportKey::URL, output.url);

  putJoined(result, ImportKey::Author, output.authors, u"\n");
  putJoined(result, ImportKey::AuthorAddresses, output.authorAddresses, u"\n");
  putJoined(result, ImportKey::Recipient, output.recipients, u"\n");
  putJoined(result, ImportKey::RecipientAddresses, output.recipientAddresses, u"\n");
  putJoined(result, ImportKey::Email, output.emailAddresses, u"\n");
  putJoined(result, ImportKey::IM, output.instantMessageAddresses, u"\n");
  putJoined(result, ImportKey::Phone, output.phoneNumbers, u"\n");
  return std::move(output.text);
}

void MIMETypeHelper::copyHTMLMetaAttributes(const HtmlMetaAttributes* meta, ImportResult& result) {
  if (!meta || meta->empty()) return;
  for (const MetaRow& row : kHTMLMetaRows) {
    for (std::u16string_view name : row.metaNames) {
      if (name.empty()) break;
      auto found = meta->find(name);
      if (found == meta->end()) continue;
      result.putIfPresent(row.resultKey, PropertyValue(found->second));
      break;
    }
  }
}

}  // namespace ulvek
