// iWork.mdimporter: Pages, Keynote and Numbers documents, files or package folders, read with
// libetonyek; their text through librevenge's text generators, with titles and authors.

#include <libetonyek/libetonyek.h>
#include <librevenge-stream/librevenge-stream.h>

#include <memory>
#include <string>

#include "revenge_support.h"

namespace {

using libetonyek::EtonyekDocument;
using ulvek::plugin::Attributes;
using ulvek::plugin::PropertyCatcher;

std::unique_ptr<librevenge::RVNGInputStream> openDocument(const char* path) {
  if (librevenge::RVNGDirectoryStream::isDirectory(path))
    return std::make_unique<librevenge::RVNGDirectoryStream>(path);
  auto file = std::make_unique<librevenge::RVNGFileStream>(path);
  // A file inside a package (index.xml, Index.zip) stands for the whole package.
  EtonyekDocument::Type type = EtonyekDocument::TYPE_UNKNOWN;
  if (EtonyekDocument::isSupported(file.get(), &type) ==
      EtonyekDocument::CONFIDENCE_SUPPORTED_PART) {
    if (auto* parent = librevenge::RVNGDirectoryStream::createForParent(path))
      return std::unique_ptr<librevenge::RVNGInputStream>(parent);
  }
  return file;
}

bool importIWork(Attributes& out, const char*, const char* path) {
  std::unique_ptr<librevenge::RVNGInputStream> input = openDocument(path);
  EtonyekDocument::Type type = EtonyekDocument::TYPE_UNKNOWN;
  if (!input ||
      EtonyekDocument::isSupported(input.get(), &type) != EtonyekDocument::CONFIDENCE_EXCELLENT)
    return false;
  std::string text;
  ulvek::plugin::RevengeProperties properties;
  switch (type) {
    case EtonyekDocument::TYPE_PAGES: {
      librevenge::RVNGString document;
      PropertyCatcher<librevenge::RVNGTextTextGenerator, librevenge::RVNGString> generator(
          document);
      if (!EtonyekDocument::parse(input.get(), &generator)) return false;
      text = document.cstr();
      properties = generator.properties;
      break;
    }
    case EtonyekDocument::TYPE_KEYNOTE: {
      librevenge::RVNGStringVector slides;
      PropertyCatcher<librevenge::RVNGTextPresentationGenerator, librevenge::RVNGStringVector>
          generator(slides);
      if (!EtonyekDocument::parse(input.get(), &generator)) return false;
      text = ulvek::plugin::joined(slides);
      properties = generator.properties;
      break;
    }
    case EtonyekDocument::TYPE_NUMBERS: {
      librevenge::RVNGStringVector sheets;
      PropertyCatcher<librevenge::RVNGTextSpreadsheetGenerator, librevenge::RVNGStringVector>
          generator(sheets);
      if (!EtonyekDocument::parse(input.get(), &generator)) return false;
      text = ulvek::plugin::joined(sheets);
      properties = generator.properties;
      break;
    }
    default:
      return false;
  }
  properties.write(out);
  out.string("kMDItemTextContent", text);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekIWorkImporterFactory, importIWork)
