#include "readers/epub/epub_reader.h"

#include "readers/epub/epub_parser.h"

namespace ulvek {
namespace {

class EPUBReader final : public Reader {
 public:
  std::string_view name() const override { return "epub"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile()) return std::nullopt;
    EPUBParser book(source.path());
    ReaderOutput output{std::nullopt, book.metaData(), Vocabulary::Spotlight};
    if (std::optional<TextString> text = book.textContents())
      output.attributes["kMDItemTextContent"] = PropertyValue(std::move(*text));
    return output;
  }
};

}  // namespace

const Reader& epubReader() {
  static const EPUBReader reader;
  return reader;
}

}  // namespace ulvek
