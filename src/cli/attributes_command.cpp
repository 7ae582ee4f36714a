#include "cli/command.h"
#include "import/mime_type_helper.h"

namespace ulvek::cli {
namespace {

int run(const std::vector<std::string>& paths, CommandIO& io) {
  MIMETypeHelper helper;
  return runForEachPath("attributes", paths, io,
                        [&](const std::string& path) { return helper.openAttributes(path); });
}

const CommandRegistration registration{
    {"attributes", "PATH...", "Prints the stored comment, where-from address and tags of items",
     run}};

}  // namespace
}  // namespace ulvek::cli
