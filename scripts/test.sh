#!/usr/bin/env bash
# The full run that CI makes: installs what is needed, checks the format of
# the sources and the layering of src/, builds with warnings as errors and
# runs every test, installs the build and builds a client against it, runs
# the fuzz targets for a bounded time, then builds again under
# AddressSanitizer and UndefinedBehaviorSanitizer and runs every test there
# too (without the Python package: an interpreter under the sanitizers is
# more trouble than help). For a quick build and test while working, use scripts/check.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc)

# Every C and C++ source keeps the project's format.
git ls-files '*.c' '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
# The frame includes no subsystem and no subsystem reaches into a higher one.
bash scripts/check-layers.sh
bash scripts/check-includes.sh

cmake -S . -B build-ci -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVEL_WERROR=ON -DORVEL_BUILD_PYTHON=ON
cmake --build build-ci -j "$jobs"
ctest --test-dir build-ci --output-on-failure -j "$jobs"
bash scripts/install-check.sh build-ci

# The fuzz targets run for a bounded time each (ORVEL_FUZZ_SECONDS, default 60).
bash scripts/fuzz.sh "${ORVEL_FUZZ_SECONDS:-60}"

cmake -S . -B build-sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORVEL_WERROR=ON -DORVEL_SANITIZE=ON \
  -DORVEL_BUILD_BENCH=OFF -DORVEL_BUILD_PYTHON=OFF
cmake --build build-sanitize -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-sanitize --output-on-failure -j "$jobs"
