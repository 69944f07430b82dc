#!/usr/bin/env bash
# The Windows leg of the tests: the MinGW-w64 build (scripts/build.sh windows) and its tests under
# Wine. One persistent wineserver serves every test start (about 0.3 s each instead of seconds);
# it is killed when the leg ends, also on failure. Tests labelled wine_gap are left out: Wine
# deviates from Windows there (README, "Building for Windows").
#   bash scripts/test-windows.sh [ctest arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
wineserver=${NATC_WINESERVER:-/usr/lib/wine/wineserver}
bash scripts/build.sh windows
prefix=$PWD/build-windows/wine-prefix
mkdir -p "$prefix"
trap 'WINEPREFIX="$prefix" "$wineserver" -k 2>/dev/null || true' EXIT
# Fails when a server of this prefix is already up (a test run just before): that one serves.
WINEPREFIX=$prefix "$wineserver" -p || true
# The services start now, with no test's output pipes to hold open.
bash cmake/windows/wine-run.sh "$prefix" wineboot </dev/null >/dev/null 2>&1
ctest --test-dir build-windows --output-on-failure -j "$jobs" --timeout 900 -LE wine_gap "$@"
