#!/usr/bin/env bash
# The download benchmark: a package downloads PAGES pages of 20 KB (default 10,000) from nginx on
# a loopback address, once with extraction (a dataset of two fields, 48 rows per page, into a
# SQLite target) and once without. For each it prints the pages per second of the whole run and
# of its download phase, the peak memory of the process, and the rows the run added to the rules
# database per page. Usage: bench/download_bench.sh [PAGES] [MaxRequestsPerHost]
# Builds nothing: run scripts/build.sh first. Everything lives in a temporary folder, removed at
# the end, and nginx is stopped. GW_BENCH_JOBS="Fetch" runs only that one.
set -euo pipefail
cd "$(dirname "$0")/.."
PAGES=${1:-10000}
PER_HOST=${2:-4}
. bench/served_bench.sh download-bench
export GLEANWRIGHT_HOME="$WORK/home"

# The pages, exactly 20,480 bytes each, and the list of their addresses.
python3 - "$WORK/site/p" "$PAGES" <<'PY'
import os, sys
root, n = sys.argv[1], int(sys.argv[2])
os.makedirs(root, exist_ok=True)
for i in range(n):
    items = "".join(
        f'<div class="item"><h2>Item {i}-{k}</h2><span class="price">{(i * 7 + k) % 1000}.50</span>'
        f'<p>{"Lorem ipsum dolor sit amet. " * 12}</p></div>\n' for k in range(48))
    page = f"<html><head><title>Page {i}</title></head><body>\n{items}"
    tail = "</body></html>\n"
    pad = 20480 - len(page) - len(tail) - 9
    page += "<!-- " + "." * max(pad, 0) + " -->\n" + tail
    open(f"{root}/{i}.htm", "w").write(page[:20480] if len(page) > 20480 else page)
PY
NGINX_ACCESS_LOG=off nginx_start "$WORK/site" "$WORK/nginx"
python3 - "$NGINX_URL" "$PAGES" <<'PY' | sqlite3 "$WORK/urls.sqlite"
import sys
url, n = sys.argv[1], int(sys.argv[2])
print("CREATE TABLE urls (uri TEXT); BEGIN;")
for i in range(n):
    print(f"INSERT INTO urls VALUES ('{url}/p/{i}.htm');")
print("COMMIT;")
PY

"$GW" init >/dev/null
RULES="$GLEANWRIGHT_HOME/ZentrovoDB.sqlite"
sqlite3 "$RULES" "INSERT OR REPLACE INTO settings (name, val, datatype) VALUES ('MaxRequestsPerHost', '$PER_HOST', 'dword')"
SOURCE="<DocSources Object=\"True\"><DocSource Object=\"True\" Index=\"1\"><SourceType>1</SourceType><ConnStr>Provider=SQLite;Data Source=$WORK/urls.sqlite</ConnStr><Source>SELECT uri FROM urls</Source></DocSource></DocSources>"
SAVER="[!FIL!]%3CFileSaver%3E%3CDocFolder value=\"\"/%3E%3CFileName value=\"[DOCID]\"/%3E%3CJobFolder value=\"[PKGNAME]\"/%3E%3CRootFolder value=\"\"/%3E%3CTaskFolder value=\"\"/%3E%3C/FileSaver%3E[iFILi]"
cat >"$WORK/bench.xml" <<XML
<GleanwrightExport Object="True">
	<FormatVersion>1</FormatVersion>
	<DataPages Object="True"><DataPage Object="True" Index="1">
		<DisplayName>Bench\Items</DisplayName>
		<Entities Object="True"><Entity Object="True" Index="1">
			<EntityName>items</EntityName>
			<DBConnStr>Provider=SQLite;Data Source=$WORK/target.sqlite</DBConnStr>
			<TableName>items</TableName>
			<InitString>%3Cdiv class="item"%3E</InitString>
			<Attributes Object="True">
				<Attrib Object="True" Index="1"><ColumnName>name</ColumnName><StartTag>%3Ch2%3E</StartTag><EndTag>%3C/h2%3E</EndTag><Step>1</Step><ColumnSize>100</ColumnSize></Attrib>
				<Attrib Object="True" Index="2"><ColumnName>price</ColumnName><StartTag>%3Cspan class="price"%3E</StartTag><EndTag>%3C/span%3E</EndTag><Step>2</Step><ColumnType>NUMBER</ColumnType><ColumnSize>20</ColumnSize></Attrib>
			</Attributes>
		</Entity></Entities>
	</DataPage></DataPages>
	<Jobs Object="True">
		<Job Object="True" Index="1"><JobName>Bench\Extract</JobName><Tasks Object="True"><Task Object="True" Index="1">
			<TaskName>Fetch and extract</TaskName><Step>1</Step><DataPageId>Bench\Items</DataPageId>
			<TextForm>$SAVER</TextForm>$SOURCE
		</Task></Tasks></Job>
		<Job Object="True" Index="2"><JobName>Bench\Fetch</JobName><Tasks Object="True"><Task Object="True" Index="1">
			<TaskName>Fetch only</TaskName><Step>1</Step>
			<TextForm>[!TSK!]%3CTask Object="True"%3E%3CTaskType%3E1%3C/TaskType%3E%3C/Task%3E[iTSKi]$SAVER</TextForm>$SOURCE
		</Task></Tasks></Job>
	</Jobs>
</GleanwrightExport>
XML
"$GW" import "$WORK/bench.xml" >/dev/null

rules_rows() {
  local total=0 t n
  for t in $(sqlite3 "$RULES" "SELECT name FROM sqlite_master WHERE type='table' AND name NOT LIKE 'sqlite_%'"); do
    n=$(sqlite3 "$RULES" "SELECT COUNT(*) FROM \"$t\"")
    total=$((total + n))
  done
  echo "$total"
}

echo "pages: $PAGES of 20 KB from nginx at $NGINX_URL; MaxRequestsPerHost $PER_HOST; $(nproc) cores"
printf '%-12s %10s %12s %14s %14s %12s %8s %6s\n' run seconds "pages/s" "download p/s" "peak MB" \
  "rules rows/p" "CPU s" "load"
for name in ${GW_BENCH_JOBS:-Fetch Extract}; do
  job="Bench\\$name"
  before=$(rules_rows)
  # Wall time and the peak resident memory of the run, measured from the outside.
  # GW_BENCH_WRAP puts a profiler in front ("perf record -o /tmp/perf.data").
  # shellcheck disable=SC2086
  measure ${GW_BENCH_WRAP:-} "$GW" run "$job"
  read -r secs kb cpu status <"$WORK/time.txt"
  [ "$status" = 0 ] || { tail -20 "$WORK/run.log"; exit 1; }
  after=$(rules_rows)
  load=$(cut -d' ' -f1 /proc/loadavg)
  ok=$(sqlite3 "$RULES" "SELECT COUNT(*) FROM task_instance_docs d JOIN tasks t ON t.task_id = d.task_id JOIN jobs j ON j.job_id = t.job_id WHERE j.job_name = '$job' AND copy_completion_code = 'Success'")
  span=$(sqlite3 "$RULES" "SELECT (julianday(MAX(copy_completion_time)) - julianday(MIN(copy_completion_time))) * 86400 FROM task_instance_docs d JOIN tasks t ON t.task_id = d.task_id JOIN jobs j ON j.job_id = t.job_id WHERE j.job_name = '$job'")
  [ "$ok" -eq "$PAGES" ] || echo "warning: only $ok of $PAGES pages were saved ($job)"
  awk -v job="${job#Bench\\}" -v secs="$secs" -v kb="$kb" -v span="$span" -v pages="$PAGES" \
    -v rows="$((after - before))" -v cpu="$cpu" -v ld="$load" 'BEGIN {
      printf "%-12s %10.1f %12.0f %14.0f %14.1f %12.2f %8.1f %6s\n", job, secs, pages / secs,
        pages / (span + 0.001), kb / 1024, rows / pages, cpu, ld }'
done
