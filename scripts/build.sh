#!/usr/bin/env bash
# Configures and builds the project into build/ (or $BUILD_DIR).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" -G Ninja "$@" >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)"
