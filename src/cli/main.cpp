// ulvekbot: runs imports in-process (or through the daemon) and prints results as JSON.
#include <malloc.h>
#include <sys/stat.h>

#include <iostream>
#include <string>
#include <vector>

#include "cli/command.h"
#include "platform/huge_pages.h"

namespace {

using ulvek::cli::Command;

// Whether an argument names a regular file of 16 MiB or more.
bool namesLargeFile(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    struct stat status {};
    if (stat(argument.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_size >= (16 << 20))
      return true;
  }
  return false;
}

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
  // Large documents pass through a few buffers of their size (bytes, UTF-16 text, plain text,
  // JSON): on huge pages, and kept on the heap when freed so that the next buffer reuses pages
  // already faulted in, a 50 MB page imports in half the time. A short-lived command can afford
  // to keep its peak; small files are not worth executing the program again for.
  if (!arguments.empty() && arguments[0] == "import" && namesLargeFile(arguments))
    ulvek::restartWithHugePageHeap(argv);
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
