#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan; build-fuzz/) and runs
# each for a bounded time, two at a time, starting from its committed seed
# corpus (fuzz/corpus/<target>/). A crash, a leak, a broken invariant or an
# input slower than 10 s fails the run; the input is kept in
# build-fuzz/artifacts/. New inputs collect in build-fuzz/corpus/, never in
# the repository.
#
#   bash scripts/ci-fuzz.sh [SECONDS]     (default 60 per target)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-${KIVO_FUZZ_SECONDS:-60}}
bash scripts/deps.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

build=$(pwd)/build-fuzz
targets=$(cd fuzz/corpus && ls)
mkdir -p "$build/artifacts" "$build/logs"

run() {
  local t=$1 dict=()
  mkdir -p "$build/corpus/$t"
  [ -f "fuzz/dict/$t.dict" ] && dict=(-dict="fuzz/dict/$t.dict")
  "$build/bin/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/$t-" "${dict[@]}" \
    "$build/corpus/$t" "fuzz/corpus/$t" >"$build/logs/$t.log" 2>&1
}

declare -A status
set -- $targets
while [ $# -gt 0 ]; do
  first=$1; shift
  run "$first" & pid1=$!
  second=""
  if [ $# -gt 0 ]; then
    second=$1; shift
    run "$second" & pid2=$!
  fi
  rc=0; wait $pid1 || rc=$?; status[$first]=$rc
  if [ -n "$second" ]; then rc=0; wait $pid2 || rc=$?; status[$second]=$rc; fi
done

failed=0
for t in $targets; do
  log=$build/logs/$t.log
  execs=$(awk '/stat::number_of_executed_units/ {print $2}' "$log")
  if [ "${status[$t]}" -ne 0 ]; then
    echo "==== fuzz_$t failed (exit ${status[$t]}):" >&2
    tail -n 60 "$log" >&2
    failed=1
  fi
  echo "fuzz_$t: ${execs:-?} executions in ${seconds} s, exit ${status[$t]}"
done
exit $failed
