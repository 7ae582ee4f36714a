#include "readers/webarchive/web_archive_reader.h"

#include "metadata/file_types.h"
#include "readers/webarchive/web_archive.h"
#include "text/html_meta.h"

namespace ulvek {

namespace {

class WebArchiveReader final : public Reader {
 public:
  std::string_view name() const override { return "web archive"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    std::optional<Bytes> bytes = source.bytes();
    if (!bytes || bytes->empty()) return std::nullopt;
    std::string name = source.isFile() ? source.path() : std::string(source.name());
    std::optional<WebArchive> archive = WebArchive::initWithData(*bytes, name);
    if (!archive) return std::nullopt;
    ReaderOutput output{.convention = Convention::HTMLPage};
    std::optional<TextString> markup;
    output.text = archive->searchableTextAndSource(&markup);
    output.url = archive->baseURL();
    if (markup) {
      output.htmlMeta = htmlMetaAttributesByConvertingEntitiesToCharacters(*markup);
      output.title = normalizedHtmlTitle(*markup);
    }
    return output;
  }

  bool supportsFile(const std::string& path) const override { return isWebArchiveFile(path); }
};

}  // namespace

const Reader& webArchiveReader() {
  static const WebArchiveReader reader;
  return reader;
}

}  // namespace ulvek
