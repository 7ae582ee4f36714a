#include "importers/importer_host.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "base/log.h"
#include "importers/metadata_importer.h"
#include "platform/temporary_items.h"
#include "readers/spotlight_attributes.h"

namespace ulvek {
namespace {

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
    return spotlightOutput(*attributes);
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
    return pdfDocumentOutput(*attributes);
  }
};

}  // namespace

const Reader& importerHost() {
  static const ImporterHost host;
  return host;
}

}  // namespace ulvek
