#!/usr/bin/env bash
# Cross-builds everything for 32-bit ARM (arm-linux-gnueabihf; build-arm/)
# and
#   1. runs the unit, platform, corpus and stress tests under qemu-arm (the
#      e2e tests start further programs, which qemu-user cannot run from
#      inside the guest, so they stay with the native builds)
#   2. runs the main job on ARM: the armhf webconfd and kivo-host, as
#      installed, each started under qemu-arm, play the README's example
#      session over their Unix sockets; its output must be byte for byte
#      that of the x86-64 programs of build/ (or $BUILD_DIR)
#   3. makes the armhf Debian packages, checks them with lintian and prints
#      the stripped size of the module and the size of each package
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/arm-sysroot.sh build-arm/sysroot
cmake --preset arm >/dev/null
cmake --build --preset arm
ctest --preset arm

echo "== the main job on ARM"
sysroot=$(pwd)/build-arm/sysroot
BUILD_DIR=${BUILD_DIR:-build}
[ -f "$BUILD_DIR/CMakeCache.txt" ] || cmake --preset default -B "$BUILD_DIR" >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)" --target webconfd kivo-host

work=$(mktemp -d "${TMPDIR:-/tmp}/kivo-arm.XXXXXX")
trap 'rm -rf "$work"' EXIT
cmake --install build-arm --prefix "$work/arm" --component module >/dev/null
cmake --install build-arm --prefix "$work/arm" --component tools >/dev/null
# Under qemu-arm the guest's loader finds libc in the cross packages and
# jsoncpp, SQLite and libedit with its libraries (libtinfo in lib/) in the
# sysroot; the module and the stand-ins it finds by the programs' RUNPATH,
# as on the target.
KIVO_RUNNER="qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=$sysroot/usr/lib/arm-linux-gnueabihf:$sysroot/lib/arm-linux-gnueabihf" \
  KIVO_SESSION_WAIT=120 bash scripts/session.sh "$work/arm/bin/webconfd" "$work/arm/bin/kivo-host" >"$work/arm.out"
bash scripts/session.sh "$BUILD_DIR/bin/webconfd" "$BUILD_DIR/bin/kivo-host" >"$work/x86-64.out"

# Equal outputs mean something only when the session did what it shows in
# the README: six contacts for "name W", the added contact found by
# "name Wef", and both changes acknowledged. Nothing in this session's
# output differs legitimately between machines (no trace in it prints a
# pointer), so the comparison is byte for byte.
check() {
  local out=$1
  [ "$(grep -ac '^ [0-9]) ' "$out")" -eq 7 ] &&
    grep -aq '^ 0) Wefer  ' "$out" &&
    [ "$(grep -ac 'Result:642 acknowledge$' "$out")" -eq 2 ] &&
    ! grep -aq 'Timeout:' "$out"
}
for run in x86-64 arm; do
  check "$work/$run.out" || { echo "ci-arm.sh: the $run session is not the README's:" >&2; cat "$work/$run.out" >&2; exit 1; }
done
if ! cmp "$work/x86-64.out" "$work/arm.out"; then
  diff -a "$work/x86-64.out" "$work/arm.out" >&2 || true
  echo "ci-arm.sh: the session's output on ARM differs from x86-64" >&2
  exit 1
fi
echo "README session: $(wc -c <"$work/arm.out") bytes, the same on armhf (qemu-arm) and x86-64"

echo "== armhf packages"
bash scripts/packages.sh build-arm arm-linux-gnueabihf-strip
