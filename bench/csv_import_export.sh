#!/usr/bin/env bash
# Text in and out at engine speed, against the sqlite3 shell in the same run:
#
#  - import: `brindle-cli import` of 1,000,000 rows (six columns, about 59 MB)
#    into a new table, with the types detected over the whole file, against
#    the shell's `.import --csv` of the same file into a new table;
#  - export: `brindle-cli export` of 2,000,000 rows to CSV against
#    `sqlite3 -csv -header` of the same query.
#
# Runs in turns so that both meet the same machine; prints each run, the
# medians, the ratios brindle-cli / sqlite3 (the goal: at most 1.2 each) and
# the peak memory of brindle-cli.
#
#   bench/csv_import_export.sh [IMPORT_ROWS] [EXPORT_ROWS] [RUNS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="${BRINDLE_BUILD_DIR:-$root/build}/bin/brindle-cli"
import_rows="${1:-1000000}"
export_rows="${2:-2000000}"
runs="${3:-3}"
[ -x "$cli" ] || { echo "build first: $cli is missing" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# The text to import: a key, a code with leading zeros, an integer, a real,
# a date and a name with a comma now and then, written by the shell itself.
sqlite3 "$work/source.db" "create table s(id integer primary key, code text, qty integer, price real,
    day text, name text);
  with recursive c(x) as (select 1 union all select x + 1 from c where x < $import_rows)
  insert into s select x, printf('%08d', x * 37 % 1000000), x * 7 % 100000, (x % 100000) / 8.0,
    date('2020-01-01', '+' || (x % 2000) || ' days'),
    case when x % 10 = 0 then 'Name, ' || (x % 977) else 'customer no ' || (x % 977) end from c;"
sqlite3 -csv -header "$work/source.db" "select * from s" > "$work/rows.csv"
echo "import file: $(wc -c < "$work/rows.csv") bytes, $import_rows rows"

sqlite3 "$work/export.db" "create table t(id integer primary key, a integer, b real, c text, d text);
  with recursive c(x) as (select 1 union all select x + 1 from c where x < $export_rows)
  insert into t select x, x * 7 % 100000, x / 3.0, 'name ' || (x % 1000), hex(randomblob(8)) from c;"
sql="select id, a, b, c, d from t"
cat "$work/rows.csv" "$work/export.db" > /dev/null  # both read from the page cache

# Seconds and peak KiB of one run, its output thrown away.
measure() {
  /usr/bin/time -f "%e %M" -o "$work/t" "$@" > /dev/null 2>&1
  cat "$work/t"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

: > "$work/bi"; : > "$work/si"; : > "$work/be"; : > "$work/se"
for ((i = 1; i <= runs; i++)); do
  rm -f "$work/b.db" "$work/s.db"
  read -r bs bm < <(measure "$cli" import "$work/b.db" rows "$work/rows.csv")
  read -r ss sm < <(measure sqlite3 "$work/s.db" ".import --csv $work/rows.csv rows")
  n=$(sqlite3 "$work/b.db" "select count(*) from rows")
  echo "import run $i: brindle-cli ${bs}s (${n} rows, peak ${bm} KiB), sqlite3 .import ${ss}s (peak ${sm} KiB)"
  echo "$bs $bm" >> "$work/bi"; echo "$ss $sm" >> "$work/si"

  read -r be bem < <(measure "$cli" export "$work/export.db" --sql "$sql" "$work/b.csv")
  read -r se sem < <(measure sh -c "sqlite3 -csv -header '$work/export.db' '$sql' > '$work/s.csv'")
  echo "export run $i: brindle-cli ${be}s (peak ${bem} KiB), sqlite3 -csv ${se}s (peak ${sem} KiB)"
  echo "$be $bem" >> "$work/be"; echo "$se $sem" >> "$work/se"
done
echo "declared types of the imported table: $(sqlite3 "$work/b.db" "select group_concat(name || ' ' || type, ', ')
  from pragma_table_info('rows')")"
echo "exported: $(wc -c < "$work/b.csv") bytes (sqlite3: $(wc -c < "$work/s.csv"))"

bi=$(cut -d' ' -f1 "$work/bi" | median); si=$(cut -d' ' -f1 "$work/si" | median)
be=$(cut -d' ' -f1 "$work/be" | median); se=$(cut -d' ' -f1 "$work/se" | median)
bim=$(cut -d' ' -f2 "$work/bi" | sort -n | tail -1); bem=$(cut -d' ' -f2 "$work/be" | sort -n | tail -1)
echo "median import: brindle-cli ${bi}s, sqlite3 .import ${si}s"
echo "median export: brindle-cli ${be}s, sqlite3 -csv ${se}s"
awk -v b="$bi" -v s="$si" 'BEGIN { printf "ratio import brindle-cli / sqlite3: %.2f\n", b / s }'
awk -v b="$be" -v s="$se" 'BEGIN { printf "ratio export brindle-cli / sqlite3: %.2f\n", b / s }'
echo "peak memory of brindle-cli: import $((bim / 1024)) MiB, export $((bem / 1024)) MiB"
