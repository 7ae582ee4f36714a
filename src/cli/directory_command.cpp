#include <CLI/CLI.hpp>
#include <memory>

#include "cli/command.h"
#include "import/mime_type_helper.h"

namespace ulvek::cli {
namespace {

CommandAction define(CLI::App& command) {
  auto paths = std::make_shared<std::vector<std::string>>();
  addPaths(command, *paths, "Folders to describe");
  command.footer("Example:\n  ulvekbot directory ~/Projects/Atlas");
  return [paths](CommandIO& io) {
    MIMETypeHelper helper;
    return runForEachPath("directory", *paths, io,
                          [&](const std::string& path) { return helper.openDirectory(path); });
  };
}

const CommandRegistration registration{
    {"directory", "Prints the title, comment, where-from address and tags of folders", define}};

}  // namespace
}  // namespace ulvek::cli
