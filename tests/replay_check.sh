#!/bin/sh
# A kept capture replayed: kivo-replay's output must be the session's
# terminal output stored beside it (NAME.out), byte for byte; a difference
# is shown as a diff of lines.
#
#   sh tests/replay_check.sh KIVO_REPLAY CAPTURE.pcap
set -eu
replay=$1 capture=$2
expected=${capture%.pcap}.out
out=$(mktemp)
trap 'rm -f "$out"' EXIT
"$replay" "$capture" >"$out" 2>/dev/null || { echo "kivo-replay failed on $capture:" >&2; "$replay" "$capture" >/dev/null; exit 1; }
diff -u "$expected" "$out"
