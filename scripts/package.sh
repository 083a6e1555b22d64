#!/usr/bin/env bash
# Builds the Debian packages (build/package/debs/*.deb) with CPack, then runs
# lintian over them: its warnings are printed, an error fails. Installs the
# packaging tools it needs when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
for p in dpkg-dev file lintian doxygen; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  case "$status" in
    *"install ok installed"*) ;;
    *) missing+=("$p") ;;
  esac
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "package: installing ${missing[*]}"
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null
fi

cmake --preset package >/dev/null
cmake --build --preset package
rm -rf build/package/debs
cpack --config build/package/CPackConfig.cmake -B build/package/debs >/dev/null
debs=(build/package/debs/*.deb)
for deb in "${debs[@]}"; do
  echo "== $deb"
  dpkg-deb --field "$deb" Package Version Depends
done
echo "== lintian"
# Tags of severity error fail; warnings and the rest are shown.
lintian --tag-display-limit 0 "${debs[@]}" | tee build/package/lintian.txt || true
if grep -q '^E: ' build/package/lintian.txt; then
  echo "package: lintian reports errors" >&2
  exit 1
fi
echo "package: ${debs[*]}"
