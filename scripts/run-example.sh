#!/usr/bin/env bash
# Installs what is needed, builds the library and the orvel command, and asks
# the example sprinkler network how likely rain is when the grass is wet.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVEL_BUILD_TESTS=OFF -DORVEL_BUILD_BENCH=OFF \
  -DORVEL_BUILD_PYTHON=ON
cmake --build build
./build/orvel beliefs examples/sprinkler.net -e WetGrass=yes
# The same question from Python, with the package from the build tree.
PYTHONPATH=build/python /usr/bin/python3 -c 'import orvel
d = orvel.load("examples/sprinkler.net"); d.compile(); d.query({"WetGrass": "yes"})
print("P(Rain | WetGrass=yes) from Python:", d.beliefs("Rain"))'
