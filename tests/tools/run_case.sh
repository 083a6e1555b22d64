#!/usr/bin/env bash
# Runs one tool case: CASE.sh runs with QXPLATFORM pointing at the tool and a
# scratch directory as working directory; its exit status and standard output
# must equal CASE.exit and CASE.stdout.
set -u
tool=$1
case_script=$2
base=${case_script%.sh}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QXPLATFORM="$tool"
export CASE_DIR
CASE_DIR=$(cd "$(dirname "$case_script")" && pwd)
actual_out="$work/.stdout"
(cd "$work" && bash "$case_script") >"$actual_out"
status=$?
# 77: the case cannot run in this build and says so; ctest counts it skipped.
if [ "$status" = 77 ]; then
  cat "$actual_out"
  exit 77
fi
expected_status=$(cat "$base.exit")
fail=0
if [ "$status" != "$expected_status" ]; then
  echo "exit status $status, expected $expected_status"
  fail=1
fi
if ! cmp -s "$actual_out" "$base.stdout"; then
  echo "standard output differs from $base.stdout:"
  diff "$base.stdout" "$actual_out" | head -n 40
  fail=1
fi
exit $fail
