#include "readers/addresscard/vcard.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/ascii.h"
#include "base/base64.h"
#include "base/deadline.h"
#include "base/log.h"
#include "text/encodings.h"

namespace ulvek {

namespace {

constexpr std::array<std::string_view, 4> kBinaryProperties = {"PHOTO", "LOGO", "SOUND", "KEY"};

// The physical lines of the file, without their CR, LF or CR LF.
std::vector<std::string_view> physicalLines(std::string_view text) {
  std::vector<std::string_view> lines;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r' && text[i] != '\n') continue;
    lines.push_back(text.substr(start, i - start));
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
    start = i + 1;
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

// Where the name and parameters end: the first colon outside a quoted parameter value.
std::size_t valueColon(std::string_view line) {
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == ':' && !quoted) return i;
  }
  return std::string_view::npos;
}

bool isQuotedPrintableLine(std::string_view line) {
  std::size_t colon = valueColon(line);
  std::string head = asciiUppercase(line.substr(0, colon));
  return head.find("QUOTED-PRINTABLE") != std::string::npos;
}

// Logical lines: folded continuations (a line starting with space or tab) joined, and
// quoted-printable soft line breaks ("=" at the end) joined with the next line.
std::vector<std::string> logicalLines(std::string_view text) {
  std::vector<std::string> lines;
  bool softBreak = false;
  for (std::string_view line : physicalLines(text)) {
    bool folded = !line.empty() && (line[0] == ' ' || line[0] == '\t');
    bool cardLine = startsWithIgnoringASCIICase(line, "BEGIN:VCARD") ||
                    startsWithIgnoringASCIICase(line, "END:VCARD");
    if (!lines.empty() && (folded || (softBreak && !cardLine))) {
      lines.back().append(folded ? line.substr(1) : line);
    } else {
      if (line.empty()) continue;
      lines.emplace_back(line);
    }
    std::string& current = lines.back();
    softBreak = !current.empty() && current.back() == '=' && isQuotedPrintableLine(current);
    if (softBreak) current.pop_back();
  }
  return lines;
}

std::string unquoted(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
    return std::string(value.substr(1, value.size() - 2));
  return std::string(value);
}

// "TYPE=a,b;CHARSET=x;HOME": parameters separated by ";" outside quotes.
std::vector<std::pair<std::string, std::string>> parseParameters(std::string_view text) {
  std::vector<std::pair<std::string, std::string>> parameters;
  std::size_t start = 0;
  bool quoted = false;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && text[i] == '"') quoted = !quoted;
    if (i < text.size() && (text[i] != ';' || quoted)) continue;
    std::string_view part = text.substr(start, i - start);
    start = i + 1;
    if (part.empty()) continue;
    std::size_t equals = part.find('=');
    if (equals == std::string_view::npos) {
      parameters.emplace_back("TYPE", std::string(part));
    } else {
      parameters.emplace_back(asciiUppercase(part.substr(0, equals)),
                              unquoted(part.substr(equals + 1)));
    }
  }
  return parameters;
}

bool isValidUtf8(std::string_view bytes) {
  TextString ignored;
  return fromUtf8Strict(bytes, ignored);
}

// Bytes of a value in the line's charset: the named one, else UTF-8 when the bytes are UTF-8,
// else Windows Latin 1 (what 2.1 writers without a charset mean), else ISO Latin 1.
TextString decodeValue(std::string_view bytes, const std::optional<std::string>& charset) {
  std::span<const std::uint8_t> data(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                     bytes.size());
  if (charset && !charset->empty()) {
    StringEncoding encoding = NSEncodingFromName(fromAscii(*charset));
    if (encoding != kEncodingNotFound) {
      if (auto text = decodeBytes(data, encoding)) return std::move(*text);
    }
  }
  if (isValidUtf8(bytes)) return fromUtf8(bytes);
  if (auto text = decodeBytes(data, kWindowsCP1252StringEncoding)) return std::move(*text);
  return decodeBytes(data, kISOLatin1StringEncoding).value_or(TextString());
}

std::optional<VCardProperty> parseProperty(std::string_view line, std::string_view source) {
  std::size_t colon = valueColon(line);
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view head = line.substr(0, colon);
  std::string_view raw = line.substr(colon + 1);
  std::size_t semicolon = head.find(';');
  std::string_view qualified = head.substr(0, semicolon);
  VCardProperty property;
  std::size_t dot = qualified.rfind('.');
  if (dot != std::string_view::npos) {
    property.group = std::string(qualified.substr(0, dot));
    qualified = qualified.substr(dot + 1);
  }
  property.name = asciiUppercase(qualified);
  if (property.name.empty()) return std::nullopt;
  if (semicolon != std::string_view::npos)
    property.parameters = parseParameters(head.substr(semicolon + 1));
  if (std::find(kBinaryProperties.begin(), kBinaryProperties.end(), property.name) !=
      kBinaryProperties.end())
    return property;

  std::optional<std::string> encoding = property.parameter("ENCODING");
  bool quotedPrintable = property.hasType("QUOTED-PRINTABLE") ||
                         (encoding && equalsIgnoringASCIICase(*encoding, "QUOTED-PRINTABLE"));
  bool base64 =
      property.hasType("BASE64") || (encoding && (equalsIgnoringASCIICase(*encoding, "BASE64") ||
                                                  equalsIgnoringASCIICase(*encoding, "B")));
  std::string bytes;
  if (quotedPrintable) {
    bytes = decodeQuotedPrintable(raw);
  } else if (base64) {
    std::optional<std::string> decoded = decodeBase64(raw);
    if (!decoded) {
      logLine("Invalid base64 value of " + property.name +
              " in address card: " + std::string(source));
      return std::nullopt;
    }
    bytes = std::move(*decoded);
  } else {
    bytes = std::string(raw);
  }
  property.value = decodeValue(bytes, property.parameter("CHARSET"));
  return property;
}

// The file as 8-bit text: UTF-16 (with a byte-order mark, or recognisable by its zero bytes)
// becomes UTF-8; anything else is left alone and decoded value by value.
std::string eightBitText(Bytes bytes) {
  std::string_view chars(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::optional<StringEncoding> utf16;
  if (bytes.size() >= 2) {
    if (bytes[0] == 0xFF && bytes[1] == 0xFE) utf16 = kUTF16LittleEndianStringEncoding;
    if (bytes[0] == 0xFE && bytes[1] == 0xFF) utf16 = kUTF16BigEndianStringEncoding;
    if (bytes[0] != 0 && bytes[1] == 0) utf16 = kUTF16LittleEndianStringEncoding;
    if (bytes[0] == 0 && bytes[1] != 0) utf16 = kUTF16BigEndianStringEncoding;
  }
  if (!utf16) return std::string(chars);
  Bytes even = bytes.first(bytes.size() & ~std::size_t{1});
  if (auto text = decodeBytes(even, *utf16)) return toUtf8(*text);
  // Damaged UTF-16: take the units as they are, lone surrogates become U+FFFD.
  TextString units;
  bool bigEndian = *utf16 == kUTF16BigEndianStringEncoding;
  std::size_t start = (bytes[0] == 0xFF || bytes[0] == 0xFE) ? 2 : 0;
  for (std::size_t i = start; i + 1 < bytes.size(); i += 2) {
    units.push_back(static_cast<char16_t>(bigEndian ? (bytes[i] << 8 | bytes[i + 1])
                                                    : (bytes[i + 1] << 8 | bytes[i])));
  }
  return toUtf8(units);
}

}  // namespace

bool VCardProperty::hasType(std::string_view type) const {
  for (const auto& [name, value] : parameters) {
    if (name != "TYPE") continue;
    std::string_view list = value;
    while (!list.empty()) {
      std::size_t comma = list.find(',');
      if (equalsIgnoringASCIICase(list.substr(0, comma), type)) return true;
      if (comma == std::string_view::npos) break;
      list.remove_prefix(comma + 1);
    }
  }
  return false;
}

std::optional<std::string> VCardProperty::parameter(std::string_view name) const {
  for (const auto& [key, value] : parameters)
    if (key == name) return value;
  return std::nullopt;
}

std::optional<std::vector<VCard>> parseVCards(Bytes bytes, std::string_view name,
                                              const VCardLimits& limits) {
  std::string text = eightBitText(bytes);
  std::vector<VCard> cards;
  int depth = 0;  // nested cards (2.1 AGENT) are skipped
  bool sawCard = false;
  std::size_t cardsSeen = 0;
  bool reportedLimit = false;
  for (const std::string& line : logicalLines(text)) {
    if (readingTimeIsUp()) break;
    if (startsWithIgnoringASCIICase(line, "BEGIN:VCARD")) {
      sawCard = true;
      if (depth++ > 0) continue;
      if (++cardsSeen > limits.maxCards) break;
      cards.emplace_back();
      continue;
    }
    if (startsWithIgnoringASCIICase(line, "END:VCARD")) {
      if (depth > 0) --depth;
      continue;
    }
    if (depth != 1) continue;
    VCard& card = cards.back();
    if (card.properties.size() >= limits.maxProperties) {
      if (!reportedLimit) {
        logLine("Address card has too many properties, the rest is skipped: " + std::string(name));
        reportedLimit = true;
      }
      continue;
    }
    std::optional<VCardProperty> property = parseProperty(line, name);
    if (!property) continue;
    if (property->name == "VERSION") card.version = toUtf8(property->value);
    card.properties.push_back(std::move(*property));
  }
  if (!sawCard) return std::nullopt;
  return cards;
}

std::vector<TextString> splitVCardValue(TextView value, char16_t separator, std::size_t maxParts) {
  std::vector<TextString> parts(1);
  for (std::size_t i = 0; i < value.size(); ++i) {
    char16_t c = value[i];
    if (c == u'\\' && i + 1 < value.size()) {
      char16_t next = value[++i];
      parts.back().push_back(next == u'n' || next == u'N' ? u'\n' : next);
    } else if (c == separator) {
      if (parts.size() == maxParts) break;
      parts.emplace_back();
    } else {
      parts.back().push_back(c);
    }
  }
  return parts;
}

TextString unescapeVCardText(TextView value) { return splitVCardValue(value, 0).front(); }

std::string decodeQuotedPrintable(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '=' && i + 2 < text.size()) {
      int high = hexDigitValue(text[i + 1]);
      int low = hexDigitValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        bytes.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    bytes.push_back(text[i]);
  }
  return bytes;
}

}  // namespace ulvek
