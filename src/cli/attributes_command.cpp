#include <CLI/CLI.hpp>
#include <memory>

#include "cli/command.h"
#include "import/mime_type_helper.h"

namespace ulvek::cli {
namespace {

CommandAction define(CLI::App& command) {
  auto paths = std::make_shared<std::vector<std::string>>();
  addPaths(command, *paths, "Files or folders whose attributes to print");
  command.footer("Example:\n  ulvekbot attributes ~/Downloads/paper.pdf");
  return [paths](CommandIO& io) {
    MIMETypeHelper helper;
    return runForEachPath("attributes", *paths, io,
                          [&](const std::string& path) { return helper.openAttributes(path); });
  };
}

const CommandRegistration registration{
    {"attributes", "Prints the stored comment, where-from address and tags of items", define}};

}  // namespace
}  // namespace ulvek::cli
