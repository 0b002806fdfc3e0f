#!/usr/bin/env bash
# The fast check while working: builds (warnings as errors) and runs the
# test suite in build/. Installs nothing, no fuzzing, no sanitizers; the
# full run that CI makes is scripts/test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -G Ninja -DORVEL_WERROR=ON >/dev/null
cmake --build build -j "$(nproc)"
ctest --test-dir build --output-on-failure -j "$(nproc)"
