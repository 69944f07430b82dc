#!/usr/bin/env bash
# Builds the Windows (MinGW-w64) dependencies into a cache folder of the Windows build tree:
#   scripts/windows-deps.sh [DEPS_DIR]        (default build-windows/deps)
# pugixml and Boost.Thread come from their Debian source packages (apt-get source, see the
# deb-src entry of scripts/setup.sh), GoogleTest/GoogleMock from /usr/src/googletest. fmt, spdlog,
# nlohmann-json, RapidJSON and the Boost headers are Debian's own, used header-only: DEPS_DIR/prefix/include
# links to just those folders, so that no Linux system header is ever on the include path.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
deps=$(realpath -m "${1:-build-windows/deps}")
toolchain=$root/cmake/windows/mingw-w64-x86_64.cmake
prefix=$deps/prefix
mkdir -p "$deps/src" "$prefix/include" "$prefix/lib"

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
configure() { # configure SOURCE BUILD [cmake args...]
  local source=$1 build=$2
  shift 2
  cmake -S "$source" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" "${launcher[@]}" "$@" >/dev/null
  cmake --build "$build"
  cmake --install "$build" >/dev/null
}

for dir in boost fmt spdlog nlohmann rapidjson; do
  ln -sfn "/usr/include/$dir" "$prefix/include/$dir"
done

if [ ! -f "$prefix/lib/libpugixml.a" ]; then
  echo "windows-deps: pugixml"
  (cd "$deps/src" && rm -rf pugixml-* && apt-get source -qq pugixml >/dev/null 2>&1)
  source=$(find "$deps/src" -maxdepth 1 -type d -name 'pugixml-*' | head -n1)
  configure "$source" "$deps/build/pugixml" -DBUILD_SHARED_LIBS=OFF -DPUGIXML_BUILD_TESTS=OFF
fi

if [ ! -f "$prefix/lib/libgmock.a" ]; then
  echo "windows-deps: googletest"
  configure /usr/src/googletest "$deps/build/googletest" -DBUILD_GMOCK=ON -DINSTALL_GTEST=ON
fi

if [ ! -f "$prefix/lib/libboost_thread.a" ]; then
  echo "windows-deps: Boost.Thread"
  # Only libs/thread/src is unpacked from the Boost tarball; the headers are Debian's (same release).
  (cd "$deps/src" && apt-get source -qq --download-only boost1.74 >/dev/null 2>&1)
  tarball=$(find "$deps/src" -maxdepth 1 -name 'boost1.74_*.orig.tar.xz' | head -n1)
  rm -rf "$deps/src/boost"
  mkdir -p "$deps/src/boost"
  tar -xJf "$tarball" -C "$deps/src/boost" --strip-components=1 --wildcards '*/libs/thread/src/*'
  configure "$root/cmake/windows/boost-thread" "$deps/build/boost-thread" \
    -DBOOST_SOURCE_DIR="$deps/src/boost" -DBOOST_INCLUDE_DIR="$prefix/include"
fi
echo "windows-deps: ready in $prefix"
