#!/usr/bin/env bash
# Builds the project with sanitizers and runs the whole ctest suite there:
#   bash scripts/ci-sanitize.sh asan    AddressSanitizer + UBSan, leaks on (build-asan/)
#   bash scripts/ci-sanitize.sh tsan    ThreadSanitizer (build-tsan/)
# Every instrumented process, also those the e2e tests start, writes its
# reports into the build's sanitizer-logs/; any report fails the run, even
# one from a process whose exit status nobody looked at.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-}
case $preset in
  asan|tsan) ;;
  *) echo "usage: $0 asan|tsan" >&2; exit 2 ;;
esac

bash scripts/deps.sh sanitize
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"

logs=$(pwd)/build-$preset/sanitizer-logs
rm -rf "$logs"
mkdir -p "$logs"
# The test preset adds the options that make a report fatal.
export ASAN_OPTIONS="log_path=$logs/asan"
export UBSAN_OPTIONS="log_path=$logs/ubsan"
export TSAN_OPTIONS="log_path=$logs/tsan"

status=0
ctest --preset "$preset" || status=$?

if [ -n "$(ls -A "$logs")" ]; then
  for report in "$logs"/*; do
    echo "==== $report" >&2
    cat "$report" >&2
  done
  echo "$preset: sanitizer reports above" >&2
  status=1
fi
exit $status
