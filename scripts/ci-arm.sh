#!/usr/bin/env bash
# Cross-builds everything for 32-bit ARM (arm-linux-gnueabihf; build-arm/)
# and runs the unit, platform, corpus and stress tests under qemu-arm. The
# e2e tests start further programs, which qemu-user cannot run from inside
# the guest, so they stay with the native builds. Prints the stripped size
# of the ARM libkivo.so.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/arm-sysroot.sh build-arm/sysroot
cmake --preset arm >/dev/null
cmake --build --preset arm
ctest --preset arm

arm-linux-gnueabihf-strip -o build-arm/libkivo.stripped.so build-arm/lib/libkivo.so
echo "ARM libkivo.so stripped: $(stat -c %s build-arm/libkivo.stripped.so) bytes"
