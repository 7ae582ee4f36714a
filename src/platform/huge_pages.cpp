#include "platform/huge_pages.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace ulvek {

void restartWithHugePageHeap(char** argv) {
  constexpr const char* kTunable = "glibc.malloc.hugetlb";
  const char* current = std::getenv("GLIBC_TUNABLES");
  std::string tunables = current ? current : "";
  if (tunables.find(kTunable) != std::string::npos) return;
  if (!tunables.empty()) tunables += ':';
  tunables += std::string(kTunable) + "=1";
  if (setenv("GLIBC_TUNABLES", tunables.c_str(), 1) != 0) return;
  execv("/proc/self/exe", argv);
  // Not restarted: go on as we are, without the setting.
  if (current)
    setenv("GLIBC_TUNABLES", current, 1);
  else
    unsetenv("GLIBC_TUNABLES");
}

}  // namespace ulvek
