// ulvekbot-importer-worker: runs importer plug-ins for the service, on requests that come over
// standard input and answers that go out on the original standard output. A plug-in's own
// printing goes to standard error instead, where it cannot garble an answer.
//
//   ulvekbot-importer-worker [MEMORY_LIMIT_MIB]
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "importers/importer_worker.h"
#include "platform/temporary_items.h"

int main(int argc, char** argv) {
  // The worker belongs to its host: it ends when the host does.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  // The sanitizers reserve terabytes of address space: a limit on it would stop every run.
  constexpr bool kLimitAddressSpace = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  constexpr bool kLimitAddressSpace = false;
#else
  constexpr bool kLimitAddressSpace = true;
#endif
#else
  constexpr bool kLimitAddressSpace = true;
#endif
  if (kLimitAddressSpace && argc > 1) {
    unsigned long long mebibytes = std::strtoull(argv[1], nullptr, 10);
    if (mebibytes > 0) {
      rlimit limit{mebibytes << 20, mebibytes << 20};
      ::setrlimit(RLIMIT_AS, &limit);
    }
  }
  // The folder the host made for this worker's plug-ins goes with the worker when a signal ends
  // it; the host removes it otherwise.
  if (const char* folder = std::getenv("TMPDIR")) ulvek::adoptTemporaryFolder(folder);
  int in = ::dup(STDIN_FILENO);
  int out = ::dup(STDOUT_FILENO);
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
  return ulvek::runImporterWorker(in, out);
}
