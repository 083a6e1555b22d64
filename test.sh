#!/bin/sh
# Second command: installs what the build needs, make included, then runs
# `make test` (release build and every test).
set -e
cd "$(dirname "$0")"
bash scripts/setup.sh
exec make test
