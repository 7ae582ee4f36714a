// Throughput of the hot string operations on 1 MiB (UTF-16 storage) of mixed-script text, side
// by side with the ICU calls a developer would otherwise write, and the one-time table build.

#include <benchmark/benchmark.h>
#include <unicode/normalizer2.h>
#include <unicode/regex.h>
#include <unicode/translit.h>
#include <unicode/unistr.h>
#include <unicode/unorm2.h>

#include <chrono>
#include <memory>

#include "base/text_string.h"
#include "text/character_tables.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

constexpr std::size_t kTextBytes = 1 << 20;

// Latin with diacritics (some decomposed), Cyrillic, Greek, CJK, emoji and plenty of white space.
const TextString& mixedText() {
  static const TextString text = [] {
    const TextString paragraph =
        u"Cr\u00E8me br\u00FBl\u00E9e \u00E0 la fran\u00E7aise,  Stra\u00DFe\t\tM\u00FCller "
        u"e\u0301te\u0301  \r\n"
        u"\u041F\u0440\u0438\u0432\u0435\u0442,   \u0451\u0436 \u0439\u043E\u0434\n\n"
        u"\u039A\u03B1\u03BB\u03B7\u03BC\u03AD\u03C1\u03B1 \u03AC\u03BB\u03C6\u03B1  "
        u"\u4E2D\u6587\u6587\u672C\u3000\u65E5\u672C\u8A9E\u306E\u30C6\u30AD\u30B9\u30C8 "
        u"\U0001F600 \U0001F44D\u00A0\u00A0 \u0141\u00F3d\u017A \u00D8resund    \n";
    TextString result;
    result.reserve(kTextBytes / 2 + paragraph.size());
    while (result.size() < kTextBytes / 2) result += paragraph;
    result.resize(kTextBytes / 2);
    // Never end on half a surrogate pair.
    if (result.back() >= 0xD800 && result.back() <= 0xDBFF) result.back() = u' ';
    return result;
  }();
  return text;
}

void setThroughput(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(mixedText().size() * sizeof(char16_t)));
}

// Registered first so that nothing has built the tables yet.
void BM_TableBuild(benchmark::State& state) {
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(&characterTables());
    std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    state.counters["build_ms"] = elapsed.count();
  }
}
BENCHMARK(BM_TableBuild)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_RemoveMultipleWhiteSpaces(benchmark::State& state) {
  const TextString& text = mixedText();
  for (auto _ : state) benchmark::DoNotOptimize(stringByRemovingMultipleWhiteSpaces(text));
  setThroughput(state);
}
BENCHMARK(BM_RemoveMultipleWhiteSpaces);

// The usual alternative: an ICU regular expression replacing \s+ runs.
void BM_Icu_RegexCollapseWhiteSpace(benchmark::State& state) {
  const TextString& text = mixedText();
  UErrorCode status = U_ZERO_ERROR;
  icu::RegexMatcher matcher(u"\\s+", 0, status);
  icu::UnicodeString input(false, text.data(), static_cast<int32_t>(text.size()));
  for (auto _ : state) {
    matcher.reset(input);
    benchmark::DoNotOptimize(matcher.replaceAll(u" ", status));
  }
  setThroughput(state);
}
BENCHMARK(BM_Icu_RegexCollapseWhiteSpace);

void BM_FixedAndNormalizedString(benchmark::State& state) {
  const TextString& text = mixedText();
  for (auto _ : state) benchmark::DoNotOptimize(fixedAndNormalizedString(text));
  setThroughput(state);
}
BENCHMARK(BM_FixedAndNormalizedString);

// Plain NFC of the whole text through ICU, without the unit cleaning.
void BM_Icu_Nfc(benchmark::State& state) {
  const TextString& text = mixedText();
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  icu::UnicodeString input(false, text.data(), static_cast<int32_t>(text.size()));
  for (auto _ : state) benchmark::DoNotOptimize(nfc->normalize(input, status));
  setThroughput(state);
}
BENCHMARK(BM_Icu_Nfc);

void BM_LowercaseNonUmlautedString(benchmark::State& state) {
  const TextString& text = mixedText();
  for (auto _ : state) benchmark::DoNotOptimize(lowercaseNonUmlautedString(text));
  setThroughput(state);
}
BENCHMARK(BM_LowercaseNonUmlautedString);

// The usual alternative: an ICU transliterator that strips marks and lowercases.
void BM_Icu_TransliteratorFoldLower(benchmark::State& state) {
  const TextString& text = mixedText();
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Transliterator> fold(icu::Transliterator::createInstance(
      "NFD; [:Nonspacing Mark:] Remove; Lower; NFC", UTRANS_FORWARD, status));
  if (U_FAILURE(status)) {
    state.SkipWithError("transliterator unavailable");
    return;
  }
  for (auto _ : state) {
    icu::UnicodeString copy(text.data(), static_cast<int32_t>(text.size()));
    fold->transliterate(copy);
    benchmark::DoNotOptimize(copy);
  }
  setThroughput(state);
}
BENCHMARK(BM_Icu_TransliteratorFoldLower);

}  // namespace
}  // namespace ulvek

BENCHMARK_MAIN();
