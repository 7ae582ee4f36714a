#include "text/text_decoding.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <uchardet/uchardet.h>
#include <unicode/ucsdet.h>
#include <unicode/utf8.h>
#include <unicode/uvernum.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>

#include "base/ascii.h"
#include "base/property_list.h"
#include "platform/file_bytes.h"
#include "text/character_tables.h"
#include "text/entity_conversion.h"
#include "text/markup_scanner.h"

namespace ulvek {

namespace {

using Bytes = std::span<const std::uint8_t>;

bool startsWith(Bytes bytes, std::string_view prefix) {
  return bytes.size() >= prefix.size() &&
         std::memcmp(bytes.data(), prefix.data(), prefix.size()) == 0;
}

// ---- Detection --------------------------------------------------------------------------------

struct DetectorName {
  std::string_view name;
  CFStringEncoding encoding;
};

// uchardet's answers that the charset-name rules would read differently from what uchardet
// means; every other answer goes through CFEncodingFromName.
constexpr DetectorName kDetectorNames[] = {
    {"UTF-16", kCFEncodingUnicode},  // uchardet says so only with a byte-order mark
    {"UTF-32", kCFEncodingUTF32},
    {"X-ISO-10646-UCS-4-3412", kCFEncodingInvalid},
    {"X-ISO-10646-UCS-4-2143", kCFEncodingInvalid},
    {"UHC", 0x0422},
    {"CP949", 0x0422},
    {"MAC-CENTRALEUROPE", kCFEncodingMacCentralEurRoman},
    {"TIS-620", 0x020B},  // ISO-8859-11 less the no-break space
    {"ISO-2022-KR", 0x0840},
    {"ISO-2022-CN", 0x0830},
    {"HZ-GB-2312", kCFEncodingHZGB2312},
    {"VISCII", 0x0A07},
    {"KOI8-U", 0x0A08},
    {"CP737", 0x0405},
    {"IBM865", 0x041A},
};

// ICU's detector answers these wide forms without a byte-order mark, which uchardet does not try.
constexpr DetectorName kWideDetectorNames[] = {
    {"UTF-16BE", kCFEncodingUTF16BE},
    {"UTF-16LE", kCFEncodingUTF16LE},
    {"UTF-32BE", kCFEncodingUTF32BE},
    {"UTF-32LE", kCFEncodingUTF32LE},
};
constexpr int32_t kWideDetectorConfidence = 50;

StringEncoding stringEncodingForDetected(CFStringEncoding cf) {
  if (cf == kCFEncodingShiftJIS) return kShiftJISStringEncoding;
  return stringEncodingFromCFEncoding(cf);
}

// A detector holds a prober per charset; building one costs more than detecting a small file,
// so each thread keeps one and resets it.
uchardet_t reusableDetector() {
  thread_local std::unique_ptr<uchardet, decltype(&uchardet_delete)> detector(uchardet_new(),
                                                                              uchardet_delete);
  if (detector) uchardet_reset(detector.get());
  return detector.get();
}

std::optional<StringEncoding> uchardetEncoding(Bytes bytes) {
  uchardet_t detector = reusableDetector();
  if (!detector) return std::nullopt;
  // In pieces, as a stream: once the detector has decided it skips what follows, where one call
  // would run every prober over the whole file (seconds for a few megabytes of binary).
  constexpr std::size_t kPiece = 64 * 1024;
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
    const std::size_t size = std::min(kPiece, bytes.size() - at);
    if (uchardet_handle_data(detector, reinterpret_cast<const char*>(bytes.data() + at), size) != 0)
      return std::nullopt;
  }
  uchardet_data_end(detector);
  const char* answer = uchardet_get_charset(detector);
  if (!answer || !*answer) return std::nullopt;
  std::string_view name(answer);
  CFStringEncoding cf = kCFEncodingInvalid;
  auto known = std::find_if(std::begin(kDetectorNames), std::end(kDetectorNames),
                            [&](const DetectorName& entry) { return entry.name == name; });
  cf = known != std::end(kDetectorNames) ? known->encoding : CFEncodingFromName(fromAscii(name));
  if (cf == kCFEncodingInvalid) return std::nullopt;
  StringEncoding encoding = stringEncodingForDetected(cf);
  if (encoding == kEncodingNotFound) return std::nullopt;
  return encoding;
}

bool hasByteOrderMark(Bytes bytes) {
  return startsWith(bytes, "\xFE\xFF") || startsWith(bytes, "\xFF\xFE") ||
         startsWith(bytes, std::string_view("\0\0\xFE\xFF", 4)) ||
         startsWith(bytes, "\xEF\xBB\xBF");
}

// ICU's charset detector, the one part of libicui18n this program uses: the library is large
// and costly to load, and most files never come this far, so it is opened on first use.
struct CharsetDetector {
  decltype(&ucsdet_open) open = nullptr;
  decltype(&ucsdet_close) close = nullptr;
  decltype(&ucsdet_setText) setText = nullptr;
  decltype(&ucsdet_detect) detect = nullptr;
  decltype(&ucsdet_getName) getName = nullptr;
  decltype(&ucsdet_getConfidence) getConfidence = nullptr;

  CharsetDetector() {
    const std::string version = std::to_string(U_ICU_VERSION_MAJOR_NUM);
    void* library = dlopen(("libicui18n.so." + version).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) return;
    // ICU's functions carry its version in their names (ucsdet_open_72).
    auto resolve = [&](auto& function, const char* name) {
      void* symbol = dlsym(library, (name + ("_" + version)).c_str());
      if (!symbol) symbol = dlsym(library, name);
      function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(symbol);
    };
    resolve(open, "ucsdet_open");
    resolve(close, "ucsdet_close");
    resolve(setText, "ucsdet_setText");
    resolve(detect, "ucsdet_detect");
    resolve(getName, "ucsdet_getName");
    resolve(getConfidence, "ucsdet_getConfidence");
  }

  bool loaded() const { return open && close && setText && detect && getName && getConfidence; }
};

const CharsetDetector& charsetDetector() {
  static const CharsetDetector detector;
  return detector;
}

std::optional<StringEncoding> wideUnicodeEncoding(Bytes bytes) {
  // Marked text is uchardet's; it tells UTF-16 from UTF-32 and keeps the mark's byte order.
  if (bytes.size() < 4 || hasByteOrderMark(bytes)) return std::nullopt;
  // ICU recognises the wide forms by the NUL bytes of their ASCII characters near the start;
  // text without any is never one of them, and ICU's other recognisers are costly.
  constexpr std::size_t kLead = 64;
  if (!std::memchr(bytes.data(), 0, std::min(bytes.size(), kLead))) return std::nullopt;
  const CharsetDetector& icu = charsetDetector();
  if (!icu.loaded()) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UCharsetDetector, decltype(icu.close)> detector(icu.open(&status), icu.close);
  if (U_FAILURE(status)) return std::nullopt;
  // ICU looks at the first units only; a short sample keeps this cheap on huge files.
  constexpr std::size_t kSample = 4096;
  icu.setText(detector.get(), reinterpret_cast<const char*>(bytes.data()),
              static_cast<int32_t>(std::min(bytes.size(), kSample)), &status);
  const UCharsetMatch* match = icu.detect(detector.get(), &status);
  if (U_FAILURE(status) || !match) return std::nullopt;
  const char* name = icu.getName(match, &status);
  int32_t confidence = icu.getConfidence(match, &status);
  if (U_FAILURE(status) || !name || confidence < kWideDetectorConfidence) return std::nullopt;
  for (const DetectorName& entry : kWideDetectorNames)
    if (entry.name == name) return stringEncodingFromCFEncoding(entry.encoding);
  return std::nullopt;
}

// UTF-8 with a few stray single-byte characters, as when lines from a Latin-1 source were
// pasted into a UTF-8 file. A detector calls the whole file some 8-bit encoding and garbles
// every real multi-byte character; decoding it as UTF-8 and reading each bad byte as
// Windows-1252 keeps both kinds of words. Nothing when the bytes are valid UTF-8, or when bad
// bytes outnumber good multi-byte characters (then the file is 8-bit text).
std::optional<TextString> decodeMixedUTF8(Bytes bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int32_t>::max()))
    return std::nullopt;
  const auto* data = reinterpret_cast<const char*>(bytes.data());
  const auto length = static_cast<int32_t>(bytes.size());
  std::size_t multiByte = 0;
  std::size_t bad = 0;
  for (int32_t i = 0; i < length;) {
    if (static_cast<std::uint8_t>(data[i]) < 0x80) {
      ++i;
      continue;
    }
    UChar32 c;
    U8_NEXT(data, i, length, c);
    ++(c < 0 ? bad : multiByte);
  }
  if (bad == 0 || multiByte < bad) return std::nullopt;

  TextString text;
  text.reserve(bytes.size());
  for (int32_t i = 0; i < length;) {
    const int32_t start = i;
    UChar32 c;
    U8_NEXT(data, i, length, c);
    if (c >= 0) {
      if (c > 0xFFFF) {
        text.push_back(static_cast<char16_t>(U16_LEAD(c)));
        text.push_back(static_cast<char16_t>(U16_TRAIL(c)));
      } else {
        text.push_back(static_cast<char16_t>(c));
      }
      continue;
    }
    // A sequence cut short, within the text or at its end, is a character lost.
    const auto first = static_cast<std::uint8_t>(data[start]);
    const bool cut = i - start > 1 || (i == length && first >= 0xC2 && first <= 0xF4);
    std::optional<TextString> single;
    if (!cut) single = decodeBytes(bytes.subspan(start, 1), kWindowsCP1252StringEncoding);
    if (single && !single->empty())
      text += *single;
    else
      text.push_back(u'\uFFFD');
  }
  return text;
}

// ---- Markup decoding --------------------------------------------------------------------------

struct Decoding {
  TextString text;
  std::size_t replacements = 0;
};

// The markup converter in string-encoding terms: nothing when no units come out.
std::optional<Decoding> decodeMarkup(Bytes bytes, StringEncoding encoding) {
  CFStringEncoding cf = cfEncodingFromStringEncoding(encoding);
  if (cf == kCFEncodingInvalid) return std::nullopt;
  Decoding decoding;
  decoding.text = convertBytes(bytes, cf, &decoding.replacements);
  if (decoding.text.empty()) return std::nullopt;
  return decoding;
}

bool isCzechEncoding(StringEncoding encoding) {
  return encoding == kKamenickyStringEncoding || encoding == kKOI8CS2StringEncoding;
}

// The second decoding, in the declared encoding.
std::optional<Decoding> decodeDeclared(Bytes bytes, StringEncoding declared) {
  if (isCzechEncoding(declared)) return Decoding{decodeCzech(bytes, declared), 0};
  return decodeMarkup(bytes, declared);
}

bool hasPropertyListExtension(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension.size() < 2) return false;
  const TextString name = fromUtf8(std::string_view(extension).substr(1));
  return std::any_of(std::begin(kPropertyListExtensions), std::end(kPropertyListExtensions),
                     [&](TextView known) { return isEqualToStringIgnoringAsciiCase(name, known); });
}

// A property list of any format as the text of its XML form.
std::optional<TextString> propertyListAsXml(Bytes bytes, const std::string& path) {
  std::optional<PropertyValue> list = propertyListFromBytes(bytes, path);
  if (!list) return std::nullopt;
  std::optional<std::string> xml = xmlPropertyList(*list);
  TextString text;
  if (!xml || !fromUtf8Strict(*xml, text)) return std::nullopt;
  return text;
}

// The byte-order marks that decide a markup file's encoding before the default and any
// declaration.
constexpr std::pair<std::string_view, StringEncoding> kMarkupByteOrderMarks[] = {
    {"\xFF\xFE", kUTF16LittleEndianStringEncoding},
    {"\xFE\xFF", kUTF16BigEndianStringEncoding},
    {"\xEF\xBB\xBF", kUTF8StringEncoding}};

// Markup files from this size on are decoded window by window while they are scanned, so that
// neither two decodings nor a whole one are held at once; a window holds about this many units.
constexpr std::size_t kLargeMarkupBytes = 4 * 1024 * 1024;
constexpr std::size_t kMarkupWindowUnits = 1024 * 1024;

// Feeds a scan from a piecewise decoder; `units` are taken as bytes, near enough for windows.
class DecoderFeed final : public MarkupTextFeed {
 public:
  explicit DecoderFeed(PiecewiseDecoder& decoder) : decoder_(decoder) {}
  bool appendMore(TextString& window, std::size_t units) override {
    return decoder_.decodeMore(window, units);
  }

 private:
  PiecewiseDecoder& decoder_;
};

// A markup file's bytes in one encoding, decoded afresh, window by window, for every scan.
class DecodedMarkup final : public MarkupSource {
 public:
  DecodedMarkup(std::shared_ptr<const FileBytes> owner, Bytes bytes, CFStringEncoding encoding,
                std::size_t windowUnits)
      : owner_(std::move(owner)), bytes_(bytes), encoding_(encoding), windowUnits_(windowUnits) {}

  bool scan(MarkupTagHandler& handler) const override {
    std::unique_ptr<PiecewiseDecoder> decoder = PiecewiseDecoder::open(bytes_, encoding_);
    if (!decoder) return false;
    DecoderFeed feed(*decoder);
    return parseXmlInWindows(feed, handler, windowUnits_);
  }
  using MarkupSource::scan;
  TextString wholeText() const override { return convertBytes(bytes_, encoding_); }
  std::size_t lengthHint() const override { return bytes_.size(); }

 private:
  std::shared_ptr<const FileBytes> owner_;
  Bytes bytes_;
  CFStringEncoding encoding_;
  std::size_t windowUnits_;
};

// A decoded text held by its source.
class OwnedMarkup final : public MarkupSource {
 public:
  explicit OwnedMarkup(TextString text) : text_(std::move(text)) {}
  bool scan(MarkupTagHandler& handler) const override {
    return parseXmlWithHandler(text_, handler, nullptr, false);
  }
  using MarkupSource::scan;
  TextString wholeText() const override { return text_; }
  std::size_t lengthHint() const override { return text_.size(); }

 private:
  TextString text_;
};

// The units and replacement marks of one decoding.
struct DecodingCounts {
  std::size_t units = 0;
  std::size_t replacements = 0;
};

// Which decoding answers once the declared charset is known and differs from the default.
enum class MarkupPick { Default, Declared, MacRoman };

MarkupPick pickMarkupDecoding(StringEncoding defaultEncoding, StringEncoding declared,
                              DecodingCounts first, std::optional<DecodingCounts> second,
                              StringEncoding& used) {
  if (second) {
    if (second->replacements > first.replacements) return MarkupPick::Default;
    // Well-formed UTF-8 with multi-byte sequences that claims a single-byte charset: the bytes
    // are right and the label is wrong, which the longer single-byte decoding gives away.
    if (second->replacements == 0 && first.replacements == 0 &&
        defaultEncoding == kUTF8StringEncoding &&
        (declared == kISOLatin1StringEncoding || declared == kWindowsCP1251StringEncoding) &&
        second->units > first.units) {
      used = kUTF8StringEncoding;
      return MarkupPick::Default;
    }
    used = declared;
    return MarkupPick::Declared;
  }
  used = declared;
  if (declared != kUTF8StringEncoding) return MarkupPick::Default;
  used = kMacOSRomanStringEncoding;
  return MarkupPick::MacRoman;
}

bool isUndeclared(StringEncoding declared, StringEncoding defaultEncoding) {
  return declared == defaultEncoding || declared == kEncodingNotFound ||
         declared == kASCIIStringEncoding;
}

// Whether a decoding gives any unit, decoding no more than it must to tell.
bool decodesToSomething(Bytes bytes, StringEncoding encoding) {
  CFStringEncoding cf = cfEncodingFromStringEncoding(encoding);
  if (cf == kCFEncodingInvalid) return false;
  std::unique_ptr<PiecewiseDecoder> decoder = PiecewiseDecoder::open(bytes, cf);
  if (!decoder) return false;
  TextString piece;
  for (bool more = true; more && piece.empty();)
    more = decoder->decodeMore(piece, kMarkupWindowUnits);
  return !piece.empty();
}

// The counts of a decoding without keeping its text; nothing when no units come out.
std::optional<DecodingCounts> countDecoding(Bytes bytes, StringEncoding encoding) {
  CFStringEncoding cf = cfEncodingFromStringEncoding(encoding);
  if (cf == kCFEncodingInvalid) return std::nullopt;
  // Every byte is one character.
  if (cf == kCFEncodingISOLatin1) return DecodingCounts{bytes.size(), 0};
  std::unique_ptr<PiecewiseDecoder> decoder = PiecewiseDecoder::open(bytes, cf);
  if (!decoder) return std::nullopt;
  DecodingCounts counts;
  TextString piece;
  for (bool more = true; more;) {
    piece.clear();
    more = decoder->decodeMore(piece, kMarkupWindowUnits);
    counts.units += piece.size();
  }
  counts.replacements = decoder->replacements();
  if (counts.units == 0) return std::nullopt;
  return counts;
}

std::unique_ptr<MarkupSource> decodedMarkup(std::shared_ptr<const FileBytes> owner, Bytes bytes,
                                            StringEncoding encoding, std::size_t windowUnits) {
  return std::make_unique<DecodedMarkup>(std::move(owner), bytes,
                                         cfEncodingFromStringEncoding(encoding), windowUnits);
}

// Steps 3 to 6 of markup file decoding for a large file: the same choice as on whole decodings,
// made from a windowed scan for the declaration and counting passes over the candidates.
std::unique_ptr<MarkupSource> windowedMarkupFile(std::shared_ptr<const FileBytes> owner,
                                                 Bytes bytes, StringEncoding defaultEncoding,
                                                 StringEncoding& used, std::size_t windowUnits) {
  for (auto [mark, encoding] : kMarkupByteOrderMarks) {
    if (startsWith(bytes, mark) && decodesToSomething(bytes, encoding)) {
      used = encoding;
      return decodedMarkup(owner, bytes, encoding, windowUnits);
    }
  }
  if (isNonAsciiUTF8(bytes) && decodesToSomething(bytes, kUTF8StringEncoding)) {
    used = kUTF8StringEncoding;
    return decodedMarkup(owner, bytes, kUTF8StringEncoding, windowUnits);
  }
  used = defaultEncoding;
  if (!decodesToSomething(bytes, defaultEncoding)) return nullptr;
  std::unique_ptr<MarkupSource> first = decodedMarkup(owner, bytes, defaultEncoding, windowUnits);
  const StringEncoding declared = markupEncoding(*first);
  if (isUndeclared(declared, defaultEncoding)) return first;

  std::optional<DecodingCounts> firstCounts = countDecoding(bytes, defaultEncoding);
  if (!firstCounts) return nullptr;
  std::optional<TextString> czech;
  std::optional<DecodingCounts> secondCounts;
  if (isCzechEncoding(declared)) {
    czech = decodeCzech(bytes, declared);
    secondCounts = DecodingCounts{czech->size(), 0};
  } else {
    secondCounts = countDecoding(bytes, declared);
  }
  switch (pickMarkupDecoding(defaultEncoding, declared, *firstCounts, secondCounts, used)) {
    case MarkupPick::Default:
      return first;
    case MarkupPick::Declared:
      if (czech) return std::make_unique<OwnedMarkup>(std::move(*czech));
      return decodedMarkup(owner, bytes, declared, windowUnits);
    case MarkupPick::MacRoman:
      if (decodesToSomething(bytes, kMacOSRomanStringEncoding))
        return decodedMarkup(owner, bytes, kMacOSRomanStringEncoding, windowUnits);
      return first;
  }
  return first;
}

// Steps 3 to 6 of markup file decoding, on bytes that are not a property list.
std::optional<TextString> decodeMarkupFile(Bytes bytes, StringEncoding defaultEncoding,
                                           StringEncoding& used) {
  for (auto [mark, encoding] : kMarkupByteOrderMarks) {
    if (!startsWith(bytes, mark)) continue;
    if (std::optional<Decoding> marked = decodeMarkup(bytes, encoding)) {
      used = encoding;
      return std::move(marked->text);
    }
  }
  // Valid UTF-8 that is not plain ASCII is UTF-8, whatever the page declares or the default
  // says: pages that declare otherwise are mislabelled, and no other 8-bit text passes the test.
  if (isNonAsciiUTF8(bytes)) {
    if (std::optional<Decoding> utf8 = decodeMarkup(bytes, kUTF8StringEncoding)) {
      used = kUTF8StringEncoding;
      return std::move(utf8->text);
    }
  }
  if (bytes.size() >= kLargeMarkupBytes) {
    std::unique_ptr<MarkupSource> source =
        windowedMarkupFile(nullptr, bytes, defaultEncoding, used, kMarkupWindowUnits);
    if (!source) return std::nullopt;
    return source->wholeText();
  }

  used = defaultEncoding;
  std::optional<Decoding> first = decodeMarkup(bytes, defaultEncoding);
  if (!first) return std::nullopt;
  const StringEncoding declared = markupEncoding(first->text);
  if (isUndeclared(declared, defaultEncoding)) return std::move(first->text);

  std::optional<Decoding> second = decodeDeclared(bytes, declared);
  std::optional<DecodingCounts> secondCounts;
  if (second) secondCounts = DecodingCounts{second->text.size(), second->replacements};
  switch (pickMarkupDecoding(defaultEncoding, declared, {first->text.size(), first->replacements},
                             secondCounts, used)) {
    case MarkupPick::Default:
      break;
    case MarkupPick::Declared:
      return std::move(second->text);
    case MarkupPick::MacRoman:
      if (std::optional<TextString> roman = decodeBytes(bytes, kMacOSRomanStringEncoding))
        return roman;
      break;
  }
  return std::move(first->text);
}

// Converters for the fallback lists of markup data declared as Shift JIS or EUC-CN.
constexpr CFStringEncoding kJapaneseFallbacks[] = {0x0A01, 0x0628, 0x0001, 0x0420, 0x0620,
                                                   0x0621, 0x0622, 0x0623, 0x0624, 0x0920,
                                                   0x0820, 0x0822, 0x0821, 0x0823};
constexpr CFStringEncoding kChineseFallbacks[] = {0x0931, 0x0630, 0x0A05, 0x0631,
                                                  0x0A03, 0x0A06, 0x0A09};
constexpr StringEncoding kEUCCNStringEncoding = 0x80000930;
constexpr StringEncoding kBig5StringEncoding = 0x80000A03;
constexpr StringEncoding kBig5HKSCSStringEncoding = 0x80000A06;

std::optional<TextString> firstConvertible(Bytes bytes, std::span<const CFStringEncoding> list) {
  for (CFStringEncoding encoding : list) {
    TextString text = convertBytes(bytes, encoding);
    if (!text.empty()) return text;
  }
  return std::nullopt;
}

// ---- Header fields ----------------------------------------------------------------------------

std::optional<TextString> findHeaderField(TextView text, TextView name, char16_t quotation,
                                          char16_t separator, bool allowWhite) {
  if (name.empty() || text.size() < name.size()) return std::nullopt;
  const CharacterTables& tables = characterTables();
  const CharacterSetRep& white = tables.whiteSpaceAndNewline;
  const std::size_t length = text.size();
  for (std::size_t start = 0; start + name.size() <= length; ++start) {
    std::size_t k = 0;
    while (k < name.size() && tables.upper[text[start + k]] == name[k]) ++k;
    if (k < name.size()) continue;

    std::size_t p = start + name.size();
    while (p < length && white.contains(text[p])) ++p;
    if (p >= length || text[p] != u'=') continue;
    ++p;
    if (allowWhite)
      while (p < length && white.contains(text[p])) ++p;

    char16_t unit = p < length ? text[p] : 0;
    bool quoted =
        p < length && (unit == quotation || (allowWhite && (unit == u'"' || unit == u'\'')));
    if (quoted) {
      std::size_t close = text.find(unit, p + 1);
      if (close == TextView::npos || close == p + 1) continue;
      return TextString(text.substr(p + 1, close - p - 1));
    }
    std::size_t end = p;
    if (allowWhite) {
      while (end < length && text[end] != separator && text[end] != u'"' && text[end] != u'\'' &&
             text[end] != u'>' && !white.contains(text[end]))
        ++end;
    } else if (separator != 0) {
      end = std::min(text.find(separator, p), length);
    } else {
      end = length;
    }
    if (end == p) continue;
    return TextString(text.substr(p, end - p));
  }
  return std::nullopt;
}

// ---- Declared charset -------------------------------------------------------------------------

struct CharsetDeclaration {
  TextString charset;
  TextRange range;
};

bool nameEquals(const MarkupItem& item, std::string_view name) {
  return item.nameLength == name.size() && item.nameIs(name);
}

std::optional<CharsetDeclaration> findCharsetDeclaration(const MarkupSource& source) {
  std::optional<CharsetDeclaration> found;
  auto handler = [&](const MarkupItem& item) -> bool {
    if (!item.hasName() || item.state != MarkupState::Tag) return false;
    const TextRange tagRange = item.tagRange();
    const TextView tag = item.tag();
    if (nameEquals(item, "xml") && tag.size() > 1 && tag[1] == u'?') {
      std::optional<TextString> encoding =
          attributeOfTagCharacters(item.units, tagRange, "ENCODING");
      if (!encoding) return false;
      found = CharsetDeclaration{std::move(*encoding), tagRange};
      return true;
    }
    if (nameEquals(item, "body")) return true;
    if (!nameEquals(item, "meta") || tag.size() < 3 || tag[1] == u'/') return false;
    std::optional<TextString> charset;
    if (std::optional<TextString> content = contentAttributeOfTagCharacters(item.units, tagRange))
      charset = findHeaderField(*content, u"CHARSET", u'\'', u';', true);
    if (!charset) charset = attributeOfTagCharacters(item.units, tagRange, "CHARSET");
    if (!charset) return false;
    found = CharsetDeclaration{stringByConvertingEntitiesToCharacters(*charset), tagRange};
    return true;
  };
  source.scan(handler);
  return found;
}

// ---- Writing ----------------------------------------------------------------------------------

std::atomic<StringEncoding> gDefaultEncoding{kUTF8StringEncoding};

bool writeBytes(std::string_view bytes, const std::string& path, bool atomically) {
  std::string target = path;
  if (atomically) {
    std::filesystem::path directory = std::filesystem::path(path).parent_path();
    target = ((directory.empty() ? std::filesystem::path(".") : directory) /
              (".ulvek-" + std::filesystem::path(path).filename().string() + "-XXXXXX"))
                 .string();
  }
  int fd = atomically ? ::mkstemp(target.data())
                      : ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool written = true;
  for (std::size_t done = 0; written && done < bytes.size();) {
    ssize_t count = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0)
      written = false;
    else
      done += static_cast<std::size_t>(count);
  }
  if (atomically) written = written && ::fchmod(fd, 0644) == 0 && ::fsync(fd) == 0;
  written = ::close(fd) == 0 && written;
  if (!atomically) return written;
  if (written && ::rename(target.c_str(), path.c_str()) == 0) return true;
  ::unlink(target.c_str());
  return false;
}

bool isLatin1(TextView text) {
  return std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x100; });
}

std::size_t utf8Length(TextView text) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c < 0x80)
      length += 1;
    else if (c < 0x800)
      length += 2;
    else if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
             text[i + 1] <= 0xDFFF) {
      length += 4;
      ++i;
    } else
      length += 3;
  }
  return length;
}

}  // namespace

// ---- Plain text -------------------------------------------------------------------------------

std::optional<DetectedText> decodeDetectingEncoding(std::span<const std::uint8_t> bytes) {
  // A UTF-8 byte-order mark, and valid UTF-8, decide before any guessing.
  bool utf8Mark = bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF;
  if (utf8Mark || isNonAsciiUTF8(bytes)) {
    if (std::optional<TextString> text = decodeBytes(bytes, kUTF8StringEncoding))
      return DetectedText{std::move(*text), kUTF8StringEncoding};
  }
  // A file cut inside a character, or with a stray bad byte, is still in the encoding the
  // detector saw: mark the bad bytes rather than lose the whole text.
  auto decodeAs = [&](StringEncoding encoding) -> std::optional<DetectedText> {
    if (std::optional<TextString> text = decodeBytes(bytes, encoding))
      return DetectedText{std::move(*text), encoding};
    TextString marked = convertBytes(bytes, cfEncodingFromStringEncoding(encoding));
    if (!marked.empty()) return DetectedText{std::move(marked), encoding};
    return std::nullopt;
  };
  // uchardet does not look for UTF-16 or UTF-32 without a byte-order mark and may call such
  // text a multi-byte Asian encoding, so the wide forms are ruled out first. ICU's test needs
  // NUL bytes in the right places, which 8-bit text does not have.
  if (std::optional<StringEncoding> wide = wideUnicodeEncoding(bytes))
    if (std::optional<DetectedText> text = decodeAs(*wide)) return text;
  if (std::optional<TextString> mixed = decodeMixedUTF8(bytes))
    return DetectedText{std::move(*mixed), kUTF8StringEncoding};
  if (std::optional<StringEncoding> guessed = uchardetEncoding(bytes)) return decodeAs(*guessed);
  return std::nullopt;
}

std::optional<TextString> stringWithContentsOfFile(const std::string& path, StringEncoding encoding,
                                                   StringEncoding* usedEncoding) {
  std::optional<FileBytes> bytes = FileBytes::read(path).take();
  if (bytes) return stringWithFileBytes(bytes->bytes(), encoding, usedEncoding);
  // Detection asked for and nothing read: the ASCII fallback is what is reported.
  const bool detect = encoding == 0 || encoding >= kKamenickyStringEncoding;
  if (usedEncoding) *usedEncoding = detect ? kASCIIStringEncoding : encoding;
  return std::nullopt;
}

std::optional<TextString> stringWithFileBytes(std::span<const std::uint8_t> bytes,
                                              StringEncoding encoding,
                                              StringEncoding* usedEncoding) {
  if (usedEncoding) *usedEncoding = encoding;
  bool detect = encoding == 0 || encoding >= kKamenickyStringEncoding;
  if (!detect) return decodeBytes(bytes, encoding);
  if (std::optional<DetectedText> detected = decodeDetectingEncoding(bytes)) {
    if (usedEncoding) *usedEncoding = detected->encoding;
    return std::move(detected->text);
  }
  if (usedEncoding) *usedEncoding = kASCIIStringEncoding;
  return decodeBytes(bytes, kASCIIStringEncoding);
}

std::optional<TextString> stringWithData(std::span<const std::uint8_t> data,
                                         StringEncoding encoding) {
  return decodeBytes(data, encoding);
}

std::optional<TextString> stringWithBytes(const void* bytes, std::size_t length,
                                          StringEncoding encoding) {
  if (!bytes && length != 0) return std::nullopt;
  return decodeBytes({static_cast<const std::uint8_t*>(bytes), length}, encoding);
}

std::optional<TextString> stringWithCString(const char* bytes, std::size_t length,
                                            StringEncoding encoding) {
  return stringWithBytes(bytes, length, encoding);
}

std::optional<TextString> stringWithNullTerminatedCString(const char* bytes,
                                                          StringEncoding encoding) {
  if (!bytes) return std::nullopt;
  return stringWithBytes(bytes, std::strlen(bytes), encoding);
}

StringEncoding defaultEncoding() { return gDefaultEncoding.load(); }
void setDefaultEncoding(StringEncoding encoding) { gDefaultEncoding.store(encoding); }

StringEncoding fastestEncoding(TextView text) {
  return isAsciiString(text) ? kASCIIStringEncoding : kUnicodeStringEncoding;
}

StringEncoding smallestEncoding(TextView text) {
  if (isAsciiString(text)) return kASCIIStringEncoding;
  if (isLatin1(text)) return kISOLatin1StringEncoding;
  // UTF-16 as written carries a two-byte byte-order mark.
  return utf8Length(text) <= text.size() * 2 + 2 ? kUTF8StringEncoding : kUnicodeStringEncoding;
}

bool writeToFile(TextView text, const std::string& path, bool atomically, StringEncoding encoding) {
  std::optional<std::string> bytes = encodeText(text, encoding);
  return bytes && writeBytes(*bytes, path, atomically);
}

bool writeToFileUsingDefaultEncoding(TextView text, const std::string& path, bool atomically,
                                     StringEncoding* usedEncoding) {
  StringEncoding encoding = defaultEncoding();
  if (usedEncoding) *usedEncoding = encoding;
  return writeToFile(text, path, atomically, encoding);
}

bool writeToFileUsingFastestEncoding(TextView text, const std::string& path, bool atomically,
                                     StringEncoding* usedEncoding) {
  StringEncoding encoding = fastestEncoding(text);
  if (usedEncoding) *usedEncoding = encoding;
  return writeToFile(text, path, atomically, encoding);
}

bool writeToFileUsingSmallestEncoding(TextView text, const std::string& path, bool atomically,
                                      StringEncoding* usedEncoding) {
  StringEncoding encoding = smallestEncoding(text);
  if (usedEncoding) *usedEncoding = encoding;
  return writeToFile(text, path, atomically, encoding);
}

// ---- Markup -----------------------------------------------------------------------------------

std::optional<TextString> stringWithMarkupContentsOfFile(const std::string& path,
                                                         StringEncoding defaultEncoding,
                                                         StringEncoding* usedEncoding) {
  StringEncoding used = kEncodingNotFound;
  std::optional<TextString> text;
  if (std::optional<FileBytes> bytes = FileBytes::read(path).take()) {
    if (startsWith(bytes->bytes(), "bplist") || hasPropertyListExtension(path))
      text = propertyListAsXml(bytes->bytes(), path);
    if (!text) text = decodeMarkupFile(bytes->bytes(), defaultEncoding, used);
  }
  if (usedEncoding) *usedEncoding = used;
  return text;
}

namespace {

// The bytes decoded whole, or from `largeBytes` on as a windowed source.
std::unique_ptr<MarkupSource> markupSource(std::shared_ptr<const FileBytes> owner, Bytes bytes,
                                           StringEncoding defaultEncoding, StringEncoding& used,
                                           std::size_t largeBytes, std::size_t windowUnits) {
  if (bytes.size() >= largeBytes)
    return windowedMarkupFile(std::move(owner), bytes, defaultEncoding, used, windowUnits);
  std::optional<TextString> text = decodeMarkupFile(bytes, defaultEncoding, used);
  return text ? std::make_unique<OwnedMarkup>(std::move(*text)) : nullptr;
}

}  // namespace

std::unique_ptr<MarkupSource> markupSourceOfBytes(std::span<const std::uint8_t> bytes,
                                                  StringEncoding defaultEncoding,
                                                  StringEncoding* usedEncoding,
                                                  std::size_t largeBytes, std::size_t windowUnits) {
  StringEncoding used = kEncodingNotFound;
  std::unique_ptr<MarkupSource> source =
      markupSource(nullptr, bytes, defaultEncoding, used, largeBytes, windowUnits);
  if (usedEncoding) *usedEncoding = used;
  return source;
}

std::unique_ptr<MarkupSource> markupSourceOfFile(const std::string& path,
                                                 StringEncoding defaultEncoding,
                                                 StringEncoding* usedEncoding) {
  StringEncoding used = kEncodingNotFound;
  std::unique_ptr<MarkupSource> source;
  if (std::optional<FileBytes> read = FileBytes::read(path).take()) {
    auto bytes = std::make_shared<const FileBytes>(std::move(*read));
    std::optional<TextString> list;
    if (startsWith(bytes->bytes(), "bplist") || hasPropertyListExtension(path))
      list = propertyListAsXml(bytes->bytes(), path);
    if (list)
      source = std::make_unique<OwnedMarkup>(std::move(*list));
    else
      source = markupSource(bytes, bytes->bytes(), defaultEncoding, used, kLargeMarkupBytes,
                            kMarkupWindowUnits);
  }
  if (usedEncoding) *usedEncoding = used;
  return source;
}

std::optional<TextString> stringWithMarkupData(std::span<const std::uint8_t> data,
                                               TextView encodingName,
                                               StringEncoding defaultEncoding, TextView) {
  if (data.empty()) return TextString();

  StringEncoding working = defaultEncoding;
  bool named = false;
  if (data.size() >= 3 && data[0] == 0xFE && data[1] == 0xFF)
    working = kUTF16BigEndianStringEncoding;
  if (data.size() >= 3 && data[0] == 0xFF && data[1] == 0xFE)
    working = kUTF16LittleEndianStringEncoding;
  if (!encodingName.empty()) {
    StringEncoding encoding = NSEncodingFromName(encodingName);
    if (encoding != 0 && encoding != kEncodingNotFound) {
      working = encoding;
      named = true;
    }
  }

  // As for files, valid UTF-8 beats the page's declaration and the default; a charset the
  // sender names still decides.
  if (!named && isNonAsciiUTF8(data)) {
    if (std::optional<Decoding> utf8 = decodeMarkup(data, kUTF8StringEncoding))
      return std::move(utf8->text);
  }
  std::optional<Decoding> first = decodeMarkup(data, working);
  StringEncoding declared = first ? markupEncoding(first->text) : kEncodingNotFound;
  if (declared == defaultEncoding || declared == kASCIIStringEncoding ||
      declared == kEncodingNotFound)
    return first ? std::optional<TextString>(std::move(first->text)) : std::nullopt;

  if (declared == kWindowsCP1251StringEncoding) {
    if (!(named && working == kUTF8StringEncoding)) {
      first.reset();
      working = kWindowsCP1250StringEncoding;
    }
  } else if (declared == kBig5StringEncoding) {
    first.reset();
    working = kBig5HKSCSStringEncoding;
  }

  std::optional<Decoding> second = decodeDeclared(data, declared);
  if (second) {
    if (first && named && working == kUTF8StringEncoding && second->replacements == 0 &&
        first->replacements == 0 &&
        (declared == kISOLatin1StringEncoding || declared == kWindowsCP1251StringEncoding) &&
        second->text.size() > first->text.size())
      return std::move(first->text);
    if (first && named && second->replacements > first->replacements) return std::move(first->text);
    return std::move(second->text);
  }

  std::optional<TextString> text;
  if (declared == kShiftJISStringEncoding) {
    text = firstConvertible(data, kJapaneseFallbacks);
  } else if (declared == kEUCCNStringEncoding) {
    text = firstConvertible(data, kChineseFallbacks);
  } else if (first) {
    text = std::move(first->text);
  }
  if (!text && working != declared) text = decodeBytes(data, working);
  if (!text && declared != defaultEncoding && working != defaultEncoding)
    text = decodeBytes(data, defaultEncoding);
  return text;
}

std::optional<TextString> stringWithMarkupData(std::span<const std::uint8_t> data,
                                               StringEncoding defaultEncoding) {
  return stringWithMarkupData(data, TextView(), defaultEncoding);
}

std::optional<TextString> stringWithMarkupDataOfContentType(std::span<const std::uint8_t> data,
                                                            TextView contentType,
                                                            StringEncoding defaultEncoding) {
  std::optional<TextString> charset = headerCharset(contentType);
  return stringWithMarkupData(data, charset ? TextView(*charset) : TextView(), defaultEncoding);
}

TextString markupCharset(TextView text) {
  std::optional<CharsetDeclaration> declaration = findCharsetDeclaration(WholeMarkup(text));
  return declaration ? std::move(declaration->charset) : TextString();
}

TextRange markupCharsetRange(TextView text) {
  std::optional<CharsetDeclaration> declaration = findCharsetDeclaration(WholeMarkup(text));
  return declaration ? declaration->range : TextRange{};
}

StringEncoding markupEncoding(TextView text) { return NSEncodingFromName(markupCharset(text)); }

StringEncoding markupEncoding(const MarkupSource& source) {
  std::optional<CharsetDeclaration> declaration = findCharsetDeclaration(source);
  return NSEncodingFromName(declaration ? TextView(declaration->charset) : TextView());
}

StringEncoding defaultURLEncoding(TextView text) {
  return markupEncoding(text) == kISOLatin1StringEncoding ? kISOLatin1StringEncoding
                                                          : kUTF8StringEncoding;
}

Data markupData(TextView text, StringEncoding* usedEncoding) {
  if (usedEncoding) *usedEncoding = kASCIIStringEncoding;
  if (text.empty()) return {};
  TextString charset = markupCharset(text);
  if (!charset.empty()) {
    StringEncoding encoding = NSEncodingFromName(charset);
    if (encoding != kEncodingNotFound) {
      if (std::optional<std::string> bytes = encodeText(text, encoding)) {
        if (usedEncoding) *usedEncoding = encoding;
        return Data(bytes->begin(), bytes->end());
      }
    }
  }
  std::string ascii = toUtf8(stringByConvertingCharactersToEntities(text));
  return Data(ascii.begin(), ascii.end());
}

// ---- Header fields ----------------------------------------------------------------------------

std::optional<TextString> headerFieldNamed(TextView text, TextView name, char16_t quotation,
                                           char16_t separator) {
  return findHeaderField(text, name, quotation, separator, false);
}

std::optional<TextString> HTTPHeaderFieldNamed(TextView text, TextView name) {
  return findHeaderField(text, name, u'"', u',', false);
}

std::optional<TextString> headerFieldNamedAllowingWhite(TextView text, TextView name,
                                                        char16_t quotation, char16_t separator) {
  return findHeaderField(text, name, quotation, separator, true);
}

std::optional<TextString> headerCharset(TextView header) {
  return findHeaderField(header, u"CHARSET", u'\'', u';', true);
}

StringEncoding headerEncoding(TextView header) {
  std::optional<TextString> charset = headerCharset(header);
  return NSEncodingFromName(charset ? TextView(*charset) : TextView());
}

}  // namespace ulvek
