#!/usr/bin/env bash
# Dump speed of `natc evtx dump --format xml` against libevtx's `evtxexport -f xml` on the same
# files, in one run, single-threaded, output to /dev/null. Prints MB/s, events/s and the ratio.
#   bench/evtx/run.sh [natc-binary] [samples-dir] [repeats]
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
natc=${1:-$root/build/tools/natc/natc}
samples=${2:-${NATC_SHARED_DIR:-$root/../shared}/samples/evtx}
repeats=${3:-5}
[ -x "$natc" ] || { echo "build natc first: scripts/build.sh release --target natc" >&2; exit 2; }
command -v evtxexport >/dev/null || { echo "evtxexport (libevtx-utils) is not installed" >&2; exit 2; }
mapfile -t files < <(find "$samples" -maxdepth 1 -name '*.evtx' | sort)
[ ${#files[@]} -gt 0 ] || { echo "no .evtx files in $samples" >&2; exit 2; }

bytes=0
for f in "${files[@]}"; do bytes=$((bytes + $(stat -c %s "$f"))); done
events=$({ "$natc" evtx dump "$samples" --format xml 2>/dev/null || true; } | wc -l)

# CPU seconds (user + system) of a command and its children: wall time is meaningless on a
# shared, loaded machine, and both tools are single-threaded.
cpu() { /usr/bin/time -f '%U %S' -o "$tmp" "$@" >/dev/null 2>&1 || true; awk '{print $1 + $2}' "$tmp"; }
tmp=$(mktemp)
trap 'rm -f "$tmp"' EXIT
export natc samples repeats
ours_total=$(cpu bash -c 'for ((i = 0; i < repeats; i++)); do "$natc" evtx dump "$samples" --format xml >/dev/null 2>&1 || true; done')
ours=$(echo "$ours_total / $repeats" | bc -l)
theirs=$(cpu bash -c 'for f in "$0"/*.evtx; do evtxexport -f xml "$f" >/dev/null 2>&1 || true; done' "$samples")
theirs_events=$(for f in "${files[@]}"; do evtxexport -f xml "$f" 2>/dev/null; done | grep -c '^<Event ' || true)
printf 'files: %d, %.1f MB, natc events: %d, evtxexport events: %d (CPU seconds, natc averaged over %d runs)\n' \
  "${#files[@]}" "$(echo "$bytes/1048576" | bc -l)" "$events" "$theirs_events" "$repeats"
printf 'natc evtx dump --format xml: %8.3f s  %8.1f MB/s  %10.0f events/s\n' "$ours" "$(echo "$bytes/1048576/$ours" | bc -l)" "$(echo "$events/$ours" | bc -l)"
printf 'evtxexport -f xml:           %8.3f s  %8.1f MB/s  %10.0f events/s\n' "$theirs" "$(echo "$bytes/1048576/$theirs" | bc -l)" "$(echo "$theirs_events/$theirs" | bc -l)"
printf 'ratio (events/s): %.1fx\n' "$(echo "($events/$ours) / ($theirs_events/$theirs)" | bc -l)"
