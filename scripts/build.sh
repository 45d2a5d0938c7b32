#!/usr/bin/env bash
# Configures and builds everything into build/ (ninja, ccache). Extra
# arguments go to the configure step, e.g. -DBRINDLE_SANITIZE=ON.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BRINDLE_BUILD_DIR:-$root/build}"
bash "$root/scripts/setup.sh"
# Paths below the checkout count as relative, so a fresh clone reuses the cache.
export CCACHE_BASEDIR="$root"
cmake -S "$root" -B "$build" -G Ninja "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
