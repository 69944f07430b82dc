#!/usr/bin/env bash
# Configures and builds one flavour of the project.
#   scripts/build.sh [release|asan|tsan|windows] [cmake --build arguments...]
# Build trees: build/ (release), build-asan/ (ASan + UBSan), build-tsan/ (TSan), build-windows/
# (MinGW-w64 cross build; its dependencies are built first by scripts/windows-deps.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
# Cache hits should not depend on where the checkout lives (CI builds in a fresh clone).
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1 CCACHE_MAXSIZE=${CCACHE_MAXSIZE:-5G}
flavour=${1:-release}
shift || true
case "$flavour" in
  release) dir=build; sanitize="" ;;
  asan)    dir=build-asan; sanitize=address ;;
  tsan)    dir=build-tsan; sanitize=thread ;;
  windows) dir=build-windows; sanitize="" ;;
  *) echo "usage: $0 [release|asan|tsan|windows] [build args...]" >&2; exit 2 ;;
esac
if [ "$flavour" = windows ]; then
  bash scripts/windows-deps.sh "$dir/deps"
  if [ ! -f "$dir/build.ninja" ]; then
    cmake -S . -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/windows/mingw-w64-x86_64.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNATC_BUILD_BENCH=OFF >/dev/null
  fi
fi
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja -DNATC_SANITIZE="$sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$dir" "$@"
