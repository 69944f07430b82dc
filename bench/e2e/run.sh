#!/bin/bash
# End-to-end CPU figures on one large log: the .evtx dump (one thread and --threads 2),
# `natc events` (one update as JSON lines) and `natc run` until its first update ends, also with
# `--state` (and the wall-clock time of both runs).
#   bash bench/e2e/run.sh [NATC] [ROUNDS] [LOG]
# NATC defaults to build/tools/natc/natc, ROUNDS to 5, LOG to /tmp/big.evtx (made from the shared
# samples when missing). Rounds interleave the measures; each figure is the best round's user +
# system CPU seconds of the whole process (GNU time), with its peak RSS. The --threads 2
# speed-up is wall-clock time (hyperfine) with both runs pinned to CPUs 0 and 1 (taskset), the
# output sent to /dev/null and then through a pipe;
# the load average before and after is printed, since other processes' share distorts it.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
natc=$(realpath "${1:-$root/build/tools/natc/natc}")
rounds=${2:-5}
log=${3:-/tmp/big.evtx}
shared=$root/../shared
if [ ! -s "$log" ]; then
  python3 "$shared/tools/make_big_evtx.py" "$log" 1500 "$shared/samples/evtx"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/host"
ln -s "$(realpath "$log")" "$work/host/Security.evtx"
cat > "$work/run.json" <<JSON
{
  "hosts": [{"id": "logs", "name": "$work/host"}],
  "tasks": [{"name": "e2e", "host": "logs",
             "collections": [{"type": "WindowsEvents", "period": 3600, "filters": [{"path": "Security"}]}]}]
}
JSON
threads=no
if "$natc" evtx dump "$log" --format xml --threads 2 >/dev/null 2>&1; then threads=yes; fi

# Runs one measure: appends "user+sys maxrss_kb" to $work/NAME.
measure() {
  local name=$1
  shift
  /usr/bin/time -f '%U %S %M' -o "$work/t" "$@" >/dev/null 2>"$work/err" || {
    cat "$work/err" >&2
    return 1
  }
  awk '{printf "%.2f %d\n", $1 + $2, $3}' "$work/t" >>"$work/$name"
}

# natc run has no end of its own: stop it with SIGTERM once its log says the first update's
# "Running". Its records go to /dev/null as those of natc events do: a pipe would add the
# kernel's copy of every line to one side of the comparison only.
# measure_run NAME [ARGS...] also keeps the wall-clock seconds in NAME.wall.
measure_run() {
  local name=$1
  shift
  rm -f "$work/pid" "$work/state.json"
  /usr/bin/time -f '%U %S %M %e' -o "$work/t" sh -c 'echo $$ >"$1"; shift; exec "$@"' sh "$work/pid" \
    "$natc" run "$work/run.json" "$@" 2>&1 >/dev/null |
    {
      grep -m1 -q 'New state: Running' || true
      kill -TERM "$(cat "$work/pid")"
      cat >/dev/null
    }
  awk '{printf "%.2f %d\n", $1 + $2, $3}' "$work/t" >>"$work/$name"
  awk '{printf "%.2f\n", $4}' "$work/t" >>"$work/$name.wall"
}

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
for ((round = 1; round <= rounds; ++round)); do
  measure dump "$natc" evtx dump "$log" --format xml
  measure events "$natc" events --logs "$work/host" --channel Security --once
  if [ $threads = yes ]; then
    measure dump2 "$natc" evtx dump "$log" --format xml --threads 2
  fi
  measure_run run
  # The state file is saved (fsync, rename) after every 99 records: that costs wall-clock time.
  measure_run state --state "$work/state.json"
done

best() { sort -n "$work/$1" | head -1 | cut -d' ' -f1; }
rss() { sort -n "$work/$1" | head -1 | cut -d' ' -f2; }
echo "log: $log ($(stat -c %s "$log") bytes), $rounds interleaved rounds, best CPU seconds (user+sys)"
printf '%-48s %6s s  %7s KB\n' "natc evtx dump --format xml" "$(best dump)" "$(rss dump)"
printf '%-48s %6s s  %7s KB\n' "natc events --once" "$(best events)" "$(rss events)"
printf '%-48s %6s s  %7s KB\n' "natc run (until the first update ends)" "$(best run)" "$(rss run)"
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }'; }
printf '%-48s %6s s  %7s KB\n' "natc run --state (until the first update ends)" "$(best state)" "$(rss state)"
wall() { sort -n "$work/$1.wall" | head -1; }
echo "natc run wall clock (best): $(wall run) s; with --state: $(wall state) s"
echo "events / dump: $(ratio "$(best events)" "$(best dump)")"
echo "run / events:  $(ratio "$(best run)" "$(best events)")"
if [ $threads = yes ]; then
  printf '%-48s %6s s  %7s KB\n' "natc evtx dump --format xml --threads 2" "$(best dump2)" "$(rss dump2)"
  # The speed-up is wall-clock time: the threaded dump's CPU time is spread over the cores (on
  # a loaded machine, other processes' share distorts it).
  if command -v hyperfine >/dev/null; then
    pin=()
    if command -v taskset >/dev/null && [ "$(nproc)" -ge 2 ]; then pin=(taskset -c 0,1); fi
    # A dump takes about 0.1 s and single runs vary by half of that: take the best of many. The
    # output goes to /dev/null, then into a pipe that hyperfine reads, as a consumer would: the
    # reading process then needs its share of the same two cores.
    for where in null pipe; do
      hyperfine -N -w 3 -r $((rounds * 8)) --output=$where --export-json "$work/h.json" \
        "${pin[*]} $natc evtx dump $log --format xml" "${pin[*]} $natc evtx dump $log --format xml --threads 2" \
        >/dev/null 2>&1 || true
      python3 - "$work/h.json" "${pin[*]:-unpinned}" "$where" <<'PY'
import json, sys
r = json.load(open(sys.argv[1]))["results"]
one, two = min(r[0]["times"]), min(r[1]["times"])
print(f"dump wall clock ({sys.argv[2]}, output to {sys.argv[3]}): one thread {one:.3f} s, --threads 2 {two:.3f} s, "
      f"speed-up {one / two:.2f}x")
PY
    done
  fi
fi
echo "load average (1, 5, 15 min) before: $load_before, after: $(cut -d' ' -f1-3 /proc/loadavg); $(nproc) CPUs"
