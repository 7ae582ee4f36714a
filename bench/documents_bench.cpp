// The document kinds ulvekbot reads itself, and PDF through its importer, timed as whole
// processes against what a user would otherwise run on the same files: docx2txt and pandoc for
// DOCX, odt2txt for ODT, unrtf and pandoc for RTF, antiword and catdoc for Word 97–2003,
// pdftotext for PDF (with OCR and without, as pdftotext reads), pandoc and GNOME's
// tracker-extract for EPUB. Best of three, side by side: one process per file on both sides,
// then ulvekbot's one process for all files beside the peer's batch mode (none of these peers
// has one). Then the 10,000-page PDF in one process, its pages on one thread and on every core,
// and what a time limit leaves of its text; and the peak memory of importing the largest book,
// beside the size of its text: reading must not grow with the number of chapters.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/processors.h"
#include "bench_support.h"

namespace {

using namespace ulvek::bench;

std::uintmax_t sizeOf(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : size;
}

// One import process of `path` without OCR (pdftotext reads none), its pages on one thread and on
// every core (ULVEKBOT_PDF_THREADS), beside pdftotext; then under `--timeout 0.2`, which answers
// the pages read by then.
void printLargePDF(const std::string& path) {
  const std::size_t cores = ulvek::usableCores();
  const std::string import = kUlvekbot + " import --no-ocr --text " + shellQuoted(path);
  const fs::path scratch = scratchFolder();
  auto threads = [&](std::size_t count) {
    return "ULVEKBOT_PDF_THREADS=" + std::to_string(count) + " " + import;
  };
  const double one = milliseconds(threads(1));
  const double all = milliseconds(threads(cores));
  const double peer = milliseconds("pdftotext " + shellQuoted(path) + " -");
  // The same text either way.
  const fs::path oneText = scratch / "one.txt", allText = scratch / "all.txt";
  const fs::path cutText = scratch / "cut.txt", cutLog = scratch / "cut.log";
  std::system((threads(1) + " >" + oneText.string() + " 2>/dev/null").c_str());
  std::system((threads(cores) + " >" + allText.string() + " 2>/dev/null").c_str());
  std::ifstream a(oneText, std::ios::binary), b(allText, std::ios::binary);
  const bool same = std::string(std::istreambuf_iterator<char>(a), {}) ==
                    std::string(std::istreambuf_iterator<char>(b), {});
  std::system(
      (threads(cores) + " --timeout 0.2 >" + cutText.string() + " 2>" + cutLog.string()).c_str());
  std::string stopped = "no line on stopping";
  std::ifstream log(cutLog);
  for (std::string line; std::getline(log, line);)
    if (line.find("time limit reached") != std::string::npos) stopped = line;

  std::printf("\n%s, %.1f MB, one import process without OCR:\n", fs::path(path).filename().c_str(),
              sizeOf(path) / 1e6);
  char faster[32] = "-";
  if (one > 0 && all > 0) std::snprintf(faster, sizeof faster, "%.2fx sooner", one / all);
  std::printf("  pages on one thread %.1f ms, on %zu threads %.1f ms: %s, %s text\n", one, cores,
              all, faster, same ? "the same" : "DIFFERENT");
  std::printf("  pdftotext %.1f ms: %s\n", peer, comparison(all, peer).c_str());
  std::printf("  with --timeout 0.2: %.0f%% of the text (%s)\n",
              sizeOf(allText) ? 100.0 * sizeOf(cutText) / sizeOf(allText) : 0.0, stopped.c_str());
}

struct Kind {
  const char* name;
  std::vector<std::string> folders;
  std::vector<Peer> peers;
  const char* extension;     // only these files ("" for all)
  const char* options = "";  // of ulvekbot import
};

}  // namespace

int main() {
  const Kind kinds[] = {
      {"docx",
       {"docx"},
       {{"docx2txt",
         // Given a file alone, docx2txt writes its text beside it.
         [](const std::vector<std::string>& p) { return eachFile(p, "docx2txt", " -"); }},
        {"pandoc",
         [](const std::vector<std::string>& p) { return eachFile(p, "pandoc -t plain"); }}},
       ".docx"},
      {"odt",
       {"odt"},
       {{"odt2txt", [](const std::vector<std::string>& p) { return eachFile(p, "odt2txt"); }}},
       ".odt"},
      {"rtf",
       {"rtf"},
       {{"unrtf",
         [](const std::vector<std::string>& p) { return eachFile(p, "unrtf --nopict --text"); }},
        {"pandoc",
         [](const std::vector<std::string>& p) { return eachFile(p, "pandoc -t plain"); }}},
       ".rtf"},
      {"doc",
       {"doc"},
       {{"antiword", [](const std::vector<std::string>& p) { return eachFile(p, "antiword"); }},
        {"catdoc", [](const std::vector<std::string>& p) { return eachFile(p, "catdoc"); }}},
       ".doc"},
      {"pdf",
       {"pdf"},
       {{"pdftotext",
         [](const std::vector<std::string>& p) {
           return eachFile(p, "sh -c 'pdftotext \"$0\" -'");
         }}},
       ".pdf"},
      // pdftotext leaves scanned pages empty, which ulvekbot reads by OCR: without OCR both do
      // the same work.
      {"pdf no OCR",
       {"pdf"},
       {{"pdftotext",
         [](const std::vector<std::string>& p) {
           return eachFile(p, "sh -c 'pdftotext \"$0\" -'");
         }}},
       ".pdf",
       "--no-ocr"},
      {"epub",
       {"epub"},
       {{"pandoc",
         [](const std::vector<std::string>& p) { return eachFile(p, "pandoc -t plain"); }},
        // tracker-extract needs a session bus; one for all the books.
        {"tracker",
         [](const std::vector<std::string>& p) {
           return "dbus-run-session -- " +
                  eachFile(p, "/usr/libexec/tracker-extract-3 -o turtle -f");
         }}},
       ".epub"},
  };
  printComparisonHeader();
  for (const Kind& kind : kinds) {
    std::vector<std::string> paths;
    for (const std::string& path : files(kind.folders))
      if (path.ends_with(kind.extension) && path.find("10000-pages") == std::string::npos)
        paths.push_back(path);
    if (!paths.empty()) printComparison(kind.name, paths, kind.peers, kind.options);
  }
  for (const std::string& path : files({"pdf"}))
    if (path.find("10000-pages") != std::string::npos && path.ends_with(".pdf"))
      printLargePDF(path);
  // Peak memory of one import of the largest book, in a child of its own.
  std::vector<std::string> books;
  for (const std::string& path : files({"epub"}))
    if (path.ends_with(".epub")) books.push_back(path);
  if (!books.empty()) {
    std::string largest = *std::max_element(books.begin(), books.end(),
                                            [](const std::string& a, const std::string& b) {
                                              return fs::file_size(a) < fs::file_size(b);
                                            });
    const std::string text = fs::temp_directory_path() / "ulvek-epub-bench.json";
    const std::string peak = fs::temp_directory_path() / "ulvek-epub-bench.peak";
    std::system(("/usr/bin/time -f %M -o " + peak + " " + kUlvekbot + " import " +
                 shellQuoted(largest) + " >" + text + " 2>/dev/null")
                    .c_str());
    std::ifstream kilobytes(peak);
    double peakKilobytes = 0;
    kilobytes >> peakKilobytes;
    std::printf(
        "\nlargest book %s: %.1f MB, its JSON answer %.1f MB, peak memory of the import "
        "%.1f MB\n",
        fs::path(largest).filename().c_str(), fs::file_size(largest) / 1e6,
        fs::file_size(text) / 1e6, peakKilobytes / 1024.0);
    fs::remove(text);
    fs::remove(peak);
  }
  return 0;
}
