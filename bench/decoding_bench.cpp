// Decoding speed: markup files over the saved pages of the corpus, plain text with charset
// detection over the charset corpus, and a large file of no charset at all (random bytes named
// .txt), each beside what a user would otherwise run on the same bytes (`iconv`, `uchardet`), in
// one run, ending with MB/s and the ratios.
//
// Times are CPU seconds (user + system) so that other load on the machine does not skew the
// ratios: the thread's own for ulvekbot, the children's for the programs. The programs get many
// files per process (uchardet all of them, iconv all files of one charset), which spares them all
// but a few start-ups.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench_support.h"
#include "text/text_decoding.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace ulvek;

struct CorpusFile {
  std::string path;
  std::uint64_t bytes = 0;
};

struct Corpus {
  std::vector<CorpusFile> files;
  std::uint64_t bytes = 0;
};

Corpus listFiles(const fs::path& folder, bool recursive) {
  Corpus corpus;
  auto add = [&](const fs::directory_entry& entry) {
    if (!entry.is_regular_file()) return;
    corpus.files.push_back({entry.path().string(), entry.file_size()});
    corpus.bytes += entry.file_size();
  };
  if (recursive) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) add(entry);
  } else {
    for (const auto& entry : fs::directory_iterator(folder)) add(entry);
  }
  std::sort(corpus.files.begin(), corpus.files.end(),
            [](const CorpusFile& a, const CorpusFile& b) { return a.path < b.path; });
  return corpus;
}

const Corpus& htmlCorpus() {
  static const Corpus corpus = listFiles(fs::path(ULVEK_CORPUS_DIR) / "html", false);
  return corpus;
}

const Corpus& charsetCorpus() {
  static const Corpus corpus = listFiles(fs::path(ULVEK_CORPUS_DIR) / "charsets", true);
  return corpus;
}

// 3 MB of random bytes named .txt, written once and removed at exit: a detector must give up on
// it as soon as uchardet's own program does.
const Corpus& binaryFile() {
  static const std::string path =
      (fs::temp_directory_path() / ("ulvekbot-bench-" + std::to_string(getpid()) + "-random.txt"))
          .string();
  static const Corpus corpus = [] {
    std::mt19937 random(20261127);
    std::string bytes(3 << 20, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    std::ofstream(path, std::ios::binary) << bytes;
    std::atexit([] { fs::remove(path); });
    return Corpus{{{path, bytes.size()}}, bytes.size()};
  }();
  return corpus;
}

double threadCPUSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double childrenCPUSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Runs a program to completion; its standard output goes to `output` (or nowhere).
bool run(const std::vector<std::string>& arguments, std::string* output = nullptr) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  int pipeEnds[2] = {-1, -1};
  if (output && pipe(pipeEnds) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output) {
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[1]);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int spawned = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (output) {
    close(pipeEnds[1]);
    char buffer[4096];
    for (ssize_t count; spawned == 0 && (count = read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
      output->append(buffer, static_cast<std::size_t>(count));
    close(pipeEnds[0]);
  }
  if (spawned != 0) return false;
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status);
}

std::vector<std::string> command(std::vector<std::string> head,
                                 const std::vector<std::string>& paths) {
  head.insert(head.end(), paths.begin(), paths.end());
  return head;
}

std::vector<std::string> pathsOf(const Corpus& corpus) {
  std::vector<std::string> paths;
  for (const CorpusFile& file : corpus.files) paths.push_back(file.path);
  return paths;
}

// The charset corpus grouped by uchardet's answer, as a user would feed iconv.
const std::map<std::string, std::vector<std::string>>& charsetGroups() {
  static const auto groups = [] {
    std::map<std::string, std::vector<std::string>> byCharset;
    std::string answers;
    run(command({"uchardet"}, pathsOf(charsetCorpus())), &answers);
    std::istringstream lines(answers);
    for (std::string line; std::getline(lines, line);) {
      std::size_t colon = line.rfind(": ");
      if (colon == std::string::npos) continue;
      std::string charset = line.substr(colon + 2);
      if (charset != "unknown") byCharset[charset].push_back(line.substr(0, colon));
    }
    return byCharset;
  }();
  return groups;
}

// ---- ulvekbot ---------------------------------------------------------------------------------

void BM_UlvekbotMarkupFiles(benchmark::State& state) {
  const Corpus& corpus = htmlCorpus();
  for (auto _ : state) {
    double start = threadCPUSeconds();
    for (const CorpusFile& file : corpus.files) {
      // The dispatcher's default for HTML files.
      benchmark::DoNotOptimize(stringWithMarkupContentsOfFile(file.path, kISOLatin1StringEncoding));
    }
    state.SetIterationTime(threadCPUSeconds() - start);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpus.bytes));
}

void detectAll(benchmark::State& state, const Corpus& corpus) {
  for (auto _ : state) {
    double start = threadCPUSeconds();
    for (const CorpusFile& file : corpus.files) {
      StringEncoding used = 0;
      benchmark::DoNotOptimize(stringWithContentsOfFile(file.path, kDetectEncoding, &used));
    }
    state.SetIterationTime(threadCPUSeconds() - start);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpus.bytes));
}

void BM_UlvekbotPlainTextDetection(benchmark::State& state) { detectAll(state, charsetCorpus()); }

void BM_UlvekbotRandomBytes(benchmark::State& state) { detectAll(state, binaryFile()); }

// ---- The programs -----------------------------------------------------------------------------

void runTimed(benchmark::State& state, const Corpus& corpus,
              const std::vector<std::vector<std::string>>& commands) {
  for (auto _ : state) {
    double start = childrenCPUSeconds();
    for (const auto& arguments : commands) {
      if (!run(arguments)) state.SkipWithError(("cannot run " + arguments[0]).c_str());
    }
    state.SetIterationTime(childrenCPUSeconds() - start);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpus.bytes));
}

void BM_IconvHtml(benchmark::State& state) {
  // The pages are mostly UTF-8; -c lets iconv go on past bytes that are not.
  runTimed(state, htmlCorpus(),
           {command({"iconv", "-c", "-f", "UTF-8", "-t", "UTF-16LE"}, pathsOf(htmlCorpus()))});
}

void BM_UchardetHtml(benchmark::State& state) {
  runTimed(state, htmlCorpus(), {command({"uchardet"}, pathsOf(htmlCorpus()))});
}

void BM_UchardetCharsets(benchmark::State& state) {
  runTimed(state, charsetCorpus(), {command({"uchardet"}, pathsOf(charsetCorpus()))});
}

void BM_UchardetRandomBytes(benchmark::State& state) {
  runTimed(state, binaryFile(), {command({"uchardet"}, pathsOf(binaryFile()))});
}

void BM_IconvCharsets(benchmark::State& state) {
  std::vector<std::vector<std::string>> commands;
  for (const auto& [charset, paths] : charsetGroups())
    commands.push_back(command({"iconv", "-c", "-f", charset, "-t", "UTF-16LE"}, paths));
  runTimed(state, charsetCorpus(), commands);
}

BENCHMARK(BM_UlvekbotMarkupFiles)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_IconvHtml)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_UchardetHtml)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_UlvekbotPlainTextDetection)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2);
BENCHMARK(BM_UchardetCharsets)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_IconvCharsets)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_UlvekbotRandomBytes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_UchardetRandomBytes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// Prints the usual table, then MB/s of each and the ratios against the programs.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      auto bytes = run.counters.find("bytes_per_second");
      if (bytes != run.counters.end())
        megabytesPerSecond_[run.benchmark_name()] = bytes->second / 1e6;
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    auto rate = [&](const std::string& benchmark) {
      for (const auto& [name, megabytes] : megabytesPerSecond_)
        if (name.starts_with(benchmark + "/")) return megabytes;
      return 0.0;
    };
    // Two programs in a row over the same bytes: their times add.
    auto chained = [](double first, double second) {
      return first > 0 && second > 0 ? 1 / (1 / first + 1 / second) : 0.0;
    };
    auto ratio = [](double ours, double theirs) { return theirs > 0 ? ours / theirs : 0.0; };

    double markup = rate("BM_UlvekbotMarkupFiles");
    double iconvHtml = rate("BM_IconvHtml");
    double bothHtml = chained(rate("BM_UchardetHtml"), iconvHtml);
    double plain = rate("BM_UlvekbotPlainTextDetection");
    double uchardet = rate("BM_UchardetCharsets");
    double bothCharsets = chained(uchardet, rate("BM_IconvCharsets"));

    std::printf("\nMarkup file decoding, %zu pages, %.1f MB:\n", htmlCorpus().files.size(),
                htmlCorpus().bytes / 1e6);
    std::printf(
        "  ulvekbot %.1f MB/s, iconv %.1f MB/s (ratio %.2f), uchardet + iconv %.1f MB/s "
        "(ratio %.2f)\n",
        markup, iconvHtml, ratio(markup, iconvHtml), bothHtml, ratio(markup, bothHtml));
    std::printf("Plain text with detection, %zu files, %.2f MB:\n", charsetCorpus().files.size(),
                charsetCorpus().bytes / 1e6);
    std::printf(
        "  ulvekbot %.1f MB/s, uchardet %.1f MB/s (ratio %.2f), uchardet + iconv %.1f MB/s "
        "(ratio %.2f)\n",
        plain, uchardet, ratio(plain, uchardet), bothCharsets, ratio(plain, bothCharsets));
    // One detection each over the same file, so the rates compare as times.
    double random = rate("BM_UlvekbotRandomBytes");
    double uchardetRandom = rate("BM_UchardetRandomBytes");
    std::printf("Random bytes named .txt, %.1f MB:\n", binaryFile().bytes / 1e6);
    std::printf("  ulvekbot %.1f MB/s, uchardet %.1f MB/s: %s\n", random, uchardetRandom,
                random > 0 && uchardetRandom > 0
                    ? ulvek::bench::comparison(1 / random, 1 / uchardetRandom).c_str()
                    : "-");
  }

 private:
  std::map<std::string, double> megabytesPerSecond_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
