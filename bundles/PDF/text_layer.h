#pragma once

// Pages whose only text is the invisible layer an earlier OCR left (copiers, old scan software)
// and whose reading failed: such a page is read by OCR anew, like a scan without text.

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ulvek::plugin {
class PdfDocument;
}

namespace ulvek::plugin::pdf {

// A page with fewer letters than this has no text layer worth keeping: a scan, perhaps with a
// page number or the stray glyphs of a failed earlier OCR.
inline constexpr std::size_t kFewestLetters = 8;

// Whether `text` (UTF-8) is what a failed OCR leaves rather than text: fewer than kFewestLetters
// letters and digits, or less than half of its characters letters and digits (". ,' ~~ !|"), or
// less than half of its words words of two letters or more ("i l r t I , e"). A working OCR
// misreads letters but keeps them letters, in words, so its text passes even with errors; text
// that is all figures passes too. OCR writes no control or private-use characters: text with
// many is a font's glyph codes without a Unicode map, drawn for people to see, and not looked at
// further (which would cost time on every page of such a document).
inline bool isFailedReading(std::string_view text) {
  std::size_t characters = 0, alphanumerics = 0, tokens = 0, words = 0, codes = 0;
  std::size_t inToken = 0, alphanumericsInToken = 0;
  auto endToken = [&] {
    if (inToken == 0) return;
    ++tokens;
    if (alphanumericsInToken >= 2 && alphanumericsInToken * 2 >= inToken) ++words;
    inToken = alphanumericsInToken = 0;
  };
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(std::min<std::size_t>(text.size(), INT32_MAX));
  for (int32_t at = 0; at < length;) {
    UChar32 c;
    U8_NEXT(bytes, at, length, c);
    if (c >= 0 && u_isUWhiteSpace(c)) {
      endToken();
      continue;
    }
    ++characters;
    ++inToken;
    if (c >= 0 && (U_GET_GC_MASK(c) & (U_GC_CC_MASK | U_GC_CO_MASK))) ++codes;
    // Combining marks belong to the letters of Indic and other scripts.
    if (c >= 0 && (u_isalnum(c) || (U_GET_GC_MASK(c) & U_GC_M_MASK))) {
      ++alphanumerics;
      ++alphanumericsInToken;
    }
  }
  endToken();
  if (codes > 0 && codes * 10 >= characters) return false;
  return alphanumerics < kFewestLetters || alphanumerics * 2 < characters || words * 2 < tokens;
}

// For each of `pages` (numbered from 0) of `document`: whether the page has text and all of it is
// drawn invisibly (render modes 3 and 7, neither filled nor stroked). False for pages that cannot
// be read, and for those not looked at before `deadline`.
std::vector<bool> onlyInvisibleText(
    PdfDocument& document, const std::vector<std::size_t>& pages,
    std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt);

}  // namespace ulvek::plugin::pdf
