#!/usr/bin/env bash
# A script of small statements: `brindle-cli exec` against `sqlite3 DB <
# script.sql` over the same 10,000 inserts into a table with an index, each
# into a fresh copy of the same database, run in turns: once as written (a
# commit per statement, as the tab runs them) and once inside one
# transaction, where the program's own work per statement shows. Prints
# each run, the medians and the ratios brindle-cli / sqlite3 (the goal: at
# most 1.5).
#
#   bench/exec_script.sh [STATEMENTS] [RUNS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="${BRINDLE_BUILD_DIR:-$root/build}/bin/brindle-cli"
count="${1:-10000}"
runs="${2:-5}"
[ -x "$cli" ] || { echo "build first: $cli is missing" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

sqlite3 "$work/empty.db" "create table t(id integer primary key, name text, qty integer, price real);
  create index t_name on t(name);"
awk -v n="$count" 'BEGIN {
  for (i = 1; i <= n; i++)
    printf "insert into t(name, qty, price) values (%cname %d%c, %d, %d.25);\n", 39, i % 977, 39, i, i
}' > "$work/script.sql"
{ echo "begin;"; cat "$work/script.sql"; echo "commit;"; } > "$work/tx.sql"

# Seconds of one run on a fresh copy, output thrown away.
measure() {
  cp "$work/empty.db" "$work/run.db"
  /usr/bin/time -f "%e" -o "$work/t" "$@" > /dev/null 2>&1
  cat "$work/t"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

compare() {
  local label="$1" script="$2"
  : > "$work/brindle"; : > "$work/sqlite3"
  for ((i = 1; i <= runs; i++)); do
    b=$(measure "$cli" exec "$work/run.db" "$script")
    rows=$(sqlite3 "$work/run.db" "select count(*) from t")
    s=$(measure sh -c "sqlite3 '$work/run.db' < '$script'")
    echo "$label run $i: brindle-cli ${b}s ($rows rows), sqlite3 ${s}s"
    echo "$b" >> "$work/brindle"
    echo "$s" >> "$work/sqlite3"
  done
  b=$(median < "$work/brindle"); s=$(median < "$work/sqlite3")
  echo "$label median: brindle-cli ${b}s, sqlite3 ${s}s"
  awk -v l="$label" -v b="$b" -v s="$s" 'BEGIN { printf "%s ratio brindle-cli / sqlite3: %.2f\n", l, b / s }'
}

echo "statements: $count"
compare "as written" "$work/script.sql"
compare "one transaction" "$work/tx.sql"
