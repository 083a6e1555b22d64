#!/usr/bin/env bash
# Cross build for another processor, tests run under user-mode emulation.
#
#   bash scripts/cross.sh ARCH [ctest arguments...]
#
# ARCH is aarch64 (little-endian arm64) or s390x (big-endian). Installs the
# cross compiler and qemu-user with apt-get, unpacks the target's zlib, zstd
# and GoogleTest packages into a sysroot under build/ (dpkg -x, so nothing of
# the other architecture is installed on the host), configures with
# cmake/cross-ARCH.cmake, builds and runs ctest with every test executable
# started through qemu. Without ctest arguments the labels listed in
# docs/porting.md are run; any arguments replace that selection.
set -euo pipefail
cd "$(dirname "$0")/.."

arch=${1:?usage: cross.sh aarch64|s390x [ctest arguments]}
shift
case "$arch" in
  aarch64) debarch=arm64; triple=aarch64-linux-gnu ;;
  s390x) debarch=s390x; triple=s390x-linux-gnu ;;
  *) echo "cross.sh: unknown architecture '$arch' (aarch64 or s390x)" >&2; exit 2 ;;
esac

apt() { apt-get -o DPkg::Lock::Timeout=600 "$@"; }
if ! command -v "$triple-g++" >/dev/null || ! command -v "qemu-$arch" >/dev/null ||
   ! command -v ninja >/dev/null || ! command -v pkg-config >/dev/null; then
  apt update -qq
  apt install -y --no-install-recommends "g++-$triple" qemu-user ninja-build pkg-config
fi

# The target's libraries, unpacked into build/sysroot-ARCH.
sysroot="$PWD/build/sysroot-$arch"
if [ ! -f "$sysroot/.complete" ]; then
  if ! dpkg --print-foreign-architectures | grep -qx "$debarch"; then
    dpkg --add-architecture "$debarch"
  fi
  apt update -qq
  debs="$PWD/build/debs-$arch"
  rm -rf "$debs" "$sysroot"
  mkdir -p "$debs" "$sysroot"
  (cd "$debs" && chmod 777 . && apt-get download \
      "zlib1g:$debarch" "zlib1g-dev:$debarch" \
      "libzstd1:$debarch" "libzstd-dev:$debarch" \
      "libgtest-dev:$debarch")
  for deb in "$debs"/*.deb; do
    dpkg -x "$deb" "$sysroot"
  done
  # Links that name an absolute path (libz.so -> /lib/...) point into the
  # sysroot instead, or the linker falls back to the static library.
  find "$sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfn "$sysroot$(readlink "$link")" "$link"
  done
  touch "$sysroot/.complete"
fi

# jni.h and jni_md.h are the same for every Linux processor: the host JDK's
# headers serve (the library never links the VM).
javac=$(command -v javac || true)
if [ -z "$javac" ]; then
  echo "cross.sh: javac not found (bash scripts/setup.sh installs the JDK)" >&2
  exit 1
fi
java_home=$(dirname "$(dirname "$(readlink -f "$javac")")")

dir="build/cross-$arch"
cmake -S . -B "$dir" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/cross-$arch.cmake" \
  -DQXPLATFORM_SYSROOT="$sysroot" \
  -DCMAKE_BUILD_TYPE=Release \
  -DQXPLATFORM_WERROR=ON \
  -DQXPLATFORM_BUILD_TESTS=ON \
  -DQXPLATFORM_BUILD_TOOLS=ON \
  -DQXPLATFORM_WITH_ISAL=OFF \
  -DQXPLATFORM_BUILD_API_DOCS=OFF \
  -DJAVA_INCLUDE_PATH="$java_home/include" \
  -DJAVA_INCLUDE_PATH2="$java_home/include/linux" >/dev/null
# The library, the tool and the tests of the folders that are run: building
# every test under a cross compiler costs more than running them.
cmake --build "$dir" --target QXPlatform qxplatform \
  tests/binary/all tests/streams/all tests/files/all

if [ $# -eq 0 ]; then
  # Left out under emulation (see docs/porting.md): the image check starts the
  # target's tool from python, which needs binfmt; qemu-user's getcwd stops
  # at PATH_MAX.
  set -- -L '^(binary|streams|files)$' -LE '^(exhaustive|bigmem|long|stress)$' \
    -E 'QXBinaryImagesTest.ImagesMatchPython|QXDirectoryTest.CurrentWorkingDirectoryLongerThanTheFirstBuffer'
fi
ctest --test-dir "$dir" --output-on-failure -j2 "$@"
