#pragma once

// Shared by the fuzz targets: how raw bytes become text, how a broken invariant is reported, and
// how long one input may read.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/deadline.h"
#include "base/text_string.h"

namespace ulvek::fuzzing {

// Every target reads each input under a deadline of this length, so that a slow input ends with
// the text read so far instead of hanging the run; libFuzzer's own -timeout still catches loops
// that never check it.
inline constexpr std::chrono::seconds kInputTime{5};

// Stops the run so that libFuzzer keeps the input.
inline void check(bool condition) {
  if (!condition) std::abort();
}

// UTF-8 as pages arrive, or raw little-endian UTF-16 units so that lone surrogates and NULs reach
// the code too.
inline TextString textFromBytes(const std::uint8_t* data, std::size_t size, bool rawUnits) {
  if (!rawUnits) return fromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  TextString text(size / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i)
    text[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
  return text;
}

}  // namespace ulvek::fuzzing
