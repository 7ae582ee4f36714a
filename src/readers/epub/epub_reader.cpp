#include "readers/epub/epub_reader.h"

#include "readers/epub/epub_parser.h"
#include "readers/spotlight_attributes.h"

namespace ulvek {
namespace {

class EPUBReader final : public Reader {
 public:
  std::string_view name() const override { return "epub"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile()) return std::nullopt;
    EPUBParser book(source.path());
    ReaderOutput output = spotlightOutput(book.metaData());
    output.text = book.textContents();
    return output;
  }
};

}  // namespace

const Reader& epubReader() {
  static const EPUBReader reader;
  return reader;
}

}  // namespace ulvek
