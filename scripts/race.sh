#!/usr/bin/env bash
# race.sh [sets] [rounds]
# Races Orvel against the peer engine of ../shared/peers (PEERS to point
# elsewhere): builds the library in Release (-O3) in build-race/, builds
# orvel_time from the peers' sources against it, and runs the peers'
# compare.sh on every network that has a factor graph there, without and
# with table memory (ov_domain_save_to_memory). Prints one table; the
# ratio is the peer's time over Orvel's (above 1: Orvel is faster).
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
PEERS=$(cd "${PEERS:-$ROOT/../shared/peers}" && pwd)
SETS=${1:-21}
ROUNDS=${2:-3}
BUILD=$ROOT/build-race
cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVEL_BUILD_TESTS=OFF \
  -DORVEL_BUILD_BENCH=OFF >/dev/null
cmake --build "$BUILD" --target orvel_static -j "${JOBS:-2}" >/dev/null
cc -O2 -std=c99 -I"$ROOT/include" "$PEERS/src/orvel_time.c" "$BUILD/liborvel.a" -lstdc++ -lm -lz -lpthread \
  -o "$BUILD/orvel_time"
export ORVEL_TIME=$BUILD/orvel_time
printf '%-10s | %10s %10s %7s %5s | %10s %10s %7s %5s\n' network orvel_ms peer_ms ratio agree \
  mem_ms peer_ms ratio agree
for fg in "$PEERS"/fg/*.fg; do
  net=$(basename "$fg" .fg)
  nf=$ROOT/networks/$net.net
  [ -e "$nf" ] || nf=$PEERS/../networks/$net.net
  plain=$(NET_FILE=$nf bash "$PEERS/compare.sh" "$net" "$SETS" "$ROUNDS")
  memory=$(NET_FILE=$nf bash "$PEERS/compare.sh" "$net" "$SETS" "$ROUNDS" memory)
  # compare.sh prints: NET orvel_ms peer_ms ratio agree=... ...
  read -r _ po pd pr pa _ <<<"$plain"
  read -r _ mo md mr ma _ <<<"$memory"
  printf '%-10s | %10s %10s %7s %5s | %10s %10s %7s %5s\n' "$net" "$po" "$pd" "$pr" "${pa#agree=}" \
    "$mo" "$md" "$mr" "${ma#agree=}"
done
