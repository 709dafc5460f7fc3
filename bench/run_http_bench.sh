#!/usr/bin/env bash
# Runs bench/http_bench: the web client's asynchronous GETs against a loopback server, beside wrk
# against the same server. Installs wrk (a Debian package) if it is missing; builds the benchmark
# in the build folder (RelWithDebInfo) first. Usage: bench/run_http_bench.sh [seconds per run]
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v wrk >/dev/null 2>&1; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get install -y -qq --no-install-recommends wrk || {
    $SUDO apt-get update -qq && $SUDO apt-get install -y -qq --no-install-recommends wrk
  }
fi
BUILD_DIR="${GW_BUILD_DIR:-build}"
[ -f "$BUILD_DIR/build.ninja" ] || scripts/build.sh
cmake --build "$BUILD_DIR" --target http_bench
"$BUILD_DIR/bench/http_bench" "${1:-5}"
