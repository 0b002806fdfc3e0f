#!/usr/bin/env bash
# Checks the layering of the sources: src/api is the frame every subsystem
# stands on (errors, memory and size helpers, the C boundary, the locale
# guard, identification), so none of its files may include a header of a
# subsystem, and the exported calls of a family live beside the code they
# call (src/<subsystem>/<family>_api.cpp), never in the frame.
# Prints each violation and exits 1 if there is any.
set -euo pipefail
cd "$(dirname "$0")/.."

subsystems='model|table|compile|inference|expr|io|oo|learn'
status=0

# Includes of subsystem headers from the frame, quoted or angled.
if matches=$(grep -nE "^[[:space:]]*#[[:space:]]*include[[:space:]]*[\"<]($subsystems)/" src/api/*.cpp src/api/*.h); then
  echo "check-layers: src/api includes a subsystem header:"
  echo "$matches"
  status=1
fi

# Exported families defined in the frame.
if families=$(ls src/api/*_api.cpp 2>/dev/null); then
  echo "check-layers: exported families belong beside their subsystem, not in src/api:"
  echo "$families"
  status=1
fi

if [ "$status" -eq 0 ]; then echo "check-layers: ok"; fi
exit "$status"
