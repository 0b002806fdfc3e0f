#!/usr/bin/env bash
# Installs what is needed, builds the library and runs the example program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVEL_BUILD_TESTS=OFF -DORVEL_BUILD_BENCH=OFF
cmake --build build
./build/weather
