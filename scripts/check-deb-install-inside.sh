#!/usr/bin/env bash
# The part of scripts/check-deb-install.sh that runs inside the clean root, as /check/inside.sh,
# with the packages in /check/debs, the examples in /check/examples and files in /check/data.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
cd /check

fail() {
  echo "check-deb-install: $*" >&2
  exit 1
}

apt-get update -qq
installed_before=$(dpkg-query -W -f='${Package}\n' | sort)
# Only what the packages declare: without Recommends, as on a machine that never installs them.
apt-get install -y -q --no-install-recommends ./debs/*.deb >apt.log 2>&1 ||
  { cat apt.log; fail "apt could not install the packages"; }
pulled=$(comm -13 <(echo "$installed_before") <(dpkg-query -W -f='${Package}\n' | sort) |
  grep -v -x -e ulvekbot -e libulvekbot-client0 -e libulvekbot-client-dev \
    -e ulvekbot-importer-dev -e python3-ulvekbot)
echo "apt pulled in $(wc -l <<<"$pulled") packages: $(tr '\n' ' ' <<<"$pulled")"
for deb in debs/*.deb; do
  package=$(dpkg-deb -f "$deb" Package)
  echo "installed: $package $(dpkg-query -W -f='${Installed-Size}' "$package") KiB"
done

# None of the build's development packages came along.
dev=$(grep -e '-dev$' <<<"$pulled" | grep -v -x -e libulvekbot-client-dev -e ulvekbot-importer-dev || true)
[[ -z $dev ]] || fail "development packages were installed: $dev"

# The command line opens these only when first needed, so nothing but the package's Depends
# brings them: each must be there, with libmagic's database.
icu=$(dpkg -L ulvekbot | while read -r file; do [[ -f $file ]] && objdump -p "$file" 2>/dev/null; done |
  sed -n 's/.*NEEDED *libicu[a-z0-9]*\.so\.\([0-9]*\)$/\1/p' | head -1 || true)
[[ -n $icu ]] || fail "no program of ulvekbot links ICU; which libicui18n does it open?"
libraries=$(ldconfig -p)
for library in libmagic.so.1 libsystemd.so.0 "libicui18n.so.$icu"; do
  grep -q "^[[:space:]]*$library " <<<"$libraries" || fail "$library is not installed"
done
[[ -n $(find /usr/share/misc /usr/share/file -name 'magic.mgc' 2>/dev/null) ]] ||
  fail "libmagic's database (magic.mgc) is not installed"

out=$(mktemp -d)
json_field() { python3 -c 'import json, sys
for line in sys.stdin:
    value = json.loads(line).get(sys.argv[1])
    print(value if isinstance(value, str) else json.dumps(value))' "$1"; }

# The command line: a file without an extension is told by its content.
classified=$(ulvekbot classify data/survey 2>&1) || fail "ulvekbot classify failed: $classified"
grep -q 'pdf' <<<"$classified" || fail "ulvekbot classify data/survey printed: $classified"
! grep -qi "couldn't load" <<<"$classified" || fail "ulvekbot classify: $classified"

# Files of several kinds, each read without an error; where the fixture knows its title, that.
for file in data/*; do
  [[ $file == *.expect.json ]] && continue
  imported=$(ulvekbot import "$file" 2>"$out/stderr") ||
    fail "ulvekbot import $file failed: $(cat "$out/stderr")"
  ! grep -q '"Error"' <<<"$imported" || fail "ulvekbot import $file: $imported"
  ! grep -qi "couldn't load" "$out/stderr" || fail "ulvekbot import $file: $(cat "$out/stderr")"
  text=$(json_field Text <<<"$imported")
  [[ $text != null ]] || text=
  [[ -n $text || $(json_field Title <<<"$imported") != null ]] ||
    fail "ulvekbot import $file read neither text nor a title: $imported"
  if [[ -e $file.expect.json ]]; then
    expected=$(python3 -c 'import json, sys; print(json.load(open(sys.argv[1])).get("kMDItemTitle") or "")' \
      "$file.expect.json")
    title=$(json_field Title <<<"$imported")
    [[ -z $expected || $title == "$expected" ]] ||
      fail "ulvekbot import $file: title \"$title\", not \"$expected\""
  fi
  echo "imported $file: $(json_field ContentType <<<"$imported"), ${#text} characters"
done
# UTF-16 without a byte order mark is recognised by ICU's detector, which is opened when needed.
text=$(ulvekbot import data/utf-16le.txt | json_field Text)
[[ $text == "$(cat data/utf-8.txt)" ]] || fail "UTF-16 text without a mark read as: $text"

# The Python module, where packaged.
if dpkg-query -W python3-ulvekbot >/dev/null 2>&1; then
  title=$(python3 -c 'import sys, ulvekbot; print(ulvekbot.import_file(sys.argv[1])["Title"])' \
    data/survey.pdf 2>&1) || fail "the Python module: $title"
  [[ $title == 'Harbour Survey – Spring Round' ]] || fail "the Python module read: $title"
  echo "python3-ulvekbot: import_file reads \"$title\""
fi

# The examples build with the compilers and the installed pkg-config data alone, and talk to the
# installed daemon, which the session bus starts from its installed service file.
examples/build.sh "$out/bin" >/dev/null || fail "the examples do not build"
dbus-run-session -- bash -euo pipefail -c '
  fail() { echo "check-deb-install: $*" >&2; exit 1; }
  out=$1
  printed=$("$out/bin/import-pdf" data/survey.pdf 2>&1) || fail "C example: $printed"
  grep -qx "Title: Harbour Survey – Spring Round" <<<"$printed" &&
    grep -Eqx "Text: [1-9][0-9]* bytes" <<<"$printed" || fail "C example printed: $printed"
  echo "C example: $(tr "\n" " " <<<"$printed")"
  printed=$("$out/bin/import-titles" data/welcome.html data/ledger.doc 2>&1) ||
    fail "C++ example: $printed"
  grep -q "welcome.html: Welcome to ulvekbot" <<<"$printed" &&
    grep -q "ledger.doc: Seed Exchange Ledger" <<<"$printed" || fail "C++ example printed: $printed"
  echo "C++ example: $(tr "\n" " " <<<"$printed")"
  printed=$(python3 examples/import_title.py data/survey.pdf 2>&1) || fail "Python example: $printed"
  [[ $printed == "data/survey.pdf: Harbour Survey – Spring Round" ]] ||
    fail "Python example printed: $printed"
  echo "Python example: $printed"
  printed=$(ulvekbot call ping 2>&1) || fail "ulvekbot call ping: $printed"
  printed=$(ulvekbot call import data/survey.pdf 2>&1) || fail "ulvekbot call import: $printed"
  grep -q "Harbour Survey – Spring Round" <<<"$printed" || fail "ulvekbot call import printed: $printed"
  echo "ulvekbot call: ping and import answered"
  ulvekbot call terminate >/dev/null 2>&1 || true
' - "$out"
echo "check-deb-install: everything works in the clean root"
