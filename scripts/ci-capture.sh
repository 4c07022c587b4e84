#!/usr/bin/env bash
# The capture stage (docs/capture.md): the README's session with kivo-host
# and webconfd both capturing, both files read by tshark with our
# dissector (every record decoded, every request and reply with its JSON,
# nothing malformed), and the host's capture replayed by kivo-replay to the
# session's terminal output byte for byte.
#
#   bash scripts/ci-capture.sh [KEEP_DIR]    KEEP_DIR keeps the captures
set -euo pipefail
cd "$(dirname "$0")/.."
src=$(pwd)
bash scripts/deps.sh capture
bash scripts/build.sh
bin=$src/${BUILD_DIR:-build}/bin
dissector=$src/tools/wireshark/kivo.lua

work=$(mktemp -d "${TMPDIR:-/tmp}/kivo-capture.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "ci-capture.sh: $*" >&2; exit 1; }

# session.sh starts the programs itself: wrappers add the capture.
printf '#!/bin/sh\nexec "%s" --capture "%s" "$@"\n' "$bin/kivo-host" "$work/host.pcap" >"$work/host"
printf '#!/bin/sh\nexec "%s" --capture "%s" "$@"\n' "$bin/webconfd" "$work/daemon.pcap" >"$work/daemon"
chmod +x "$work/host" "$work/daemon"
bash scripts/session.sh "$work/daemon" "$work/host" >"$work/session.out"

# tshark's output without its notice about running as root.
shark() { tshark -X lua_script:"$dissector" -r "$@" 2>"$work/tshark.err" || { cat "$work/tshark.err" >&2; return 1; }; }
count() { shark "$1" -Y "$2" | wc -l; }

for capture in host daemon; do
  file=$work/$capture.pcap
  records=$(count "$file" "")
  kivo=$(count "$file" kivo.kind)
  sent=$(count "$file" "kivo.kind == 1")
  received=$(count "$file" "kivo.kind == 2")
  with_id=$(count "$file" '(kivo.kind == 1 || kivo.kind == 2) && json.member == "queryId"')
  bad=$(shark "$file" -Y '_ws.malformed || _ws.expert.severity == error')
  echo "$capture.pcap: $records records, $sent sent and $received received, $with_id with a queryId"
  [ "$records" -gt 0 ] && [ "$kivo" -eq "$records" ] || fail "$capture.pcap: $kivo of $records records decoded"
  # The session: two searches (a request and two replies each) and two
  # changes (a request and its acknowledgement); the daemon sees it mirrored.
  requests=$sent replies=$received
  [ "$capture" = host ] || { requests=$received replies=$sent; }
  [ "$requests" -eq 4 ] && [ "$replies" -eq 6 ] ||
    fail "$capture.pcap: $requests requests and $replies replies, not the session's 4 and 6"
  [ "$with_id" -eq $((sent + received)) ] || fail "$capture.pcap: only $with_id requests and replies decoded to JSON"
  [ -z "$bad" ] || fail "$capture.pcap: malformed records:"$'\n'"$bad"
done
# The primitives by name, the JSON members filterable.
shark "$work/host.pcap" -Y 'kivo.primitive == 0x00830002 && json.member_with_value == "type:3"' |
  grep -q "reply" || fail "no acknowledgement of a change found by json.member_with_value"

"$bin/kivo-replay" "$work/host.pcap" >"$work/replay.out" 2>"$work/replay.err" ||
  { cat "$work/replay.err" >&2; fail "kivo-replay failed"; }
diff -u "$work/session.out" "$work/replay.out" || fail "the replay differs from the session"
echo "kivo-replay: $(wc -c <"$work/replay.out") bytes, identical to the session's terminal output"

if [ $# -gt 0 ]; then
  mkdir -p "$1"
  cp "$work/host.pcap" "$work/daemon.pcap" "$work/session.out" "$1"/
fi
