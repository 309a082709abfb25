#!/bin/sh
# The service's systemd units as installed: systemd's own checker accepts them (the template as one
# store's instance). Skipped, with the reason, where systemd's tools are not installed.
# Usage: unit_files_test.sh BUILD_DIR
set -eu
if ! command -v systemd-analyze >/dev/null 2>&1; then
  echo "skipped: systemd-analyze is not installed (package systemd)"
  exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >/dev/null
units=$work/prefix/lib/systemd/system
grep -qx "ExecStart=$work/prefix/bin/qkp serve" "$units/qkp.service"
cp "$units/qkp@.service" "$work/qkp@store-a.service"
systemd-analyze verify "$units/qkp.service" "$work/qkp@store-a.service"
