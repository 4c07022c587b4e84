#!/usr/bin/env bash
# The install and the packages, as a firmware build consumes them:
#   1. installs the normal build (build/, or $BUILD_DIR) into a staging
#      prefix, stripped, and moves the tree: nothing in it may name the
#      source or build directory
#   2. builds tests/consumer against the moved tree only (CMake package and
#      pkg-config), runs both programs on the installed libkivo.so, and one
#      search with the installed webconfd and kivo-host
#   3. makes the amd64 Debian packages with CPack, shows their metadata and
#      contents, runs lintian (no error allowed) and prints the sizes
# The armhf packages come from scripts/ci-arm.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$(pwd)

BUILD_DIR=${BUILD_DIR:-build}
# Packages install under /usr (multiarch library directory).
BUILD_DIR=$BUILD_DIR bash scripts/build.sh -DCMAKE_INSTALL_PREFIX=/usr
build=$(cd "$BUILD_DIR" && pwd)
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")

work=$(mktemp -d "${TMPDIR:-/tmp}/kivo-package.XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "== staging install"
cmake --install "$build" --prefix "$work/stage" --strip >/dev/null
mv "$work/stage" "$work/moved"
stage=$work/moved
if grep -rlF -e "$src" -e "$build" "$stage"; then
  echo "ci-package.sh: the installed files above name the source or build directory" >&2
  exit 1
fi

echo "== consumer"
# Nothing of the source tree on the consumer's paths: only the staging
# prefix, and the system for jsoncpp and Boost.
PKG_CONFIG_PATH="$stage/$libdir/pkgconfig" \
  cmake -S tests/consumer -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$stage" >/dev/null
cmake --build "$work/consumer"
if grep -E -- "(-I|-isystem )$src|(-L|-Wl,-rpath,)$src|(-L|-Wl,-rpath,)$build" "$work/consumer/build.ninja"; then
  echo "ci-package.sh: the consumer was built with paths into the source or build tree" >&2
  exit 1
fi
"$work/consumer/consumer_cmake" "$stage/$libdir/libkivo.so.0"
"$work/consumer/consumer_pkgconfig" "$stage/$libdir/libkivo.so.0"

out=$(bash scripts/session.sh "$stage/bin/webconfd" "$stage/bin/kivo-host" "ts info 1" "name W")
# The README's first search: six contacts, every one with a W name.
rows=$(grep -ac '^ [0-9]) ' <<<"$out" || true)
if ! grep -aq '^Result:591 query 0 finished$' <<<"$out" || [ "$rows" -ne 6 ]; then
  echo "ci-package.sh: the installed host and daemon did not find the six W contacts:" >&2
  echo "$out" >&2
  exit 1
fi
echo "installed kivo-host and webconfd: \"name W\" found $rows contacts"

echo "== amd64 packages"
bash scripts/packages.sh "$build" strip
