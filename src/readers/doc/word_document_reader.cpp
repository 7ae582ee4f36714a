#include "readers/doc/word_document_reader.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "base/failure.h"
#include "base/log.h"
#include "readers/doc/ole_container.h"
#include "readers/doc/word_document_text.h"
#include "readers/xml/document_text.h"

namespace ulvek {
namespace {

constexpr std::uint8_t kOLEMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

// The summary information's properties, by libgsf's names for them.
constexpr std::pair<std::string_view, std::string_view> kSummaryProperties[] = {
    {"dc:title", DocumentAttribute::Title},
    {"dc:subject", DocumentAttribute::Subject},
    {"dc:creator", DocumentAttribute::Author},
    {"dc:keywords", DocumentAttribute::Keywords},
    {"dc:description", DocumentAttribute::Comment},
    {"meta:creation-date", DocumentAttribute::CreationTime},
    {"dc:date", DocumentAttribute::ModificationTime},
};

PropertyDictionary summaryInformation(OleContainer& container) {
  PropertyDictionary attributes;
  for (const OleSummaryEntry& entry : container.summary()) {
    auto known = std::find_if(std::begin(kSummaryProperties), std::end(kSummaryProperties),
                              [&](const auto& property) { return property.first == entry.name; });
    if (known == std::end(kSummaryProperties)) continue;
    const std::string key(known->second);
    if (entry.isDate) {
      if (std::optional<Date> date = w3cDate(entry.value))
        attributes.emplace(key, PropertyValue(*date));
    } else if (key == DocumentAttribute::Keywords) {
      attributes.emplace(key, PropertyValue(keywordWords(entry.value)));
    } else {
      attributes.emplace(key, PropertyValue::fromUtf8(entry.value));
    }
  }
  return attributes;
}

}  // namespace

bool looksLikeWordDocument(Bytes bytes, std::string_view extension) {
  return bytes.size() >= sizeof kOLEMagic && std::memcmp(bytes.data(), kOLEMagic, 8) == 0;
}

std::optional<ReaderOutput> readWordDocument(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes || !looksLikeWordDocument(*bytes, {})) return std::nullopt;
  std::string name = source.isFile() ? source.path() : std::string(source.name());
  std::string why;
  std::unique_ptr<OleContainer> container = openOleContainer(bytes->data(), bytes->size(), why);
  if (!container) {
    logFailure(FailureKind::Damaged, "Damaged document: " + name + " (" + why + ")");
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> wordDocument =
      container->stream("WordDocument", bytes->size());
  if (!wordDocument) return std::nullopt;  // another kind of OLE2 file
  std::optional<WordFileInformation> information = readWordFileInformation(*wordDocument);
  if (!information) {
    logFailure(FailureKind::Damaged, "Damaged document: " + name + " (no file information block)");
    return std::nullopt;
  }
  if (!isReadableWordVersion(*information)) {
    logFailure(FailureKind::Damaged, "Not a Word 97 document or encrypted: " + name);
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> table =
      container->stream(information->tableStreamOne ? "1Table" : "0Table", bytes->size());
  if (!table) {
    logFailure(FailureKind::Damaged, "Damaged document: " + name + " (no table stream)");
    return std::nullopt;
  }

  WordDocumentText text = readWordDocumentText(*information, *wordDocument, *table);
  if (!text.damage.empty())
    logFailure(FailureKind::Damaged, "Damaged document: " + name + " (" + text.damage[0] + ")");
  ReaderOutput output{std::move(text.text), summaryInformation(*container),
                      Vocabulary::AttributedDocument};
  output.attributes[std::string(DocumentAttribute::DocumentType)] =
      PropertyValue(kDocFormatTextDocumentType);
  return output;
}

}  // namespace ulvek
