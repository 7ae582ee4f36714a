#include "base/base64.h"

#include <gtest/gtest.h>

#include <vector>

namespace ulvek {
namespace {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// The RFC 4648 vectors both ways, and bytes that need every alphabet position.
TEST(Base64, EncodesAndDecodesTheStandardVectors) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {std::string("\xFB\xFF\x00", 3), "+/8A"},
  };
  for (const auto& [plain, encoded] : rows) {
    EXPECT_EQ(base64(bytesOf(plain)), encoded) << encoded;
    EXPECT_EQ(decodeBase64(encoded), plain) << encoded;
  }
}

TEST(Base64, DecodingSkipsSpaceAcceptsUrlSafeAndRefusesTheRest) {
  EXPECT_EQ(decodeBase64("Zm9v\r\n YmFy"), "foobar");
  EXPECT_EQ(decodeBase64("-_8A"), std::string("\xFB\xFF\x00", 3));
  EXPECT_EQ(decodeBase64("Zm9v*"), std::nullopt);
}

}  // namespace
}  // namespace ulvek
