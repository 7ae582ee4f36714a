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

std::optional<TextString> stringAttribute(const PropertyDictionary& attributes,
                                          std::string_view key) {
  const PropertyValue* value = find(attributes, key);
  if (!value || !value->string()) return std::nullopt;
  return *value->string();
}

// Spotlight attribute names the mapping reads.
constexpr std::string_view kMDItemTitle = "kMDItemTitle";
constexpr std::array<std::string_view, 3> kMDItemDescriptions = {
    "kMDItemSubject", "kMDItemHeadline", "kMDItemDescription"};
constexpr std::u16string_view kPlaceholderTitle = u"<title>";
constexpr std::u16string_view kPlaceholderComment = u"<comments>";

struct AttributeRow {
  std::string_view source;
  std::string_view key;
};
constexpr std::array<AttributeRow, 6> kMDItemValues = {{
    {"kMDItemContentCreationDate", ImportKey::Creation},
    {"kMDItemContentModificationDate", ImportKey::Modification},
    {"kMDItemFinderComment", ImportKey::SpotlightComment},
    {"kMDItemCopyright", ImportKey::Copyright},
    {"kMDItemAlbum", ImportKey::Album},
    {"kMDItemComposer", ImportKey::Composer},
}};
constexpr std::array<AttributeRow, 7> kMDItemLists = {{
    {"kMDItemAuthors", ImportKey::Author},
    {"kMDItemAuthorEmailAddresses", ImportKey::AuthorAddresses},
    {"kMDItemRecipients", ImportKey::Recipient},
    {"kMDItemRecipientEmailAddresses", ImportKey::RecipientAddresses},
    {"kMDItemEmailAddresses", ImportKey::Email},
    {"kMDItemInstantMessageAddresses", ImportKey::IM},
    {"kMDItemPhoneNumbers", ImportKey::Phone},
}};

// Word processors stamp documents they create from a template with this date (2002-12-09
// 14:26:00 UTC); it says nothing about the document.
constexpr Date kTemplateDate{1039443960LL * 1000000};

void putJoined(ImportResult& result, std::string_view key, const PropertyValue* list,
               TextView separator) {
  if (!list || !list->isArray()) return;
  if (auto joined = joinedStrings(*list, separator)) result.putIfPresent(key, *joined);
}

void putValue(ImportResult& result, std::string_view key, const PropertyValue* value) {
  if (value) result.putIfPresent(key, *value);
}

}  // namespace

void MIMETypeHelper::copyMetaData(const PropertyDictionary* attributes, ImportResult& result) {
  if (!attributes || attributes->empty()) return;
  const PropertyDictionary& source = *attributes;
  bool tookTitle = false;
  if (auto title = stringAttribute(source, kMDItemTitle)) {
    if (!title->empty() && *title != kPlaceholderTitle) {
      result.putIfPresent(ImportKey::Title, PropertyValue(std::move(*title)));
      tookTitle = true;
    }
  }
  for (std::size_t i = 0; i < kMDItemDescriptions.size(); ++i) {
    const PropertyValue* value = find(source, kMDItemDescriptions[i]);
    if (!value) continue;
    bool isDescription = tookTitle || i == kMDItemDescriptions.size() - 1;
    result.putIfPresent(isDescription ? ImportKey::Description : ImportKey::Title, *value);
    break;
  }
  putJoined(result, ImportKey::Keywords, find(source, "kMDItemKeywords"), u" ");
  if (auto comment = stringAttribute(source, "kMDItemComment")) {
    if (*comment != kPlaceholderComment) {
      result.putIfPresent(ImportKey::Comment, PropertyValue(std::move(*comment)));
    }
  }
  for (const AttributeRow& row : kMDItemValues) putValue(result, row.key, find(source, row.source));
  putValue(result, ImportKey::URL, find(source, "kMDItemURL"));
  for (const AttributeRow& row : kMDItemLists) {
    putJoined(result, row.key, find(source, row.source), u"\n");
  }
}

void MIMETypeHelper::copyAttributedStringAttributes(const PropertyDictionary* attributes,
                                                    ImportResult& result) {
  if (!attributes || attributes->empty()) return;
  const PropertyDictionary& source = *attributes;
  putValue(result, ImportKey::Title, find(source, DocumentAttribute::Title));
  const PropertyValue* description = find(source, DocumentAttribute::Subject);
  if (!description) description = find(source, DocumentAttribute::Comment);
  putValue(result, ImportKey::Description, description);
  putValue(result, ImportKey::Author, find(source, DocumentAttribute::Author));
  putJoined(result, ImportKey::Keywords, find(source, DocumentAttribute::Keywords), u" ");
  putValue(result, ImportKey::Copyright, find(source, DocumentAttribute::Copyright));
  for (auto [name, key] :
       {std::pair{DocumentAttribute::CreationTime, ImportKey::Creation},
        std::pair{DocumentAttribute::ModificationTime, ImportKey::Modification}}) {
    const PropertyValue* date = find(source, name);
    if (date && !(date->date() && *date->date() == kTemplateDate)) putValue(result, key, date);
  }
}

void MIMETypeHelper::copyPDFDocumentAttributes(const PropertyDictionary* attributes,
                                               ImportResult& result) {
  if (!attributes || attributes->empty()) return;
  const PropertyDictionary& source = *attributes;
  putValue(result, ImportKey::Title, find(source, PDFDocumentAttribute::Title));
  putValue(result, ImportKey::Description, find(source, PDFDocumentAttribute::Subject));
  putValue(result, ImportKey::Author, find(source, PDFDocumentAttribute::Author));
  putJoined(result, ImportKey::Keywords, find(source, PDFDocumentAttribute::Keywords), u" ");
  putValue(result, ImportKey::Creation, find(source, PDFDocumentAttribute::CreationDate));
  putValue(result, ImportKey::Modification, find(source, PDFDocumentAttribute::ModDate));
}

std::optional<TextString> MIMETypeHelper::copyReaderOutput(ReaderOutput& output,
                                                           ImportResult& result) {
  switch (output.vocabulary) {
    case Vocabulary::Spotlight:
      copyMetaData(&output.attributes, result);
      if (!output.text) output.text = stringAttribute(output.attributes, kTextContentAttribute);
      break;
    case Vocabulary::AttributedDocument:
      copyAttributedStringAttributes(&output.attributes, result);
      break;
    case Vocabulary::PDFDocument:
      copyPDFDocumentAttributes(&output.attributes, result);
      break;
    case Vocabulary::HTMLMeta: {
      if (auto title = stringAttribute(output.attributes, kHTMLTitleAttribute)) {
        if (!title->empty()) result.putOrRemove(ImportKey::Title, PropertyValue(std::move(*title)));
      }
      HtmlMetaAttributes meta;
      for (const auto& [name, value] : output.attributes) {
        if (name == kHTMLTitleAttribute || name == kBaseURLAttribute || !value.string()) continue;
        meta.emplace(fromUtf8(name), *value.string());
      }
      copyHTMLMetaAttributes(&meta, result);
      break;
    }
  }
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
