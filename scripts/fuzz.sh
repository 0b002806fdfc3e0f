#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ with clang (libFuzzer, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs each one for a bounded time, starting
# from its seed corpus in fuzz/corpus/<name>/ (and with the dictionary
# fuzz/<target>.dict if there is one). Fails if any target finds a
# crash, a leak, a time-out or runs out of memory; the input that did it is
# kept in the build directory under fuzz-artifacts/.
#
# Usage: scripts/fuzz.sh [seconds per target]   (default 60)
# Environment: FUZZ_MAX_LEN (bytes per input, default 4096), FUZZ_TIMEOUT
# (seconds per input, default 10), FUZZ_RSS_MB (default 2048), FUZZ_BUILD_DIR
# (default build-fuzz).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
max_len="${FUZZ_MAX_LEN:-4096}"
timeout="${FUZZ_TIMEOUT:-10}"
rss_mb="${FUZZ_RSS_MB:-2048}"
build="${FUZZ_BUILD_DIR:-build-fuzz}"

bash scripts/install-deps.sh

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ -DORVEL_FUZZ=ON -DORVEL_WERROR=ON -DORVEL_BUILD_TESTS=OFF -DORVEL_BUILD_BENCH=OFF

targets=()
for source in fuzz/*_fuzzer.cpp; do
  targets+=("$(basename "$source" .cpp)")
done
if [ ${#targets[@]} -eq 0 ]; then
  echo "no fuzz targets in fuzz/" >&2
  exit 1
fi
cmake --build "$build" -j2 --target "${targets[@]}"

artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"
failed=()
for target in "${targets[@]}"; do
  seeds="fuzz/corpus/${target%_fuzzer}"
  work="$(mktemp -d)"
  corpora=("$work")
  [ -d "$seeds" ] && corpora+=("$seeds")
  dictionary=()
  [ -f "fuzz/$target.dict" ] && dictionary=(-dict="fuzz/$target.dict")
  echo "== $target: ${seconds}s, max_len $max_len, timeout ${timeout}s"
  # New inputs go to the scratch corpus; the seed corpus is only read.
  if ! "$build/$target" -max_total_time="$seconds" -max_len="$max_len" -timeout="$timeout" \
    -rss_limit_mb="$rss_mb" -print_final_stats=1 -artifact_prefix="$artifacts/$target-" "${dictionary[@]}" "${corpora[@]}"; then
    failed+=("$target")
  fi
  rm -rf "$work"
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found problems in: ${failed[*]} (inputs in $artifacts)" >&2
  exit 1
fi
echo "fuzzing: ${#targets[@]} target(s) ran ${seconds}s each without a finding"
