#!/usr/bin/env bash
# Builds the Debian packages (scripts/package.sh: CPack, lintian), checks
# that dpkg -c lists the expected files, installs the three packages on this
# machine with dpkg -i, builds and runs the consumer example and the
# find_package consumer against /usr, runs the installed tool, and removes
# the packages again. Needs root; refuses to run when a QXPlatform package is
# already installed, so it never removes what it did not install.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
packages=(libqxplatform libqxplatform-dev qxplatform-tools)
for p in "${packages[@]}"; do
  if dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    echo "check_debs: $p is already installed; not touching it" >&2
    exit 1
  fi
done
if [ -e /usr/include/QXPlatform ]; then
  echo "check_debs: /usr/include/QXPlatform exists outside any package" >&2
  exit 1
fi

bash scripts/package.sh >/dev/null
sed -n "/^[EWIP]: /p" build/package/lintian.txt
debs=(build/package/debs/*.deb)

expect() {  # expect DEB PATH...: each PATH is in the package
  local deb=$1 listing path
  shift
  listing=$(dpkg -c "$deb" | awk '{print $6}')
  for path in "$@"; do
    if ! grep -qx "./$path" <<<"$listing"; then
      echo "check_debs: $deb lacks $path" >&2
      exit 1
    fi
  done
}
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
lib=usr/lib/$multiarch
expect build/package/debs/libqxplatform_*.deb \
  "$lib/libQXPlatform.so.2026.1.0" usr/share/doc/libqxplatform/copyright
expect build/package/debs/libqxplatform-dev_*.deb \
  "$lib/libQXPlatform.so" "$lib/cmake/QXPlatform/QXPlatformConfig.cmake" \
  "$lib/cmake/QXPlatform/QXPlatformConfigVersion.cmake" "$lib/pkgconfig/qxplatform.pc" \
  usr/include/QXPlatform/QXPlatform.h usr/share/doc/qxplatform/api/index.html \
  usr/share/doc/qxplatform/docs/abi.md usr/share/doc/qxplatform/examples/consumer/consumer.cpp \
  usr/share/doc/qxplatform/LICENSE usr/share/doc/libqxplatform-dev/copyright
expect build/package/debs/qxplatform-tools_*.deb \
  usr/bin/qxplatform usr/share/man/man1/qxplatform.1.gz usr/share/doc/qxplatform-tools/copyright
if dpkg -c build/package/debs/libqxplatform-dev_*.deb | grep -q '\.a$'; then
  echo "check_debs: the development package holds a static library" >&2
  exit 1
fi

work=$(mktemp -d)
remove() {
  dpkg --purge "${packages[@]}" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap remove EXIT
dpkg -i "${debs[@]}" >/dev/null

env -i PATH=/usr/bin:/bin qxplatform versions | grep -q '^qxplatform tool Version: 2026'
cmake -S /usr/share/doc/qxplatform/examples/consumer -B "$work/consumer" -G Ninja >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/consumer"
mkdir "$work/empty"
PKG_CONFIG_LIBDIR="$work/empty" cmake -S "$root/tests/install/find_package" \
  -B "$work/find_package" -G Ninja >/dev/null
cmake --build "$work/find_package" >/dev/null
"$work/find_package/find_package_consumer"
g++ -std=c++17 "$root/examples/consumer/consumer.cpp" -o "$work/consumer_pc" \
  $(pkg-config --cflags --libs qxplatform)
"$work/consumer_pc"

dpkg --purge "${packages[@]}" >/dev/null
for p in "${packages[@]}"; do
  if dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    echo "check_debs: $p still installed after removal" >&2
    exit 1
  fi
done
test ! -e /usr/include/QXPlatform
echo "Debian packages: built, lint-free of errors, installed, used and removed"
