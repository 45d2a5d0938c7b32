#!/usr/bin/env bash
# A full rebuild of a table of a million rows (three indexes, a trigger, a
# child table with a foreign key, a view over it): `brindle-cli alter` with
# no change against the same work done by hand in the sqlite3 shell (rename
# aside, create, insert-select, drop, create the indexes and the trigger, in
# one transaction with the foreign keys off), each on a fresh copy of the
# same file, run in turns. Prints each run, the medians, the ratio (the
# goal: at most 1.3) and the peak memory of brindle-cli.
#
#   bench/alter_rebuild.sh [RUNS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="${BRINDLE_BUILD_DIR:-$root/build}/bin/brindle-cli"
runs="${1:-5}"
[ -x "$cli" ] || { echo "build first: $cli is missing" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

sqlite3 "$work/master.db" < "$root/tests/fixtures/alter/big.sql"
cat > "$work/by_hand.sql" <<'SQL'
pragma foreign_keys = off;
pragma legacy_alter_table = on;
begin;
drop index big_code; drop index big_amount; drop index big_qty_note; drop trigger big_qty;
alter table big rename to big_old;
create table big(id integer primary key, code text not null, amount real, qty integer, note text);
insert into big(id, code, amount, qty, note) select id, code, amount, qty, note from big_old;
drop table big_old;
create index big_code on big(code);
create index big_amount on big(amount desc);
create index big_qty_note on big(qty, note) where qty > 10;
create trigger big_qty after update of qty on big begin insert into big_log values (new.id, 'qty'); end;
commit;
SQL

measure() {
  cp "$work/master.db" "$work/run.db"
  /usr/bin/time -f "%e %M" -o "$work/t" "$@" > /dev/null 2>&1
  cat "$work/t"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

: > "$work/brindle"; : > "$work/sqlite3"; : > "$work/memory"
for ((i = 1; i <= runs; i++)); do
  read -r b m < <(measure "$cli" alter "$work/run.db" big)
  rows=$(sqlite3 "$work/run.db" "select count(*) from big")
  read -r s _ < <(measure sh -c "sqlite3 '$work/run.db' < '$work/by_hand.sql'")
  echo "run $i: brindle-cli ${b}s (${rows} rows, peak ${m} KiB), by hand ${s}s"
  echo "$b" >> "$work/brindle"; echo "$s" >> "$work/sqlite3"; echo "$m" >> "$work/memory"
done
b=$(median < "$work/brindle"); s=$(median < "$work/sqlite3"); m=$(sort -n "$work/memory" | tail -1)
echo "median: brindle-cli ${b}s, by hand ${s}s"
awk -v b="$b" -v s="$s" 'BEGIN { printf "ratio brindle-cli / by hand: %.2f\n", b / s }'
echo "peak memory of brindle-cli: $((m / 1024)) MiB"
