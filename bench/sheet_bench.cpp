// Sheet reading speed: a generated 100 MB CSV (quoted fields, doubled quotes, line breaks inside
// quotes) read into rows by ulvekbot's sheet reader and by Python's csv module, the tool a user
// would otherwise reach for, side by side in one run. Times are CPU seconds: the thread's own for
// ulvekbot, the child's for Python.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "readers/wordperfect/sheet.h"
#include "text/text_decoding.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace ulvek;

constexpr std::uint64_t kTargetBytes = 100ull * 1024 * 1024;

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9;
}

double childSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Rows of ten fields: numbers, words, a quoted field with a comma, one with doubled quotes and
// now and then one with a line break.
std::uint64_t writeCSV(const std::string& path) {
  std::ofstream out(path, std::ios::binary);
  out << "id,name,city,amount,note,flag,code,when,ratio,comment\n";
  std::uint64_t bytes = 0;
  for (std::uint64_t row = 0; bytes < kTargetBytes; ++row) {
    std::string line = std::to_string(row) + ",Name " + std::to_string(row % 977) +
                       ",\"Berlin, Mitte\"," + std::to_string(row * 37 % 100000) +
                       ".25,\"say \"\"hi\"\"\",yes,X" + std::to_string(row % 13) + ",2024-05-06," +
                       std::to_string(row % 7) + ".5,";
    line += (row % 50 == 0) ? "\"two\nlines\"\n" : "plain text here\n";
    out << line;
    bytes += line.size();
  }
  return bytes;
}

// Python either keeps every row, as the sheet reader does, or only counts the fields as they
// stream by.
double runPython(const std::string& path, bool keepRows) {
  const char* script = keepRows ? "import csv,sys\n"
                                  "rows=list(csv.reader(open(sys.argv[1], newline='', "
                                  "encoding='utf-8')))\n"
                                : "import csv,sys\n"
                                  "n=0\n"
                                  "for row in csv.reader(open(sys.argv[1], newline='', "
                                  "encoding='utf-8')): n+=len(row)\n";
  std::vector<std::string> arguments = {"python3", "-c", script, path};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  double before = childSeconds();
  pid_t pid = 0;
  if (posix_spawnp(&pid, "python3", nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return childSeconds() - before;
}

}  // namespace

int main() {
  std::string folder = (fs::temp_directory_path() / "ulvek-sheet-bench-XXXXXX").string();
  if (!mkdtemp(folder.data())) return 1;
  std::string path = folder + "/big.csv";
  std::uint64_t bytes = writeCSV(path);
  double megabytes = bytes / (1024.0 * 1024.0);

  // The decoding alone, to show where the time goes.
  double start = threadSeconds();
  std::optional<TextString> text = stringWithContentsOfFile(path, kUTF8StringEncoding);
  double decoding = threadSeconds() - start;
  text.reset();

  start = threadSeconds();
  std::size_t columns = 0;
  std::optional<Sheet> sheet =
      sheetWithContentsOfFile(path, kUTF8StringEncoding, kNoRowLimit, nullptr, &columns);
  double ours = threadSeconds() - start;
  std::size_t rows = sheet ? sheet->size() : 0;
  sheet.reset();

  double pythonRows = runPython(path, true);
  double pythonStream = runPython(path, false);
  fs::remove_all(folder);

  std::printf("CSV %.1f MB, %zu rows, %zu columns\n", megabytes, rows, columns);
  std::printf("ulvekbot sheet reader: %.2f s CPU (%.0f MB/s; the general decoding alone: %.2f s)\n",
              ours, megabytes / ours, decoding);
  std::printf("python3 csv, rows kept (list(csv.reader)): %.2f s CPU (%.0f MB/s)\n", pythonRows,
              megabytes / pythonRows);
  std::printf("python3 csv, streamed (fields counted):   %.2f s CPU (%.0f MB/s)\n", pythonStream,
              megabytes / pythonStream);
  std::printf("ratio, rows kept (python / ulvekbot): %.1fx\n", pythonRows / ours);
  std::printf("ratio, streamed  (python / ulvekbot): %.1fx\n", pythonStream / ours);
  return sheet || rows > 0 ? 0 : 1;
}
