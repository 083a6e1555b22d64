#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need, and only
# when something is missing, so repeated runs cost one dpkg query.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang make pkgconf
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  zlib1g-dev libzstd-dev libisal-dev zstd gzip pigz python3
  openjdk-17-jdk-headless
  libclang-rt-14-dev valgrind iproute2 util-linux
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  case "$status" in
    *"install ok installed"*) ;;
    *) missing+=("$p") ;;
  esac
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null
