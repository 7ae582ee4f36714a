// ulvekbot: runs imports in-process (or through the daemon) and prints results as JSON.
#include <malloc.h>

#include <iostream>
#include <string>
#include <vector>

#include "cli/command.h"

namespace {

using ulvek::cli::Command;

void printUsage(std::ostream& out) {
  out << "usage: ulvekbot COMMAND [ARGUMENTS...]\n"
         "       ulvekbot COMMAND --help\n\n"
         "Commands:\n";
  for (const Command& command : ulvek::cli::registeredCommands()) {
    out << "  " << command.name << ' ' << command.usage << "\n      " << command.summary << '\n';
  }
  out << "\nResults are printed one JSON object per line: \"path\" names the item, the\n"
         "result's keys (Title, Text, URL, Tags, FileSize, ...) follow.\n";
}

bool isHelp(std::string_view argument) { return argument == "--help" || argument == "-h"; }

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  // A large document passes through a few buffers of its size (bytes, UTF-16 text, plain text,
  // JSON). Served from the heap and kept there when freed, each buffer reuses pages the last one
  // already faulted in instead of mapping and zeroing fresh ones. A short-lived command can
  // afford to keep its peak.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  if (arguments.empty()) {
    printUsage(std::cerr);
    return ulvek::cli::kExitUsage;
  }
  if (isHelp(arguments[0]) || arguments[0] == "help") {
    printUsage(std::cout);
    return ulvek::cli::kExitSuccess;
  }
  const Command* command = ulvek::cli::findCommand(arguments[0]);
  if (!command) {
    std::cerr << "ulvekbot: unknown command \"" << arguments[0] << "\" (see ulvekbot --help)\n";
    return ulvek::cli::kExitUsage;
  }
  arguments.erase(arguments.begin());
  if (arguments.size() == 1 && isHelp(arguments[0])) {
    std::cout << "usage: ulvekbot " << command->name << ' ' << command->usage << "\n  "
              << command->summary << '\n';
    return ulvek::cli::kExitSuccess;
  }
  ulvek::cli::CommandIO io{std::cout, std::cerr};
  int status = command->run(arguments, io);
  std::cout.flush();
  return status;
}
