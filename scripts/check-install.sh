#!/usr/bin/env bash
# Installs a build into an empty prefix and checks that what was installed works on its own:
# the CLI finds its bundled importers and its OLE2 module, the example client builds against the installed library
# and drives the installed daemon, and the bus starts the daemon on demand from the installed
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

# The example client, built against the installed pkg-config data, launches the installed daemon.
PKG_CONFIG_PATH=$prefix/lib/pkgconfig examples/client/build.sh "$prefix/example" >/dev/null
titles=$(dbus-run-session -- "$prefix/example/import-titles" --helper "$prefix/bin/ulvekbotd64" \
  samples/welcome.html 2>&1) || true
grep -q 'welcome.html: Welcome to ulvekbot' <<<"$titles" || fail "example client printed: $titles"

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
echo "check-install: installed tree, example client and activation work"
