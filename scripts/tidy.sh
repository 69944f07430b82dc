#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy over first-party sources, two at a time.
#   scripts/tidy.sh [paths...]   files or folders; default: every first-party .cpp
# Uses the compile database of build/ (configured on first use). Headers are checked through
# the sources that include them. Exits 1 when any warning or error is reported.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
tidy=$(command -v clang-tidy-14 || command -v clang-tidy)
if [ ! -f build/compile_commands.json ]; then
  cmake -S . -B build -G Ninja -DNATC_SANITIZE= -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi

# The sources to check: entries of the database below the given paths (outside the build trees).
mapfile -t files < <(python3 - "$root" "$@" <<'PY'
import json, os, sys
root, wanted = sys.argv[1], [os.path.realpath(p) for p in sys.argv[2:]] or [sys.argv[1]]
seen = set()
for entry in json.load(open(os.path.join(root, "build", "compile_commands.json"))):
    path = os.path.realpath(os.path.join(entry["directory"], entry["file"]))
    rel = os.path.relpath(path, root)
    if rel.startswith("..") or rel.split(os.sep)[0].startswith("build") or path in seen:
        continue
    if any(path == w or path.startswith(w + os.sep) for w in wanted):
        seen.add(path)
        print(path)
PY
)
if [ ${#files[@]} -eq 0 ]; then
  echo "tidy: no source of the compile database matches: $*" >&2
  exit 2
fi

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
echo "tidy: ${#files[@]} sources" >&2
# One report a source; clang-tidy's own exit status is judged below from the reports.
printf '%s\0' "${files[@]}" | xargs -0 -P2 -I{} sh -c \
  'exec "$1" -p build --quiet --header-filter="^$4/" "$2" >"$3/$(echo "$2" | md5sum | cut -c1-16).txt" 2>/dev/null || true' \
  sh "$tidy" {} "$out" "$root"

# A header's finding shows up once for every source that includes it: print each once.
python3 - "$out" <<'PY'
import glob, re, sys
head = re.compile(r"^(?:\S.*?:\d+:\d+: )?(warning|error|note): ")
shown, count = set(), 0
for report in sorted(glob.glob(sys.argv[1] + "/*.txt")):
    block = []
    def flush():
        global count
        if block and block[0] not in shown:
            shown.add(block[0])
            count += 1
            sys.stdout.write("".join(block))
    for line in open(report, errors="replace"):
        m = head.match(line)
        if m and m.group(1) != "note":
            flush()
            block = [line]
        elif block:
            block.append(line)
    flush()
print(f"tidy: {count} finding(s)", file=sys.stderr)
sys.exit(1 if count else 0)
PY
