#!/usr/bin/env bash
# Installs a build into an empty prefix and checks that what was installed works on its own:
# the CLI finds its bundled importers, their OCR module and its OLE2 module, the public headers
# stand alone, the C++, C and Python example clients build against the installed library alone
# and drive the installed daemon, and the bus starts the daemon on demand from the installed
# service file.
#   scripts/check-install.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

fail() {
  echo "check-install: $*" >&2
  exit 1
}

cmake --install "$build" --prefix "$prefix" >/dev/null

# The installed CLI finds the installed importers, not the build tree's.
importers=$("$prefix/bin/ulvekbot" importers 2>/dev/null)
grep -q "$prefix/lib/ulvekbot/Importers/PDF.mdimporter" <<<"$importers" ||
  fail "installed ulvekbot does not find its importers"
imported=$("$prefix/bin/ulvekbot" import tests/data/pdf/survey.pdf 2>/dev/null)
grep -q '"Title":"Harbour Survey – Spring Round"' <<<"$imported" ||
  fail "installed ulvekbot reads no title from a PDF"
# A scanned page is read through the OCR module the installed PDF importer loads from its bundle.
imported=$("$prefix/bin/ulvekbot" import --text tests/data/ocr/mixed.pdf 2>&1)
grep -q 'Ferry timetable notice' <<<"$imported" ||
  fail "installed ulvekbot reads no scanned page: $imported"
# Word documents go through the OLE2 module, loaded from the installed lib/ulvekbot.
imported=$("$prefix/bin/ulvekbot" import tests/data/wordprocessor/doc/ledger.doc 2>&1)
grep -q '"Title":"Seed Exchange Ledger' <<<"$imported" ||
  fail "installed ulvekbot reads no Word document: $imported"
# The Python module, where built, reads through the installed worker, importers and module.
python=$(find "$prefix" -path '*-packages/ulvekbot/__init__.py' -printf '%h\n' | head -1)
if [[ -n $python ]]; then
  imported=$(PYTHONPATH=$(dirname "$python") /usr/bin/python3 -c 'import sys, ulvekbot
print(ulvekbot.import_file(sys.argv[1])["Title"], ulvekbot.import_file(sys.argv[2])["Title"])' \
    tests/data/pdf/survey.pdf tests/data/wordprocessor/doc/ledger.doc 2>&1)
  grep -q 'Harbour Survey – Spring Round Seed Exchange Ledger' <<<"$imported" ||
    fail "installed Python module reads: $imported"
fi

# The public headers stand alone: they include only the system's headers and each other, and
# compile with the installed include folder alone.
libdir=$prefix/$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")
for header in "$prefix"/include/ulvekbot/*.h; do
  ! grep -n '^ *# *include *"' "$header" || fail "$header includes a private header"
  { grep -o '^ *# *include *<ulvekbot/[^>]*>' "$header" || true; } | sed 's/.*<ulvekbot\/\(.*\)>/\1/' |
    while read -r included; do
      [[ -e $prefix/include/ulvekbot/$included ]] || fail "$header includes $included, not installed"
    done
  echo "#include <ulvekbot/$(basename "$header")>" |
    c++ -std=c++20 -fsyntax-only -I"$prefix/include" -x c++ - ||
    fail "$header does not compile by itself"
done
echo '#include <ulvekbot/client_c.h>' | cc -std=c99 -fsyntax-only -I"$prefix/include" -x c - ||
  fail "client_c.h is not C"
# The pkg-config data needs no other package's (no internal dependency leaks).
pc_only="$libdir/pkgconfig:$prefix/share/pkgconfig"
PKG_CONFIG_LIBDIR=$pc_only pkg-config --cflags --libs ulvekbot-client ulvekbot-importer >/dev/null ||
  fail "pkg-config data needs packages it does not name"
# The library exports its API and nothing else.
exported=$(nm -D --defined-only "$libdir/libulvekbot-client.so" | c++filt |
  grep -v -e ' ulvekbot_' -e ' ulvekbot::' -e ' ULVEKBOT_CLIENT_' || true)
[[ -z $exported ]] || fail "libulvekbot-client exports more than its API: $exported"

# The examples, built against the installed pkg-config data alone, drive the installed daemon:
# the C++ one prints titles, the C one a PDF's title and text length, the Python one (ctypes over
# the C API) a title.
PKG_CONFIG_LIBDIR=$pc_only examples/client/build.sh "$prefix/example" >/dev/null
daemon=$prefix/bin/ulvekbotd64
titles=$(dbus-run-session -- "$prefix/example/import-titles" --helper "$daemon" \
  samples/welcome.html 2>&1) || true
grep -q 'welcome.html: Welcome to ulvekbot' <<<"$titles" || fail "C++ example printed: $titles"
pdf=$(dbus-run-session -- "$prefix/example/import-pdf" --helper "$daemon" \
  tests/data/pdf/survey.pdf 2>&1) || true
grep -q '^Title: Harbour Survey – Spring Round$' <<<"$pdf" && grep -Eq '^Text: [1-9][0-9]* bytes$' <<<"$pdf" ||
  fail "C example printed: $pdf"
python=$(ULVEKBOT_CLIENT_LIBRARY=$libdir/libulvekbot-client.so.0 dbus-run-session -- \
  python3 examples/client/import_title.py samples/welcome.html "$daemon" 2>&1) || true
grep -q 'welcome.html: Welcome to ulvekbot' <<<"$python" || fail "Python example printed: $python"

# D-Bus activation: a session bus that knows the installed service file starts the daemon on the
# first call. The file names the configured prefix; point it at this one.
mkdir -p "$prefix/services"
sed "s|^Exec=.*|Exec=$prefix/bin/ulvekbotd64|" \
  "$prefix/share/dbus-1/services/com.ulvek_technologies.ulvekbotd64.service" \
  >"$prefix/services/com.ulvek_technologies.ulvekbotd64.service"
cat >"$prefix/session.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=$prefix</listen>
  <servicedir>$prefix/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
EOF
dbus-run-session --config-file "$prefix/session.conf" -- sh -c '
  busctl --user call com.ulvek_technologies.ulvekbotd64 /com/ulvek_technologies/ulvekbotd64 \
    com.ulvek_technologies.UlvekBotHelper Ping &&
  busctl --user call com.ulvek_technologies.ulvekbotd64 /com/ulvek_technologies/ulvekbotd64 \
    com.ulvek_technologies.UlvekBotHelper Terminate --expect-reply=false' >/dev/null 2>&1 ||
  fail "the bus did not start the daemon on demand"
echo "check-install: installed tree, headers, example clients and activation work"
