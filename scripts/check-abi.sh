#!/usr/bin/env bash
# Compares the ABI of the built libulvekbot-client (its exported symbols and the public types
# they use) with the baseline dump of the last release for its SONAME,
# packaging/abi/SONAME.dump.gz:
#   scripts/check-abi.sh [BUILD_DIR]           fails on a break that keeps the SONAME
#   scripts/check-abi.sh --update [BUILD_DIR]  makes the current ABI the baseline (at a release)
# A library with a new SONAME has no baseline yet and passes. The build must carry debug
# information (RelWithDebInfo or Debug, as scripts/setup.sh builds).
set -euo pipefail
cd "$(dirname "$0")/.."
update=false
if [[ ${1:-} == --update ]]; then
  update=true
  shift
fi
build=${1:-build}
library=$(readlink -f "$build/src/libulvekbot-client.so")
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
baseline=packaging/abi/$soname.dump.gz
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if ! $update && [[ ! -e $baseline ]]; then
  echo "check-abi: no baseline for $soname; make one at its first release with --update"
  exit 0
fi
abi-dumper "$library" -o "$work/current.dump" -lver "$version" -public-headers include/ulvekbot \
  -quiet >"$work/dumper.log" 2>&1 || {
  cat "$work/dumper.log" >&2
  exit 1
}
if $update; then
  mkdir -p "$(dirname "$baseline")"
  gzip -9n <"$work/current.dump" >"$baseline"
  echo "check-abi: $baseline now holds the ABI of $soname $version"
  exit 0
fi

gunzip <"$baseline" >"$work/baseline.dump"
if ! abi-compliance-checker -l ulvekbot-client -old "$work/baseline.dump" \
  -new "$work/current.dump" -report-path "$work/report.html" -log-path "$work/run.log" -quiet \
  >"$work/checker.log" 2>&1; then
  # The report's text, without its markup, says what broke.
  sed -e 's/<[^>]*>/ /g' "$work/report.html" | tr -s ' \n' | grep -iE 'problem|removed|changed' |
    head -40 >&2 || true
  cat "$work/checker.log" >&2
  echo "check-abi: the ABI of $soname broke: keep it compatible, or raise the SONAME" >&2
  exit 1
fi
echo "check-abi: $soname $version keeps the ABI of the baseline"
