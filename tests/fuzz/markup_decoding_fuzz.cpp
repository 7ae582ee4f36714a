// Feeds bytes to markup decoding as data and as files. The first byte picks the default encoding
// (bits 0-2 and 7), the charset name passed along (bits 3-6) and whether the file entries run too
// (bit 7); the rest is the document. Declared charsets, byte-order marks, the Czech tables, Apple's
// Mac script tables and the fallback lists are all reachable from the seeds.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "base/log.h"
#include "fuzz_support.h"
#include "text/encodings.h"
#include "text/text_decoding.h"

namespace {

using namespace ulvek;

using fuzzing::check;

constexpr std::array<StringEncoding, 16> kDefaults = {
    kUTF8StringEncoding, kISOLatin1StringEncoding, kASCIIStringEncoding, kMacOSRomanStringEncoding,
    kWindowsCP1252StringEncoding, kUTF16BigEndianStringEncoding, kKamenickyStringEncoding,
    0x80000009 /* Mac Devanagari: no converter */, 0x80000510 /* Johab, iconv */,
    0x80000823 /* ISO-2022-JP-3, iconv */,
    // From here on, Apple's tables.
    0x80000001 /* Mac Japanese: ICU and Apple's codes */, 0x80000002 /* Mac Chinese traditional */,
    0x80000003 /* Mac Korean */, 0x80000019 /* Mac Chinese simplified */,
    0x80000005 /* Mac Hebrew: a table with two-unit bytes */, 0x80000015 /* Mac Thai */};

constexpr std::size_t kFirstAppleTable = 10;

constexpr std::array<const char16_t*, 16> kNames = {
    u"",       u"utf-8",       u"iso-8859-1", u"windows-1251", u"shift_jis", u"gb2312",
    u"big5",   u"utf-16",      u"koi8-cs2",   u"x-kam-cs",     u"foo",       u"x-mac-japanese",
    u"euc-kr", u"iso-2022-jp", u"utf-7",      u"auto"};

// Two files reused for every input: one named like markup, one like a property list.
struct Files {
  std::string html, plist;
  Files() {
    std::string folder = (std::filesystem::temp_directory_path() / "markup-fuzz-XXXXXX").string();
    if (!mkdtemp(folder.data())) std::abort();
    html = folder + "/page.html";
    plist = folder + "/list.plist";
  }
};

void writeFile(const std::string& path, const std::uint8_t* data, std::size_t size) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) std::abort();
  if (size) std::fwrite(data, 1, size, file);
  std::fclose(file);
}

void checkText(const std::optional<TextString>& text) {
  if (!text) return;
  TextRange declaration = markupCharsetRange(*text);
  if (declaration.found()) check(declaration.location + declaration.length <= text->size());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setLogSink([](std::string_view) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  static Files files;
  if (size == 0) return 0;
  const std::uint8_t selector = data[0];
  std::span<const std::uint8_t> bytes(data + 1, size - 1);
  // Bits 0-2 and 7 pick the default encoding, bits 3-6 the name.
  const std::size_t defaultIndex = (selector & 7) | ((selector >> 4) & 8);
  const StringEncoding defaultEncoding = kDefaults[defaultIndex];
  const TextView name = kNames[(selector >> 3) & 15];

  std::optional<TextString> decoded = stringWithMarkupData(bytes, name, defaultEncoding);
  check(decoded || !bytes.empty());  // empty data is the empty string
  checkText(decoded);
  if (decoded) markupData(*decoded);

  // The bytes as a header and as a charset name.
  TextString asText =
      fromUtf8(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  checkText(stringWithMarkupDataOfContentType(bytes, asText, defaultEncoding));
  headerFieldNamed(asText, u"URL");
  HTTPHeaderFieldNamed(asText, u"CHARSET");
  CFStringEncoding cf = CFEncodingFromName(asText);
  NSEncodingFromName(asText);

  // The converter never writes past max(byte count, 32) units; in pieces it gives the same.
  if (cf != kCFEncodingInvalid) {
    std::size_t count = 0;
    const TextString whole = convertBytes(bytes, cf, &count);
    check(whole.size() <= std::max<std::size_t>(bytes.size(), 32));
    if (std::unique_ptr<PiecewiseDecoder> decoder = PiecewiseDecoder::open(bytes, cf)) {
      TextString pieces;
      while (decoder->decodeMore(pieces, 1 + selector % 13)) {
      }
      check(pieces == whole && decoder->replacements() == count);
    }
  }

  // Large files are decoded window by window: the same choice and text as the whole decoding.
  {
    StringEncoding wholeUsed = 0, windowedUsed = 0;
    auto whole = markupSourceOfBytes(bytes, defaultEncoding, &wholeUsed, SIZE_MAX, 0);
    auto windowed = markupSourceOfBytes(bytes, defaultEncoding, &windowedUsed, 0, 1 + selector % 7);
    check((whole == nullptr) == (windowed == nullptr));
    if (whole) check(wholeUsed == windowedUsed && whole->wholeText() == windowed->wholeText());
  }

  // Strict decoding succeeds only where nothing is marked, and gives the marked text; text that
  // decodes encodes back to bytes that decode to the same text.
  if (defaultIndex >= kFirstAppleTable) {
    const CFStringEncoding mac = cfEncodingFromStringEncoding(defaultEncoding);
    std::size_t marks = 0;
    TextString marked = convertBytes(bytes, mac, &marks);
    check(marks == countReplacementCharacters(marked));
    if (std::optional<TextString> strict = decodeBytes(bytes, defaultEncoding)) {
      check(marks == 0 && strict->starts_with(marked));
      std::optional<std::string> encoded = encodeText(*strict, defaultEncoding);
      check(encoded.has_value());
      std::span<const std::uint8_t> again(reinterpret_cast<const std::uint8_t*>(encoded->data()),
                                          encoded->size());
      check(decodeBytes(again, defaultEncoding) == strict);
    }
  }

  if (selector & 0x80) {
    writeFile(files.html, bytes.data(), bytes.size());
    StringEncoding used = 0;
    checkText(stringWithMarkupContentsOfFile(files.html, defaultEncoding, &used));
    stringWithContentsOfFile(files.html, kDetectEncoding, &used);
    writeFile(files.plist, bytes.data(), bytes.size());
    checkText(stringWithMarkupContentsOfFile(files.plist, defaultEncoding, &used));
  } else {
    decodeDetectingEncoding(bytes);
  }
  return 0;
}
