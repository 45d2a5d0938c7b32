#!/usr/bin/env bash
# Fails when an executable's dynamic symbol table names any sqlite3_ symbol:
# the linked engine must stay private so an outside library never binds to it.
set -u
status=0
for exe in "$@"; do
  found=$(nm -D --defined-only "$exe" | grep -c ' sqlite3_' || true)
  undefined=$(nm -D --undefined-only "$exe" | grep -c ' sqlite3_' || true)
  echo "$(basename "$exe"): $found defined, $undefined undefined sqlite3_ symbols"
  if [ "$found" != 0 ] || [ "$undefined" != 0 ]; then status=1; fi
done
exit $status
