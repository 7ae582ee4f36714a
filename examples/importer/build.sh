#!/usr/bin/env bash
# Builds the example importer out of tree, as docs/importers.md shows, into BUNDLE_FOLDER.
#   examples/importer/build.sh BUNDLE_FOLDER [PKG_CONFIG_PATH]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
target=${1:?bundle folder}
[[ -n "${2:-}" ]] && export PKG_CONFIG_PATH=$2
bundle=$target/WordCount.mdimporter
mkdir -p "$bundle/Contents/Linux"
cp "$here/Info.plist" "$bundle/Contents/Info.plist"
cc -shared -fPIC -fvisibility=hidden $(pkg-config --cflags ulvekbot-importer) \
  "$here/word_count_importer.c" -o "$bundle/Contents/Linux/WordCount.so"
echo "$bundle"
