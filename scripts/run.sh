#!/usr/bin/env bash
# The main job: builds, starts webconfd on its default database in a private
# runtime directory, then runs the host with the module inside the kivo
# console. The daemon stops when the host ends.
#   extra arguments      go to kivo-host
#   WEBCONFD_OPTIONS     go to webconfd, e.g. "--fault-delay-ms 300" or
#                        "--db /tmp/other.db" (webconfd --help lists them)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
bin=${BUILD_DIR:-build}/bin

ipc=$(mktemp -d "${TMPDIR:-/tmp}/kivo-run.XXXXXX")
daemon=""
stop_daemon() {
  if [ -n "$daemon" ] && kill -0 "$daemon" 2>/dev/null; then
    kill -TERM "$daemon"
    wait "$daemon" || true
  fi
  rm -rf "$ipc"
}
trap stop_daemon EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# The options are words on purpose.
# shellcheck disable=SC2086
"$bin/webconfd" --ipc-dir "$ipc" ${WEBCONFD_OPTIONS:-} &
daemon=$!
for _ in $(seq 100); do
  [ -S "$ipc/webconfd@Local" ] && break
  kill -0 "$daemon" 2>/dev/null || break
  sleep 0.1
done
if [ ! -S "$ipc/webconfd@Local" ]; then
  echo "run.sh: webconfd did not start" >&2
  exit 1
fi
echo "webconfd runs as process $daemon; 'kill $daemon' stops it (searches then end by their 5 s timer)" >&2

"$bin/kivo-host" --ipc-dir "$ipc" --enter kivo "$@"
