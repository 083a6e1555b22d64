#!/usr/bin/env bash
# Installs a build into a scratch prefix and, against that prefix only,
# builds and runs the consumer project (once through find_package, once
# through pkg-config) and every example under examples/ (one CMake project,
# run with ctest). Also checks that the installed tool runs from there with
# a clean environment, that find_package needs neither zlib, zstd nor
# pkg-config and leaves no variables behind, that the documentation is
# installed, and that the excerpts the documentation quotes from the
# examples still match them.
set -euo pipefail
build=${1:-build/release}
root=$(pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null

# The tool finds the library beside it (RUNPATH $ORIGIN/../lib), with no
# LD_LIBRARY_PATH or anything else from this environment.
env -i "$work/prefix/bin/qxplatform" --help >/dev/null
env -i "$work/prefix/bin/qxplatform" versions | grep -q '^libQXPlatform Version: '
for f in README.md LICENSE CHANGELOG.md docs/README.md docs/abi.md docs/tool.md \
         examples/consumer/consumer.cpp; do
  test -s "$work/prefix/share/doc/qxplatform/$f" || { echo "not installed: share/doc/qxplatform/$f" >&2; exit 1; }
done
test -s "$work/prefix/share/man/man1/qxplatform.1.gz"

# find_package without zlib, zstd or pkg-config (each disabled; an empty
# PKG_CONFIG_LIBDIR as well), without LD_LIBRARY_PATH for the link.
mkdir "$work/empty"
PKG_CONFIG_LIBDIR="$work/empty" cmake -S "$root/tests/install/find_package" \
  -B "$work/find_package" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/find_package" >/dev/null

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
"$work/find_package/find_package_consumer"

bash "$root/scripts/docs.sh" --check-excerpts
echo "install check passed"
