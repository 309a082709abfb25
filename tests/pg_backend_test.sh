#!/bin/sh
# The archive on a PostgreSQL server this test starts itself (a throw-away cluster on a socket in
# a temporary folder, run as the postgres user when the test runs as root): an archive created
# and filled through qkp, full syncs byte for byte those of the same rows on SQLite, a sync that
# resets what it delivered, and two syncs of one line at once delivering each record once.
# Exit 77 (reported as skipped) when no server can be started.
set -eu
BUILD=$1
QKP="$BUILD/qkp"
T=$(mktemp -d)
CLUSTER="sh $(dirname "$0")/pg_cluster.sh"
trap '$CLUSTER stop "$T"; rm -rf "$T"' EXIT
if ! SOCKET=$($CLUSTER start "$T"); then
  echo "SKIPPED: $SOCKET"
  exit 77
fi
PGBIN=$(ls -d /usr/lib/postgresql/*/bin | sort -V | tail -n 1)
"$PGBIN/createdb" -h "$SOCKET" -U qk archive
URI="postgresql:///archive?host=$SOCKET&user=qk"

fail() { echo "FAILED: $*"; exit 1; }

# The same demo network on both backends.
"$QKP" --home "$T/lite" init --demo >/dev/null
"$QKP" --home "$T/lite" export-csv "$T/csv" >/dev/null
cp -r "$T/lite" "$T/pg"
rm -f "$T/pg"/Archivi.sqlite*
"$QKP" --home "$T/pg" settings set Appl Archive "$URI" >/dev/null
"$QKP" --home "$T/pg" status | grep -q "postgresql:///archive" || fail "status names the server"
"$QKP" --home "$T/pg" init >/dev/null
"$QKP" --home "$T/pg" init >/dev/null 2>&1 && fail "a second init must refuse to replace the archive"
"$QKP" --home "$T/pg" import-csv "$T/csv" >/dev/null
# The SQLite archive made the same way, so both hold the same flags.
"$QKP" --home "$T/lite" init --force >/dev/null
"$QKP" --home "$T/lite" import-csv "$T/csv" >/dev/null

# Everything but the date (which carries the time of sending), record by record.
for home in lite pg; do
  for line in 2 3; do
    "$QKP" --home "$T/$home" sync --full --line "$line" --exec \
      "if [ \"\$QK_KIND\" = date ]; then cat >/dev/null; else cat >>$T/$home-full; echo >>$T/$home-full; fi" >/dev/null 2>&1 ||
      true  # the demo's layouts bring warnings on both; the bytes are what is compared
  done
done
[ -s "$T/lite-full" ] || fail "nothing was sent from SQLite"
cmp "$T/lite-full" "$T/pg-full" || fail "the full syncs differ between SQLite and PostgreSQL"

# Two syncs of line 1 at once: one waits for the other, every record goes once, nothing stays.
"$QKP" --home "$T/pg" sync --line 1 --wait --separator lf --out "$T/a.bin" >"$T/a.log" 2>&1 &
A=$!
# Exit status 3: the one that waited found nothing pending.
"$QKP" --home "$T/pg" sync --line 1 --wait --separator lf --out "$T/b.bin" >"$T/b.log" 2>&1 || [ $? -eq 3 ] || fail "second sync: $(cat "$T/b.log")"
wait $A || [ $? -eq 3 ] || fail "first sync: $(cat "$T/a.log")"
cat "$T/a.bin" "$T/b.bin" >"$T/both.bin" 2>/dev/null || true  # the one that waited may find nothing
"$QKP" --home "$T/lite" sync --line 1 --separator lf --out "$T/lite1.bin" >/dev/null
[ "$(wc -l < "$T/both.bin")" -eq "$(wc -l < "$T/lite1.bin")" ] ||
  fail "line 1 got $(wc -l < "$T/both.bin") records from two syncs, $(wc -l < "$T/lite1.bin") from one on SQLite"
left=$("$QKP" --home "$T/pg" pending --line 1 | grep -v "^department\|nothing pending" || true)
[ -z "$left" ] || fail "still pending on line 1: $left"

# Another folder joins the server's archive: the rows are the same before and after, and the
# refusals name --join; --force without a terminal asks for --yes and drops nothing.
rows() { "$PGBIN/psql" -h "$SOCKET" -U qk -d archive -At -c \
  "select count(*), sum(hashtext(t::text)) from tastiera_plu t" 2>/dev/null; }
before=$(rows)
out=$("$QKP" --home "$T/other" init --archive "$URI" 2>&1) && fail "init replaced a chain's archive"
echo "$out" | grep -q "qkp init --join" || fail "the refusal does not name --join: $out"
"$QKP" --home "$T/other" init --join "$URI" >/dev/null 2>&1 || fail "init --join failed"
[ "$(rows)" = "$before" ] || fail "init --join changed the archive"
out=$("$QKP" --home "$T/other" lines 2>&1) || fail "the joined folder cannot read the archive: $out"
out=$("$QKP" --home "$T/other" init --force --archive "$URI" 2>&1 </dev/null) && fail "--force dropped rows unasked"
echo "$out" | grep -q "rows (every store that uses it loses them); add --yes" || fail "unclear: $out"
[ "$(rows)" = "$before" ] || fail "a refused --force changed the archive"
grep -q "s3cret" "$T/other/registry.xml" && fail "a password in the settings"

# A server that is not there is named.
"$QKP" --home "$T/pg" settings set Appl Archive "postgresql:///archive?host=$T/nowhere&user=qk" >/dev/null
out=$("$QKP" --home "$T/pg" sync --line 1 --out "$T/c.bin" 2>&1) && fail "a sync without its server succeeded"
echo "$out" | grep -q "cannot connect to the archive server postgresql:///archive" || fail "unclear: $out"
echo "PostgreSQL archive: all checks passed"
