#!/usr/bin/env bash
# Runs every benchmark program of a bench build; ratios are read side by side.
set -euo pipefail
build=${1:-build/bench}
status=0
for b in "$build"/bench/*_bench; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.2 "${@:2}" || status=1
done
exit $status
