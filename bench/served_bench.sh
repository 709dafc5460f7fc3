# The common start of a benchmark whose site nginx serves on loopback. Source it from the
# repository root with the benchmark's name: it sets GW (the built program, in GW_BUILD_DIR or
# build/) and WORK (a temporary folder), sources scripts/loopback-nginx.sh, and at exit stops nginx
# and removes WORK (GW_BENCH_KEEP=1 leaves it, so that the next run does not make its files among
# freshly freed inodes). `measure` times a command.
BUILD_DIR="${GW_BUILD_DIR:-build}"
GW="$(cd "$BUILD_DIR" && pwd)/apps/gleanwright/gleanwright"
WORK="$(mktemp -d "${TMPDIR:-/tmp}/gleanwright-$1-XXXXXX")"
. scripts/loopback-nginx.sh
cleanup() {
  nginx_stop
  if [ -n "${GW_BENCH_KEEP:-}" ]; then echo "kept $WORK"; else rm -rf "$WORK"; fi
}
trap cleanup EXIT

# Runs a command with its output in $WORK/run.log and writes "seconds peak-kB cpu-seconds status"
# of it to $WORK/time.txt (peak: the largest resident size among the processes it waited for).
# Returns 0 whatever the command's status.
measure() {
  python3 - "$WORK/time.txt" "$WORK/run.log" "$@" <<'PY'
import resource, subprocess, sys, time
out, log, cmd = sys.argv[1], sys.argv[2], sys.argv[3:]
start = time.monotonic()
with open(log, "w") as f:
    status = subprocess.call(cmd, stdout=f, stderr=subprocess.STDOUT)
secs = time.monotonic() - start
usage = resource.getrusage(resource.RUSAGE_CHILDREN)
kb, cpu = usage.ru_maxrss, usage.ru_utime + usage.ru_stime
open(out, "w").write(f"{secs} {kb} {cpu} {status}\n")
PY
}
