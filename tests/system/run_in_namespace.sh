#!/bin/sh
# Runs a test program in fresh UTS, network and mount namespaces that the
# named setup has prepared, so that host names, interfaces and system files
# can be what the test needs without touching the machine.
#
#   run_in_namespace.sh SETUP PROGRAM [ARGUMENT...]
#
# Exits with 77 (reported by ctest as skipped) when this system refuses to
# make the namespaces.
set -eu

if [ "${1:-}" != "--inside" ]; then
  if ! unshare --uts --net --mount true 2>/dev/null; then
    echo "SKIP: unshare --uts --net --mount is refused on this system" >&2
    exit 77
  fi
  exec unshare --uts --net --mount --propagation private sh "$0" --inside "$@"
fi
shift
setup=$1
shift

if ! command -v ip >/dev/null 2>&1; then
  echo "run_in_namespace.sh: the ip command (iproute2) is missing" >&2
  exit 1
fi

# Replaces a file under /etc for this mount namespace only.
replace_etc() {
  content=$(mktemp)
  printf '%b' "$2" >"$content"
  mount --bind "$content" "$1"
  rm -f "$content"
}

add_ethernet() {
  ip link add "$1" type veth peer name "$1p"
  ip link set "$1" address "$2"
  if [ -n "${3:-}" ]; then
    ip addr add "$3" dev "$1"
  fi
  ip link set "$1p" up
  ip link set "$1" up
}

# No name server is reachable from here; an empty file keeps the resolver
# from trying the machine's.
replace_etc /etc/resolv.conf ''

case "$setup" in
  loopback)
    hostname alpha.beta.gamma
    ip link set lo up
    replace_etc /etc/hosts '127.0.0.1 alpha.beta.gamma alpha\n'
    ;;
  en0)
    hostname alpha
    domainname example.test
    ip link set lo up
    add_ethernet en0 02:11:22:33:44:55 10.11.12.13/24
    ip addr add 10.99.0.1/24 dev en0
    replace_etc /etc/hosts '127.0.0.1 localhost\n'
    ;;
  nosource)
    replace_etc /etc/hosts ''
    ;;
  loopbacks)
    hostname alpha
    ip link set lo up
    ip addr add 127.9.9.9/8 dev lo
    replace_etc /etc/hosts ''
    ;;
  zerooctet)
    hostname alpha
    add_ethernet en0 02:11:22:33:44:55 0.1.2.3/8
    replace_etc /etc/hosts ''
    ;;
  longname)
    # A reverse answer longer than the domain buffer of 128 bytes.
    label=$(printf '%050d' 0 | tr 0 x)
    hostname alpha
    domainname fallback.test
    ip link set lo up
    replace_etc /etc/hosts "127.0.0.1 alpha.$label.$label.$label.$label.example\n"
    ;;
  plain)
    ip link set lo up
    ;;
  *)
    echo "run_in_namespace.sh: unknown setup $setup" >&2
    exit 2
    ;;
esac

QXTEST_NAMESPACE=$setup
export QXTEST_NAMESPACE
exec "$@"
