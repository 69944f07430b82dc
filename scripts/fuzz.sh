#!/usr/bin/env bash
# Builds the fuzz targets with clang's libFuzzer (+ ASan/UBSan) and runs each for a while.
#   scripts/fuzz.sh [seconds-per-target] [target...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-300}
shift || true
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DNATC_FUZZ=ON -DNATC_SANITIZE=address \
  -DNATC_BUILD_TESTS=OFF -DNATC_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(find fuzz -mindepth 1 -maxdepth 1 -type d ! -name common -printf '%f\n' | sort)
fi
for t in "${targets[@]}"; do
  cmake --build build-fuzz --target "fuzz_$t"
  corpus_seed="fuzz/$t/corpus"
  work="build-fuzz/corpus-$t"
  mkdir -p "$work"
  echo "== fuzz_$t for ${seconds}s"
  "build-fuzz/fuzz/$t/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 "$work" "$corpus_seed"
done
