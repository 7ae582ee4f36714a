#!/usr/bin/env bash
# Builds the Debian packages from packaging/debian (debhelper) into build-deb/, checks each with
# lintian (an error fails; packaging/debian/README.lintian says which notes remain and why) and
# builds and runs the example clients against the unpacked runtime and -dev packages alone:
#   scripts/package.sh && apt install ./build-deb/ulvekbot_*.deb ./build-deb/libulvekbot-client*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
packages=(debhelper dpkg-dev fakeroot lintian)
# The Python package where the source tree installs a `python` component; else a build profile
# leaves it out.
profiles=()
if grep -rqs --include=CMakeLists.txt 'COMPONENT python' src python; then
  packages+=(dh-python pybind11-dev python3-dev)
else
  profiles=(--build-profiles=pkg.ulvekbot.nopython)
fi
scripts/install-packages.sh "${packages[@]}"

out=build-deb
# Always the same folder, so a rebuild finds its objects in the compiler cache.
source=$out/ulvekbot
rm -rf "$source" "$out"/*.deb "$out"/*.ddeb "$out"/*.changes "$out"/*.buildinfo
mkdir -p "$source"
tar -c --exclude='./build*' --exclude=./.git --exclude=./debian . | tar -x -C "$source"
cp -r packaging/debian "$source/debian"
(cd "$source" && DEB_BUILD_OPTIONS="parallel=${ULVEK_JOBS:-2} nocheck" \
  dpkg-buildpackage -b -uc -us "${profiles[@]}" >../dpkg-buildpackage.log 2>&1) || {
  tail -40 "$out/dpkg-buildpackage.log"
  exit 1
}
lintian --fail-on error "$out"/ulvekbot_*.changes

# The examples need nothing beside what the packages hold: only their pkg-config data is searched.
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
for package in ulvekbot libulvekbot-client0 libulvekbot-client-dev; do
  dpkg-deb -x "$out/${package}"_*.deb "$root"
done
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
PKG_CONFIG_LIBDIR=$root/usr/lib/$multiarch/pkgconfig examples/client/build.sh "$root/bin" >/dev/null
printed=$(dbus-run-session -- "$root/bin/import-pdf" --helper "$root/usr/bin/ulvekbotd64" \
  tests/data/pdf/survey.pdf 2>/dev/null)
grep -q '^Title: Harbour Survey' <<<"$printed" || {
  echo "package.sh: the C example against the packages printed: $printed" >&2
  exit 1
}
ls "$out"/*.deb
