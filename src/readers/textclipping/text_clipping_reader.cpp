#include "readers/textclipping/text_clipping_reader.h"

#include <climits>
#include <cstdlib>

#include "base/property_list.h"
#include "platform/resource_fork.h"
#include "platform/type_codes.h"
#include "readers/rtf/rtf_reader.h"
#include "text/encodings.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

ReaderOutput plain(TextString text) {
  return ReaderOutput{.convention = Convention::AttributedDocument,
                      .text = std::move(text),
                      .documentType = kPlainTextDocumentType};
}

TextString utf16BigEndian(Bytes bytes) {
  TextString text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
    text += static_cast<char16_t>((bytes[i] << 8) | bytes[i + 1]);
  // A mark at the start says the order outright.
  if (!text.empty() && text.front() == u'\uFFFE') {
    for (char16_t& unit : text) unit = static_cast<char16_t>((unit >> 8) | (unit << 8));
  }
  if (!text.empty() && text.front() == u'\uFEFF') text.erase(0, 1);
  return text;
}

// A flattened RTFD holds its TXT.rtf among other files; the RTF is found by its start.
std::optional<ReaderOutput> flattenedRTFD(Bytes bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::size_t start = text.find("{\\rtf");
  if (start == std::string_view::npos) return std::nullopt;
  std::optional<ReaderOutput> output = readRTFBytes(bytes.subspan(start));
  if (output) output->documentType = kRTFDTextDocumentType;
  return output;
}

// A clipping's answer is its text and the kind it was read as; what an RTF's \info group says
// about the document it was cut from is not the clipping's.
std::optional<ReaderOutput> clippingOutput(std::optional<ReaderOutput> read) {
  if (!read) return std::nullopt;
  return ReaderOutput{.convention = Convention::AttributedDocument,
                      .text = std::move(read->text),
                      .documentType = std::move(read->documentType)};
}

// The first text type the fork holds decides, and only it is read: a damaged one answers
// nothing rather than a poorer text. Nothing at all (the outer optional) when the fork holds
// no text resource, so that the data fork is asked.
std::optional<std::optional<ReaderOutput>> fromResourceFork(const std::string& path) {
  char resolved[PATH_MAX];
  if (!::realpath(path.c_str(), resolved)) return std::nullopt;
  std::optional<Data> fork = resourceForkBytes(resolved);
  if (!fork) return std::nullopt;
  std::optional<ResourceMap> map = ResourceMap::parse(*fork);
  if (!map) return std::nullopt;
  for (std::uint32_t type : {fourCharCode("RTFD"), fourCharCode("rtfd")}) {
    if (auto rtfd = map->firstResource(type)) return flattenedRTFD(*rtfd);
  }
  if (auto rtf = map->firstResource(fourCharCode("RTF "))) return readRTFBytes(*rtf);
  // Big-endian unless marked: real clippings hold it so, with no mark.
  if (auto utxt = map->firstResource(fourCharCode("utxt"))) return plain(utf16BigEndian(*utxt));
  if (auto text = map->firstResource(fourCharCode("TEXT"))) {
    std::optional<TextString> decoded = stringWithData(*text, kMacOSRomanStringEncoding);
    if (!decoded) return std::optional<ReaderOutput>();
    return plain(std::move(*decoded));
  }
  return std::nullopt;
}

std::optional<ReaderOutput> fromDataFork(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes(64u << 20);
  if (!bytes || bytes->empty()) return std::nullopt;
  std::optional<PropertyValue> list = propertyListFromBytes(*bytes, source.name());
  const PropertyDictionary* root = list ? list->dictionary() : nullptr;
  const PropertyValue* utiData = root ? find(*root, "UTI-Data") : nullptr;
  const PropertyDictionary* types = utiData ? utiData->dictionary() : nullptr;
  if (!types) return std::nullopt;
  auto data = [&](std::string_view type) -> std::optional<Bytes> {
    const PropertyValue* value = find(*types, type);
    if (!value) return std::nullopt;
    if (const Data* bytes = value->data()) return Bytes(bytes->data(), bytes->size());
    return std::nullopt;
  };
  auto string = [&](std::string_view type) -> std::optional<TextString> {
    const PropertyValue* value = find(*types, type);
    if (value && value->string()) return *value->string();
    if (auto bytes = data(type)) return stringWithData(*bytes, kUTF8StringEncoding);
    return std::nullopt;
  };
  if (auto rtfd = data("com.apple.flat-rtfd")) {
    if (auto output = flattenedRTFD(*rtfd)) return output;
  }
  if (auto rtf = data("public.rtf")) {
    if (auto output = readRTFBytes(*rtf)) return output;
  }
  if (auto utf16 = data("public.utf16-plain-text")) {
    // Stored in the machine's order (little-endian on the Macs that write them) unless marked.
    TextString text;
    for (std::size_t i = 0; i + 1 < utf16->size(); i += 2)
      text += static_cast<char16_t>((*utf16)[i] | ((*utf16)[i + 1] << 8));
    if (!text.empty() && text.front() == u'\uFEFF') text.erase(0, 1);
    return plain(std::move(text));
  }
  if (auto utf8 = string("public.utf8-plain-text")) return plain(std::move(*utf8));
  if (auto mac = data("com.apple.traditional-mac-plain-text")) {
    if (auto text = stringWithData(*mac, kMacOSRomanStringEncoding)) return plain(std::move(*text));
  }
  return std::nullopt;
}

class TextClippingReader final : public Reader {
 public:
  std::string_view name() const override { return "text clipping"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (source.isFile()) {
      if (auto output = fromResourceFork(source.path())) return clippingOutput(std::move(*output));
    }
    return clippingOutput(fromDataFork(source));
  }
};

}  // namespace

const Reader& textClippingReader() {
  static const TextClippingReader reader;
  return reader;
}

}  // namespace ulvek
