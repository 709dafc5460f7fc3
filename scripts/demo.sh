#!/usr/bin/env bash
# Installs dependencies, builds, and runs the main job on the embedded default store.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
BUILD_DIR="${GW_BUILD_DIR:-build}"
GW="$BUILD_DIR/apps/gleanwright/gleanwright"

"$GW" --version
"$GW" --help
