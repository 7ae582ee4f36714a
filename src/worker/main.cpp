// ulvekbot-importer-worker: runs importer plug-ins for the service, on requests that come over
// standard input and answers that go out on the original standard output. A plug-in's own
// printing goes to standard error instead, which the host reads and logs, so it cannot garble an
// answer.
//
//   ulvekbot-importer-worker [MEMORY_LIMIT_MIB]
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "importers/importer_worker.h"
#include "platform/sandbox.h"
#include "platform/temporary_items.h"

namespace {

// Temporary files of one worker: converted documents, unpacked parts.
constexpr unsigned long long kFileSizeMiB = 1024;
// Each call is timed by the host and given its own share of processor time; this bounds a
// worker's whole life, after which the host starts a fresh one.
constexpr unsigned long long kLifetimeCpuSeconds = 3600;

}  // namespace

int main(int argc, char** argv) {
  // The worker belongs to its host: it ends when the host does.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  // Tesseract's OpenMP threads fight each other and the other workers for the cores; pages are
  // shared out to workers instead. Read once, when the first plug-in loads OpenMP.
  ::setenv("OMP_THREAD_LIMIT", "1", 1);
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
  std::string folder;
  if (const char* tmpdir = std::getenv("TMPDIR"); tmpdir && *tmpdir == '/') {
    folder = tmpdir;
    ulvek::adoptTemporaryFolder(folder);
  }
  // The protocol's descriptors stay out of programs the plug-ins run, and plug-ins that read
  // standard input find nothing there.
  int in = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  int out = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC); nothing >= 0) {
    ::dup2(nothing, STDIN_FILENO);
    ::close(nothing);
  }
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
  // Before any plug-in is loaded: Landlock leaves reading (and so loading libraries) alone.
  ulvek::sandbox::limitWorkerResources(kFileSizeMiB, kLifetimeCpuSeconds);
  ulvek::sandbox::Policy policy;
  if (!folder.empty()) {
    policy.writable.push_back(folder);
    // The worker removes its folder itself when a signal ends it.
    policy.removable.push_back(std::filesystem::path(folder).parent_path().string());
  }
  policy.writable.push_back("/dev/null");
  // The PDF importer turns PostScript into PDF with Ghostscript (always with -dSAFER).
  if (std::string ghostscript = ulvek::sandbox::findProgram("gs"); !ghostscript.empty())
    policy.programs.push_back(ghostscript);
  ulvek::sandbox::enter(policy);
  return ulvek::runImporterWorker(in, out);
}
