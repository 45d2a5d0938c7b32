#!/bin/sh
# Usage: check_demo.sh SQLITE3_SHELL DEMO_DB
# Fails when the demo database is damaged, holds dangling keys, or when the
# triggers that make it worth exploring no longer work. Edits happen on a copy.
set -eu

sqlite3=$1
db=$2

fail() {
  printf 'check_demo: %s\n' "$*" >&2
  exit 1
}

# Runs SQL with foreign keys enforced, stopping at the first error.
q() {
  file=$1
  shift
  "$sqlite3" -bail -batch -cmd 'PRAGMA foreign_keys = ON;' "$file" "$@"
}

[ -f "$db" ] || fail "$db is missing; build the demo_database target first"

# Damage and dangling keys.
result=$(q "$db" -readonly 'PRAGMA integrity_check;' 2>&1) || fail "integrity_check failed: $result"
[ "$result" = ok ] || fail "integrity_check reports: $result"
result=$(q "$db" -readonly 'PRAGMA foreign_key_check;' 2>&1) || fail "foreign_key_check failed: $result"
[ -z "$result" ] || fail "foreign_key_check reports: $result"
result=$(q "$db" -readonly "SELECT rtreecheck('store_areas');" 2>&1) || true
[ "$result" = ok ] || fail "rtreecheck reports: $result"
result=$(q "$db" -readonly "SELECT count(*) FROM media WHERE mime_type = 'image/png'
                            AND substr(data, 1, 16) <> X'89504E470D0A1A0A0000000D49484452';")
[ "$result" = 0 ] || fail "$result media rows of type image/png are not PNG files"

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
copy=$tmp/dbdemos.db3
cp "$db" "$copy"

# The full-text index matches its content.
result=$(q "$copy" "INSERT INTO product_search (product_search) VALUES ('integrity-check');" 2>&1) ||
  fail "product_search integrity-check: $result"

# An edit through the catalogue view reaches products, the search index,
# the audit log and updated_at.
result=$(q "$copy" "
  UPDATE product_catalog SET name = 'Qwertz Tent', unit_price = unit_price + 1 WHERE product_id = 1;
  SELECT (SELECT group_concat(docid) FROM product_search WHERE product_search MATCH 'qwertz')
         || '|' || (SELECT table_name || ':' || row_key FROM audit_log ORDER BY log_id DESC LIMIT 1)
         || '|' || (SELECT updated_at IS NOT NULL FROM products WHERE product_id = 1);" 2>&1) ||
  fail "editing product_catalog failed: $result"
[ "$result" = '1|products:1|1' ] || fail "editing product_catalog gave '$result', expected '1|products:1|1'"

# Discontinued products cannot be ordered.
if result=$(q "$copy" "
  INSERT INTO order_items (order_id, line_no, product_id, quantity, unit_price)
  SELECT 1, 99, product_id, 1, unit_price FROM products WHERE discontinued = 1 LIMIT 1;" 2>&1); then
  fail 'a discontinued product was accepted in an order'
fi
case $result in
  *'product is discontinued'*) ;;
  *) fail "ordering a discontinued product failed for another reason: $result" ;;
esac

echo 'check_demo: ok'
