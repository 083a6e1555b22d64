#!/usr/bin/env bash
# Installs a build into a scratch prefix and, against that prefix only,
# builds and runs the consumer project (once through find_package, once
# through pkg-config) and every example under examples/ (one CMake project,
# run with ctest). Also checks that the excerpts the documentation quotes
# from the examples still match them.
set -euo pipefail
build=${1:-build/release}
root=$(pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
export LD_LIBRARY_PATH="$work/prefix/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

cmake -S examples/consumer -B "$work/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/consumer"

# The .pc file finds its prefix from its own place, so the scratch prefix
# works as any other.
export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
g++ -std=c++17 -Wall -Wextra -Werror "$root/examples/consumer/consumer.cpp" \
  -o "$work/consumer_pc" \
  $(pkg-config --cflags --libs qxplatform)
"$work/consumer_pc"

cmake -S examples -B "$work/examples" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/examples" >/dev/null
# Temporary files of the examples go under the scratch directory.
(cd "$work/examples" && TMPDIR="$work" ctest --output-on-failure)

bash "$root/scripts/docs.sh" --check-excerpts
echo "install check passed"
