// Feeds location files to the resolver. The first byte picks where the rest goes: the text of a
// shortcut, a location property list, the resource fork of an empty location file (attribute or
// AppleDouble companion), or a file whose Finder info says 'LINK'.
#include <sys/xattr.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "fuzz_support.h"
#include "metadata/internet_location.h"
#include "platform/resource_fork.h"

namespace {

const std::string& scratchFolder() {
  static const std::string folder = [] {
    std::string pattern = "/tmp/ulvek-location-fuzz-XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    return pattern;
  }();
  return folder;
}

void writeFile(const std::string& path, const std::uint8_t* bytes, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  const std::uint8_t mode = data[0] % 5;
  ++data;
  --size;
  const std::string& folder = scratchFolder();
  std::string path;
  switch (mode) {
    case 0:
      path = folder + "/shortcut.url";
      writeFile(path, data, size);
      break;
    case 1:
      path = folder + "/page.webloc";
      writeFile(path, data, size);
      break;
    case 2:
      path = folder + "/fork.webloc";
      writeFile(path, nullptr, 0);
      ::setxattr(path.c_str(), ulvek::kResourceForkAttribute, data, size, 0);
      break;
    case 3:
      path = folder + "/double.inetloc";
      writeFile(path, nullptr, 0);
      writeFile(folder + "/._double.inetloc", data, size);
      break;
    default: {
      path = folder + "/typed";
      writeFile(path, data, size);
      const char info[32] = {'L', 'I', 'N', 'K'};
      ::setxattr(path.c_str(), ulvek::kFinderInfoAttribute, info, sizeof info, 0);
      break;
    }
  }
  std::optional<ulvek::TextString> name;
  (void)ulvek::resolveInternetLocation(path, &name);
  return 0;
}
