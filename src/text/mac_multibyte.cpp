#include "text/mac_multibyte.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace ulvek {

namespace {

using mac_tables::MultiByteCode;
using mac_tables::MultiByteScript;

struct ScriptEntry {
  CFStringEncoding encoding;
  const MultiByteScript& script;
};

constexpr ScriptEntry kScripts[] = {
    {0x0001, mac_tables::kJapanese},
    {0x0002, mac_tables::kChineseTraditional},
    {0x0003, mac_tables::kKorean},
    {0x0019, mac_tables::kChineseSimplified},
};

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

bool hasBit(const std::uint64_t* bits, std::size_t index) {
  return (bits[index / 64] >> (index % 64)) & 1;
}

// A code's bit: the single bytes first, then 256 bits for each lead byte from 0x80 on.
std::size_t bitIndex(unsigned code) {
  return code < 0x100 ? code : 256 + ((code >> 8) - 0x80) * 256 + (code & 0xFF);
}

const MultiByteCode* ownCode(const MultiByteScript& script, unsigned code) {
  auto found =
      std::lower_bound(script.codes.begin(), script.codes.end(), code,
                       [](const MultiByteCode& entry, unsigned c) { return entry.code < c; });
  return found != script.codes.end() && found->code == code ? &*found : nullptr;
}

TextView unitsOf(const MultiByteScript& script, const MultiByteCode& code) {
  return {script.units.data() + code.offset, code.length};
}

// Runs handed to ICU hold only codes it decodes as Apple does, so a fault there means ICU's data
// changed under the tables; it is marked like any other.
void markFault(const void* context, UConverterToUnicodeArgs* args, const char*, int32_t,
               UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;
  static const UChar kReplacement = 0xFFFD;
  *status = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, status);
  ++*static_cast<std::size_t*>(const_cast<void*>(context));
}

Converter openBaseConverter(const MultiByteScript& script) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(ucnv_open(script.icuName, &status));
  if (U_FAILURE(status)) return nullptr;
  return converter;
}

// Appends ICU's decoding of whole codes.
bool appendFromICU(UConverter* converter, std::span<const std::uint8_t> run, TextString& text) {
  const char* source = reinterpret_cast<const char*>(run.data());
  const char* sourceLimit = source + run.size();
  std::size_t produced = text.size();
  text.resize(produced + run.size() + 2);  // a code never gives more units than its bytes
  for (;;) {
    UChar* target = reinterpret_cast<UChar*>(text.data()) + produced;
    UChar* targetLimit = reinterpret_cast<UChar*>(text.data()) + text.size();
    UErrorCode status = U_ZERO_ERROR;
    ucnv_toUnicode(converter, &target, targetLimit, &source, sourceLimit, nullptr, true, &status);
    produced = static_cast<std::size_t>(target - reinterpret_cast<UChar*>(text.data()));
    if (status == U_BUFFER_OVERFLOW_ERROR) {
      text.resize(text.size() * 2);
      continue;
    }
    text.resize(produced);
    return U_SUCCESS(status);
  }
}

}  // namespace

const MultiByteScript* macMultiByteScript(CFStringEncoding encoding) {
  for (const ScriptEntry& entry : kScripts)
    if (entry.encoding == encoding) return &entry.script;
  return nullptr;
}

std::optional<TextString> decodeMacMultiByte(std::span<const std::uint8_t> bytes,
                                             const MultiByteScript& script, bool strict,
                                             std::size_t* replacements) {
  Converter converter = openBaseConverter(script);
  if (!converter) return std::nullopt;
  std::size_t marks = 0;
  UErrorCode status = U_ZERO_ERROR;
  if (strict)
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  else
    ucnv_setToUCallBack(converter.get(), markFault, &marks, nullptr, nullptr, &status);
  if (U_FAILURE(status)) return std::nullopt;

  TextString text;
  text.reserve(bytes.size());
  const std::uint8_t* data = bytes.data();
  const std::size_t n = bytes.size();
  std::size_t runStart = 0, i = 0;
  // Ends the run of codes that ICU reads at `end`.
  auto flush = [&](std::size_t end) {
    return end == runStart ||
           appendFromICU(converter.get(), bytes.subspan(runStart, end - runStart), text);
  };
  while (i < n) {
    const unsigned byte = data[i];
    unsigned code = byte;
    std::size_t length = 1;
    if (!hasBit(script.defined, byte)) {
      const bool lead = hasBit(script.leads.data(), byte);
      const unsigned pair = i + 1 < n ? byte << 8 | data[i + 1] : 0;
      if (lead && pair && hasBit(script.defined, bitIndex(pair))) {
        code = pair;
        length = 2;
      } else {
        if (strict || !flush(i)) return std::nullopt;
        // A pair shaped like a code is one bad character; otherwise the lead is bad alone and
        // the next byte (ASCII, say) is read afresh.
        const bool shaped =
            lead && pair && data[i + 1] >= 0x80 && hasBit(script.trails.data(), data[i + 1]);
        text.push_back(u'\uFFFD');
        ++marks;
        i += shaped ? 2 : 1;
        runStart = i;
        continue;
      }
    }
    if (hasBit(script.differs, bitIndex(code))) {
      if (!flush(i)) return std::nullopt;
      text.append(unitsOf(script, *ownCode(script, code)));
      runStart = i + length;
    }
    i += length;
  }
  if (!flush(n)) return std::nullopt;
  if (replacements) *replacements = marks;
  return text;
}

// Each position's way of writing the text from there to the end is settled from the back: the
// character as ICU writes it where Apple reads that code the same way, else the longest of Apple's
// own codes whose text starts there. A code of several characters (a letter and an enclosing
// mark) is taken where the characters cannot be written one by one.
std::optional<std::string> encodeMacMultiByte(TextView text, const MultiByteScript& script) {
  Converter converter = openBaseConverter(script);
  if (!converter) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setFallback(converter.get(), false);
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &status);
  if (U_FAILURE(status)) return std::nullopt;

  auto agreed = [&](unsigned code) {
    return hasBit(script.defined, bitIndex(code)) && !hasBit(script.differs, bitIndex(code));
  };
  // The character at i through ICU: its code, or nothing.
  auto plainCode = [&](std::size_t i, std::size_t length) -> std::optional<unsigned> {
    if (text[i] < 0x80) return agreed(text[i]) ? std::optional<unsigned>(text[i]) : std::nullopt;
    char written[8];
    UErrorCode error = U_ZERO_ERROR;
    int32_t size = ucnv_fromUChars(converter.get(), written, sizeof written,
                                   reinterpret_cast<const UChar*>(text.data() + i),
                                   static_cast<int32_t>(length), &error);
    if (U_FAILURE(error) || size < 1 || size > 2) return std::nullopt;
    unsigned code = static_cast<std::uint8_t>(written[0]);
    if (size == 2) {
      if (code < 0x80) return std::nullopt;
      code = code << 8 | static_cast<std::uint8_t>(written[1]);
    }
    return agreed(code) ? std::optional<unsigned>(code) : std::nullopt;
  };
  auto byFirstUnit = [&](std::uint16_t index, char16_t unit) {
    return script.units[script.codes[index].offset] < unit;
  };

  struct Step {
    unsigned code = 0;
    std::size_t length = 0;  // 0: the text from here cannot be written
  };
  const std::size_t n = text.size();
  std::vector<Step> steps(n + 1);
  auto finishes = [&](std::size_t end) { return end == n || steps[end].length != 0; };
  for (std::size_t i = n; i-- > 0;) {
    std::size_t length = U16_IS_LEAD(text[i]) && i + 1 < n && U16_IS_TRAIL(text[i + 1]) ? 2 : 1;
    if (finishes(i + length)) {
      if (std::optional<unsigned> code = plainCode(i, length)) {
        steps[i] = {*code, length};
        continue;
      }
    }
    const TextView rest = text.substr(i);
    for (auto it =
             std::lower_bound(script.byText.begin(), script.byText.end(), text[i], byFirstUnit);
         it != script.byText.end() && script.units[script.codes[*it].offset] == text[i]; ++it) {
      const MultiByteCode& code = script.codes[*it];
      if (code.length > steps[i].length && rest.starts_with(unitsOf(script, code)) &&
          finishes(i + code.length))
        steps[i] = {code.code, code.length};
    }
  }
  if (n > 0 && steps[0].length == 0) return std::nullopt;

  std::string bytes;
  bytes.reserve(n * 2);
  for (std::size_t i = 0; i < n; i += steps[i].length) {
    if (steps[i].code >= 0x100) bytes.push_back(static_cast<char>(steps[i].code >> 8));
    bytes.push_back(static_cast<char>(steps[i].code & 0xFF));
  }
  return bytes;
}

}  // namespace ulvek
