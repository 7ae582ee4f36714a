// Imports on several threads at once share the process's tables, converters and importer host;
// each must answer what it answers alone. Under ThreadSanitizer (scripts/test.sh tsan) this is
// also where a race in those shared parts shows.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "base/log.h"
#include "base/property_list.h"
#include "import/mime_type_helper.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// What an import answers: its result and the kind of its failure, if any.
struct Answer {
  ImportResult result;
  std::string failure;
  bool operator==(const Answer&) const = default;
};

Answer answerOf(MIMETypeHelper& helper, const std::string& path) {
  ImportDetails details;
  Answer answer{helper.openFile(path, details), ""};
  if (details.failure) answer.failure = failureKindName(details.failure->kind);
  return answer;
}

TEST(ConcurrentImport, ThreadsAnswerWhatOneThreadAnswers) {
  // The build's importers, so that plug-in files go through the worker pool too.
  ::setenv("ULVEKBOT_IMPORTER_PATH", (std::string(ULVEK_BINARY_DIR) + "/src/Importers").c_str(), 1);
  ::setenv("ULVEKBOT_IMPORTER_WORKER",
           (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
  // Ghostscript on four threads of a loaded machine may take longer than the usual limit, which
  // would make an answer depend on timing. OCR, tested on its own, would only make it long.
  testing::TemporaryFolder config;
  config.write("ulvekbot/defaults.plist",
               *xmlPropertyList(PropertyValue(PropertyDictionary{
                   {"ImporterTimeLimit", 120}, {"DisableOCR", PropertyValue(true)}})));
  ::setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
  std::vector<std::string> paths;
  // PostScript is read through a PDF that Ghostscript makes and dates by the clock: its answer
  // changes from one second to the next whatever the threads.
  for (const auto& entry : fs::recursive_directory_iterator(testing::dataPath())) {
    std::string extension = entry.path().extension().string();
    if (entry.is_regular_file() && extension != ".ps" && extension != ".eps")
      paths.push_back(entry.path().string());
  }
  ASSERT_GT(paths.size(), 100u);
  // Threads log at once; a sink that keeps nothing is safe for that.
  setLogSink([](std::string_view) {});
  MIMETypeHelper helper;
  // Alone: each file after the other, on one thread.
  std::map<std::string, Answer> alone;
  for (const std::string& path : paths) alone[path] = answerOf(helper, path);
  // At once: the threads take the files in turn.
  struct Row {
    const char* name;
    int threads;
  };
  for (const Row& row : {Row{"two threads", 2}, Row{"four threads", 4}}) {
    SCOPED_TRACE(row.name);
    std::vector<Answer> together(paths.size());
    std::atomic<std::size_t> next{0};
    {
      std::vector<std::jthread> threads;
      for (int t = 0; t < row.threads; ++t)
        threads.emplace_back([&] {
          for (std::size_t i; (i = next++) < paths.size();)
            together[i] = answerOf(helper, paths[i]);
        });
    }
    for (std::size_t i = 0; i < paths.size(); ++i)
      EXPECT_TRUE(together[i] == alone[paths[i]]) << paths[i];
  }
  setLogSink({});
  ::unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
}  // namespace ulvek
