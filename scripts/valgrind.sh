#!/usr/bin/env bash
# Runs every test executable that can run on its own once under valgrind
# memcheck: any invalid read or write, use of uninitialised memory, or memory
# definitely lost fails the run, and so does a test that fails.
#
# The executables are found, not listed: every file named *_tests under
# <build>/tests, minus the exclusions below. Inside them, death tests (their
# child processes abort on purpose) and the exhaustive, stress and big-memory
# tests (minutes natively, hours under valgrind) are left to the native and
# sanitizer runs. Death tests are found in the sources, so a new one needs no
# entry here.
#
# Usage: scripts/valgrind.sh [build dir, default build/release]
# VALGRIND_JOBS (default 2) executables run side by side.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build=${1:-build/release}
jobs=${VALGRIND_JOBS:-2}
supp="$root/scripts/valgrind.supp"

# Executables not run here: a name pattern and the reason.
excluded=(
  "*_ns_tests|run whole inside a prepared network namespace by run_in_namespace.sh; started alone they see the host, not the setup they test"
  "stress_*_tests|concurrency stress: a million streams and thousands of round trips take minutes under valgrind's serialised threads; run natively and under TSan"
)

# Test-name patterns left out in every executable.
filter='*Exhaustive*:*Stress*:*Huge*:*BigMemory*:*Death*'
death=$(awk '
  FNR == 1 { current = "" }
  /^(TEST|TEST_F|TEST_P)\(/ {
    line = $0
    # clang-format may put the test name on the next line.
    while (line !~ /\)/ && (getline more) > 0) {
      line = line more
    }
    sub(/^[A-Z_]+\( */, "", line)
    split(line, part, /[ ,)]+/)
    current = part[1] "." part[2]
  }
  /(EXPECT|ASSERT)_(DEATH|EXIT|DEBUG_DEATH)\(/ && current != "" {
    print current
  }' $(find "$root/tests" -name '*_test.cpp' | sort) | sort -u | paste -sd: -)
[ -n "$death" ] && filter="$filter:$death"

if ! command -v valgrind >/dev/null; then
  echo "valgrind not installed" >&2
  exit 1
fi
if [ ! -d "$build/tests" ]; then
  echo "no test build in $build (build it first)" >&2
  exit 1
fi

reason_for() {
  local name=$1 entry
  for entry in "${excluded[@]}"; do
    # shellcheck disable=SC2053
    if [[ $name == ${entry%%|*} ]]; then
      echo "${entry#*|}"
      return 0
    fi
  done
  return 1
}

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

run_one() {
  local path=$1 name
  name=$(basename "$path")
  local log="$logs/$name.vg" out="$logs/$name.out"
  (cd "$(dirname "$path")" && valgrind --tool=memcheck --error-exitcode=99 \
      --leak-check=full --errors-for-leak-kinds=definite \
      --show-leak-kinds=definite --track-origins=yes \
      --suppressions="$supp" --child-silent-after-fork=yes \
      --log-file="$log" \
      "./$name" --gtest_brief=1 --gtest_filter="-$filter" >"$out" 2>&1)
  echo $? >"$logs/$name.rc"
}

mapfile -t found < <(find "$build/tests" -name '*_tests' -type f -perm -u+x |
  sort)
selected=()
for path in "${found[@]}"; do
  name=$(basename "$path")
  if reason=$(reason_for "$name"); then
    echo "-- $name: skipped ($reason)"
  else
    selected+=("$path")
  fi
done
if [ ${#selected[@]} -eq 0 ]; then
  echo "no test executables found under $build/tests" >&2
  exit 1
fi

start=$(date +%s)
running=0
for path in "${selected[@]}"; do
  run_one "$path" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n
    running=$((running - 1))
  fi
done
wait

status=0
for path in "${selected[@]}"; do
  name=$(basename "$path")
  rc=$(cat "$logs/$name.rc" 2>/dev/null || echo 98)
  echo "-- $name"
  grep -E 'ERROR SUMMARY|definitely lost' "$logs/$name.vg" |
    sed 's/^==[0-9]*== /   /'
  if [ "$rc" -ne 0 ]; then
    status=1
    if [ "$rc" -eq 99 ]; then
      echo "   $name: valgrind found errors"
      grep -E 'Invalid|uninitialised|definitely|Mismatched|overlap' -A 14 \
        "$logs/$name.vg" | head -n 100
    else
      echo "   $name: exit status $rc under valgrind"
      tail -n 40 "$logs/$name.out"
    fi
  fi
done
echo "valgrind: ${#selected[@]} executables in $(( $(date +%s) - start ))s"
exit $status
