#!/usr/bin/env bash
# Checks the layering of src/: no file includes a header of a layer above its
# own, except for the reaches listed in ALLOWED below. The layers, lowest
# first (src/LAYERS.md says what each holds and why the order is this one):
#
#   api        the frame: errors, memory, the boundary of exported calls
#   model      domains, nodes, graph editing, attributes
#   table      tables, algebra, kernels
#   compile    moralisation, triangulation, the junction forest
#   inference  findings, propagation, queries
#   expr       expressions and models
#   oo         classes and instances
#   io         the NET scanner, parser and writer
#   learn      random numbers, simulation
#
# A file's layer is its directory under src/. Only quoted includes of the
# form "layer/header" are considered. Where code below must reach code
# above, it goes through model/hooks.h, whose functions are defined above.
#
# Usage: scripts/check-includes.sh [repository root]. Exit status 1 when a
# file breaks the order; entries of ALLOWED that match nothing are reported
# but do not fail the check.
set -euo pipefail
shopt -s extglob

root=${1:-$(cd "$(dirname "$0")/.." && pwd)}
cd "$root"

layers=(api model table compile inference expr oo io learn)

# file glob; included header; why the design needs it
ALLOWED=(
  # Nodes own their tables: the model layer makes, reshapes and frees them.
  "src/model/*;table/table.h;node tables belong to their nodes"
  # A node owns its model, and edits of its parents or states tell the model.
  "src/model/@(node|graph_edit|reverse_edge).cpp;expr/model.h;a node's model follows graph edits"
  # Deleting a node takes it off its class's interface.
  "src/model/node.cpp;oo/class.h;deleting an interface node"
  # The compile ends with the first propagation of every tree.
  "src/compile/compile.cpp;inference/propagation.h;the first propagation"
  # Initialising a tree first brings the tables of stale models up to date.
  "src/inference/propagation.cpp;expr/model.h;tables of stale models before initialisation"
  # Tables generated from a stale model are not checked.
  "src/compile/check_potentials.cpp;expr/model.h;skipping stale model tables"
  # Expressions are read with the NET scanner and its name resolution, and
  # written with its string escapes.
  "src/expr/*;io/scanner.h;expressions share the NET scanner"
  "src/expr/*;io/name_resolver.h;names in expressions resolve as in NET files"
  "src/expr/*;io/string_escape.h;string labels are escaped as in NET files"
)

rank() {
  local i
  for i in "${!layers[@]}"; do
    if [[ ${layers[$i]} == "$1" ]]; then
      echo "$i"
      return
    fi
  done
  echo -1
}

declare -A used=()
failed=0
while IFS= read -r file; do
  layer=${file#src/}
  layer=${layer%%/*}
  own=$(rank "$layer")
  if ((own < 0)); then
    echo "$file: directory $layer is not a layer" >&2
    failed=1
    continue
  fi
  while IFS= read -r header; do
    other=$(rank "${header%%/*}")
    ((other > own)) || continue
    allowed=0
    for entry in "${ALLOWED[@]}"; do
      IFS=';' read -r file_glob header_glob _ <<<"$entry"
      # shellcheck disable=SC2053 # the patterns are globs on purpose
      if [[ $file == $file_glob && $header == $header_glob ]]; then
        allowed=1
        used[$entry]=1
        break
      fi
    done
    if ((!allowed)); then
      echo "$file: includes $header from a higher layer" >&2
      failed=1
    fi
  done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([a-z_]*\/[^"]*\)".*/\1/p' "$file")
done < <(find src -type f \( -name '*.h' -o -name '*.cpp' \) | LC_ALL=C sort)

for entry in "${ALLOWED[@]}"; do
  [[ -n ${used[$entry]:-} ]] || echo "note: allow-list entry matches nothing: ${entry%;*}" >&2
done
exit "$failed"
