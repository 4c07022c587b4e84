#!/usr/bin/env bash
# Makes the Debian packages of a configured and built tree with CPack (into
# BUILD/packages/), shows each package's metadata and contents, runs
# lintian on them (an error fails) and prints the sizes docs/performance.md
# lists: the stripped module and each package.
#
#   bash scripts/packages.sh BUILD STRIP     (STRIP: strip, or the cross one)
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -eq 2 ] || { echo "usage: $0 BUILD STRIP" >&2; exit 2; }
build=$1 strip=$2

bash scripts/deps.sh package
rm -rf "$build/packages"
(cd "$build" && cpack -G DEB >/dev/null)
debs=("$build"/packages/*.deb)
[ -e "${debs[0]}" ] || { echo "packages.sh: cpack made no package" >&2; exit 1; }

for deb in "${debs[@]}"; do
  echo "---- $(basename "$deb")"
  dpkg-deb --info "$deb" | sed -n '/^ [A-Z]/,$p'
  dpkg-deb --contents "$deb" | awk '{ print "  " $1, $6, $7, $8 }'
done

# Errors fail; warnings and notes are shown. Two are ours on purpose: the
# packages are native (no separate Debian revision) and carry no manual
# pages (the programs' --help is their manual).
lintian --fail-on error --suppress-tags binary-without-manpage "${debs[@]}"

echo "---- sizes"
module=$(find "$build/lib" -name 'libkivo.so.*.*' | head -1)
"$strip" -o "$build/libkivo.stripped.so" "$module"
arch=$(dpkg-deb -f "${debs[0]}" Architecture)
echo "$arch libkivo.so stripped: $(stat -c %s "$build/libkivo.stripped.so") bytes"
for deb in "${debs[@]}"; do
  files=$(dpkg-deb --contents "$deb" | awk '{ n += $3 } END { print n }')
  echo "$arch $(dpkg-deb -f "$deb" Package): $(stat -c %s "$deb") bytes, files $files bytes"
done
