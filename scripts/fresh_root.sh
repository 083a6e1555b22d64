#!/usr/bin/env bash
# Proves that the README's two commands set everything up from nothing: makes
# a minimal Debian root (debootstrap --variant=minbase bookworm), copies the
# source tree into it (committed files only, as a fresh clone has them), and
# runs ./run.sh and then ./test.sh inside it with chroot, timing each step.
# Needs root, debootstrap (installed when missing) and the network to the
# Debian mirror; takes about 40 minutes on two cores, most of it building
# and running the tests. Not part of CI for that reason.
#
#   scripts/fresh_root.sh [DIR]    (default: a new directory under /tmp;
#                                   an existing DIR with a root is reused)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -ne 0 ]; then
  echo "fresh_root: needs root (debootstrap and chroot)" >&2
  exit 2
fi
dir=${1:-$(mktemp -d /tmp/qx-fresh-root.XXXXXX)}
root="$dir/root"
mirror=${DEBIAN_MIRROR:-http://deb.debian.org/debian}
start=$(date +%s)
step() { echo "== $1 ($(( $(date +%s) - start ))s)"; }

if ! command -v debootstrap >/dev/null; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q debootstrap </dev/null
fi
if [ ! -x "$root/usr/bin/apt-get" ]; then
  step "debootstrap --variant=minbase bookworm"
  debootstrap --variant=minbase bookworm "$root" "$mirror" >"$dir/debootstrap.log"
fi

step "copy the committed source tree"
rm -rf "$root/src"
mkdir -p "$root/src"
git archive --format=tar HEAD | tar -x -C "$root/src"

mounted=()
cleanup() {
  local m
  for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
    umount -l "${mounted[$i]}" 2>/dev/null || true
  done
}
trap cleanup EXIT
for m in proc sys dev dev/pts; do
  mkdir -p "$root/$m"
  case $m in
    proc) mount -t proc proc "$root/proc" ;;
    sys) mount --rbind /sys "$root/sys" ;;
    dev) mount --rbind /dev "$root/dev" ;;
    dev/pts) continue ;;
  esac
  mounted+=("$root/$m")
done
cp /etc/resolv.conf "$root/etc/resolv.conf"

in_root() {
  chroot "$root" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    HOME=/root TERM=dumb LANG=C.UTF-8 /bin/sh -c "$1"
}

step "make is absent in the new root"
if in_root "command -v make"; then
  echo "fresh_root: make is already in the root; the check proves less" >&2
fi
step "./run.sh"
in_root "cd /src && ./run.sh" >"$dir/run.log" 2>&1 || { tail -n 40 "$dir/run.log"; exit 1; }
tail -n 3 "$dir/run.log"
step "./test.sh"
in_root "cd /src && ./test.sh" >"$dir/test.log" 2>&1 || { tail -n 40 "$dir/test.log"; exit 1; }
grep -E 'tests passed|tests failed' "$dir/test.log"
step "done: both commands passed in a fresh minbase root ($dir)"
