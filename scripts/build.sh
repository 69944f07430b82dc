#!/usr/bin/env bash
# Configures and builds one flavour of the project.
#   scripts/build.sh [release|asan|tsan] [cmake --build arguments...]
# Build trees: build/ (release), build-asan/ (ASan + UBSan), build-tsan/ (TSan).
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
  *) echo "usage: $0 [release|asan|tsan] [build args...]" >&2; exit 2 ;;
esac
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja -DNATC_SANITIZE="$sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$dir" "$@"
