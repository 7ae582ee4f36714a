#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/import_result.h"

// The command table of `ulvekbot`. Each command lives in its own `<name>_command.cpp` and adds
// itself with a static `CommandRegistration`, so new commands never touch main.cpp:
//
//   namespace {
//   int run(const std::vector<std::string>& arguments, CommandIO& io) { ... }
//   const CommandRegistration registration{{"classify", "PATH...", "Prints ...", run}};
//   }
namespace ulvek::cli {

// Where a command writes: results to `out`, diagnostics to `err`.
struct CommandIO {
  std::ostream& out;
  std::ostream& err;
};

// Runs a command with the arguments after its name and answers the process exit status.
using CommandFunction = int (*)(const std::vector<std::string>& arguments, CommandIO& io);

struct Command {
  std::string_view name;     // "attributes"
  std::string_view usage;    // arguments as --help shows them: "PATH..."
  std::string_view summary;  // one line for --help
  CommandFunction run = nullptr;
};

// Exit statuses shared by every command.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;  // at least one item or call failed
inline constexpr int kExitUsage = 2;    // the command line was wrong

// Adds a command to the table before main runs. Registering a name twice keeps the first.
class CommandRegistration {
 public:
  explicit CommandRegistration(Command command);
};

// Every registered command, sorted by name.
std::vector<Command> registeredCommands();
// Null when no command of that name is registered.
const Command* findCommand(std::string_view name);

// Writes one result as a single-line JSON object followed by a line feed. The object's first
// member, "path", names the item (as given, or as found in a folder walk) so that lines can be
// told apart; the result's own keys follow, then `extra` members (sorted).
void printResult(std::ostream& out, const ImportResult& result, std::string_view path,
                 const PropertyDictionary& extra = {});

// Strings as a list value, for JSON output.
PropertyValue stringList(const std::vector<std::string>& items);

// Writes rows as columns two blanks apart, each as wide as its widest cell (in characters); the
// first row is the heading.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows);

// Writes "ulvekbot <command>: <message>" to the error stream.
void printError(CommandIO& io, std::string_view command, std::string_view message);

// The shape shared by the path commands: for each path prints the JSON line of `operation`'s
// result. A path that does not exist (not even as a dangling link) or an operation that throws is
// reported on the error stream and the remaining paths still run. No paths is a usage error.
// Answers kExitSuccess when every path succeeded, otherwise kExitFailure (or kExitUsage).
int runForEachPath(std::string_view command, const std::vector<std::string>& paths, CommandIO& io,
                   const std::function<ImportResult(const std::string& path)>& operation);

}  // namespace ulvek::cli
