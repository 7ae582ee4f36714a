#include "readers/epub/epub_reader.h"

#include "readers/epub/epub_parser.h"

namespace ulvek {
namespace {

class EPUBReader final : public Reader {
 public:
  // `byName`: only files named as books are read (the importer host asks before every
  // plug-in, so this must cost nothing); otherwise the dispatcher has typed the file already.
  explicit EPUBReader(bool byName) : byName_(byName) {}

  std::string_view name() const override { return "epub"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile() || (byName_ && !EPUBParser::isEPUBFile(source.path())))
      return std::nullopt;
    EPUBParser book(source.path());
    ReaderOutput output{std::nullopt, book.metaData(), Vocabulary::Spotlight};
    if (std::optional<TextString> text = book.textContents())
      output.attributes["kMDItemTextContent"] = PropertyValue(std::move(*text));
    return output;
  }

 private:
  bool byName_;
};

}  // namespace

const Reader& epubReader() {
  static const EPUBReader reader(true);
  return reader;
}

const Reader& typedEPUBReader() {
  static const EPUBReader reader(false);
  return reader;
}

}  // namespace ulvek
