// Launches the ulvekbotd64 helper with the client library, imports the files named on the
// command line through it and prints each one's title, then stops the helper.
//
//   import-titles [--helper PATH] FILE...
//
// The helper is $ULVEKBOT_HELPER, else /usr/bin/ulvekbotd64.
#include <ulvekbot/client.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  std::vector<std::string> files(argv + 1, argv + argc);
  const char* fromEnvironment = std::getenv("ULVEKBOT_HELPER");
  std::string helper = fromEnvironment ? fromEnvironment : "/usr/bin/ulvekbotd64";
  if (files.size() >= 2 && files[0] == "--helper") {
    helper = files[1];
    files.erase(files.begin(), files.begin() + 2);
  }
  if (files.empty()) {
    std::cerr << "usage: import-titles [--helper PATH] FILE...\n";
    return 2;
  }

  auto task = ulvek::HelperTask::initWithPath(helper, ulvek::kUlvekBotHelperName,
                                              ulvek::kUlvekBotHelperProtocol, 15.0,
                                              ulvek::kQualityOfServiceUtility);
  if (!task) return 1;
  int status = 0;
  for (const std::string& file : files) {
    // The helper may have gone between files; proxy() starts it again if it must.
    std::optional<ulvek::HelperProxy> proxy = task->proxy();
    if (!proxy) {
      std::cerr << "import-titles: cannot reach " << helper << '\n';
      return 1;
    }
    ulvek::Result<ulvek::ImportResult> result =
        proxy->openFile(std::filesystem::absolute(file).string());
    if (!result.ok()) {
      std::cerr << file << ": " << result.error().localizedDescription << '\n';
      status = 1;
      continue;
    }
    const ulvek::TextString* title = result->string(ulvek::ImportKey::Title);
    std::cout << file << ": " << (title ? ulvek::toUtf8(*title) : "(no title)") << '\n';
  }
  task->terminate();
  return status;
}
