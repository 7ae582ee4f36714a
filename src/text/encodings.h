#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/text_string.h"

namespace ulvek {

// Encodings travel as the platform's string-encoding numbers ("NS" numbers); the charset-name
// table and the converters speak the lower-level "CF" numbers. Both are fixed by the formats
// and clients we talk to, so they are spelled out here rather than invented.
using StringEncoding = std::uint64_t;
using CFStringEncoding = std::uint32_t;

// String-encoding numbers.
inline constexpr StringEncoding kASCIIStringEncoding = 1;
inline constexpr StringEncoding kJapaneseEUCStringEncoding = 3;
inline constexpr StringEncoding kUTF8StringEncoding = 4;
inline constexpr StringEncoding kISOLatin1StringEncoding = 5;
inline constexpr StringEncoding kShiftJISStringEncoding = 8;
inline constexpr StringEncoding kISOLatin2StringEncoding = 9;
inline constexpr StringEncoding kUnicodeStringEncoding = 10;  // UTF-16, host order unless marked
inline constexpr StringEncoding kWindowsCP1251StringEncoding = 11;
inline constexpr StringEncoding kWindowsCP1252StringEncoding = 12;
inline constexpr StringEncoding kWindowsCP1253StringEncoding = 13;
inline constexpr StringEncoding kWindowsCP1254StringEncoding = 14;
inline constexpr StringEncoding kWindowsCP1250StringEncoding = 15;
inline constexpr StringEncoding kISO2022JPStringEncoding = 21;
inline constexpr StringEncoding kMacOSRomanStringEncoding = 30;
inline constexpr StringEncoding kUTF16BigEndianStringEncoding = 0x90000100;
inline constexpr StringEncoding kUTF16LittleEndianStringEncoding = 0x94000100;
inline constexpr StringEncoding kUTF32StringEncoding = 0x8C000100;
inline constexpr StringEncoding kUTF32BigEndianStringEncoding = 0x98000100;
inline constexpr StringEncoding kUTF32LittleEndianStringEncoding = 0x9C000100;
// The two Czech code pages have no platform number; these markers sit just below "not found".
inline constexpr StringEncoding kKamenickyStringEncoding = 0xFFFFFFF0;
inline constexpr StringEncoding kKOI8CS2StringEncoding = 0xFFFFFFF1;
// "Not found" as an answer; in a request (like 0) it asks for detection.
inline constexpr StringEncoding kEncodingNotFound = 0xFFFFFFFF;
inline constexpr StringEncoding kDetectEncoding = 0xFFFFFFFF;

// CF numbers.
inline constexpr CFStringEncoding kCFEncodingMacRoman = 0x0000;
inline constexpr CFStringEncoding kCFEncodingMacJapanese = 0x0001;
inline constexpr CFStringEncoding kCFEncodingMacCyrillic = 0x0007;
inline constexpr CFStringEncoding kCFEncodingMacCentralEurRoman = 0x001D;
inline constexpr CFStringEncoding kCFEncodingUnicode = 0x0100;
inline constexpr CFStringEncoding kCFEncodingISOLatin1 = 0x0201;
inline constexpr CFStringEncoding kCFEncodingISOLatin2 = 0x0202;
inline constexpr CFStringEncoding kCFEncodingISOLatin9 = 0x020F;
inline constexpr CFStringEncoding kCFEncodingISOLatin10 = 0x0210;
inline constexpr CFStringEncoding kCFEncodingDOSJapanese = 0x0420;
inline constexpr CFStringEncoding kCFEncodingWindowsLatin1 = 0x0500;
inline constexpr CFStringEncoding kCFEncodingWindowsLatin2 = 0x0501;
inline constexpr CFStringEncoding kCFEncodingWindowsCyrillic = 0x0502;
inline constexpr CFStringEncoding kCFEncodingASCII = 0x0600;
inline constexpr CFStringEncoding kCFEncodingShiftJISX0213 = 0x0628;
inline constexpr CFStringEncoding kCFEncodingGB18030 = 0x0632;
inline constexpr CFStringEncoding kCFEncodingISO2022JP = 0x0820;
inline constexpr CFStringEncoding kCFEncodingEUCJP = 0x0920;
inline constexpr CFStringEncoding kCFEncodingEUCCN = 0x0930;
inline constexpr CFStringEncoding kCFEncodingEUCTW = 0x0931;
inline constexpr CFStringEncoding kCFEncodingEUCKR = 0x0940;
inline constexpr CFStringEncoding kCFEncodingShiftJIS = 0x0A01;
inline constexpr CFStringEncoding kCFEncodingKOI8R = 0x0A02;
inline constexpr CFStringEncoding kCFEncodingBig5 = 0x0A03;
inline constexpr CFStringEncoding kCFEncodingHZGB2312 = 0x0A05;
inline constexpr CFStringEncoding kCFEncodingBig5HKSCS1999 = 0x0A06;
inline constexpr CFStringEncoding kCFEncodingUTF8 = 0x08000100;
inline constexpr CFStringEncoding kCFEncodingUTF16BE = 0x10000100;
inline constexpr CFStringEncoding kCFEncodingUTF16LE = 0x14000100;
inline constexpr CFStringEncoding kCFEncodingUTF32 = 0x0C000100;
inline constexpr CFStringEncoding kCFEncodingUTF32BE = 0x18000100;
inline constexpr CFStringEncoding kCFEncodingUTF32LE = 0x1C000100;
inline constexpr CFStringEncoding kCFEncodingKamenicky = 0xA001;
inline constexpr CFStringEncoding kCFEncodingKOI8CS2 = 0xA002;
inline constexpr CFStringEncoding kCFEncodingInvalid = 0xFFFFFFFF;

// Charset names found in documents and headers ("utf-8", "x-mac-roman", "Shift_JIS") → CF
// number, or kCFEncodingInvalid.
CFStringEncoding CFEncodingFromName(TextView name);
// The same as a string-encoding number, or kEncodingNotFound; an unknown name is logged as
// "Unknown/Unsupported encoding: %@" unless it is empty, "auto", "/", "0", "<" or ">".
StringEncoding NSEncodingFromName(TextView name);

// CF ⇄ string-encoding numbering. Numbers without a converter here answer kEncodingNotFound
// (kCFEncodingInvalid the other way). The Czech CF numbers pair with their markers
// (0xA001 ⇄ 0xFFFFFFF0, 0xA002 ⇄ 0xFFFFFFF1), so every decoding below can use them.
StringEncoding stringEncodingFromCFEncoding(CFStringEncoding encoding);
CFStringEncoding cfEncodingFromStringEncoding(StringEncoding encoding);

// ICU's converter name for a CF number, or nullptr when ICU cannot serve it.
const char* icuConverterName(CFStringEncoding encoding);
bool isCFEncodingAvailable(CFStringEncoding encoding);
// Every CF number this system knows a name for, with or without a converter.
std::span<const CFStringEncoding> knownCFEncodings();

// The markup converter: all bytes in one call into at most max(byte count, 32) UTF-16 units,
// every malformed or unmappable sequence marked with U+FFFD. Empty when the encoding has no
// converter (or the bytes are empty). A leading byte-order mark of a Unicode encoding is dropped.
// `replacements`, when given, receives the number of U+FFFD the conversion wrote (characters
// already U+FFFD in the input are not counted), without a second pass over the text.
TextString convertBytes(std::span<const std::uint8_t> bytes, CFStringEncoding encoding,
                        std::size_t* replacements = nullptr);
std::size_t countReplacementCharacters(TextView text);

// Bytes that are valid UTF-8 and not plain ASCII: no 8-bit text of a language passes by chance.
bool isNonAsciiUTF8(std::span<const std::uint8_t> bytes);

// convertBytes a piece at a time: the pieces joined are convertBytes' text, and the count is its
// replacement count. Large markup is scanned window by window through one, never held whole.
class PiecewiseDecoder {
 public:
  // Nothing when the encoding has no converter or the bytes are empty. The bytes must outlive
  // the decoder.
  static std::unique_ptr<PiecewiseDecoder> open(std::span<const std::uint8_t> bytes,
                                                CFStringEncoding encoding);
  virtual ~PiecewiseDecoder() = default;
  // Appends the units of about `byteCount` more bytes (a few more where a character would be
  // cut); answers false once every byte is decoded.
  virtual bool decodeMore(TextString& text, std::size_t byteCount) = 0;
  std::size_t replacements() const { return replacements_; }

 protected:
  std::size_t replacements_ = 0;
};

// The platform's decoding in one string encoding: nothing when the bytes are not valid in it or
// when there is no converter. Unicode encodings drop a leading byte-order mark.
std::optional<TextString> decodeBytes(std::span<const std::uint8_t> bytes, StringEncoding encoding);
// The reverse: nothing when a character has no representation in the encoding.
std::optional<std::string> encodeText(TextView text, StringEncoding encoding);

// The Czech code pages, bytes 0x80 to 0xFF (the lower half is ASCII).
const std::array<char16_t, 128>& kamenickyTable();
const std::array<char16_t, 128>& koi8cs2Table();
// Decodes with one of the two tables (kKamenickyStringEncoding or kKOI8CS2StringEncoding);
// bytes the table leaves undefined become U+FFFD.
TextString decodeCzech(std::span<const std::uint8_t> bytes, StringEncoding encoding);

}  // namespace ulvek
