#include "platform/temporary_items.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace ulvek {

Result<std::string> temporaryItemsFolder() {
  std::string cache;
  if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg == '/') {
    cache = xdg;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    cache = std::string(home) + "/.cache";
  } else {
    cache = "/tmp";
  }
  std::string folder = cache + "/TemporaryItems/ulvekbot";
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) return Error::posix(error.value(), folder);
  ::chmod(folder.c_str(), 0700);
  return folder;
}

Result<TemporaryDirectory> TemporaryDirectory::create(std::string_view prefix) {
  Result<std::string> folder = temporaryItemsFolder();
  if (!folder) return folder.error();
  std::string pattern = *folder + "/" + std::string(prefix) + ".XXXXXX";
  if (!::mkdtemp(pattern.data())) return Error::posix(errno, pattern);
  return TemporaryDirectory(std::move(pattern));
}

TemporaryDirectory& TemporaryDirectory::operator=(TemporaryDirectory&& other) noexcept {
  if (this != &other) {
    remove();
    path_ = std::move(other.path_);
    other.path_.clear();
  }
  return *this;
}

void TemporaryDirectory::remove() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
  path_.clear();
}

}  // namespace ulvek
