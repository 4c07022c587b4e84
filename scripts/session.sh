#!/usr/bin/env bash
# Runs a console session of the main job and prints what kivo-host wrote:
# webconfd on a new database (the sample phonebook) and kivo-host in the
# kivo console, both in a private directory over its Unix sockets. Each
# line is typed once the one before has ended (its search finished, its
# change acknowledged), so the output is the same from run to run. The
# default lines are the README's example session.
#
#   bash scripts/session.sh WEBCONFD KIVO_HOST [LINE...]
#
# KIVO_RUNNER, when set, starts both programs (e.g. "qemu-arm -L ..."; the
# ARM stage); KIVO_SESSION_WAIT bounds each wait in seconds (default 60).
set -euo pipefail

[ $# -ge 2 ] || { echo "usage: $0 WEBCONFD KIVO_HOST [LINE...]" >&2; exit 2; }
webconfd=$1 host=$2
shift 2
[ $# -gt 0 ] || set -- "ts info 1" "name W" "add 1" "name Wef" "del 0"
# The runner is words on purpose.
# shellcheck disable=SC2206
runner=(${KIVO_RUNNER:-})
limit=$((${KIVO_SESSION_WAIT:-60} * 10))

dir=$(mktemp -d "${TMPDIR:-/tmp}/kivo-session.XXXXXX")
daemon_pid="" host_pid=""
cleanup() {
  exec 3>&-
  for pid in $host_pid $daemon_pid; do
    kill -TERM "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
  done
  rm -rf "$dir"
}
trap cleanup EXIT

fail() {
  echo "session.sh: $1" >&2
  for f in host.out host.err daemon.err; do
    [ -s "$dir/$f" ] && { echo "---- $f" >&2; tail -n 40 "$dir/$f" >&2; }
  done
  exit 1
}

# Waits (bounded) until the command succeeds while process $1 lives.
await() {
  local pid=$1 what=$2 i
  shift 2
  for ((i = 0; i < limit; i++)); do
    "$@" && return 0
    # Asked again after the end: it may have come true as the program ended.
    kill -0 "$pid" 2>/dev/null || { "$@" && return 0; fail "$what: the program ended"; }
    sleep 0.1
  done
  fail "$what: no answer in $((limit / 10)) s"
}
count() { grep -c -F -- "$1" "$dir/host.out" || true; }
more() { [ "$(count "$1")" -gt "$2" ]; }

"${runner[@]}" "$webconfd" --db "$dir/phonebook.db" --ipc-dir "$dir/ipc" 2>"$dir/daemon.err" &
daemon_pid=$!
await "$daemon_pid" "webconfd start" test -S "$dir/ipc/webconfd@Local"

# A host that has ended must fail the session, not kill it by SIGPIPE.
trap '' PIPE
mkfifo "$dir/in"
"${runner[@]}" "$host" --ipc-dir "$dir/ipc" --enter kivo <"$dir/in" >"$dir/host.out" 2>"$dir/host.err" &
host_pid=$!
exec 3>"$dir/in"

for line; do
  # With "ts info 1" on, a search ends with "query N finished" and a change
  # with its acknowledgement.
  case $line in
    ts\ *) marker=CmdTraceSet ;;
    add\ *|del\ *) marker="Result:642 acknowledge" ;;
    *) marker=" finished" ;;
  esac
  before=$(count "$marker")
  echo "$line" >&3 2>/dev/null || fail "\"$line\": kivo-host reads no more input"
  await "$host_pid" "\"$line\"" more "$marker" "$before"
done

exec 3>&-
await "$host_pid" "kivo-host end" eval '! kill -0 "$host_pid" 2>/dev/null'
rc=0
wait "$host_pid" || rc=$?
host_pid=""
[ "$rc" -eq 0 ] || fail "kivo-host exited with $rc"
cat "$dir/host.out"
