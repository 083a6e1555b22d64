#!/usr/bin/env bash
# The main job: shows what the qxplatform tool can do with what is built.
set -euo pipefail
build=${1:-build/release}
tool="$build/tools/qxplatform/qxplatform"

"$tool" --help
echo
echo "== qxplatform cat README.md (first lines)"
"$tool" cat README.md | head -n 5
