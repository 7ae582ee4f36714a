#include "base/text_string.h"

#include <unicode/ustring.h>

#include "base/text_limits.h"

namespace ulvek {

TextString fromUtf8(std::string_view utf8) {
  if (utf8.empty()) return {};
  TextString out(utf8.size(), u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()),
                       &length, utf8.data(), static_cast<int32_t>(utf8.size()), 0xFFFD, nullptr,
                       &status);
  if (U_FAILURE(status)) return {};
  out.resize(static_cast<std::size_t>(length));
  return out;
}

bool fromUtf8Strict(std::string_view utf8, TextString& out) {
  out.clear();
  if (utf8.empty()) return true;
  out.resize(utf8.size());
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()), &length,
                utf8.data(), static_cast<int32_t>(utf8.size()), &status);
  if (U_FAILURE(status)) {
    out.clear();
    return false;
  }
  out.resize(static_cast<std::size_t>(length));
  return true;
}

static bool convertToUtf8(TextView text, std::string& out, bool substitute) {
  out.clear();
  if (text.empty()) return true;
  // Measured first: room for three bytes a unit, filled, tripled the memory of long ASCII text.
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  const auto* units = reinterpret_cast<const UChar*>(text.data());
  const auto count = static_cast<int32_t>(text.size());
  const UChar32 substitute32 = substitute ? 0xFFFD : U_SENTINEL;
  u_strToUTF8WithSub(nullptr, 0, &length, units, count, substitute32, nullptr, &status);
  if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return false;
  status = U_ZERO_ERROR;
  out.resize(static_cast<std::size_t>(length));
  u_strToUTF8WithSub(out.data(), length, &length, units, count, substitute32, nullptr, &status);
  if (U_FAILURE(status)) {
    out.clear();
    return false;
  }
  out.resize(static_cast<std::size_t>(length));
  return true;
}

std::string toUtf8(TextView text) {
  std::string out;
  convertToUtf8(text, out, true);
  return out;
}

bool toUtf8Strict(TextView text, std::string& out) { return convertToUtf8(text, out, false); }

TextString fromAscii(std::string_view ascii) { return TextString(ascii.begin(), ascii.end()); }

std::size_t utf8Size(TextView text) {
  std::size_t size = 0;
  for (char16_t unit : text) size += unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
  return size;
}

TextView utf8Prefix(TextView text, std::size_t bytes) {
  std::size_t units = 0;
  for (std::size_t used = 0; units < text.size(); ++units) {
    const char16_t unit = text[units];
    used += unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
    if (used > bytes) break;
  }
  if (units > 0 && units < text.size() && text[units - 1] >= 0xD800 && text[units - 1] <= 0xDBFF)
    --units;
  return text.substr(0, units);
}

namespace {
thread_local std::size_t textLimit = kMaxTextUtf8Bytes;
}  // namespace

std::size_t textLimitUtf8Bytes() { return textLimit; }

void setTextLimitUtf8Bytes(std::size_t bytes) { textLimit = bytes; }

}  // namespace ulvek
