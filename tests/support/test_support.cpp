#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ulvek::testing {

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "ulvektest-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::write(std::string_view relativePath, std::string_view bytes) const {
  std::filesystem::path file = path_ / relativePath;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file.string();
}

CapturedLog::CapturedLog() {
  setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
}

CapturedLog::~CapturedLog() { setLogSink({}); }

bool CapturedLog::contains(std::string_view fragment) const {
  for (const std::string& line : lines_)
    if (line.find(fragment) != std::string::npos) return true;
  return false;
}

std::string describe(const PropertyValue* value) {
  if (!value) return "(none)";
  if (value->string()) return "\"" + toUtf8(*value->string()) + "\"";
  if (value->date()) return "date " + std::to_string(value->date()->microseconds);
  if (const PropertyArray* list = value->array()) {
    std::string words;
    for (const PropertyValue& word : *list) words += (words.empty() ? "" : ", ") + describe(&word);
    return "[" + words + "]";
  }
  return std::string(value->className());
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

std::filesystem::path corpusPath() {
  // The environment lets one build run with the corpus hidden, as on a fresh clone.
  if (const char* folder = std::getenv("ULVEK_CORPUS_DIR"); folder && *folder) return folder;
  return ULVEK_CORPUS_DIR;
}

bool corpusPresent() { return std::filesystem::is_directory(corpusPath()); }

std::filesystem::path dataPath() { return ULVEK_TEST_DATA_DIR; }

namespace {

class PrivateCacheFolder : public ::testing::Environment {
 public:
  PrivateCacheFolder() { ::setenv("XDG_CACHE_HOME", folder_.path().c_str(), 1); }

 private:
  TemporaryFolder folder_;
};

}  // namespace

bool usePrivateCacheFolder() {
  // gtest owns the environment and deletes it, with the folder, when the run ends.
  static const bool added = ::testing::AddGlobalTestEnvironment(new PrivateCacheFolder) != nullptr;
  return added;
}

}  // namespace ulvek::testing
