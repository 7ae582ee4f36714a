#!/usr/bin/env bash
# Builds the example clients out of tree against the installed client library (or a build
# tree's, given its pkg-config folder): import-titles (C++) and import-pdf (C, with `cc` alone).
#   examples/client/build.sh OUTPUT_FOLDER [PKG_CONFIG_PATH]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
target=${1:?output folder}
[[ -n "${2:-}" ]] && export PKG_CONFIG_PATH=$2
mkdir -p "$target"
# A library outside the linker's search path is found through an rpath.
libdir=$(pkg-config --variable=libdir ulvekbot-client)
c++ -std=c++20 $(pkg-config --cflags ulvekbot-client) "$here/import_titles.cpp" \
  $(pkg-config --libs ulvekbot-client) -o "$target/import-titles" -Wl,-rpath,"$libdir"
cc $(pkg-config --cflags ulvekbot-client) "$here/import_pdf.c" \
  $(pkg-config --libs ulvekbot-client) -o "$target/import-pdf" -Wl,-rpath,"$libdir"
echo "$target/import-titles"
echo "$target/import-pdf"
