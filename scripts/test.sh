#!/usr/bin/env bash
# Installs dependencies, builds with warnings as errors, and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/check-layers.sh
scripts/build.sh
BUILD_DIR="${GW_BUILD_DIR:-build}"
cd "$BUILD_DIR"
ctest --output-on-failure --timeout 600 -j "$(nproc)"
