// `ulvekbot import PATH...`: imports files in-process, as the service would, and prints one JSON
// line per file (or, with --text, only the text, as pdftotext prints it).

#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/deadline.h"
#include "base/failure.h"
#include "base/log.h"
#include "base/processors.h"
#include "cli/command.h"
#include "cli/ordered_jobs.h"
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
constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
// pdftotext ends every page with one; here every document.
constexpr char kFormFeed = '\f';

struct Options {
  std::vector<std::string> paths;
  std::string filesFrom;  // a file of paths, "-" for standard input
  bool nulSeparated = false;
  bool textOnly = false;
  std::string output;
  bool quiet = false;
  std::size_t maxText = kNoLimit;  // bytes of UTF-8
  double timeout = 0;              // seconds; 0: the importer host's own limit
  double timeLimit = 0;            // seconds of in-process reading a file; 0: none
  bool noRecursive = false;
  std::size_t maxDepth = kNoLimit;  // folder levels below a named folder
  std::vector<std::string> excludes;
  bool followLinks = false;
  std::size_t jobs = usableCores();
  std::optional<bool> ocr;  // --ocr, --no-ocr; nothing: the user defaults decide
  bool ocrFlag = false, noOcrFlag = false;
  std::string ocrLanguages;
};

// A package, or a folder that its name makes one document (an unpacked book): one item, as the
// service reads it.
bool isOneItem(const std::string& path) {
  return getBoolValueForKey(ResourceKey::IsPackage, path) ||
         isDocumentFolderExtension(toUtf8(pathExtension(path)));
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

// The text cut to at most `maxBytes` bytes of UTF-8, never inside a character.
std::string cutText(std::string text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return text;
  std::size_t end = maxBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  text.resize(end);
  return text;
}

// Paths one a line (or NUL-terminated); empty entries are left out.
std::vector<std::string> readPathList(std::istream& in, char separator) {
  std::vector<std::string> paths;
  for (std::string path; std::getline(in, path, separator);)
    if (!path.empty()) paths.push_back(std::move(path));
  return paths;
}

// A one-line bar on the terminal, redrawn after each file.
class Progress {
 public:
  Progress(CommandIO& io, std::size_t total, bool quiet)
      : io_(io),
        total_(total),
        shown_(!quiet && &io.err == &std::cerr && ::isatty(STDERR_FILENO) == 1) {}

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

// While alive, with -q, log lines go nowhere.
class QuietLog {
 public:
  explicit QuietLog(bool quiet) : quiet_(quiet) {
    if (quiet_) setLogSink([](std::string_view) {});
  }
  ~QuietLog() {
    if (quiet_) setLogSink({});
  }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

 private:
  bool quiet_;
};

class ImportRun {
 public:
  ImportRun(const Options& options, CommandIO& io) : options_(options), io_(io) {}

  int run();

 private:
  // An item to import, or one that failed before it could be: named but missing, a folder
  // that cannot be read. Failed items still get their line, in their place.
  struct Item {
    std::string path;
    std::optional<Failure> failure;
  };

  // The one place where an item counts as failed: its line carries "Error", it is counted, it is
  // said on standard error unless a log line said it already, and the command exits 1.
  void fail(const std::string& path, const Failure& failure, bool logged) {
    if (!logged || options_.quiet)
      printError(io_, kCommand,
                 path + ": " + std::string(failureKindName(failure.kind)) + ": " + failure.message);
    ++failed_;
    status_ = kExitFailure;
  }
  // Before importing: the item is listed with its failure.
  void failEarly(const std::string& path, int error) {
    FailureKind kind =
        error == EACCES || error == EPERM ? FailureKind::Permission : FailureKind::NotFound;
    items_.push_back({path, Failure{kind, std::strerror(error)}});
  }

  // What importing one item gives: its output, and what the summary and exit status make of it.
  struct Outcome {
    std::string output;
    std::optional<Failure> failure;
    bool logged = false;  // a log line said the failure already
    std::uint64_t bytes = 0;
    bool byNature = false;
  };

  std::optional<std::vector<std::string>> namedPaths();
  void collect(const std::string& path);
  void walk(const fs::path& folder, const std::string& relative, std::size_t depth);
  bool excluded(const std::string& name, const std::string& relative) const;
  bool firstVisit(const fs::path& folder);
  void importAll(std::ostream& out);
  // Safe to call from several threads at once.
  Outcome importOne(MIMETypeHelper& helper, const Item& item) const;

  const Options& options_;
  CommandIO& io_;
  int status_ = kExitSuccess;
  std::vector<Item> items_;
  std::size_t failed_ = 0;
  std::size_t skippedLinks_ = 0;
  // Folders walked, so a linked folder is walked once and links in a circle end (-L).
  std::set<std::pair<dev_t, ino_t>> walked_;
};

// The paths as named, with "-" and --files-from replaced by the paths they list.
std::optional<std::vector<std::string>> ImportRun::namedPaths() {
  char separator = options_.nulSeparated ? '\0' : '\n';
  std::vector<std::string> paths;
  auto addList = [&](const std::string& source) {
    std::vector<std::string> listed;
    if (source == "-") {
      listed = readPathList(std::cin, separator);
    } else {
      std::ifstream file(source, std::ios::binary);
      if (!file) return false;
      listed = readPathList(file, separator);
    }
    paths.insert(paths.end(), listed.begin(), listed.end());
    return true;
  };
  for (const std::string& path : options_.paths) {
    if (path == "-")
      addList(path);
    else
      paths.push_back(path);
  }
  if (!options_.filesFrom.empty() && !addList(options_.filesFrom)) {
    printError(io_, kCommand, options_.filesFrom + ": " + std::strerror(errno));
    return std::nullopt;
  }
  return paths;
}

void ImportRun::collect(const std::string& path) {
  // Listed with line feeds, a NUL-separated list is one name that no file has.
  if (path.find('\0') != std::string::npos) {
    items_.push_back(
        {path, Failure{FailureKind::NotFound,
                       "a path cannot hold a NUL byte (-0 reads NUL-separated lists)"}});
    return;
  }
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) {
    failEarly(path, errno);
    return;
  }
  // A folder named on the command line is walked, unless it is a package; a named link is
  // taken as the user named it.
  struct stat target {};
  bool isFolder = ::stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
  if (!isFolder || isOneItem(path)) {
    items_.push_back({path, {}});
    return;
  }
  firstVisit(path);
  walk(path, "", 0);
}

bool ImportRun::excluded(const std::string& name, const std::string& relative) const {
  return std::any_of(options_.excludes.begin(), options_.excludes.end(), [&](const auto& glob) {
    return ::fnmatch(glob.c_str(), name.c_str(), 0) == 0 ||
           ::fnmatch(glob.c_str(), relative.c_str(), 0) == 0;
  });
}

bool ImportRun::firstVisit(const fs::path& folder) {
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0) return true;
  return walked_.emplace(info.st_dev, info.st_ino).second;
}

// The files of a folder in name order, depth first. Packages are imported as one item, as the
// application sees them, and so are folders that are one document; fifos and devices are left
// out because reading them could block. Links are followed only with -L.
void ImportRun::walk(const fs::path& folder, const std::string& relative, std::size_t depth) {
  std::error_code error;
  std::vector<fs::directory_entry> entries;
  // A folder that cannot be read is a failure of its own, not an empty folder.
  for (fs::directory_iterator it(folder, error); !error && it != fs::directory_iterator();
       it.increment(error))
    entries.push_back(*it);
  if (error) {
    failEarly(folder.string(), error.value());
    return;
  }
  std::sort(entries.begin(), entries.end());
  std::size_t maxDepth = options_.noRecursive ? 0 : options_.maxDepth;
  for (const fs::directory_entry& entry : entries) {
    std::string name = entry.path().filename().string();
    std::string path = entry.path().string();
    std::string entryRelative = relative.empty() ? name : relative + "/" + name;
    if (excluded(name, entryRelative)) continue;
    std::error_code statusError;
    fs::file_status status = entry.symlink_status(statusError);
    if (statusError) continue;
    if (fs::is_symlink(status)) {
      // A broken link is skipped even when links are followed.
      if (options_.followLinks) status = entry.status(statusError);
      if (!options_.followLinks || statusError || !fs::exists(status)) {
        ++skippedLinks_;
        continue;
      }
    }
    if (fs::is_directory(status)) {
      if (isOneItem(path))
        items_.push_back({std::move(path), {}});
      else if (depth < maxDepth && firstVisit(entry.path()))
        walk(entry.path(), entryRelative, depth + 1);
      continue;
    }
    // "._NAME" beside NAME carries NAME's fork and Finder info: it is read with NAME.
    if (fs::is_regular_file(status) && !isAppleDoubleCompanion(path))
      items_.push_back({std::move(path), {}});
  }
}

// Images, sound, video and archives have no text by nature; other files without text were read
// and found empty.
bool withoutTextByNature(const std::optional<std::string>& contentType) {
  if (!contentType) return false;
  for (std::string_view kind :
       {kUTTypeImage, std::string_view("public.audiovisual-content"),
        std::string_view("public.archive"), std::string_view("public.executable")})
    if (typeConformsTo(*contentType, kind)) return true;
  return false;
}

PropertyValue errorMember(const Failure& failure) {
  return PropertyValue(
      PropertyDictionary{{"kind", PropertyValue::fromUtf8(failureKindName(failure.kind))},
                         {"message", PropertyValue::fromUtf8(failure.message)}});
}

ImportRun::Outcome ImportRun::importOne(MIMETypeHelper& helper, const Item& item) const {
  const std::string& path = item.path;
  Outcome outcome;
  std::ostringstream out;
  if (item.failure) {
    outcome.failure = item.failure;
    if (options_.textOnly)
      out << kFormFeed;
    else
      printResult(out, ImportResult(), path, {{"Error", errorMember(*item.failure)}});
    outcome.output = std::move(out).str();
    return outcome;
  }
  try {
    // Imported by absolute path, as the service is given it; shown as the user named it.
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    ImportDetails details;
    ReadingDeadline deadline(readingLimitOfSeconds(options_.timeLimit));
    ImportResult result = helper.openFile(error ? path : absolute.string(), details);
    if (const PropertyValue* size = result.get(ImportKey::FileSize)) {
      if (const std::uint64_t* value = size->unsignedInteger()) outcome.bytes = *value;
    }
    std::optional<std::string> text;
    if (const TextString* value = result.string(ImportKey::Text))
      text = cutText(toUtf8(*value), options_.maxText);
    PropertyDictionary extra = typeMembers(details.contentType);
    if (details.textSource) extra["TextSource"] = PropertyValue::fromUtf8(*details.textSource);
    if (details.failure) {
      outcome.failure = details.failure;
      outcome.logged = true;
      extra["Error"] = errorMember(*details.failure);
    } else if (!text && withoutTextByNature(details.contentType)) {
      outcome.byNature = true;
    }
    if (options_.textOnly) {
      out << text.value_or("") << kFormFeed;
    } else {
      if (text && options_.maxText != kNoLimit)
        result.putOrRemove(ImportKey::Text, PropertyValue::fromUtf8(*text));
      printResult(out, result, path, extra);
    }
  } catch (const std::exception& exception) {
    out.str("");
    outcome = Outcome{};
    outcome.failure = Failure{FailureKind::Damaged, exception.what()};
    if (!options_.textOnly)
      printResult(out, ImportResult(), path, {{"Error", errorMember(*outcome.failure)}});
  }
  outcome.output = std::move(out).str();
  return outcome;
}

void ImportRun::importAll(std::ostream& out) {
  MIMETypeHelper helper;
  Progress progress(io_, items_.size(), options_.quiet);
  std::uint64_t bytes = 0;
  std::size_t byNature = 0;
  auto started = std::chrono::steady_clock::now();
  // Lines come out in the order of the items whatever the number of threads; a few per thread
  // may wait for an earlier one to finish.
  runInOrder(
      items_.size(), options_.jobs, 4 * options_.jobs,
      [&](std::size_t i) { return importOne(helper, items_[i]); },
      [&](std::size_t i, Outcome outcome) {
        progress.clear();
        if (outcome.failure) fail(items_[i].path, *outcome.failure, outcome.logged);
        bytes += outcome.bytes;
        if (outcome.byNature) ++byNature;
        out << outcome.output;
        out.flush();
        progress.draw(i + 1);
      });
  progress.clear();
  if (options_.quiet) return;
  std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  char summary[200];
  std::snprintf(summary, sizeof summary,
                "%zu %s, %llu bytes, %.3f s: %zu read, %zu without text by nature, %zu failed",
                items_.size(), items_.size() == 1 ? "file" : "files",
                static_cast<unsigned long long>(bytes), seconds.count(),
                items_.size() - byNature - failed_, byNature, failed_);
  io_.err << "ulvekbot: " << kCommand << ": " << summary << "\n";
}

int ImportRun::run() {
  if (options_.paths.empty() && options_.filesFrom.empty()) {
    printError(io_, kCommand, "expects at least one path, - or --files-from FILE");
    return kExitUsage;
  }
  bool listed =
      options_.filesFrom.size() > 0 ||
      std::find(options_.paths.begin(), options_.paths.end(), "-") != options_.paths.end();
  if (options_.nulSeparated && !listed) {
    printError(io_, kCommand, "-0 goes with - or --files-from FILE");
    return kExitUsage;
  }
  // Log lines of the readers and importers; errors of the command itself still show.
  QuietLog quietLog(options_.quiet);
  std::optional<std::vector<std::string>> paths = namedPaths();
  if (!paths) return kExitFailure;
  if (options_.timeout > 0) {
    WorkerProcess::Limits limits = MetaDataImporter::sharedImporter().limits();
    limits.time = std::chrono::milliseconds(static_cast<long long>(options_.timeout * 1000));
    MetaDataImporter::sharedImporter().setLimits(limits);
  }
  if (options_.ocr || !options_.ocrLanguages.empty()) {
    OCRSettings ocr = MetaDataImporter::sharedImporter().ocr();
    if (options_.ocr) ocr.enabled = *options_.ocr;
    if (!options_.ocrLanguages.empty()) ocr.languages = options_.ocrLanguages;
    MetaDataImporter::sharedImporter().setOCR(ocr);
  }
  for (const std::string& path : *paths) collect(path);
  if (skippedLinks_ > 0 && !options_.quiet) {
    std::string count = std::to_string(skippedLinks_) + (skippedLinks_ == 1 ? " link" : " links");
    printError(io_, kCommand,
               options_.followLinks ? count + " in folders skipped: the target is missing"
                                    : count + " in folders skipped (-L follows them)");
  }

  std::ofstream file;
  if (!options_.output.empty()) {
    file.open(options_.output, std::ios::binary | std::ios::trunc);
    if (!file) {
      printError(io_, kCommand, options_.output + ": " + std::strerror(errno));
      return kExitFailure;
    }
  }
  importAll(options_.output.empty() ? io_.out : file);
  file.close();
  if (!options_.output.empty() && !file) {
    printError(io_, kCommand, "cannot write " + options_.output);
    return kExitFailure;
  }
  return status_;
}

constexpr std::string_view kFooter = R"(
Folders are walked in name order; AppleDouble ._NAME companions are read with
NAME, and packages and folders that are one document (an unpacked book) are
one item. Links inside folders are skipped unless -L is given; a path named
on the command line is always read.

Exit status: 0 when every file was read, 1 when any failed, 2 for a wrong
command line.

Examples:
  ulvekbot import ~/Documents/report.docx
  ulvekbot import --max-depth 1 --exclude '*.log' ~/Projects
  find ~/Mail -name '*.eml' -print0 | ulvekbot import -q -0 - > mail.jsonl
  ulvekbot import --text -o report.txt report.pdf
  ulvekbot import --timeout=5 ~/Downloads | jq -r .Title
  ulvekbot import --ocr-lang deu+eng --text scanned-letter.pdf)";

CommandAction define(CLI::App& command) {
  auto options = std::make_shared<Options>();
  command.add_option("PATH", options->paths,
                     "Files and folders to import; - reads paths from standard input");
  command
      .add_option("--files-from", options->filesFrom,
                  "Also import the paths listed in FILE (- for standard input), one a line")
      ->type_name("FILE");
  command.add_flag("-0,--null", options->nulSeparated,
                   "Listed paths end with NUL instead of a line feed (find -print0)");
  command.add_flag("--text", options->textOnly,
                   "Print only the text of each file, each followed by a form feed");
  command.add_option("-o,--output", options->output, "Write the results to FILE")
      ->type_name("FILE");
  command.add_flag("-q,--quiet", options->quiet,
                   "No progress, summary or log lines; only errors are shown");
  command.add_option("--max-text", options->maxText, "Cut each text to at most BYTES bytes")
      ->type_name("BYTES");
  command
      .add_option("--timeout", options->timeout,
                  "How long one importer plug-in call may take, in seconds")
      ->type_name("SECONDS")
      ->check([](const std::string& value) {
        return std::strtod(value.c_str(), nullptr) > 0 ? "" : "takes a number of seconds above 0";
      });
  command
      .add_option("--time-limit", options->timeLimit,
                  "How long the in-process readers may read one file, in seconds; a file cut "
                  "short answers the text read so far, with an Error of kind timed-out")
      ->type_name("SECONDS")
      ->check([](const std::string& value) {
        return std::strtod(value.c_str(), nullptr) > 0 ? "" : "takes a number of seconds above 0";
      });
  command.add_flag("--no-recursive", options->noRecursive,
                   "Import only the files directly in a named folder");
  command
      .add_option("--max-depth", options->maxDepth,
                  "Walk at most N levels of folders below a named folder (0: only its own files)")
      ->type_name("N");
  command
      .add_option("--exclude", options->excludes,
                  "Leave out files and folders whose name or path below the named folder "
                  "matches GLOB (repeatable)")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  command.add_flag("-L,--follow", options->followLinks, "Follow links inside folders");
  CLI::Option* ocrOn = command.add_flag(
      "--ocr", options->ocrFlag,
      "Read scanned pages and pictures of text with Tesseract (the default unless the user "
      "default DisableOCR is set); such text is marked \"TextSource\": \"ocr\" or \"mixed\"");
  CLI::Option* ocrOff = command.add_flag("--no-ocr", options->noOcrFlag, "Never read text by OCR");
  command
      .add_option("--ocr-lang", options->ocrLanguages,
                  "Tesseract languages to read with, such as deu+eng (default: the user default "
                  "OCRLanguages, else the locale's language where installed and English)")
      ->type_name("LANGS");
  command
      .add_option("-j,--jobs", options->jobs,
                  "Import N files at a time (default: the number of cores); the output keeps "
                  "the order of -j 1")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  command.footer(std::string(kFooter));
  // The last of --ocr and --no-ocr wins.
  return [options, ocrOn, ocrOff, &command](CommandIO& io) {
    for (CLI::Option* option : command.parse_order())
      if (option == ocrOn || option == ocrOff) options->ocr = option == ocrOn;
    return ImportRun(*options, io).run();
  };
}

const CommandRegistration registration{
    {kCommand, "Imports files in-process and prints one JSON result per file; folders are walked",
     define}};

}  // namespace
}  // namespace ulvek::cli
