#include "platform/content_signatures.h"

#include <fcntl.h>
#include <minizip/unzip.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "base/ascii.h"
#include "base/property_list.h"
#include "platform/formats.h"

namespace ulvek {
namespace {

// In the order they are asked: the most telling first.
enum class Kind { ZipMember, ZipMIMEType, PropertyListKey, LeadingBytes, TextStart };

struct Signature {
  Kind kind;
  std::string_view value;
  std::string_view type;
};

constexpr std::pair<std::string_view, Kind> kPrefixes[] = {
    {"zip:", Kind::ZipMember}, {"mimetype:", Kind::ZipMIMEType}, {"plist:", Kind::PropertyListKey},
    {"^", Kind::LeadingBytes},

    {"~", Kind::TextStart},
};

std::vector<Signature> registrySignatures() {
  std::vector<Signature> list;
  for (const Format& format : formats()) {
    std::string_view rest = format.signatures;
    while (!rest.empty()) {
      std::size_t bar = rest.find('|');
      std::string_view one = rest.substr(0, bar);
      rest = bar == std::string_view::npos ? std::string_view() : rest.substr(bar + 1);
      for (const auto& [prefix, kind] : kPrefixes) {
        if (!one.starts_with(prefix)) continue;
        list.push_back({kind, one.substr(prefix.size()), format.identifier});
        break;
      }
    }
  }
  std::stable_sort(list.begin(), list.end(),
                   [](const Signature& a, const Signature& b) { return a.kind < b.kind; });
  return list;
}

const std::vector<Signature>& signatures() {
  static const auto* list = new std::vector<Signature>(registrySignatures());
  return *list;
}

constexpr std::string_view kZipMagic("PK\x03\x04", 4);
constexpr std::string_view kBinaryPropertyListMagic = "bplist00";
// A "mimetype" member is one short line; a larger one is no such member.
constexpr std::size_t kLongestMIMEType = 128;
// Property lists larger than this are not parsed for a key.
constexpr std::uint64_t kLargestPropertyList = 64 * 1024 * 1024;

// The zip archive at a path, opened on first use.
class LazyZip {
 public:
  explicit LazyZip(const std::string& path) : path_(path) {}
  ~LazyZip() {
    if (zip_) unzClose(zip_);
  }
  LazyZip(const LazyZip&) = delete;
  LazyZip& operator=(const LazyZip&) = delete;

  bool hasMember(std::string_view name) {
    // 2: names compared without regard to case, as archives written on any system are.
    return open() && unzLocateFile(zip_, std::string(name).c_str(), 2) == UNZ_OK;
  }

  std::optional<std::string> smallMember(std::string_view name, std::size_t limit) {
    if (!hasMember(name) || unzOpenCurrentFile(zip_) != UNZ_OK) return std::nullopt;
    std::string content(limit + 1, '\0');
    int read = unzReadCurrentFile(zip_, content.data(), static_cast<unsigned>(content.size()));
    unzCloseCurrentFile(zip_);
    if (read < 0 || static_cast<std::size_t>(read) > limit) return std::nullopt;
    content.resize(static_cast<std::size_t>(read));
    return content;
  }

 private:
  bool open() {
    if (!tried_) {
      tried_ = true;
      zip_ = unzOpen64(path_.c_str());
    }
    return zip_ != nullptr;
  }

  const std::string& path_;
  unzFile zip_ = nullptr;
  bool tried_ = false;
};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool propertyListHasKey(const std::string& path, std::string_view key) {
  std::optional<FileBytes> bytes = FileBytes::read(path, kLargestPropertyList).take();
  if (!bytes) return false;
  std::optional<PropertyValue> list = propertyListFromBytes(bytes->bytes());
  return list && list->isDictionary() && find(*list->dictionary(), key);
}

// UTF-16 text (after its byte-order mark) as one byte per unit, "?" for units past ASCII, so
// text signatures read it as they read ASCII.
std::string narrowedUTF16(std::string_view head) {
  bool littleEndian = head.starts_with("\xFF\xFE");
  std::string narrow;
  for (std::size_t i = 2; i + 1 < head.size(); i += 2) {
    auto low = static_cast<unsigned char>(head[littleEndian ? i : i + 1]);
    auto high = static_cast<unsigned char>(head[littleEndian ? i + 1 : i]);
    narrow += high == 0 && low < 0x80 ? static_cast<char>(low) : '?';
  }
  return narrow;
}

bool isUTF16(std::string_view head) {
  return head.starts_with("\xFF\xFE") || head.starts_with("\xFE\xFF");
}

// The text after a UTF-8 byte-order mark and leading blanks.
std::string_view textStart(std::string_view head) {
  if (head.starts_with("\xEF\xBB\xBF")) head.remove_prefix(3);
  std::size_t first = head.find_first_not_of(" \t\r\n\f");
  return first == std::string_view::npos ? std::string_view() : head.substr(first);
}

// The text after a leading XML declaration and the blanks that follow it; empty without one.
std::string_view pastXMLDeclaration(std::string_view text) {
  if (!startsWithIgnoringASCIICase(text, "<?xml")) return {};
  std::size_t end = text.find("?>");
  if (end == std::string_view::npos) return {};
  return textStart(text.substr(end + 2));
}

}  // namespace

std::optional<std::string> fileHead(const std::string& path) {
  if (!isRegularFile(path)) return std::nullopt;
  int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  std::string head(kSignatureHeadSize, '\0');
  std::size_t filled = 0;
  while (filled < head.size()) {
    ssize_t got = ::read(descriptor, head.data() + filled, head.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
  }
  ::close(descriptor);
  head.resize(filled);
  return head;
}

std::optional<std::string_view> signatureType(std::string_view head, const std::string& path,
                                              bool textToo) {
  const bool zip = head.starts_with(kZipMagic);
  std::string narrow = isUTF16(head) ? narrowedUTF16(head) : std::string();
  std::string_view text = textStart(narrow.empty() ? head : std::string_view(narrow));
  std::string_view afterDeclaration = pastXMLDeclaration(text);
  const bool propertyList = head.starts_with(kBinaryPropertyListMagic) ||
                            startsWithIgnoringASCIICase(afterDeclaration, "<!doctype plist") ||
                            startsWithIgnoringASCIICase(afterDeclaration, "<plist");
  LazyZip archive(path);
  std::optional<std::optional<std::string>> mimeType;  // read once, for the first row asking
  for (const Signature& signature : signatures()) {
    bool matches = false;
    switch (signature.kind) {
      case Kind::ZipMember:
        matches = zip && archive.hasMember(signature.value);
        break;
      case Kind::ZipMIMEType:
        if (zip && !mimeType) mimeType = archive.smallMember("mimetype", kLongestMIMEType);
        matches = zip && *mimeType && trimmed(**mimeType) == signature.value;
        break;
      case Kind::PropertyListKey:
        matches = propertyList && propertyListHasKey(path, signature.value);
        break;
      case Kind::LeadingBytes:
        matches = head.starts_with(signature.value);
        break;
      case Kind::TextStart:
        matches = textToo && (startsWithIgnoringASCIICase(text, signature.value) ||
                              startsWithIgnoringASCIICase(afterDeclaration, signature.value));
        break;
    }
    if (matches) return signature.type;
  }
  return std::nullopt;
}

}  // namespace ulvek
