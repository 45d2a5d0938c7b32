#!/usr/bin/env bash
# Builds the program and starts it on the bundled demo database.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BRINDLE_BUILD_DIR:-$root/build}"
bash "$root/scripts/build.sh"
exec "$build/bin/brindle" "$build/share/Brindle/Desk 3/Data/dbdemos.db3"
