#!/usr/bin/env bash
# Mutation testing: applies small faults to src/ one at a time, runs the
# suite on each and reports the mutants it lets through. Options are those
# of scripts/mutate.py (--sample N --seed S, or --list FILE to replay a
# sample; --jobs J).
#   bash scripts/mutate.sh --sample 240 --seed 12 --out mutants/before
set -euo pipefail
exec python3 "$(dirname "$0")/mutate.py" "$@"
