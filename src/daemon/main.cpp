// ulvekbotd64: the import service on the session bus.
#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "base/log.h"
#include "import/concurrency.h"
#include "import/mime_type_helper.h"
#include "import/reader_time_limit.h"
#include "importers/worker_process.h"
#include "platform/sandbox.h"
#include "platform/temporary_items.h"
#include "service/dbus_service.h"

namespace {

constexpr const char* kUsage =
    "Usage: ulvekbotd64 [--help] [--version] [--jobs N]\n"
    "Serves ulvekbot's document import as com.ulvek_technologies.ulvekbotd64 on the D-Bus\n"
    "session bus, until it is asked to Terminate or gets SIGTERM or SIGINT.\n"
    "\n"
    "  -h, --help     show this help and exit\n"
    "  -V, --version  show the version and exit\n"
    "  -j, --jobs N   serve up to N connections' requests at the same time (0: one a core;\n"
    "                 default: MaxConcurrentImports of the user defaults, else 1)\n";

// Exits for --help, --version and bad arguments; answers -1 when the service should run.
int parseArguments(int argc, char** argv, std::optional<long long>& jobs) {
  const option options[] = {
      {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},
      {"jobs", required_argument, nullptr, 'j'},
      {nullptr, 0, nullptr, 0},
  };
  int choice;
  while ((choice = getopt_long(argc, argv, "hVj:", options, nullptr)) != -1) {
    switch (choice) {
      case 'j': {
        char* end = nullptr;
        errno = 0;
        long long value = std::strtoll(optarg, &end, 10);
        if (errno != 0 || end == optarg || *end != '\0' || value < 0) {
          std::fprintf(stderr, "ulvekbotd64: --jobs takes a number of 0 or more, not '%s'\n%s",
                       optarg, kUsage);
          return 2;
        }
        jobs = value;
        break;
      }
      case 'h':
        std::fputs(kUsage, stdout);
        return 0;
      case 'V':
        std::printf("ulvekbotd64 %s\n", ULVEK_VERSION);
        return 0;
      default:
        std::fputs(kUsage, stderr);
        return 2;
    }
  }
  if (optind < argc) {
    std::fprintf(stderr, "ulvekbotd64: unexpected argument '%s'\n%s", argv[optind], kUsage);
    return 2;
  }
  return -1;
}

// What the service keeps once it serves: its bus connection and local sockets, reading, writing
// into its own temporary folder, and starting importer workers (and the Ghostscript they run,
// whose rights a worker can only narrow). Before any thread starts: Landlock binds the calling
// thread and what it starts, not threads that run already.
void enterSandbox() {
  ulvek::sandbox::Policy policy{ulvek::sandbox::Policy::Kind::Daemon, {"/dev/null"}, {}, {}};
  if (ulvek::Result<std::string> folder = ulvek::temporaryItemsFolder()) {
    policy.writable.push_back(*folder);
    // Removed at exit, from the folder all ulvekbot processes share.
    policy.removable.push_back(ulvek::temporaryItemsRoot());
  }
  if (std::string worker = ulvek::sandbox::findProgram(ulvek::WorkerProcess::workerPath());
      !worker.empty())
    policy.programs.push_back(worker);
  if (std::string ghostscript = ulvek::sandbox::findProgram("gs"); !ghostscript.empty())
    policy.programs.push_back(ghostscript);
  ulvek::sandbox::Applied applied = ulvek::sandbox::enter(policy);
  if (!applied.seccomp || !applied.landlock)
    ulvek::logLine(std::string("Sandbox incomplete:") + (applied.seccomp ? "" : " no seccomp") +
                   (applied.landlock ? "" : " no Landlock (the file system stays writable)"));
}

}  // namespace

int main(int argc, char** argv) {
  std::optional<long long> jobs;
  if (int status = parseArguments(argc, argv, jobs); status >= 0) return status;
  // Before any thread starts, so that every thread leaves the two signals to the loop.
  ulvek::blockTerminatingSignals();
  // The own temporary folder comes first: making it sweeps what ended processes left behind.
  if (ulvek::Status prepared = ulvek::MIMETypeHelper::prepareTemporaryItems(); !prepared)
    ulvek::logLine("No temporary folder: " + prepared.error().localizedDescription);
  int status = 1;
  {
    ulvek::MIMETypeHelper helper;
    ulvek::DBusService service(helper, ulvek::concurrentRequests(jobs),
                               ulvek::serviceReaderTimeLimit());
    if (ulvek::Status started = service.start(); !started) {
      ulvek::logLine("Cannot connect to the session bus: " + started.error().localizedDescription);
      return 1;
    }
    enterSandbox();
    status = service.run();
  }
  ulvek::MIMETypeHelper::removeTemporaryItems();
  return status;
}
