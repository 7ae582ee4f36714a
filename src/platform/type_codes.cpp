#include "platform/type_codes.h"

#include <unicode/unistr.h>

#include <filesystem>

#include "platform/resource_fork.h"

namespace ulvek {
namespace {

// Type codes are four Mac Roman bytes; every byte has exactly one character, all in the BMP.
constexpr char kMacRoman[] = "macintosh";

}  // namespace

TextString fileTypeForHFSTypeCode(std::uint32_t code) {
  const char bytes[4] = {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                         static_cast<char>(code >> 8), static_cast<char>(code)};
  icu::UnicodeString characters(bytes, 4, kMacRoman);
  TextString quoted = u"'";
  quoted.append(reinterpret_cast<const char16_t*>(characters.getBuffer()),
                static_cast<std::size_t>(characters.length()));
  quoted += u'\'';
  return quoted;
}

std::uint32_t HFSTypeCodeFromFileType(TextView fileType) {
  if (fileType.size() != 6 || fileType.front() != u'\'' || fileType.back() != u'\'') return 0;
  icu::UnicodeString characters(fileType.data() + 1, 4);
  char bytes[8] = {};
  if (characters.extract(0, 4, bytes, sizeof bytes, kMacRoman) != 4) return 0;
  // The converter substitutes what Mac Roman lacks; only an exact round trip is a code.
  std::uint32_t code = (std::uint32_t(std::uint8_t(bytes[0])) << 24) |
                       (std::uint32_t(std::uint8_t(bytes[1])) << 16) |
                       (std::uint32_t(std::uint8_t(bytes[2])) << 8) | std::uint8_t(bytes[3]);
  if (fileTypeForHFSTypeCode(code) != fileType) return 0;
  return code;
}

std::optional<TextString> HFSTypeOfFile(const std::string& path) {
  if (path.empty()) return std::nullopt;
  std::error_code error;
  std::filesystem::file_status status = std::filesystem::symlink_status(path, error);
  if (error || std::filesystem::is_symlink(status) || std::filesystem::is_directory(status))
    return std::nullopt;
  std::optional<Data> info = finderInfoBytes(path);
  if (!info || info->size() < 4) return std::nullopt;
  std::uint32_t code = (std::uint32_t((*info)[0]) << 24) | (std::uint32_t((*info)[1]) << 16) |
                       (std::uint32_t((*info)[2]) << 8) | std::uint32_t((*info)[3]);
  if (code == 0) return std::nullopt;
  return fileTypeForHFSTypeCode(code);
}

}  // namespace ulvek
