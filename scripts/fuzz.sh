#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan+UBSan) and runs each for a bounded
# time on a scratch copy of its committed corpus. A crash, leak or sanitizer
# report fails the run and leaves the reproducer in build/fuzz/artifacts.
#
#   FUZZ_SECONDS=N        seconds per target (default 60)
#   FUZZ_TARGETS="a b"    only these targets
#   FUZZ_MERGE=1          afterwards, merge the inputs that add coverage into
#                         fuzz/corpus/<target> (libFuzzer -merge=1 keeps the
#                         corpus small), ready to be committed
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
# Absolute: some targets change their working directory.
build=$PWD/build/fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p "$build/artifacts"
status=0
for target in "$build"/fuzz/*_fuzz; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  # FUZZ_TARGETS="a_fuzz b_fuzz" runs only those.
  if [ -n "${FUZZ_TARGETS:-}" ] && [[ " $FUZZ_TARGETS " != *" $name "* ]]; then
    continue
  fi
  work="$build/corpus-work/$name"
  rm -rf "$work"
  mkdir -p "$work"
  cp -r "fuzz/corpus/$name/." "$work/" 2>/dev/null || true
  echo "== $name for ${seconds}s"
  if ! ASAN_OPTIONS=detect_leaks=1 "$target" -max_total_time="$seconds" \
      -max_len=65536 -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
      -artifact_prefix="$build/artifacts/$name-" "$work" 2>"$build/$name.log"; then
    tail -n 60 "$build/$name.log"
    status=1
  fi
  grep -E '^(stat::number_of_executed_units|#[0-9]+ +DONE)' "$build/$name.log" | tail -n 2 || true
  if [ "${FUZZ_MERGE:-0}" = 1 ]; then
    # Absolute: some targets change their working directory.
    kept="$PWD/fuzz/corpus/$name"
    mkdir -p "$kept"
    before=$(ls "$kept" | wc -l)
    "$target" -merge=1 -max_len=65536 -timeout=10 -rss_limit_mb=4096 \
      "$kept" "$work" >"$build/$name.merge.log" 2>&1 || status=1
    echo "   corpus: $before -> $(ls "$kept" | wc -l) inputs"
  fi
done
exit $status
