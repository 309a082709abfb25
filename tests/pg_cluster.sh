#!/bin/sh
# A throw-away PostgreSQL cluster for the tests, listening only on a socket in FOLDER.
#   pg_cluster.sh start FOLDER   initdb + start; prints the socket folder. Exit 77 with the reason
#                                when no server can be started (not installed, initdb refused…).
#   pg_cluster.sh stop FOLDER    stops it (the caller removes FOLDER).
# As root the server runs as the postgres user, which PostgreSQL requires.
set -u
what=$1
T=$2
PGBIN=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)
AS=""
[ "$(id -u)" = 0 ] && AS="runuser -u postgres --"
case "$what" in
stop)
  [ -n "$PGBIN" ] && $AS "$PGBIN/pg_ctl" -D "$T/cluster/data" -m immediate stop >/dev/null 2>&1
  exit 0 ;;
start) ;;
*) echo "usage: pg_cluster.sh start|stop FOLDER" >&2; exit 2 ;;
esac
if [ -z "$PGBIN" ] || [ ! -x "$PGBIN/initdb" ]; then
  echo "no PostgreSQL server installed (package postgresql)"
  exit 77
fi
mkdir -p "$T/cluster" || exit 1
chmod 755 "$T" "$T/cluster"
[ -n "$AS" ] && chown postgres "$T/cluster"
if ! $AS "$PGBIN/initdb" -D "$T/cluster/data" -A trust -U qk --no-sync >"$T/cluster/initdb.log" 2>&1 ||
   ! $AS "$PGBIN/pg_ctl" -D "$T/cluster/data" -l "$T/cluster/log" -w \
     -o "-k $T/cluster -c listen_addresses='' -c fsync=off -c max_connections=200" start >/dev/null 2>&1; then
  echo "the PostgreSQL server could not be started:"
  cat "$T/cluster/initdb.log" "$T/cluster/log" 2>/dev/null | tail -n 5
  exit 77
fi
echo "$T/cluster"
