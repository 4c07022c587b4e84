#!/usr/bin/env bash
# The whole benchmark suite, in a few minutes: builds the benchmarks in
# Release into build-bench/ (or $BUILD_DIR), then
#   1. kivo_bench: the module against its JSON floor, side by side; the
#      query table at 10, 1,000 and 100,000 open queries; heap per search
#   2. instruction counts of the same pairs under callgrind, when valgrind
#      is installed (steady where wall time is not: set CALLGRIND=0 to skip)
#   3. kivo_load: name searches against webconfd at concurrency 1, 8, 64
#      against a raw datagram round trip plus the JSON floors
#   4. webconfd_bench: the daemon's name and vanity searches, narrow and
#      broad, at 1,000 and 100,000 contacts side by side
#   5. the stripped size of libkivo.so
# and prints the ratios. docs/performance.md explains the figures.
#
# Environment: BUILD_DIR, JOBS (build jobs, default 2), REPS (kivo_bench
# repetitions, default 5), LOAD_SECONDS (per concurrency level, default 3).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD_DIR=${BUILD_DIR:-build-bench}
JOBS=${JOBS:-2}
REPS=${REPS:-5}
LOAD_SECONDS=${LOAD_SECONDS:-3}
CALLGRIND=${CALLGRIND:-1}

cmake --preset bench -B "$BUILD_DIR" >/dev/null
cmake --build "$BUILD_DIR" -j "$JOBS" --target kivo_bench kivo_load kivo_echo kivo
# webconfd is a colleague of the suite, not part of it: without it the
# load driver measures the raw floor only.
cmake --build "$BUILD_DIR" -j "$JOBS" --target webconfd webconfd_bench ||
  echo "bench.sh: webconfd did not build; the end-to-end run is left out" >&2
bin=$BUILD_DIR/bin

echo "== machine"
echo "cpus: $(nproc), $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
echo "compiler: $(c++ --version | head -1)"
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg) (the cores may be shared: figures are medians)"

echo
echo "== kivo_bench"
"$bin/kivo_bench" --benchmark_repetitions="$REPS" --benchmark_display_aggregates_only=true \
  --benchmark_color=false

if [ "$CALLGRIND" != 0 ] && command -v valgrind >/dev/null; then
  echo
  echo "== instructions per operation (callgrind), module against floor"
  instructions() {  # operation count -> instructions per operation
    valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect=kivo_bench_measured \
      "$bin/kivo_bench" --op "$1" --n "$2" 2>&1 >/dev/null |
      awk -v n="$2" '/Collected :/ { printf "%.0f", $NF / n }'
  }
  pair() {  # label ours floor count target
    local a b
    a=$(instructions "$2" "$4")
    b=$(instructions "$3" "$4")
    awk -v l="$1" -v a="$a" -v b="$b" -v t="$5" 'BEGIN {
      r = a / b; printf "  %-30s %12d %12d %7.3fx", l, a, b, r
      if (t > 0) printf "   target %.2fx  %s", t, r <= t ? "met" : "MISSED"
      printf "\n" }'
  }
  printf "  %-30s %12s %12s %8s\n" "" "module" "floor" "ratio"
  pair "Result, 0 contacts" result0 parse0 200 0
  pair "Result, 1 contact" result1 parse1 200 2.0
  pair "Result, 10 contacts" result10 parse10 100 1.25
  pair "Result, 100 contacts" result100 parse100 10 1.25
  pair "startQuery" startquery floorstartquery 200 1.3
  pair "addContact" addcontact flooraddcontact 100 0
  echo "  query table, instructions per operation at 10 / 1,000 / 100,000 open:"
  for op in lookup end; do
    printf "    %-8s %6d %6d %6d\n" "$op" "$(instructions ${op}10 10)" "$(instructions ${op}1000 200)" \
      "$(instructions ${op}100000 200)"
  done
fi

echo
echo "== webconfd_bench: name and vanity searches at 1,000 and 100,000 contacts"
"$bin/webconfd_bench" || echo "bench.sh: webconfd_bench reported a failure" >&2

echo
echo "== kivo_load (end to end)"
"$bin/kivo_load" --seconds "$LOAD_SECONDS" --webconfd "$bin/webconfd" --echo "$bin/kivo_echo" ||
  echo "bench.sh: kivo_load reported a failure" >&2

echo
echo "== size"
stripped=$(mktemp)
strip -o "$stripped" "$BUILD_DIR/lib/libkivo.so"
echo "libkivo.so x86-64, stripped: $(stat -c %s "$stripped") bytes (unstripped $(stat -L -c %s "$BUILD_DIR/lib/libkivo.so"))"
rm -f "$stripped"
echo "libkivo.so ARM and the packages: see docs/performance.md, \"Size\""
