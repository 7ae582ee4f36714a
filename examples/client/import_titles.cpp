// Imports the files named on the command line through the ulvekbotd64 service and prints each
// one's title; a daemon it had to start is stopped at the end.
//
//   import-titles [--helper PATH] FILE...
//
// The helper is $ULVEKBOT_HELPER, else the installed daemon (which the bus may start).
#include <ulvekbot/client.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  std::vector<std::string> files(argv + 1, argv + argc);
  ulvekbot::ClientOptions options;
  if (const char* fromEnvironment = std::getenv("ULVEKBOT_HELPER"))
    options.helperPath = fromEnvironment;
  if (files.size() >= 2 && files[0] == "--helper") {
    options.helperPath = files[1];
    files.erase(files.begin(), files.begin() + 2);
  }
  if (files.empty()) {
    std::cerr << "usage: import-titles [--helper PATH] FILE...\n";
    return 2;
  }

  ulvekbot::Client client(options);
  int status = 0;
  for (const std::string& file : files) {
    // The daemon runs elsewhere: it needs absolute paths.
    auto result = client.importFile(std::filesystem::absolute(file).string());
    if (!result) {
      std::cerr << file << ": " << result.error().message << '\n';
      status = 1;
      continue;
    }
    const std::string* title = result->string("Title");
    std::cout << file << ": " << (title ? *title : "(no title)") << '\n';
  }
  return status;
}
