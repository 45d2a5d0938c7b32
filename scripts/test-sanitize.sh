#!/usr/bin/env bash
# Builds with address and undefined-behaviour sanitizers into build-asan/ and
# runs every suite there. Extra arguments go to ctest.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
export BRINDLE_BUILD_DIR="${BRINDLE_ASAN_BUILD_DIR:-$root/build-asan}"
bash "$root/scripts/build.sh" -DBRINDLE_SANITIZE=ON -DBRINDLE_BENCH=OFF
cd "$BRINDLE_BUILD_DIR"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --output-on-failure --timeout 900 -j "$(nproc)" "$@"
