#!/usr/bin/env bash
# Rows at engine speed: `brindle-cli query` against `sqlite3 -csv` over the
# same table of 2,000,000 rows (integer key, integer, real, two texts), run
# in turns so that both meet the same machine. Prints each run, the medians,
# peak memory, and the ratio brindle-cli / sqlite3 (the goal: at most 1.5).
#
#   bench/query_csv.sh [ROWS] [RUNS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="${BRINDLE_BUILD_DIR:-$root/build}/bin/brindle-cli"
rows="${1:-2000000}"
runs="${2:-5}"
[ -x "$cli" ] || { echo "build first: $cli is missing" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
db="$work/rows.db"
sql="select id, a, b, c, d from t"

sqlite3 "$db" "create table t(id integer primary key, a integer, b real, c text, d text);
  with recursive c(x) as (select 1 union all select x + 1 from c where x < $rows)
  insert into t select x, x * 7 % 100000, x / 3.0, 'name ' || (x % 1000), hex(randomblob(8)) from c;"
# Both read the file once before timing, from the page cache.
cat "$db" > /dev/null

# Seconds and peak KiB of one run, output thrown away.
measure() {
  /usr/bin/time -f "%e %M" -o "$work/t" "$@" > /dev/null
  cat "$work/t"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

: > "$work/brindle"; : > "$work/sqlite3"
for ((i = 1; i <= runs; i++)); do
  read -r bs bm < <(measure "$cli" query "$db" "$sql")
  read -r ss sm < <(measure sqlite3 -csv "$db" "$sql")
  echo "run $i: brindle-cli ${bs}s ${bm} KiB, sqlite3 ${ss}s ${sm} KiB"
  echo "$bs $bm" >> "$work/brindle"
  echo "$ss $sm" >> "$work/sqlite3"
done
b=$(cut -d' ' -f1 "$work/brindle" | median); s=$(cut -d' ' -f1 "$work/sqlite3" | median)
bm=$(cut -d' ' -f2 "$work/brindle" | median); sm=$(cut -d' ' -f2 "$work/sqlite3" | median)
echo "rows: $rows"
echo "median: brindle-cli ${b}s (peak ${bm} KiB), sqlite3 -csv ${s}s (peak ${sm} KiB)"
awk -v b="$b" -v s="$s" 'BEGIN { printf "ratio brindle-cli / sqlite3: %.2f\n", b / s }'
