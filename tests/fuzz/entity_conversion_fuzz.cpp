// Feeds text to the reference decoders. The first byte picks the decoder flags (bits 0-2) and how
// the rest becomes text (bit 3: raw little-endian UTF-16 units instead of UTF-8). The in-place
// decoder runs on an exact-size heap buffer so any write or read past it is caught.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz_support.h"
#include "text/entity_conversion.h"

namespace {

using namespace ulvek;

using fuzzing::check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  const std::uint8_t mode = data[0];
  ++data;
  --size;
  TextString text = fuzzing::textFromBytes(data, size, mode & 8);
  const bool markup = mode & 1;
  const bool onlyNumeric = mode & 2;
  const bool nonUmlauted = mode & 4;

  if (!text.empty()) {
    auto buffer = std::make_unique<char16_t[]>(text.size());
    std::memcpy(buffer.get(), text.data(), text.size() * sizeof(char16_t));
    const std::size_t length =
        ConvertEntitiesToCharacters(buffer.get(), text.size(), markup, onlyNumeric, nonUmlauted);
    check(length <= text.size());
    std::memcpy(buffer.get(), text.data(), text.size() * sizeof(char16_t));
    check(ConvertStandardEntitiesToCharacters(buffer.get(), text.size()) <= text.size());
  }

  const TextString decoded =
      stringByConvertingEntitiesToCharacters(text, markup, onlyNumeric, nonUmlauted);
  check(decoded.size() <= text.size());
  check(stringByConvertingStandardEntitiesToCharacters(text).size() <= text.size());

  // Escaping is undone exactly when the text brings no references of its own.
  const TextString escaped = stringByConvertingCharactersToEntities(text);
  for (char16_t c : escaped) check(c < 128);
  if (text.find(u'&') == TextString::npos) {
    check(stringByConvertingEntitiesToCharacters(escaped) == text);
  }
  return 0;
}
