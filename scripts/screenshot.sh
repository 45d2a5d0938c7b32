#!/usr/bin/env bash
# Starts the program on the demo database under a virtual X server and saves
# a screenshot of the screen: scripts/screenshot.sh [OUT.png [X,Y ...]]
# Each X,Y is a mouse click made, in order, before the picture is taken.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BRINDLE_BUILD_DIR:-$root/build}"
out="${1:-$build/screenshot.png}"
bash "$root/scripts/build.sh"
display=":$((90 + RANDOM % 9))"
Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $app $xvfb 2>/dev/null || true' EXIT
sleep 1
DISPLAY="$display" QT_QPA_PLATFORM=xcb "$build/bin/brindle" "$build/share/Brindle/Desk 3/Data/dbdemos.db3" &
app=$!
sleep "${BRINDLE_SCREENSHOT_DELAY:-3}"
for click in "${@:2}"; do
  DISPLAY="$display" xdotool mousemove "${click%,*}" "${click#*,}" click 1
  sleep 1
done
DISPLAY="$display" import -window root "$out"
echo "screenshot: $out"
