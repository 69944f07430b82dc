#!/usr/bin/env bash
# Builds the project and runs the main job on its embedded default configuration.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh release
exec build/tools/natc/natc run "$@"
