#!/usr/bin/env bash
# Starts the program on the demo database under a virtual X server and saves
# a screenshot of the screen:
#   scripts/screenshot.sh [OUT.png [OBJECT [PAGE [SQL [FILTER [COMMAND]]]]]]
# OBJECT names a table or view of the demo database to select, PAGE the tab
# to show by its caption (Database, SQL, Data, Design, DDL). The program
# looks both up itself; a name it does not find ends it with a message, and
# the script fails instead of saving a picture of something else. SQL is a
# text to run in the SQL tab, as F5 would, so that its result shows.
# FILTER ("COLUMN=TEXT") is typed in the grid's filter row and applied;
# COMMAND ("COLUMN:acHexEditor", any grid command) runs on the first row's
# cell of that column, so that its window shows.
# BRINDLE_SCREENSHOT_DB opens another database file instead of the demo.
# The program runs with settings of its own in a fresh folder (or in
# BRINDLE_SCREENSHOT_CONFIG), so that the picture does not depend on the
# user's, and is closed as a user would close it before the server ends.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BRINDLE_BUILD_DIR:-$root/build}"
out="${1:-$build/screenshot.png}"
object="${2:-}"
page="${3:-}"
sql="${4:-}"
filter="${5:-}"
command="${6:-}"
bash "$root/scripts/build.sh"
config="${BRINDLE_SCREENSHOT_CONFIG:-$(mktemp -d)}"
display=":$((90 + RANDOM % 9))"
Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
app=""
cleanup() {
  if [ -n "$app" ]; then
    kill -TERM "$app" 2>/dev/null || true
    for _ in $(seq 50); do kill -0 "$app" 2>/dev/null || break; sleep 0.1; done
    kill "$app" 2>/dev/null || true
  fi
  kill "$xvfb" 2>/dev/null || true
}
trap cleanup EXIT
sleep 1
DISPLAY="$display" QT_QPA_PLATFORM=xcb XDG_CONFIG_HOME="$config" \
  BRINDLE_SHOW_OBJECT="$object" BRINDLE_SHOW_PAGE="$page" BRINDLE_SHOW_SQL="$sql" \
  BRINDLE_SHOW_FILTER="$filter" BRINDLE_SHOW_COMMAND="$command" \
  "$build/bin/brindle" "${BRINDLE_SCREENSHOT_DB:-$build/share/Brindle/Desk 3/Data/dbdemos.db3}" &
app=$!
sleep "${BRINDLE_SCREENSHOT_DELAY:-3}"
if ! kill -0 "$app" 2>/dev/null; then
  wait "$app" || true
  app=""
  echo "screenshot: the program ended before the picture; nothing saved" >&2
  exit 1
fi
DISPLAY="$display" import -window root "$out"
echo "screenshot: $out"
