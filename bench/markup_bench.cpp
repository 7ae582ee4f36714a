// Throughput of the markup scanner and the reference conversions over the saved web pages of the
// corpus. Every page is read once, as UTF-8, before any timing; rates are in bytes of those files.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "text/character_tables.h"
#include "text/entity_conversion.h"
#include "text/markup_scanner.h"

namespace {

using namespace ulvek;

struct Page {
  TextString text;
  std::size_t bytes = 0;
};

const std::vector<Page>& pages() {
  static const std::vector<Page> all = [] {
    std::vector<Page> loaded;
    const std::filesystem::path folder = std::filesystem::path(ULVEK_CORPUS_DIR) / "html";
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      std::ifstream in(file, std::ios::binary);
      std::ostringstream bytes;
      bytes << in.rdbuf();
      loaded.push_back({fromUtf8(bytes.str()), bytes.str().size()});
    }
    // Build the tables outside the timed loops.
    characterTables();
    initConversionTables();
    return loaded;
  }();
  return all;
}

std::size_t corpusBytes() {
  std::size_t total = 0;
  for (const Page& page : pages()) total += page.bytes;
  return total;
}

template <typename Operation>
void runOverCorpus(benchmark::State& state, Operation operation) {
  const std::vector<Page>& all = pages();
  if (all.empty()) {
    state.SkipWithError("no pages in the corpus");
    return;
  }
  for (auto _ : state) {
    for (const Page& page : all) operation(page.text);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpusBytes()));
  state.counters["pages"] = static_cast<double>(all.size());
}

// The scanner alone: a handler that only counts.
void BM_ScanMarkup(benchmark::State& state) {
  std::size_t items = 0;
  runOverCorpus(state, [&](const TextString& text) {
    ScanMarkup(
        text, [&](const MarkupItem&) { return ++items, false; }, nullptr, false);
  });
  benchmark::DoNotOptimize(items);
}
BENCHMARK(BM_ScanMarkup);

void BM_ScanMarkupMutable(benchmark::State& state) {
  std::size_t items = 0;
  runOverCorpus(state, [&](const TextString& text) {
    ScanMarkup(
        text, [&](const MarkupItem&) { return ++items, false; }, nullptr, true);
  });
  benchmark::DoNotOptimize(items);
}
BENCHMARK(BM_ScanMarkupMutable);

void BM_StripTags(benchmark::State& state) {
  runOverCorpus(state, [](const TextString& text) { benchmark::DoNotOptimize(stripTags(text)); });
}
BENCHMARK(BM_StripTags);

void BM_AttributeLookupEveryTag(benchmark::State& state) {
  std::size_t found = 0;
  runOverCorpus(state, [&](const TextString& text) {
    ScanMarkup(
        text,
        [&](const MarkupItem& item) {
          found += rangeOfAttributeOfTagCharacters(item.units, item.tagRange(), "HREF").found();
          return false;
        },
        nullptr, false);
  });
  benchmark::DoNotOptimize(found);
}
BENCHMARK(BM_AttributeLookupEveryTag);

void BM_ConvertEntities(benchmark::State& state) {
  runOverCorpus(state, [](const TextString& text) {
    benchmark::DoNotOptimize(stringByConvertingEntitiesToCharacters(text, true, false, false));
  });
}
BENCHMARK(BM_ConvertEntities);

void BM_ConvertEntitiesNonUmlauted(benchmark::State& state) {
  runOverCorpus(state, [](const TextString& text) {
    benchmark::DoNotOptimize(stringByConvertingEntitiesToCharacters(text, true, false, true));
  });
}
BENCHMARK(BM_ConvertEntitiesNonUmlauted);

void BM_ConvertStandardEntities(benchmark::State& state) {
  runOverCorpus(state, [](const TextString& text) {
    benchmark::DoNotOptimize(stringByConvertingStandardEntitiesToCharacters(text));
  });
}
BENCHMARK(BM_ConvertStandardEntities);

void BM_ConvertCharactersToEntities(benchmark::State& state) {
  runOverCorpus(state, [](const TextString& text) {
    benchmark::DoNotOptimize(stringByConvertingCharactersToEntities(text));
  });
}
BENCHMARK(BM_ConvertCharactersToEntities);

// The floor every operation pays: one copy of the text.
void BM_CopyBaseline(benchmark::State& state) {
  runOverCorpus(state, [](const TextString& text) { benchmark::DoNotOptimize(TextString(text)); });
}
BENCHMARK(BM_CopyBaseline);

}  // namespace

BENCHMARK_MAIN();
