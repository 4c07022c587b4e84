#!/bin/sh
# A kept capture replayed: kivo-replay's output must be NAME.out beside it, byte for byte (else a diff of lines).
#   sh tests/replay_check.sh KIVO_REPLAY NAME.pcap
set -eu
out=$(mktemp)
trap 'rm -f "$out"' EXIT
"$1" "$2" >"$out" 2>/dev/null || { echo "kivo-replay failed on $2:" >&2; "$1" "$2" >/dev/null; exit 1; }
diff -u "${2%.pcap}.out" "$out"
