#include "text/entity_conversion.h"

#include <cstring>
#include <string>

#include "text/character_tables.h"

namespace ulvek {
namespace {

// Longest reference body, "#" and "x" included; anything longer is plain text.
constexpr std::size_t kMaxBodyLength = 30;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

struct FixedForm {
  TextView name;
  char16_t character;
};

// Recognised without a terminator, whatever the only-numeric flag says.
constexpr FixedForm kAlwaysForms[] = {{u"apos", u'\''}, {u"nbsp", 0x00A0}};
// Only with the markup flag: the references that would turn text back into markup.
constexpr FixedForm kMarkupFixedForms[] = {{u"quot", u'"'}};
constexpr FixedForm kMarkupForms[] = {{u"amp", u'&'}, {u"gt", u'>'}, {u"lt", u'<'}};

// The strict subset: each needs its ";" and exact lower case.
constexpr FixedForm kStandardForms[] = {
    {u"quot;", u'"'}, {u"amp;", u'&'}, {u"lt;", u'<'},  {u"gt;", u'>'},
    {u"#34;", u'"'},  {u"#38;", u'&'}, {u"#60;", u'<'}, {u"#62;", u'>'},
};

bool isMarkupCharacter(std::uint32_t c) { return c == u'"' || c == u'&' || c == u'<' || c == u'>'; }

int digitValue(char16_t c, bool hex) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (!hex) return -1;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

struct Decoded {
  std::size_t consumed = 0;  // units read from the "&" on; 0 means no reference
  char16_t units[2] = {0, 0};
  std::size_t length = 0;
};

class ReferenceDecoder {
 public:
  ReferenceDecoder(bool markup, bool onlyNumeric)
      : markup_(markup), onlyNumeric_(onlyNumeric), alphaNumeric_(characterTables().alphaNumeric) {}

  // `u[r]` is an "&" with at least one unit after it.
  Decoded decode(const char16_t* u, std::size_t r, std::size_t n) const {
    const char16_t* body = u + r + 1;
    const std::size_t available = n - r - 1;

    if (available >= 4) {
      if (Decoded d = fixedForm(kAlwaysForms, u, r, n); d.consumed) return d;
      if (markup_) {
        if (Decoded d = fixedForm(kMarkupFixedForms, u, r, n); d.consumed) return d;
      }
    }
    if (markup_) {
      if (Decoded d = fixedForm(kMarkupForms, u, r, n); d.consumed) return d;
    }
    if (body[0] == u'#') return numeric(u, r, n);
    if (onlyNumeric_) return {};
    return named(u, r, n);
  }

 private:
  template <std::size_t N>
  static Decoded fixedForm(const FixedForm (&forms)[N], const char16_t* u, std::size_t r,
                           std::size_t n) {
    const std::size_t available = n - r - 1;
    for (const FixedForm& form : forms) {
      if (available < form.name.size() || TextView(u + r + 1, form.name.size()) != form.name) {
        continue;
      }
      Decoded d;
      d.consumed = 1 + form.name.size();
      if (r + d.consumed < n && u[r + d.consumed] == u';') ++d.consumed;
      d.units[0] = form.character;
      d.length = 1;
      return d;
    }
    return {};
  }

  // Consumes a ";" terminator; any other terminator is read again as text.
  static std::size_t withTerminator(const char16_t* u, std::size_t end, std::size_t n) {
    return end < n && u[end] == u';' ? end + 1 : end;
  }

  Decoded named(const char16_t* u, std::size_t r, std::size_t n) const {
    std::size_t end = r + 1;
    while (end < n && end - r <= kMaxBodyLength + 1 && alphaNumeric_.contains(u[end])) ++end;
    const std::size_t bodyLength = end - r - 1;
    if (bodyLength == 0 || bodyLength > kMaxBodyLength) return {};
    std::optional<char16_t> character = htmlEntityCharacter(TextView(u + r + 1, bodyLength));
    if (!character || (!markup_ && isMarkupCharacter(*character))) return {};
    Decoded d;
    d.consumed = withTerminator(u, end, n) - r;
    d.units[0] = *character;
    d.length = 1;
    return d;
  }

  Decoded numeric(const char16_t* u, std::size_t r, std::size_t n) const {
    std::size_t end = r + 2;
    const bool hex = end < n && (u[end] == u'x' || u[end] == u'X');
    if (hex) ++end;
    const std::size_t digitsStart = end;
    // Saturates just past the last code point so thirty digits cannot overflow.
    std::uint32_t value = 0;
    for (; end < n && end - r <= kMaxBodyLength + 1; ++end) {
      int digit = digitValue(u[end], hex);
      if (digit < 0) break;
      value = value * (hex ? 16 : 10) + static_cast<std::uint32_t>(digit);
      if (value > kLastCodePoint) value = kLastCodePoint + 1;
    }
    const std::size_t bodyLength = end - r - 1;
    if (end == digitsStart || bodyLength > kMaxBodyLength || value > kLastCodePoint) return {};
    if (!markup_ && isMarkupCharacter(value)) return {};
    Decoded d;
    d.consumed = withTerminator(u, end, n) - r;
    if (value <= 0xFFFF) {
      d.units[0] = static_cast<char16_t>(value);
      d.length = 1;
    } else {
      value -= 0x10000;
      d.units[0] = static_cast<char16_t>(0xD800 + (value >> 10));
      d.units[1] = static_cast<char16_t>(0xDC00 + (value & 0x3FF));
      d.length = 2;
    }
    return d;
  }

  bool markup_;
  bool onlyNumeric_;
  const CharacterSetRep& alphaNumeric_;
};

void foldInPlace(char16_t* units, std::size_t length) {
  const ConversionTable fold = characterTables().umlauts;
  for (std::size_t i = 0; i < length; ++i) units[i] = fold[units[i]];
}

}  // namespace

std::size_t ConvertEntitiesToCharacters(char16_t* units, std::size_t length, bool markup,
                                        bool onlyNumeric, bool nonUmlauted) {
  if (units == nullptr || length == 0) return 0;
  const ReferenceDecoder decoder(markup, onlyNumeric);
  const ConversionTable fold = nonUmlauted ? characterTables().umlauts : nullptr;
  std::size_t r = 0;
  std::size_t w = 0;
  while (r < length) {
    // Copy the plain run up to the next "&" in one go.
    const char16_t* amp = std::char_traits<char16_t>::find(units + r, length - r, u'&');
    const std::size_t runEnd = amp ? static_cast<std::size_t>(amp - units) : length;
    if (fold) {
      for (; r < runEnd; ++r) units[w++] = fold[units[r]];
    } else {
      if (w != r) std::memmove(units + w, units + r, (runEnd - r) * sizeof(char16_t));
      w += runEnd - r;
      r = runEnd;
    }
    if (r >= length) break;

    Decoded d;
    if (r + 1 < length) d = decoder.decode(units, r, length);
    if (d.consumed == 0) {
      units[w++] = u'&';
      ++r;
      continue;
    }
    // A reference is never shorter than what it writes, so w stays at or behind r.
    for (std::size_t i = 0; i < d.length; ++i) units[w++] = fold ? fold[d.units[i]] : d.units[i];
    r += d.consumed;
  }
  return w;
}

std::size_t ConvertStandardEntitiesToCharacters(char16_t* units, std::size_t length) {
  if (units == nullptr) return 0;
  std::size_t r = 0;
  std::size_t w = 0;
  while (r < length) {
    const char16_t c = units[r];
    units[w++] = c;
    ++r;
    if (c != u'&') continue;
    for (const FixedForm& form : kStandardForms) {
      if (length - r >= form.name.size() && TextView(units + r, form.name.size()) == form.name) {
        units[w - 1] = form.character;
        r += form.name.size();
        break;
      }
    }
  }
  return w;
}

TextString stringByConvertingEntitiesToCharacters(TextView text, bool markup, bool onlyNumeric,
                                                  bool nonUmlauted) {
  TextString result(text);
  if (text.size() < 4) {
    if (nonUmlauted) foldInPlace(result.data(), result.size());
    return result;
  }
  if (!nonUmlauted && text.find(u'&') == TextView::npos) return result;
  result.resize(
      ConvertEntitiesToCharacters(result.data(), result.size(), markup, onlyNumeric, nonUmlauted));
  return result;
}

TextString stringByConvertingEntitiesToCharacters(TextView text) {
  return stringByConvertingEntitiesToCharacters(text, true, false, false);
}

TextString stringByConvertingEntitiesToCharactersNonUmlauted(TextView text, bool nonUmlauted) {
  return stringByConvertingEntitiesToCharacters(text, true, false, nonUmlauted);
}

TextString stringByConvertingStandardEntitiesToCharacters(TextView text) {
  TextString result(text);
  if (text.size() < 4 || text.find(u'&') == TextView::npos) return result;
  result.resize(ConvertStandardEntitiesToCharacters(result.data(), result.size()));
  return result;
}

TextString stringByConvertingCharactersToEntities(TextView text) {
  if (text.empty()) return TextString(text);
  initConversionTables();
  std::size_t size = 0;
  for (char16_t c : text) size += c < 128 ? 1 : (htmlEntityName(c) ? 10 : 8);
  TextString result;
  result.reserve(size);
  for (char16_t c : text) {
    if (c < 128) {
      result.push_back(c);
    } else if (std::optional<std::string_view> name = htmlEntityName(c)) {
      result.push_back(u'&');
      result.append(name->begin(), name->end());
      result.push_back(u';');
    } else {
      result.push_back(u'&');
      result.push_back(u'#');
      const std::string decimal = std::to_string(static_cast<unsigned>(c));
      result.append(decimal.begin(), decimal.end());
      result.push_back(u';');
    }
  }
  return result;
}

}  // namespace ulvek
