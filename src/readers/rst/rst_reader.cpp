#include "readers/rst/rst_reader.h"

#include "readers/rst/restructured_text.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

// Sources larger than this are read as text without looking for their header.
constexpr std::uint64_t kLargestSource = 64 * 1024 * 1024;

PropertyArray stringArray(const std::vector<TextString>& items) {
  PropertyArray array;
  for (const TextString& item : items) array.emplace_back(item);
  return array;
}

class ReStructuredTextReader final : public Reader {
 public:
  std::string_view name() const override { return "rst"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    std::optional<Bytes> bytes = source.bytes(kLargestSource);
    if (!bytes) return std::nullopt;
    std::optional<DetectedText> decoded = decodeDetectingEncoding(*bytes);
    if (!decoded) return std::nullopt;
    ReaderOutput output;
    RstDocumentInfo info = rstDocumentInfo(decoded->text);
    PropertyDictionary& attributes = output.attributes;
    if (info.title) attributes["kMDItemTitle"] = PropertyValue(*info.title);
    // The abstract describes the document best; a subtitle is better than nothing.
    if (std::optional<TextString> description = info.description ? info.description : info.subtitle)
      attributes["kMDItemDescription"] = PropertyValue(*description);
    if (!info.authors.empty()) attributes["kMDItemAuthors"] = stringArray(info.authors);
    if (!info.keywords.empty()) attributes["kMDItemKeywords"] = stringArray(info.keywords);
    if (info.date) attributes["kMDItemContentCreationDate"] = PropertyValue(*info.date);
    if (info.copyright) attributes["kMDItemCopyright"] = PropertyValue(*info.copyright);
    output.text = std::move(decoded->text);
    return output;
  }
};

}  // namespace

const Reader& reStructuredTextReader() {
  static const ReStructuredTextReader reader;
  return reader;
}

}  // namespace ulvek
