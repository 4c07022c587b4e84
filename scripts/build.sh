#!/usr/bin/env bash
# Installs what is missing from Debian's packages, then configures and
# builds the preset "default" into build/ (cmake --preset default; the
# presets are in CMakePresets.json). With BUILD_DIR set, builds there
# instead with the same settings; extra arguments go to the configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
if [ -z "${BUILD_DIR:-}" ] || [ "$BUILD_DIR" = build ]; then
  cmake --preset default "$@" >/dev/null
  cmake --build --preset default
else
  cmake --preset default -B "$BUILD_DIR" "$@" >/dev/null
  cmake --build "$BUILD_DIR" -j "$(nproc)"
fi
