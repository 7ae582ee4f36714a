#include <string>

#include "base/log.h"
#include "import/mime_type_helper.h"
#include "import/route_table.h"
#include "metadata/file_types.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

// The last path component of an address ("https://x/a/b.rtf?q=1" → "b.rtf"), whose extension
// names the data's format when no MIME type does.
std::string addressFileName(TextView address) {
  std::string url = toUtf8(address);
  std::size_t end = url.find_first_of("?#");
  if (end != std::string::npos) url.resize(end);
  std::size_t scheme = url.find("://");
  std::size_t pathStart = scheme == std::string::npos ? 0 : url.find('/', scheme + 3);
  if (pathStart == std::string::npos) return {};
  url.erase(0, pathStart);
  while (!url.empty() && url.back() == '/') url.pop_back();
  std::size_t slash = url.rfind('/');
  return slash == std::string::npos ? url : url.substr(slash + 1);
}

OptionalText viewOf(const std::optional<TextString>& text) {
  return text ? OptionalText(*text) : std::nullopt;
}

}  // namespace

ImportResult MIMETypeHelper::openData(const std::optional<Data>& data,
                                      const std::optional<TextString>& url,
                                      const std::optional<TextString>& mimeType) {
  return openDataBytes(data ? std::optional<Bytes>(*data) : std::nullopt, url, mimeType);
}

ImportResult MIMETypeHelper::openDataBytes(std::optional<Bytes> data,
                                           const std::optional<TextString>& url,
                                           const std::optional<TextString>& mimeType) {
  ImportResult result;
  std::string name = url ? addressFileName(*url) : std::string();
  std::optional<TextString> extension;
  if (url) {
    TextString found = pathExtension(name);
    if (!found.empty()) extension = std::move(found);
  }
  if (!data || (!mimeType && !extension)) return result;

  OptionalText mime = viewOf(mimeType);
  OptionalText ext = viewOf(extension);
  ReaderSource source = ReaderSource::data(*data, name);
  // The data's own path name, for log lines.
  std::string origin = url ? toUtf8(*url) : std::string("(data)");

  std::optional<Route> route = routeForData(mime, ext);
  if (!route || (*route == Route::PDF && data->empty())) return result;
  const Reader* reader = readerFor(*route, origin);
  if (!reader) return result;
  LogContext reading(readerLogPart(*reader), origin);
  std::optional<ReaderOutput> output = reader->read(source);
  if (!output || (*route == Route::AttributedDocument && !output->text)) return result;
  std::optional<TextString> text = copyReaderOutput(*output, result);
  if (!text) return result;
  // Text from the importers is repaired as a file's would be; the attributed readers' is clean.
  if (*route == Route::PDF) *text = fixedAndNormalizedString(*text);
  result.putIfPresent(ImportKey::Text, PropertyValue(std::move(*text)));
  result.limitSizes(origin);
  return result;
}

bool MIMETypeHelper::supportsFile(const std::string& path) {
  const Reader* host = readers_.readerFor(Route::Importer);
  return host && host->supportsFile(path);
}

}  // namespace ulvek
