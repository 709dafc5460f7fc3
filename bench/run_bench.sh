#!/usr/bin/env bash
# Run throughput end to end: the bookshop package (examples/bookshop) over N generated listing
# pages (bench/make_listing_pages.py, about 40 KB, 40 books and 100 reviews a page) into a SQLite
# target, `gleanwright run` and `gleanwright extract` over the same files, beside a minimal Scrapy
# spider (bench/listing_spider.py) over the same files.
#
#   bench/run_bench.sh [N ...]          (default: 1000 10000)
#
# For each N and each program: wall time (the median of GW_BENCH_RUNS runs, default 3), pages/s,
# rows/s (rows counted in the target, or items Scrapy wrote), peak memory (/usr/bin/time), and the
# load average when the figure was taken; then, when strace is present and N is at most
# GW_BENCH_STRACE_MAX (default 1000), one more run of each gleanwright command under
# `strace -c -f`: system calls per page, in all and by call. Each run of `run` starts from a fresh
# rules database and an empty target, as a new user's first run does (init and import are not
# timed). Scrapy (Debian's python3-scrapy) is installed by this script when missing; set
# GW_BENCH_NO_SCRAPY=1 to leave it out. The build in $GW_BUILD_DIR (default build/) is used and
# brought up to date, or the program GW_BENCH_BINARY names. Everything is written under a temporary folder that is removed at the end
# (GW_BENCH_KEEP=1 keeps it). No network is used: Scrapy reads file:// addresses.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT="$(pwd)"
SIZES=("$@")
[ ${#SIZES[@]} -gt 0 ] || SIZES=(1000 10000)
RUNS="${GW_BENCH_RUNS:-3}"
STRACE_MAX="${GW_BENCH_STRACE_MAX:-1000}"

if [ -z "${GW_BENCH_NO_SCRAPY:-}" ] && ! /usr/bin/python3 -c 'import scrapy' 2>/dev/null; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get install -y -qq --no-install-recommends python3-scrapy >/dev/null || {
    $SUDO apt-get update -qq && $SUDO apt-get install -y -qq --no-install-recommends python3-scrapy >/dev/null
  }
fi
[ -x /usr/bin/time ] || { echo "run_bench: /usr/bin/time (Debian package time) is needed" >&2; exit 2; }

if [ -n "${GW_BENCH_BINARY:-}" ]; then
  GW="$GW_BENCH_BINARY"  # another build of gleanwright, to compare with (say, an older one)
else
  BUILD_DIR="${GW_BUILD_DIR:-build}"
  [ -f "$BUILD_DIR/build.ninja" ] || scripts/build.sh
  cmake --build "$BUILD_DIR" --target gleanwright >/dev/null
  GW="$(cd "$BUILD_DIR" && pwd)/apps/gleanwright/gleanwright"
fi

WORK="$(mktemp -d "${TMPDIR:-/tmp}/gleanwright-bench-XXXXXX")"
if [ -n "${GW_BENCH_KEEP:-}" ]; then
  echo "The benchmark's files stay in $WORK"
else
  trap 'rm -rf "$WORK"' EXIT
fi

PACKAGE='Harbour Books\Nightly'
DATAPAGE='Harbour Books\Listing'

load() { cut -d' ' -f1-3 /proc/loadavg; }
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# A fresh rules database with the bookshop package reading $1 into $2, in a new home folder
# under $WORK. The homes of earlier runs (and the page copies in them) stay until the end: ext4
# looks past inodes freed within the last minutes when it makes a file, so a run that follows the
# deletion of the previous run's thousands of copies would pay for that deletion.
HOMES=0
fresh_home() {
  rm -rf "$2"
  HOMES=$((HOMES + 1))
  export GLEANWRIGHT_HOME="$WORK/home-$HOMES"
  "$GW" init >/dev/null
  sed -e "s|@PAGES@|$1|g" -e "s|@TARGET@|$2|g" "$ROOT/examples/bookshop/bookshop.xml" \
    >"$WORK/bookshop.xml"
  "$GW" import "$WORK/bookshop.xml" >/dev/null
}

rows_in() { sqlite3 "$1" "SELECT (SELECT count(*) FROM books) + (SELECT count(*) FROM reviews);"; }

# Times "$@" once: prints "seconds peak-KB cpu-seconds" and leaves the command's output in
# $WORK/out.
timed() {
  /usr/bin/time -f "%e %M %U %S" -o "$WORK/time" "$@" >"$WORK/out" 2>"$WORK/err" || {
    echo "run_bench: failed: $*" >&2
    tail -5 "$WORK/err" >&2
    exit 1
  }
  awk '{ print $1, $2, $3 + $4 }' "$WORK/time"
}

# Runs one measured command $RUNS times after a set-up command; prints the median figures.
#   measure NAME PAGES SETUP-FUNCTION ROWS-FUNCTION -- COMMAND...
measure() {
  local name=$1 pages=$2 setup=$3 count=$4
  shift 5
  local walls=() mems=() cpus=() rows=0 loads=""
  for ((k = 1; k <= RUNS; k++)); do
    "$setup"
    read -r wall mem cpu < <(timed "$@")
    walls+=("$wall")
    mems+=("$mem")
    cpus+=("$cpu")
    rows=$("$count")
    loads="$(load)"
  done
  local wall mem cpu
  wall=$(printf '%s\n' "${walls[@]}" | median)
  mem=$(printf '%s\n' "${mems[@]}" | sort -g | tail -1)
  cpu=$(printf '%s\n' "${cpus[@]}" | median)
  # CPU time (user + system) is what the machine's load changes least.
  awk -v n="$name" -v p="$pages" -v w="$wall" -v r="$rows" -v m="$mem" -v c="$cpu" -v l="$loads" \
    -v all="${walls[*]}" 'BEGIN {
      printf "%-9s %6d pages %9d rows  %7.2f s  %8.0f pages/s  %9.0f rows/s  %6.1f MB peak  ms/page %.3f  cpu ms/page %.3f  (runs: %s; load %s)\n",
        n, p, r, w, p / w, r / w, m / 1024, 1000 * w / p, 1000 * c / p, all, l }'
  echo "$name $pages $wall $cpu" >>"$WORK/summary"
}

# One more run under strace -c -f: system calls per page, in all and for the busiest calls.
syscalls() {
  local name=$1 pages=$2 setup=$3
  shift 4
  "$setup"
  strace -c -f -o "$WORK/strace" "$@" >/dev/null 2>&1 || { echo "run_bench: strace run failed" >&2; return; }
  # strace -c: "% time, seconds, usecs/call, calls, [errors], syscall" per call, then a total.
  awk '$1 ~ /^[0-9.]+$/ && $NF != "total" { print $4, $NF }' "$WORK/strace" | sort -rn >"$WORK/calls"
  awk -v n="$name" -v p="$pages" '
    { total += $1; if (NR <= 8) top = top sprintf(" %s %.1f", $2, $1 / p) }
    END { printf "%-9s %6d pages  %.1f system calls a page; busiest:%s\n", n, p, total / p, top }' \
    "$WORK/calls"
}

for N in "${SIZES[@]}"; do
  PAGES="$WORK/pages-$N"
  TARGET="$WORK/target-$N.sqlite"
  echo "== $N pages: $(/usr/bin/python3 "$ROOT/bench/make_listing_pages.py" "$N" "$PAGES")"
  # extract is handed the files in a list (any number of them); a program from before
  # --files-from gets them on its command line.
  printf '%s\n' "$PAGES"/*.htm >"$WORK/files-$N.txt"
  if "$GW" extract --help 2>/dev/null | grep -q -- --files-from; then
    FILES=(--files-from "$WORK/files-$N.txt")
  else
    FILES=("$PAGES"/*.htm)
  fi

  setup_run() { fresh_home "$PAGES" "$TARGET"; }
  setup_extract() { rm -f "$TARGET"; }
  count_target() { rows_in "$TARGET"; }
  count_items() { wc -l <"$WORK/items.jl"; }
  setup_scrapy() { rm -f "$WORK/items.jl"; }

  measure run "$N" setup_run count_target -- "$GW" run "$PACKAGE"
  # extract applies the datapage of the package imported by the last run.
  measure extract "$N" setup_extract count_target -- "$GW" extract --datapage "$DATAPAGE" "${FILES[@]}"
  if [ -z "${GW_BENCH_NO_SCRAPY:-}" ]; then
    measure scrapy "$N" setup_scrapy count_items -- /usr/bin/python3 -m scrapy runspider \
      "$ROOT/bench/listing_spider.py" -a folder="$PAGES" -O "$WORK/items.jl"
  fi
  if command -v strace >/dev/null 2>&1 && [ "$N" -le "$STRACE_MAX" ]; then
    syscalls run "$N" setup_run -- "$GW" run "$PACKAGE"
    syscalls extract "$N" setup_extract -- "$GW" extract --datapage "$DATAPAGE" "${FILES[@]}"
  fi
  rm -rf "$PAGES"
done

echo "== Ratios (pages/s against Scrapy's on the same files; ms per page against the smallest N)"
awk '
  { wall[$1, $2] = $3; cpu[$1, $2] = $4; if (!($2 in seen)) { seen[$2] = 1; sizes[++ns] = $2 } }
  END {
    for (i = 1; i <= ns; i++) {
      n = sizes[i]
      if ((("scrapy", n) in wall)) {
        printf "%6d pages: run %.1fx Scrapy, extract %.1fx Scrapy (by CPU time: %.1fx and %.1fx)\n", n,
          wall["scrapy", n] / wall["run", n], wall["scrapy", n] / wall["extract", n],
          cpu["scrapy", n] / cpu["run", n], cpu["scrapy", n] / cpu["extract", n]
      }
      if (i > 1) {
        m = sizes[1]
        printf "%6d pages: ms per page %.2fx (run) and %.2fx (extract) those at %d pages\n", n,
          (wall["run", n] / n) / (wall["run", m] / m), (wall["extract", n] / n) / (wall["extract", m] / m), m
      }
    }
  }' "$WORK/summary"
