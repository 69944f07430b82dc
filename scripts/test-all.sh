#!/usr/bin/env bash
# Builds and runs every test: plainly, under ASan + UBSan, and the threading tests under TSan.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/check-readme-commands.sh
jobs=$(nproc)

echo "== release build and tests"
bash scripts/build.sh release
ctest --test-dir build --output-on-failure -j "$jobs" --timeout 600

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
bash scripts/build.sh asan --target all_tests
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs" --timeout 900 -LE nosan

echo "== ThreadSanitizer (threading tests)"
bash scripts/build.sh tsan --target threading_tests
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs" --timeout 900 -L threading
