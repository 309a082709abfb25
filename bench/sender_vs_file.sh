#!/bin/sh
# Times a full sync of line 1 of the large demo network to a file (--out) and through a persistent
# sender (--sender, the loopback example), each on a fresh copy, and prints the ratio.
#   bench/sender_vs_file.sh [BUILD_DIR] [PYTHON]
set -eu
build=${1:-build}
python=${2:-python3}
here=$(cd "$(dirname "$0")/.." && pwd)
qkp="$build/qkp"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$qkp" --home "$work/demo" init --demo --size large >/dev/null 2>&1
seconds() { sed -n 's/.*delivered in \([0-9.]*\) s$/\1/p'; }
best() {  # the best of three runs, each on a fresh copy
  b=""
  for i in 1 2 3; do
    rm -rf "$work/run" "$work"/out*
    cp -r "$work/demo" "$work/run"
    t=$(eval "\"$qkp\" --home \"$work/run\" sync --line 1 --full $1" 2>&1 | seconds)
    if [ -z "$b" ] || awk "BEGIN { exit !($t < $b) }"; then b=$t; fi
  done
  echo "$b"
}
file=$(best "--out $work/out.bin")
sender=$(best "--sender '$python $here/examples/senders/loopback_sender.py $work/out.sent'")
echo "sync of line 1 (large demo): --out ${file} s, --sender ${sender} s, ratio $(awk "BEGIN { printf \"%.2f\", $sender / $file }")"
