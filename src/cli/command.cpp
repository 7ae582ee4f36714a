#include "cli/command.h"

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>

#include "base/error.h"
#include "import/item_import.h"
#include "service/json.h"

namespace ulvek::cli {
namespace {

// Filled by static registrations before main runs, read only afterwards.
std::vector<Command>& table() {
  static std::vector<Command> commands;
  return commands;
}

}  // namespace

CommandRegistration::CommandRegistration(Command command) {
  if (!findCommand(command.name)) table().push_back(command);
}

std::vector<Command> registeredCommands() {
  std::vector<Command> commands = table();
  std::sort(commands.begin(), commands.end(),
            [](const Command& a, const Command& b) { return a.name < b.name; });
  return commands;
}

const Command* findCommand(std::string_view name) {
  for (const Command& command : table()) {
    if (command.name == name) return &command;
  }
  return nullptr;
}

// Written member by member: a long text goes to the stream without a copy of the result or a
// whole JSON string beside it.
void printResult(std::ostream& out, const ImportResult& result, std::string_view path,
                 const PropertyDictionary& extra) {
  out << "{\"path\":" << toJson(PropertyValue::fromUtf8(path));
  forEachJsonMember(result, [&](std::string_view key, const PropertyValue& value) {
    out << ',' << toJson(PropertyValue::fromUtf8(key)) << ':';
    if (isJoinedList(key)) {
      writeJson(out, splitList(value));
    } else {
      writeJson(out, value);
    }
  });
  for (const auto& [key, value] : extra)
    out << ',' << toJson(PropertyValue::fromUtf8(key)) << ':' << toJson(value);
  out << "}\n";
}

namespace {

// Display width in characters, so columns stay aligned with non-ASCII names.
std::size_t width(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

PropertyValue stringList(const std::vector<std::string>& items) {
  PropertyArray list;
  for (const std::string& item : items) list.push_back(PropertyValue::fromUtf8(item));
  return PropertyValue(std::move(list));
}

void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    if (widths.size() < row.size()) widths.resize(row.size());
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], width(row[column]));
  }
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      out << row[column];
      if (column + 1 < row.size()) out << std::string(widths[column] - width(row[column]) + 2, ' ');
    }
    out << '\n';
  }
}

void addPaths(CLI::App& command, std::vector<std::string>& paths, const std::string& description) {
  command.add_option("PATH", paths, description)->required();
}

void printError(CommandIO& io, std::string_view command, std::string_view message) {
  io.err << "ulvekbot: " << command << ": " << message << '\n';
}

int runForEachPath(std::string_view command, const std::vector<std::string>& paths, CommandIO& io,
                   const std::function<ImportResult(const std::string& path)>& operation) {
  int status = kExitSuccess;
  for (const std::string& path : paths) {
    // The operations answer a smaller result for a missing item; on the command line a typo
    // deserves an error instead. A dangling link is an item of its own and goes through.
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
      printError(io, command, path + ": " + std::strerror(errno));
      status = kExitFailure;
      continue;
    }
    try {
      printResult(io.out, operation(path), path);
    } catch (const NotSupportedError& exception) {
      printError(io, command, path + ": not supported yet (" + exception.what() + ")");
      status = kExitFailure;
    } catch (const std::exception& exception) {
      printError(io, command, path + ": " + exception.what());
      status = kExitFailure;
    }
  }
  return status;
}

}  // namespace ulvek::cli
