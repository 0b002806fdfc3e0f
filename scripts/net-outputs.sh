#!/usr/bin/env bash
# Writes, for every network in networks/ and examples/, the compile log of
# each triangulation heuristic (without its first line, the date) and the NET text the writer gives, into DIR.
# Two builds compared with `diff -r` show whether a change kept the output
# byte for byte:
#   bash scripts/net-outputs.sh build/orvel /tmp/a; ...; diff -r /tmp/a /tmp/b
set -euo pipefail
tool=$1 out=$2
cd "$(dirname "$0")/.."
mkdir -p "$out"
for net in networks/*.net examples/*.net; do
  name=$(basename "$net" .net)
  for method in clique-size clique-weight fill-in-size fill-in-weight; do
    "$tool" compile "$net" --method $method --log "$out/$name.$method.log" >/dev/null 2>"$out/$name.$method.err" || true
    # The log opens with the date and time of the compile: left out.
    [ -f "$out/$name.$method.log" ] && sed -i '1d' "$out/$name.$method.log"
  done
  "$tool" convert "$net" "$out/$name.net" >/dev/null 2>"$out/$name.convert.err" || true
done
