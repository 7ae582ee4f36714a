#include "text/encodings.h"

#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ustring.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <iconv.h>
#include <bit>
#include <cerrno>

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include "base/log.h"
#include "text/character_tables.h"
#include "text/mac_multibyte.h"
#include "text/mac_script_tables.h"

namespace ulvek {

namespace {

// ---- Converters -------------------------------------------------------------------------------

struct ConverterEntry {
  CFStringEncoding encoding;
  const char* icuName;              // nullptr: ICU has no converter for it
  const char* iconvName = nullptr;  // glibc's converter where ICU has none
};

// Every CF number the name table can produce, plus the few that detection reports. Where a web
// label habitually covers a vendor superset (EUC-KR pages with UHC syllables, GB2312 pages with
// GBK characters) the superset is used: it decodes every valid byte of the narrower set the
// same way and spares whole pages from being judged worse than an ISO Latin 1 decoding.
constexpr ConverterEntry kConverters[] = {
    {0x0000, "macintosh"},
    {0x0001, nullptr},  // Mac Japanese
    {0x0002, nullptr},  // Mac Chinese (traditional)
    {0x0003, nullptr},  // Mac Korean
    {0x0004, nullptr},  // Mac Arabic
    {0x0005, nullptr},  // Mac Hebrew
    {0x0006, "x-mac-greek"},
    {0x0007, "x-mac-cyrillic"},
    {0x0009, nullptr},  // Mac Devanagari
    {0x000A, nullptr},  // Mac Gurmukhi
    {0x000B, nullptr},  // Mac Gujarati
    {0x000C, nullptr},  // Mac Oriya
    {0x000D, nullptr},  // Mac Bengali
    {0x000E, nullptr},  // Mac Tamil
    {0x000F, nullptr},  // Mac Telugu
    {0x0010, nullptr},  // Mac Kannada
    {0x0011, nullptr},  // Mac Malayalam
    {0x0012, nullptr},  // Mac Sinhalese
    {0x0013, nullptr},  // Mac Burmese
    {0x0014, nullptr},  // Mac Khmer
    {0x0015, nullptr},  // Mac Thai
    {0x0016, nullptr},  // Mac Laotian
    {0x0017, nullptr},  // Mac Georgian
    {0x0018, nullptr},  // Mac Armenian
    {0x0019, nullptr},  // Mac Chinese (simplified)
    {0x001A, nullptr},  // Mac Tibetan
    {0x001B, nullptr},  // Mac Mongolian
    {0x001C, nullptr},  // Mac Ethiopic
    {0x001D, "x-mac-centraleurroman"},
    {0x001E, nullptr},  // Mac Vietnamese
    {0x001F, nullptr},  // Mac Extended Arabic
    {0x0023, "x-mac-turkish"},
    {0x0024, nullptr},  // Mac Croatian
    {0x0025, nullptr},  // Mac Icelandic
    {0x0026, nullptr},  // Mac Romanian
    {0x0027, nullptr},  // Mac Celtic
    {0x0028, nullptr},  // Mac Gaelic
    {0x008C, nullptr},  // Mac Farsi
    {0x0098, "x-MacUkraine"},
    {0x00EC, nullptr},                 // Mac Inuit
    {0x0100, "UTF16_PlatformEndian"},  // a byte-order mark overrides, see openConverter
    {0x0201, "ISO-8859-1"},
    {0x0202, "ISO-8859-2"},
    {0x0203, "ISO-8859-3"},
    {0x0204, "ISO-8859-4"},
    {0x0205, "ISO-8859-5"},
    {0x0206, "ISO-8859-6"},
    {0x0207, "ISO-8859-7"},
    {0x0208, "ISO-8859-8"},
    {0x0209, "ISO-8859-9"},
    {0x020A, "ISO-8859-10"},
    {0x020B, "ISO-8859-11"},
    {0x020D, "ISO-8859-13"},
    {0x020E, "ISO-8859-14"},
    {0x020F, "ISO-8859-15"},
    {0x0210, nullptr, "ISO-8859-16"},  // not in ICU's data
    {0x0400, "ibm-437"},
    {0x0405, "ibm-737"},
    {0x0406, "ibm-775"},
    {0x0410, "ibm-850"},
    {0x0411, "ibm-851"},
    {0x0412, "ibm-852"},
    {0x0413, "ibm-855"},
    {0x0414, "ibm-857"},
    {0x0415, "ibm-860"},
    {0x0416, "ibm-861"},
    {0x0417, "ibm-862"},
    {0x0418, "ibm-863"},
    {0x0419, "ibm-864"},
    {0x041A, "ibm-865"},
    {0x041B, "ibm-866"},
    {0x041C, "ibm-869"},
    {0x041D, "windows-874-2000"},
    {0x0420, "ibm-943_P15A-2003"},  // Windows-31J
    {0x0421, "windows-936-2000"},
    {0x0422, "windows-949-2000"},
    {0x0423, "windows-950-2000"},
    {0x0500, "windows-1252"},
    {0x0501, "windows-1250"},
    {0x0502, "windows-1251"},
    {0x0503, "windows-1253"},
    {0x0504, "windows-1254"},
    {0x0505, "windows-1255"},
    {0x0506, "windows-1256"},
    {0x0507, "windows-1257"},
    {0x0508, "windows-1258"},
    {0x0510, nullptr, "JOHAB"},  // Windows Korean Johab
    {0x0600, "US-ASCII"},
    {0x0620, nullptr},                    // JIS X0201-76
    {0x0621, nullptr},                    // JIS X0208-83
    {0x0622, nullptr},                    // JIS X0208-90
    {0x0623, nullptr},                    // JIS X0212-90
    {0x0624, nullptr},                    // JIS C6226-78
    {0x0628, nullptr, "SHIFT_JISX0213"},  // Shift JIS X0213
    {0x0630, "GB_2312-80"},               // the raw two-byte set
    {0x0631, "GBK"},
    {0x0632, "GB18030"},
    {0x0640, "windows-949-2000"},
    {0x0641, nullptr, "JOHAB"},  // KS C 5601-92 Johab
    {0x0820, "ISO-2022-JP"},
    {0x0821, "ISO-2022-JP-2"},
    {0x0822, "ISO-2022-JP-1"},
    {0x0823, nullptr, "ISO-2022-JP-3"},  // ISO-2022-JP-3
    {0x0830, "ISO-2022-CN"},
    {0x0831, "ISO-2022-CN-EXT"},
    {0x0840, "ISO-2022-KR"},
    {0x0920, "EUC-JP"},
    {0x0930, "windows-936-2000"},  // EUC-CN, read as GBK
    {0x0931, "EUC-TW"},
    {0x0940, "windows-949-2000"},  // EUC-KR, read as UHC
    {0x0A01, "Shift_JIS"},
    {0x0A02, "KOI8-R"},
    {0x0A03, "Big5"},
    {0x0A04, nullptr},  // Mac Roman Latin 1
    {0x0A05, "HZ-GB-2312"},
    {0x0A06, "Big5-HKSCS"},
    {0x0A07, nullptr, "VISCII"},  // VISCII
    {0x0A08, "KOI8-U"},
    {0x0A09, nullptr},  // Big5-E
    {0x04000100, "UTF-7"},
    {0x08000100, "UTF-8"},
    {0x0C000100, "UTF32_PlatformEndian"},  // a byte-order mark overrides
    {0x10000100, "UTF-16BE"},
    {0x14000100, "UTF-16LE"},
    {0x18000100, "UTF-32BE"},
    {0x1C000100, "UTF-32LE"},
};

constexpr std::array<CFStringEncoding, std::size(kConverters)> makeKnownEncodings() {
  std::array<CFStringEncoding, std::size(kConverters)> numbers{};
  for (std::size_t i = 0; i < std::size(kConverters); ++i) numbers[i] = kConverters[i].encoding;
  return numbers;
}
constexpr auto kKnownEncodings = makeKnownEncodings();

const ConverterEntry* findConverter(CFStringEncoding encoding) {
  for (const ConverterEntry& entry : kConverters)
    if (entry.encoding == encoding) return &entry;
  return nullptr;
}

bool isUnicodeEncoding(CFStringEncoding encoding) {
  return encoding == kCFEncodingUTF8 || encoding == kCFEncodingUnicode ||
         encoding == kCFEncodingUTF16BE || encoding == kCFEncodingUTF16LE ||
         encoding == kCFEncodingUTF32 || encoding == kCFEncodingUTF32BE ||
         encoding == kCFEncodingUTF32LE;
}

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

bool startsWith(std::span<const std::uint8_t> bytes, std::initializer_list<std::uint8_t> prefix) {
  return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

// Host-order UTF-16 and UTF-32 follow a byte-order mark when there is one.
const char* converterNameFor(CFStringEncoding encoding, std::span<const std::uint8_t> bytes) {
  if (encoding == kCFEncodingUnicode &&
      (startsWith(bytes, {0xFE, 0xFF}) || startsWith(bytes, {0xFF, 0xFE})))
    return "UTF-16";
  if (encoding == kCFEncodingUTF32 &&
      (startsWith(bytes, {0x00, 0x00, 0xFE, 0xFF}) || startsWith(bytes, {0xFF, 0xFE, 0x00, 0x00})))
    return "UTF-32";
  const ConverterEntry* entry = findConverter(encoding);
  return entry ? entry->icuName : nullptr;
}

Converter openConverter(CFStringEncoding encoding, std::span<const std::uint8_t> bytes) {
  const char* name = converterNameFor(encoding, bytes);
  if (!name) return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &status));
  if (U_FAILURE(status)) return nullptr;
  return converter;
}

// Marks every malformed or unmappable sequence with exactly one U+FFFD. ICU's own substitute
// callback writes U+001A for some single-byte errors, which the replacement counts would miss.
// The context counts the marks written.
void writeReplacementCharacter(const void* context, UConverterToUnicodeArgs* args, const char*,
                               int32_t, UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;
  static const UChar kReplacement = 0xFFFD;
  *status = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, status);
  ++*static_cast<std::size_t*>(const_cast<void*>(context));
}

// ICU's IBM tables (the DOS code pages, Shift_JIS, ISO-2022-KR) follow the IBM PC convention for
// three controls: byte 0x1A reads as U+001C, 0x1C as U+007F and 0x7F as U+001A. Every other
// reader takes them as themselves, and 0x1A ends many DOS text files; tested once per table.
bool swapsControls(UConverter* converter) {
  static std::mutex mutex;
  static std::map<std::string, bool, std::less<>> known;
  UErrorCode status = U_ZERO_ERROR;
  const char* name = ucnv_getName(converter, &status);
  if (U_FAILURE(status) || !name) return false;
  std::lock_guard lock(mutex);
  if (auto found = known.find(std::string_view(name)); found != known.end()) return found->second;
  bool swaps = false;
  if (Converter probe{ucnv_open(name, &status)}; U_SUCCESS(status)) {
    UChar units[8];
    const int32_t length = ucnv_toUChars(probe.get(), units, 8, "\x1A\x1C\x7F", 3, &status);
    swaps = U_SUCCESS(status) && length == 3 && units[0] == 0x1C && units[1] == 0x7F &&
            units[2] == 0x1A;
  }
  known.emplace(name, swaps);
  return swaps;
}

// Undoes the IBM convention in units a swapping table produced, or applies it before one writes.
void readControlsAsThemselves(char16_t* units, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (units[i] == 0x1C)
      units[i] = 0x1A;
    else if (units[i] == 0x7F)
      units[i] = 0x1C;
    else if (units[i] == 0x1A)
      units[i] = 0x7F;
  }
}
void writeControlsAsIBM(TextString& text) {
  for (char16_t& unit : text) {
    if (unit == 0x1A)
      unit = 0x1C;
    else if (unit == 0x1C)
      unit = 0x7F;
    else if (unit == 0x7F)
      unit = 0x1A;
  }
}

void dropLeadingByteOrderMark(TextString& text) {
  if (!text.empty() && text.front() == 0xFEFF) text.erase(0, 1);
}

// Appends the decoding of `bytes` to `text`; false (with `text` unchanged) for strict
// conversion of malformed input.
bool appendUTF8(std::span<const std::uint8_t> bytes, bool strict, TextString& text,
                std::size_t* replacements) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) return false;
  const std::size_t start = text.size();
  text.resize(start + bytes.size());  // never more units than bytes
  std::size_t produced = start, substitutions = 0;
  const std::uint8_t* data = bytes.data();
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  while (i < n) {
    // ASCII runs are widened here, sixteen bytes at a time where possible; ICU decodes the rest.
    // Splitting before an ASCII byte never cuts a sequence, well-formed or not, so the answer is
    // ICU's for the whole text.
    std::size_t j = i;
    char16_t* out = text.data() + produced;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    while (j + 16 <= n) {
      __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + j));
      if (_mm_movemask_epi8(chunk) != 0) break;
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(chunk, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(chunk, zero));
      j += 16;
      out += 16;
    }
#endif
    while (j < n && data[j] < 0x80) *out++ = data[j++];
    produced = static_cast<std::size_t>(out - text.data());
    i = j;
    std::size_t k = j;
    while (k < n && data[k] >= 0x80) ++k;
    if (k == j) continue;
    int32_t length = 0, substituted = 0;
    UErrorCode status = U_ZERO_ERROR;
    const char* source = reinterpret_cast<const char*>(data + j);
    auto* target = reinterpret_cast<UChar*>(text.data() + produced);
    const auto capacity = static_cast<int32_t>(text.size() - produced);
    const auto size = static_cast<int32_t>(k - j);
    if (strict)
      u_strFromUTF8(target, capacity, &length, source, size, &status);
    else
      u_strFromUTF8WithSub(target, capacity, &length, source, size, 0xFFFD, &substituted, &status);
    if (U_FAILURE(status) && status != U_STRING_NOT_TERMINATED_WARNING) {
      text.resize(start);
      return false;
    }
    produced += static_cast<std::size_t>(length);
    substitutions += static_cast<std::size_t>(substituted);
    i = k;
  }
  text.resize(produced);
  if (replacements) *replacements += substitutions;
  return true;
}

// UTF-8 through ICU's string function rather than a converter: several times faster on the large
// mostly-ASCII texts that dominate (sheets, pages), with the same answers. Strict conversion
// gives nothing for malformed input; otherwise each maximal malformed subsequence becomes one
// U+FFFD, as the converter's callback does.
std::optional<TextString> convertUTF8(std::span<const std::uint8_t> bytes, bool strict,
                                      std::size_t* replacements = nullptr) {
  TextString text;
  std::size_t substitutions = 0;
  if (!appendUTF8(bytes, strict, text, &substitutions)) return std::nullopt;
  dropLeadingByteOrderMark(text);
  if (replacements) *replacements = substitutions;
  return text;
}

std::optional<TextString> convertStrictly(std::span<const std::uint8_t> bytes,
                                          CFStringEncoding encoding) {
  if (encoding == kCFEncodingUTF8) return convertUTF8(bytes, true);
  // Plain ASCII, the commonest text of all, needs no converter loaded from ICU's data.
  if (encoding == kCFEncodingASCII) {
    if (std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte >= 0x80; }))
      return std::nullopt;
    return TextString(bytes.begin(), bytes.end());
  }
  Converter converter = openConverter(encoding, bytes);
  if (!converter) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  if (U_FAILURE(status)) return std::nullopt;

  TextString text(std::max<std::size_t>(bytes.size(), 32), u'\0');
  const char* source = reinterpret_cast<const char*>(bytes.data());
  const char* sourceLimit = source + bytes.size();
  std::size_t produced = 0;
  for (;;) {
    UChar* target = reinterpret_cast<UChar*>(text.data()) + produced;
    UChar* targetLimit = reinterpret_cast<UChar*>(text.data()) + text.size();
    status = U_ZERO_ERROR;
    ucnv_toUnicode(converter.get(), &target, targetLimit, &source, sourceLimit, nullptr, true,
                   &status);
    produced = static_cast<std::size_t>(target - reinterpret_cast<UChar*>(text.data()));
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    text.resize(text.size() * 2);
  }
  if (U_FAILURE(status)) return std::nullopt;
  text.resize(produced);
  if (swapsControls(converter.get())) readControlsAsThemselves(text.data(), text.size());
  if (isUnicodeEncoding(encoding)) dropLeadingByteOrderMark(text);
  return text;
}

// ---- Czech tables -----------------------------------------------------------------------------

// Kamenický (KEYBCS2, sometimes called CP895): code page 437 with Czech and Slovak letters in
// 0x80 to 0xAD; the box drawing and mathematical half above stays that of code page 437.
constexpr std::array<char16_t, 128> kKamenicky = {
    0x010C, 0x00FC, 0x00E9, 0x010F, 0x00E4, 0x010E, 0x0164, 0x010D,  // 0x80
    0x011B, 0x011A, 0x0139, 0x00CD, 0x013E, 0x013A, 0x00C4, 0x00C1,  // 0x88
    0x00C9, 0x017E, 0x017D, 0x00F4, 0x00F6, 0x00D3, 0x016F, 0x00DA,  // 0x90
    0x00FD, 0x00D6, 0x00DC, 0x0160, 0x013D, 0x00DD, 0x0158, 0x0165,  // 0x98
    0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x0148, 0x0147, 0x016E, 0x00D4,  // 0xA0
    0x0161, 0x0159, 0x0155, 0x0154, 0x00BC, 0x00A7, 0x00AB, 0x00BB,  // 0xA8
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556,  // 0xB0
    0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510,  // 0xB8
    0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,  // 0xC0
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567,  // 0xC8
    0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B,  // 0xD0
    0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,  // 0xD8
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x03BC, 0x03C4,  // 0xE0
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229,  // 0xE8
    0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,  // 0xF0
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,  // 0xF8
};

// KOI8-CS2 (ČSN 36 9103): accent marks, box drawing and Greek in 0xA0 to 0xBF, lowercase letters
// in 0xC0 to 0xDF and uppercase in 0xE0 to 0xFF, each at the position of its unaccented ASCII
// letter plus 0x80 (with KOI8's swapped case), so that stripping the eighth bit leaves readable
// text. 0x80 to 0xA0 are the C1 controls and no-break space. The standard's undefined positions
// (and its "ch" digraph at 0xC7 and 0xE7, which Unicode lacks) are U+FFFD. The standard also puts
// the currency sign at 0x24; the lower half stays ASCII here, since documents that name this
// charset use "$" as the dollar sign.
constexpr char16_t kUndefined = 0xFFFD;
constexpr std::array<char16_t, 128> kKOI8CS2 = {
    0x0080, 0x0081,     0x0082, 0x0083,     0x0084,     0x0085,     0x0086, 0x0087,      // 0x80
    0x0088, 0x0089,     0x008A, 0x008B,     0x008C,     0x008D,     0x008E, 0x008F,      // 0x88
    0x0090, 0x0091,     0x0092, 0x0093,     0x0094,     0x0095,     0x0096, 0x0097,      // 0x90
    0x0098, 0x0099,     0x009A, 0x009B,     0x009C,     0x009D,     0x009E, 0x009F,      // 0x98
    0x00A0, kUndefined, 0x00B4, kUndefined, 0x007E,     kUndefined, 0x02D8, 0x02D9,      // 0xA0
    0x00A8, kUndefined, 0x02DA, 0x00B8,     kUndefined, 0x02DD,     0x02DB, 0x02C7,      // 0xA8
    0x00A9, 0x2122,     0x250C, 0x2510,     0x2514,     0x2518,     0x2500, 0x2193,      // 0xB0
    0x03A9, 0x00A7,     0x03B1, 0x03B3,     0x03B5,     0x03BC,     0x03C0, 0x03C9,      // 0xB8
    0x00E0, 0x00E1,     0x01CE, 0x010D,     0x010F,     0x011B,     0x0155, kUndefined,  // 0xC0
    0x00FC, 0x00ED,     0x016F, 0x013A,     0x013E,     0x00F6,     0x0148, 0x00F3,      // 0xC8
    0x00F4, 0x00E4,     0x0159, 0x0161,     0x0165,     0x00FA,     0x00EB, 0x00E9,      // 0xD0
    0x0171, 0x00FD,     0x017E, kUndefined, kUndefined, 0x0151,     0x0117, 0x00DF,      // 0xD8
    0x00C0, 0x00C1,     0x01CD, 0x010C,     0x010E,     0x011A,     0x0154, kUndefined,  // 0xE0
    0x00DC, 0x00CD,     0x016E, 0x0139,     0x013D,     0x00D6,     0x0147, 0x00D3,      // 0xE8
    0x00D4, 0x00C4,     0x0158, 0x0160,     0x0164,     0x00DA,     0x00CB, 0x00C9,      // 0xF0
    0x0170, 0x00DD,     0x017D, kUndefined, kUndefined, 0x0150,     0x0116, kUndefined,  // 0xF8
};

// A single-byte table: the upper half's characters, and the bytes that stand for two units or for
// a variant that encoding must not choose (kExpansion in the table).
struct ByteTable {
  const std::array<char16_t, 128>& units;
  std::span<const mac_tables::ByteExpansion> expansions = {};
};

struct ByteTableEntry {
  CFStringEncoding encoding;
  ByteTable table;
};

// The single-byte encodings read through a table of ours: the Czech ones, and the Mac scripts
// that neither ICU nor glibc converts.
constexpr ByteTableEntry kByteTables[] = {
    {kCFEncodingKamenicky, {kKamenicky}},
    {kCFEncodingKOI8CS2, {kKOI8CS2}},
    {0x0004, {mac_tables::kArabic}},
    {0x0005, {mac_tables::kHebrew, mac_tables::kHebrewExpansions}},
    {0x0015, {mac_tables::kThai, mac_tables::kThaiExpansions}},
    {0x0024, {mac_tables::kCroatian}},
    {0x0025, {mac_tables::kIcelandic}},
    {0x0026, {mac_tables::kRomanian}},
    {0x008C, {mac_tables::kFarsi}},
};

const ByteTable* byteTableFor(CFStringEncoding encoding) {
  for (const ByteTableEntry& entry : kByteTables)
    if (entry.encoding == encoding) return &entry.table;
  return nullptr;
}

// ---- glibc iconv, for what ICU lacks -----------------------------------------------------------

constexpr const char* kHostUTF16 =
    std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

struct IconvCloser {
  void operator()(iconv_t* descriptor) const {
    iconv_close(*descriptor);
    delete descriptor;
  }
};
using Iconv = std::unique_ptr<iconv_t, IconvCloser>;

Iconv openIconv(const char* to, const char* from) {
  iconv_t descriptor = iconv_open(to, from);
  if (descriptor == reinterpret_cast<iconv_t>(-1)) return nullptr;
  return Iconv(new iconv_t(descriptor));
}

const char* iconvNameFor(CFStringEncoding encoding) {
  const ConverterEntry* entry = findConverter(encoding);
  if (!entry || entry->icuName || !entry->iconvName) return nullptr;
  // A C library built without the converter (a minimal image) has none.
  static const bool available = [] {
    for (const ConverterEntry& candidate : kConverters)
      if (candidate.iconvName && !openIconv(kHostUTF16, candidate.iconvName)) return false;
    return true;
  }();
  return available ? entry->iconvName : nullptr;
}

// Bytes to UTF-16 through iconv. Strict conversion gives nothing at the first malformed or
// incomplete sequence; otherwise each one becomes a single U+FFFD and conversion goes on with the
// next byte, as the ICU path does.
std::optional<TextString> iconvDecode(std::span<const std::uint8_t> bytes, const char* name,
                                      bool strict, std::size_t* replacements = nullptr) {
  Iconv converter = openIconv(kHostUTF16, name);
  if (!converter) return std::nullopt;
  TextString text(std::max<std::size_t>(bytes.size(), 16), u'\0');
  char* source = reinterpret_cast<char*>(const_cast<std::uint8_t*>(bytes.data()));
  std::size_t sourceLeft = bytes.size();
  std::size_t produced = 0;
  while (sourceLeft > 0) {
    if (text.size() - produced < 8) text.resize(text.size() * 2);
    char* target = reinterpret_cast<char*>(text.data() + produced);
    std::size_t targetLeft = (text.size() - produced) * sizeof(char16_t);
    std::size_t result = iconv(*converter, &source, &sourceLeft, &target, &targetLeft);
    produced = text.size() - targetLeft / sizeof(char16_t);
    if (result != static_cast<std::size_t>(-1)) break;
    if (errno == E2BIG) {
      text.resize(text.size() * 2);
      continue;
    }
    if (strict) return std::nullopt;
    // EILSEQ, or EINVAL for a sequence cut off at the end.
    if (text.size() == produced) text.resize(text.size() * 2);
    text[produced++] = u'\uFFFD';
    if (replacements) ++*replacements;
    ++source;
    --sourceLeft;
    iconv(*converter, nullptr, nullptr, nullptr, nullptr);
  }
  text.resize(produced);
  return text;
}

std::optional<std::string> iconvEncode(TextView text, const char* name) {
  Iconv converter = openIconv(name, kHostUTF16);
  if (!converter) return std::nullopt;
  std::string bytes(text.size() * 4 + 16, '\0');
  char* source = reinterpret_cast<char*>(const_cast<char16_t*>(text.data()));
  std::size_t sourceLeft = text.size() * sizeof(char16_t);
  char* target = bytes.data();
  std::size_t targetLeft = bytes.size();
  if (iconv(*converter, &source, &sourceLeft, &target, &targetLeft) == static_cast<std::size_t>(-1))
    return std::nullopt;
  // Stateful encodings (ISO-2022) return to their initial state at the end.
  if (iconv(*converter, nullptr, nullptr, &target, &targetLeft) == static_cast<std::size_t>(-1))
    return std::nullopt;
  bytes.resize(bytes.size() - targetLeft);
  return bytes;
}

TextString decodeWithTable(std::span<const std::uint8_t> bytes, const ByteTable& table) {
  TextString text(bytes.size(), u'\0');
  if (table.expansions.empty()) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
      text[i] = bytes[i] < 0x80 ? bytes[i] : table.units[bytes[i] - 0x80];
    return text;
  }
  std::size_t produced = 0;
  for (std::uint8_t byte : bytes) {
    char16_t unit = byte < 0x80 ? byte : table.units[byte - 0x80];
    if (unit != mac_tables::kExpansion) {
      text[produced++] = unit;
      continue;
    }
    const auto& expansion = *std::find_if(table.expansions.begin(), table.expansions.end(),
                                          [&](const auto& entry) { return entry.byte == byte; });
    text[produced++] = expansion.first;
    if (!expansion.second) continue;
    text.push_back(u'\0');  // one unit more than bytes; the units written stay before the end
    text[produced++] = expansion.second;
  }
  return text;
}

// Each character through the table; a character that only an expansion byte stands for (a pair,
// or a variant without a byte of its own) is written as that byte.
std::optional<std::string> encodeWithTable(TextView text, const ByteTable& table) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char16_t unit = text[i];
    if (unit < 0x80) {
      bytes.push_back(static_cast<char>(unit));
      continue;
    }
    auto found = unit == kUndefined || unit == mac_tables::kExpansion
                     ? table.units.end()
                     : std::find(table.units.begin(), table.units.end(), unit);
    if (found != table.units.end()) {
      bytes.push_back(static_cast<char>(0x80 + (found - table.units.begin())));
      continue;
    }
    auto expansion = std::find_if(
        table.expansions.begin(), table.expansions.end(), [&](const mac_tables::ByteExpansion& e) {
          return e.first == unit && (!e.second || (i + 1 < text.size() && text[i + 1] == e.second));
        });
    if (expansion == table.expansions.end()) return std::nullopt;
    bytes.push_back(static_cast<char>(expansion->byte));
    if (expansion->second) ++i;
  }
  return bytes;
}

// ---- CF ⇄ string-encoding numbering ----------------------------------------------------------

struct NumberPair {
  CFStringEncoding cf;
  StringEncoding ns;
};

constexpr NumberPair kNumberPairs[] = {
    {0x0000, kMacOSRomanStringEncoding},
    {0x0201, kISOLatin1StringEncoding},
    {0x0202, kISOLatin2StringEncoding},
    {0x0420, kShiftJISStringEncoding},
    {0x0500, kWindowsCP1252StringEncoding},
    {0x0501, kWindowsCP1250StringEncoding},
    {0x0502, kWindowsCP1251StringEncoding},
    {0x0503, kWindowsCP1253StringEncoding},
    {0x0504, kWindowsCP1254StringEncoding},
    {0x0600, kASCIIStringEncoding},
    {0x0100, kUnicodeStringEncoding},
    {0x08000100, kUTF8StringEncoding},
    {0x0920, kJapaneseEUCStringEncoding},
    {0x0820, kISO2022JPStringEncoding},
    {0x10000100, kUTF16BigEndianStringEncoding},
    {0x14000100, kUTF16LittleEndianStringEncoding},
    {kCFEncodingKamenicky, kKamenickyStringEncoding},
    {kCFEncodingKOI8CS2, kKOI8CS2StringEncoding},
};

constexpr StringEncoding kPlatformEncodingBase = 0x80000000;

// ---- Charset names ----------------------------------------------------------------------------

struct NumberRule {
  std::uint64_t number;
  CFStringEncoding encoding;
};

// The integer at the first digit of a normalised name ("iso-8859-2" → 88592).
constexpr NumberRule kNumberRules[] = {
    {437, 0x0400},
    {646, 0x0920},
    {6461, 0x0920},
    {1361, 0x0510},
    {1250, 0x0501},
    {1251, 0x0502},
    {1252, 0x0500},
    {1253, 0x0503},
    {1254, 0x0504},
    {1255, 0x0505},
    {1256, 0x0506},
    {1257, 0x0507},
    {1258, 0x0508},
    {708, 0x0206},
    {737, 0x0405},
    {775, 0x0406},
    {850, 0x0410},
    {851, 0x0411},
    {852, 0x0412},
    {855, 0x0413},
    {857, 0x0414},
    {860, 0x0415},
    {861, 0x0416},
    {862, 0x0417},
    {863, 0x0418},
    {864, 0x0419},
    {865, 0x041A},
    {866, 0x041B},
    {869, 0x041C},
    {874, 0x041D},
    {932, 0x0420},
    {936, 0x0421},
    {949, 0x0422},
    {950, 0x0423},
    // ISO Latin 1 under its many spellings and typing slips.
    {8591, 0x0201},
    {8859, 0x0201},
    {80591, 0x0201},
    {85591, 0x0201},
    {88191, 0x0201},
    {88391, 0x0201},
    {88511, 0x0201},
    {88571, 0x0201},
    {88581, 0x0201},
    {88591, 0x0201},
    {88611, 0x0201},
    {88691, 0x0201},
    {88791, 0x0201},
    {89091, 0x0201},
    {99591, 0x0201},
    {100591, 0x0201},
    {810091, 0x0201},
    {85922, 0x0202},
    {88582, 0x0202},
    {88592, 0x0202},
    {88593, 0x0203},
    {88594, 0x0204},
    {88595, 0x0205},
    {88596, 0x0206},
    {88597, 0x0207},
    {88598, 0x0208},
    {885910, 0x020A},
    {885911, 0x020B},
    {885913, 0x020D},
    {885914, 0x020E},
    {885915, 0x020F},
    {885916, 0x0210},
    {88599, 0x0209},
    {89599, 0x0209},
};

enum class Match { Prefix, Contains, Is, MacScript, MacScriptOnly };

struct NameRule {
  Match match;
  std::u16string_view pattern;
  CFStringEncoding encoding;
};

// Asked in order; the first that applies answers.
constexpr NameRule kNameRules[] = {
    {Match::Prefix, u"windows", 0x0500},
    {Match::MacScript, u"mac", 0},
    {Match::MacScriptOnly, u"xmac", 0},
    {Match::Contains, u"latin10", 0x0210},
    {Match::Contains, u"latin1", 0x0201},
    {Match::Is, u"latin", 0x0201},
    {Match::Contains, u"latin2", 0x0202},
    {Match::Contains, u"latin3", 0x0203},
    {Match::Contains, u"latin4", 0x0204},
    {Match::Contains, u"latin5", 0x0209},
    {Match::Contains, u"latin6", 0x020A},
    {Match::Contains, u"latin7", 0x020D},
    {Match::Contains, u"latin8", 0x020E},
    {Match::Contains, u"latin9", 0x020F},
    {Match::Is, u"iso", 0x0201},
    {Match::Is, u"visual", 0x0208},
    {Match::Is, u"xkamcs", kCFEncodingKamenicky},
    {Match::Is, u"kamcs", kCFEncodingKamenicky},
    {Match::Is, u"kbkam", kCFEncodingKamenicky},
    {Match::Is, u"koi8cs2", kCFEncodingKOI8CS2},
    {Match::Is, u"csn369103", kCFEncodingKOI8CS2},
    {Match::Is, u"usascii", 0x0600},
    {Match::Is, u"ascii", 0x0600},
    {Match::Contains, u"utf7", 0x0600},
    {Match::Contains, u"gb2312", 0x0930},
    {Match::Prefix, u"gbk", 0x0631},
    {Match::Contains, u"gb18030", 0x0632},
    {Match::Is, u"utf", kCFEncodingUTF8},
    {Match::Contains, u"utf8", kCFEncodingUTF8},
    {Match::Contains, u"utf08", kCFEncodingUTF8},
    {Match::Contains, u"uft8", kCFEncodingUTF8},
    {Match::Contains, u"utf2d8", kCFEncodingUTF8},
    {Match::Is, u"utf9", kCFEncodingUTF8},
    {Match::Is, u"unicode", kCFEncodingUTF8},
    {Match::Contains, u"utf16", 0x0100},
    {Match::Contains, u"shiftj", 0x0A01},
    {Match::Contains, u"sjis", 0x0A01},
    {Match::Prefix, u"koi8", 0x0A02},
    {Match::Contains, u"big5", 0x0A03},
    {Match::Contains, u"euckr", 0x0940},
    {Match::Contains, u"eucj", 0x0920},
    {Match::Contains, u"euccn", 0x0930},
    {Match::Contains, u"euctw", 0x0931},
    {Match::Is, u"ksc56011987", 0x0640},
    {Match::Is, u"ksc560187", 0x0640},
    {Match::Prefix, u"ksc560192", 0x0641},
    {Match::Is, u"en", kCFEncodingUTF8},
    {Match::Is, u"enus", kCFEncodingUTF8},
    {Match::Is, u"engb", kCFEncodingUTF8},
    {Match::Is, u"none", 0x0600},
};

struct MacScriptName {
  std::u16string_view name;
  CFStringEncoding encoding;
};

constexpr MacScriptName kMacScripts[] = {
    {u"roman", 0},       {u"osroman", 0},     {u"intosh", 0},      {u"romanlatin1", 0x0A04},
    {u"japanese", 1},    {u"chinesetrad", 2}, {u"korean", 3},      {u"arabic", 4},
    {u"hebrew", 5},      {u"greek", 6},       {u"cyrillic", 7},    {u"devanagari", 9},
    {u"gurmukhi", 10},   {u"gujarati", 11},   {u"oriya", 12},      {u"bengali", 13},
    {u"tamil", 14},      {u"telugu", 15},     {u"kannada", 16},    {u"malayalam", 17},
    {u"sinhalese", 18},  {u"burmese", 19},    {u"khmer", 20},      {u"thai", 21},
    {u"laotian", 22},    {u"georgian", 23},   {u"armenian", 24},   {u"chinesesimp", 25},
    {u"tibetan", 26},    {u"mongolian", 27},  {u"ethiopic", 28},   {u"ce", 29},
    {u"centraleur", 29}, {u"vietnamese", 30}, {u"extarabic", 31},  {u"turkish", 35},
    {u"croatian", 36},   {u"icelandic", 37},  {u"romanian", 38},   {u"celtic", 39},
    {u"gaelic", 40},     {u"farsi", 140},     {u"ukrainian", 152}, {u"inuit", 236},
};

CFStringEncoding macScriptEncoding(TextView rest) {
  if (rest.empty()) return kCFEncodingMacRoman;
  for (const MacScriptName& script : kMacScripts)
    if (rest == script.name) return script.encoding;
  return kCFEncodingInvalid;
}

// Alphanumeric units only, lowercased through the tables.
TextString normalizedCharsetName(TextView name) {
  const CharacterTables& tables = characterTables();
  TextString normalized;
  normalized.reserve(name.size());
  for (char16_t unit : name)
    if (tables.alphaNumeric.contains(unit)) normalized.push_back(tables.lower[unit]);
  return normalized;
}

std::optional<std::uint64_t> leadingNumber(TextView name) {
  const CharacterSetRep& digits = characterTables().decimalDigit;
  auto first =
      std::find_if(name.begin(), name.end(), [&](char16_t c) { return digits.contains(c); });
  if (first == name.end()) return std::nullopt;
  std::uint64_t number = 0;
  constexpr std::uint64_t kSaturated = 1'000'000'000'000ULL;  // far above any rule
  for (auto it = first; it != name.end() && digits.contains(*it); ++it)
    number = std::min(kSaturated, number * 10 + static_cast<std::uint64_t>(u_charDigitValue(*it)));
  return number;
}

CFStringEncoding encodingFromNumber(std::uint64_t number, TextView name) {
  for (const NumberRule& rule : kNumberRules)
    if (rule.number == number) return rule.encoding;
  if (number >= 885101 && number <= 885391 && number % 10 == 1) return kCFEncodingISOLatin1;
  if (number == 2022) {
    if (name == u"iso2022jp1") return 0x0822;
    if (name == u"iso2022jp2") return 0x0821;
    if (name == u"iso2022jp3") return 0x0823;
    return kCFEncodingISO2022JP;
  }
  return kCFEncodingInvalid;
}

CFStringEncoding encodingFromNameRules(TextView name) {
  for (const NameRule& rule : kNameRules) {
    switch (rule.match) {
      case Match::Prefix:
        if (name.starts_with(rule.pattern)) return rule.encoding;
        break;
      case Match::Contains:
        if (name.find(rule.pattern) != TextView::npos) return rule.encoding;
        break;
      case Match::Is:
        if (name == rule.pattern) return rule.encoding;
        break;
      case Match::MacScript:
        if (name.starts_with(rule.pattern)) {
          CFStringEncoding encoding = macScriptEncoding(name.substr(rule.pattern.size()));
          if (encoding != kCFEncodingInvalid) return encoding;
        }
        break;
      case Match::MacScriptOnly:
        if (name.starts_with(rule.pattern))
          return macScriptEncoding(name.substr(rule.pattern.size()));
        break;
    }
  }
  return kCFEncodingInvalid;
}

// Names that mean "nothing declared" rather than a mistake worth a log line.
bool isSilentName(TextView name) {
  if (name.empty()) return true;
  if (name.size() == 1)
    return name[0] == u'/' || name[0] == u'0' || name[0] == u'<' || name[0] == u'>';
  return isEqualToStringIgnoringAsciiCase(name, u"auto");
}

}  // namespace

// ---- Public interface -------------------------------------------------------------------------

const char* icuConverterName(CFStringEncoding encoding) {
  const ConverterEntry* entry = findConverter(encoding);
  return entry ? entry->icuName : nullptr;
}

bool isCFEncodingAvailable(CFStringEncoding encoding) {
  return byteTableFor(encoding) || macMultiByteScript(encoding) || icuConverterName(encoding) ||
         iconvNameFor(encoding);
}

std::span<const CFStringEncoding> knownCFEncodings() { return kKnownEncodings; }

StringEncoding stringEncodingFromCFEncoding(CFStringEncoding encoding) {
  if (!isCFEncodingAvailable(encoding)) return kEncodingNotFound;
  for (const NumberPair& pair : kNumberPairs)
    if (pair.cf == encoding) return pair.ns;
  return kPlatformEncodingBase + encoding;
}

CFStringEncoding cfEncodingFromStringEncoding(StringEncoding encoding) {
  for (const NumberPair& pair : kNumberPairs)
    if (pair.ns == encoding) return pair.cf;
  if (encoding < kPlatformEncodingBase || encoding >= kKamenickyStringEncoding)
    return kCFEncodingInvalid;
  auto cf = static_cast<CFStringEncoding>(encoding - kPlatformEncodingBase);
  return isCFEncodingAvailable(cf) ? cf : kCFEncodingInvalid;
}

CFStringEncoding CFEncodingFromName(TextView name) {
  TextString normalized = normalizedCharsetName(name);
  if (normalized.size() < 3) return kCFEncodingInvalid;
  if (std::optional<std::uint64_t> number = leadingNumber(normalized)) {
    CFStringEncoding encoding = encodingFromNumber(*number, normalized);
    if (encoding != kCFEncodingInvalid) return encoding;
  }
  return encodingFromNameRules(normalized);
}

StringEncoding NSEncodingFromName(TextView name) {
  CFStringEncoding cf = CFEncodingFromName(name);
  StringEncoding encoding = kEncodingNotFound;
  if (cf == kCFEncodingShiftJIS)
    encoding = kShiftJISStringEncoding;
  else if (cf != kCFEncodingInvalid)
    encoding = stringEncodingFromCFEncoding(cf);
  if (encoding == kEncodingNotFound && !isSilentName(name))
    logLine("Unknown/Unsupported encoding: " + toUtf8(name));
  return encoding;
}

TextString convertBytes(std::span<const std::uint8_t> bytes, CFStringEncoding encoding,
                        std::size_t* replacements) {
  std::size_t ignored = 0;
  std::size_t& count = replacements ? *replacements : ignored;
  count = 0;
  if (bytes.empty()) return {};
  // A byte or code that stands for several units can take the text past the capacity.
  const std::size_t capacity = std::max<std::size_t>(bytes.size(), 32);
  if (const auto* table = byteTableFor(encoding)) {
    TextString text = decodeWithTable(bytes, *table);
    text.resize(std::min(text.size(), capacity));
    count = countReplacementCharacters(text);  // only undefined bytes decode to U+FFFD
    return text;
  }
  if (const auto* script = macMultiByteScript(encoding)) {
    TextString text = decodeMacMultiByte(bytes, *script, false, &count).value_or(TextString());
    if (text.size() > capacity) {
      text.resize(capacity);
      count = countReplacementCharacters(text);  // no code of these scripts means U+FFFD
    }
    return text;
  }
  if (const char* name = iconvNameFor(encoding))
    return iconvDecode(bytes, name, false, &count).value_or(TextString());
  if (encoding == kCFEncodingUTF8) return convertUTF8(bytes, false, &count).value_or(TextString());
  // ICU's converters: the piecewise decoder, in one piece.
  std::unique_ptr<PiecewiseDecoder> decoder = PiecewiseDecoder::open(bytes, encoding);
  if (!decoder) return {};
  TextString text;
  decoder->decodeMore(text, bytes.size());
  count = decoder->replacements();
  return text;
}

namespace {

class UTF8PiecewiseDecoder final : public PiecewiseDecoder {
 public:
  explicit UTF8PiecewiseDecoder(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool decodeMore(TextString& text, std::size_t byteCount) override {
    std::size_t end = std::min(bytes_.size(), position_ + std::max<std::size_t>(byteCount, 1));
    // A piece ends before a byte that is not a continuation byte: such a byte always starts a
    // new sequence (or malformed subsequence), so the pieces decode as the whole does.
    while (end < bytes_.size() && (bytes_[end] & 0xC0) == 0x80) ++end;
    const std::size_t start = text.size();
    appendUTF8(bytes_.subspan(position_, end - position_), false, text, &replacements_);
    if (position_ == 0 && text.size() > start && text[start] == 0xFEFF) text.erase(start, 1);
    position_ = end;
    return position_ < bytes_.size();
  }

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

// ICU's converter keeps its state between pieces. The whole text is capped at max(bytes, 32)
// units, as convertBytes promises; convertBytes reads ICU's encodings through it in one piece.
class ICUPiecewiseDecoder final : public PiecewiseDecoder {
 public:
  ICUPiecewiseDecoder(std::span<const std::uint8_t> bytes, CFStringEncoding encoding,
                      Converter converter)
      : bytes_(bytes),
        encoding_(encoding),
        converter_(std::move(converter)),
        remaining_(std::max<std::size_t>(bytes.size(), 32)) {}

  bool prepare() {
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter_.get(), writeReplacementCharacter, &replacements_, nullptr,
                        nullptr, &status);
    swapsControls_ = swapsControls(converter_.get());
    return U_SUCCESS(status);
  }

  bool decodeMore(TextString& text, std::size_t byteCount) override {
    if (position_ >= bytes_.size()) return false;
    const std::size_t end =
        std::min(bytes_.size(), position_ + std::max<std::size_t>(byteCount, 1));
    const bool flush = end == bytes_.size();
    const std::size_t start = text.size();
    UErrorCode status = U_ZERO_ERROR;
    do {
      // Room for the piece and what the converter held back from the last; more if it overflows.
      const std::size_t at = text.size();
      const std::size_t room = std::min(remaining_, end - position_ + 32);
      text.resize(at + room);
      UChar* target = reinterpret_cast<UChar*>(text.data() + at);
      const char* source = reinterpret_cast<const char*>(bytes_.data() + position_);
      status = U_ZERO_ERROR;
      ucnv_toUnicode(converter_.get(), &target, target + room, &source,
                     reinterpret_cast<const char*>(bytes_.data() + end), nullptr, flush, &status);
      const auto produced =
          static_cast<std::size_t>(target - reinterpret_cast<UChar*>(text.data() + at));
      text.resize(at + produced);
      remaining_ -= produced;
      position_ =
          static_cast<std::size_t>(reinterpret_cast<const std::uint8_t*>(source) - bytes_.data());
    } while (status == U_BUFFER_OVERFLOW_ERROR && remaining_ > 0);
    if (swapsControls_) readControlsAsThemselves(text.data() + start, text.size() - start);
    if (first_ && text.size() > start) {
      first_ = false;
      if (isUnicodeEncoding(encoding_) && text[start] == 0xFEFF) text.erase(start, 1);
    }
    // Reaching the cap or a hard error ends the text; what came out before it counts.
    if (U_FAILURE(status) || remaining_ == 0) position_ = bytes_.size();
    return position_ < bytes_.size();
  }

 private:
  std::span<const std::uint8_t> bytes_;
  CFStringEncoding encoding_;
  Converter converter_;
  std::size_t remaining_;
  std::size_t position_ = 0;
  bool first_ = true;
  bool swapsControls_ = false;
};

// Our tables, Apple's multi-byte scripts and glibc's converters decode in one piece.
class WholePiecewiseDecoder final : public PiecewiseDecoder {
 public:
  WholePiecewiseDecoder(std::span<const std::uint8_t> bytes, CFStringEncoding encoding)
      : bytes_(bytes), encoding_(encoding) {}

  bool decodeMore(TextString& text, std::size_t) override {
    if (done_) return false;
    done_ = true;
    std::size_t count = 0;
    text.append(convertBytes(bytes_, encoding_, &count));
    replacements_ += count;
    return false;
  }

 private:
  std::span<const std::uint8_t> bytes_;
  CFStringEncoding encoding_;
  bool done_ = false;
};

}  // namespace

std::unique_ptr<PiecewiseDecoder> PiecewiseDecoder::open(std::span<const std::uint8_t> bytes,
                                                         CFStringEncoding encoding) {
  if (bytes.empty()) return nullptr;
  if (byteTableFor(encoding) || macMultiByteScript(encoding) || iconvNameFor(encoding))
    return std::make_unique<WholePiecewiseDecoder>(bytes, encoding);
  if (encoding == kCFEncodingUTF8) return std::make_unique<UTF8PiecewiseDecoder>(bytes);
  Converter converter = openConverter(encoding, bytes);
  if (!converter) return nullptr;
  auto decoder = std::make_unique<ICUPiecewiseDecoder>(bytes, encoding, std::move(converter));
  if (!decoder->prepare()) return nullptr;
  return decoder;
}

bool isNonAsciiUTF8(std::span<const std::uint8_t> bytes) {
  const std::uint8_t* data = bytes.data();
  const std::size_t n = bytes.size();
  bool nonAscii = false;
  for (std::size_t i = 0; i < n;) {
#if defined(__SSE2__)
    while (i + 16 <= n &&
           _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i))) == 0)
      i += 16;
#endif
    while (i < n && data[i] < 0x80) ++i;
    std::size_t k = i;
    while (k < n && data[k] >= 0x80) ++k;
    if (k == i) continue;
    // ICU checks each span between ASCII bytes without writing it (splitting there never cuts
    // a sequence).
    if (k - i > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())) return false;
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(nullptr, 0, &length, reinterpret_cast<const char*>(data + i),
                  static_cast<int32_t>(k - i), &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return false;
    nonAscii = true;
    i = k;
  }
  return nonAscii;
}

std::size_t countReplacementCharacters(TextView text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), u'\uFFFD'));
}

std::optional<TextString> decodeBytes(std::span<const std::uint8_t> bytes,
                                      StringEncoding encoding) {
  CFStringEncoding cf = cfEncodingFromStringEncoding(encoding);
  if (cf == kCFEncodingInvalid) return std::nullopt;
  if (bytes.empty()) return TextString();
  if (const auto* table = byteTableFor(cf)) {
    TextString text = decodeWithTable(bytes, *table);
    if (countReplacementCharacters(text) != 0) return std::nullopt;
    return text;
  }
  if (const auto* script = macMultiByteScript(cf)) return decodeMacMultiByte(bytes, *script, true);
  if (const char* name = iconvNameFor(cf)) return iconvDecode(bytes, name, true);
  return convertStrictly(bytes, cf);
}

std::optional<std::string> encodeText(TextView text, StringEncoding encoding) {
  CFStringEncoding cf = cfEncodingFromStringEncoding(encoding);
  if (cf == kCFEncodingInvalid) return std::nullopt;
  if (text.empty()) return std::string();
  if (const auto* table = byteTableFor(cf)) return encodeWithTable(text, *table);
  if (const auto* script = macMultiByteScript(cf)) return encodeMacMultiByte(text, *script);
  if (const char* name = iconvNameFor(cf)) return iconvEncode(text, name);
  // Writing host-order Unicode puts a byte-order mark first so that readers can tell.
  const char* name = cf == kCFEncodingUnicode ? "UTF-16"
                     : cf == kCFEncodingUTF32 ? "UTF-32"
                                              : icuConverterName(cf);
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &status));
  if (U_FAILURE(status)) return std::nullopt;
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  if (U_FAILURE(status)) return std::nullopt;
  TextString swapped;
  if (swapsControls(converter.get())) {
    swapped = TextString(text);
    writeControlsAsIBM(swapped);
    text = swapped;
  }

  std::string bytes(text.size() * 2 + 16, '\0');
  const UChar* source = reinterpret_cast<const UChar*>(text.data());
  const UChar* sourceLimit = source + text.size();
  std::size_t produced = 0;
  for (;;) {
    char* target = bytes.data() + produced;
    status = U_ZERO_ERROR;
    ucnv_fromUnicode(converter.get(), &target, bytes.data() + bytes.size(), &source, sourceLimit,
                     nullptr, true, &status);
    produced = static_cast<std::size_t>(target - bytes.data());
    if (status != U_BUFFER_OVERFLOW_ERROR) break;
    bytes.resize(bytes.size() * 2);
  }
  if (U_FAILURE(status)) return std::nullopt;
  bytes.resize(produced);
  return bytes;
}

const std::array<char16_t, 128>& kamenickyTable() { return kKamenicky; }
const std::array<char16_t, 128>& koi8cs2Table() { return kKOI8CS2; }

TextString decodeCzech(std::span<const std::uint8_t> bytes, StringEncoding encoding) {
  const auto* table = byteTableFor(cfEncodingFromStringEncoding(encoding));
  return table ? decodeWithTable(bytes, *table) : TextString();
}

}  // namespace ulvek
