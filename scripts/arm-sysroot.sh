#!/usr/bin/env bash
# Makes the armhf sysroot of the cross build: what Debian's cross compiler
# lacks for this project. jsoncpp, SQLite (the daemon's) and libedit (the
# host's) come from Debian's armhf packages, unpacked (not installed);
# GoogleTest is built from Debian's source package with the cross compiler;
# Boost is header-only here, so its headers are linked in. Does nothing when
# the sysroot is complete.
#
#   bash scripts/arm-sysroot.sh [DIR]      (default build-arm/sysroot)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
sysroot=$(realpath -m "${1:-build-arm/sysroot}")
# libedit (the host's line editing) with the libraries it is linked against.
debs=(libjsoncpp-dev:armhf libjsoncpp25:armhf libsqlite3-dev:armhf libsqlite3-0:armhf
      libedit-dev:armhf libedit2:armhf libbsd0:armhf libmd0:armhf libtinfo6:armhf)
stamp=$sysroot/.complete
# The stamp names what went in and the toolchain it was built with, so a
# change of either makes the sysroot anew.
contents="${debs[*]} googletest $(sha1sum < cmake/arm-linux-gnueabihf.cmake | cut -c1-12)"
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "$contents" ] && exit 0

bash scripts/deps.sh arm

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"   # apt-get download drops to the _apt user

if ! (cd "$work" && apt-get download "${debs[@]}" >/dev/null 2>&1); then
  # apt knows armhf packages only once the architecture is added and listed;
  # a mirror in the middle of a sync can fail the update partly.
  dpkg --print-foreign-architectures | grep -qx armhf || $SUDO dpkg --add-architecture armhf
  $SUDO apt-get update || echo "apt-get update failed partly; going on" >&2
  (cd "$work" && apt-get download "${debs[@]}")
fi

rm -rf "$sysroot"
mkdir -p "$sysroot/usr/include"
for deb in "$work"/*.deb; do
  dpkg-deb -x "$deb" "$sysroot"
done
ln -s /usr/include/boost "$sysroot/usr/include/boost"

# GoogleTest and GoogleMock for armhf, installed into the sysroot where
# find_package(GTest) of the cross build finds them.
cmake -S /usr/src/googletest -B "$work/gtest" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/arm-linux-gnueabihf.cmake" \
  -DKIVO_ARM_SYSROOT="$sysroot" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_INSTALL_PREFIX="$sysroot/usr" \
  -DCMAKE_INSTALL_LIBDIR=lib/arm-linux-gnueabihf >/dev/null
cmake --build "$work/gtest" -j 2 >/dev/null
cmake --install "$work/gtest" >/dev/null

echo "$contents" > "$stamp"
# A build configured against the old sysroot or toolchain must start over.
rm -f "$(dirname "$sysroot")/CMakeCache.txt"
echo "armhf sysroot ready: $sysroot"
