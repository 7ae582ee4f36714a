#include "text/mac_multibyte.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ulvek {
namespace {

struct Script {
  const char* label;
  CFStringEncoding encoding;
  std::uint32_t checksum;
};

const std::vector<Script> kScripts = {
    {"japanese", 0x0001, mac_tables::kJapaneseChecksum},
    {"chinese traditional", 0x0002, mac_tables::kChineseTraditionalChecksum},
    {"korean", 0x0003, mac_tables::kKoreanChecksum},
    {"chinese simplified", 0x0019, mac_tables::kChineseSimplifiedChecksum},
};

std::span<const std::uint8_t> bytesOf(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

std::uint32_t fnv1a(TextView text) {
  std::uint32_t hash = 0x811C9DC5;
  for (char16_t unit : text) hash = (hash ^ unit) * 0x01000193;
  return hash;
}

// Every code the script defines, found by decoding: the single bytes, then the pairs whose first
// byte is not one.
struct Codes {
  std::string bytes;  // all of them in a row
  TextString text;    // their texts in a row
  std::vector<std::pair<std::string, TextString>> each;
};

Codes definedCodes(const mac_tables::MultiByteScript& script) {
  Codes codes;
  auto add = [&](std::string code) {
    std::optional<TextString> text = decodeMacMultiByte(bytesOf(code), script, true);
    if (!text) return false;
    codes.bytes += code;
    codes.text += *text;
    codes.each.emplace_back(code, *text);
    return true;
  };
  std::vector<bool> single(256);
  for (int byte = 0; byte < 256; ++byte) single[byte] = add(std::string(1, char(byte)));
  for (int lead = 0x80; lead < 256; ++lead)
    for (int trail = 0; trail < 256 && !single[lead]; ++trail)
      add(std::string{char(lead), char(trail)});
  return codes;
}

// The tables were made against one version of ICU; the whole decoding must still be Apple's
// table, and runs of codes handed to ICU must decode as the codes do alone.
TEST(MacMultiByte, EveryCodeDecodesToApplesTextAloneAndInARow) {
  for (const Script& row : kScripts) {
    const auto* script = macMultiByteScript(row.encoding);
    ASSERT_NE(script, nullptr) << row.label;
    Codes codes = definedCodes(*script);
    EXPECT_EQ(fnv1a(codes.text), row.checksum) << row.label;
    EXPECT_GT(codes.each.size(), 7000u) << row.label;
    std::size_t replacements = 99;
    EXPECT_EQ(decodeMacMultiByte(bytesOf(codes.bytes), *script, false, &replacements), codes.text)
        << row.label;
    EXPECT_EQ(replacements, 0u) << row.label;
  }
}

// What decodes encodes again, to bytes that decode to the same text (not always the same bytes:
// a variant code is written as its plain character).
TEST(MacMultiByte, DecodedTextEncodesBack) {
  for (const Script& row : kScripts) {
    const auto& script = *macMultiByteScript(row.encoding);
    Codes codes = definedCodes(script);
    std::optional<std::string> encoded = encodeMacMultiByte(codes.text, script);
    ASSERT_TRUE(encoded) << row.label;
    EXPECT_EQ(decodeMacMultiByte(bytesOf(*encoded), script, true), codes.text) << row.label;
    std::size_t mismatches = 0;
    for (const auto& [bytes, text] : codes.each)
      if (decodeMacMultiByte(bytesOf(encodeMacMultiByte(text, script).value_or("")), script,
                             true) != text)
        ++mismatches;
    EXPECT_EQ(mismatches, 0u) << row.label;
  }
}

// Over every two-byte input: strict decoding succeeds exactly when the marked decoding marks
// nothing, and the marks are counted as written.
TEST(MacMultiByte, StrictAgreesWithMarkedOnEveryPair) {
  for (const Script& row : kScripts) {
    const auto& script = *macMultiByteScript(row.encoding);
    std::size_t strictFailures = 0, disagreements = 0;
    for (int first = 0; first < 256; ++first) {
      for (int second = 0; second < 256; ++second) {
        const std::string bytes{char(first), char(second)};
        std::size_t replacements = 99;
        std::optional<TextString> marked =
            decodeMacMultiByte(bytesOf(bytes), script, false, &replacements);
        std::optional<TextString> strict = decodeMacMultiByte(bytesOf(bytes), script, true);
        ASSERT_TRUE(marked);
        if (!strict) ++strictFailures;
        bool agree = strict ? replacements == 0 && *strict == *marked
                            : replacements > 0 && replacements <= 2 &&
                                  replacements == static_cast<std::size_t>(std::count(
                                                      marked->begin(), marked->end(), u'\uFFFD'));
        if (!agree) ++disagreements;
      }
    }
    EXPECT_EQ(disagreements, 0u) << row.label;
    EXPECT_GT(strictFailures, 0u) << row.label;
  }
  EXPECT_EQ(macMultiByteScript(0x0000), nullptr);
}

}  // namespace
}  // namespace ulvek
