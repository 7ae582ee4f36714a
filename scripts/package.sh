#!/usr/bin/env bash
# Builds the Debian package into build-deb/: scripts/package.sh, then
#   apt install ./build-deb/ulvekbot_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build-deb -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_BUILD_TYPE=Release \
  -DULVEK_TESTS=OFF -DULVEK_BENCH=OFF
(cd build-deb && cpack -G DEB >/dev/null)
ls build-deb/ulvekbot_*.deb
