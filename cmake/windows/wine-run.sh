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
mkdir -p "$(dirname "$prefix")"
# Concurrent starts (ctest -j) make the prefix and start the server once. A server started here
# gets the system's services (services.exe, rpcss...) from a wineboot whose output goes nowhere:
# they outlive the program, and holding a test's output pipes they would keep ctest waiting.
exec 9>"$prefix.lock"
flock 9
if [ ! -f "$prefix/system.reg" ]; then
  "$wine" wineboot --init </dev/null >/dev/null 2>&1
elif "$wineserver" -p 30 2>/dev/null; then
  "$wine" wineboot </dev/null >/dev/null 2>&1 || true
fi
"$wineserver" -p 30 2>/dev/null || true
flock -u 9
exec 9>&-
exec "$wine" "$@"
