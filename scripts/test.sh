#!/usr/bin/env bash
# Sets everything up, then builds and runs the tests twice: a normal build and one under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

scripts/setup.sh build

# Sources follow .clang-format.
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
fi
(cd build && ctest --output-on-failure -j "$jobs")

# A third-party importer built out of tree from the SDK alone is found and read through.
examples=$(mktemp -d)
examples/importer/build.sh "$examples" build/pkgconfig >/dev/null
printf 'WCNT\0one two three' >"$examples/sample.wordcount"
ULVEKBOT_IMPORTER_PATH=$examples build/src/ulvekbot import "$examples/sample.wordcount" 2>/dev/null |
  grep -q '"Author":"Word Count Example"'
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
