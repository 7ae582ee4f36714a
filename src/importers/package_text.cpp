#include "importers/package_text.h"

#include <zlib.h>

#include <filesystem>
#include <vector>

#include "base/ascii.h"
#include "platform/file_bytes.h"
#include "text/encodings.h"
#include "text/entity_conversion.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

std::optional<Data> inflated(Bytes bytes) {
  z_stream stream{};
  // 15 + 32: a zlib or a gzip header, whichever it is.
  if (inflateInit2(&stream, 15 + 32) != Z_OK) return std::nullopt;
  Data out;
  stream.next_in = const_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  int status = Z_OK;
  while (status == Z_OK) {
    // An outline is text: more than 256 MiB of it is a bomb.
    if (out.size() > (256u << 20)) break;
    std::size_t used = out.size();
    out.resize(used + 65536);
    stream.next_out = out.data() + used;
    stream.avail_out = 65536;
    status = inflate(&stream, Z_NO_FLUSH);
    out.resize(used + 65536 - stream.avail_out);
  }
  inflateEnd(&stream);
  if (status != Z_STREAM_END) return std::nullopt;
  return out;
}

}  // namespace

std::optional<TextString> outlinePackageText(const std::string& path) {
  std::optional<FileBytes> file = FileBytes::read(path + "/contents.xml").take();
  if (!file) return std::nullopt;
  Data bytes(file->bytes().begin(), file->bytes().end());
  if (bytes.size() >= 5 && file->chars().substr(0, 5) != "<?xml") {
    std::optional<Data> plain = inflated(file->bytes());
    if (!plain) return std::nullopt;
    bytes = std::move(*plain);
  }
  TextString text =
      fromUtf8(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  if (text.empty()) return std::nullopt;
  std::optional<TextString> bodies = stripTagBodies(
      text, {u"<style-attribute", u"<editor", u"<print-info>", u"<auto-generate-level-styles>"});
  TextString stripped = stripTags(bodies ? *bodies : text);
  return stringByRemovingMultipleWhiteSpaces(stringByConvertingEntitiesToCharacters(stripped));
}

std::optional<TextString> chatLogPackageText(const std::string& path) {
  std::vector<fs::path> logs;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(path, error)) {
    if (asciiLowercase(entry.path().extension().string()) == ".xml") logs.push_back(entry.path());
  }
  if (logs.size() != 1) return std::nullopt;
  std::optional<TextString> source =
      stringWithMarkupContentsOfFile(logs.front().string(), kUTF8StringEncoding);
  if (!source) return std::nullopt;
  return stringByConvertingEntitiesToCharacters(stripTags(*source));
}

}  // namespace ulvek
