#!/usr/bin/env bash
# Installs the Debian packages ulvekbot needs (once), then configures and builds it.
# Usage: scripts/setup.sh [BUILD_DIR [extra cmake options...]]
# With -DULVEK_TESTS=OFF among the options, only what building and running need is installed.
set -euo pipefail
cd "$(dirname "$0")/.."

# What building and running need.
packages=(
  build-essential cmake ninja-build pkg-config ccache
  libcli11-dev libicu-dev libuchardet-dev zlib1g-dev libminizip-dev libexpat1-dev libplist-dev
  libpoppler-private-dev ghostscript libsystemd-dev dbus libmagic-dev libgsf-1-dev
  libseccomp-dev libexiv2-dev libtag1-dev libgmime-3.0-dev libfreexl-dev libetonyek-dev libmwaw-dev librevenge-dev
  libical-dev
  libtesseract-dev libleptonica-dev libheif-dev tesseract-ocr-eng tesseract-ocr-osd
  scdoc
  pybind11-dev python3-dev
)
# What the tests, benchmarks and fuzzers need besides: their frameworks, and the tools a user
# would otherwise run, which they compare with; the client library's ABI checker.
test_packages=(
  clang clang-format libclang-rt-14-dev libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev uchardet attr dpkg-dev libglib2.0-bin time
  html2text w3m poppler-utils libetonyek-tools libmwaw-tools libwpd-tools libimage-exiftool-perl
  antiword catdoc tracker-extract docx2txt odt2txt unrtf pandoc ocrmypdf tesseract-ocr
  libheif-examples
  python3-pytest python3-distributed
  abi-dumper abi-compliance-checker
)
# A build without tests (-DULVEK_TESTS=OFF) installs only what building and running need.
if [[ " $* " != *" -DULVEK_TESTS=OFF "* ]]; then
  packages+=("${test_packages[@]}")
fi

scripts/install-packages.sh "${packages[@]}"

build_dir=${1:-build}
shift || true
cmake -S . -B "$build_dir" -G Ninja "$@" >/dev/null
# $ULVEK_BUILD_TARGETS, when set, names the only targets to build.
# shellcheck disable=SC2086
cmake --build "$build_dir" ${ULVEK_BUILD_TARGETS:+--target $ULVEK_BUILD_TARGETS}
