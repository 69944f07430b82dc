#!/bin/bash
# natc events prints, for every shared sample log, lines that Python's json and jq both parse,
# each record with the eight event fields in their order.
#   EventsJsonLines.sh NATC SAMPLES_DIR
set -euo pipefail
natc=$1
samples=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
checked=0
for log in "$samples"/*.evtx; do
  name=$(basename "$log" .evtx)
  rm -rf "$work/host"
  mkdir "$work/host"
  cp "$log" "$work/host/$name.evtx"
  # The channel path of a file name: "%4" stands for "/".
  channel=${name//%4//}
  "$natc" events --logs "$work/host" --channel "$channel" --once >"$work/out" 2>"$work/err" || true
  python3 - "$work/out" "$name" <<'PY'
import json, sys
fields = ["SourceName", "Description", "CreatedTime", "InitiatedBy", "EventType", "Data", "EventCode", "InternalId"]
records = 0
with open(sys.argv[1], "rb") as lines:
    for number, line in enumerate(lines, 1):
        value = json.loads(line.decode("utf-8"))
        if "fields" in value:
            records += 1
            if list(value["fields"]) != fields:
                sys.exit(f"{sys.argv[2]}: line {number}: fields {list(value['fields'])}")
if records == 0:
    sys.exit(f"{sys.argv[2]}: no record printed")
PY
  jq -R 'fromjson | length' "$work/out" >/dev/null || {
    echo "$name: jq cannot parse a line" >&2
    exit 1
  }
  checked=$((checked + 1))
done
echo "$checked logs checked"
[ "$checked" -gt 0 ]
