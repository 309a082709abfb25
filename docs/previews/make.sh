#!/bin/sh
# Draws the pictures of docs/previews.md from a fresh demo installation:
#   docs/previews/make.sh [BUILD_DIR] [OUT_DIR]
# The test Previews.DocPicturesAreCurrent runs it into a temporary folder and compares the SVGs.
set -eu
build=${1:-build}
out=${2:-$(dirname "$0")}
qkp="$build/qkp"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$qkp" --home "$work/demo" init --demo >/dev/null 2>&1
q() { "$qkp" --home "$work/demo" "$@" 2>/dev/null || true; }
q layout preview --dept 1 --layout 1 --out "$out/layout-1-1.svg"
q layout preview --dept 1 --layout 2 --family 5000 --out "$out/layout-1-2-5000.svg"
q lines --svg "$out/lines.svg"
q image preview --file "$work/demo/images/WIDE.BMP" --kind kestra --png "$out/wide-kestra.png"
q image preview --file "$work/demo/images/LOGO.BMP" --png "$out/logo-scale.png"
