#!/usr/bin/env bash
# Builds everything and runs every test suite. Extra arguments go to ctest,
# e.g. -R Driver to run the matching tests only.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BRINDLE_BUILD_DIR:-$root/build}"
bash "$root/scripts/build.sh"
cd "$build"
ctest --output-on-failure --timeout 600 -j "$(nproc)" "$@"
