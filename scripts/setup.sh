#!/usr/bin/env bash
# Installs the Debian packages ulvekbot needs (once), then configures and builds it.
# Usage: scripts/setup.sh [BUILD_DIR [extra cmake options...]]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  build-essential cmake ninja-build pkg-config ccache clang clang-format libclang-rt-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev libicu-dev libuchardet-dev uchardet zlib1g-dev libminizip-dev libexpat1-dev libplist-dev
  libpoppler-cpp-dev ghostscript libsystemd-dev dbus libmagic-dev attr
  html2text w3m poppler-utils nlohmann-json3-dev libexiv2-dev libtag1-dev libgmime-3.0-dev libfreexl-dev libetonyek-dev libmwaw-dev librevenge-dev libetonyek-tools libmwaw-tools libimage-exiftool-perl
  libwpd-tools libgsf-1-dev scdoc dpkg-dev libglib2.0-bin antiword catdoc tracker-extract time
  docx2txt odt2txt unrtf pandoc
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

build_dir=${1:-build}
shift || true
cmake -S . -B "$build_dir" -G Ninja "$@" >/dev/null
cmake --build "$build_dir"
