#!/usr/bin/env bash
# Installs dependencies, builds, and runs the main job: the bookshop sample package (examples/
# bookshop) is imported into a fresh rules database under a temporary $GLEANWRIGHT_HOME, run over
# its local listing pages into a SQLite target, and its rows and run history are printed.
# GW_KEEP_DEMO=1 keeps the temporary folder (rules database, target, downloaded copies).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -z "${GW_DEMO_SKIP_BUILD:-}" ]; then
  scripts/install-deps.sh
  scripts/build.sh
fi
BUILD_DIR="${GW_BUILD_DIR:-build}"
GW="$(cd "$BUILD_DIR" && pwd)/apps/gleanwright/gleanwright"
EXAMPLES="$(pwd)/examples/bookshop"

WORK="$(mktemp -d "${TMPDIR:-/tmp}/gleanwright-demo-XXXXXX")"
if [ -n "${GW_KEEP_DEMO:-}" ]; then
  echo "The demo's files stay in $WORK"
else
  trap 'rm -rf "$WORK"' EXIT
fi
export GLEANWRIGHT_HOME="$WORK/home"
TARGET="$WORK/bookshop.sqlite"

step() { printf '\n== %s\n' "$*"; }

"$GW" --version
step "A fresh rules database"
"$GW" init

step "Importing the sample template and package"
sed -e "s|@PAGES@|$EXAMPLES/pages|g" -e "s|@TARGET@|$TARGET|g" \
  "$EXAMPLES/bookshop.xml" >"$WORK/bookshop.xml"
"$GW" import "$WORK/bookshop.xml"
"$GW" packages

step "Running the package"
"$GW" run 'Harbour Books\Nightly'

step "Extracted rows"
sqlite3 -header -column "$TARGET" \
  "SELECT ORDER_ON_PAGE AS book, title, subtitle, price FROM books ORDER BY rowid;"
echo
sqlite3 -header -column "$TARGET" \
  "SELECT PARENT_ORDER_ON_PAGE AS book, reviewer, comment FROM reviews ORDER BY rowid;"

step "Run history"
"$GW" history
"$GW" history 'Harbour Books\Nightly' --run latest
