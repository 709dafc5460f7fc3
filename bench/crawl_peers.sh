#!/usr/bin/env bash
# The crawl benchmark against peers: a generated site of PAGES pages (default 10,000) of about
# 20 KB with 20 to 50 links each, served by nginx on a loopback address, crawled completely, one
# tool after the other in one run: `gleanwright crawl`, `wget --recursive --level=inf` (and wget2
# when Debian has it), httrack, and a minimal Scrapy CrawlSpider (Debian's python3-scrapy, robots
# off, 16 concurrent requests, each page saved to a file). For each it prints the pages saved, the
# wall time, pages per second and the peak memory of the process tree's largest process.
#
# Usage: bench/crawl_peers.sh [PAGES]      (GW_ONLY=1: gleanwright alone, no peers needed;
#        GW_PEERS="wget wget2": only those peers, of wget, wget2, httrack and scrapy)
# The peers are installed here (apt-get, as root or through sudo), never by install-deps.sh; CI
# does not run this. Builds nothing: run scripts/build.sh first. Everything lives in a temporary
# folder, removed at the end, and nginx is stopped.
set -euo pipefail
cd "$(dirname "$0")/.."
PAGES=${1:-10000}
. bench/served_bench.sh crawl-peers
PEERS=" ${GW_PEERS:-wget wget2 httrack scrapy} "
want() { [[ "$PEERS" == *" $1 "* ]]; }

if [ -z "${GW_ONLY:-}" ]; then
  need=()
  command -v wget >/dev/null || need+=(wget)
  command -v httrack >/dev/null || need+=(httrack)
  /usr/bin/python3 -c 'import scrapy' 2>/dev/null || need+=(python3-scrapy)
  if ! command -v wget2 >/dev/null && apt-cache show wget2 >/dev/null 2>&1; then need+=(wget2); fi
  if [ ${#need[@]} -gt 0 ]; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO=sudo
    $SUDO apt-get install -y --no-install-recommends "${need[@]}" >/dev/null
  fi
fi

# The site: page i links to page i+1 (so every page is reachable from page 0) and to 19 to 49
# others chosen at random (fixed seed), padded to about 20 KB.
python3 - "$WORK/site/p" "$PAGES" <<'PY'
import os, random, sys
root, n = sys.argv[1], int(sys.argv[2])
os.makedirs(root, exist_ok=True)
for i in range(n):
    rnd = random.Random(i)
    targets = [(i + 1) % n] + [rnd.randrange(n) for _ in range(rnd.randint(19, 49))]
    links = "".join(f'<li><a href="/p/{t}.htm">Page {t}</a></li>\n' for t in targets)
    text = "".join(f"<p>Paragraph {k} of page {i}. " + "Lorem ipsum dolor sit amet. " * 8 + "</p>\n"
                   for k in range(60))
    page = f"<html><head><title>Page {i}</title></head><body>\n<ul>\n{links}</ul>\n{text}"
    open(f"{root}/{i}.htm", "w").write(page[:20000] + "\n</body></html>\n")
PY
NGINX_ACCESS_LOG=off nginx_start "$WORK/site" "$WORK/nginx"
START="$NGINX_URL/p/0.htm"

# Pages saved below a folder: files named after a page (N.htm), each counted once.
count_pages() {
  find "$1" -type f -name '*.htm*' -printf '%f\n' | sed -n 's/^\([0-9]*\)\.htm.*$/\1/p' | sort -u | wc -l
}

report() {
  local name=$1 dir=$2 secs kb saved
  read -r secs kb cpu _ <"$WORK/time.txt"
  saved=$(count_pages "$dir")
  awk -v n="$name" -v s="$secs" -v kb="$kb" -v p="$saved" -v cpu="$cpu" \
    -v ld="$(cut -d' ' -f1 /proc/loadavg)" 'BEGIN {
    printf "%-22s %8d %10.1f %10.0f %10.1f %8.1f %6s\n", n, p, s, p / s, kb / 1024, cpu, ld }'
  [ "$saved" -eq "$PAGES" ] || { echo "  ($name saved $saved of $PAGES pages; its log:)"; tail -5 "$WORK/run.log"; }
}

echo "site: $PAGES pages of about 20 KB from nginx at $NGINX_URL; $(nproc) cores; $(uname -r)"
printf '%-22s %8s %10s %10s %10s %8s %6s\n' tool pages seconds "pages/s" "peak MB" "CPU s" load

export GLEANWRIGHT_HOME="$WORK/home"
"$GW" init >/dev/null
# Ten transfers at a time on the one host (the download manager's ten agents).
sqlite3 "$GLEANWRIGHT_HOME/ZentrovoDB.sqlite" \
  "INSERT OR REPLACE INTO settings (name, val, datatype) VALUES ('MaxRequestsPerHost', '10', 'dword')"
# GW_BENCH_WRAP puts a profiler in front ("perf record -g -o /tmp/perf.data").
# shellcheck disable=SC2086
measure ${GW_BENCH_WRAP:-} "$GW" crawl "$START" --to "$WORK/out-gw" --package bench
report "gleanwright crawl" "$WORK/out-gw"
[ -n "${GW_ONLY:-}" ] && exit 0

want wget && measure wget --recursive --level=inf --no-verbose -e robots=off -P "$WORK/out-wget" "$START"
want wget && report "wget" "$WORK/out-wget"

if want wget2 && command -v wget2 >/dev/null; then
  measure wget2 --recursive --level=0 --no-verbose --robots=off --max-threads=16 \
    -P "$WORK/out-wget2" "$START"
  report "wget2 (16 threads)" "$WORK/out-wget2"
fi

# Without --disable-security-limits httrack holds itself to a few requests a second.
want httrack && measure httrack "$START" -O "$WORK/out-httrack" -s0 -c16 -%c1000 -A1000000000 -q -%v0 -I0 \
  --disable-security-limits
want httrack && report "httrack (16 conn.)" "$WORK/out-httrack"

cat >"$WORK/spider.py" <<PY
import os
from scrapy.spiders import CrawlSpider, Rule
from scrapy.linkextractors import LinkExtractor

OUT = "$WORK/out-scrapy"

class SiteSpider(CrawlSpider):
    name = "site"
    start_urls = ["$START"]
    rules = (Rule(LinkExtractor(), callback="save", follow=True),)
    custom_settings = {
        "ROBOTSTXT_OBEY": False,
        "CONCURRENT_REQUESTS": 16,
        "CONCURRENT_REQUESTS_PER_DOMAIN": 16,
        "LOG_LEVEL": "WARNING",
        "TELNETCONSOLE_ENABLED": False,
    }

    def parse_start_url(self, response):
        return self.save(response)

    def save(self, response):
        os.makedirs(OUT, exist_ok=True)
        with open(os.path.join(OUT, os.path.basename(response.url)), "wb") as f:
            f.write(response.body)
        return []
PY
if want scrapy; then
  measure /usr/bin/python3 -m scrapy runspider "$WORK/spider.py"
  report "Scrapy CrawlSpider" "$WORK/out-scrapy"
fi
