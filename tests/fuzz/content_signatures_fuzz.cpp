// Feeds file contents to the content signatures (zip members, property lists, leading bytes,
// text prologues) and to the typing of files by content, through a real file as imports do.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "platform/content_signatures.h"
#include "platform/content_types.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  static const std::string path = "/tmp/ulvek-signature-fuzz-" + std::to_string(::getpid());
  static const bool removedAtExit = [] {
    return std::atexit([] { std::remove(path.c_str()); }) == 0;
  }();
  (void)removedAtExit;
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  std::optional<std::string> head = fileHead(path);
  fuzzing::check(head && head->size() == std::min(size, kSignatureHeadSize));
  // Whatever a signature names is a type of the registry, and a signature found without text
  // signatures is found with them too.
  std::optional<std::string_view> all = signatureType(*head, path, true);
  std::optional<std::string_view> binary = signatureType(*head, path, false);
  fuzzing::check(!all || contentTypeInfo(*all));
  fuzzing::check(!binary || all);
  for (ContentScope scope : {ContentScope::Any, ContentScope::Signatures, ContentScope::NotText})
    contentTypeFromContent(path, scope);
  return 0;
}
