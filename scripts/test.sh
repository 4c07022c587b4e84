#!/usr/bin/env bash
# Builds everything and runs all tests: the normal build (in which the
# module compiles against the firmware's interface alone), the ctest suite,
# then the reliability stages
# (docs/reliability.md): the suite under AddressSanitizer + UBSan and under
# ThreadSanitizer, the fuzzers for a minute each, the install with its
# consumer test and the amd64 packages, and the 32-bit ARM build with its
# tests and the main job under qemu-arm and the armhf packages, and the
# README session captured, read by tshark and replayed (ci-capture.sh).
#
#   bash scripts/test.sh            everything (what CI runs)
#   bash scripts/test.sh --quick    the normal build and the suite only
#                                   (or KIVO_QUICK=1)
set -euo pipefail
cd "$(dirname "$0")/.."

quick=${KIVO_QUICK:-0}
for arg in "$@"; do
  case $arg in
    --quick) quick=1 ;;
    *) echo "usage: $0 [--quick]" >&2; exit 2 ;;
  esac
done

bash scripts/build.sh
ctest --test-dir "${BUILD_DIR:-build}" --output-on-failure -j "$(nproc)"

# Tests are to stay about a quarter to a third of the code (docs/testing.md).
size_line() {
  local code tests
  code=$(git ls-files -- kivo firmware-api standins bench | grep -E '\.(cpp|h)$' | xargs cat | grep -c -v -E '^\s*$')
  tests=$(git ls-files -- tests fuzz | grep -E '\.(cpp|h)$' | xargs cat | grep -c -v -E '^\s*$')
  awk -v t="$tests" -v c="$code" 'BEGIN { printf "size: %d non-blank lines of code, %d of tests and fuzz: ratio %.2f\n", c, t, t / c }'
}
if [ "$quick" = 1 ]; then size_line; exit 0; fi

# Each stage runs to its end even when an earlier one failed, so one run
# shows every failure; the summary gives each stage's time.
summary=()
failed=0
stage() {
  local name=$1 start=$SECONDS rc=0
  shift
  echo "==== $name"
  "$@" || rc=$?
  summary+=("$(printf '%-7s %5d s  %s' "$name" $((SECONDS - start)) "$([ $rc -eq 0 ] && echo ok || echo "FAILED ($rc)")")")
  [ $rc -eq 0 ] || failed=1
}
stage asan bash scripts/ci-sanitize.sh asan
stage tsan bash scripts/ci-sanitize.sh tsan
stage fuzz bash scripts/ci-fuzz.sh
stage package bash scripts/ci-package.sh
stage arm bash scripts/ci-arm.sh
stage capture bash scripts/ci-capture.sh

echo "==== stages (total since start: $SECONDS s)"
printf '%s\n' "${summary[@]}"
size_line
exit $failed
