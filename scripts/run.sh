#!/usr/bin/env bash
# The main job: builds, then runs the host with the module inside the kivo
# console. Extra arguments go to kivo-host.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
exec build/bin/kivo-host --enter kivo "$@"
