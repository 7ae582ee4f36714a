#include "readers/spotlight_attributes.h"

#include <string_view>
#include <utility>

namespace ulvek {
namespace {

using StringProperty = std::optional<TextString> ReaderOutput::*;
using ListProperty = std::optional<TextList> ReaderOutput::*;

constexpr std::pair<std::string_view, StringProperty> kStrings[] = {
    {"kMDItemTitle", &ReaderOutput::title},
    {"kMDItemSubject", &ReaderOutput::subject},
    {"kMDItemHeadline", &ReaderOutput::headline},
    {"kMDItemDescription", &ReaderOutput::description},
    {"kMDItemComment", &ReaderOutput::comment},
    {"kMDItemFinderComment", &ReaderOutput::finderComment},
    {"kMDItemCopyright", &ReaderOutput::copyright},
    {"kMDItemAlbum", &ReaderOutput::album},
    {"kMDItemComposer", &ReaderOutput::composer},
    {"kMDItemURL", &ReaderOutput::url},
    {"kMDItemTextContent", &ReaderOutput::text},
    // The bundled importers say where a text was recognised.
    {"ulvekbot:TextSource", &ReaderOutput::textSource},
};

constexpr std::pair<std::string_view, ListProperty> kLists[] = {
    {"kMDItemKeywords", &ReaderOutput::keywords},
    {"kMDItemAuthors", &ReaderOutput::authors},
    {"kMDItemAuthorEmailAddresses", &ReaderOutput::authorAddresses},
    {"kMDItemRecipients", &ReaderOutput::recipients},
    {"kMDItemRecipientEmailAddresses", &ReaderOutput::recipientAddresses},
    {"kMDItemEmailAddresses", &ReaderOutput::emailAddresses},
    {"kMDItemInstantMessageAddresses", &ReaderOutput::instantMessageAddresses},
    {"kMDItemPhoneNumbers", &ReaderOutput::phoneNumbers},
};

std::optional<TextString> stringOf(const PropertyDictionary& attributes, std::string_view key) {
  const PropertyValue* value = find(attributes, key);
  if (!value || !value->string()) return std::nullopt;
  return *value->string();
}

std::optional<TextList> listOf(const PropertyDictionary& attributes, std::string_view key) {
  const PropertyValue* value = find(attributes, key);
  if (!value || !value->array()) return std::nullopt;
  TextList list;
  for (const PropertyValue& item : *value->array()) {
    if (!item.string()) return std::nullopt;
    list.push_back(*item.string());
  }
  return list;
}

std::optional<Date> dateOf(const PropertyDictionary& attributes, std::string_view key) {
  const PropertyValue* value = find(attributes, key);
  if (!value || !value->date()) return std::nullopt;
  return *value->date();
}

}  // namespace

ReaderOutput spotlightOutput(const PropertyDictionary& attributes) {
  ReaderOutput output;
  for (auto [key, property] : kStrings) output.*property = stringOf(attributes, key);
  for (auto [key, property] : kLists) output.*property = listOf(attributes, key);
  output.creation = dateOf(attributes, "kMDItemContentCreationDate");
  output.modification = dateOf(attributes, "kMDItemContentModificationDate");
  return output;
}

ReaderOutput pdfDocumentOutput(const PropertyDictionary& attributes) {
  ReaderOutput spotlight = spotlightOutput(attributes);
  ReaderOutput output{.convention = Convention::PDFDocument,
                      .text = std::move(spotlight.text),
                      .textSource = std::move(spotlight.textSource),
                      .title = std::move(spotlight.title),
                      .subject = std::move(spotlight.description),
                      .keywords = std::move(spotlight.keywords),
                      .creation = spotlight.creation,
                      .modification = spotlight.modification};
  // A PDF names its author in one string.
  if (spotlight.authors && !spotlight.authors->empty())
    output.authors = TextList{spotlight.authors->front()};
  return output;
}

}  // namespace ulvek
