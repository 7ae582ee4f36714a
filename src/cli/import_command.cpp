#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "base/error.h"
#include "cli/command.h"
#include "import/mime_type_helper.h"
#include "importers/metadata_importer.h"
#include "metadata/file_size.h"
#include "metadata/file_types.h"
#include "platform/content_types.h"
#include "platform/resource_fork.h"

namespace ulvek::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kCommand = "import";
constexpr int kProgressWidth = 30;

// A package, or a folder that its name makes one document (an unpacked book): one item, as the
// service reads it.
bool isOneItem(const std::string& path) {
  return getBoolValueForKey(ResourceKey::IsPackage, path) ||
         isDocumentFolderExtension(toUtf8(pathExtension(path)));
}

// The files of a folder, depth first. Links are not followed and not imported; packages are
// imported as one item, as the application sees them, and so are folders that are one document;
// fifos and devices are left out because reading them could block.
void collectFolder(const std::string& folder, std::vector<std::string>& files, CommandIO& io) {
  std::error_code error;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
  if (error) {
    printError(io, kCommand, folder + ": " + error.message());
    return;
  }
  for (; it != fs::recursive_directory_iterator(); it.increment(error)) {
    if (error) break;
    const fs::directory_entry& entry = *it;
    std::error_code statusError;
    fs::file_status status = entry.symlink_status(statusError);
    if (statusError || fs::is_symlink(status)) continue;
    std::string path = entry.path().string();
    if (fs::is_directory(status)) {
      if (isOneItem(path)) {
        it.disable_recursion_pending();
        files.push_back(std::move(path));
      }
      continue;
    }
    // "._NAME" beside NAME carries NAME's fork and Finder info: it is read with NAME.
    if (fs::is_regular_file(status) && !isAppleDoubleCompanion(path))
      files.push_back(std::move(path));
  }
}

// What the line says of the file's type beside the result's keys: the type identifier and, where
// the registry has one, its MIME type.
PropertyDictionary typeMembers(const std::optional<std::string>& contentType) {
  PropertyDictionary members;
  if (!contentType) return members;
  members["ContentType"] = PropertyValue::fromUtf8(*contentType);
  if (std::optional<std::string_view> mimeType = mimeTypeOfContentType(*contentType))
    members["MIMEType"] = PropertyValue::fromUtf8(*mimeType);
  return members;
}

// A one-line bar on the terminal, redrawn after each file.
class Progress {
 public:
  Progress(CommandIO& io, std::size_t total)
      : io_(io), total_(total), shown_(&io.err == &std::cerr && ::isatty(STDERR_FILENO) == 1) {}

  void clear() {
    if (shown_) io_.err << "\r\033[K" << std::flush;
  }
  void draw(std::size_t done) {
    if (!shown_ || total_ == 0) return;
    int filled = static_cast<int>(done * kProgressWidth / total_);
    io_.err << "\r[" << std::string(filled, '#') << std::string(kProgressWidth - filled, '.')
            << "] " << done << "/" << total_ << std::flush;
  }

 private:
  CommandIO& io_;
  std::size_t total_;
  bool shown_;
};

int run(const std::vector<std::string>& arguments, CommandIO& io) {
  if (arguments.empty()) {
    printError(io, kCommand, "expects at least one path");
    return kExitUsage;
  }
  int status = kExitSuccess;
  std::vector<std::string> files;
  std::vector<std::string> paths;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    // --timeout SECONDS: how long one importer may take.
    if (arguments[i] == "--timeout" && i + 1 < arguments.size()) {
      double seconds = std::atof(arguments[++i].c_str());
      if (seconds <= 0) {
        printError(io, kCommand, "--timeout takes a number of seconds");
        return kExitUsage;
      }
      WorkerProcess::Limits limits = MetaDataImporter::sharedImporter().worker().limits();
      limits.time = std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
      MetaDataImporter::sharedImporter().setLimits(limits);
      continue;
    }
    paths.push_back(arguments[i]);
  }
  if (paths.empty()) {
    printError(io, kCommand, "expects at least one path");
    return kExitUsage;
  }
  for (const std::string& path : paths) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
      printError(io, kCommand, path + ": " + std::strerror(errno));
      status = kExitFailure;
      continue;
    }
    // A folder named on the command line is walked, unless it is a package; a named link is
    // taken as the user named it.
    struct stat target {};
    bool isFolder = ::stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
    if (isFolder && !isOneItem(path)) {
      collectFolder(path, files, io);
    } else {
      files.push_back(path);
    }
  }

  MIMETypeHelper helper;
  Progress progress(io, files.size());
  std::uint64_t bytes = 0;
  std::size_t withoutText = 0;
  auto started = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < files.size(); ++i) {
    try {
      // Imported by absolute path, as the service is given it; shown as the user named it.
      std::error_code error;
      fs::path absolute = fs::absolute(files[i], error);
      std::optional<std::string> contentType;
      ImportResult result = helper.openFile(error ? files[i] : absolute.string(), contentType);
      if (const PropertyValue* size = result.get(ImportKey::FileSize)) {
        if (const std::uint64_t* value = size->unsignedInteger()) bytes += *value;
      }
      if (!result.contains(ImportKey::Text)) ++withoutText;
      progress.clear();
      printResult(io.out, result, files[i], typeMembers(contentType));
    } catch (const std::exception& exception) {
      progress.clear();
      printError(io, kCommand, files[i] + ": " + exception.what());
      status = kExitFailure;
    }
    io.out.flush();
    progress.draw(i + 1);
  }
  progress.clear();
  std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  char summary[160];
  std::snprintf(summary, sizeof summary, "%zu %s, %llu bytes, %.3f s, %zu without text",
                files.size(), files.size() == 1 ? "file" : "files",
                static_cast<unsigned long long>(bytes), seconds.count(), withoutText);
  io.err << "ulvekbot " << kCommand << ": " << summary << "\n";
  return status;
}

const CommandRegistration registration{
    {"import", "[--timeout SECONDS] PATH...",
     "Imports files in-process and prints one JSON result per file; folders are walked", run}};

}  // namespace
}  // namespace ulvek::cli
