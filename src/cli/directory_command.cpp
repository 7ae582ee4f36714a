#include "cli/command.h"
#include "import/mime_type_helper.h"

namespace ulvek::cli {
namespace {

int run(const std::vector<std::string>& paths, CommandIO& io) {
  MIMETypeHelper helper;
  return runForEachPath("directory", paths, io,
                        [&](const std::string& path) { return helper.openDirectory(path); });
}

const CommandRegistration registration{
    {"directory", "PATH...", "Prints the title, comment, where-from address and tags of folders",
     run}};

}  // namespace
}  // namespace ulvek::cli
