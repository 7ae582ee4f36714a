#include "readers/outline/outline_package_reader.h"

#include <zlib.h>

#include "base/failure.h"
#include "platform/file_bytes.h"
#include "platform/open_beneath.h"
#include "text/entity_conversion.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

// An outline is text: more than this of it is a bomb.
constexpr std::size_t kMaxOutlineSize = 256u << 20;

std::optional<Data> inflated(Bytes bytes) {
  z_stream stream{};
  // 15 + 32: a zlib or a gzip header, whichever it is.
  if (inflateInit2(&stream, 15 + 32) != Z_OK) return std::nullopt;
  Data out;
  stream.next_in = const_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  int status = Z_OK;
  while (status == Z_OK && out.size() <= kMaxOutlineSize) {
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

class OutlinePackageReader final : public Reader {
 public:
  std::string_view name() const override { return "outline package"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile()) return std::nullopt;
    const std::string& path = source.path();
    // Only the package's own member: a link inside it never leads to the user's other files.
    std::optional<FileBytes> file = readFileBeneath(path, "contents.xml").take();
    if (!file) {
      logFailure(FailureKind::Damaged, "No contents.xml in outline package: " + path);
      return std::nullopt;
    }
    Data bytes(file->bytes().begin(), file->bytes().end());
    if (bytes.size() >= 5 && file->chars().substr(0, 5) != "<?xml") {
      std::optional<Data> plain = inflated(file->bytes());
      if (!plain) {
        logFailure(FailureKind::Damaged,
                   "Damaged document: " + path + " (contents.xml is neither XML nor compressed)");
        return std::nullopt;
      }
      bytes = std::move(*plain);
    }
    TextString text =
        fromUtf8(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    if (text.empty()) return std::nullopt;
    std::optional<TextString> bodies = stripTagBodies(
        text, {u"<style-attribute", u"<editor", u"<print-info>", u"<auto-generate-level-styles>"});
    TextString stripped = stripTags(bodies ? *bodies : text);
    // Control characters become blanks and the text is composed, as in an importer's answer.
    ReaderOutput output;
    output.text = fixedAndNormalizedString(
        stringByRemovingMultipleWhiteSpaces(stringByConvertingEntitiesToCharacters(stripped)));
    return output;
  }
};

}  // namespace

const Reader& outlinePackageReader() {
  static const OutlinePackageReader reader;
  return reader;
}

}  // namespace ulvek
