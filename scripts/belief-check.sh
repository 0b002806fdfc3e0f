#!/usr/bin/env bash
# belief-check.sh OUT_DIR [LIBRARY]
# Builds bench/belief_dump.c against LIBRARY (a liborvel.a, by default
# build/liborvel.a) and writes, for every network that has evidence sets in
# the peers folder (PEERS, by default ../shared/peers beside the
# repository), OUT_DIR/NET.txt: its beliefs and log P(e) in hexadecimal
# under each set and several ways of propagating. Run it from two builds and
# compare the folders with `diff -r` to see that a change leaves every
# number as it was.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT=${1:?usage: belief-check.sh OUT_DIR [LIBRARY]}
LIB=${2:-$ROOT/build/liborvel.a}
PEERS=${PEERS:-$ROOT/../shared/peers}
mkdir -p "$OUT"
cc -O2 -std=c99 -I"$ROOT/include" "$ROOT/bench/belief_dump.c" "$LIB" -lstdc++ -lm -lz -lpthread -o "$OUT/belief_dump"
for ev in "$PEERS"/evidence/dai-hugin_*.txt; do
  net=$(basename "$ev" .txt)
  net=${net#dai-hugin_}
  "$OUT/belief_dump" "$ROOT/networks/$net.net" "$ev" >"$OUT/$net.txt"
  echo "$net: $(wc -l <"$OUT/$net.txt") lines"
done
