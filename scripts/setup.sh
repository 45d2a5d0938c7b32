#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking need.
# Does nothing when they are all present already.
set -euo pipefail

packages=(
  build-essential cmake ninja-build ccache pkg-config
  qt6-base-dev qt6-image-formats-plugins libqscintilla2-qt6-dev
  libsqlite3-dev libsqlcipher-dev sqlite3
  unixodbc-dev libsqliteodbc odbc-postgresql postgresql
  libuchardet-dev libicu-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  xvfb x11-utils imagemagick xdotool time
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
