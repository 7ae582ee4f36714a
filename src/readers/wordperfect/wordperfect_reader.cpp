#include "readers/wordperfect/wordperfect_reader.h"

#include "readers/wordperfect/wordperfect.h"
#include "readers/wordperfect/wordperfect_document.h"

namespace ulvek {

namespace {

class WordPerfectReader final : public Reader {
 public:
  std::string_view name() const override { return "WordPerfect"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    std::optional<Bytes> bytes = source.bytes();
    if (!bytes || bytes->empty()) return std::nullopt;
    std::string name = source.isFile() ? source.path() : std::string(source.name());
    std::optional<TextString> text = wordPerfectMarkedText(*bytes);
    if (!text) text = wordPerfectDocumentText(*bytes, name);
    if (!text || text->empty()) return std::nullopt;
    ReaderOutput output;
    output.text = std::move(text);
    return output;
  }

  bool supportsFile(const std::string& path) const override { return isWordPerfectFile(path); }
};

}  // namespace

const Reader& wordPerfectReader() {
  static const WordPerfectReader reader;
  return reader;
}

}  // namespace ulvek
