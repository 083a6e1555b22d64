#!/bin/sh
# First command on a machine that may have nothing but Debian's base system:
# installs what the build needs, make included, then runs `make run`.
set -e
cd "$(dirname "$0")"
bash scripts/setup.sh
exec make run
