// `ulvekbot import PATH...`: imports files in-process, as the service would, and prints one JSON
// line per file (or, with --text, only the text, as pdftotext prints it).

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/failure.h"
#include "base/log.h"
#include "base/processors.h"
#include "cli/command.h"
#include "cli/ordered_jobs.h"
#include "import/item_import.h"
#include "import/mime_type_helper.h"
#include "importers/metadata_importer.h"

namespace ulvek::cli {
namespace {

constexpr std::string_view kCommand = "import";
constexpr int kProgressWidth = 30;
// pdftotext ends every page with one; here every document.
constexpr char kFormFeed = '\f';
// Files a thread may read ahead of the oldest one still being read, and the most output that may
// wait for it.
constexpr std::size_t kWaitingFiles = 256;
constexpr std::size_t kMostWaitingBytes = 64 << 20;

struct Options {
  std::vector<std::string> paths;
  std::string filesFrom;  // a file of paths, "-" for standard input
  bool nulSeparated = false;
  bool textOnly = false;
  std::string output;
  bool quiet = false;
  ItemOptions item;
  double timeout = 0;  // seconds; 0: the importer host's own limit
  bool noRecursive = false;
  WalkOptions walk;
  std::size_t jobs = usableCores();
  std::optional<bool> ocr;  // --ocr, --no-ocr; nothing: the user defaults decide
  bool ocrFlag = false, noOcrFlag = false;
  std::string ocrLanguages;
};

// The paths as named, with "-" and --files-from giving the paths they list, one a line (or
// NUL-terminated; empty entries are left out). Lists are read as the walk needs their paths, so
// `find | ulvekbot import -` starts at once and never holds the whole list.
class NamedPaths {
 public:
  NamedPaths(const Options& options, std::istream* filesFrom)
      : options_(options), filesFrom_(filesFrom) {}

  std::optional<std::string> next() {
    for (;;) {
      if (list_) {
        std::string path;
        if (std::getline(*list_, path, options_.nulSeparated ? '\0' : '\n')) {
          if (!path.empty()) return path;
          continue;
        }
        list_ = nullptr;
      }
      if (at_ < options_.paths.size()) {
        const std::string& path = options_.paths[at_++];
        if (path != "-") return path;
        list_ = &std::cin;
        continue;
      }
      if (!filesFrom_) return std::nullopt;
      list_ = std::exchange(filesFrom_, nullptr);
    }
  }

 private:
  const Options& options_;
  std::istream* filesFrom_;
  std::istream* list_ = nullptr;
  std::size_t at_ = 0;
};

// A one-line bar on the terminal, redrawn after each file.
// Items are counted as the walk finds them: "12/340+" while it goes on, "12/400" once it ended.
class Progress {
 public:
  Progress(CommandIO& io, bool quiet)
      : io_(io), shown_(!quiet && &io.err == &std::cerr && ::isatty(STDERR_FILENO) == 1) {}

  void clear() {
    if (shown_) io_.err << "\r\033[K" << std::flush;
  }
  void draw(std::size_t done, std::size_t found, bool walking) {
    if (!shown_ || found == 0) return;
    int filled = static_cast<int>(done * kProgressWidth / found);
    io_.err << "\r[" << std::string(filled, '#') << std::string(kProgressWidth - filled, '.')
            << "] " << done << "/" << found << (walking ? "+" : "") << std::flush;
  }

 private:
  CommandIO& io_;
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
  ImportRun(const Options& options, CommandIO& io)
      : options_(options), item_(options.item), io_(io) {
    // -j N keeps to N cores, the pages of a long scan or PDF included.
    item_.cores = options.jobs;
  }

  int run();

 private:
  // The one place where an item counts as failed: its line carries "Error", it is counted, it is
  // said on standard error unless a log line said it already, and the command exits 1.
  void fail(const std::string& path, const Failure& failure, bool logged) {
    if (!logged || options_.quiet)
      printError(io_, kCommand,
                 path + ": " + std::string(failureKindName(failure.kind)) + ": " + failure.message);
    ++failed_;
    status_ = kExitFailure;
  }
  // What importing one item gives: its output, and what the summary and exit status make of it.
  struct Outcome {
    std::string output;
    std::optional<Failure> failure;
    bool logged = false;  // a log line said the failure already
    std::uint64_t bytes = 0;
    bool byNature = false;
  };

  void importAll(NamedPaths& named, std::ostream& out);
  // Safe to call from several threads at once.
  Outcome importOne(MIMETypeHelper& helper, const WalkItem& item) const;

  const Options& options_;
  ItemOptions item_;
  CommandIO& io_;
  int status_ = kExitSuccess;
  std::size_t failed_ = 0;
};

ImportRun::Outcome ImportRun::importOne(MIMETypeHelper& helper, const WalkItem& item) const {
  // Imported by absolute path, as the service is given it; shown as the user named it.
  ItemAnswer answer =
      item.failure ? failedItem(*item.failure) : importItem(helper, item.path, item_);
  std::ostringstream out;
  if (options_.textOnly)
    out << toUtf8(answer.textOrEmpty()) << kFormFeed;
  else
    printResult(out, answer.result, item.path, answer.extra);
  return Outcome{std::move(out).str(), std::move(answer.failure), answer.logged, answer.bytes,
                 answer.byNature};
}

void ImportRun::importAll(NamedPaths& named, std::ostream& out) {
  MIMETypeHelper helper;
  Progress progress(io_, options_.quiet);
  WalkOptions walkOptions = options_.walk;
  walkOptions.recursive = !options_.noRecursive;
  ItemWalk walk(std::move(walkOptions));
  // The walk runs on one thread at a time; the progress bar reads how far it got.
  std::atomic<std::size_t> found = 0;
  std::atomic<bool> walking = true;
  auto nextItem = [&]() -> std::optional<WalkItem> {
    for (;;) {
      if (std::optional<WalkItem> item = walk.next()) {
        ++found;
        return item;
      }
      std::optional<std::string> path = named.next();
      if (!path) {
        walking = false;
        return std::nullopt;
      }
      walk.add(*path);
    }
  };
  std::size_t count = 0;
  std::uint64_t bytes = 0;
  std::size_t byNature = 0;
  auto started = std::chrono::steady_clock::now();
  // Lines come out in the order of the items whatever the number of threads. While a long file
  // (a scan, a big PDF) is read, the other threads go on with the files after it: many small
  // answers may wait for it, but not much text.
  runInOrder(
      nextItem, options_.jobs, Window(kWaitingFiles * options_.jobs, kMostWaitingBytes),
      [&](const WalkItem& item) { return importOne(helper, item); },
      [&](std::size_t i, WalkItem item, Outcome outcome) {
        progress.clear();
        if (outcome.failure) fail(item.path, *outcome.failure, outcome.logged);
        bytes += outcome.bytes;
        if (outcome.byNature) ++byNature;
        out << outcome.output;
        out.flush();
        count = i + 1;
        progress.draw(count, found, walking);
      },
      [](const Outcome& outcome) { return outcome.output.size(); });
  progress.clear();
  if (std::size_t skipped = walk.skippedLinks(); skipped > 0 && !options_.quiet) {
    std::string links = std::to_string(skipped) + (skipped == 1 ? " link" : " links");
    printError(io_, kCommand,
               options_.walk.followLinks ? links + " in folders skipped: the target is missing"
                                         : links + " in folders skipped (-L follows them)");
  }
  if (options_.quiet) return;
  std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  char summary[200];
  std::snprintf(summary, sizeof summary,
                "%zu %s, %llu bytes, %.3f s: %zu read, %zu without text by nature, %zu failed",
                count, count == 1 ? "file" : "files", static_cast<unsigned long long>(bytes),
                seconds.count(), count - byNature - failed_, byNature, failed_);
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
  std::ifstream filesFrom;
  if (!options_.filesFrom.empty() && options_.filesFrom != "-") {
    filesFrom.open(options_.filesFrom, std::ios::binary);
    if (!filesFrom) {
      printError(io_, kCommand, options_.filesFrom + ": " + std::strerror(errno));
      return kExitFailure;
    }
  }
  NamedPaths named(options_, options_.filesFrom.empty()  ? nullptr
                             : options_.filesFrom == "-" ? &std::cin
                                                         : &filesFrom);
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

  std::ofstream file;
  if (!options_.output.empty()) {
    file.open(options_.output, std::ios::binary | std::ios::trunc);
    if (!file) {
      printError(io_, kCommand, options_.output + ": " + std::strerror(errno));
      return kExitFailure;
    }
  }
  importAll(named, options_.output.empty() ? io_.out : file);
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
  command.add_option("--max-text", options->item.maxText, "Cut each text to at most BYTES bytes")
      ->type_name("BYTES");
  command
      .add_option("--timeout", options->timeout,
                  "How long one importer plug-in call may take, in seconds")
      ->type_name("SECONDS")
      ->check([](const std::string& value) {
        return std::strtod(value.c_str(), nullptr) > 0 ? "" : "takes a number of seconds above 0";
      });
  command
      .add_option("--time-limit", options->item.timeLimit,
                  "How long the in-process readers may read one file, in seconds; a file cut "
                  "short answers the text read so far, with an Error of kind timed-out")
      ->type_name("SECONDS")
      ->check([](const std::string& value) {
        return std::strtod(value.c_str(), nullptr) > 0 ? "" : "takes a number of seconds above 0";
      });
  command.add_flag("--no-recursive", options->noRecursive,
                   "Import only the files directly in a named folder");
  command
      .add_option("--max-depth", options->walk.maxDepth,
                  "Walk at most N levels of folders below a named folder (0: only its own files)")
      ->type_name("N");
  command
      .add_option("--exclude", options->walk.excludes,
                  "Leave out files and folders whose name or path below the named folder "
                  "matches GLOB (repeatable)")
      ->type_name("GLOB")
      ->allow_extra_args(false);
  command.add_flag("-L,--follow", options->walk.followLinks, "Follow links inside folders");
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
                  "Import N files at a time, on at most N cores (default: the number of "
                  "cores); the output keeps the order of -j 1")
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
