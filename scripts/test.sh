#!/usr/bin/env bash
# Builds everything and runs all tests.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
ctest --test-dir "${BUILD_DIR:-build}" --output-on-failure -j "$(nproc)"
