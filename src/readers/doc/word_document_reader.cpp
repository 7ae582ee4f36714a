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

void readSummaryInformation(OleContainer& container, ReaderOutput& output) {
  OleSummary summary = summaryOf(container);
  auto text = [](const std::optional<std::string>& utf8) -> std::optional<TextString> {
    if (!utf8) return std::nullopt;
    return fromUtf8(*utf8);
  };
  output.title = text(summary.title);
  output.subject = text(summary.subject);
  output.comment = text(summary.description);
  if (summary.author) output.authors = TextList{fromUtf8(*summary.author)};
  if (summary.keywords) output.keywords = keywordWords(*summary.keywords);
  output.creation = summary.creation;
  output.modification = summary.modification;
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
    // Older Word versions are the Word importer's; only a locked document is a failure here.
    if (information->encrypted) logFailure(FailureKind::Encrypted, "Encrypted document: " + name);
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
  ReaderOutput output{.convention = Convention::AttributedDocument,
                      .text = std::move(text.text),
                      .documentType = kDocFormatTextDocumentType};
  readSummaryInformation(*container, output);
  return output;
}

}  // namespace ulvek
