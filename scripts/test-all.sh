#!/usr/bin/env bash
# Builds and runs every test: plainly, under ASan + UBSan, the threading tests under TSan, and
# the Windows build's tests under Wine. Each leg ends with a line "leg NAME SECONDS".
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/check-readme-commands.sh
jobs=$(nproc)
leg_start=$SECONDS
leg_end() {
  echo "leg $1 $((SECONDS - leg_start))"
  leg_start=$SECONDS
}

echo "== release build and tests"
bash scripts/build.sh release
ctest --test-dir build --output-on-failure -j "$jobs" --timeout 600
leg_end release

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
bash scripts/build.sh asan --target all_tests
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs" --timeout 900 -LE nosan
leg_end asan

echo "== ThreadSanitizer (threading tests)"
bash scripts/build.sh tsan --target threading_tests
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs" --timeout 900 -L threading
leg_end tsan

# After the release leg: natc.exe's output is compared with the release tree's natc.
echo "== Windows (MinGW-w64) build and its tests under Wine"
bash scripts/test-windows.sh
leg_end windows
