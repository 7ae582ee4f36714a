#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include "cli/command.h"
#include "service/dbus_client.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kName = "call";

std::string describe(const Error& error) {
  struct Known {
    const char* name;
    const char* meaning;
  };
  static constexpr Known kKnown[] = {
      {SD_BUS_ERROR_NOT_SUPPORTED, "not supported by the service"},
      {SD_BUS_ERROR_SERVICE_UNKNOWN, "the service is not running"},
      {SD_BUS_ERROR_NAME_HAS_NO_OWNER, "the service is not running"},
      {SD_BUS_ERROR_NO_REPLY, "the service did not answer"},
      {SD_BUS_ERROR_TIMEOUT, "the service did not answer in time"},
  };
  for (const Known& known : kKnown) {
    if (isDBusError(error, known.name)) {
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

using PathCall = std::optional<ImportResult> (DBusClient::*)(const std::string&, ErrorOut);
using PathQuestion = std::optional<bool> (DBusClient::*)(const std::string&, ErrorOut);

struct Operation {
  std::string_view name;
  PathCall call = nullptr;
  PathQuestion question = nullptr;
};

constexpr Operation kPathOperations[] = {
    {"attributes", &DBusClient::openAttributes, nullptr},
    {"directory", &DBusClient::openDirectory, nullptr},
    {"import", &DBusClient::openFile, nullptr},
    {"plain", nullptr, &DBusClient::isPlainFile},
    {"supports", nullptr, &DBusClient::supportsFile},
};

int runPaths(DBusClient& client, const Operation& operation, const std::vector<std::string>& paths,
             CommandIO& io) {
  if (paths.empty()) {
    printError(io, kName, std::string(operation.name) + " expects at least one path");
    return kExitUsage;
  }
  int status = kExitSuccess;
  for (const std::string& path : paths) {
    std::string absolute = absolutePath(path);
    std::optional<Error> error;
    if (operation.call) {
      if (auto result = (client.*operation.call)(absolute, &error))
        printResult(io.out, *result, path);
    } else if (auto answer = (client.*operation.question)(absolute, &error)) {
      io.out << (*answer ? "true" : "false") << '\n';
    }
    if (error) {
      printError(io, kName, std::string(operation.name) + " " + path + ": " + describe(*error));
      status = kExitFailure;
    }
  }
  return status;
}

int runData(DBusClient& client, const std::vector<std::string>& arguments, CommandIO& io) {
  if (arguments.empty() || arguments.size() > 3) {
    printError(io, kName, "data expects FILE [URL [MIMETYPE]]");
    return kExitUsage;
  }
  std::ifstream file(arguments[0], std::ios::binary);
  if (!file) {
    printError(io, kName, "data " + arguments[0] + ": cannot read the file");
    return kExitFailure;
  }
  Data data{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  auto optionalArgument = [&](std::size_t index) -> std::optional<TextString> {
    if (index >= arguments.size() || arguments[index].empty()) return std::nullopt;
    return fromUtf8(arguments[index]);
  };
  std::optional<Error> error;
  auto result = client.openData(data, optionalArgument(1), optionalArgument(2), &error);
  if (!result) {
    printError(io, kName, "data " + arguments[0] + ": " + describe(*error));
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

  std::optional<Error> error;
  std::unique_ptr<DBusClient> client = DBusClient::connect(&error);
  if (!client) {
    printError(io, kName, error->localizedDescription);
    return kExitFailure;
  }
  if (pathOperation) return runPaths(*client, *pathOperation, rest, io);
  if (operation == "data") return runData(*client, rest, io);
  if (!rest.empty()) {
    printError(io, kName, arguments[0] + " takes no arguments");
    return kExitUsage;
  }
  bool done = operation == "ping" ? client->ping(&error) : client->terminate(&error);
  if (!done) {
    printError(io, kName, arguments[0] + ": " + describe(*error));
    return kExitFailure;
  }
  return kExitSuccess;
}

const CommandRegistration registration{
    {kName,
     "ping | terminate | attributes PATH... | directory PATH... | import PATH... | plain PATH... "
     "| supports PATH... | data FILE [URL [MIMETYPE]]",
     "Asks the running ulvekbotd64 service on the session bus", run}};

}  // namespace
}  // namespace ulvek::cli
