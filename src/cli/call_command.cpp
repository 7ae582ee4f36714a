#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <ostream>

#include <systemd/sd-bus.h>

#include "cli/command.h"
#include "client/connection_errors.h"
#include "client/helper_task.h"
#include "client/thread_connections.h"
#include "protocol/dbus_interface.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kName = "call";
constexpr double kCallTimeoutSeconds = 15;

std::string describe(const Error& error) {
  struct Known {
    const char* name;
    const char* meaning;
  };
  static constexpr Known kKnown[] = {
      {SD_BUS_ERROR_NOT_SUPPORTED, "not supported by the service"},
      {SD_BUS_ERROR_SERVICE_UNKNOWN, "the service is not running"},
      {SD_BUS_ERROR_NAME_HAS_NO_OWNER, "the service is not running"},
      {SD_BUS_ERROR_NO_REPLY, "the service ended before it answered"},
      {SD_BUS_ERROR_TIMEOUT, "the service did not answer in time"},
  };
  for (const Known& known : kKnown) {
    if (error.domain == known.name) {
      return std::string(known.meaning) + " (" + error.localizedDescription + ")";
    }
  }
  return error.localizedDescription + " (" + error.domain + ")";
}

// The service runs elsewhere: relative paths mean nothing to it.
std::string absolutePath(const std::string& path) {
  std::error_code ignored;
  std::filesystem::path absolute = std::filesystem::absolute(path, ignored);
  return absolute.empty() ? path : absolute.string();
}

// The daemon to start where none runs and the bus cannot start one: $ULVEKBOT_HELPER, else the
// ulvekbotd64 beside this program.
std::string daemonPath() {
  if (const char* path = std::getenv("ULVEKBOT_HELPER"); path && *path) return path;
  std::error_code error;
  std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return (error ? std::filesystem::path() : self.parent_path()).append("ulvekbotd64").string();
}

using PathCall = Result<ImportResult> (HelperProxy::*)(const std::string&);
using PathQuestion = Result<bool> (HelperProxy::*)(const std::string&);

struct Operation {
  std::string_view name;
  PathCall call = nullptr;
  PathQuestion question = nullptr;
};

constexpr Operation kPathOperations[] = {
    {"attributes", &HelperProxy::openAttributes, nullptr},
    {"directory", &HelperProxy::openDirectory, nullptr},
    {"import", &HelperProxy::openFile, nullptr},
    {"plain", nullptr, &HelperProxy::isPlainFile},
    {"supports", nullptr, &HelperProxy::supportsFile},
};

int runPaths(HelperProxy& client, const Operation& operation, const std::vector<std::string>& paths,
             CommandIO& io) {
  if (paths.empty()) {
    printError(io, kName, std::string(operation.name) + " expects at least one path");
    return kExitUsage;
  }
  int status = kExitSuccess;
  for (const std::string& path : paths) {
    // The service answers a smaller result for a missing item; here, as for the in-process
    // commands, a typo is an error. A dangling link is an item of its own and goes through.
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
      printError(io, kName, std::string(operation.name) + " " + path + ": " + std::strerror(errno));
      status = kExitFailure;
      continue;
    }
    std::string absolute = absolutePath(path);
    std::optional<Error> error;
    if (operation.call) {
      if (Result<ImportResult> result = (client.*operation.call)(absolute))
        printResult(io.out, *result, path);
      else
        error = result.error();
    } else if (Result<bool> answer = (client.*operation.question)(absolute)) {
      io.out << (*answer ? "true" : "false") << '\n';
    } else {
      error = answer.error();
    }
    if (error) {
      printError(io, kName, std::string(operation.name) + " " + path + ": " + describe(*error));
      status = kExitFailure;
    }
  }
  return status;
}

int runData(HelperProxy& client, const std::vector<std::string>& arguments, CommandIO& io) {
  if (arguments.empty() || arguments.size() > 3) {
    printError(io, kName, "data expects FILE [URL [MIMETYPE]]");
    return kExitUsage;
  }
  std::ifstream file(arguments[0], std::ios::binary);
  if (!file) {
    printError(io, kName, "data " + arguments[0] + ": cannot read the file");
    return kExitFailure;
  }
  // Read in one piece: data may run to hundreds of megabytes (the client library then hands it
  // over as a sealed memory file).
  std::error_code sizeError;
  std::uintmax_t size = std::filesystem::file_size(arguments[0], sizeError);
  Data data;
  if (!sizeError) {
    data.resize(size);
    file.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(size));
    data.resize(static_cast<std::size_t>(file.gcount()));
  } else {
    data.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  auto optionalArgument = [&](std::size_t index) -> std::optional<TextString> {
    if (index >= arguments.size() || arguments[index].empty()) return std::nullopt;
    return fromUtf8(arguments[index]);
  };
  Result<ImportResult> result = client.openData(data, optionalArgument(1), optionalArgument(2));
  if (!result) {
    printError(io, kName, "data " + arguments[0] + ": " + describe(result.error()));
    return kExitFailure;
  }
  printResult(io.out, *result, arguments[0]);
  return kExitSuccess;
}

int run(const std::vector<std::string>& arguments, CommandIO& io) {
  if (arguments.empty()) {
    printError(io, kName, "expects an operation (see ulvekbot call --help)");
    return kExitUsage;
  }
  std::string_view operation = arguments[0];
  std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
  const Operation* pathOperation = nullptr;
  for (const Operation& candidate : kPathOperations) {
    if (candidate.name == operation) pathOperation = &candidate;
  }
  bool known =
      pathOperation || operation == "ping" || operation == "terminate" || operation == "data";
  if (!known) {
    printError(io, kName, "unknown operation \"" + arguments[0] + "\"");
    return kExitUsage;
  }

  sd_bus* bus = nullptr;
  int r = sd_bus_open_user(&bus);
  sd_bus_unref(bus);
  if (r < 0) {
    printError(io, kName,
               std::string("Cannot connect to the session bus (DBUS_SESSION_BUS_ADDRESS): ") +
                   std::strerror(-r));
    return kExitFailure;
  }
  // The running service; else the one the bus starts from its service file; else the daemon
  // started here for this call and stopped after it (the task's end stops what it started).
  std::unique_ptr<HelperTask> task =
      HelperTask::initWithPath(daemonPath(), "ulvekbotd64", dbus::kInterfaceName,
                               kCallTimeoutSeconds, kQualityOfServiceDefault);
  task->setUsesActivation(true);
  // Nothing is started only to be told to end.
  std::optional<HelperProxy> client =
      operation == "terminate" ? task->launchedProxy() : task->proxy();
  if (!client) {
    printError(io, kName,
               std::string("the service is not running (no process owns ") + dbus::kServiceName +
                   " on the session bus" +
                   (operation == "terminate" ? ")" : ", and it could not be started)"));
    return kExitFailure;
  }
  if (pathOperation) return runPaths(*client, *pathOperation, rest, io);
  if (operation == "data") return runData(*client, rest, io);
  if (!rest.empty()) {
    printError(io, kName, arguments[0] + " takes no arguments");
    return kExitUsage;
  }
  Status done = operation == "ping" ? client->ping() : client->terminate();
  if (!done) {
    printError(io, kName, arguments[0] + ": " + describe(done.error()));
    return kExitFailure;
  }
  return kExitSuccess;
}

// The operations' arguments as the command line takes them; `run` gets the operation's name and
// its arguments once they are known to fit.
struct OperationUsage {
  std::string_view name;
  std::string_view summary;
  std::string_view paths = {};  // what PATH... means; empty: no paths
};

constexpr OperationUsage kUsages[] = {
    {"ping", "Checks that the service answers"},
    {"terminate", "Asks the service to quit"},
    {"attributes", "Stored comment, where-from address and tags", "Files or folders"},
    {"directory", "Title, comment, where-from address and tags of folders", "Folders"},
    {"import", "Imports files as the service reads them", "Files"},
    {"plain", "Prints whether each file is read as plain text", "Files"},
    {"supports", "Prints whether the service reads each file", "Files"},
    {"data", "Imports the bytes of FILE as downloaded from URL, of MIMETYPE"},
};

constexpr std::string_view kFooter = R"(
Paths are made absolute before they are sent. An empty URL or MIMETYPE is
left out of the call. Names that are not UTF-8 and data over 32 MiB go
through the service's Transfer interface.

Examples:
  ulvekbot call ping
  ulvekbot call import ~/Documents/report.docx
  ulvekbot call data page.bin https://example.com/page text/html)";

CommandAction define(CLI::App& command) {
  command.require_subcommand(1);
  command.footer(std::string(kFooter));
  auto arguments = std::make_shared<std::vector<std::string>>();
  auto rest = std::make_shared<std::vector<std::string>>();
  for (const OperationUsage& usage : kUsages) {
    CLI::App* parser = command.add_subcommand(std::string(usage.name), std::string(usage.summary));
    if (!usage.paths.empty()) addPaths(*parser, *rest, std::string(usage.paths));
    // data FILE [URL [MIMETYPE]]: each one given lands in `rest`, in order.
    if (usage.name == "data") {
      for (auto [name, description] : {std::pair{"FILE", "The bytes to import"},
                                       std::pair{"URL", "Where they were downloaded from"},
                                       std::pair{"MIMETYPE", "Their MIME type"}}) {
        CLI::Option* option = parser->add_option_function<std::string>(
            name, [rest](const std::string& value) { rest->push_back(value); }, description);
        if (std::string_view(name) == "FILE") option->required();
      }
    }
    parser->parse_complete_callback([arguments, rest, name = usage.name] {
      *arguments = {std::string(name)};
      arguments->insert(arguments->end(), rest->begin(), rest->end());
    });
  }
  return [arguments](CommandIO& io) { return run(*arguments, io); };
}

const CommandRegistration registration{
    {kName, "Asks the running ulvekbotd64 service on the session bus", define}};

}  // namespace
}  // namespace ulvek::cli
