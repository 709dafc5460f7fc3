#!/usr/bin/env bash
# Configures (once) and builds the project incrementally in build/ (or $GW_BUILD_DIR).
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR="${GW_BUILD_DIR:-build}"
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGW_WERROR=ON "$@"
fi
cmake --build "$BUILD_DIR"
