#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one.
#   scripts/fuzz.sh           replays every target's seeds once (a regression check)
#   scripts/fuzz.sh SECONDS   fuzzes each target for SECONDS, in a scratch copy of its seeds
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-0}

CC=clang CXX=clang++ scripts/setup.sh build-fuzz -DULVEK_FUZZ=ON -DULVEK_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo

# Leaks inside libraries that no caller can free are told apart from ours.
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp

for source in tests/fuzz/*_fuzz.cpp; do
  name=$(basename "$source" .cpp)
  seeds=tests/fuzz/${name}_seeds
  target=build-fuzz/tests/$name
  if ((seconds == 0)); then
    # Files, not the folder: libFuzzer then only runs them and writes nothing back.
    mapfile -t files < <(find "$seeds" -type f | sort)
    echo "== $name: ${#files[@]} seeds"
    "$target" -runs=0 "${files[@]}" >"build-fuzz/$name.log" 2>&1 || {
      cat "build-fuzz/$name.log"
      exit 1
    }
  else
    scratch=$(mktemp -d)
    cp -r "$seeds/." "$scratch/"
    echo "== $name: $seconds s"
    "$target" -max_total_time="$seconds" -max_len=65536 "$scratch" 2>&1 | tail -n 3
    rm -rf "$scratch"
  fi
done
