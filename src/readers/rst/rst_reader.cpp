#include "readers/rst/rst_reader.h"

#include "readers/rst/restructured_text.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

// Sources larger than this are read as text without looking for their header.
constexpr std::uint64_t kLargestSource = 64 * 1024 * 1024;

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
    output.title = info.title;
    // The abstract describes the document best; a subtitle is better than nothing.
    output.description = info.description ? info.description : info.subtitle;
    if (!info.authors.empty()) output.authors = info.authors;
    if (!info.keywords.empty()) output.keywords = info.keywords;
    output.creation = info.date;
    output.copyright = info.copyright;
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
