#include "importers/importer_host.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "base/log.h"
#include "importers/metadata_importer.h"
#include "platform/temporary_items.h"

namespace ulvek {
namespace {

// Spotlight attribute → PDF document attribute, for data read through the PDF importer.
constexpr std::pair<std::string_view, std::string_view> kPDFAttributes[] = {
    {"kMDItemTitle", PDFDocumentAttribute::Title},
    {"kMDItemDescription", PDFDocumentAttribute::Subject},
    {"kMDItemKeywords", PDFDocumentAttribute::Keywords},
    {"kMDItemContentCreationDate", PDFDocumentAttribute::CreationDate},
    {"kMDItemContentModificationDate", PDFDocumentAttribute::ModDate},
};

bool writeFile(const std::string& path, Bytes bytes) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  bool ok = true;
  for (std::size_t written = 0; ok && written < bytes.size();) {
    ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
    ok = count > 0;
    if (ok) written += static_cast<std::size_t>(count);
  }
  ::close(fd);
  return ok;
}

class ImporterHost final : public Reader {
 public:
  std::string_view name() const override { return "importer host"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile()) return readDocumentData(source);
    std::optional<PropertyDictionary> attributes =
        MetaDataImporter::sharedImporter().metaDataOfFileAtPath(source.path());
    if (!attributes) return std::nullopt;
    return ReaderOutput{std::nullopt, std::move(*attributes), Vocabulary::Spotlight};
  }

  bool supportsFile(const std::string& path) const override {
    return MetaDataImporter::sharedImporter().supportsFileAtPath(path);
  }

 private:
  // PDF and PostScript bytes go to the importer of such files through a temporary copy.
  static std::optional<ReaderOutput> readDocumentData(const ReaderSource& source) {
    std::optional<Bytes> bytes = source.bytes();
    if (!bytes || bytes->empty()) return std::nullopt;
    std::string_view start(reinterpret_cast<const char*>(bytes->data()),
                           std::min<std::size_t>(bytes->size(), 1024));
    const char* extension = start.find("%PDF") != std::string_view::npos ? "pdf"
                            : start.starts_with("%!") || start.starts_with("\xC5\xD0\xD3\xC6")
                                ? "eps"
                                : nullptr;
    if (!extension) return std::nullopt;
    Result<TemporaryDirectory> folder = TemporaryDirectory::create("data");
    if (!folder) {
      logLine("No temporary folder: " + folder.error().localizedDescription);
      return std::nullopt;
    }
    std::string path = folder->path() + "/document." + extension;
    if (!writeFile(path, *bytes)) return std::nullopt;
    std::optional<PropertyDictionary> attributes =
        MetaDataImporter::sharedImporter().metaDataOfFileAtPath(path);
    if (!attributes) return std::nullopt;
    ReaderOutput output{std::nullopt, {}, Vocabulary::PDFDocument};
    for (const auto& [spotlight, pdf] : kPDFAttributes) {
      if (const PropertyValue* value = find(*attributes, spotlight))
        output.attributes.emplace(std::string(pdf), *value);
    }
    // A PDF names its author in one string.
    if (const PropertyValue* authors = find(*attributes, "kMDItemAuthors")) {
      const PropertyArray* list = authors->array();
      if (list && !list->empty() && list->front().string())
        output.attributes.emplace(std::string(PDFDocumentAttribute::Author), list->front());
    }
    if (const PropertyValue* text = find(*attributes, "kMDItemTextContent"); text && text->string())
      output.text = *text->string();
    return output;
  }
};

}  // namespace

const Reader& importerHost() {
  static const ImporterHost host;
  return host;
}

}  // namespace ulvek
