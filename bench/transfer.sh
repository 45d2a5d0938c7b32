#!/usr/bin/env bash
# Copying a database of 1,000,000 rows over six tables (integers, REALs,
# text, BLOBs, NULLs, an index, a foreign key) three ways, each against the
# same work done by the sqlite3 shell in the same run:
#   dump      brindle-cli dump    against  sqlite3 .dump
#   load      brindle-cli load    against  sqlite3 .read   (of the same script)
#   transfer  brindle-cli transfer against ATTACH and INSERT INTO ... SELECT per
#             table in one transaction, into a file made from the same schema
# Runs in turns on fresh files; prints each run, the medians, the three ratios
# (goals: dump and load at most 1.0, transfer at most 1.5) and the peak memory
# of brindle-cli.
#
#   bench/transfer.sh [ROWS] [RUNS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="${BRINDLE_BUILD_DIR:-$root/build}/bin/brindle-cli"
rows="${1:-1000000}"
runs="${2:-3}"
[ -x "$cli" ] || { echo "build first: $cli is missing" >&2; exit 1; }
command -v sqlite3 > /dev/null || { echo "sqlite3 is missing (scripts/setup.sh installs it)" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

per=$((rows / 6))
sqlite3 "$work/source.db" <<SQL
begin;
create table customers(id integer primary key, name text not null, email text, joined text, balance real);
create table products(id integer primary key, code text unique, title text, price real, stock integer, picture blob);
create table orders(id integer primary key, customer_id integer references customers(id), placed text,
                    total real, note text);
create table lines(order_id integer, product_id integer, qty integer, price real, primary key (order_id, product_id));
create table events(at integer, kind text, payload blob, weight real);
create table notes(id integer primary key, body text, created text default current_timestamp);
create index orders_customer on orders(customer_id);
with recursive n(i) as (select 1 union all select i + 1 from n where i < $per)
insert into customers select i, 'Customer ' || i, case when i % 7 then 'c' || i || '@example.com' end,
  date('2020-01-01', '+' || (i % 1500) || ' days'), round(i * 1.37 % 10000, 2) from n;
with recursive n(i) as (select 1 union all select i + 1 from n where i < $per)
insert into products select i, 'P' || printf('%08d', i), 'Product ' || i || ' with a longer title',
  i % 997 + 0.99, i % 50, case when i % 5 = 0 then randomblob(32) end from n;
with recursive n(i) as (select 1 union all select i + 1 from n where i < $per)
insert into orders select i, i % $per + 1, datetime('2021-01-01', '+' || i || ' minutes'), i * 0.25 + 0.1,
  case when i % 3 = 0 then 'it''s urgent' end from n;
with recursive n(i) as (select 1 union all select i + 1 from n where i < $per)
insert into lines select i, (i * 7) % $per + 1, i % 9 + 1, (i % 500) / 3.0 from n;
with recursive n(i) as (select 1 union all select i + 1 from n where i < $per)
insert into events select 1600000000000 + i * 1000, 'kind' || (i % 12), randomblob(i % 40), i / 7.0 from n;
with recursive n(i) as (select 1 union all select i + 1 from n where i < $rows - 5 * $per)
insert into notes(id, body) select i, 'A note of some length, number ' || i || ', with a comma' from n;
commit;
SQL
sqlite3 "$work/source.db" .schema > "$work/schema.sql"
{
  echo "attach '$work/source.db' as src;"
  echo "begin;"
  for t in customers products orders lines events notes; do echo "insert into main.$t select * from src.$t;"; done
  echo "commit;"
} > "$work/by_hand.sql"

# Seconds and peak KiB of a command, its output thrown away.
measure() {
  /usr/bin/time -f "%e %M" -o "$work/t" "$@" > /dev/null 2>&1
  cat "$work/t"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

for f in dump_b dump_s load_b load_s copy_b copy_s memory; do : > "$work/$f"; done
for ((i = 1; i <= runs; i++)); do
  rm -f "$work/out.sql" "$work/ref.sql"
  read -r db m1 < <(measure "$cli" dump "$work/source.db" "$work/out.sql")
  read -r ds _ < <(measure sh -c "sqlite3 '$work/source.db' .dump > '$work/ref.sql'")

  rm -f "$work/load_b.db" "$work/load_s.db"
  read -r lb m2 < <(measure "$cli" load "$work/load_b.db" "$work/out.sql")
  read -r ls _ < <(measure sqlite3 "$work/load_s.db" ".read $work/out.sql")
  loaded=$(sqlite3 "$work/load_b.db" "select (select count(*) from customers) + (select count(*) from products) +
    (select count(*) from orders) + (select count(*) from lines) + (select count(*) from events) +
    (select count(*) from notes)")

  rm -f "$work/copy_b.db" "$work/copy_s.db"
  read -r cb m3 < <(measure "$cli" transfer "$work/source.db" "$work/copy_b.db")
  sqlite3 "$work/copy_s.db" < "$work/schema.sql"
  read -r cs _ < <(measure sqlite3 "$work/copy_s.db" ".read $work/by_hand.sql")

  echo "run $i: dump ${db}s vs ${ds}s, load ${lb}s vs ${ls}s (${loaded} rows), transfer ${cb}s vs ${cs}s"
  echo "$db" >> "$work/dump_b"; echo "$ds" >> "$work/dump_s"
  echo "$lb" >> "$work/load_b"; echo "$ls" >> "$work/load_s"
  echo "$cb" >> "$work/copy_b"; echo "$cs" >> "$work/copy_s"
  printf '%s\n%s\n%s\n' "$m1" "$m2" "$m3" >> "$work/memory"
done
ratio() { awk -v b="$(median < "$work/$1")" -v s="$(median < "$work/$2")" \
  'BEGIN { printf "%-9s brindle-cli %6.2fs  sqlite3 %6.2fs  ratio %.2f\n", "'"$3"'", b, s, b / s }'; }
ratio dump_b dump_s dump
ratio load_b load_s load
ratio copy_b copy_s transfer
echo "script: $(du -m "$work/out.sql" | cut -f1) MiB (the shell's dump: $(du -m "$work/ref.sql" | cut -f1) MiB)"
echo "peak memory of brindle-cli: $(( $(sort -n "$work/memory" | tail -1) / 1024 )) MiB"
