#!/bin/sh
# Imports a generated TRACEABILITY.csv of ROWS lot rows (default 1,000,000; about 120 MB) into a
# fresh demo installation and prints the CSV's size, the time and the peak memory of qkp
# (/usr/bin/time). The import streams: the peak should not grow with the file (docs/archive.md).
#   bench/import_memory.sh [BUILD_DIR] [ROWS]
set -eu
build=${1:-build}
rows=${2:-1000000}
qkp="$build/qkp"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$qkp" --home "$work/demo" init --demo >/dev/null 2>&1
mkdir "$work/csv"
awk -v rows="$rows" 'BEGIN {
  print "TRC_BNC,TRC_ID,TRC_ROW,TRC_ID_LOT,TRC_DESC1,TRC_DESC2,TRC_DESC3,TRC_MODE"
  for (i = 0; i < rows; i++)
    printf "%d,%d,1,\"L%d-2026\",\"Lotto di produzione %d\",\"Origine: Italia\",\"Allevato in Italia\",1\n",
           1 + i % 3, 1000 + i, i, i
}' > "$work/csv/TRACEABILITY.csv"
size=$(wc -c < "$work/csv/TRACEABILITY.csv")
/usr/bin/time -f "%e %M" -o "$work/time" "$qkp" --home "$work/demo" import-csv "$work/csv" \
  --no-pending >/dev/null
read -r seconds kb < "$work/time"
echo "import-csv of $rows rows ($((size / 1048576)) MB): ${seconds} s, peak memory $((kb / 1024)) MB"
