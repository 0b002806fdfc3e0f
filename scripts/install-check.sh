#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds an application
# against it the two ways a client would: with find_package(Orvel) (shared
# and static) and with pkg-config; each program must run.
# Usage: scripts/install-check.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
prefix=$(mktemp -d)
client=$(mktemp -d)
trap 'rm -rf "$prefix" "$client"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
cmake -S examples/installed -B "$client" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$client" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'liborvel.so' | head -1)")
LD_LIBRARY_PATH="$libdir" "$client/weather_shared" >/dev/null
"$client/weather_static" >/dev/null
PKG_CONFIG_PATH="$libdir/pkgconfig" cc -std=c99 -o "$client/weather_pc" examples/weather.c \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs orvel)
LD_LIBRARY_PATH="$libdir" "$client/weather_pc" >/dev/null
echo "install check: find_package(Orvel) shared and static, pkg-config orvel: all three run"
