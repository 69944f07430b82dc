#!/usr/bin/env bash
# Installs every build, test and benchmark dependency from Debian packages.
# Idempotent: packages that are already installed are skipped; needs root (or sudo).
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config
  clang clang-tidy libclang-rt-14-dev
  libfmt-dev libspdlog-dev
  libboost-thread-dev libboost-system-dev libboost-exception-dev libboost-dev
  libpugixml-dev nlohmann-json3-dev rapidjson-dev zlib1g-dev libdeflate-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libevtx-utils python3-evtx
  g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64 dpkg-dev
)

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

# The Windows build compiles pugixml and Boost.Thread from their Debian source packages
# (scripts/windows-deps.sh), which apt-get source finds through a deb-src entry.
deb_src=/etc/apt/sources.list.d/natc-deb-src.sources
if [ ! -f "$deb_src" ]; then
  echo "setup: adding $deb_src"
  $SUDO tee "$deb_src" >/dev/null <<'SOURCES'
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SOURCES
  $SUDO apt-get update -qq
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages already installed"
  exit 0
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
