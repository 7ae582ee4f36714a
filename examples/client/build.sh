#!/usr/bin/env bash
# Builds the example client out of tree against the installed client library (or a build tree's,
# given its pkg-config folder); it finds the library where pkg-config says it is:
#   examples/client/build.sh OUTPUT_FOLDER [PKG_CONFIG_PATH]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
target=${1:?output folder}
[[ -n "${2:-}" ]] && export PKG_CONFIG_PATH=$2
mkdir -p "$target"
c++ -std=c++20 $(pkg-config --cflags ulvekbot-client) "$here/import_titles.cpp" \
  $(pkg-config --libs ulvekbot-client) -o "$target/import-titles" \
  -Wl,-rpath,"$(pkg-config --variable=libdir ulvekbot-client)"
echo "$target/import-titles"
