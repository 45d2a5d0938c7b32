#!/usr/bin/env bash
# Kills `brindle-cli alter` with SIGKILL at random moments of a rebuild of a
# table of a million rows and checks each file afterwards: it must pass
# integrity_check and hold the table whole, in its old form or its new, with
# every row. The moments spread over a little more than a whole run, so that
# some kills come after the end. Prints how many of the kills left the file
# intact.
#
#   bench/alter_kills.sh [KILLS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="${BRINDLE_BUILD_DIR:-$root/build}/bin/brindle-cli"
kills="${1:-100}"
[ -x "$cli" ] || { echo "build first: $cli is missing" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

sqlite3 "$work/master.db" < "$root/tests/fixtures/alter/big.sql"
expected="1000000|500000500000|857143"
cp "$work/master.db" "$work/run.db"
start=$(date +%s%N)
"$cli" alter "$work/run.db" big --rename-column amount=price > /dev/null
length=$(( ($(date +%s%N) - start) / 1000000 ))
echo "a whole rebuild: ${length} ms"

intact=0; old=0; new=0
for ((k = 1; k <= kills; k++)); do
  cp "$work/master.db" "$work/run.db"
  "$cli" alter "$work/run.db" big --rename-column amount=price > /dev/null 2>&1 &
  pid=$!
  sleep "$(awk -v l="$length" -v r="$RANDOM" 'BEGIN { printf "%.3f", 1.2 * l * r / 32767 / 1000 }')"
  kill -9 "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  check=$(sqlite3 "$work/run.db" "pragma integrity_check" 2>&1 || true)
  rows=$(sqlite3 "$work/run.db" "select count(*) || '|' || sum(id) || '|' || count(note) from big" 2>&1 || true)
  columns=$(sqlite3 "$work/run.db" "select group_concat(name) from pragma_table_info('big')" 2>&1 || true)
  extra=$(sqlite3 "$work/run.db" "select count(*) from sqlite_master where name like 'temp_table%'" 2>&1 || true)
  if [ "$check" = ok ] && [ "$rows" = "$expected" ] && [ "$extra" = 0 ] &&
     { [ "$columns" = "id,code,amount,qty,note" ] || [ "$columns" = "id,code,price,qty,note" ]; }; then
    intact=$((intact + 1))
    if [ "$columns" = "id,code,price,qty,note" ]; then new=$((new + 1)); else old=$((old + 1)); fi
  else
    echo "kill $k: check=$check rows=$rows columns=$columns temp=$extra"
  fi
done
echo "intact after kills: $intact of $kills (old form $old, new form $new)"
