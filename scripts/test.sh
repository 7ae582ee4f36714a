#!/usr/bin/env bash
# Sets everything up, then builds and runs the tests twice: a normal build and one under
# AddressSanitizer and UndefinedBehaviorSanitizer.
#
# The shared conformance corpus is optional. Where its folder (the CMake cache variable
# ULVEK_CORPUS_DIR, ../shared/corpus by default) exists, the tests first run with it hidden, as
# on a fresh clone, and then the corpus suite (CTest label `corpus`) runs against it; the last
# lines say which happened.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

scripts/setup.sh build

# Sources follow .clang-format.
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
fi

corpus=$(sed -n 's/^ULVEK_CORPUS_DIR:PATH=//p' build/CMakeCache.txt)
corpus_tests=$(cd build && ctest -N -L corpus | sed -n 's/^Total Tests: //p')

# Without the corpus, as a fresh clone runs: corpus tests skip, every other test must pass.
(cd build && ULVEK_CORPUS_DIR=/nonexistent/corpus ctest --output-on-failure -j "$jobs")
if [[ -d $corpus ]]; then
  (cd build && ctest --output-on-failure -j "$jobs" -L corpus)
fi

# A third-party importer built out of tree from the SDK alone is found and read through.
examples=$(mktemp -d)
examples/importer/build.sh "$examples" build/pkgconfig >/dev/null
printf 'WCNT\0one two three' >"$examples/sample.wordcount"
ULVEKBOT_IMPORTER_PATH=$examples build/src/ulvekbot import "$examples/sample.wordcount" 2>/dev/null |
  grep -qF '"Author":["Word Count Example"]'
rm -rf "$examples"

# What cmake --install puts down works by itself: importers, the client example, activation.
scripts/check-install.sh build

scripts/setup.sh build-sanitize -DULVEK_SANITIZE=ON -DULVEK_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
(cd build-sanitize &&
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    LSAN_OPTIONS=suppressions=$PWD/../tests/lsan.supp \
    ctest --output-on-failure -j "$jobs")

# Every fuzz target replays its seeds, which hold the inputs that once crashed.
scripts/fuzz.sh

echo
if [[ -d $corpus ]]; then
  echo "Corpus suite: ran $corpus_tests corpus tests against $corpus, after every test with it hidden."
else
  echo "Corpus suite: SKIPPED ($corpus_tests tests): no corpus at $corpus."
  echo "Configure with -DULVEK_CORPUS_DIR=FOLDER to run it."
fi
