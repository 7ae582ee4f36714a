// Feeds text packs (zip archives) to the bundle reader through a scratch file, and checks that the
// unpacked copy never outlives the call.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "fuzz_support.h"
#include "platform/temporary_items.h"
#include "readers/textbundle/text_bundle.h"

namespace {

std::size_t entriesIn(const std::string& folder) {
  std::error_code error;
  std::size_t count = 0;
  for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error))
    ++count;
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  static const std::string scratch = [] {
    std::string pattern = "/tmp/textbundle-fuzz-XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    return pattern + "/input.textpack";
  }();
  static const std::string temporary = temporaryItemsFolder().take().value_or("/nonexistent");
  std::FILE* file = std::fopen(scratch.c_str(), "wb");
  if (!file) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  std::size_t before = entriesIn(temporary);
  (void)stringWithContentsOfTextBundleFile(scratch, kDetectEncoding);
  fuzzing::check(entriesIn(temporary) == before);
  return 0;
}
