#!/usr/bin/env bash
# Installs the Debian packages that scripts/package.sh built into a clean Debian 12 root, which
# holds nothing of the build's dependencies, only a compiler, pkg-config and Python, and checks
# that they work there: the C, C++ and Python examples build against the installed pkg-config
# data and import through the installed daemon, the command line imports files of several kinds,
# tells a file without an extension by its content and calls the daemon, and the Python module
# imports. A release check: it takes minutes, so CI does not run it.
#   scripts/check-deb-install.sh [DEB_FOLDER]     (default build-deb)
# The root is made once with mmdebstrap and kept as a tarball in $ULVEK_DEB_CACHE (default
# /var/tmp/ulvekbot-debcheck), beside the archives apt downloads; each run unpacks a fresh copy
# there and removes it. The host is left as it was otherwise: the root's mounts live in a mount
# namespace of their own and go with it.
set -euo pipefail
cd "$(dirname "$0")/.."
debs=$(cd "${1:-build-deb}" && pwd)
cache=${ULVEK_DEB_CACHE:-/var/tmp/ulvekbot-debcheck}
suite=bookworm

fail() {
  echo "check-deb-install: $*" >&2
  exit 1
}

packages=(ulvekbot libulvekbot-client0 libulvekbot-client-dev ulvekbot-importer-dev python3-ulvekbot)
files=()
for package in "${packages[@]}"; do
  file=$(find "$debs" -maxdepth 1 -name "${package}_*.deb" | sort | tail -1)
  if [[ -z $file ]]; then
    # The Python package exists only where the source tree builds the module.
    [[ $package == python3-ulvekbot ]] && continue
    fail "no ${package}_*.deb in $debs (scripts/package.sh builds them)"
  fi
  files+=("$file")
done

[[ $(id -u) == 0 ]] || fail "needs root (to unpack the root and mount in it)"
scripts/install-packages.sh mmdebstrap
mkdir -p "$cache/archives/partial"
base=$cache/$suite.tar
if [[ ! -s $base ]]; then
  # The host's own mirrors (with its security and update suites, which the packages were built
  # against).
  sources=/etc/apt/sources.list.d/debian.sources
  [[ -e $sources ]] || sources=/etc/apt/sources.list
  echo "check-deb-install: making the $suite root (once) in $base"
  mmdebstrap --variant=apt --format=tar --include=gcc,g++,pkg-config,python3 \
    "$suite" "$base.part" "$sources" >"$cache/mmdebstrap.log" 2>&1 ||
    { tail -20 "$cache/mmdebstrap.log"; fail "mmdebstrap failed"; }
  mv "$base.part" "$base"
fi

root=$(mktemp -d "$cache/root.XXXXXX")
trap 'rm -rf --one-file-system "$root"' EXIT
tar -xf "$base" -C "$root"
cp /etc/resolv.conf "$root/etc/resolv.conf"
mkdir -p "$root/check/debs" "$root/check/data"
cp "${files[@]}" "$root/check/debs/"
cp -r examples/client "$root/check/examples"
# Files of several kinds (with what their tests expect of them), a PDF without its extension that
# only its content tells, and UTF-16 text without a byte order mark, which takes ICU's detector.
for file in tests/data/pdf/survey.pdf samples/welcome.html tests/data/wordprocessor/doc/ledger.doc \
  tests/data/wordprocessor/docx/ledger.docx tests/data/wordprocessor/odt/ledger.odt \
  tests/data/wordprocessor/rtf/ledger.rtf tests/data/mail/plain.eml tests/data/image/harbour.jpg \
  tests/data/media/tide-song.mp3 tests/data/epub/northern-coast-epub3.epub \
  tests/data/iwork/harbour.pages tests/data/charsets/es/utf-16le.txt \
  tests/data/charsets/es/utf-8.txt; do
  cp -r "$file" "$root/check/data/"
  [[ ! -e $file.expect.json ]] || cp "$file.expect.json" "$root/check/data/"
done
cp tests/data/pdf/survey.pdf "$root/check/data/survey"
cp scripts/check-deb-install-inside.sh "$root/check/inside.sh"

start=$SECONDS
# The mounts are made in a private mount namespace and vanish when it ends, however it ends.
unshare --mount --propagation private --pid --fork --mount-proc -- bash -euc '
  root=$1
  mount -t proc proc "$root/proc"
  mount -t sysfs sysfs "$root/sys"
  mount --rbind /dev "$root/dev"
  mount --bind "$2" "$root/var/cache/apt/archives"
  chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
    bash /check/inside.sh' - "$root" "$cache/archives" ||
  fail "the packages do not work in a clean $suite root (see above)"
echo "check-deb-install: passed in $((SECONDS - start)) s"
