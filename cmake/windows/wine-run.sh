#!/usr/bin/env bash
# Runs a Windows program of the MinGW-w64 build under Wine (the tests' CMAKE_CROSSCOMPILING_EMULATOR):
#   wine-run.sh PREFIX program.exe [arguments...]
# PREFIX is the Wine prefix inside the build tree, made on first use. A wineserver that stays up
# for a while after the last program ends makes each further start cost a fraction of a second.
set -euo pipefail
prefix=$1
shift
wine=${NATC_WINE:-/usr/lib/wine/wine64}
wineserver=${NATC_WINESERVER:-/usr/lib/wine/wineserver}
export WINEPREFIX=$prefix WINEDEBUG=${WINEDEBUG:--all} WINEDLLOVERRIDES="mscoree,mshtml=" WINEARCH=win64
if [ ! -f "$prefix/system.reg" ]; then
  # Concurrent first runs (ctest -j) make the prefix once.
  mkdir -p "$(dirname "$prefix")"
  exec 9>"$prefix.lock"
  flock 9
  [ -f "$prefix/system.reg" ] || "$wine" wineboot --init >/dev/null 2>&1
  flock -u 9
fi
"$wineserver" -p 30 2>/dev/null || true
exec "$wine" "$@"
