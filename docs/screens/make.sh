#!/bin/sh
# Takes the pictures of docs/service.md: the page in chromium, on a fresh demo installation, as its
# test drives it (tests/browser_test.py).
#   docs/screens/make.sh [BUILD_DIR]
set -eu
here=$(dirname "$0")
exec python3 "$here/../../tests/browser_test.py" "${1:-build}/qkp" --screenshots "$here"
