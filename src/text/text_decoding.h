#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/property_value.h"
#include "base/text_string.h"
#include "text/encodings.h"
#include "text/markup_scanner.h"

namespace ulvek {

// ---- Plain text -------------------------------------------------------------------------------

// Decodes a file. A given encoding (anything but 0 and 0xFFFFFFF0…0xFFFFFFFF) is used exactly,
// with no fallback. Otherwise the encoding is detected (uchardet, then ICU for byte-order-mark-
// less UTF-16/32) and reported through `usedEncoding`; bytes that are malformed in the detected
// encoding become U+FFFD. When nothing is detected the file is decoded as ASCII and 1 is
// reported. Nothing when the file cannot be read or decoded.
std::optional<TextString> stringWithContentsOfFile(const std::string& path, StringEncoding encoding,
                                                   StringEncoding* usedEncoding = nullptr);
// The same decoding of a file's bytes already read.
std::optional<TextString> stringWithFileBytes(std::span<const std::uint8_t> bytes,
                                              StringEncoding encoding,
                                              StringEncoding* usedEncoding = nullptr);

// Detection on bytes already in memory: the decoded text and the encoding chosen.
struct DetectedText {
  TextString text;
  StringEncoding encoding = kEncodingNotFound;
};
std::optional<DetectedText> decodeDetectingEncoding(std::span<const std::uint8_t> bytes);

// Decoding in one given encoding; nothing when the bytes are not valid in it.
std::optional<TextString> stringWithData(std::span<const std::uint8_t> data,
                                         StringEncoding encoding);
std::optional<TextString> stringWithBytes(const void* bytes, std::size_t length,
                                          StringEncoding encoding);
std::optional<TextString> stringWithCString(const char* bytes, std::size_t length,
                                            StringEncoding encoding);
// Decodes up to the first zero byte.
std::optional<TextString> stringWithNullTerminatedCString(const char* bytes,
                                                          StringEncoding encoding);

// The process-wide encoding for writing text; starts as UTF-8.
StringEncoding defaultEncoding();
void setDefaultEncoding(StringEncoding encoding);

// Writing. Each answers NO when the text cannot be encoded or the file cannot be written; the
// chosen encoding is stored in `usedEncoding` (if given) before writing.
bool writeToFile(TextView text, const std::string& path, bool atomically, StringEncoding encoding);
bool writeToFileUsingDefaultEncoding(TextView text, const std::string& path, bool atomically,
                                     StringEncoding* usedEncoding = nullptr);
bool writeToFileUsingFastestEncoding(TextView text, const std::string& path, bool atomically,
                                     StringEncoding* usedEncoding = nullptr);
bool writeToFileUsingSmallestEncoding(TextView text, const std::string& path, bool atomically,
                                      StringEncoding* usedEncoding = nullptr);
// The encodings those two choose for a text: fastest is UTF-16 (our storage) unless the text is
// ASCII; smallest is the first lossless one of ASCII, ISO Latin 1, UTF-8 and UTF-16.
StringEncoding fastestEncoding(TextView text);
StringEncoding smallestEncoding(TextView text);

// ---- Markup -----------------------------------------------------------------------------------

// HTML, XML and property-list files: property lists become their XML text; otherwise the bytes
// are decoded with the default encoding, then with the encoding the document declares, and the
// result with fewer U+FFFD wins (with the rules for mislabelled UTF-8). Nothing when the file
// cannot be read or nothing decodes.
std::optional<TextString> stringWithMarkupContentsOfFile(const std::string& path,
                                                         StringEncoding defaultEncoding,
                                                         StringEncoding* usedEncoding = nullptr);

// The same as markup to scan: a large file is decoded window by window while it is scanned and
// never held whole. Nothing when the file cannot be read or nothing decodes.
std::unique_ptr<MarkupSource> markupSourceOfFile(const std::string& path,
                                                 StringEncoding defaultEncoding,
                                                 StringEncoding* usedEncoding = nullptr);
// The same over bytes the caller keeps (no property lists), windowed from `largeBytes` on with
// windows of about `windowUnits`: for tests of the windowed decoding on small files.
std::unique_ptr<MarkupSource> markupSourceOfBytes(std::span<const std::uint8_t> bytes,
                                                  StringEncoding defaultEncoding,
                                                  StringEncoding* usedEncoding,
                                                  std::size_t largeBytes, std::size_t windowUnits);

// The same on bytes received with a charset name (may be empty): byte-order marks, the name,
// the declared charset, and the Japanese and Chinese fallback lists. Empty bytes give "". The
// address plays no part in the decoding.
std::optional<TextString> stringWithMarkupData(std::span<const std::uint8_t> data,
                                               TextView encodingName,
                                               StringEncoding defaultEncoding, TextView url = {});
std::optional<TextString> stringWithMarkupData(std::span<const std::uint8_t> data,
                                               StringEncoding defaultEncoding);
// The name is the charset parameter of an HTTP content type ("text/html; charset=utf-8").
std::optional<TextString> stringWithMarkupDataOfContentType(std::span<const std::uint8_t> data,
                                                            TextView contentType,
                                                            StringEncoding defaultEncoding);

// The charset a markup text declares (XML declaration or meta tag before <body>), or "".
TextString markupCharset(TextView text);
// The range of the declaring tag; location kNotFound when none.
TextRange markupCharsetRange(TextView text);
// NSEncodingFromName of markupCharset.
StringEncoding markupEncoding(TextView text);
StringEncoding markupEncoding(const MarkupSource& source);
// 5 when the text declares ISO Latin 1, else 4.
StringEncoding defaultURLEncoding(TextView text);

// The markup text encoded in its declared charset, or, when it declares none (or the charset
// cannot hold it), as ASCII with every other character as a character reference (encoding 1).
Data markupData(TextView text, StringEncoding* usedEncoding = nullptr);

// ---- Header fields ----------------------------------------------------------------------------

// Value of the "CHARSET" parameter of a header value such as a content type.
std::optional<TextString> headerCharset(TextView header);
StringEncoding headerEncoding(TextView header);

// Value of the parameter `name` (upper-case ASCII, e.g. u"CHARSET", u"URL") in a header-like
// text: found anywhere, case-insensitively, followed by optional white and "=", the value quoted
// with `quotation` or running to `separator` (0: to the end).
std::optional<TextString> headerFieldNamed(TextView text, TextView name, char16_t quotation = u'\'',
                                           char16_t separator = u';');
// Double quotes, comma-separated.
std::optional<TextString> HTTPHeaderFieldNamed(TextView text, TextView name);
// The whitespace-tolerant form used for charsets: white around "=", either quote, and values
// ending at the separator, a quote, ">" or white.
std::optional<TextString> headerFieldNamedAllowingWhite(TextView text, TextView name,
                                                        char16_t quotation, char16_t separator);

}  // namespace ulvek
