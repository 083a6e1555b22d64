#!/usr/bin/env bash
# Runs every test executable that can run on its own once under valgrind
# memcheck: any invalid read or write, use of uninitialised memory, or memory
# definitely lost fails the run, and so does a test that fails.
#
# The executables are found, not listed: every file named *_tests under
# <build>/tests, minus the exclusions below. Inside them, death tests (their
# child processes abort on purpose), tests of the floating-point status flags
# (valgrind does not model them) and the exhaustive, stress and big-memory
# tests (minutes natively, hours under valgrind) are left to the native and
# sanitizer runs. Death and flag tests are found in the sources, so a new one
# needs no entry here.
#
# Usage: scripts/valgrind.sh [build dir, default build/release]
# VALGRIND_JOBS (default 2) runs side by side.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build=${1:-build/release}
jobs=${VALGRIND_JOBS:-2}
supp="$root/scripts/valgrind.supp"

# Executables not run here: a name pattern and the reason.
excluded=(
  "*_ns_tests|run whole inside a prepared network namespace by run_in_namespace.sh; started alone they see the host, not the setup they test"
  "stress_*_tests|concurrency stress: a million streams and thousands of round trips take minutes under valgrind's serialised threads; run natively and under TSan"
  "binary_exhaustive_tests|every one of the 2^32 floats: hours under valgrind; run natively (ctest -L exhaustive)"
  "streams_exact_exhaustive_tests|every float and 10^8 doubles written and read back: minutes natively, days under valgrind; run natively (ctest -L long)"
  "binary_bigmem_tests|needs gigabytes of memory (strings past 4 GiB), more than valgrind can shadow; run natively (ctest -L bigmem)"
)

# Executables whose tests each need a process of their own, as ctest gives
# them: each test runs under valgrind by itself.
per_test=(
  "streams_stdio_tests|its tests replace standard input under the global qxin, whose end of data lasts for the process"
)

# Test-name patterns left out in every executable.
filter='*Exhaustive*:*Stress*:*Huge*:*BigMemory*:*Death*'
left_out=$(awk '
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
  /(EXPECT|ASSERT)_(DEATH|EXIT|DEBUG_DEATH)\(|fetestexcept\(/ && current != "" {
    print current
  }' $(find "$root/tests" -name '*_test.cpp' | sort) | sort -u | paste -sd: -)
[ -n "$left_out" ] && filter="$filter:$left_out"

if ! command -v valgrind >/dev/null; then
  echo "valgrind not installed" >&2
  exit 1
fi
if [ ! -d "$build/tests" ]; then
  echo "no test build in $build (build it first)" >&2
  exit 1
fi

# Prints the reason of the first entry of the named list that matches name.
reason_in() {
  local name=$1 entry
  shift
  for entry in "$@"; do
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

# Runs one executable (or, with a test name, one test of it) under valgrind;
# the logs and exit status land in $logs under the given key.
run_one() {
  local path=$1 key=$2 only=${3:-}
  local name
  name=$(basename "$path")
  local testFilter="-$filter"
  [ -n "$only" ] && testFilter="$only"
  (cd "$(dirname "$path")" && valgrind --tool=memcheck --error-exitcode=99 \
      --leak-check=full --errors-for-leak-kinds=definite \
      --show-leak-kinds=definite --track-origins=yes \
      --soname-synonyms=somalloc=nouserintercepts \
      --suppressions="$supp" --child-silent-after-fork=yes \
      --log-file="$logs/$key.vg" \
      "./$name" --gtest_filter="$testFilter" </dev/null >"$logs/$key.out" 2>&1)
  echo $? >"$logs/$key.rc"
}

mapfile -t found < <(find "$build/tests" -name '*_tests' -type f -perm -u+x |
  sort)
selected=()
for path in "${found[@]}"; do
  name=$(basename "$path")
  if reason=$(reason_in "$name" "${excluded[@]}"); then
    echo "-- $name: skipped ($reason)"
  else
    selected+=("$path")
  fi
done
if [ ${#selected[@]} -eq 0 ]; then
  echo "no test executables found under $build/tests" >&2
  exit 1
fi

# One job per executable, or per test where the executable needs that.
jobs_list=()
for path in "${selected[@]}"; do
  name=$(basename "$path")
  if reason_in "$name" "${per_test[@]}" >/dev/null; then
    while read -r test; do
      jobs_list+=("$path|$name.$test|$test")
    done < <("$path" --gtest_list_tests --gtest_filter="-$filter" |
      awk '/^[^ ]/ { suite = $1 } /^  / { print suite $1 }')
  else
    jobs_list+=("$path|$name|")
  fi
done

start=$(date +%s)
running=0
for job in "${jobs_list[@]}"; do
  IFS='|' read -r path key only <<<"$job"
  run_one "$path" "$key" "$only" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n
    running=$((running - 1))
  fi
done
wait

status=0
for job in "${jobs_list[@]}"; do
  IFS='|' read -r path key only <<<"$job"
  rc=$(cat "$logs/$key.rc" 2>/dev/null || echo 98)
  echo "-- $key"
  grep -E 'ERROR SUMMARY|definitely lost' "$logs/$key.vg" |
    sed 's/^==[0-9]*== /   /'
  if [ "$rc" -ne 0 ]; then
    status=1
    if [ "$rc" -eq 99 ]; then
      echo "   $key: valgrind found errors"
      grep -E 'Invalid|uninitialised|definitely|Mismatched|overlap' -A 14 \
        "$logs/$key.vg" | head -n 100
    else
      echo "   $key: exit status $rc under valgrind"
      grep -E 'Failure|FAILED' -A 6 "$logs/$key.out" | head -n 60
    fi
  fi
done
echo "valgrind: ${#selected[@]} executables (${#jobs_list[@]} runs) in $(( $(date +%s) - start ))s, status $status"
exit $status
