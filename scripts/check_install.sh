#!/usr/bin/env bash
# Installs a build into a scratch prefix and builds and runs the consumer
# examples against it, once through find_package and once through pkg-config.
set -euo pipefail
build=${1:-build/release}
root=$(pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null

cmake -S examples/consumer -B "$work/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer/consumer"

export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
g++ -std=c++17 -Wall -Wextra -Werror "$root/examples/consumer/consumer.cpp" \
  -o "$work/consumer_pc" $(pkg-config --cflags --libs qxplatform)
LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer_pc"
echo "install check passed"
