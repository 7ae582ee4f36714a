// The RTF reader on any bytes after "{\rtf".
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "readers/rtf/rtf_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  std::string rtf = "{\\rtf1" + std::string(reinterpret_cast<const char*>(data), size);
  ulvek::readRTFBytes(ulvek::Bytes(reinterpret_cast<const std::uint8_t*>(rtf.data()), rtf.size()));
  return 0;
}
