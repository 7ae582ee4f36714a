#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/import_result.h"

namespace CLI {
class App;
}

// The command table of `ulvekbot`. Each command lives in its own `<name>_command.cpp` and adds
// itself with a static `CommandRegistration`, so new commands never touch main.cpp. A command
// declares its options and arguments on its own CLI11 parser and answers what runs it once they
// are parsed:
//
//   namespace {
//   CommandAction define(CLI::App& command) {
//     auto paths = std::make_shared<std::vector<std::string>>();
//     command.add_option("PATH", *paths, "Files to classify")->required();
//     return [paths](CommandIO& io) { return run(*paths, io); };
//   }
//   const CommandRegistration registration{{"classify", "Prints ...", define}};
//   }
namespace ulvek::cli {

// Where a command writes: results to `out`, diagnostics to `err`.
struct CommandIO {
  std::ostream& out;
  std::ostream& err;
};

// Runs a parsed command and answers the process exit status.
using CommandAction = std::function<int(CommandIO& io)>;
// Declares the command's options and arguments; the values land where the action reads them.
using CommandDefinition = CommandAction (*)(CLI::App& command);

struct Command {
  std::string_view name;     // "attributes"
  std::string_view summary;  // one sentence for --help
  CommandDefinition define = nullptr;
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
// told apart; the result's own keys follow, each line-feed-joined list (tags, authors, addresses,
// phone numbers) as an array of its items, then `extra` members (sorted). The service keeps
// answering joined strings.
void printResult(std::ostream& out, const ImportResult& result, std::string_view path,
                 const PropertyDictionary& extra = {});

// Strings as a list value, for JSON output.
PropertyValue stringList(const std::vector<std::string>& items);

// Writes rows as columns two blanks apart, each as wide as its widest cell (in characters); the
// first row is the heading.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows);

// Adds the command's PATH... arguments, one or more, to `paths`.
void addPaths(CLI::App& command, std::vector<std::string>& paths, const std::string& description);

// Writes "ulvekbot: <command>: <message>" to the error stream.
void printError(CommandIO& io, std::string_view command, std::string_view message);

// The shape shared by the path commands: for each path prints the JSON line of `operation`'s
// result. A path that does not exist (not even as a dangling link) or an operation that throws is
// reported on the error stream and the remaining paths still run. Answers kExitSuccess when every
// path succeeded, otherwise kExitFailure.
int runForEachPath(std::string_view command, const std::vector<std::string>& paths, CommandIO& io,
                   const std::function<ImportResult(const std::string& path)>& operation);

}  // namespace ulvek::cli
