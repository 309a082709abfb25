#!/bin/sh
# A chain on one PostgreSQL server: STORES stores with 8 lines each (a department of their own,
# filled with department 1 of the demo), every line of every store syncing at once, each a
# `qkp sync` of its store's installation. Prints the total time, the records delivered per
# second and the CPU time the server spent.
#   bench/chain_bench.sh [BUILD_DIR] [STORES] [AT_ONCE]
# STORES defaults to 100, AT_ONCE (syncs running together) to 150: the test server takes 200
# connections, and a sync holds one (more at once and the server refuses the rest, which the
# summary counts). A server of its own is started in a temporary folder (tests/pg_cluster.sh) and
# removed after (KEEP=1 keeps the folder, with each sync's report and log).
set -eu
here=$(cd "$(dirname "$0")" && pwd)
qkp=$(realpath "${1:-build}/qkp")
stores=${2:-100}
at_once=${3:-150}
work=$(mktemp -d)
cleanup() { sh "$here/../tests/pg_cluster.sh" stop "$work" >/dev/null 2>&1 || true; rm -rf "$work"; }
trap cleanup EXIT
[ -n "${KEEP:-}" ] && trap - EXIT && echo "kept in $work"
sock=$(sh "$here/../tests/pg_cluster.sh" start "$work") || { echo "no PostgreSQL server: $sock"; exit 77; }
pgbin=$(ls -d /usr/lib/postgresql/*/bin | sort -V | tail -n 1)
"$pgbin/createdb" -h "$sock" -U qk chain
uri="postgresql://qk@/chain?host=$sock"

# The chain's master data: department 1 of the demo, once per store, and 8 lines per store.
"$qkp" --home "$work/demo" init --demo >/dev/null 2>&1
"$qkp" --home "$work/demo" export-csv "$work/demo-csv" >/dev/null 2>&1
python3 - "$work/demo-csv" "$work/chain-csv" "$stores" <<'PY'
import csv, os, shutil, sys
src, dst, stores = sys.argv[1], sys.argv[2], int(sys.argv[3])
os.makedirs(dst)
families = ["3000", "5000", "2000", "3000TOP", "VELTA", "KESTRA", "3000", "5000"]
for name in os.listdir(src):
    if not name.endswith(".csv"):
        continue
    with open(os.path.join(src, name), newline="") as f:
        rows = list(csv.reader(f))
    head, body = rows[0], rows[1:]
    with open(os.path.join(dst, name), "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(head)
        if name == "SCALE_LINES.csv":
            for s in range(1, stores + 1):
                for line, family in enumerate(families, 1):
                    w.writerow([s, line, family, line, f"s{s:03d}", "file:out/{dept}-{line}.txt"])
            continue
        dept = next((i for i, c in enumerate(head) if c.upper().endswith("BNC")), None)
        for s in range(1, stores + 1):
            for r in body:
                if dept is None:
                    if s == 1:
                        w.writerow(r)
                elif r[dept] == "1":
                    w.writerow(r[:dept] + [str(s)] + r[dept + 1:])
for s in range(1, stores + 1):
    shutil.copytree(os.path.join(src, "images", "1"), os.path.join(dst, "images", str(s)))
PY
"$qkp" --home "$work/office" init --archive "$uri" >/dev/null 2>&1
"$qkp" --home "$work/office" import-csv "$work/chain-csv" --replace >/dev/null 2>&1
s=1
while [ "$s" -le "$stores" ]; do
  store=$(printf 's%03d' "$s")
  "$qkp" --home "$work/$store" init --join "$uri" --store "$store" >/dev/null 2>&1
  mkdir -p "$work/$store/out"
  for line in 1 2 3 4 5 6 7 8; do echo "$work/$store $line"; done >>"$work/jobs"
  s=$((s + 1))
done

# The server's CPU time: the postmaster's own and that of its ended backends (ticks).
server_ticks() {
  pid=$(head -n 1 "$work/cluster/data/postmaster.pid")
  awk '{print $14 + $15 + $16 + $17}' "/proc/$pid/stat"
}
ticks=$(getconf CLK_TCK)
# Every line syncing at once: first with everything pending (a new chain), then again with
# nothing left (what each unattended pass costs the server).
timed_pass() {
before=$(server_ticks)
start=$(date +%s.%N)
QKP="$qkp" xargs -P "$at_once" -n 2 sh -c \
  '"$QKP" --home "$0" --format json sync --line "$1" >"$0/report-$1.json" 2>"$0/log-$1.txt" || true' \
  <"$work/jobs"
end=$(date +%s.%N)
after=$(server_ticks)
python3 - "$work" "$start" "$end" "$before" "$after" "$ticks" "$stores" "$1" <<'PY'
import glob, json, sys
work, start, end, before, after, ticks, stores, name = sys.argv[1:]
seconds = float(end) - float(start)
records = bytes_ = done = 0
outcomes = {}
refused = ""
for f in glob.glob(f"{work}/s*/report-*.json"):
    text = open(f).read().strip()
    r = json.loads(text) if text else {"outcome": "did not run"}
    if not text and not refused:
        refused = open(f.replace("report-", "log-").replace(".json", ".txt")).read().strip()
    outcomes[r["outcome"]] = outcomes.get(r["outcome"], 0) + 1
    records += r.get("records", 0)
    bytes_ += r.get("bytes", 0)
server = (int(after) - int(before)) / int(ticks)
print(f"{name}: {stores} stores x 8 lines: {sum(outcomes.values())} syncs {outcomes}")
print(f"{records} records, {bytes_} bytes delivered in {seconds:.1f} s: {records / seconds:.0f} records/s")
print(f"server CPU time {server:.1f} s ({server / max(1, sum(outcomes.values())) * 1000:.0f} ms per sync)")
if refused:
    print("a sync that did not run: " + refused.splitlines()[-1])
PY
}
timed_pass "everything pending"
timed_pass "up to date"
