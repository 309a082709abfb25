#!/bin/sh
# The installed package as a host meets it: install into a fresh prefix, build the example host
# with find_package and with pkg-config, run it on a demo installation made by the installed qkp.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR
set -eu
build=$1
source=$2
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
test -f "$prefix/include/qk/clsBarCode.h"
test -f "$prefix/share/qk_protocol/Configurazione.xml"
test -f "$prefix/lib/pkgconfig/qk_protocol.pc" || test -f "$prefix"/lib*/pkgconfig/qk_protocol.pc
# Internals are not installed, and no public header reaches for them.
if grep -rq '#include "\(automation\|frame\|config\|builders\|layout\|images\|requests\)/' "$prefix/include/qk"; then
  echo "a public header includes an internal one" >&2
  exit 1
fi
# Libraries carry a SONAME with the major version.
soname=$(readelf -d "$prefix"/lib*/libqk_protocol.so | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
test "$soname" = "libqk_protocol.so.2"
# The archive companion's former name still links and loads, and its CMake target still exists.
test -e "$prefix"/lib*/libqk_sqlite_archive.so
test -e "$prefix"/lib*/libqk_sqlite_archive.so.2
grep -q 'QK::sqlite_archive' "$prefix"/lib*/cmake/QK_Protocol/QK_ProtocolConfig.cmake
# The libraries export their interface and nothing behind it: a sample of public symbols is
# there, a sample of internals (the frame, the encoders' helpers, pugixml, the companions' own
# classes) is not.
exported=$work/exported.txt
for lib in protocol archive translate registry sync; do
  nm -DC --defined-only "$prefix"/lib*/libqk_$lib.so >>"$exported"
done
for public in 'qk::clsSimple::DataOra' 'qk::clsBarCode::p_strProtocol' 'qk::host::start(' \
  'qk::automation::Variant::to_string' 'qk::register_archive()' 'qk::register_sqlite_archive()' \
  'qk::register_translations()' 'qk::sync::run_sync(' 'qk::sync::function_transport('; do
  grep -qF "$public" "$exported" || { echo "not exported: $public" >&2; exit 1; }
done
for internal in 'qk::images::compress_byte' 'qk::totals_query' 'qk::layout::image_file_name' \
  'qk::config::load_document' 'qk::images::m_strBitmap2Scales' 'qk::numeric_record::' \
  'qk::automation::format_digits' 'pugi::' 'qk::SqliteArchive' 'qk::PgArchive' 'qk::clsRegistry::' \
  'qk::sync::ContentHash' 'qk::sync::sha256_hex'; do
  if grep -qF "$internal" "$exported"; then echo "exported but internal: $internal" >&2; exit 1; fi
done

"$prefix/bin/qkp" --home "$work/shop" init --demo
"$prefix/bin/qkp" --version | grep -q '^qkp 2\.'
# The version header says the same version as the tool and the library's SONAME.
grep -q "#define QK_VERSION \"$("$prefix/bin/qkp" --version | cut -d' ' -f2)\"" "$prefix/include/qk/version.h"
grep -q '#define QK_VERSION_MAJOR 2$' "$prefix/include/qk/version.h"

# find_package(QK_Protocol CONFIG)
cmake -S "$source/examples/host_barcodes" -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/example" >/dev/null
"$work/example/host_barcodes" "$work/shop" 1 >"$work/first.txt"
cat >"$work/expected.txt" <<'END'
line 1: 189999001A06B13
line 1: 189999002P05W05C01
line 2: 189999002P05W05C01
END
diff -u "$work/expected.txt" "$work/first.txt"
# Every served line was reset: a second run sends nothing.
"$work/example/host_barcodes" "$work/shop" 1 >"$work/second.txt"
test ! -s "$work/second.txt"

# A host's guarded sync through QK::sync, with its own transport: somebody adds a row to lot 12
# while the lot is being sent, and that lot stays pending while everything else is reset.
cmake -S "$source/examples/host_sync" -B "$work/host_sync" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/host_sync" >/dev/null
"$prefix/bin/qkp" --home "$work/guarded" init --demo 2>/dev/null
mkdir "$work/edits"
cat >"$work/edits/TRACEABILITY.csv" <<'END'
TRC_BNC,TRC_ID,TRC_ROW,TRC_ID_LOT,TRC_DESC1,TRC_FLAGTRASM
1,12,2,"L12-2026","Added while sent",11111111
END
during="if [ \$QK_DEPT = 1 ] && [ \$QK_KIND = lots ] && [ \$QK_ID = 12 ]; then $prefix/bin/qkp --home $work/guarded import-csv $work/edits >/dev/null; fi"
"$work/host_sync/host_sync" "$work/guarded" 2 "$work/guarded.txt" "$during" >"$work/host.txt" 2>&1
grep -q "lot 12: changed in the archive while it was sent" "$work/host.txt"
"$prefix/bin/qkp" --home "$work/guarded" pending --line 2 >"$work/left.txt"
test "$(grep -c 'lot' "$work/left.txt")" = 1
grep -q 'lot 12' "$work/left.txt"
"$prefix/bin/qkp" --home "$work/guarded" runs | grep -q 'host_sync'
# The next run sends the lot with its new row and leaves nothing pending.
"$work/host_sync/host_sync" "$work/guarded" 2 "$work/guarded.txt" >/dev/null 2>&1
grep -q "Added while sent" "$work/guarded.txt"
status=0
"$prefix/bin/qkp" --home "$work/guarded" pending --line 2 >/dev/null || status=$?
test "$status" = 3

# pkg-config
export PKG_CONFIG_PATH="$(dirname "$(ls "$prefix"/lib*/pkgconfig/qk_protocol.pc)")"
c++ -o "$work/by_pkg_config" "$source/examples/host_barcodes/main.cpp" \
  $(pkg-config --cflags --libs qk_protocol) -Wl,-rpath,"$prefix/lib"
"$work/by_pkg_config" "$work/shop" 2 >"$work/pkg.txt"
grep -q '^line 1: 189999001A06B13$' "$work/pkg.txt"
c++ -o "$work/sync_by_pkg_config" "$source/examples/host_sync/main.cpp" \
  $(pkg-config --cflags --libs qk_protocol) -Wl,-rpath,"$prefix/lib"
"$work/sync_by_pkg_config" "$work/shop" 3 "$work/line3.txt" >/dev/null 2>&1
test -s "$work/line3.txt"

# Without --home and QK_HOME the installed qkp uses the data folder, never its libraries'.
env -u QK_HOME XDG_DATA_HOME="$work/xdg" "$prefix/bin/qkp" init --demo 2>/dev/null
test -f "$work/xdg/qk_protocol/Archivi.sqlite"
test ! -e "$prefix/lib/Archivi.sqlite"
env -u QK_HOME XDG_DATA_HOME="$work/xdg" "$prefix/bin/qkp" status >"$work/status.txt"
grep -q "^installation folder  $work/xdg/qk_protocol (the data folder" "$work/status.txt"
if [ "$(id -u)" != 0 ]; then
  env -u QK_HOME -u XDG_DATA_HOME HOME="$work/user" "$prefix/bin/qkp" init 2>/dev/null
  test -f "$work/user/.local/share/qk_protocol/Archivi.sqlite"
fi

# The example senders are installed beside the templates.
test -x "$prefix/share/qk_protocol/senders/tcp_sender.py"
test -f "$prefix/share/qk_protocol/senders/qk_sender.py"
test ! -e "$prefix/share/qk_protocol/senders/test_senders.py"

# The Python module, from the prefix: in Python's own layout, on PYTHONPATH.
if [ -n "${QK_PYTHON:-}" ]; then
  module=$(ls "$prefix"/lib/python3*/*-packages/qk_protocol*.so)
  PYTHONPATH=$(dirname "$module") "$QK_PYTHON" -c 'import qk_protocol; print(qk_protocol.__file__)' \
    | grep -q "^$prefix/"
  # A class made before start() says what to do.
  PYTHONPATH=$(dirname "$module") "$QK_PYTHON" -c 'import qk_protocol; qk_protocol.clsBarCode()' \
    2>"$work/early.txt" && exit 1
  grep -q "RuntimeError: call qk_protocol.start() before creating a class" "$work/early.txt"
  # A host that leaves the message boxes to the default sees no box while Debug/Silent is "Y"
  # (the default), and the error reporter's box once it is "N"; the reports reach it either way.
  for silent in Y N; do
    "$prefix/bin/qkp" --home "$work/shop" settings set Debug Silent "$silent" >/dev/null
    PYTHONPATH=$(dirname "$module") "$QK_PYTHON" - "$work/shop" 2>"$work/boxes.txt" <<'END'
import sys, qk_protocol as qk
reports = []
qk.start(sys.argv[1], on_error=lambda *report: reports.append(report))
qk.clsAbbinamentoTasti()  # reads the silent setting, as every key class does
lots = qk.clsTraceability()
lots.p_lngBnc = 1
lots.p_strTraceabilityId = "abc"
lots.p_3000_strProtocol
assert reports, "no error was reported"
END
    if [ "$silent" = Y ]; then test ! -s "$work/boxes.txt"; else grep -q '^\[Error\]' "$work/boxes.txt"; fi
  done
  # The daily job from Python delivers what qkp sync delivers, byte for byte (the date records,
  # which carry the time of sending, are left out of both).
  "$prefix/bin/qkp" --home "$work/by_python" init --demo 2>/dev/null
  cp -r "$work/by_python" "$work/by_qkp"
  "$prefix/bin/qkp" --home "$work/by_qkp" sync --line 1 --out "$work/qkp_sync.txt" 2>/dev/null
  PYTHONPATH=$(dirname "$module") "$QK_PYTHON" - "$work" <<'END'
import sys, qk_protocol
work = sys.argv[1]
qk_protocol.start(work + "/by_python")
assert qk_protocol.pending(line=1), "nothing pending on a new demo"
dates = []
with open(work + "/python_sync.txt", "wb") as out:
    def deliver(data, dept, line, scale, family, kind, id):
        if kind == "date":
            dates.append(out.tell())
        out.write(data + b"\r\n")
    report = qk_protocol.sync(line=1, deliver=deliver)
assert report["status"] == "done" and report["records"] > 0, report
assert qk_protocol.pending(line=1) == []
open(work + "/python_dates.txt", "w").write("".join(f"{d}\n" for d in dates))
END
  drop_dates() { LC_ALL=C awk 'BEGIN { at = 0 } NR==FNR { skip[$1] = 1; next } { if (!(at in skip)) print; at += length($0) + 1 }' "$work/python_dates.txt" "$1"; }
  drop_dates "$work/python_sync.txt" >"$work/python_rest.txt"
  drop_dates "$work/qkp_sync.txt" >"$work/qkp_rest.txt"
  test -s "$work/qkp_rest.txt"
  cmp "$work/python_rest.txt" "$work/qkp_rest.txt"
fi
echo "installed package: ok"
