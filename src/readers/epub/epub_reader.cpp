#include "readers/epub/epub_reader.h"

#include "platform/content_types.h"
#include "readers/epub/epub_parser.h"

namespace ulvek {
namespace {

constexpr std::string_view kEPUBType = "org.idpf.epub-container";

// A book by its name, or by its content when the name says nothing of it.
bool isBook(const std::string& path) {
  if (EPUBParser::isEPUBFile(path)) return true;
  std::optional<std::string> type = typeOfFile(path);
  return type && *type == kEPUBType;
}

class EPUBReader final : public Reader {
 public:
  std::string_view name() const override { return "epub"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile() || !isBook(source.path())) return std::nullopt;
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
