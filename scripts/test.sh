#!/usr/bin/env bash
# Sets everything up, then builds and runs the tests twice: a normal build and one under
# AddressSanitizer and UndefinedBehaviorSanitizer.
#
# The shared conformance corpus is optional. Where its folder (the CMake cache variable
# ULVEK_CORPUS_DIR, ../shared/corpus by default) exists, the tests first run with it hidden, as
# on a fresh clone, and then the corpus suite (CTest label `corpus`) runs against it; the last
# lines say which happened.
#
# `scripts/test.sh tsan` instead builds the programs and the tests of threaded work (the service,
# the importer host, imports, the command line's -j and a PDF's page threads) under ThreadSanitizer
# in build-tsan/ and runs them; any race reported fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

if [[ ${1:-} == tsan ]]; then
  tsan_tests=(request_pool_test concurrent_requests_test dbus_service_test worker_pool_test
    metadata_importer_test concurrent_import_test file_import_test directory_import_test
    ordered_jobs_test cli_test pdf_importer_test)
  ULVEK_BUILD_TARGETS="ulvekbot ulvekbotd64 ulvekbot-importer-worker test_importer_plugin
    ClassicMacImporter ImageImporter MailImporter MediaImporter OfficeImporter PDFImporter
    iWorkImporter WordImporter ${tsan_tests[*]}" scripts/setup.sh build-tsan -DULVEK_TSAN=ON -DULVEK_BENCH=OFF
  export TSAN_OPTIONS="halt_on_error=1 exitcode=66 second_deadlock_stack=1
    suppressions=$PWD/tests/tsan.supp"
  # GLib's own allocator hides its memory from ThreadSanitizer.
  export G_SLICE=always-malloc
  for test in "${tsan_tests[@]}"; do
    filter='*'
    case $test in
    # The command line's other tests run no threads of their own.
    cli_test) filter='*Threads*:*Import*:*Calls*' ;;
    # Too slow under ThreadSanitizer for their time limits: a 48 MiB text on the bus, and a
    # crashing plug-in whose worker reports the crash at length.
    dbus_service_test) filter='-*LargeText*:*LargeMetadata*' ;;
    metadata_importer_test) filter='-*MisbehavingPlugIns*' ;;
    # A PDF's pages shared out to threads, and stopped at a time limit.
    pdf_importer_test) filter='*Threads*:*TimeLimit*' ;;
    esac
    echo "== $test"
    "build-tsan/tests/$test" --gtest_filter="$filter" --gtest_brief=1
  done
  echo "ThreadSanitizer: no races in ${#tsan_tests[@]} test programs."
  exit 0
fi

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

# What cmake --install puts down works by itself: importers, the public headers, the example
# clients, activation.
scripts/check-install.sh build
# The client library keeps the ABI of its last release (packaging/abi/), where one was recorded.
if compgen -G 'packaging/abi/*.dump.gz' >/dev/null; then
  scripts/check-abi.sh build
fi

# The OCR bundle tests (label ocr, and by name: the corpus one carries only the corpus label)
# spend their time in Tesseract, which is not instrumented; the command line's OCR test, hostile
# pictures included, still runs sanitized.
scripts/setup.sh build-sanitize -DULVEK_SANITIZE=ON -DULVEK_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
(cd build-sanitize &&
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    LSAN_OPTIONS=suppressions=$PWD/../tests/lsan.supp \
    ctest --output-on-failure -j "$jobs" -LE ocr -E '^OCR\.')

# Every fuzz target replays its seeds, which hold the inputs that once crashed.
scripts/fuzz.sh

echo
if [[ -d $corpus ]]; then
  echo "Corpus suite: ran $corpus_tests corpus tests against $corpus, after every test with it hidden."
else
  echo "Corpus suite: SKIPPED ($corpus_tests tests): no corpus at $corpus."
  echo "Configure with -DULVEK_CORPUS_DIR=FOLDER to run it."
fi
