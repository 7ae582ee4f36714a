// `ulvekbot importers`: the importer plug-ins found on the search path, with the content types
// and extensions each reads, in the order they are asked. `--json` prints one object per bundle.
// `--sandbox` tells what confines the importer worker on this kernel instead.

#include <CLI/CLI.hpp>
#include <chrono>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "importers/metadata_importer.h"
#include "importers/worker_process.h"
#include "importers/worker_protocol.h"
#include "platform/sandbox.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "importers";

std::string joined(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : " ") + item;
  return text;
}

// A field of /proc/PID/status, or "?".
std::string statusField(pid_t pid, const std::string& name) {
  return sandbox::processStatusField(pid, name).value_or("?");
}

// What the kernel offers, and what a worker started now has of it.
int showSandbox(CommandIO& io) {
  sandbox::Support support = sandbox::kernelSupport();
  for (const std::string& line : sandbox::describe(support)) io.out << line << "\n";
  WorkerProcess worker({std::chrono::seconds(10), 2048});
  PropertyDictionary ping{
      {std::string(worker::Field::Operation), PropertyValue(worker::Operation::Ping)}};
  if (Result<PropertyDictionary> answer = worker.call(ping); !answer) {
    io.err << "ulvekbot: cannot start the importer worker (" << WorkerProcess::workerPath()
           << "): " << answer.error().localizedDescription << "\n";
    return kExitFailure;
  }
  bool noNewPrivileges = statusField(worker.pid(), "NoNewPrivs") == "1";
  bool filtered = statusField(worker.pid(), "Seccomp") == "2";
  io.out << "Importer worker: no new privileges " << (noNewPrivileges ? "yes" : "no")
         << ", seccomp filter " << (filtered ? "active" : "inactive") << ", Landlock "
         << (support.landlockAbi > 0 ? "active (read-only but its temporary folder)" : "inactive")
         << "\n";
  return noNewPrivileges && filtered ? kExitSuccess : kExitFailure;
}

int run(bool json, CommandIO& io) {
  BundleRegistry& bundles = MetaDataImporter::sharedImporter().bundles();
  bundles.loadExtractorPlugins();
  if (!json) {
    io.out << "Search path:\n";
    for (const std::string& folder : importerSearchPath()) io.out << "  " << folder << "\n";
  }
  for (const std::string& bundle : bundles.bundlePaths()) {
    auto find = [&](const auto& table) {
      auto found = table.find(bundle);
      return found == table.end() ? std::vector<std::string>() : found->second;
    };
    std::vector<std::string> types = find(bundles.contentTypesForMDImporter());
    std::vector<std::string> extensions = find(bundles.extensionsForMDImporter());
    if (json) {
      PropertyDictionary object{{"path", PropertyValue::fromUtf8(bundle)},
                                {"contentTypes", stringList(types)},
                                {"extensions", stringList(extensions)}};
      io.out << toJson(PropertyValue(std::move(object))) << "\n";
      continue;
    }
    io.out << bundle << "\n  content types: " << joined(types)
           << "\n  extensions: " << joined(extensions) << "\n";
  }
  return kExitSuccess;
}

CommandAction define(CLI::App& command) {
  auto json = std::make_shared<bool>(false);
  auto sandboxed = std::make_shared<bool>(false);
  command.add_flag("--json", *json, "One JSON object per importer bundle");
  command.add_flag("--sandbox", *sandboxed,
                   "Tell whether Landlock and seccomp confine the importer worker here");
  command.footer("Example:\n  ULVEKBOT_IMPORTER_PATH=~/Importers ulvekbot importers");
  return [json, sandboxed](CommandIO& io) { return *sandboxed ? showSandbox(io) : run(*json, io); };
}

const CommandRegistration registration{
    {kCommand, "Lists the importer plug-ins found, with what each reads", define}};

}  // namespace
}  // namespace ulvek::cli
