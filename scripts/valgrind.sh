#!/usr/bin/env bash
# Runs the main test executables once under valgrind memcheck: any invalid
# read or write, or memory definitely lost, fails. Exhaustive and stress
# tests are left to the native and sanitizer runs (they would take hours).
set -uo pipefail
build=${1:-build/release}
supp="$(cd "$(dirname "$0")" && pwd)/valgrind.supp"
status=0
for exe in streams_tests binary_tests files_tests system_tests; do
  path=$(find "$build/tests" -name "$exe" -type f -perm -u+x | head -n 1)
  [ -n "$path" ] || continue
  log=$(mktemp)
  echo "-- $exe"
  (cd "$(dirname "$path")" && valgrind --tool=memcheck --error-exitcode=99 \
      --leak-check=full --errors-for-leak-kinds=definite \
      --show-leak-kinds=definite --suppressions="$supp" \
      --child-silent-after-fork=yes --log-file="$log" \
      "./$exe" --gtest_brief=1 \
      --gtest_filter='-*Exhaustive*:*Stress*:*Huge*:*Death*' >/dev/null 2>&1)
  rc=$?
  grep -E 'ERROR SUMMARY|definitely lost' "$log" | sed 's/^==[0-9]*== /   /'
  if [ $rc -ne 0 ]; then
    echo "   $exe failed under valgrind (exit $rc)"
    grep -E 'Invalid|uninitialised|definitely' -A 12 "$log" | head -n 80
    status=1
  fi
  rm -f "$log"
done
exit $status
