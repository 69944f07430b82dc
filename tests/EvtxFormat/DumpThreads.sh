#!/bin/bash
# natc evtx dump --threads N prints exactly what one thread prints (events, messages, exit
# status), in the same order: on every shared sample and on a log of many chunks.
#   DumpThreads.sh NATC SHARED_DIR
set -euo pipefail
natc=$1
shared=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 "$shared/tools/make_big_evtx.py" "$work/many.evtx" 40 "$shared/samples/evtx" >/dev/null
checked=0
for log in "$shared"/samples/evtx/*.evtx "$work/many.evtx"; do
  for format in xml jsonl; do
    one=0
    several=0
    "$natc" evtx dump "$log" --format "$format" >"$work/one.out" 2>"$work/one.err" || one=$?
    "$natc" evtx dump "$log" --format "$format" --threads 3 >"$work/several.out" 2>"$work/several.err" || several=$?
    if ! cmp -s "$work/one.out" "$work/several.out" || ! cmp -s "$work/one.err" "$work/several.err" ||
      [ "$one" != "$several" ]; then
      echo "$(basename "$log") --format $format: --threads 3 differs from one thread" >&2
      exit 1
    fi
  done
  checked=$((checked + 1))
done
# A query is applied by every reader alike.
query='<QueryList><Query Id="0"><Select Path="*">*[System[Level=4]]</Select></Query></QueryList>'
"$natc" evtx dump "$work/many.evtx" --query "$query" >"$work/one.out"
"$natc" evtx dump "$work/many.evtx" --query "$query" --threads 2 >"$work/several.out"
cmp "$work/one.out" "$work/several.out"
[ -s "$work/one.out" ]

echo "$checked logs checked"
